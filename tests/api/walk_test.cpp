// Walking a result set: which entries there are, where a walk begins, goes on and ends.
#include "fixture.h"
#include "walk.h"

#include <string_view>

namespace {

using apitest::allStatIds;
using apitest::allStats;
using apitest::Connection;
using apitest::Entries;
using apitest::Entry;
using apitest::entryOf;
using apitest::ids;
using apitest::idsOf;
using apitest::statsOf;
using apitest::walkIds;
using apitest::walkStats;
using simgateway::Reply;

class Walking : public apitest::GatewayTest {
protected:
    const Connection connection{server};
};

std::string_view eyecatcherOf(const auto& record) {
    return {record.eyecatcher, sizeof record.eyecatcher};
}

TEST_F(Walking, passesOverElementsWithoutItems) {
    const struct {
        const char* what;
        Reply reply;
        Entries expected;
    } cases[] = {
        {"nothing", ids(), {}},
        {"one empty element", ids().element("e"), {}},
        {"empty elements only", ids().element("e").element("f").element("g"), {}},
        {"empty ones first", ids().element("e").element("f").element("g").id("i"), {{"g", 0, "i"}}},
        {"empty ones last", ids().element("e").id("i").element("f").element("g"), {{"e", 0, "i"}}},
        {"an empty one between",
         ids().element("e").id("i").element("f").element("g").id("j"),
         {{"e", 0, "i"}, {"g", 0, "j"}}},
        {"failed, empty, failed", ids().element("e", -1).element("f").element("g", -2), {{"e", -1}, {"g", -2}}},
        {"a positive code",
         ids().element("e", 1).id("i").element("f", 0x7FFFFFFF).id("j"),
         {{"e", 1, "i"}, {"f", 0x7FFFFFFF, "j"}}},
        {"the lowest code", ids().element("e", INT32_MIN).element("f").id("i"), {{"e", INT32_MIN}, {"f", 0, "i"}}},
        {"texts without characters", ids().element("").id("").id(""), {{"", 0, ""}, {"", 0, ""}}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(walkIds(idsOf(server, connection, each.reply.bytes())), each.expected) << each.what;
    }
}

TEST_F(Walking, goesThroughManyElements) {
    Reply reply(Reply::Content::statistics);
    Entries expected;
    for (int element = 0; element < 100; ++element) {
        const std::string name = "element" + std::to_string(element);
        reply.element(name, element % 7 == 3 ? -element : element % 2);
        if (element % 7 == 3) {
            expected.push_back({name, -element});
            continue;
        }
        for (int item = 0; item < element % 5; ++item) {
            const std::string id = "id" + std::to_string(item);
            reply.stat(id, name);
            expected.push_back({name, element % 2, id, name});
        }
    }
    ASSERT_GT(expected.size(), 150U);
    EXPECT_EQ(walkStats(statsOf(server, connection, reply.bytes())), expected);
}

TEST_F(Walking, leavesItemFieldsOfAFailedElementAlone) {
    ResultSetToken* result = statsOf(
        server, connection,
        Reply(Reply::Content::statistics).element("e", -1).element("f").stat("i", "v").element("g", -2).bytes());
    char mine[] = "mine";
    StatData stat{};
    stat.statIdPtr = stat.statValuePtr = mine;
    stat.statIdLen = stat.statValueLen = 4;
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(getFirstStat(result, &stat), 0);
        EXPECT_EQ(entryOf(stat), (Entry{"e", -1}));
        if (round == 0) {
            EXPECT_EQ(stat.statIdPtr, mine);
            EXPECT_EQ(stat.statValuePtr, mine);
            EXPECT_EQ(stat.statIdLen + stat.statValueLen, 8);
        }
        ASSERT_EQ(getNextStat(result, &stat), 0);
        const StatData before = stat;
        ASSERT_EQ(getNextStat(result, &stat), 0);
        EXPECT_EQ(entryOf(stat), (Entry{"g", -2}));
        EXPECT_EQ(stat.statIdPtr, before.statIdPtr);
        EXPECT_EQ(stat.statValuePtr, before.statValuePtr);
        EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
    }
    result = idsOf(server, connection, ids().element("e", -1).element("f").id("i").element("g", -2).bytes());
    IdData id{};
    id.idPtr = mine;
    id.idLen = 4;
    ASSERT_EQ(getFirstId(result, &id), 0);
    EXPECT_EQ(entryOf(id), (Entry{"e", -1}));
    EXPECT_EQ(id.idPtr, mine);
    EXPECT_EQ(id.idLen, 4);
    ASSERT_EQ(getNextId(result, &id), 0);
    ASSERT_EQ(getNextId(result, &id), 0);
    EXPECT_EQ(entryOf(id), (Entry{"g", -2}));
}

// Next begins a walk that has not started, and writes the eyecatcher then and only then.
TEST_F(Walking, beginsWithEitherCall) {
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(connection, &result), 0);
    const Entries expected = allStats(simgateway::Model());
    StatData stat{};
    ASSERT_EQ(getNextStat(result, &stat), 0);
    EXPECT_EQ(eyecatcherOf(stat), "ZULSTSET");
    EXPECT_EQ(entryOf(stat), expected[0]);
    StatData second{};
    ASSERT_EQ(getNextStat(result, &second), 0);
    EXPECT_EQ(second.eyecatcher[0], '\0');
    EXPECT_EQ(entryOf(second), expected[1]);
    ASSERT_EQ(getFirstStat(result, &stat), 0) << "again from the start";
    EXPECT_EQ(entryOf(stat), expected[0]);
    EXPECT_EQ(walkStats(result), expected);

