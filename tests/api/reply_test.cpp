// Replies of every shape: how they travel, how they are framed, how large they are, what is left of broken ones, and
// which entries a walk finds in them.
#include "fixture.h"
#include "walk.h"

#include <functional>
#include <memory>

namespace {

using namespace apitest;
using simgateway::Bytes;
using simgateway::Reply;

using Travel = QuietGatewayTest;
using Framing = GatewayTest;
using Size = GatewayTest;
using Malformed = QuietGatewayTest;

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

TEST_F(Travel, inPiecesAndInItsTime) {
    using std::chrono::milliseconds;
    for (const Fault& fault : {Fault{.writeSize = 1}, Fault{.delay = milliseconds(30)}}) {
        for (const Exchange exchange : {Exchange::handshake, Exchange::authFirst, Exchange::authSecond,
                                        Exchange::adminInit, Exchange::getAttribute, Exchange::close}) {
            server.inject(exchange, fault);
        }
        EXPECT_EQ(openAndClose(server), 0);
    }
    const Connection connection(server);
    for (const std::size_t size : {1U, 33U, 34U, 35U, 43U, 1024U}) {
        server.inject(Exchange::adminInit, {.writeSize = size});
        server.inject(Exchange::invoke, {.delay = milliseconds(20), .writeSize = size});
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStats(connection, &result), 0) << size;
        EXPECT_EQ(walkStats(result), allStats(simgateway::Model())) << size;
    }
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
        {"flag 2", true, stat().flag(2), {single}},
        {"flag 0, two", true, stat().stat("j", "w").element("f").flag(0), {single, {"e", 0, "j", "w"}}},
        {"flag 0, identifier", false, ids().element("e").id("i").flag(0), {{"e", 0, "i"}}},
        {"count 0 before an element", true, stat().count(0), {}},
        {"count negative", true, stat().count(-1), {}},
        {"lowest count", true, stat().count(INT32_MIN), {}},
        {"count one too many", true, stat().count(2), {single}},
        {"highest count", true, stat().count(INT32_MAX), {single}},
        {"item count one too many", true, stat().itemCount(2), {single}},
        {"highest item count", true, stat().itemCount(INT32_MAX), {single}},
        {"item count negative", true, stat().itemCount(-1), {}},
        {"lowest item count", true, stat().itemCount(INT32_MIN), {}},
        {"no statistics", true, stats(), {}},
        {"nothing", false, ids(), {}},
        {"empty elements only", false, ids().element("e").element("f").element("g"), {}},
        {"empty ones first", false, ids().element("e").element("f").element("g").id("i"), {{"g", 0, "i"}}},
        {"empty ones last", false, ids().element("e").id("i").element("f").element("g"), {{"e", 0, "i"}}},
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
    result = idsOf(server, connection, ids().element("e", -1).element("f", -2).bytes());
    IdData id{};
    id.idPtr = mine;
    id.idLen = 4;
    ASSERT_EQ(getFirstId(result, &id), 0);
    EXPECT_EQ(entryOf(id), (Entry{"e", -1}));
    ASSERT_EQ(getNextId(result, &id), 0);
    EXPECT_EQ(entryOf(id), (Entry{"f", -2}));
    EXPECT_TRUE(id.idPtr == mine && id.idLen == 4);
}

// One byte more fails the query.
TEST_F(Size, fitsExactly) {
    const Connection connection(server);
    for (const std::size_t size : {std::size_t{64}, std::size_t{32766}, std::size_t{32767}}) {
        ResultSetToken* result = statsOf(server, connection, simgateway::statsOfContentSize(size).bytes());
        const Entries found = walkStats(result);
        EXPECT_FALSE(found.empty()) << size;
        ResultSetToken* copy = nullptr;
        EXPECT_EQ(copyResultSet(result, &copy), 0);
        EXPECT_EQ(walkStats(copy), found) << size;
        EXPECT_EQ(freeResultSet(&copy), 0);
        EXPECT_FALSE(walkIds(idsOf(server, connection, simgateway::idsOfContentSize(size).bytes())).empty()) << size;
    }
}

// Each byte in turn set to the values that hurt most: whatever the entries are, the walk over them ends.
TEST_F(Malformed, oneByteAfterTheOther) {
    for (const bool statistics : {true, false}) {
        const Bytes good = statistics ? ::good(true).reply.bytes() : ::good(false).reply.bytes();
        auto connection = std::make_unique<Connection>(server);
        std::size_t entries = 0;
        for (std::size_t at = 0; at < 2 * good.size(); ++at) {
            Bytes broken = good;
            broken[at / 2] = at % 2 == 0 ? 0x00 : 0xFF;
            server.inject(Exchange::invoke, {.payload = broken});
            ResultSetToken* result = nullptr;
            const int rc = (statistics ? getStatsByStatGroupId : getStatIdsByStatGroupId)(*connection, "", &result);
            if (rc == 0) {
                entries += (statistics ? walkStats(result) : walkIds(result)).size();
            } else {
                EXPECT_EQ(rc, STAPI_RC_GATEWAY_REQUEST_FAILED) << at / 2;
                closeGatewayConnection(connection->address());
                *connection->address() = nullptr;
                connection = std::make_unique<Connection>(server);
            }
        }
        EXPECT_GT(entries, good.size() * 4) << "most of them do no harm";
    }
}

}  // namespace
