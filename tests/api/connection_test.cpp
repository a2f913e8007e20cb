// Opening and closing: what goes wrong on the way, the version text, and what is left afterwards.
#include "fixture.h"

#include <cstdlib>

namespace {

using namespace apitest;
using testing::ElementsAre;

using Opening = GatewayTest;
using Closing = GatewayTest;

TEST_F(Opening, introducesItselfAndAsksForTheVersion) {
    {
        const Connection connection(server);
        EXPECT_EQ(connection.version(), "1_0_0_0");
        EXPECT_TRUE(server.waitForConnections(1, PATIENCE));
    }
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    std::vector<Exchange> seen;
    for (const simgateway::Request& request : server.requests()) {
        seen.push_back(request.exchange);
    }
    EXPECT_THAT(seen, ElementsAre(Exchange::handshake, Exchange::authFirst, Exchange::authSecond, Exchange::adminInit,
                                  Exchange::getAttribute, Exchange::close));
}

TEST_F(Opening, findsTheHostByItsName) {
    GatewayToken* token = nullptr;
    char* version = nullptr;
    ASSERT_EQ(openRemoteGatewayConnection("localhost", server.port(), &token, &version), 0);
    EXPECT_STREQ(version, "1_0_0_0");
    std::free(version);
    EXPECT_EQ(closeGatewayConnection(&token), 0);
    EXPECT_EQ(openRemoteGatewayConnection(UNRESOLVABLE, 1, &token, &version), STAPI_RC_HOST_NOT_RESOLVED);
    EXPECT_EQ(openRemoteGatewayConnection("127.255.255.255", 1, &token, &version), STAPI_RC_NETWORK_UNREACHABLE);
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
        {"handshake without body", Exchange::handshake, {.noBody = true}, 0},
        {"auth without body", Exchange::authFirst, {.noBody = true}, 0},
        {"auth done at once", Exchange::authFirst, {.word0 = 1, .replyRc = 9}, 0},
        {"auth reply of 4 bytes", Exchange::authFirst, {.bodySize = 4}, 0},
        {"auth refused", Exchange::authSecond, {.authRefused = true}, 0},
        {"closed in the auth", Exchange::authSecond, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"init without body", Exchange::adminInit, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init reply of 3 bytes", Exchange::adminInit, {.bodySize = 3}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init header code", Exchange::adminInit, {.headerRc = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init header negative", Exchange::adminInit, {.headerRc = -1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"closed in the init", Exchange::adminInit, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"reset in the init", Exchange::adminInit, {.closeAfter = 0, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"name length absurd", Exchange::adminInit, {.nameLength = 0xFFFFFFFF}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"version refused", Exchange::getAttribute, {.replyRc = 8}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version header says lost", Exchange::getAttribute, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"version answered like an init", Exchange::getAttribute, {.word0 = 0}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version without body", Exchange::getAttribute, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version reply of 9 bytes", Exchange::getAttribute, {.bodySize = 9}, 0},
        {"closed in the version", Exchange::getAttribute, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"name too long", Exchange::getAttribute, {.name = "AdminAdmin"}, STAPI_RC_GATEWAY_CONNECTION_LOST},
    };
    const int before = openDescriptors();
    for (const auto& each : cases) {
        server.inject(each.exchange, each.fault);
        EXPECT_EQ(openAndClose(server), each.code) << each.what;
        EXPECT_EQ(server.pendingFaults(each.exchange), 0U) << each.what;
        EXPECT_TRUE(server.waitForConnections(0, PATIENCE)) << each.what;
    }
    EXPECT_TRUE(descriptorsComeTo(before));
}

// Of a version longer than the longest copy there is none: the connection opens, the caller's pointer is left alone.
TEST_F(Opening, copiesVersionsUpToALimit) {
    for (const std::size_t length : {0U, 63U, 64U, 32765U, 32766U, 32767U}) {
        const std::string text(length, 'v');
        server.inject(Exchange::getAttribute, {.payload = simgateway::attributePayload(text)});
        GatewayToken* token = nullptr;
        char mark[] = "mine";
        char* version = mark;
        ASSERT_EQ(openGatewayConnection(server.port(), &token, &version), 0) << length;
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

// What the Gateway makes of the close request is its own affair.
TEST_F(Closing, succeedsWhateverTheGatewaySays) {
    const int before = openDescriptors();
    for (const Fault& fault :
         {Fault{.headerRc = 5}, Fault{.closeAfter = 0}, Fault{.closeAfter = 0, .reset = true}, Fault{.closeAfter = 10},
          Fault{.dataLength = 50, .closeAfter = 40}, Fault{.name = "X"}}) {
        server.inject(Exchange::close, fault);
        Connection connection(server);
        EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
    }
    EXPECT_TRUE(descriptorsComeTo(before));
    Connection connection(server);
    server.stop();
    EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
}

}  // namespace
