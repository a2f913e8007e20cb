// A connection and its result set belong to the process and thread that opened it; a copy belongs to nobody. Any thread
// may close.
#include "support/fixture.h"
#include "support/process.h"
#include "support/temp_directory.h"
#include "support/walk.h"

#include <cstdlib>
#include <thread>

namespace {

using namespace support;

using Ownership = GatewayTest;

void inThread(const std::function<void()>& work) {
    std::thread(work).join();
}

// The codes of every call that checks the owner of a connection or of its result set.
std::vector<int> codesOfCheckedCalls(GatewayToken* token, ResultSetToken* stats, ResultSetToken* ids) {
    std::vector<int> codes;
    ResultSetToken* result = nullptr;
    char* query = nullptr;
    StatData stat{};
    IdData id{};
    for (const QueryCall& call : QUERY_CALLS) {
        codes.push_back(call.run(token, &result));
    }
    codes.insert(codes.end(), {getFirstStat(stats, &stat), getNextStat(stats, &stat)});
    codes.insert(codes.end(), {getFirstId(ids, &id), getNextId(ids, &id)});
    for (ResultSetToken* each : {stats, ids}) {
        codes.insert(codes.end(), {copyResultSet(each, &result), dumpResultSet(each), getIdQuery(each, &query)});
    }
    EXPECT_TRUE(result == nullptr && query == nullptr);
    return codes;
}

class TwoConnections : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        ASSERT_EQ(getStats(first, &stats), 0);
        ASSERT_EQ(getStatIds(second, &ids), 0);
    }

    const Connection first{server};
    const Connection second{server};
    ResultSetToken* stats = nullptr;
    ResultSetToken* ids = nullptr;
};

// A child process may open its own.
TEST_F(TwoConnections, areRefusedToOthers) {
    const std::size_t requests = server.requests().size();
    const auto expectRefusals = [this](int code) {
        EXPECT_THAT(codesOfCheckedCalls(first, stats, ids), testing::Each(code));
        return HasFailure() ? 1 : 0;
    };
    inThread([&] { expectRefusals(STAPI_RC_RESULT_SET_TID_MISMATCH); });
    expectInChild([&] { return expectRefusals(STAPI_RC_RESULT_SET_PID_MISMATCH); });
    EXPECT_EQ(server.requests().size(), requests);
    expectInChild([this] {
        ResultSetToken* own = nullptr;
        return getStats(Connection(server), &own) == 0 ? 0 : 1;
    });
    EXPECT_EQ(walkStats(stats), allStats(simgateway::Model()));
}

// Wrong content is told before a wrong thread, and a wrong thread only after the arguments.
TEST_F(TwoConnections, areCheckedAfterArgumentsAndContent) {
    inThread([&] {
        StatData stat{};
        char* query = nullptr;
        EXPECT_EQ(getFirstStat(ids, &stat), STAPI_RC_WRONG_RESULT_SET_CONTENT);
        EXPECT_EQ(getFirstStat(stats, nullptr), STAPI_RC_NULL_STAT_DATA);
        EXPECT_EQ(copyResultSet(stats, nullptr), STAPI_RC_NULL_RESULT_SET_POINTER);
        EXPECT_EQ(getIdQuery(stats, nullptr), STAPI_RC_NULL_POINTER);
        EXPECT_EQ(getStats(first, nullptr), STAPI_RC_NULL_RESULT_SET_POINTER);
        ResultSetToken* owned = stats;
        EXPECT_EQ(freeResultSet(&owned), STAPI_RC_RESULT_SET_NOT_USER_OWNED);
        EXPECT_EQ(getIdQuery(ids, &query), STAPI_RC_RESULT_SET_TID_MISMATCH);
    });
}

TEST_F(Ownership, copyIsEverybodys) {
    const Entries expected = allStats(simgateway::Model());
    ResultSetToken* copy = nullptr;
    {
        const Connection connection(server);
        ResultSetToken* result = nullptr;
        StatData stat{};
        ASSERT_EQ(getStats(connection, &result), 0);
        ASSERT_EQ(getFirstStat(result, &stat), 0);
        ASSERT_EQ(copyResultSet(result, &copy), 0);
        ASSERT_EQ(getNextStat(copy, &stat), 0);
        EXPECT_EQ(entryOf(stat), expected.front()) << "a copy's walk is not started";
        ASSERT_EQ(getNextStat(result, &stat), 0);
        EXPECT_EQ(entryOf(stat), expected[1]) << "nor does it move the walk that it was copied from";
    }
    expectInChild([&] { return walkStats(copy) == expected ? 0 : 1; });
    inThread([&] {
        EXPECT_EQ(walkStats(copy), expected);
        EXPECT_EQ(dumpResultSet(copy), 0);
        char* query = nullptr;
        EXPECT_EQ(getIdQuery(copy, &query), 0);
        ResultSetToken* second = nullptr;
        EXPECT_EQ(copyResultSet(copy, &second), 0);
        EXPECT_EQ(freeResultSet(&copy), 0);
        EXPECT_EQ(walkStats(second), expected);
        EXPECT_EQ(freeResultSet(&second), 0);
    });
}

using ForeignClose = QuietGatewayTest;

// Waits until the Gateway has `count` requests of a kind, with the thread that sent the last one waiting for its
// answer.
void awaitRequests(const simgateway::Server& server, Exchange exchange, std::size_t count) {
    while (countRequests(server, exchange) < count) {  // the fixture's alarm bounds it
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
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
