// The argument checks of opening, querying and walking: which code, which of several wrong arguments is told first, and
// that a refused call reaches neither its results nor the Gateway.
#include "support/fixture.h"
#include "support/walk.h"

#include <climits>

namespace {

using namespace support;

using Arguments = GatewayTest;

// What stands in a result before the call.
char place;
auto* const noToken = reinterpret_cast<GatewayToken*>(&place);
auto* const noResult = reinterpret_cast<ResultSetToken*>(&place);

TEST_F(Arguments, ofOpening) {
    GatewayToken* token = noToken;
    char* version = &place;
    const int port = server.port();
    for (const int bad : {0, -1, 65536, INT_MIN}) {
        EXPECT_EQ(openGatewayConnection(bad, &token, &version), STAPI_RC_INVALID_PORT) << bad;
        EXPECT_EQ(openRemoteGatewayConnection(nullptr, bad, nullptr, nullptr), STAPI_RC_INVALID_PORT) << bad;
    }
    for (const int good : {1, 65535}) {
        EXPECT_EQ(openGatewayConnection(good, nullptr, nullptr), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER) << good;
    }
    EXPECT_EQ(openRemoteGatewayConnection(UNRESOLVABLE, port, nullptr, &version), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(openRemoteGatewayConnection(UNRESOLVABLE, port, &token, nullptr), STAPI_RC_NULL_VERSION_POINTER);
    EXPECT_EQ(token, noToken);
    EXPECT_EQ(version, &place);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(Arguments, ofQuerying) {
    const Connection open(server);
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

// Refused calls leave the position where it is.
TEST_F(Arguments, ofWalking) {
    const Connection open(server);
    ResultSetToken* result = nullptr;
    StatData stat{};
    IdData id{};
    ASSERT_EQ(getStats(open, &result), 0);
    ASSERT_EQ(getFirstStat(result, &stat), 0);
    EXPECT_EQ(getFirstStat(result, nullptr), STAPI_RC_NULL_STAT_DATA);
    EXPECT_EQ(getNextStat(result, nullptr), STAPI_RC_NULL_STAT_DATA);
    EXPECT_EQ(getFirstId(result, nullptr), STAPI_RC_NULL_ID_DATA) << "before the content";
    EXPECT_EQ(getNextId(result, nullptr), STAPI_RC_NULL_ID_DATA);
    EXPECT_EQ(getFirstId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(getNextId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    ASSERT_EQ(getNextStat(result, &stat), 0);
    EXPECT_EQ(entryOf(stat), allStats(simgateway::Model())[1]);
}

}  // namespace
