// A connection and its result set belong to the process and thread that opened it; a copy belongs to nobody.
#include "support/fixture.h"
#include "support/process.h"
#include "support/walk.h"

#include <cstdlib>
#include <functional>
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
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(query, nullptr);
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

TEST_F(TwoConnections, areRefusedToOthers) {
    const std::size_t requests = server.requests().size();
    const auto expectRefusals = [this](int code) {
        EXPECT_THAT(codesOfCheckedCalls(first, stats, ids), testing::Each(code));
        return HasFailure() ? 1 : 0;
    };
    inThread([&] { expectRefusals(STAPI_RC_RESULT_SET_TID_MISMATCH); });
    EXPECT_EQ(runInChild([&] { return expectRefusals(STAPI_RC_RESULT_SET_PID_MISMATCH); }), 0);
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
    EXPECT_EQ(runInChild([&] { return walkStats(copy) == expected ? 0 : 1; }), 0);
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
    EXPECT_EQ(runInChild([this] {
                  const Connection own(server);
                  ResultSetToken* result = nullptr;
                  EXPECT_EQ(getStats(own, &result), 0);
                  return HasFailure() ? 1 : 0;
              }),
              0);
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(connection, &result), 0) << "the parent's connection";
}

}  // namespace
