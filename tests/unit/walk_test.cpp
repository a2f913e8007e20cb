// Walking over hand-made content: at every alignment, with missing and excess items, and with lengths that lead beyond
// the buffer. The buffer ends right before a page that faults.
#include "support/walk.h"

#include "stapi_zul_resultsetbuffer.h"

#include "support/guarded_block.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace support;

std::string number(std::int64_t value) {
    const auto word = static_cast<std::uint32_t>(value);
    return {reinterpret_cast<const char*>(&word), sizeof word};
}

std::string text(const std::string& chars) {
    return number(static_cast<std::int64_t>(chars.size())) + chars;
}

const std::string TERMINATOR = number(RESULT_SET_TERMINATOR);

// A user-owned result set whose buffer ends `shift` bytes before the page that faults.
struct ResultSet {
    explicit ResultSet(const std::string& bytes, std::size_t shift = 0) : block(RESULT_SET_BUFFER_SIZE + shift) {
        token.owner = USER_OWNED;
        token.head = token.next = block.text();
        std::memcpy(token.head, bytes.data(), bytes.size());
    }
    GuardedBlock block;
    ResultSetToken token{};
};

// With statistics, or with identifiers.
struct Kind {
    const bool statistics;
    std::string content(std::int64_t count, const std::string& elements) const {
        return (statistics ? "ZULSTSET" : "ZULIDSET") + number(count) + elements;
    }
    std::string item(const std::string& id, const std::string& value) const {
        return text(id) + (statistics ? text(value) : "");
    }
    int call(ResultSetToken* rs, bool first) const {
        StatData stat{};
        IdData id{};
        return statistics ? (first ? getFirstStat : getNextStat)(rs, &stat) : (first ? getFirstId : getNextId)(rs, &id);
    }
    // Whether a walk finds them, as this kind of content can tell them.
    void expect(ResultSetToken* rs, const Entries& entries) const {
        EXPECT_EQ(walk(rs, statistics), statistics ? entries : idsOnly(entries));
    }
};

constexpr Kind KINDS[] = {{true}, {false}};

TEST(Walk, wellFormedContentAtEveryAlignment) {
    const Entries entries = {{"A", 0, "id1", "v"}, {"A", 0}, {"bad", -5}, {"", 7, "id3", "333"}};
    for (const Kind& kind : KINDS) {
        const std::string elements = text("A") + number(0) + number(2) + kind.item("id1", "v") + kind.item("", "") +
                                     text("bad") + number(-5) + text("") + number(7) + number(1) +
                                     kind.item("id3", "333");
        for (std::size_t shift = 0; shift < 8; ++shift) {
            ResultSet set(kind.content(3, elements) + TERMINATOR, shift);
            kind.expect(&set.token, entries);
        }
    }
}

// What a walk makes of content that the wire cannot have meant.
void expectOfOddContent(const Kind& kind) {
    const std::string one = text("A") + number(0) + number(1) + kind.item("a", "1");
    const std::string two = text("C") + number(0) + number(1) + kind.item("c", "3");
    const std::string begun = text("B") + number(0) + number(2);
    const auto none = [](std::int64_t items) { return text("B") + number(0) + number(items); };
    const Entry first = {"A", 0, "a", "1"};
    const Entry last = {"C", 0, "c", "3"};
    const struct {
        const char* name;
        std::int64_t count;
        std::string elements;  // before the terminator
        Entries entries;
    } cases[] = {
        {"no elements", 0, "", {}},
        {"negative count", -1, "", {}},
        {"one element announced, none there", 1, "", {}},
        {"more elements announced than there", 9, one, {first}},
        {"fewer elements announced than there", 1, one + two, {first, last}},
        {"no items in the first element", 2, none(0) + two, {last}},
        {"no items in the middle", 3, one + none(0) + two, {first, last}},
        {"no items in the last element", 2, one + none(0), {first}},
        {"no items at all", 2, none(0) + none(0), {}},
        {"item count that reads as the terminator",
         2,
         one + text("B") + number(0) + number(RESULT_SET_TERMINATOR) + kind.item("b", "2"),
         {first, {"B", 0, "b", "2"}}},
        {"negative item count", 3, one + none(-1) + two, {first, last}},
        {"lowest item count", 2, one + none(0x80000000), {first}},
        {"terminator for an item", 2, one + begun, {first}},
        {"terminator after an item", 2, begun + kind.item("b", "2"), {{"B", 0, "b", "2"}}},
        {"element text beyond the buffer", 2, one + number(40000), {first}},
        {"element text of half the memory", 2, one + number(0x7FFFFFFF), {first}},
        {"element text of negative length", 2, one + number(-1), {first}},
        {"identifier beyond the buffer", 2, one + begun + number(40000), {first}},
        {"identifier of negative length", 2, one + begun + number(-4), {first}},
    };
    for (const auto& odd : cases) {
        SCOPED_TRACE(odd.name);
        ResultSet set(kind.content(odd.count, odd.elements + TERMINATOR));
        kind.expect(&set.token, odd.entries);
    }
}