    ASSERT_EQ(getStatIds(connection, &result), 0);
    IdData id{};
    ASSERT_EQ(getNextId(result, &id), 0);
    EXPECT_EQ(eyecatcherOf(id), "ZULIDSET");
    IdData next{};
    ASSERT_EQ(getNextId(result, &next), 0);
    EXPECT_EQ(next.eyecatcher[0], '\0');
    ASSERT_EQ(getFirstId(result, &next), 0);
    EXPECT_EQ(entryOf(next), entryOf(id));
    EXPECT_EQ(walkIds(result), allStatIds(simgateway::Model()));
}

TEST_F(Walking, endsAtOnceWithoutEntries) {
    for (const Reply& reply : {Reply(Reply::Content::statistics), Reply(Reply::Content::statistics).element("e")}) {
        ResultSetToken* result = statsOf(server, connection, reply.bytes());
        StatData stat{};
        EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(eyecatcherOf(stat), "ZULSTSET");
        StatData again{};
        EXPECT_EQ(getNextStat(result, &again), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(eyecatcherOf(again), "ZULSTSET") << "still not started";
        EXPECT_EQ(getFirstStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(stat.queryElementPtr, nullptr);
        EXPECT_EQ(stat.statIdPtr, nullptr);
        result = idsOf(server, connection, reply.elements() == 0 ? ids().bytes() : ids().element("e").bytes());
        IdData id{};
        EXPECT_EQ(getFirstId(result, &id), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(eyecatcherOf(id), "ZULIDSET");
        EXPECT_EQ(getNextId(result, &id), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(id.queryElementPtr, nullptr);
    }
}

// A refused call and one of the wrong kind leave the position where it is.
TEST_F(Walking, keepsItsPositionOverRefusedCalls) {
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(connection, &result), 0);
    const Entries expected = allStats(simgateway::Model());
    StatData stat{};
    IdData id{};
    ASSERT_EQ(getFirstStat(result, &stat), 0);
    EXPECT_EQ(getFirstId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(getNextId(result, &id), STAPI_RC_WRONG_RESULT_SET_CONTENT);
    EXPECT_EQ(getNextStat(result, nullptr), STAPI_RC_NULL_STAT_DATA);
    EXPECT_EQ(dumpResultSet(result), 0);
    ResultSetToken* copy = nullptr;
    EXPECT_EQ(copyResultSet(result, &copy), 0);
    EXPECT_EQ(freeResultSet(&copy), 0);
    ASSERT_EQ(getNextStat(result, &stat), 0);
    EXPECT_EQ(entryOf(stat), expected[1]);
}

// A text that happens to hold the bytes of the terminator word is a text like any other.
TEST_F(Walking, isNotMisledByTheTerminatorInsideAText) {
    const std::string terminator = "\x0F\x0E\x0F\x0E";
    const Reply reply = Reply(Reply::Content::statistics).element(terminator).stat(terminator, terminator + terminator);
    EXPECT_EQ(walkStats(statsOf(server, connection, reply.bytes())),
              (Entries{{terminator, 0, terminator, terminator + terminator}}));
    const std::string zeros("a\0b", 3);
    EXPECT_EQ(walkIds(idsOf(server, connection, ids().element(zeros).id(zeros).bytes())), (Entries{{zeros, 0, zeros}}));
}

// Two connections and a copy walk side by side.
TEST_F(Walking, hasOnePositionForEachResultSet) {
    const Connection other(server);
    ResultSetToken* walked = nullptr;
    ResultSetToken* elsewhere = nullptr;
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(getStats(connection, &walked), 0);
    ASSERT_EQ(getStats(other, &elsewhere), 0);
    ASSERT_EQ(copyResultSet(walked, &copy), 0);
    ASSERT_NE(walked, elsewhere);
    StatData stat{};
    ASSERT_EQ(getFirstStat(walked, &stat), 0);
    for (const Entry& expected : allStats(simgateway::Model())) {
        for (ResultSetToken* result : {elsewhere, copy}) {
            ASSERT_EQ(getNextStat(result, &stat), 0);
            ASSERT_EQ(entryOf(stat), expected);
        }
    }
    ASSERT_EQ(getNextStat(walked, &stat), 0);
    EXPECT_EQ(entryOf(stat), allStats(simgateway::Model())[1]);
    EXPECT_EQ(freeResultSet(&copy), 0);
}

}  // namespace
