// Replies of every shape: how they travel, how they are framed, how large they are, and what is left of broken ones.
#include "fixture.h"
#include "walk.h"

#include <functional>
#include <memory>

namespace {

using apitest::allStats;
using apitest::Connection;
using apitest::Entries;
using apitest::Exchange;
using apitest::Fault;
using apitest::ids;
using apitest::idsOf;
using apitest::isPrefix;
using apitest::statsOf;
using apitest::walkIds;
using apitest::walkStats;
using simgateway::Bytes;
using simgateway::Reply;

using Travel = apitest::QuietGatewayTest;
using Framing = apitest::GatewayTest;
using Size = apitest::GatewayTest;
using Malformed = apitest::QuietGatewayTest;

constexpr std::size_t RESULT_SET_SIZE = 32767;
constexpr std::size_t CALL_REPLY_HEAD = 9;

// Two elements with items, a failed one between them and an empty one at the end.
Reply goodStats(std::size_t longText = 300) {
    Reply reply(Reply::Content::statistics);
    reply.element("one").stat("a.b", "1").stat("a.c", "").stat("", "3");
    reply.element("bad", -5);
    reply.element("two", 7).stat("x", std::string(longText, 'v'));
    reply.element("none");
    return reply;
}

const Entries GOOD_STATS = {{"one", 0, "a.b", "1"},
                            {"one", 0, "a.c", ""},
                            {"one", 0, "", "3"},
                            {"bad", -5},
                            {"two", 7, "x", std::string(300, 'v')}};

Reply goodIds(std::size_t longText = 300) {
    Reply reply(Reply::Content::identifiers);
    reply.element("one").id("a.b").id("a.c").id("");
    reply.element("bad", -5);
    reply.element("two", 7).id(std::string(longText, 'i'));
    return reply;
}

const Entries GOOD_IDS = {
    {"one", 0, "a.b"}, {"one", 0, "a.c"}, {"one", 0, ""}, {"bad", -5}, {"two", 7, std::string(300, 'i')}};

TEST_F(Travel, arrivesInPieces) {
    const Connection connection(server);
    const Entries expected = allStats(simgateway::Model());
    for (const std::size_t size : {1U, 2U, 7U, 33U, 34U, 35U, 43U, 1024U}) {
        for (const Exchange exchange : {Exchange::adminInit, Exchange::invoke}) {
            server.inject(exchange, {.writeSize = size});
        }
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStats(connection, &result), 0) << size;
        EXPECT_EQ(walkStats(result), expected) << size;
    }
}

TEST_F(Travel, opensAndClosesInPieces) {
    for (const Exchange exchange : {Exchange::handshake, Exchange::authFirst, Exchange::authSecond, Exchange::adminInit,
                                    Exchange::getAttribute, Exchange::close}) {
        server.inject(exchange, {.writeSize = 1});
    }
    EXPECT_EQ(apitest::openAndClose(server), 0);
}

TEST_F(Travel, takesItsTime) {
    using std::chrono::milliseconds;
    for (const Exchange exchange : {Exchange::handshake, Exchange::authFirst, Exchange::authSecond, Exchange::adminInit,
                                    Exchange::getAttribute, Exchange::close}) {
        server.inject(exchange, {.delay = milliseconds(30)});
    }
    {
        const Connection connection(server);
        server.inject(Exchange::invoke, {.delay = milliseconds(50), .writeSize = 1000, .writePause = milliseconds(10)});
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStats(connection, &result), 0);
        EXPECT_EQ(walkStats(result), allStats(simgateway::Model()));
    }
}

TEST_F(Framing, goodAnswers) {
    const Connection connection(server);
    EXPECT_EQ(walkStats(statsOf(server, connection, goodStats().bytes())), GOOD_STATS);
    EXPECT_EQ(walkIds(idsOf(server, connection, goodIds().bytes())), GOOD_IDS);
}

TEST_F(Framing, doesNotDependOnTagsAndNames) {
    const Connection connection(server);
    const std::function<void(Reply&)> variants[] = {
        [](Reply& reply) { reply.everyBlockTag(0x77); },
        [](Reply& reply) { reply.everyBlockTag(0x7A); },
        [](Reply& reply) { reply.everyBlockTag(0x00); },
        [](Reply& reply) { reply.blockTag(0x7A); },
        [](Reply& reply) { reply.classNames("", "", ""); },
        [](Reply& reply) { reply.classNames(std::string(300, 'e'), std::string(1000, 's'), std::string(65, 'i')); },
    };
    for (std::size_t i = 0; i < std::size(variants); ++i) {
        SCOPED_TRACE(i);
        Reply stats = goodStats();
        variants[i](stats);
        EXPECT_EQ(walkStats(statsOf(server, connection, stats.bytes())), GOOD_STATS);
        Reply ids = goodIds();
        variants[i](ids);
        EXPECT_EQ(walkIds(idsOf(server, connection, ids.bytes())), GOOD_IDS);
    }
    EXPECT_EQ(walkStats(statsOf(server, connection, goodStats().shortEnd().bytes())), GOOD_STATS);
}

