// Walking over hand-made content: at every alignment, with missing and excess items, and with lengths that lead beyond
// the buffer. The buffer ends right before a page that faults.
#include "support/walk.h"

#include "stapi_zul_resultsetbuffer.h"

#include "support/guarded_block.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
    explicit ResultSet(const std::string& content, std::size_t shift = 0) : block(RESULT_SET_BUFFER_SIZE + shift) {
        token.owner = USER_OWNED;
        token.head = token.next = block.text();
        std::memcpy(token.head, content.data(), content.size());
    }
    GuardedBlock block;
    ResultSetToken token{};
};

// With statistics, or with identifiers.
class Walk : public testing::TestWithParam<bool> {
protected:
    std::string content(std::int64_t count, const std::string& elements) const {
        return (statistics ? "ZULSTSET" : "ZULIDSET") + number(count) + elements;
    }
    std::string item(const std::string& id, const std::string& value) const {
        return text(id) + (statistics ? text(value) : "");
    }
    Entries walk(ResultSetToken* rs) const {
        return statistics ? walkStats(rs) : walkIds(rs);
    }
    int call(ResultSetToken* rs, bool first) const {
        StatData stat{};
        IdData id{};
        return statistics ? (first ? getFirstStat : getNextStat)(rs, &stat) : (first ? getFirstId : getNextId)(rs, &id);
    }
    // As this kind of content can tell them.
    Entries expected(const Entries& entries) const {
        return statistics ? entries : idsOnly(entries);
    }
    const bool statistics = GetParam();
};

INSTANTIATE_TEST_SUITE_P(IdsAndStats, Walk, testing::Bool());

TEST_P(Walk, wellFormedContentAtEveryAlignment) {
    const std::string elements = text("A") + number(0) + number(2) + item("id1", "v") + item("", "") +  //
                                 text("bad") + number(-5) +                                             //
                                 text("") + number(7) + number(1) + item("id3", "333");
    const Entries entries = {{"A", 0, "id1", "v"}, {"A", 0}, {"bad", -5}, {"", 7, "id3", "333"}};
    for (std::size_t shift = 0; shift < 8; ++shift) {
        ResultSet set(content(3, elements) + TERMINATOR, shift);
        EXPECT_EQ(walk(&set.token), expected(entries)) << shift;
    }
}

// What a walk makes of content that the wire cannot have meant.
TEST_P(Walk, oddContent) {
    const std::string one = text("A") + number(0) + number(1) + item("a", "1");
    const std::string two = text("C") + number(0) + number(1) + item("c", "3");
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
         one + text("B") + number(0) + number(RESULT_SET_TERMINATOR) + item("b", "2"),
         {first, {"B", 0, "b", "2"}}},
        {"negative item count", 3, one + none(-1) + two, {first, last}},
        {"lowest item count", 2, one + none(0x80000000), {first}},
        {"terminator for an item", 2, one + begun, {first}},
        {"terminator after an item", 2, begun + item("b", "2"), {{"B", 0, "b", "2"}}},
        {"element text beyond the buffer", 2, one + number(40000), {first}},
        {"element text of half the memory", 2, one + number(0x7FFFFFFF), {first}},
        {"element text of negative length", 2, one + number(-1), {first}},
        {"identifier beyond the buffer", 2, one + begun + number(40000), {first}},
        {"identifier of negative length", 2, one + begun + number(-4), {first}},
    };
    for (const auto& odd : cases) {
        ResultSet set(content(odd.count, odd.elements + TERMINATOR));
        EXPECT_EQ(walk(&set.token), expected(odd.entries)) << odd.name;
    }
}

// The end of the buffer ends the content wherever it comes; a long first element puts the others there.
TEST_P(Walk, contentWithoutTerminatorEndsWithTheBuffer) {
    const std::string two = text("B") + number(0) + number(2) + item("b", "2") + item("c", "3");
    const std::size_t lastItem = item("c", "3").size();
    for (std::size_t missing = 0; missing <= two.size() + 4; ++missing) {
        const std::size_t room = RESULT_SET_BUFFER_SIZE - 12 - two.size() + missing;
        std::string whole = content(2, text(std::string(room - 8, 'x')) + number(-1) + two);
        whole.resize(RESULT_SET_BUFFER_SIZE);
        ResultSet set(whole);
        const std::size_t left = missing == 0 ? 3 : missing <= lastItem ? 2 : missing <= two.size() ? 1 : 0;
        EXPECT_EQ(walk(&set.token).size(), left) << missing;
    }
}

// The First calls look for the end in place of the count, the Next calls where the first element begins.
TEST_P(Walk, terminatorForACount) {
    ResultSet set(content(RESULT_SET_TERMINATOR, text("A") + number(0) + number(1) + item("a", "1") + TERMINATOR));
    TraceCapture trace(3);
    EXPECT_EQ(call(&set.token, true), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_THAT(trace.take().back(), testing::EndsWith("last=1 rc=-113"));
    EXPECT_EQ(set.token.queryIndex, 0u);
    EXPECT_EQ(call(&set.token, false), 0);
}

TEST_P(Walk, endMovesNothing) {
    const std::string one = text("A") + number(0) + number(1) + item("a", "1");
    const std::string begun = text("B") + number(0);
    for (const std::string& end : {begun + number(0) + TERMINATOR, begun + number(1) + number(40000), number(40000)}) {
        ResultSet set(content(2, one + end));
        EXPECT_EQ(call(&set.token, true), 0);
        const ResultSetToken before = set.token;
        EXPECT_EQ(call(&set.token, false), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(std::memcmp(&set.token, &before, sizeof before), 0);
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
