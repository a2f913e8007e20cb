// The six queries: their answers, their query strings, and what is left of a connection after a failure.
#include "child.h"
#include "fixture.h"
#include "walk.h"

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <thread>

namespace {

using apitest::allGroupIds;
using apitest::allStatIds;
using apitest::allStats;
using apitest::Connection;
using apitest::countRequests;
using apitest::Entries;
using apitest::Entry;
using apitest::Exchange;
using apitest::Fault;
using apitest::PATIENCE;
using apitest::QUERY_CALLS;
using apitest::QueryCall;
using apitest::walkIds;
using apitest::walkStats;
using simgateway::Bytes;
using testing::ElementsAre;

using Querying = apitest::GatewayTest;
using QueryString = apitest::QuietGatewayTest;
using FailedQuery = apitest::GatewayTest;

const simgateway::Model& model() {
    static const simgateway::Model instance;
    return instance;
}

Entries idsOnly(Entries entries) {
    for (Entry& entry : entries) {
        entry.value.clear();
    }
    return entries;
}

TEST_F(Querying, answersAllSix) {
    const Connection connection(server);
    const Entries worker = apitest::statsOfGroup(model(), "worker");
    const std::string state = "worker.state";
    const Entries oneOfEach = {{state, 0, state, worker.front().value}, {"no.such.thing", -1}};
    const struct {
        const char* query;
        Entries expected[6];  // in the order of the calls; a call without a query string knows the empty one only
    } cases[] = {
        {"",
         {allStats(model()), allStatIds(model()), allGroupIds(model()), allStats(model()), allStats(model()),
          allStatIds(model())}},
        {"worker", {{}, {}, {}, worker, worker, idsOnly(worker)}},
        {"worker.state:no.such.thing", {{}, {}, {}, oneOfEach, oneOfEach, idsOnly(oneOfEach)}},
        {"no.such.thing", {{}, {}, {}, {{"no.such.thing", -1}}, {{"no.such.thing", -1}}, {{"no.such.thing", -1}}}},
    };
    ASSERT_EQ(allStats(model()).size(), 150U);
    for (const auto& each : cases) {
        for (std::size_t i = 0; i < std::size(QUERY_CALLS); ++i) {
            const QueryCall& call = QUERY_CALLS[i];
            if (*each.query != '\0' && !call.takesQuery()) {
                continue;
            }
            SCOPED_TRACE(testing::Message() << call.name << " \"" << each.query << "\"");
            ResultSetToken* result = nullptr;
            ASSERT_EQ(call.run(connection, &result, each.query), 0);
            EXPECT_EQ(call.statistics ? walkStats(result) : walkIds(result), each.expected[i]);
        }
    }
}

TEST_F(Querying, reusesOneResultSet) {
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
    EXPECT_EQ(apitest::entryOf(stat), allStats(model(), 3600).front());
}

TEST_F(Querying, followsTheGatewaysTime) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    for (const std::uint64_t seconds : {0U, 60U, 86400U}) {
        ASSERT_EQ(getStats(connection, &result), 0);
        EXPECT_EQ(walkStats(result), allStats(model(), seconds));
        server.advance(seconds == 0 ? 60 : 86400 - 60);
    }
}

TEST_F(Querying, narrowsByWhatItFound) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    char* query = nullptr;
    ASSERT_EQ(getStatIdsByStatGroupId(connection, "conn:host", &result), 0);
    ASSERT_EQ(getIdQuery(result, &query), 0);
    const std::string text = query;
    EXPECT_EQ(text.substr(0, 22), "conn.state:conn.limit:");
    // The string lives in the result set that the query is about to fill.
    ASSERT_EQ(getStatsByStatId(connection, query, &result), 0);
    Entries expected = apitest::statsOfGroup(model(), "conn");
    for (const Entry& entry : apitest::statsOfGroup(model(), "host")) {
        expected.push_back(entry);
    }
    for (Entry& entry : expected) {
        entry.element = entry.id;
    }
    EXPECT_EQ(walkStats(result), expected);
    EXPECT_EQ(query, text) << "a query has touched the string";
}

