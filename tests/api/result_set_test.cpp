// Result sets as objects: copies, dumps, and query strings made of them.
#include "fixture.h"
#include "temp_directory.h"
#include "walk.h"

#include <unistd.h>

#include <cstring>
#include <sstream>

namespace {

using apitest::allGroupIds;
using apitest::allStats;
using apitest::Connection;
using apitest::Entries;
using apitest::ids;
using apitest::idsOf;
using apitest::statsOf;
using apitest::walkIds;
using apitest::walkStats;
using simgateway::Reply;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr std::size_t QUERY_STRING_MAX = 31999;

class ResultSet : public apitest::GatewayTest {
protected:
    const Connection connection{server};
};

class IdQuery : public ResultSet {};

class Dump : public apitest::QuietGatewayTest {
protected:
    void SetUp() override {
        QuietGatewayTest::SetUp();
        ASSERT_EQ(setAPITraceFile(file.c_str()), 0);
    }
    std::vector<std::string> lines() const {
        std::istringstream text(unittest::readFile(file));
        std::vector<std::string> result;
        for (std::string line; std::getline(text, line);) {
            result.push_back(line);
        }
        return result;
    }

    const unittest::TempDirectory directory;
    const std::string file = directory.file("trace");
};

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
        ASSERT_EQ(getNextStat(result, &stat), 0);
        ASSERT_EQ(copyResultSet(result, &statsCopy), 0);
        EXPECT_NE(statsCopy, result);
        server.advance(3600);
        ASSERT_EQ(getStats(shortLived, &result), 0);
        ASSERT_NE(walkStats(result), stats);
        StatData first{};
        ASSERT_EQ(getNextStat(statsCopy, &first), 0);
        EXPECT_EQ(apitest::entryOf(first), stats.front()) << "a copy's walk is not started";
        ASSERT_EQ(getResourceGroupIds(shortLived, &result), 0);
        ASSERT_EQ(copyResultSet(result, &idsCopy), 0);
    }
    EXPECT_EQ(walkStats(statsCopy), stats);
    EXPECT_EQ(walkIds(idsCopy), allGroupIds(simgateway::Model()));
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(walkStats(statsCopy), stats);

    ResultSetToken* copyOfCopy = nullptr;
    ASSERT_EQ(copyResultSet(statsCopy, &copyOfCopy), 0);
    EXPECT_EQ(freeResultSet(&statsCopy), 0);
    EXPECT_EQ(statsCopy, nullptr);
    EXPECT_EQ(freeResultSet(&statsCopy), STAPI_RC_NULL_RESULT_SET);
    EXPECT_EQ(walkStats(copyOfCopy), stats);
    EXPECT_EQ(freeResultSet(&copyOfCopy), 0);
    EXPECT_EQ(freeResultSet(&idsCopy), 0);
}

TEST_F(ResultSet, ofAConnectionIsNotTheCallersToFree) {
    ResultSetToken* result = nullptr;
    for (const apitest::QueryCall& call : apitest::QUERY_CALLS) {
        ASSERT_EQ(call.run(connection, &result), 0);
        EXPECT_EQ(freeResultSet(&result), STAPI_RC_RESULT_SET_NOT_USER_OWNED) << call.name;
    }
    ASSERT_EQ(getStats(connection, &result), 0);
    EXPECT_EQ(walkStats(result), allStats(simgateway::Model()));
}

TEST_F(IdQuery, joinsGoodIdentifiers) {
    const struct {
        const char* what;
        Reply reply;
        const char* expected;  // nullptr: no identifier is good
    } cases[] = {
        {"three of one element", ids().element("e").id("a").id("b").id("c"), "a:b:c"},
        {"over elements", ids().element("e").id("a").element("f").id("b"), "a:b"},
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
        ResultSetToken* result = idsOf(server, connection, each.reply.bytes());
        char untouched[] = "untouched";
        char* query = untouched;
        if (each.expected != nullptr) {
            EXPECT_EQ(getIdQuery(result, &query), 0) << each.what;
            EXPECT_STREQ(query, each.expected) << each.what;
        } else {
            EXPECT_EQ(getIdQuery(result, &query), STAPI_RC_NO_GOOD_IDS) << each.what;
            EXPECT_EQ(query, untouched) << each.what;
        }
        IdData id{};
        const int rc = getNextId(result, &id);
        EXPECT_EQ(rc, STAPI_RC_END_OF_RESULT_SET) << each.what << ": the position is not at the end";
    }
}

