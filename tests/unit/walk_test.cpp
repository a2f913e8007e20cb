// Walking over hand-made content: at every alignment, with missing and excess items, and with lengths that lead beyond
// the buffer. The buffer ends right before a page that faults.
#include "stapi_zul_diag.h"
#include "stapi_zul_impl.h"
#include "stapi_zul_resultsetbuffer.h"
#include "zulstats.h"

#include "guarded_block.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace unittest {
namespace {

std::string number(std::int64_t value) {
    const auto word = static_cast<std::uint32_t>(value);
    std::string out(4, '\0');
    std::memcpy(out.data(), &word, 4);
    return out;
}

std::string text(const std::string& chars) {
    return number(static_cast<std::int64_t>(chars.size())) + chars;
}

const std::string TERMINATOR = number(0x0E0F0E0F);

// Entries as a walk finds them, "element/rc/id/value"; a failed element has only the first two.
using Entries = std::vector<std::string>;

// The calls of one kind of content, and its records as entries.
template <typename Record>
struct Calls;

template <>
struct Calls<StatData> {
    static constexpr auto first = getFirstStat;
    static constexpr auto next = getNextStat;
    static constexpr char MARKER[] = "ZULSTSET";
    static std::string item(const std::string& id, const std::string& value) {
        return text(id) + text(value);
    }
    static std::string itemOf(const StatData& data) {
        return std::string(data.statIdPtr, static_cast<std::size_t>(data.statIdLen)) + "/" +
               std::string(data.statValuePtr, static_cast<std::size_t>(data.statValueLen));
    }
};

template <>
struct Calls<IdData> {
    static constexpr auto first = getFirstId;
    static constexpr auto next = getNextId;
    static constexpr char MARKER[] = "ZULIDSET";
    static std::string item(const std::string& id, const std::string&) {
        return text(id);
    }
    static std::string itemOf(const IdData& data) {
        return std::string(data.idPtr, static_cast<std::size_t>(data.idLen)) + "/";
    }
};

// A user-owned result set whose buffer ends `shift` bytes before the page that faults.
struct ResultSet {
    explicit ResultSet(const std::string& content, std::size_t shift = 0) : block(RESULT_SET_BUFFER_SIZE + shift) {
        token.owner = USER_OWNED;
        token.head = block.text();
        token.next = token.head;
        std::memcpy(token.head, content.data(), content.size());
    }
    GuardedBlock block;
    ResultSetToken token{};
};

bool samePosition(const ResultSetToken& left, const ResultSetToken& right) {
    return left.next == right.next && left.queryHeaderCount == right.queryHeaderCount &&
           left.queryIndex == right.queryIndex && left.elementCount == right.elementCount &&
           left.elementResultIndex == right.elementResultIndex && left.queryElementPtr == right.queryElementPtr &&
           left.queryElementLen == right.queryElementLen && left.queryElementRC == right.queryElementRC;
}

// Walks to the end. Checks there that the end stays the end, moves nothing and leaves the record alone.
template <typename Record>
Entries walk(ResultSetToken* rs, bool withFirst) {
    Entries entries;
    Record record{};
    int rc = (withFirst ? Calls<Record>::first : Calls<Record>::next)(rs, &record);
    EXPECT_EQ(std::string(record.eyecatcher, 8), Calls<Record>::MARKER);
    Record untouched;
    std::memset(&untouched, 0x7E, sizeof untouched);
    while (rc == 0 && entries.size() < 20) {
        const std::string element(record.queryElementPtr, static_cast<std::size_t>(record.queryElementLen));
        entries.push_back(element + "/" + std::to_string(record.queryElementRC) +
                          (record.queryElementRC < 0 ? "" : "/" + Calls<Record>::itemOf(record)));
        record = untouched;
        rc = Calls<Record>::next(rs, &record);
    }
    EXPECT_EQ(rc, STAPI_RC_END_OF_RESULT_SET);
    const ResultSetToken before = *rs;
    record = untouched;
    EXPECT_EQ(Calls<Record>::next(rs, &record), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_TRUE(samePosition(*rs, before));
    const std::size_t from = rs->queryIndex == 0 ? sizeof record.eyecatcher : 0;  // a walk that never began
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(&record) + from, reinterpret_cast<char*>(&untouched) + from,
                          sizeof record - from),
              0);
    return entries;
}

template <typename Record>
class Walk : public testing::Test {
protected:
    // Another test of this process may have initialised the trace alone.
    static void SetUpTestSuite() {
        if (isLockInitialized(&traceLock) == LOCK_INITIALIZED) {
            stapiState.store(1);
        }
    }
    static std::string content(std::int64_t count, const std::string& elements) {
        return Calls<Record>::MARKER + number(count) + elements;
    }
    static std::string item(const std::string& id, const std::string& value) {
        return Calls<Record>::item(id, value);
    }
    // An entry as this kind of content can tell it.
    static std::string entry(const std::string& start, const std::string& value) {
        return start + "/" + (std::is_same_v<Record, IdData> ? "" : value);
    }
};

using Records = testing::Types<StatData, IdData>;
TYPED_TEST_SUITE(Walk, Records);

