// Replies of every shape: how they are framed, and which entries a walk finds in them.
#include "support/fixture.h"
#include "support/walk.h"

#include <algorithm>

namespace {

using namespace support;
using simgateway::Bytes;
using simgateway::Reply;

using Framing = GatewayTest;

Reply stats() {
    return Reply(Reply::Content::statistics);
}

Entries entriesOf(simgateway::Server& server, GatewayToken* token, bool statistics, const Reply& reply) {
    return walk(resultOf(server, token, reply.bytes(), statistics ? getStats : getStatIds), statistics);
}

// Flags and counts out of the ordinary, elements without items, codes and texts at their limits. Without the flag there
// is no count but exactly one element.
TEST_F(Framing, entriesOfOddReplies) {
    const Connection connection(server);
    const auto stat = [] { return stats().element("e").stat("i", "v"); };
    const Entry single = {"e", 0, "i", "v"};
    constexpr std::uint32_t TERMINATOR = 0x0E0F0E0F;  // in a text it is a text like any other
    const std::string terminator(reinterpret_cast<const char*>(&TERMINATOR), sizeof TERMINATOR);
    const std::string zeros("a\0b", 3);
    const std::string longText(32700, 't');
    const std::string longName(1000, 'n');
    const auto three = [] {
        return stats().element("e").stat("i", "v").stat("j", "").element("f", -5).element("g", 7).stat("k", "w");
    };
    const Entries ofThree = {single, {"e", 0, "j", ""}, {"f", -5}, {"g", 7, "k", "w"}};
    const struct {
        const char* what;
        bool statistics;
        Reply reply;
        Entries expected;
    } cases[] = {
        {"short block tags", true, three().everyBlockTag(0x77), ofThree},
        {"long block tags", true, three().everyBlockTag(0x7A), ofThree},
        {"unknown block tags", true, three().everyBlockTag(0x00), ofThree},
        {"short end", true, three().shortEnd(), ofThree},
        {"no class names", true, three().classNames("", "", ""), ofThree},
        {"long class names", true, three().classNames(longName, longName, longName), ofThree},
        {"long block tags of identifiers", false, ids().element("e").id("i").everyBlockTag(0x7A), {{"e", 0, "i"}}},
        {"flag 0", true, stat().flag(0), {single}},
        {"flag 0, two", true, stat().stat("j", "w").element("f").flag(0), {single, {"e", 0, "j", "w"}}},
        {"flag 0, identifier", false, ids().element("e").id("i").flag(0), {{"e", 0, "i"}}},
        {"count 0 before an element", true, stat().count(0), {}},
        {"lowest count", true, stat().count(INT32_MIN), {}},
        {"highest count", true, stat().count(INT32_MAX), {single}},
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
    ResultSetToken* result = resultOf(
        server, connection, stats().element("e", -1).element("f").stat("i", "v").element("g", -2).bytes(), getStats);
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
    result = resultOf(server, connection, ids().element("e", -1).bytes(), getStatIds);
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
    ASSERT_EQ(walkStats(resultOf(server, connection, bytes, getStats)), (Entries{{"two", 0, "i", "v"}}));
    *length = 0x80;
    EXPECT_TRUE(walkStats(resultOf(server, connection, bytes, getStats)).empty());
}

}  // namespace
