// The argument checks of the exported calls: which code, and which of several wrong arguments is told first.
#include "fixture.h"

#include <climits>
#include <cstdlib>
#include <functional>

namespace {

using apitest::Connection;
using apitest::QUERY_CALLS;
using apitest::QueryCall;

using Arguments = apitest::GatewayTest;

struct Case {
    const char* what;
    std::function<int()> call;
    int code;
};

void check(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        EXPECT_EQ(each.call(), each.code) << each.what;
    }
}

// Tells whether a call wrote a result that it should have left alone.
template <typename Token>
class Untouched {
public:
    Token** address() {
        return &pointer;
    }
    ~Untouched() {
        EXPECT_EQ(pointer, before()) << "a refused call has written its result";
    }

private:
    static Token* before() {
        static char place;
        return reinterpret_cast<Token*>(&place);
    }
    Token* pointer = before();
};

TEST_F(Arguments, ofOpening) {
    Untouched<GatewayToken> token;
    Untouched<char> version;
    const int port = server.port();
    check({
        {"port 0, the rest NULL", [] { return openGatewayConnection(0, nullptr, nullptr); }, STAPI_RC_INVALID_PORT},
        {"port -1", [&] { return openGatewayConnection(-1, token.address(), version.address()); },
         STAPI_RC_INVALID_PORT},
        {"port 65536", [&] { return openGatewayConnection(65536, token.address(), version.address()); },
         STAPI_RC_INVALID_PORT},
        {"lowest port", [&] { return openGatewayConnection(INT_MIN, token.address(), version.address()); },
         STAPI_RC_INVALID_PORT},
        {"port 65535 passes", [] { return openGatewayConnection(65535, nullptr, nullptr); },
         STAPI_RC_NULL_GATEWAY_TOKEN_POINTER},
        {"port 1 passes", [] { return openGatewayConnection(1, nullptr, nullptr); },
         STAPI_RC_NULL_GATEWAY_TOKEN_POINTER},
        {"no address for the token", [&] { return openGatewayConnection(port, nullptr, version.address()); },
         STAPI_RC_NULL_GATEWAY_TOKEN_POINTER},
        {"no address for the version", [&] { return openGatewayConnection(port, token.address(), nullptr); },
         STAPI_RC_NULL_VERSION_POINTER},
        {"remote: port 0, the rest NULL", [] { return openRemoteGatewayConnection(nullptr, 0, nullptr, nullptr); },
         STAPI_RC_INVALID_PORT},
        {"remote: port 65536",
         [&] { return openRemoteGatewayConnection("127.0.0.1", 65536, token.address(), version.address()); },
         STAPI_RC_INVALID_PORT},
        {"remote: no address for the token",
         [&] { return openRemoteGatewayConnection(apitest::UNRESOLVABLE, port, nullptr, nullptr); },
         STAPI_RC_NULL_GATEWAY_TOKEN_POINTER},
        {"remote: no address for the version",
         [&] { return openRemoteGatewayConnection(apitest::UNRESOLVABLE, port, token.address(), nullptr); },
         STAPI_RC_NULL_VERSION_POINTER},
    });
    EXPECT_EQ(server.requests().size(), 0U);
}

TEST_F(Arguments, ofClosing) {
    GatewayToken* none = nullptr;
    auto* neverOpened = reinterpret_cast<GatewayToken*>(&none);
    GatewayToken* unknown = neverOpened;
    const auto closeUnknown = [&] { return closeGatewayConnection(&unknown); };
    check({
        {"no address", [] { return closeGatewayConnection(nullptr); }, STAPI_RC_NULL_GATEWAY_TOKEN},
        {"no token", [&] { return closeGatewayConnection(&none); }, STAPI_RC_NULL_GATEWAY_TOKEN},
        {"never opened, none open", closeUnknown, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND},
        {"none to close", [] { return closeAllGatewayConnections(); }, 0},
    });
    const Connection open(server);
    check({{"never opened, one open", closeUnknown, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND}});
    EXPECT_EQ(unknown, neverOpened);
}

TEST_F(Arguments, ofQuerying) {
    const Connection open(server);
    const std::size_t requests = server.requests().size();
    int place = 0;
    auto* neverOpened = reinterpret_cast<GatewayToken*>(&place);
    for (const QueryCall& call : QUERY_CALLS) {
        SCOPED_TRACE(call.name);
        Untouched<ResultSetToken> result;
        check({
            {"all NULL", [&] { return call.run(nullptr, nullptr, nullptr); }, STAPI_RC_NULL_GATEWAY_TOKEN},
            {"no token", [&] { return call.run(nullptr, result.address()); }, STAPI_RC_NULL_GATEWAY_TOKEN},
            {"no address, unknown token", [&] { return call.run(neverOpened, nullptr); },
             STAPI_RC_NULL_RESULT_SET_POINTER},
            {"no address", [&] { return call.run(open, nullptr); }, STAPI_RC_NULL_RESULT_SET_POINTER},
            {"unknown token", [&] { return call.run(neverOpened, result.address()); },
             STAPI_RC_GATEWAY_TOKEN_NOT_FOUND},
        });
        if (call.takesQuery()) {
            check({
                {"no query, no address", [&] { return call.run(neverOpened, nullptr, nullptr); },
                 STAPI_RC_NULL_QUERY_STRING},
                {"no query", [&] { return call.run(open, result.address(), nullptr); }, STAPI_RC_NULL_QUERY_STRING},
            });
        }
    }
    EXPECT_EQ(server.requests().size(), requests) << "a refused query has reached the Gateway";
}