TYPED_TEST(Walk, wellFormedContentAtEveryAlignment) {
    const std::string elements = text("A") + number(0) + number(2) + this->item("id1", "v") + this->item("", "") +
                                 text("bad") + number(-5) +  //
                                 text("") + number(7) + number(1) + this->item("id3", "333");
    const Entries expected = {this->entry("A/0/id1", "v"), "A/0//", "bad/-5", this->entry("/7/id3", "333")};
    for (std::size_t shift = 0; shift < 8; ++shift) {
        for (const bool withFirst : {true, false}) {
            SCOPED_TRACE(testing::Message() << "shift " << shift << ", first call " << withFirst);
            ResultSet set(this->content(3, elements) + TERMINATOR, shift);
            EXPECT_EQ(walk<TypeParam>(&set.token, withFirst), expected);
            EXPECT_EQ(walk<TypeParam>(&set.token, true), expected);  // a First call begins again
        }
    }
}

// What a walk makes of content that the wire cannot have meant.
TYPED_TEST(Walk, oddContent) {
    const std::string one = text("A") + number(0) + number(1) + this->item("a", "1");
    const std::string two = text("C") + number(0) + number(1) + this->item("c", "3");
    const std::string begun = text("B") + number(0) + number(2);
    const auto none = [](std::int64_t items) { return text("B") + number(0) + number(items); };
    const std::string first = this->entry("A/0/a", "1");
    const std::string last = this->entry("C/0/c", "3");
    const struct {
        const char* name;
        std::int64_t count;
        std::string elements;
        Entries entries;
    } cases[] = {
        {"no elements", 0, TERMINATOR, {}},
        {"negative count", -1, TERMINATOR, {}},
        {"one element announced, none there", 1, TERMINATOR, {}},
        {"more elements announced than there", 9, one + TERMINATOR, {first}},
        {"fewer elements announced than there", 1, one + two + TERMINATOR, {first, last}},
        {"no items in the first element", 2, none(0) + two + TERMINATOR, {last}},
        {"no items in the middle", 3, one + none(0) + two + TERMINATOR, {first, last}},
        {"no items in the last element", 2, one + none(0) + TERMINATOR, {first}},
        {"no items at all", 2, none(0) + none(0) + TERMINATOR, {}},
        {"negative item count", 3, one + none(-1) + two + TERMINATOR, {first, last}},
        {"lowest item count", 2, one + none(0x80000000) + TERMINATOR, {first}},
        {"terminator for an item", 2, one + begun + TERMINATOR, {first}},
        {"terminator after an item", 2, begun + this->item("b", "2") + TERMINATOR, {this->entry("B/0/b", "2")}},
        {"element text beyond the buffer", 2, one + number(40000) + TERMINATOR, {first}},
        {"element text of half the memory", 2, one + number(0x7FFFFFFF) + TERMINATOR, {first}},
        {"element text of negative length", 2, one + number(-1) + TERMINATOR, {first}},
        {"identifier beyond the buffer", 2, one + begun + number(40000) + TERMINATOR, {first}},
        {"identifier of negative length", 2, one + begun + number(-4) + TERMINATOR, {first}},
    };
    for (const auto& odd : cases) {
        for (const bool withFirst : {true, false}) {
            SCOPED_TRACE(testing::Message() << odd.name << ", first call " << withFirst);
            ResultSet set(this->content(odd.count, odd.elements));
            EXPECT_EQ(walk<TypeParam>(&set.token, withFirst), odd.entries);
        }
    }
}

// The end of the buffer ends the content wherever it comes; a long first element puts the others there.
TYPED_TEST(Walk, contentWithoutTerminatorEndsWithTheBuffer) {
    const std::string one = text("A") + number(0) + number(1) + this->item("a", "1");
    const std::string two = text("B") + number(0) + number(2) + this->item("b", "2") + this->item("c", "3");
    const std::size_t lastItem = this->item("c", "3").size();
    for (std::size_t missing = 0; missing <= two.size() + 4; ++missing) {
        SCOPED_TRACE(missing);
        const std::size_t room = RESULT_SET_BUFFER_SIZE - 12 - one.size() - two.size() + missing;
        std::string whole = this->content(3, text(std::string(room - 8, 'x')) + number(-1) + one + two);
        whole.resize(RESULT_SET_BUFFER_SIZE);
        ResultSet set(whole);
        EXPECT_EQ(walk<TypeParam>(&set.token, true).size(), 1u + (missing > two.size() ? 0 : 1) +
                                                                (missing == 0          ? 2
                                                                 : missing <= lastItem ? 1
                                                                                       : 0));
    }
}

// The First calls look for the end in place of the count, the Next calls where the first element begins.
TYPED_TEST(Walk, terminatorForACount) {
    ResultSet set(this->content(0x0E0F0E0F, text("A") + number(0) + number(1) + this->item("a", "1") + TERMINATOR));
    TypeParam record{};
    EXPECT_EQ(Calls<TypeParam>::first(&set.token, &record), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_EQ(set.token.queryIndex, 0u);
    EXPECT_EQ(Calls<TypeParam>::next(&set.token, &record), 0);
}

TEST(WalkStats, valueBeyondTheBufferMovesNothing) {
    for (const std::int64_t length : {0x0E0F0E0F, 40000, -1}) {
        ResultSet set("ZULSTSET" + number(1) + text("A") + number(0) + number(1) + text("id") + number(length));
        StatData record{};
        const ResultSetToken before = set.token;
        EXPECT_EQ(getFirstStat(&set.token, &record), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_EQ(getNextStat(&set.token, &record), STAPI_RC_END_OF_RESULT_SET);
        EXPECT_TRUE(samePosition(set.token, before));
        EXPECT_EQ(record.statIdPtr, nullptr);
        EXPECT_EQ(record.queryElementPtr, nullptr);
    }
}

}  // namespace
}  // namespace unittest
