// A connection and its result set belong to the process and thread that opened it; a copy belongs to nobody.
#include "child.h"
#include "fixture.h"
#include "walk.h"

#include <cstdlib>
#include <functional>
#include <thread>

namespace {

using apitest::allStats;
using apitest::Connection;
using apitest::PATIENCE;
using apitest::QUERY_CALLS;
using apitest::QueryCall;
using apitest::walkStats;

using Ownership = apitest::GatewayTest;

void inThread(const std::function<void()>& work) {
    std::thread(work).join();
}

struct Call {
    const char* name;
    std::function<int()> run;
};

// Every call that checks the owner of a connection or of its result set, of which the first holds statistics and the
// second identifiers.
std::vector<Call> checkedCalls(GatewayToken* token, ResultSetToken* stats, GatewayToken* other, ResultSetToken* ids) {
    std::vector<Call> calls;
    for (const QueryCall& query : QUERY_CALLS) {
        calls.push_back({query.name, [=, &query] {
                             ResultSetToken* result = nullptr;
                             const int rc = query.run(token, &result);
                             EXPECT_EQ(result, nullptr) << query.name;
                             return rc;
                         }});
    }
    const auto addWalk = [&calls](const char* name, auto* call, ResultSetToken* result, auto record) {
        calls.push_back({name, [=]() mutable { return call(result, &record); }});
    };
    addWalk("getFirstStat", getFirstStat, stats, StatData{});
    addWalk("getNextStat", getNextStat, stats, StatData{});
    addWalk("getFirstId", getFirstId, ids, IdData{});
    addWalk("getNextId", getNextId, ids, IdData{});
    for (ResultSetToken* result : {stats, ids}) {
        calls.push_back({"copyResultSet", [result] {
                             ResultSetToken* copy = nullptr;
                             const int rc = copyResultSet(result, &copy);
                             EXPECT_EQ(copy, nullptr);
                             return rc;
                         }});
        calls.push_back({"dumpResultSet", [result] { return dumpResultSet(result); }});
        calls.push_back({"getIdQuery", [result] {
                             char* query = nullptr;
                             const int rc = getIdQuery(result, &query);
                             EXPECT_EQ(query, nullptr);
                             return rc;
                         }});
    }
    calls.push_back({"getStats on the other", [other] {
                         ResultSetToken* result = nullptr;
                         return getStats(other, &result);
                     }});
    return calls;
}

class TwoConnections : public apitest::GatewayTest {
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

TEST_F(TwoConnections, areRefusedToAnotherThread) {
    const std::size_t requests = server.requests().size();
    inThread([&] {
        for (const Call& call : checkedCalls(first, stats, second, ids)) {
            EXPECT_EQ(call.run(), STAPI_RC_RESULT_SET_TID_MISMATCH) << call.name;
        }
    });
    EXPECT_EQ(server.requests().size(), requests);
    EXPECT_EQ(walkStats(stats), allStats(simgateway::Model())) << "a refused call has moved the position";
}

TEST_F(TwoConnections, areRefusedToAnotherProcess) {
    const std::size_t requests = server.requests().size();
    const int failures = unittest::runInChild([&] {
        int wrong = 0;
        for (const Call& call : checkedCalls(first, stats, second, ids)) {
            const int rc = call.run();
            if (rc != STAPI_RC_RESULT_SET_PID_MISMATCH) {
                std::fprintf(stderr, "%s in a child process: %d\n", call.name, rc);
                ++wrong;
            }
        }
        return wrong;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(server.requests().size(), requests);
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

TEST_F(Ownership, anotherThreadMayClose) {
    Connection connection(server);
    inThread([&] { EXPECT_EQ(closeGatewayConnection(connection.address()), 0); });
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    const Connection left(server);
    inThread([] { EXPECT_EQ(closeAllGatewayConnections(), 0); });
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(left, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
}

TEST_F(Ownership, copyIsEverybodys) {
    ResultSetToken* copy = nullptr;
    {
        const Connection connection(server);
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStats(connection, &result), 0);
        ASSERT_EQ(copyResultSet(result, &copy), 0);
    }
    const apitest::Entries expected = allStats(simgateway::Model());
    EXPECT_EQ(unittest::runInChild([&] { return walkStats(copy) == expected ? 0 : 1; }), 0);
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

// A connection that a child process opens is the child's own.
TEST_F(Ownership, childProcessOpensItsOwn) {
    const Connection connection(server);
    const int port = server.port();
    const int failures = unittest::runInChild([&] {
        GatewayToken* token = nullptr;
        char* version = nullptr;
        ResultSetToken* result = nullptr;
        int wrong = openGatewayConnection(port, &token, &version) == 0 ? 0 : 1;
        std::free(version);
        wrong += getStats(token, &result) == 0 ? 0 : 2;
        wrong += closeGatewayConnection(&token) == 0 ? 0 : 4;
        return wrong;
    });
    EXPECT_EQ(failures, 0);
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(connection, &result), 0) << "the parent's connection";
}

}  // namespace
