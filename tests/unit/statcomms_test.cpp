// Statistics requests: how long they say they are, the protocol version, and the query calls with their codes.
#include "stapi_zul_statcomms.h"

#include "stapi_zul_gwytok.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statquery.h"

#include "failing_malloc.h"
#include "scripted_peer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace unittest {
namespace {

const Bytes OBJECT =
    hex("0002 'US' 0002 'en' 0000 003C 'DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats'");

// An init reply whose header fields come back in the call.
const Bytes INIT_REPLY =
    message({.word12 = 0xE1E2E3E4, .flag = 0x5A, .eyecatcher = "Etag", .version = 0x00710203}, initBody(0x12345678));

Bytes text(const std::string& chars) {
    return slice(word(static_cast<std::uint32_t>(chars.size())), 2) + Bytes(chars.begin(), chars.end());
}

Bytes callRequest(std::uint32_t callType, const Bytes& body) {
    const auto size = static_cast<std::uint32_t>(body.size() + OBJECT.size());
    return hex("'Etag' 00710203 00000001 00000000 E1E2E3E4 00000005 'Admin' 5A") + word(size + 12) + word(callType) +
           word(0x12345678) + word(size) + OBJECT + body;
}

// A reply with one element that has no items, the smallest that leaves something to see.
const Bytes EMPTY_ANSWER = hex("00 AC ED 00 05 73 72 00 00") + Bytes(13) + hex("00 00") + Bytes(13) +
                           hex("77 0B 00 01 'E'") + word(0) + word(0) + hex("73 72 00 00") + Bytes(8);

// A token whose version buffer is filled up.
struct Token : GatewayToken {
    explicit Token(int descriptor) : GatewayToken{} {
        socket = descriptor;
        protocolVersion = static_cast<char*>(std::malloc(PROTOCOL_VERSION_SIZE));
        std::memset(protocolVersion, 'x', PROTOCOL_VERSION_SIZE);
    }
    ~Token() {
        std::free(protocolVersion);
    }
    FlowReasons reasons{};
};

TEST(ProtocolVersion, textAsFarAsTheReplyHasIt) {
    const auto bytes = [](std::size_t size) { return Bytes(size, 'v'); };
    const struct {
        Bytes payload;  // behind 00 AC ED 00 05 74
        std::string version;
        bool grows;
    } cases[] = {
        {hex("0007 '1_0_0_0'"), "1_0_0_0", false},
        {hex("0000 'abcdefghij'"), "", false},
        {hex("0003 'abcdefghij'"), "abc", false},
        {hex("003F") + bytes(63), std::string(63, 'v'), false},
        {hex("0040") + bytes(64), std::string(64, 'v'), true},
        {hex("7FFF") + bytes(0x7FFF), std::string(0x7FFF, 'v'), true},
        {hex("003F") + bytes(60), std::string(60, 'v'), false},
        {hex("7FFF 'abc'"), "abc", true},
        {hex("8000 'abc'"), "", false},
        {hex("FFFF 'abc'"), "", false},
        {hex("01"), "", true},
        {{}, "", false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        ScriptedPeer peer({INIT_REPLY, message({}, callBody(hex("00 AC ED 00 05 74") + one.payload))});
        Token token(peer.socket());
        const AllocationFault allocations(0);
        EXPECT_EQ(statProtocolVer(&token, &token.reasons), 0);
        EXPECT_EQ(token.protocolVersion, one.version);
        for (std::size_t i = one.version.size() + 1; !one.grows && i < PROTOCOL_VERSION_SIZE; ++i) {
            EXPECT_EQ(token.protocolVersion[i], 'x') << i;  // nothing copied from behind the reply
        }
        EXPECT_EQ(allocations.taken(), allocations.released());
        ASSERT_EQ(peer.requests().size(), 2u);
        EXPECT_EQ(toHex(peer.requests()[0]),
                  toHex(hex("'Gate' 00700000 00000001 00000000 00000000 00000005 'Admin' 00 00000004 00000000")));
        EXPECT_EQ(toHex(peer.requests()[1]), toHex(callRequest(1, text("protocol"))));
    }
}

const struct ExchangeCase {
    std::vector<Bytes> replies;
    bool lost;
} EXCHANGE_CASES[] = {
    {{}, true},
    {{message({}, word(0) + word(33) + word(1))}, false},
    {{message({.returnCode = 0xF004}, initBody(1))}, true},
    {{message({})}, false},
    {{INIT_REPLY}, true},
    {{INIT_REPLY, message({.returnCode = 5})}, false},
    {{INIT_REPLY, message({}, word(1) + word(9) + Bytes(1))}, false},
    {{INIT_REPLY, message({}, word(1) + word(0) + Bytes{1})}, false},
    {{INIT_REPLY, message({}, word(1) + word(0))}, false},
    {{INIT_REPLY, message({}, initBody(2))}, false},
};

// An init exchange takes 3 blocks and the call 4, so the 8th is that of a longer text.
TEST(ProtocolVersion, withoutABuffer) {
    for (const bool hasBuffer : {false, true}) {
        ScriptedPeer peer({INIT_REPLY, message({}, callBody(hex("00 AC ED 00 05 74 00 63") + Bytes(99, 'v')))});
        Token token(peer.socket());
        if (!hasBuffer) {
            std::free(token.protocolVersion);
            token.protocolVersion = nullptr;
        }
        const AllocationFault fault(8);
        EXPECT_EQ(statProtocolVer(&token, &token.reasons), STAPI_RC_NO_MEMORY);
        EXPECT_EQ(fault.released(), fault.taken() + (hasBuffer ? 1 : 0));  // the buffer that was too small
        EXPECT_EQ(token.protocolVersion, nullptr);
    }
}

struct Buffer {
    Buffer() {
        std::memset(bytes, 0x55, sizeof bytes);
    }
    bool isUntouched() const {
        return std::string(bytes, sizeof bytes).find_first_not_of('\x55') == std::string::npos;
    }
    char bytes[RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK];
};

constexpr struct Query {
    int (*run)(int socketDesc, char* buffer, const char* ids);
    const char* operation;
    bool takesIds;
    const char* marker;
} QUERIES[] = {
    {[](int s, char* b, const char*) { return commsStats(s, b); }, "GET_STATS", false, "ZULSTSET"},
    {[](int s, char* b, const char*) { return commsStatIds(s, b); }, "STAT_IDS", false, "ZULIDSET"},
    {[](int s, char* b, const char*) { return commsResourceGroupsIds(s, b); }, "RESOURCE_GROUPS", false, "ZULIDSET"},
    {commsStatsByStatGroupId, "GET_STATS", true, "ZULSTSET"},
    {commsStatsByStatId, "GET_STATS", true, "ZULSTSET"},
    {commsStatIdsByStatGroupId, "STAT_IDS", true, "ZULIDSET"},
};

TEST(Queries, requestsContentAndFailures) {
    const std::uint32_t words[] = {1, 1, 0, 0, 0x0E0F0E0F};  // count, text length, rc, item count, terminator
    const auto* bytes = reinterpret_cast<const char*>(words);
    const std::string content = std::string(bytes, 8) + "E" + std::string(bytes + 8, 12);
    for (const Query& query : QUERIES) {
        SCOPED_TRACE(&query - QUERIES);
        // The length field of the last holds 16 bits; its text goes out whole.
        for (const std::string& ids : {std::string(), std::string("CLIENT:SERVER"), std::string(70000, 'i')}) {
            ScriptedPeer peer({INIT_REPLY, message({}, callBody(EMPTY_ANSWER))});
            Buffer buffer;
            const AllocationFault allocations(0);
            EXPECT_EQ(query.run(peer.socket(), buffer.bytes, ids.c_str()), 0);
            EXPECT_EQ(allocations.taken(), allocations.released());
            EXPECT_EQ(std::string(buffer.bytes, 29), query.marker + content.substr(0, 21));
            ASSERT_EQ(peer.requests().size(), 2u);
            const Bytes expected =
                callRequest(5, text(query.operation) + hex("00000001 AC ED 00 05 74") +
                                   text(query.takesIds ? ids : "") + word(1) + text("java.lang.String"));
            EXPECT_TRUE(peer.requests()[1] == expected) << toHex(slice(peer.requests()[1], 0, 200));
        }
        for (const ExchangeCase& one : EXCHANGE_CASES) {
            SCOPED_TRACE(&one - EXCHANGE_CASES);
            ScriptedPeer peer(one.replies);
            Buffer buffer;
            const AllocationFault allocations(0);
            EXPECT_EQ(query.run(peer.socket(), buffer.bytes, "a"),
                      one.lost ? STAPI_RC_GATEWAY_CONNECTION_LOST : STAPI_RC_GATEWAY_REQUEST_FAILED);
            EXPECT_EQ(allocations.taken(), allocations.released());
            EXPECT_TRUE(buffer.isUntouched());
        }
        ScriptedPeer peer({});
        EXPECT_EQ(query.run(peer.socket(), nullptr, nullptr), STAPI_RC_NULL_PARAMETER);
        EXPECT_TRUE(peer.requests().empty());
    }
}

// Data of an init reply belongs to nobody and goes before the call.
TEST(Queries, oneAllocationAfterTheOtherFails) {
    for (const bool hasData : {false, true}) {
        for (int attempt = 1, rc = -1; rc != 0; ++attempt) {
            SCOPED_TRACE(attempt);
            ScriptedPeer peer(
                {hasData ? message({}, callBody(hex("'data'"))) : INIT_REPLY, message({}, callBody(EMPTY_ANSWER))});
            Buffer buffer;
            const AllocationFault fault(attempt);
            rc = commsStats(peer.socket(), buffer.bytes);
            EXPECT_EQ(fault.taken(), fault.released());
            EXPECT_EQ(rc, fault.attempts() < attempt ? 0 : STAPI_RC_GATEWAY_REQUEST_FAILED);
            EXPECT_EQ(buffer.isUntouched(), rc != 0);
            ASSERT_LT(attempt, 20);
        }
    }
}

}  // namespace
}  // namespace unittest