// The query string as the Gateway received it: between the operation's framing and the signature.
std::string receivedQuery(const simgateway::Server& server) {
    std::string body;
    for (const simgateway::Request& request : server.requests()) {
        if (request.exchange == Exchange::invoke) {
            body.assign(request.bytes.begin(), request.bytes.end());
        }
    }
    const std::string framing("\0\0\0\1\xAC\xED\0\5\x74", 9);
    const std::string signature("\0\0\0\1\0\x10java.lang.String", 22);
    const std::size_t from = body.find(framing) + framing.size() + 2;
    return body.substr(from, body.size() - signature.size() - from);
}

TEST_F(QueryString, ofUsualLengthGoesOutWhole) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    for (const std::size_t length : {0U, 1U, 5000U, 31999U, 32764U, 32765U}) {
        const std::string query(length, ':');  // pieces without a text count for nothing
        for (const QueryCall& call : QUERY_CALLS) {
            if (call.takesQuery()) {
                ASSERT_EQ(call.run(connection, &result, query.c_str()), 0) << length;
                EXPECT_EQ(receivedQuery(server), query) << call.name;
            }
        }
    }
}

TEST_F(QueryString, tooLongIsReplacedByTheOneBefore) {
    const std::string longest(32765, ':');
    const std::string tooLong(32766, 'x');
    for (const QueryCall& call : QUERY_CALLS) {
        if (!call.takesQuery()) {
            continue;
        }
        SCOPED_TRACE(call.name);
        const Connection connection(server);
        ResultSetToken* result = nullptr;
        ASSERT_EQ(call.run(connection, &result, tooLong.c_str()), 0);
        EXPECT_EQ(receivedQuery(server), "") << "there was none before";
        ASSERT_EQ(call.run(connection, &result, "daemon"), 0);
        ASSERT_EQ(call.run(connection, &result, tooLong.c_str()), 0);
        EXPECT_EQ(receivedQuery(server), "daemon");
        ASSERT_EQ(call.run(connection, &result, std::string(100000, 'y').c_str()), 0);
        EXPECT_EQ(receivedQuery(server), "daemon");
        ASSERT_EQ(call.run(connection, &result, longest.c_str()), 0);
        ASSERT_EQ(call.run(connection, &result, tooLong.c_str()), 0);
        EXPECT_EQ(receivedQuery(server), longest);
    }
}

TEST_F(QueryString, isTheCallersToChange) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    std::string query = "daemon";
    ASSERT_EQ(getStatsByStatGroupId(connection, query.c_str(), &result), 0);
    query.assign(query.size(), '!');
    ASSERT_EQ(getStatsByStatGroupId(connection, std::string(40000, 'x').c_str(), &result), 0);
    EXPECT_EQ(receivedQuery(server), "daemon");
}

