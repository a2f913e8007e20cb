// The six queries: their result set, their query strings, and what is left of a connection after a failure.
#include "support/fixture.h"
#include "support/walk.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

namespace {

using namespace support;

using Querying = GatewayTest;
using QueryString = QuietGatewayTest;
using FailedQuery = GatewayTest;

const simgateway::Model& model() {
    static const simgateway::Model instance;
    return instance;
}

TEST_F(Querying, refusesArgumentsBeforeTheGatewayHearsOfIt) {
    const Connection open(server);
    auto* const noToken = reinterpret_cast<GatewayToken*>(&server);
    auto* const noResult = reinterpret_cast<ResultSetToken*>(&server);
    const std::size_t requests = server.requests().size();
    for (const QueryCall& call : QUERY_CALLS) {
        SCOPED_TRACE(call.name);
        ResultSetToken* result = noResult;
        EXPECT_EQ(call.run(nullptr, nullptr, nullptr), STAPI_RC_NULL_GATEWAY_TOKEN);
        EXPECT_EQ(call.run(noToken, nullptr), STAPI_RC_NULL_RESULT_SET_POINTER);
        EXPECT_EQ(call.run(noToken, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
        if (call.takesQuery()) {
            EXPECT_EQ(call.run(noToken, nullptr, nullptr), STAPI_RC_NULL_QUERY_STRING);
        }
        EXPECT_EQ(result, noResult);
    }
    EXPECT_EQ(server.requests().size(), requests);
}

TEST_F(Querying, fillsOneResultSetAnew) {
    const Connection connection(server);
    ResultSetToken* before = nullptr;
    ASSERT_EQ(getStats(connection, &before), 0);
    StatData stat{};
    ASSERT_EQ(getFirstStat(before, &stat), 0);
    ASSERT_EQ(getNextStat(before, &stat), 0);
    server.advance(3600);
    for (const QueryCall& call : QUERY_CALLS) {
        ResultSetToken* result = nullptr;
        ASSERT_EQ(call.run(connection, &result), 0);
        EXPECT_EQ(result, before) << call.name;
    }
    // The walk begun on the first answer starts again on the last one.
    ASSERT_EQ(getStats(connection, &before), 0);
    ASSERT_EQ(getNextStat(before, &stat), 0);
    EXPECT_EQ(entryOf(stat), allStats(model(), 3600).front());
    EXPECT_EQ(walkStats(before), allStats(model(), 3600));
}

TEST_F(Querying, narrowsByWhatItFound) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    char* query = nullptr;
    ASSERT_EQ(getStatIdsByStatGroupId(connection, "conn:host", &result), 0);
    ASSERT_EQ(getIdQuery(result, &query), 0);
    const std::string text = query;
    // The string lives in the result set that the query is about to fill.
    ASSERT_EQ(getStatsByStatId(connection, query, &result), 0);
    Entries expected = statsOfGroup(model(), "conn");
    for (const Entry& entry : statsOfGroup(model(), "host")) {
        expected.push_back(entry);
    }
    for (Entry& entry : expected) {
        entry.element = entry.id;
    }
    EXPECT_EQ(walkStats(result), expected);
    EXPECT_EQ(query, text) << "a query has touched the string";
}

// Whether the latest request carries this query string: its length before it, the signature behind.
bool hasReceived(const simgateway::Server& server, const std::string& query) {
    const simgateway::Bytes body = server.requests().back().bytes;
    const std::string length = {static_cast<char>(query.size() >> 8), static_cast<char>(query.size() & 0xFF)};
    const std::string signature("\0\0\0\1\0\x10java.lang.String", 22);
    return std::string(body.begin(), body.end()).ends_with("\x74" + length + query + signature);
}

// Pieces without a text count for nothing, so strings of colons may be as long as they like. A string that is too long
// is replaced by the one before, of which the call has a copy.
TEST_F(QueryString, goesOutWholeUpToALimit) {
    for (const QueryCall& call : QUERY_CALLS) {
        if (!call.takesQuery()) {
            continue;
        }
        SCOPED_TRACE(call.name);
        const Connection connection(server);
        std::string before;
        for (const std::size_t length : {32766U, 0U, 1U, 31999U, 32765U, 32766U, 100000U, 6U, 32766U}) {
            std::string query(length, ':');
            ResultSetToken* result = nullptr;
            ASSERT_EQ(call.run(connection, &result, query.c_str()), 0) << length;
            if (length < 32766) {
                before = query;
            }
            query.assign(length, '!');
            EXPECT_TRUE(hasReceived(server, before)) << length;
        }
    }
}

// The identifiers that a query string names may be text of the connection that the failing query removes; the trace
// shows them on the way out.
TEST_F(FailedQuery, withIdentifiersOfTheConnectionItself) {
    ASSERT_EQ(setAPITraceFile("/dev/null"), 0);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    for (const QueryCall& call : QUERY_CALLS) {
        Connection connection(server);
        char* query = nullptr;
        ASSERT_EQ(getIdQuery(resultOf(server, connection, ids().element("").id("a").bytes(), getStatIds), &query), 0);
        server.inject(Exchange::invoke, {.headerRc = 1});
        ResultSetToken* result = nullptr;
        EXPECT_EQ(call.run(connection, &result, query), STAPI_RC_GATEWAY_REQUEST_FAILED);
        if (!call.staysAfterFailure) {
            *connection.address() = nullptr;
        }
    }
}

// A signal that the application handles ends the wait, and with it the connection. The second descriptor is beyond what
// a set of select holds.
TEST_F(FailedQuery, byASignalWhileItWaits) {
    std::signal(SIGUSR1, [](int) {});
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    for (const std::size_t taken : {0U, 1100U}) {
        std::vector<int> descriptors(taken);
        for (int& descriptor : descriptors) {
            ASSERT_GE(descriptor = dup(STDERR_FILENO), 0) << "this test needs 1200 descriptors";
        }
        Connection connection(server);
        ResultSetToken* result = nullptr;
        EXPECT_EQ(getStats(connection, &result), 0);
        server.inject(Exchange::invoke, {.silent = true});
        std::thread interrupter([this, self = pthread_self(), requests = server.requests().size()] {
            EXPECT_TRUE(server.waitForRequests(requests + 2, PATIENCE));
            while (server.connections() == 1) {  // the wait may not have begun yet
                pthread_kill(self, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
        interrupter.join();
        *connection.address() = nullptr;
        std::for_each(descriptors.begin(), descriptors.end(), close);
    }
}

}  // namespace
