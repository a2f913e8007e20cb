// What the exported calls say to handles without content, or with content that no query has written.
#include "trace_capture.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_impl.h"
#include "stapi_zul_resultsetbuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace unittest {
namespace {

TEST(Content, missingOrUnknownIsRefused) {
    ASSERT_EQ(stapiInit(), 0);
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
        EXPECT_EQ(getFirstStat(&rs, &stat), expected);
        EXPECT_EQ(getNextStat(&rs, &stat), expected);
        EXPECT_EQ(getFirstId(&rs, &id), expected);
        EXPECT_EQ(getNextId(&rs, &id), expected);
        EXPECT_EQ(copyResultSet(&rs, &target), expected);
        EXPECT_EQ(dumpResultSet(&rs), expected);
        EXPECT_EQ(getIdQuery(&rs, &query), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    }
    EXPECT_EQ(target, nullptr);
    EXPECT_EQ(query, nullptr);
    EXPECT_THAT(trace.takeNumbers(), testing::ElementsAre(1073, 1103, 1041, 1059, 1065, 1044, 1051, 1074, 1104, 1041));
}

TEST(Content, queriesNeedTheConnectionsBuffer) {
    ASSERT_EQ(stapiInit(), 0);
    TraceCapture trace(1);
    ResultSetToken rs{};
    GatewayToken token{};
    token.connRSToken = &rs;
    getPidTid(&token.owningPid, &token.owningTid);
    token.owningThread = pthread_self();
    ASSERT_EQ(chainGatewayToken(&token), 0);
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getResourceGroupIds(&token, &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(getStatIdsByStatGroupId(&token, "a", &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(getStatIds(&token, &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(getStats(&token, &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(getStatsByStatId(&token, "a", &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(getStatsByStatGroupId(&token, "a", &result), STAPI_RC_NO_RESULT_SET_BUFFER);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(rs.queryString, nullptr);
    EXPECT_THAT(trace.takeNumbers(), testing::ElementsAre(1012, 1017, 1022, 1027, 1032, 1037));
    gtListHeadPtr = nullptr;
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

}  // namespace
}  // namespace unittest
