// Replies of every shape: how they are framed, and which entries a walk finds in them.
#include "support/fixture.h"
#include "support/walk.h"

#include <algorithm>
#include <functional>

namespace {

using namespace support;
using simgateway::Bytes;
using simgateway::Reply;

using Framing = GatewayTest;

Reply stats() {
    return Reply(Reply::Content::statistics);
}

// Two elements with items, a failed one between them and an empty one at the end; and what a walk finds in them.
struct Good {
    Reply reply;
    Entries entries;
};

Good good(bool statistics) {
    if (statistics) {
        Reply reply = stats().element("one").stat("a.b", "1").stat("a.c", "").stat("", "3").element("bad", -5);
        return {reply.element("two", 7).stat("x", std::string(300, 'v')).element("none"),
                {{"one", 0, "a.b", "1"},
                 {"one", 0, "a.c", ""},
                 {"one", 0, "", "3"},
                 {"bad", -5},
                 {"two", 7, "x", std::string(300, 'v')}}};
    }
    Reply reply = ids().element("one").id("a.b").id("a.c").id("").element("bad", -5);
    return {reply.element("two", 7).id(std::string(300, 'i')),
            {{"one", 0, "a.b"}, {"one", 0, "a.c"}, {"one", 0, ""}, {"bad", -5}, {"two", 7, std::string(300, 'i')}}};
}

Entries entriesOf(simgateway::Server& server, GatewayToken* token, bool statistics, const Reply& reply) {
    return statistics ? walkStats(statsOf(server, token, reply.bytes())) : walkIds(idsOf(server, token, reply.bytes()));
}

TEST_F(Framing, doesNotDependOnTagsAndNames) {
    const Connection connection(server);
    const std::function<void(Reply&)> variants[] = {
        [](Reply&) {},
        [](Reply& reply) { reply.everyBlockTag(0x77); },
        [](Reply& reply) { reply.everyBlockTag(0x7A); },
        [](Reply& reply) { reply.everyBlockTag(0x00); },
        [](Reply& reply) { reply.blockTag(0x7A); },
        [](Reply& reply) { reply.shortEnd(); },
        [](Reply& reply) { reply.classNames("", "", ""); },
        [](Reply& reply) { reply.classNames(std::string(300, 'e'), std::string(1000, 's'), std::string(65, 'i')); },
    };
    for (const auto& variant : variants) {
        SCOPED_TRACE(&variant - variants);
        for (const bool statistics : {true, false}) {
            auto [reply, entries] = good(statistics);
            variant(reply);
            EXPECT_EQ(entriesOf(server, connection, statistics, reply), entries);
        }
    }
}

// Flags and counts out of the ordinary, elements without items, codes and texts at their limits. Without the flag there
// is no count but exactly one element.
TEST_F(Framing, entriesOfOddReplies) {
    const Connection connection(server);
    const auto stat = [] { return stats().element("e").stat("i", "v"); };
    const Entry single = {"e", 0, "i", "v"};
    const std::string terminator = "\x0F\x0E\x0F\x0E";  // in a text it is a text like any other
    const std::string zeros("a\0b", 3);
    const std::string longText(32700, 't');
    const struct {
        const char* what;
        bool statistics;
        Reply reply;
        Entries expected;
    } cases[] = {
        {"flag 0", true, stat().flag(0), {single}},
        {"flag 0, two", true, stat().stat("j", "w").element("f").flag(0), {single, {"e", 0, "j", "w"}}},
        {"flag 0, identifier", false, ids().element("e").id("i").flag(0), {{"e", 0, "i"}}},
        {"count 0 before an element", true, stat().count(0), {}},
        {"lowest count", true, stat().count(INT32_MIN), {}},
        {"highest count", true, stat().count(INT32_MAX), {single}},
        {"highest item count", true, stat().itemCount(INT32_MAX), {single}},
        {"lowest item count", true, stat().itemCount(INT32_MIN), {}},
        {"no statistics", true, stats(), {}},
        {"empty elements only", false, ids().element("e").element("f").element("g"), {}},
        {"failed, empty, failed", false, ids().element("e", -1).element("f").element("g", -2), {{"e", -1}, {"g", -2}}},
        {"codes", false, ids().element("e", INT32_MIN).element("f", 1).id("i"), {{"e", INT32_MIN}, {"f", 1, "i"}}},
        {"highest code", false, ids().element("e", INT32_MAX).id("j"), {{"e", INT32_MAX, "j"}}},
        {"no characters", false, ids().element("").id("").id(""), {{"", 0, ""}, {"", 0, ""}}},
        {"NUL inside", false, ids().element(zeros).id(zeros), {{zeros, 0, zeros}}},
        {"long identifier", false, ids().element("e").id(longText), {{"e", 0, longText}}},
        {"long element", true, stats().element(longText).stat("i", "v"), {{longText, 0, "i", "v"}}},
        {"terminator inside",
         true,
         stats().element(terminator).stat(terminator, terminator),
         {{terminator, 0, terminator, terminator}}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(entriesOf(server, connection, each.statistics, each.reply), each.expected) << each.what;
    }
}

TEST_F(Framing, failedElementLeavesItemFieldsAlone) {
    const Connection connection(server);
    char mine[] = "mine";
    ResultSetToken* result =
        statsOf(server, connection, stats().element("e", -1).element("f").stat("i", "v").element("g", -2).bytes());
    StatData stat{};
    stat.statIdPtr = stat.statValuePtr = mine;
    stat.statIdLen = stat.statValueLen = 4;
    ASSERT_EQ(getFirstStat(result, &stat), 0);
    EXPECT_EQ(entryOf(stat), (Entry{"e", -1}));
    EXPECT_TRUE(stat.statIdPtr == mine && stat.statValuePtr == mine && stat.statIdLen + stat.statValueLen == 8);
    ASSERT_EQ(getNextStat(result, &stat), 0);
    ASSERT_EQ(getNextStat(result, &stat), 0);
    EXPECT_EQ(entryOf(stat), (Entry{"g", -2}));
    EXPECT_TRUE(*stat.statIdPtr == 'i' && *stat.statValuePtr == 'v');
    result = idsOf(server, connection, ids().element("e", -1).bytes());
    IdData id{};
    id.idPtr = mine;
    id.idLen = 4;
    ASSERT_EQ(getFirstId(result, &id), 0);
    EXPECT_TRUE(id.idPtr == mine && id.idLen == 4);
}

// Nothing behind an impossible length is read, not even where an element has no item that needs it.
TEST_F(Framing, impossibleLengthEndsTheReply) {
    const Connection connection(server);
    Bytes bytes = stats().element("none").element("two").stat("i", "v").bytes();
    const std::string before("none\0\0\0\0\0\0\0\0x\0", 14);  // code and count, and two bytes
    const auto length = std::search(bytes.begin(), bytes.end(), before.begin(), before.end()) + 14;
    ASSERT_EQ(walkStats(statsOf(server, connection, bytes)), (Entries{{"two", 0, "i", "v"}}));
    *length = 0x80;
    EXPECT_TRUE(walkStats(statsOf(server, connection, bytes)).empty());
}

}  // namespace
