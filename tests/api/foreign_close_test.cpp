// Connections closed, and the state dumped, by another thread than the one that uses them.
#include "fixture.h"

#include <atomic>
#include <thread>

namespace apitest {
namespace {

class ForeignClose : public QuietGatewayTest {};

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
    EXPECT_EQ(openDescriptors(), descriptors);
}

// Threads open, query and walk a copy, while one closes everything and one dumps the state, over and over.
TEST_F(ForeignClose, ofEverythingAtAnyTime) {
    setAPITraceFile("/dev/null");
    std::atomic<int> working = 3;
    std::atomic<int> entries = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 150; ++round) {
                GatewayToken* token = nullptr;
                char* version = nullptr;
                if (openGatewayConnection(server.port(), &token, &version) != 0) {
                    continue;
                }
                free(version);
                ResultSetToken* result = nullptr;
                const int rc = getStats(token, &result);
                EXPECT_TRUE(rc == 0 || rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_TOKEN_NOT_FOUND)
                    << rc;
                entries += rc == 0;
                closeGatewayConnection(&token);
            }
            --working;
        });
    }
    threads.emplace_back([&] {
        while (working > 0) {
            closeAllGatewayConnections();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    threads.emplace_back([&] {
        for (int level = 0; working > 0; level = (level + 1) % 4) {
            dumpState();
            setAPITraceLevel(level);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(entries, 0);
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
}

}  // namespace
}  // namespace apitest