TEST_F(Arguments, ofWalking) {
    const Connection open(server);
    ResultSetToken* result = nullptr;
    StatData stat{};
    IdData id{};
    ASSERT_EQ(getStats(open, &result), 0);
    check({
        {"getFirstStat NULL, NULL", [] { return getFirstStat(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getNextStat NULL, NULL", [] { return getNextStat(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getFirstId NULL, NULL", [] { return getFirstId(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getNextId NULL, NULL", [] { return getNextId(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getFirstStat no record", [&] { return getFirstStat(result, nullptr); }, STAPI_RC_NULL_STAT_DATA},
        {"getNextStat no record", [&] { return getNextStat(result, nullptr); }, STAPI_RC_NULL_STAT_DATA},
        {"getFirstId no record, statistics", [&] { return getFirstId(result, nullptr); }, STAPI_RC_NULL_ID_DATA},
        {"getNextId no record, statistics", [&] { return getNextId(result, nullptr); }, STAPI_RC_NULL_ID_DATA},
        {"getFirstId on statistics", [&] { return getFirstId(result, &id); }, STAPI_RC_WRONG_RESULT_SET_CONTENT},
        {"getNextId on statistics", [&] { return getNextId(result, &id); }, STAPI_RC_WRONG_RESULT_SET_CONTENT},
    });
    ASSERT_EQ(getStatIds(open, &result), 0);
    check({
        {"getFirstStat on identifiers", [&] { return getFirstStat(result, &stat); }, STAPI_RC_WRONG_RESULT_SET_CONTENT},
        {"getNextStat on identifiers", [&] { return getNextStat(result, &stat); }, STAPI_RC_WRONG_RESULT_SET_CONTENT},
        {"getFirstStat no record, identifiers", [&] { return getFirstStat(result, nullptr); }, STAPI_RC_NULL_STAT_DATA},
        {"getFirstId no record", [&] { return getFirstId(result, nullptr); }, STAPI_RC_NULL_ID_DATA},
    });
}

TEST_F(Arguments, ofManagingResultSets) {
    const Connection open(server);
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStatIds(open, &result), 0);
    ResultSetToken* const owned = result;
    ResultSetToken* none = nullptr;
    Untouched<ResultSetToken> target;
    Untouched<char> query;
    check({
        {"copyResultSet NULL, NULL", [] { return copyResultSet(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"copyResultSet no source", [&] { return copyResultSet(nullptr, target.address()); }, STAPI_RC_NULL_RESULT_SET},
        {"copyResultSet no address", [&] { return copyResultSet(result, nullptr); }, STAPI_RC_NULL_RESULT_SET_POINTER},
        {"freeResultSet no address", [] { return freeResultSet(nullptr); }, STAPI_RC_NULL_RESULT_SET_POINTER},
        {"freeResultSet none", [&] { return freeResultSet(&none); }, STAPI_RC_NULL_RESULT_SET},
        {"freeResultSet not a copy", [&] { return freeResultSet(&result); }, STAPI_RC_RESULT_SET_NOT_USER_OWNED},
        {"dumpResultSet NULL", [] { return dumpResultSet(nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getIdQuery NULL, NULL", [] { return getIdQuery(nullptr, nullptr); }, STAPI_RC_NULL_RESULT_SET},
        {"getIdQuery no result set", [&] { return getIdQuery(nullptr, query.address()); }, STAPI_RC_NULL_RESULT_SET},
        {"getIdQuery no address", [&] { return getIdQuery(result, nullptr); }, STAPI_RC_NULL_POINTER},
    });
    EXPECT_EQ(result, owned);
}

TEST_F(Arguments, ofSettings) {
    check({
        {"getStatsAPIVersion", [] { return getStatsAPIVersion(nullptr); }, STAPI_RC_NULL_POINTER},
        {"getAPITraceLevel", [] { return getAPITraceLevel(nullptr); }, STAPI_RC_NULL_POINTER},
        {"level -1", [] { return setAPITraceLevel(-1); }, STAPI_RC_INVALID_TRACE_LEVEL},
        {"level 6", [] { return setAPITraceLevel(6); }, STAPI_RC_INVALID_TRACE_LEVEL},
        {"lowest level", [] { return setAPITraceLevel(INT_MIN); }, STAPI_RC_INVALID_TRACE_LEVEL},
        {"highest level", [] { return setAPITraceLevel(INT_MAX); }, STAPI_RC_INVALID_TRACE_LEVEL},
        {"file in no directory", [] { return setAPITraceFile("/nonexistent/trace"); }, STAPI_RC_TRACE_FILE_OPEN_FAILED},
        {"file without a name", [] { return setAPITraceFile(""); }, STAPI_RC_TRACE_FILE_OPEN_FAILED},
    });
}

}  // namespace