TEST_F(IdQuery, takesStatisticsToo) {
    ResultSetToken* result = statsOf(server, connection,
                                     Reply(Reply::Content::statistics)
                                         .element("e")
                                         .stat("a", "1")
                                         .stat("b", "2")
                                         .element("f", -1)
                                         .element("g", 2)
                                         .stat("c", "3")
                                         .element("h")
                                         .stat("d", "4")
                                         .bytes());
    char* query = nullptr;
    ASSERT_EQ(getIdQuery(result, &query), 0);
    EXPECT_STREQ(query, "a:b:d");
    StatData stat{};
    EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_EQ(getFirstStat(result, &stat), 0);
}

TEST_F(IdQuery, startsOverInTheMiddleOfAWalk) {
    ResultSetToken* result = idsOf(server, connection, ids().element("e").id("a").id("b").bytes());
    IdData id{};
    ASSERT_EQ(getFirstId(result, &id), 0);
    char* first = nullptr;
    char* second = nullptr;
    ASSERT_EQ(getIdQuery(result, &first), 0);
    ASSERT_EQ(getIdQuery(result, &second), 0);
    EXPECT_EQ(first, second) << "the string belongs to the result set";
    EXPECT_STREQ(second, "a:b");
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    char* ofCopy = nullptr;
    ASSERT_EQ(getIdQuery(copy, &ofCopy), 0);
    EXPECT_NE(ofCopy, first);
    EXPECT_STREQ(ofCopy, "a:b");
    EXPECT_EQ(freeResultSet(&copy), 0);
    ASSERT_EQ(idsOf(server, connection, ids().element("e", -1).bytes()), result);
    EXPECT_EQ(getIdQuery(result, &first), STAPI_RC_NO_GOOD_IDS);
    EXPECT_STREQ(second, "a:b") << "a call without a result leaves the string before";
}

// Identifiers go in whole as long as the string stays within its limit.
TEST_F(IdQuery, endsWithTheLastIdentifierThatFits) {
    const auto text = [](std::size_t size) { return std::string(size, 'x'); };
    const struct {
        const char* what;
        std::size_t first;
        std::size_t second;
        std::size_t expected;  // length of the string
    } cases[] = {
        {"both fit exactly", 15999, 15999, QUERY_STRING_MAX},
        {"the second is one too long", 15999, 16000, 15999},
        {"one that fits exactly", QUERY_STRING_MAX, 1, QUERY_STRING_MAX},
        {"no room behind the separator", QUERY_STRING_MAX - 1, 1, QUERY_STRING_MAX - 1},
        {"one character behind it", QUERY_STRING_MAX - 2, 1, QUERY_STRING_MAX},
    };
    for (const auto& each : cases) {
        ResultSetToken* result =
            idsOf(server, connection, ids().element("e").id(text(each.first)).id(text(each.second)).bytes());
        char* query = nullptr;
        ASSERT_EQ(getIdQuery(result, &query), 0) << each.what;
        EXPECT_EQ(std::strlen(query), each.expected) << each.what;
        ResultSetToken* answer = nullptr;
        EXPECT_EQ(getStatsByStatId(connection, query, &answer), 0) << "what it makes can be asked";
    }
    ResultSetToken* result = idsOf(server, connection, ids().element("e").id(text(QUERY_STRING_MAX + 1)).bytes());
    char* query = nullptr;
    EXPECT_EQ(getIdQuery(result, &query), STAPI_RC_NO_GOOD_IDS);
}

