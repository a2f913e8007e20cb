// What the exported calls say to handles without content, or with content that no query has written.
#include "support/interposer.h"
#include "support/fixture.h"
#include "support/trace_capture.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_impl.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_socketcomms.h"
#include "stapi_zul_statquery.h"

namespace {

using namespace support;

TEST(Content, missingOrUnknownIsRefused) {
    TraceCapture trace(1);
    StatData stat{};
    IdData id{};
    char* query = nullptr;
    ResultSetToken* target = nullptr;
    ResultSetToken rs{};
    rs.owner = USER_OWNED;
    char unknown[RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK] = "ZULNOSET";
    for (char* head : {static_cast<char*>(nullptr), unknown}) {
        rs.head = head;
        const int expected = head == nullptr ? STAPI_RC_NO_RESULT_SET_BUFFER : STAPI_RC_WRONG_RESULT_SET_CONTENT;
        EXPECT_THAT((std::vector{getFirstStat(&rs, &stat), getNextStat(&rs, &stat), getFirstId(&rs, &id),
                                 getNextId(&rs, &id), copyResultSet(&rs, &target), dumpResultSet(&rs)}),
                    testing::Each(expected));
        EXPECT_EQ(getIdQuery(&rs, &query), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    }
    EXPECT_TRUE(target == nullptr && query == nullptr);
    EXPECT_THAT(trace.takeNumbers(), testing::ElementsAre(1073, 1103, 1041, 1059, 1065, 1044, 1051, 1074, 1104, 1041));
}

TEST(Content, queriesNeedTheConnectionsBuffer) {
    TraceCapture trace(1);
    ResultSetToken rs{};
    GatewayToken token{};
    token.connRSToken = &rs;
    getPidTid(&token.owningPid, &token.owningTid);
    token.owningThread = pthread_self();
    ASSERT_EQ(chainGatewayToken(&token), 0);
    ResultSetToken* result = nullptr;
    for (const QueryCall& call : QUERY_CALLS) {
        EXPECT_EQ(call.run(&token, &result, "a"), STAPI_RC_NO_RESULT_SET_BUFFER) << call.name;
    }
    EXPECT_TRUE(result == nullptr && rs.queryString == nullptr);
    EXPECT_THAT(trace.takeNumbers(), testing::UnorderedElementsAre(1012, 1017, 1022, 1027, 1032, 1037));
    gtListHeadPtr = nullptr;
}

// The level rises while the query waits for its answer.
TEST(Content, exitLineShowsTheQueryStringFromAnyLevelOn) {
    TraceCapture trace(0);
    const simgateway::Server gateway;
    GatewayToken* token = openConnection(gateway.port());
    ResultSetToken* result = nullptr;
    {
        const AllocationFault answer(3, [] { statAPITrace.store(3); });
        EXPECT_EQ(getStatIdsByStatGroupId(token, "daemon", &result), 0);
    }
    EXPECT_EQ(trace.take().back(), format("[1019] EXIT   API.getStatIdsByStatGroupId(gwTok=%p,query=daemon,rs=%p) rc=0",
                                          static_cast<void*>(token), static_cast<void*>(&result)));
    EXPECT_EQ(closeGatewayConnection(&token), 0);
}

TEST(Content, textCopyOfNothingIsRefused) {
    char text[] = "";
    char* copy = text;
    for (const auto copyText : {dup2ASCIIString, dup2NativeString}) {
        EXPECT_EQ(copyText(nullptr, &copy), TEXT_COPY_REFUSED);
        EXPECT_EQ(copyText("text", nullptr), TEXT_COPY_REFUSED);
        EXPECT_EQ(copy, text);
    }
}

// No call of the application's leads here; a fault of our own would.
TEST(Content, internalCallsWithNothingToWorkOnAreRefused) {
    TraceCapture trace(1);
    char* cursor = nullptr;
    std::int32_t flag = 7;
    unsigned char content[1] = {};
    unsigned char* block = content;
    unsigned char* data = nullptr;
    ResultSetToken* none = nullptr;
    char small[15] = "";  // without room for an empty result set
    FlowReasons reasons{};
    RequestHeader header{};
    GatewayToken* parent = nullptr;
    EXPECT_THAT(
        (std::vector{addIdStr(&cursor, "a"), addInteger(&cursor, 1), addChars(&cursor, "a", 1),
                     addPlatformChars(&cursor, "a", 1), addTerminator(nullptr), checkTerminator(nullptr, &flag)}),
        testing::Each(STAPI_RC_NULL_PARAMETER));
    EXPECT_THAT((std::vector{flow(-1, 0, &block, "REQUEST", &header, &reasons),
                             flow(-1, 4, nullptr, "REQUEST", &header, &reasons),
                             flow(-1, 4, &data, "REQUEST", &header, &reasons)}),
                testing::Each(STAPI_RC_FLOW_COMMS_FAILED));
    EXPECT_EQ(parseStatsData(content, small, sizeof content, sizeof small), STAPI_RC_FLOW_CONTENT_TOO_LARGE);
    EXPECT_EQ(chainGatewayToken(nullptr), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(findGatewayToken(nullptr, &parent), STAPI_FIND_NULL_TARGET);
    EXPECT_EQ(deleteGatewayToken(nullptr, 1), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(deleteResultSet(nullptr), STAPI_RC_NULL_RESULT_SET_POINTER);
    EXPECT_EQ(deleteResultSet(&none), STAPI_RC_NULL_RESULT_SET);
    EXPECT_THAT(
        (std::vector{dumpResultSetInternal(nullptr), commsStats(-1, nullptr), commsStatsByStatId(-1, nullptr, "a")}),
        testing::Each(STAPI_RC_NULL_PARAMETER));
    EXPECT_EQ(flag, 7);
    EXPECT_THAT(trace.takeNumbers(),
                testing::ElementsAre(2101, 2109, 2112, 2117, 2121, 2124, 3227, 3227, 3227, 2232, 2021, 2028));
}

}  // namespace
