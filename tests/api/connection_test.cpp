// Opening and closing: what goes wrong on the way, the version text, and what is left afterwards.
#include "support/fixture.h"
#include "support/process.h"

#include <climits>

#include <cstdlib>

namespace {

using namespace support;

using Opening = GatewayTest;
using Closing = GatewayTest;

TEST_F(Opening, refusesArgumentsBeforeTheGatewayHearsOfIt) {
    char place;
    auto* const noToken = reinterpret_cast<GatewayToken*>(&place);
    GatewayToken* token = noToken;
    char* version = &place;
    const int port = server.port();
    for (const int bad : {0, -1, 65536, INT_MIN}) {
        EXPECT_EQ(openGatewayConnection(bad, &token, &version), STAPI_RC_INVALID_PORT) << bad;
        EXPECT_EQ(openRemoteGatewayConnection(nullptr, bad, nullptr, nullptr), STAPI_RC_INVALID_PORT) << bad;
    }
    for (const int good : {1, 65535}) {
        EXPECT_EQ(openGatewayConnection(good, nullptr, nullptr), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER) << good;
    }
    EXPECT_EQ(openRemoteGatewayConnection(UNRESOLVABLE, port, nullptr, &version), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(openRemoteGatewayConnection(UNRESOLVABLE, port, &token, nullptr), STAPI_RC_NULL_VERSION_POINTER);
    EXPECT_TRUE(token == noToken && version == &place);
    EXPECT_TRUE(server.requests().empty());
}

// Which code an odd reply in the introduction gives, and whether the connection is gone on both sides.
TEST_F(Opening, foldsFaultsOfTheGateway) {
    const struct {
        const char* what;
        Exchange exchange;
        Fault fault;
        int code;
    } cases[] = {
        // An introduction that fails shows in the first admin exchange, if at all.
        {"auth done at once", Exchange::authFirst, {.word0 = 1, .replyRc = 9}, 0},
        {"init header negative", Exchange::adminInit, {.headerRc = -1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version answered like an init", Exchange::getAttribute, {.word0 = 0}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"name too long", Exchange::getAttribute, {.name = "AdminAdmin"}, STAPI_RC_GATEWAY_CONNECTION_LOST},
    };
    const int before = openDescriptors();
    for (const auto& each : cases) {
        server.inject(each.exchange, each.fault);
        EXPECT_EQ(openAndClose(server), each.code) << each.what;
        EXPECT_EQ(server.pendingFaults(each.exchange), 0U) << each.what;
        EXPECT_TRUE(server.waitForConnections(0, PATIENCE)) << each.what;
    }
    EXPECT_EQ(fallenTo(before, openDescriptors), before);
}

// Of a version longer than the longest copy there is none: the connection opens, the caller's pointer is left alone.
// The host is found by its name.
TEST_F(Opening, copiesVersionsUpToALimit) {
    for (const std::size_t length : {0U, 63U, 64U, 32765U, 32766U, 32767U}) {
        const std::string text(length, 'v');
        server.inject(Exchange::getAttribute, {.payload = simgateway::attributePayload(text)});
        GatewayToken* token = nullptr;
        char mark[] = "mine";
        char* version = mark;
        ASSERT_EQ(openRemoteGatewayConnection("127.0.0.1", server.port(), &token, &version), 0) << length;
        EXPECT_EQ(std::string(version), length < 32766 ? text : "mine") << length;
        if (version != mark) {
            std::free(version);
        }
        EXPECT_EQ(closeGatewayConnection(&token), 0);
    }
}

TEST_F(Closing, endsOneConnectionOrAllAndTheirHandles) {
    Connection first(server);
    Connection second(server);
    Connection third(server);
    GatewayToken* stale = second;
    GatewayToken* const before = stale;
    ResultSetToken* result = nullptr;
    EXPECT_EQ(closeGatewayConnection(second.address()), 0);
    EXPECT_EQ(static_cast<GatewayToken*>(second), nullptr);
    EXPECT_EQ(closeGatewayConnection(&stale), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(stale, before);
    EXPECT_EQ(countRequests(server, Exchange::close), 1U);
    EXPECT_EQ(getStats(first, &result), 0);
    EXPECT_EQ(getStats(third, &result), 0);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(countRequests(server, Exchange::close), 3U);
    for (Connection* closed : {&first, &third}) {
        EXPECT_EQ(getStats(*closed, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
        *closed->address() = nullptr;
    }
    EXPECT_EQ(openAndClose(server), 0);
}

}  // namespace
