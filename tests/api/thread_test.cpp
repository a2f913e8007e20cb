// Connections that another thread closes than the one that uses them.
#include "fixture.h"

#include <thread>

namespace apitest {
namespace {

using ForeignClose = QuietGatewayTest;

// Waits until the Gateway has `count` requests of a kind, with the thread that sent the last one waiting for its
// answer.
void awaitRequests(const simgateway::Server& server, Exchange exchange, std::size_t count) {
    while (countRequests(server, exchange) < count) {  // the fixture's alarm bounds it
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST_F(ForeignClose, endsEveryQueryInProgress) {
    for (const QueryCall& call : QUERY_CALLS) {
        SCOPED_TRACE(call.name);
        Connection connection(server);
        server.inject(Exchange::invoke, {.silent = true});
        const std::size_t before = countRequests(server, Exchange::invoke);
        GatewayToken* copy = connection;
        std::thread closer([&] {
            awaitRequests(server, Exchange::invoke, before + 1);
            EXPECT_EQ(closeGatewayConnection(&copy), 0);
            EXPECT_EQ(copy, nullptr);
        });
        ResultSetToken* result = nullptr;
        EXPECT_EQ(call.run(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
        closer.join();
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(call.run(connection, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
        EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    }
}

TEST_F(ForeignClose, endsAnOpeningInProgress) {
    server.inject(Exchange::getAttribute, {.silent = true});
    const int descriptors = openDescriptors();
    std::thread closer([&] {
        awaitRequests(server, Exchange::getAttribute, 1);
        EXPECT_EQ(closeAllGatewayConnections(), 0);
    });
    GatewayToken* token = nullptr;
    char* version = nullptr;
    EXPECT_EQ(openGatewayConnection(server.port(), &token, &version), STAPI_RC_GATEWAY_CONNECTION_LOST);
    closer.join();
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(version, nullptr);
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    EXPECT_TRUE(descriptorsComeTo(descriptors));
}

}  // namespace
}  // namespace apitest