// Every way for an exchange of a query to fail, with the code that it gives.
TEST_F(FailedQuery, removesTheConnection) {
    const struct {
        const char* what;
        Exchange exchange;
        Fault fault;
        int code;
    } cases[] = {
        {"header says lost", Exchange::invoke, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"header says otherwise", Exchange::invoke, {.headerRc = 0xF003}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"header negative", Exchange::invoke, {.headerRc = -0xF004}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init header says lost", Exchange::adminInit, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"init header otherwise", Exchange::adminInit, {.headerRc = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"admin code", Exchange::invoke, {.replyRc = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"admin code 0xF004", Exchange::invoke, {.replyRc = 0xF004}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init admin code", Exchange::adminInit, {.replyRc = -7}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"exception", Exchange::invoke, {.exceptionFlag = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"answered like an init", Exchange::invoke, {.word0 = 0}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"without body", Exchange::invoke, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init without body", Exchange::adminInit, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"data length negative", Exchange::invoke, {.noBody = true, .dataLength = -1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"body of 1 byte", Exchange::invoke, {.bodySize = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"body of 8 bytes", Exchange::invoke, {.bodySize = 8}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"name longer", Exchange::invoke, {.name = "Admin2"}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"name length absurd", Exchange::invoke, {.nameLength = 0x7FFFFFFF}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"closed at once", Exchange::invoke, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"reset at once", Exchange::invoke, {.closeAfter = 0, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"closed in the init", Exchange::adminInit, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"closed behind the header", Exchange::invoke, {.closeAfter = 34}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"reset in the header", Exchange::invoke, {.closeAfter = 10, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"reset in the body", Exchange::invoke, {.closeAfter = 60, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
    };
    for (const QueryCall& call : QUERY_CALLS) {
        for (const auto& each : cases) {
            SCOPED_TRACE(testing::Message() << call.name << ": " << each.what);
            Connection connection(server);
            const int descriptors = apitest::openDescriptors();
            server.inject(each.exchange, each.fault);
            ResultSetToken* const untouched = reinterpret_cast<ResultSetToken*>(&connection);
            ResultSetToken* result = untouched;
            ASSERT_EQ(call.run(connection, &result), each.code);
            EXPECT_EQ(result, untouched);
            const int again = call.run(connection, &result);
            if (call.staysAfterFailure) {
                EXPECT_TRUE(again == 0 || again == STAPI_RC_GATEWAY_CONNECTION_LOST) << again;
                EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
            } else {
                EXPECT_EQ(again, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
                EXPECT_EQ(closeGatewayConnection(connection.address()), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
                *connection.address() = nullptr;
            }
            EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
            EXPECT_LT(apitest::openDescriptors(), descriptors);
        }
    }
}

// A refusal leaves the stream in step, so the connection that stays can be queried again.
TEST_F(FailedQuery, byStatGroupLeavesAUsableConnection) {
    const Connection connection(server);
    ResultSetToken* result = nullptr;
    for (const Fault& fault : {Fault{.headerRc = 0xF004}, Fault{.replyRc = 3}, Fault{.exceptionFlag = 1}}) {
        server.inject(Exchange::invoke, fault);
        EXPECT_LT(getStatsByStatGroupId(connection, "worker", &result), 0);
        EXPECT_EQ(getStatsByStatGroupId(connection, "worker", &result), 0);
        EXPECT_EQ(walkStats(result), apitest::statsOfGroup(model(), "worker"));
    }
    server.inject(Exchange::invoke, {.headerRc = 0xF004});
    EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
}

TEST_F(FailedQuery, concernsItsOwnConnectionOnly) {
    const Connection before(server);
    Connection failing(server);
    const Connection after(server);
    ResultSetToken* result = nullptr;
    server.inject(Exchange::invoke, {.closeAfter = 0});
    EXPECT_EQ(getStatIds(failing, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    *failing.address() = nullptr;
    EXPECT_EQ(getStats(before, &result), 0);
    EXPECT_EQ(getStats(after, &result), 0);
    const Connection next(server);
    EXPECT_EQ(getStats(next, &result), 0);
}

TEST_F(FailedQuery, afterTheGatewayIsGone) {
    Connection connection(server);
    server.stop();
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    *connection.address() = nullptr;
    EXPECT_EQ(apitest::openAndClose(server), STAPI_RC_CONNECTION_REFUSED);
}

// A close inside a message sets no errno: what errno held before decides whether the short message passes.
TEST_F(FailedQuery, insideAMessageIsToldByErrno) {
    for (const std::size_t size : {std::size_t{20}, std::size_t{100}}) {
        for (const int before : {0, EFAULT}) {
            Connection connection(server);
            ResultSetToken* result = nullptr;
            server.inject(Exchange::invoke, {.closeAfter = size});
            errno = before;
            const int rc = getStatsByStatGroupId(connection, "daemon", &result);
            if (before == 0 && size == 100) {
                EXPECT_EQ(rc, 0) << "the body is short";
            } else if (before != 0) {
                EXPECT_EQ(rc, STAPI_RC_GATEWAY_CONNECTION_LOST) << size;
            } else {
                EXPECT_LT(rc, 0) << "the header is short";
            }
        }
    }
}

// A signal that the application handles ends the wait, and with it the connection.
TEST_F(FailedQuery, byASignalWhileItWaits) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Connection connection(server);
    const pthread_t self = pthread_self();
    const std::size_t requests = server.requests().size();
    server.inject(Exchange::invoke, {.silent = true});
    std::thread interrupter([&] {
        EXPECT_TRUE(server.waitForRequests(requests + 2, PATIENCE));
        // The request is out, the wait may not have begun yet: repeat until the call is over.
        while (server.connections() == 1) {
            pthread_kill(self, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(connection, &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    interrupter.join();
    *connection.address() = nullptr;
}

}  // namespace
