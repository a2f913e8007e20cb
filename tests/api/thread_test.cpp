// Connections and settings that another thread changes than the one that uses them.
#include "fixture.h"

#include <unistd.h>

#include <cstdio>
#include <thread>

namespace apitest {
namespace {

using ForeignClose = QuietGatewayTest;
using ForeignSettings = QuietGatewayTest;

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

// Settings change while others trace; every line of the result stays whole.
TEST_F(ForeignSettings, leaveTheTraceWhole) {
    const std::string path = testing::TempDir() + "zulstats-threads-" + std::to_string(getpid()) + ".trace";
    ASSERT_EQ(setAPITraceFile(path.c_str()), 0);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                char* version = nullptr;
                EXPECT_EQ(getStatsAPIVersion(&version), 0);
            }
            const Connection connection(server);
        });
    }
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(setAPITraceLevel(i % 2 == 0 ? 5 : 3), 0);
        EXPECT_EQ(setAPITraceFile(path.c_str()), 0);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(setAPITraceLevel(0), 0);
    ASSERT_EQ(setAPITraceFile(nullptr), 0);
    std::FILE* trace = std::fopen(path.c_str(), "re");
    ASSERT_NE(trace, nullptr);
    std::size_t count = 0;
    for (char line[1024]; std::fgets(line, sizeof line, trace) != nullptr; ++count) {
        // Each begins as a trace line, a dump line or a banner does, and goes up to its line end.
        EXPECT_THAT(line, testing::MatchesRegex("([0-9]|0x|\\*\\*\\*\\* QAL).*\n"));
    }
    EXPECT_GT(count, 500U);
    std::fclose(trace);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace apitest
