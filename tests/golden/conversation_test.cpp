// Conversations that go well, the settings, and the argument checks.
#include "recording.h"

#include <cstdlib>

namespace {

using golden::Conversation;
using golden::Keep;
using golden::Recording;
using simgateway::Exchange;
using simgateway::Reply;

void walkStats(ResultSetToken* result) {
    StatData stat{};
    for (int rc = getFirstStat(result, &stat); rc == 0; rc = getNextStat(result, &stat)) {
    }
}

void walkIds(ResultSetToken* result) {
    IdData id{};
    for (int rc = getFirstId(result, &id); rc == 0; rc = getNextId(result, &id)) {
    }
}

// An answer with all kinds of query element.
Reply mixedStats() {
    Reply reply =
        Reply().element("first").stat("first.state", "READY").stat("first.count", "17").element("missing", -1);
    return reply.element("empty").element("odd", 3).stat("odd.count", "");
}

Reply mixedIds() {
    Reply reply = Reply().element("first").id("first.state").id("first.count").element("missing", -1);
    return reply.element("empty").element("odd", 3).id("odd.count");
}

TEST_F(Conversation, opensAndCloses) {
    const Recording recording("open-close", 4, server);
    GatewayToken* token = open();
    EXPECT_EQ(closeGatewayConnection(&token), 0);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
}

// The whole of a monitoring program's work.
TEST_F(Conversation, doesTheMainJob) {
    GatewayToken* token = open();
    const Recording recording("main-job", 4, server);
    ResultSetToken* result = nullptr;
    ResultSetToken* copy = nullptr;
    char* query = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    walkStats(result);
    ASSERT_EQ(getStatIds(token, &result), 0);
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    ASSERT_EQ(getIdQuery(copy, &query), 0);
    ASSERT_EQ(getStatsByStatId(token, "daemon.state:no.such.thing", &result), 0);
    walkStats(result);
    ASSERT_EQ(dumpResultSet(result), 0);
    ASSERT_EQ(freeResultSet(&copy), 0);
    ASSERT_EQ(closeGatewayConnection(&token), 0);
}

// The queries that the main job leaves out, with answers of one small element, so that the dumps stay short.
TEST_F(Conversation, asksTheOtherQueries) {
    GatewayToken* token = open();
    const Reply ids = Reply().element("e").id("i");
    const Reply stats = Reply().element("e").stat("i", "v");
    const auto answer = [this](const Reply& reply) { server.inject(Exchange::invoke, {.payload = reply.bytes()}); };
    const Recording recording("queries-in-detail", 4, server);
    ResultSetToken* result = nullptr;
    answer(ids);
    EXPECT_EQ(getResourceGroupIds(token, &result), 0);
    answer(stats);
    EXPECT_EQ(getStatsByStatGroupId(token, "e", &result), 0);
    answer(ids);
    EXPECT_EQ(getStatIdsByStatGroupId(token, "e", &result), 0);
    EXPECT_EQ(setAPITraceLevel(1), 0);
    answer(stats);
    EXPECT_EQ(getStatsByStatId(token, std::string(32766, 'x').c_str(), &result), 0);
}

TEST_F(Conversation, walks) {
    GatewayToken* token = open();
    server.inject(Exchange::invoke, {.payload = mixedStats().bytes()});
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    const Recording recording("walks", 4, server);
    StatData stat{};
    IdData id{};
    EXPECT_EQ(getNextStat(result, &stat), 0);
    walkStats(result);
    EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_EQ(getFirstId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(getNextId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(setAPITraceLevel(1), 0);
    server.inject(Exchange::invoke, {.payload = mixedIds().bytes()});
    ASSERT_EQ(getStatIds(token, &result), 0);
    EXPECT_EQ(setAPITraceLevel(4), 0);
    EXPECT_EQ(getNextId(result, &id), 0);
    walkIds(result);
    EXPECT_EQ(getFirstStat(result, &stat), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    char* query = nullptr;
    EXPECT_EQ(getIdQuery(result, &query), 0);
    EXPECT_EQ(setAPITraceLevel(1), 0);
    server.inject(Exchange::invoke, {.payload = Reply(Reply::Content::identifiers).element("missing", -1).bytes()});
    ASSERT_EQ(getStatIds(token, &result), 0);
    EXPECT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(getFirstId(result, &id), 0);
    EXPECT_EQ(getIdQuery(result, &query), STAPI_RC_NO_GOOD_IDS);
}

class AtLevel : public Conversation, public testing::WithParamInterface<int> {};

// The same short conversation at every level, one failed call in it.
TEST_P(AtLevel, short) {
    const int level = GetParam();
    const Recording recording("level-" + std::to_string(level), level, server, level == 5 ? Keep::ALL : Keep::POINTS);
    char* version = nullptr;
    EXPECT_EQ(getStatsAPIVersion(&version), 0);
    GatewayToken* token = open();
    EXPECT_EQ(getStats(token, nullptr), STAPI_RC_NULL_RESULT_SET_POINTER);
    EXPECT_EQ(getAPITraceLevel(nullptr), STAPI_RC_NULL_POINTER);
    EXPECT_EQ(closeGatewayConnection(&token), 0);
}
INSTANTIATE_TEST_SUITE_P(Conversation, AtLevel, testing::Range(0, 6));

TEST_F(Conversation, closesAll) {
    const Recording recording("close-all", 3, server, Keep::POINTS);
    EXPECT_EQ(setAPITraceLevel(2), 0);
    open();
    GatewayToken* middle = open();
    open();
    EXPECT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(closeGatewayConnection(&middle), 0);
    EXPECT_EQ(setAPITraceLevel(2), 0);
    open();
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
}

TEST_F(Conversation, dumpsTheState) {
    GatewayToken* token = open();
    server.inject(Exchange::invoke, {.payload = mixedStats().bytes()});
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    const Recording recording("state", 3, server);
    EXPECT_EQ(dumpState(), 0);
    EXPECT_EQ(dumpResultSet(result), 0);
    EXPECT_EQ(setAPITraceLevel(0), 0);
    open();
    EXPECT_EQ(dumpState(), 0);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(dumpState(), 0);
}

TEST_F(Conversation, changesSettings) {
    const Recording recording("settings", 4, server);
    char* version = nullptr;
    int level = 0;
    EXPECT_EQ(getStatsAPIVersion(&version), 0);
    EXPECT_EQ(getStatsAPIVersion(nullptr), STAPI_RC_NULL_POINTER);
    EXPECT_EQ(getAPITraceLevel(&level), 0);
    EXPECT_EQ(getAPITraceLevel(nullptr), STAPI_RC_NULL_POINTER);
    EXPECT_EQ(setAPITraceLevel(6), STAPI_RC_INVALID_TRACE_LEVEL);
    EXPECT_EQ(setAPITraceLevel(-1), STAPI_RC_INVALID_TRACE_LEVEL);
    EXPECT_EQ(setAPITraceLevel(0), 0);
    EXPECT_EQ(getAPITraceLevel(nullptr), STAPI_RC_NULL_POINTER);
    EXPECT_EQ(setAPITraceLevel(4), 0);
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(setAPITraceFile(recording.file("other").c_str()), 0);
    EXPECT_EQ(getAPITraceLevel(&level), 0);
    EXPECT_EQ(setAPITraceFile(recording.file("trace").c_str()), 0);
    EXPECT_EQ(setAPITraceFile("/dev/null"), 0);
    EXPECT_EQ(setAPITraceFile(nullptr), 0);
    EXPECT_EQ(setAPITraceFile(recording.file("trace").c_str()), 0);
}

// At the end of the standard error stream the destination is unchanged.
TEST_F(Conversation, keepsTheStandardErrorStream) {
    const Recording recording("settings-stderr", 4, server);
    testing::internal::CaptureStderr();
    EXPECT_EQ(setAPITraceFile(nullptr), 0);
    EXPECT_EQ(setAPITraceFile(nullptr), 0);
    EXPECT_EQ(setAPITraceFile(recording.file("trace").c_str()), 0);
    golden::compare("settings-stderr-itself", testing::internal::GetCapturedStderr(), Keep::WITHOUT_LOCKS,
                    recording.file(""), server.port());
}

TEST_F(Conversation, refusesArguments) {
    GatewayToken* token = open();
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    const Recording recording("arguments", 3, server);
    GatewayToken* none = nullptr;
    ResultSetToken* noResult = nullptr;
    char* text = nullptr;
    StatData stat{};
    IdData id{};
    GatewayToken* unknown = reinterpret_cast<GatewayToken*>(&stat);
    for (const int rc : {openGatewayConnection(0, &none, &text),
                         openGatewayConnection(server.port(), nullptr, &text),
                         openRemoteGatewayConnection("localhost", server.port(), &none, nullptr),
                         closeGatewayConnection(nullptr),
                         closeGatewayConnection(&none),
                         closeGatewayConnection(&unknown),
                         getStats(unknown, &noResult),
                         getStats(nullptr, &noResult),
                         getStatIds(token, nullptr),
                         getResourceGroupIds(nullptr, nullptr),
                         getStatsByStatId(token, nullptr, nullptr),
                         getStatsByStatGroupId(token, "", nullptr),
                         getStatIdsByStatGroupId(token, nullptr, &noResult),
                         getFirstStat(nullptr, &stat),
                         getNextStat(result, nullptr),
                         getFirstId(nullptr, nullptr),
                         getNextId(result, &id),
                         copyResultSet(nullptr, &noResult),
                         copyResultSet(result, nullptr),
                         freeResultSet(nullptr),
                         freeResultSet(&noResult),
                         freeResultSet(&result),
                         dumpResultSet(nullptr),
                         getIdQuery(nullptr, &text),
                         getIdQuery(result, nullptr)}) {
        EXPECT_LT(rc, 0);
    }
}

}  // namespace
