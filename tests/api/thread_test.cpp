// Connections that another thread closes than the one that uses them.
#include "support/fixture.h"
#include "support/process.h"
#include "support/temp_directory.h"

#include <pthread.h>

#include <thread>

namespace {

using namespace support;

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
    EXPECT_TRUE(fallsTo(descriptors, openDescriptors));
}

// A query that hangs is when somebody looks: the dump shows the answer of the query before.
TEST_F(ForeignClose, dumpShowsTheResultSetOfAQueryInProgress) {
    const TempDirectory directory;
    const std::string file = directory.file("dump");
    ASSERT_EQ(setAPITraceFile(file.c_str()), 0);
    Connection connection(server);
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStatIds(connection, &result), 0);
    server.inject(Exchange::invoke, {.silent = true});
    std::thread looker([&] {
        awaitRequests(server, Exchange::invoke, 2);
        EXPECT_EQ(dumpState(), 0);
        EXPECT_EQ(closeAllGatewayConnections(), 0);
    });
    EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    looker.join();
    const std::string dump = readFile(file);
    EXPECT_THAT(dump, testing::HasSubstr("\nDump of ResultSet("));
    EXPECT_THAT(dump, testing::HasSubstr(" : ZULIDSET"));
    EXPECT_THAT(dump, testing::HasSubstr("\nTotal number of Gateway Token List entries=1\n"));
}

// A thread that holds the list's lock while it waits for the Gateway goes on until it has released it.
TEST_F(ForeignClose, cancelledCloseLeavesNoLock) {
    server.inject(Exchange::close, {.delay = std::chrono::milliseconds(300)});
    struct {
        Connection connection;
        bool returned;
    } closing = {Connection(server), false};
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                      auto* work = static_cast<decltype(closing)*>(argument);
                      static_cast<void>(closeGatewayConnection(work->connection.address()));
                      work->returned = true;
                      return nullptr;
                  },
                  &closing),
              0);
    awaitRequests(server, Exchange::close, 1);
    EXPECT_EQ(pthread_cancel(thread), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_TRUE(closing.returned);
    EXPECT_EQ(openAndClose(server), 0);
}

}  // namespace