// Without the flag there is no count but exactly one element.
TEST_F(Framing, flagSaysWhetherThereIsACount) {
    const Connection connection(server);
    const auto one = [] { return Reply(Reply::Content::statistics).element("e").stat("i", "v"); };
    const Entries single = {{"e", 0, "i", "v"}};
    EXPECT_EQ(walkStats(statsOf(server, connection, one().flag(0).bytes())), single);
    EXPECT_EQ(walkStats(statsOf(server, connection, one().flag(2).bytes())), single);
    EXPECT_EQ(walkStats(statsOf(server, connection, one().flag(1).bytes())), single);
    EXPECT_EQ(walkStats(statsOf(server, connection, one().stat("j", "w").element("f").flag(0).bytes())),
              (Entries{{"e", 0, "i", "v"}, {"e", 0, "j", "w"}}));
    EXPECT_EQ(walkIds(idsOf(server, connection, ids().element("e").id("i").flag(0).bytes())), (Entries{{"e", 0, "i"}}));
}

TEST_F(Framing, countsOutOfTheOrdinary) {
    const Connection connection(server);
    const auto stats = [] { return Reply(Reply::Content::statistics).element("e").stat("i", "v"); };
    const Entries single = {{"e", 0, "i", "v"}};
    const struct {
        const char* what;
        Bytes payload;
        Entries expected;
    } cases[] = {
        {"no element", Reply(Reply::Content::statistics).bytes(), {}},
        {"count 0 before an element", stats().count(0).bytes(), {}},
        {"count negative", stats().count(-1).bytes(), {}},
        {"lowest count", stats().count(INT32_MIN).bytes(), {}},
        {"count one too many", stats().count(2).bytes(), single},
        {"highest count", stats().count(INT32_MAX).bytes(), single},
        {"item count one too many", stats().itemCount(2).bytes(), single},
        {"highest item count", stats().itemCount(INT32_MAX).bytes(), single},
        {"item count negative", stats().itemCount(-1).bytes(), {}},
        {"lowest item count", stats().itemCount(INT32_MIN).bytes(), {}},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(walkStats(statsOf(server, connection, each.payload)), each.expected) << each.what;
    }
}

TEST_F(Size, fitsExactly) {
    const Connection connection(server);
    for (const std::size_t size : {std::size_t{64}, RESULT_SET_SIZE - 1, RESULT_SET_SIZE}) {
        ResultSetToken* result = statsOf(server, connection, simgateway::statsOfContentSize(size).bytes());
        EXPECT_FALSE(walkStats(result).empty()) << size;
        ResultSetToken* copy = nullptr;
        EXPECT_EQ(copyResultSet(result, &copy), 0);
        EXPECT_EQ(walkStats(copy), walkStats(result)) << size;
        EXPECT_EQ(freeResultSet(&copy), 0);
        EXPECT_FALSE(walkIds(idsOf(server, connection, simgateway::idsOfContentSize(size).bytes())).empty()) << size;
    }
}

TEST_F(Size, isOneTooMany) {
    for (const std::size_t size : {RESULT_SET_SIZE + 1, RESULT_SET_SIZE + 4, std::size_t{60000}}) {
        for (const apitest::QueryCall& call : apitest::QUERY_CALLS) {
            SCOPED_TRACE(testing::Message() << call.name << " " << size);
            Connection connection(server);
            const Reply reply =
                call.statistics ? simgateway::statsOfContentSize(size) : simgateway::idsOfContentSize(size);
            server.inject(Exchange::invoke, {.payload = reply.bytes()});
            ResultSetToken* result = nullptr;
            EXPECT_EQ(call.run(connection, &result), STAPI_RC_GATEWAY_REQUEST_FAILED);
            EXPECT_EQ(result, nullptr);
            if (call.staysAfterFailure) {
                EXPECT_EQ(call.run(connection, &result), 0);
            } else {
                *connection.address() = nullptr;
            }
        }
    }
}

// Texts as long as a length can say, in a reply that a result set can hold.
TEST_F(Size, ofOneText) {
    const Connection connection(server);
    for (const std::size_t length : {std::size_t{255}, std::size_t{256}, std::size_t{32700}}) {
        const std::string text(length, 't');
        EXPECT_EQ(walkIds(idsOf(server, connection, ids().element("e").id(text).bytes())), (Entries{{"e", 0, text}}));
        EXPECT_EQ(walkStats(statsOf(server, connection,
                                    Reply(Reply::Content::statistics).element(text).stat("i", "v").bytes())),
                  (Entries{{text, 0, "i", "v"}}));
    }
}

