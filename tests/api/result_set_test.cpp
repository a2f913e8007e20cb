// Result sets as objects: copies, dumps, and query strings made of them.
#include "support/fixture.h"
#include "support/temp_directory.h"
#include "support/walk.h"

#include <cstring>

namespace {

using namespace support;
using simgateway::Reply;
using testing::HasSubstr;

constexpr std::size_t QUERY_STRING_MAX = 31999;

class ResultSet : public GatewayTest {
protected:
    const Connection connection{server};
};

class IdQuery : public ResultSet {};

TEST_F(ResultSet, copyOutlivesQueriesAndTheConnection) {
    const Entries stats = allStats(simgateway::Model());
    ResultSetToken* statsCopy = nullptr;
    ResultSetToken* idsCopy = nullptr;
    {
        const Connection shortLived(server);
        ResultSetToken* result = nullptr;
        StatData stat{};
        ASSERT_EQ(getStats(shortLived, &result), 0);
        ASSERT_EQ(getFirstStat(result, &stat), 0);
        ASSERT_EQ(copyResultSet(result, &statsCopy), 0);
        ASSERT_EQ(getNextStat(statsCopy, &stat), 0);
        EXPECT_EQ(entryOf(stat), stats.front()) << "a copy's walk is not started";
        ASSERT_EQ(getNextStat(result, &stat), 0);
        EXPECT_EQ(entryOf(stat), stats[1]) << "nor does it move the walk that it was copied from";
        ASSERT_EQ(getResourceGroupIds(shortLived, &result), 0);
        ASSERT_EQ(copyResultSet(result, &idsCopy), 0);
    }
    EXPECT_EQ(walkIds(idsCopy), allGroupIds(simgateway::Model()));
    EXPECT_EQ(walkStats(statsCopy), stats);
    EXPECT_EQ(freeResultSet(&statsCopy), 0);
    EXPECT_EQ(statsCopy, nullptr);
    EXPECT_EQ(freeResultSet(&idsCopy), 0);
}

TEST_F(ResultSet, isDumpedAtLevelZero) {
    const TempDirectory directory;
    const std::string file = directory.file("trace");
    ASSERT_EQ(setAPITraceLevel(0), 0);
    ASSERT_EQ(setAPITraceFile(file.c_str()), 0);
    ResultSetToken* result = nullptr;
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(getStats(connection, &result), 0);
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    for (const auto& [dumped, owner] : {std::pair(result, "owner(8888)"), {copy, "owner(9999)"}}) {
        EXPECT_EQ(dumpResultSet(dumped), 0);
        EXPECT_THAT(readFile(file), AllOf(HasSubstr(owner), HasSubstr(" : ZULSTSET")));
    }
    EXPECT_EQ(freeResultSet(&copy), 0);
}

TEST_F(IdQuery, joinsGoodIdentifiers) {
    const struct {
        const char* what;
        Reply reply;
        const char* expected;  // nullptr: no identifier is good
    } cases[] = {
        {"over elements", ids().element("e").id("a").id("b").element("f").id("c"), "a:b:c"},
        {"positive codes are not good", ids().element("e").id("a").id("b").element("f", 1).id("c"), "a:b"},
        {"failed ones between", ids().element("e").id("a").element("f", -1).element("g").id("b"), "a:b"},
        {"first entry failed", ids().element("e", -1).element("f").id("a").id("b"), ":a:b"},
        {"first entry positive", ids().element("e", 3).id("x").element("f").id("a"), ":a"},
        {"last entry failed", ids().element("e").id("a").element("f", -1), "a"},
        {"empty element first", ids().element("e").element("f").id("a"), "a"},
        {"up to a NUL", ids().element("e").id(std::string_view("a\0b", 3)).id("c"), "a:c"},
        {"with separators inside", ids().element("e").id("a:b").id("c"), "a:b:c"},
        {"identifiers without characters", ids().element("e").id("").id("").id("a"), "::a"},
        {"all failed", ids().element("e", -1).element("f", -2), nullptr},
        {"all positive", ids().element("e", 1).id("a").id("b"), nullptr},
        {"one without characters", ids().element("e").id(""), nullptr},
        {"no element", ids(), nullptr},
        {"no item", ids().element("e"), nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        ResultSetToken* result = idsOf(server, connection, each.reply.bytes());
        char untouched[] = "untouched";
        char* query = untouched;
        EXPECT_EQ(getIdQuery(result, &query), each.expected == nullptr ? STAPI_RC_NO_GOOD_IDS : 0);
        EXPECT_STREQ(query, each.expected == nullptr ? "untouched" : each.expected);
        IdData id{};
        EXPECT_EQ(getNextId(result, &id), STAPI_RC_END_OF_RESULT_SET) << "the position is not at the end";
    }
}

TEST_F(IdQuery, startsOverAndBelongsToItsResultSet) {
    Reply reply(Reply::Content::statistics);
    reply.element("e").stat("a", "1").stat("b", "2").element("f", -1).element("g", 2).stat("c", "3");
    ResultSetToken* result = statsOf(server, connection, reply.element("h").stat("d", "4").bytes());
    StatData stat{};
    ASSERT_EQ(getFirstStat(result, &stat), 0);
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    char* first = nullptr;
    char* second = nullptr;
    char* ofCopy = nullptr;
    ASSERT_EQ(getIdQuery(result, &first), 0);
    ASSERT_EQ(getIdQuery(result, &second), 0);
    ASSERT_EQ(getIdQuery(copy, &ofCopy), 0);
    EXPECT_EQ(first, second);
    EXPECT_NE(ofCopy, first);
    EXPECT_STREQ(first, "a:b:d");
    EXPECT_STREQ(ofCopy, "a:b:d");
    EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_EQ(freeResultSet(&copy), 0);
    ASSERT_EQ(idsOf(server, connection, ids().element("e", -1).bytes()), result);
    EXPECT_EQ(getIdQuery(result, &second), STAPI_RC_NO_GOOD_IDS);
    EXPECT_STREQ(first, "a:b:d") << "a call without a result leaves the string before";
}

// Identifiers go in whole as long as the string stays within its limit.
TEST_F(IdQuery, endsWithTheLastIdentifierThatFits) {
    for (const auto& [first, second, expected] : {std::tuple(15999U, 15999U, QUERY_STRING_MAX),
                                                  {15999U, 16000U, 15999},
                                                  {31999U, 1U, QUERY_STRING_MAX},
                                                  {31998U, 1U, QUERY_STRING_MAX - 1},
                                                  {31997U, 1U, QUERY_STRING_MAX},
                                                  {32000U, 1U, 0}}) {
        const Reply reply = ids().element("e").id(std::string(first, 'x')).id(std::string(second, 'x'));
        ResultSetToken* result = idsOf(server, connection, reply.bytes());
        char none[] = "";
        char* query = none;
        ASSERT_EQ(getIdQuery(result, &query), expected == 0 ? STAPI_RC_NO_GOOD_IDS : 0) << first;
        EXPECT_EQ(std::strlen(query), expected) << first;
        EXPECT_EQ(getStatsByStatId(connection, query, &result), 0) << "what it makes can be asked";
    }
}

}  // namespace
