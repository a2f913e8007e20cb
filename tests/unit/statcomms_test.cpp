// The exchanges for statistics: the protocol version, and what an init reply leaves behind.
#include "stapi_zul_statcomms.h"

#include "stapi_zul_gwytok.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statquery.h"

#include "scripted_peer.h"
#include "support/interposer.h"
#include "support/trace_capture.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace support;

// An init reply whose header fields come back in the call, and that call.
const Bytes INIT_REPLY =
    message({.word12 = 0xE1E2E3E4, .flag = 0x5A, .eyecatcher = "Etag", .version = 0x00710203}, initBody(0x12345678));
const Bytes VERSION_CALL =
    hex("'Etag' 00710203 00000001 00000000 E1E2E3E4 00000005 'Admin' 5A 0000005E 00000001 12345678 00000052"
        "0002 'US' 0002 'en' 0000 003C 'DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats' 0008 'protocol'");

// What the call writes behind its entry line.
const std::vector<int> VERSION_LINES = {2201, 2202, 2203, 2204, 2205};

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
        EXPECT_EQ(allocations.taken, allocations.released);
        ASSERT_EQ(peer.requests().size(), 2u);
        EXPECT_EQ(toHex(peer.requests()[1]), toHex(VERSION_CALL));
    }
}

// An init exchange takes 3 blocks and the call 4, so the 8th is that of a longer text.
TEST(ProtocolVersion, noStorageForALongerText) {
    ScriptedPeer peer({INIT_REPLY, message({}, callBody(hex("00 AC ED 00 05 74 00 63") + Bytes(99, 'v')))});
    Token token(peer.socket());
    TraceCapture trace(4);
    const AllocationFault fault(8);
    EXPECT_EQ(statProtocolVer(&token, &token.reasons), STAPI_RC_NO_MEMORY);
    EXPECT_EQ(trace.takeNumbers(VERSION_LINES), (std::vector{2201, 2202, 2203, 2204, 2205}));
    EXPECT_EQ(fault.released, fault.taken + 1);  // the buffer that was too small
    EXPECT_EQ(token.protocolVersion, nullptr);
}

char content[RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK];

// It goes before the call.
TEST(Queries, dataOfAnInitReplyBelongsToNobody) {
    ScriptedPeer peer({message({}, callBody(hex("'data'"))), message({}, callBody({}))});
    const AllocationFault allocations(0);
    EXPECT_EQ(commsStats(peer.socket(), content), 0);
    EXPECT_EQ(allocations.taken, allocations.released);
    EXPECT_EQ(peer.requests().size(), 2u);
}

}  // namespace