// A reply cut at any byte: the entries are the first so many, and the later the cut the more.
TEST_F(Malformed, cutAtEveryByte) {
    const Connection connection(server);
    const Bytes stats = goodStats().bytes();
    const Bytes ids = goodIds().bytes();
    std::size_t most = 0;
    for (std::size_t size = 0; size <= stats.size(); ++size) {
        server.inject(Exchange::invoke, {.bodySize = CALL_REPLY_HEAD + size});
        server.setPayload(Exchange::invoke, stats);
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStats(connection, &result), 0) << size;
        const Entries found = walkStats(result);
        ASSERT_TRUE(isPrefix(found, GOOD_STATS)) << size << ": " << testing::PrintToString(found);
        ASSERT_GE(found.size(), most) << size;
        most = found.size();
    }
    EXPECT_EQ(most, GOOD_STATS.size());
    most = 0;
    for (std::size_t size = 0; size <= ids.size(); ++size) {
        server.inject(Exchange::invoke, {.bodySize = CALL_REPLY_HEAD + size});
        server.setPayload(Exchange::invoke, ids);
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStatIds(connection, &result), 0) << size;
        const Entries found = walkIds(result);
        ASSERT_TRUE(isPrefix(found, GOOD_IDS)) << size << ": " << testing::PrintToString(found);
        ASSERT_GE(found.size(), most) << size;
        most = found.size();
    }
    EXPECT_EQ(most, GOOD_IDS.size());
}

// Each byte in turn set to the values that hurt most: whatever the entries are, the walk over them ends. Returns how
// many there were.
template <typename Walk>
std::size_t breakEveryByte(simgateway::Server& server, const Bytes& good,
                           int (*query)(GatewayToken*, const char*, ResultSetToken**), Walk walk) {
    auto connection = std::make_unique<Connection>(server);
    std::size_t entries = 0;
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const std::uint8_t value : Bytes{0x00, 0xFF}) {
            Bytes broken = good;
            broken[at] = value;
            server.inject(Exchange::invoke, {.payload = broken});
            ResultSetToken* result = nullptr;
            const int rc = query(*connection, "", &result);
            if (rc == 0) {
                const Entries found = walk(result);
                entries += found.size();
            } else {
                EXPECT_EQ(rc, STAPI_RC_GATEWAY_REQUEST_FAILED) << at;
                closeGatewayConnection(connection->address());
                *connection->address() = nullptr;
                connection = std::make_unique<Connection>(server);
            }
        }
    }
    return entries;
}

TEST_F(Malformed, oneByteOfStatistics) {
    const Bytes good = goodStats(3).bytes();
    EXPECT_GT(breakEveryByte(server, good, getStatsByStatGroupId, walkStats), good.size() * 4)
        << "most of them do no harm";
}

TEST_F(Malformed, oneByteOfIdentifiers) {
    const Bytes good = goodIds(3).bytes();
    EXPECT_GT(breakEveryByte(server, good, getStatIdsByStatGroupId, walkIds), good.size() * 4)
        << "most of them do no harm";
}

// The lengths of text in a reply are signed: 0x8000 and more is the end of what can be used.
TEST_F(Malformed, lengthOutOfRange) {
    const Connection connection(server);
    for (const std::size_t length : {std::size_t{0x8000}, std::size_t{0xFFFF}}) {
        const std::string text(length, 't');
        Reply stats(Reply::Content::statistics);
        stats.element("one").stat("i", "v").element("two").stat("j", text).stat("k", "w");
        EXPECT_EQ(walkStats(statsOf(server, connection, stats.bytes())), (Entries{{"one", 0, "i", "v"}}));
        Reply list = ids();
        list.element("one").id("i").id(text).id("k");
        EXPECT_EQ(walkIds(idsOf(server, connection, list.bytes())), (Entries{{"one", 0, "i"}}));
        Reply element = ids();
        element.element("one").id("i").element(text).id("k");
        EXPECT_EQ(walkIds(idsOf(server, connection, element.bytes())), (Entries{{"one", 0, "i"}}));
    }
}

// The shortest answer of a call: no payload, so no entries.
TEST_F(Framing, nineBytesAreAnEmptyAnswer) {
    setAPITraceLevel(4);  // the empty storage is dumped too
    const Connection connection(server);
    for (const apitest::QueryCall& call : apitest::QUERY_CALLS) {
        server.inject(Exchange::invoke, {.bodySize = CALL_REPLY_HEAD});
        ResultSetToken* result = nullptr;
        ASSERT_EQ(call.run(connection, &result), 0) << call.name;
        EXPECT_TRUE((call.statistics ? walkStats(result) : walkIds(result)).empty()) << call.name;
    }
}

}  // namespace