TEST(Walk, oddContent) {
    expectOfOddContent(KINDS[0]);
    expectOfOddContent(KINDS[1]);
}

// The end of the buffer ends the content wherever it comes; a long first element puts the others there.
TEST(Walk, contentWithoutTerminatorEndsWithTheBuffer) {
    for (const Kind& kind : KINDS) {
        const std::string two = text("B") + number(0) + number(2) + kind.item("b", "2") + kind.item("c", "3");
        const std::size_t lastItem = kind.item("c", "3").size();
        for (std::size_t missing = 0; missing <= two.size() + 4; ++missing) {
            const std::size_t room = RESULT_SET_BUFFER_SIZE - 12 - two.size() + missing;
            std::string whole = kind.content(2, text(std::string(room - 8, 'x')) + number(-1) + two);
            whole.resize(RESULT_SET_BUFFER_SIZE);
            ResultSet set(whole);
            const std::size_t left = missing == 0 ? 3 : missing <= lastItem ? 2 : missing <= two.size() ? 1 : 0;
            EXPECT_EQ(walk(&set.token, kind.statistics).size(), left) << missing;
        }
    }
}

// The First calls look for the end in place of the count, the Next calls where the first element begins. The end moves
// nothing.
TEST(Walk, terminatorForACountAndTheEnd) {
    TraceCapture trace(3);
    for (const Kind& kind : KINDS) {
        const std::string one = text("A") + number(0) + number(1) + kind.item("a", "1");
        const std::string begun = text("B") + number(0);
        ResultSet counted(kind.content(RESULT_SET_TERMINATOR, one + TERMINATOR));
        EXPECT_EQ(kind.call(&counted.token, true), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_THAT(trace.take().back(), testing::EndsWith("last=1 rc=-113"));
        EXPECT_EQ(counted.token.queryIndex, 0u);
        EXPECT_EQ(kind.call(&counted.token, false), 0);
        for (const std::string& end :
             {begun + number(0) + TERMINATOR, begun + number(1) + number(40000), number(40000)}) {
            ResultSet set(kind.content(2, one + end));
            EXPECT_EQ(kind.call(&set.token, true), 0);
            const ResultSetToken before = set.token;
            EXPECT_EQ(kind.call(&set.token, false), STAPI_RC_END_OF_RESULT_SET);
            EXPECT_EQ(std::memcmp(&set.token, &before, sizeof before), 0);
        }
    }
}

TEST(WalkStats, valueBeyondTheBufferMovesNothing) {
    for (const std::int64_t length : {0x0E0F0E0F, 40000, -1}) {
        ResultSet set("ZULSTSET" + number(1) + text("A") + number(0) + number(1) + text("id") + number(length));
        StatData record{};
        const ResultSetToken before = set.token;
        EXPECT_EQ(getFirstStat(&set.token, &record), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(getNextStat(&set.token, &record), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(std::memcmp(&set.token, &before, sizeof before), 0);
        EXPECT_TRUE(record.statIdPtr == nullptr && record.queryElementPtr == nullptr);
    }
}

}  // namespace