TEST_F(Dump, showsAResultSetAtLevelZero) {
    const Connection connection(server);
    ResultSetToken* result = idsOf(server, connection, ids().element("el").id("ident").bytes());
    ASSERT_EQ(dumpResultSet(result), 0);
    // Marker, one element, its text, its code, one item, terminator.
    EXPECT_THAT(
        lines(),
        ElementsAre(MatchesRegex("Dump of ResultSet\\(0x[0-9a-f]+\\) owner\\(8888\\) head\\(0x[0-9a-f]+\\) "
                                 "next\\(0x[0-9a-f]+\\)"),
                    std::string(80, '-'),
                    MatchesRegex("0x[0-9A-F]+: 5A554C49 44534554 01000000 02000000 : ZULIDSET........ "),
                    MatchesRegex("0x[0-9A-F]+: 656C0000 00000100 00000500 00006964 : el............id "),
                    MatchesRegex("0x[0-9A-F]+: 656E74                              : ent"), std::string(80, '-')));
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    ASSERT_EQ(dumpResultSet(copy), 0);
    ASSERT_EQ(lines().size(), 12U);
    EXPECT_THAT(lines()[6], MatchesRegex("Dump of ResultSet\\(0x[0-9a-f]+\\) owner\\(9999\\).*"));
    EXPECT_EQ(freeResultSet(&copy), 0);
}

TEST_F(Dump, endsWithTheBuffer) {
    const Connection connection(server);
    ResultSetToken* result = statsOf(server, connection, simgateway::statsOfContentSize(32767).bytes());
    ASSERT_EQ(dumpResultSet(result), 0);
    EXPECT_EQ(lines().size(), 2U + (32767 - 4) / 16 + 1 + 1);
    EXPECT_EQ(lines().back(), std::string(80, '-'));
}

TEST_F(Dump, showsTheStateAtLevelZero) {
    ASSERT_EQ(dumpState(), 0);
    EXPECT_THAT(lines(), ElementsAre("zulstats state dump: API Version=1_1_0_0 Trace Level=0 statAPITraceFile=" + file,
                                     "Gateway Token List dump", std::string(80, '-'), "The Gateway Token List is EMPTY",
                                     std::string(80, '-'), "Total number of Gateway Token List entries=0",
                                     std::string(80, '-')));
    const Connection first(server);
    const Connection second(server);
    ASSERT_NE(idsOf(server, first, ids().element("el").id("ident").bytes()), nullptr);
    ASSERT_EQ(dumpState(), 0);
    const std::vector<std::string> all = lines();
    const std::vector<std::string> state(all.begin() + 7, all.end());
    const std::string entry = "GatwayToken\\(0x[0-9a-f]+\\) eyecatcher\\(ZULGWTOK\\) port\\(" +
                              std::to_string(server.port()) +
                              "\\) connStatus\\(1\\) socket\\([0-9]+\\) connRSToken\\(0x[0-9a-f]+\\) "
                              "resultSetBuf\\(0x[0-9a-f]+\\) owningPid\\([0-9A-F]+\\) owningTid\\([0-9A-F]+\\) "
                              "nextGwyTokPtr\\((0x[0-9a-f]+|\\(nil\\))\\)";
    ASSERT_EQ(state.size(), 17U);
    EXPECT_THAT(state[3], MatchesRegex("Gateway Token List entry -0001- : " + entry));
    EXPECT_THAT(state[4], StartsWith("Dump of ResultSet("));
    EXPECT_THAT(state[6], testing::HasSubstr("ZULIDSET"));
    EXPECT_EQ(state[9], std::string(80, '-'));
    EXPECT_THAT(state[10], MatchesRegex("Gateway Token List entry -0002- : " + entry));
    // A connection without an answer holds the terminator alone.
    EXPECT_THAT(state[13], MatchesRegex("0x[0-9A-F]+: 0F0E0F0E [0-9A-F]{8} [0-9A-F]{8} [0-9A-F]{8} : "));
    EXPECT_EQ(state[15], "Total number of Gateway Token List entries=2");
}

}  // namespace
