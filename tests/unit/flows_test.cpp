// What the replies of the authorisation and of the admin exchange mean, and what of them goes into the next request.
#include "stapi_zul_gwycon.h"
#include "stapi_zul_socketcomms.h"
#include "zulstats.h"

#include "scripted_peer.h"
#include "support/interposer.h"
#include "support/trace_capture.h"

#include <climits>
#include <cstdlib>

namespace {

using namespace support;

// The second request comes out of the record that the first reply was read into; so does the length of the name, and
// with it how much of the name goes out. The header is taken to be as long as the request's, so that of a shorter name
// takes two bytes more than there are.
TEST(Auth, secondStepCarriesTheFirstReply) {
    const std::pair<Bytes, Bytes> cases[] = {
        {hex("'Etag' 00710203 00000063 E1E2E3E4 00000000 00000004 'Auth' 5A 00000014"
             "00000000 00000000 A1A1A1A1 A2A2A2A2 A3A3A3A3"),
         hex("'Etag' 00710203 00000001 00000000 E1E2E3E4 00000004 'Auth' 5A 00000014"
             "00000001 A1A1A1A1 A2A2A2A2 A3A3A3A3 00000000")},
        {message({.name = "Au", .dataLength = 20}, Bytes(10) + word(1) + word(2) + word(3)),
         hex("'Gate' 00700000 00000001 00000000 00000000 00000002 'Au' 00 00000014"
             "00000001 00000001 00000002 00000003 00000000")},
    };
    for (const auto& [reply, request] : cases) {
        ScriptedPeer peer({reply, message({.name = "Auth"}, Bytes(20))});
        FlowReasons reasons{};
        ASSERT_EQ(authorizeConnection(peer.socket(), &reasons), 0);
        ASSERT_EQ(peer.requests().size(), 2u);
        EXPECT_EQ(toHex(peer.requests()[1]), toHex(request));
    }
}

TEST(Auth, repliesAndWhatTheyLeadTo) {
    using Words = std::vector<std::uint32_t>;
    const struct {
        const char* body;
        int expected;
        int authRc;    // in the reasons
        Words record;  // the data, the results
    } cases[] = {
        {"00000000 00000000 00000021 00000022 00000023", 0, 0, {0x21, 0x22, 0x23, 8, 9}},
        {"00000001 00000000 00000021 00000022 00000023", 0, 0, {5, 6, 7, 0x21, 0x22}},
        {"00000001 00000011 00000021 00000022 00000023", 0, 0, {5, 6, 7, 0x21, 0x22}},
        {"00000000 00000011 00000021 00000022 00000023", -2, 17, {5, 6, 7, 8, 9}},
        {"00000000 FFFFFFFE", -2, -2, {5, 6, 7, 8, 9}},
        {"00000000", 0, 0, {0, 0, 0, 8, 9}},
        {"00000000 00000000 21222324 25", 0, 0, {0x21222324, 0x25000000, 0, 8, 9}},
        {"", 0, 0, {5, 6, 7, 1, 0}},  // the request itself is read: "Gate", version, flow type, return code
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.body);
        ScriptedPeer peer({message({.name = "Auth"}, hex(one.body))});
        FlowReasons reasons{};
        AuthRequest request{newRequestHeader("Auth", 1, 4), 0, 0, 5, 6, 7, 0, 8, 9};
        const AllocationFault allocations(0);
        EXPECT_EQ(flowAuthRequest(peer.socket(), &request, &reasons), one.expected);
        EXPECT_EQ(allocations.taken, allocations.released);
        EXPECT_EQ(reasons.authRc, one.authRc);
        EXPECT_EQ(one.record, (Words{request.authData1, request.authData2, request.authData3, request.authResult1,
                                     request.authResult2}));
    }
}

struct Admin {
    Admin(std::int32_t callType, const Bytes& reply) : peer({reply}) {
        request.header = newRequestHeader("Admin", 1, callType == ADMIN_INIT ? 4 : 0x3C);
        request.adminCallType = callType;
        request.adminHandle = 0x12345678;
    }
    ~Admin() {
        std::free(request.replyData);
    }
    int run() {
        return flowAdminRequest(peer.socket(), &request, &reasons);
    }
    ScriptedPeer peer;
    AdminRequest request{};
    FlowReasons reasons{};
};

TEST(Admin, callRepliesAndWhatTheyLeadTo) {
    const struct {
        const char* body;
        int expected;
        int adminRc;  // in the reasons
        std::string payload;
        std::vector<int> numbers;
    } cases[] = {
        {"00000001 00000000 00 'payload'", 0, 0, "payload", {}},
        {"00000001 00000000 00", 0, 0, "", {}},
        {"FFFFFFFF 00000000 00 'x'", 0, 0, "x", {}},
        {"00000001 00000000 01 'x'", -3, 0, "", {3205}},
        {"00000001 00000000 80", -3, 0, "", {3205}},
        {"00000001 00000021 00 'x'", -3, 33, "", {3206}},
        {"00000000 FFFFFFF7 00000005", -3, -9, "", {3206}},
        {"00000001 00000021 01 'x'", -3, 33, "", {3206}},
        {"", -3, 7340032, "", {3206}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.body);
        TraceCapture trace(1);
        Admin admin(ADMIN_INVOKE, message({}, hex(one.body)));
        EXPECT_EQ(admin.run(), one.expected);
        EXPECT_EQ(admin.reasons.adminRc, one.adminRc);
        EXPECT_EQ(trace.takeNumbers(), one.numbers);
        EXPECT_EQ(admin.request.adminHandle, 0x12345678u);
        ASSERT_EQ(admin.request.replyData != nullptr, one.expected == 0);
        if (one.expected == 0) {
            EXPECT_EQ(admin.request.header.dataLength, static_cast<std::int32_t>(one.payload.size()));
            EXPECT_EQ(std::string(reinterpret_cast<char*>(admin.request.replyData), one.payload.size() + 20),
                      one.payload + std::string(20, '\0'));
        }
    }
}

// A reply cut after each byte of its head: what is missing counts as zeros.
TEST(Admin, shortBodies) {
    constexpr std::uint32_t HANDLES[] = {0x12000000, 0x12340000, 0x12345600, 0x12345678};
    for (std::size_t size = 1; size <= 12; ++size) {
        Admin init(ADMIN_INIT, message({}, slice(initBody(0x12345678), 0, size)));
        EXPECT_EQ(init.run(), 0);
        EXPECT_EQ(init.request.adminHandle, size > 8 ? HANDLES[size - 9] : 0) << size;
        EXPECT_EQ(init.request.replyData, nullptr);
    }
    for (std::size_t size = 1; size <= 9; ++size) {
        Admin call(ADMIN_INVOKE, message({}, slice(hex("01 00000000 00000000"), 0, size)));
        EXPECT_EQ(call.run(), size < 9 ? STAPI_RC_NO_MEMORY : 0) << size;
        EXPECT_EQ(call.request.replyData != nullptr, size == 9);
    }
}

// A reply without body to a request of version 0, as an init reply may have left it: the request itself reads as a call
// reply, whatever negative length was announced.
TEST(Admin, requestReadAsACallReplyHasNoPayload) {
    for (const std::int32_t length : {0, -1, INT_MIN, INT_MIN + 8}) {
        Admin admin(ADMIN_INVOKE, message({.dataLength = length}));
        admin.request.header.version = 0;
        EXPECT_EQ(admin.run(), STAPI_RC_NO_MEMORY) << length;
        EXPECT_EQ(admin.request.replyData, nullptr);
    }
}

}  // namespace
