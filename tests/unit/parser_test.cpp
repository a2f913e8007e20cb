// Reply data to result set content. The samples are put together piece by piece, each piece with the content that it
// yields, so that for every byte at which a sample may end it is known what has to be left of it. Reply data and
// content lie right before pages that fault.
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statcomms.h"

#include "guarded_block.h"
#include "scripted_peer.h"
#include "trace_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace unittest {
namespace {

using Parser = int (*)(const unsigned char*, char*, std::size_t, std::size_t);

const std::vector<int> NO_LINE = {};
const std::vector<int> CUT_SHORT = {2231};
const std::vector<int> TOO_LARGE = {2232};

// A word of the content, in the machine's byte order.
std::string nativeWord(std::int32_t value) {
    std::string out(4, '\0');
    std::memcpy(out.data(), &value, 4);
    return out;
}

const std::string TERMINATOR = nativeWord(0x0E0F0E0F);

struct Sample {
    bool stats;
    Bytes payload{};
    std::string content;  // without terminator

    // What is left of a payload of so many bytes at least.
    struct Complete {
        std::size_t payloadSize;
        std::size_t contentSize;
    };
    std::vector<Complete> complete{};
    std::vector<std::size_t> lengthFields{};

    Sample(bool ofStats, std::int32_t count, std::string_view flagAndCount)
        : stats(ofStats), content((stats ? "ZULSTSET" : "ZULIDSET") + nativeWord(count)) {
        wire(flagAndCount).entry();
    }
    Sample& wire(std::string_view bytes) {
        payload = payload + hex(bytes);
        return *this;
    }
    // A 2-byte length and as many bytes that are skipped.
    Sample& skippedText(const std::string& text) {
        lengthFields.push_back(payload.size());
        payload = payload + slice(word(static_cast<std::uint32_t>(text.size())), 2) + Bytes(text.begin(), text.end());
        return *this;
    }
    Sample& text(const std::string& text) {
        content += nativeWord(static_cast<std::int32_t>(text.size())) + text;
        return skippedText(text);
    }
    Sample& number(std::int32_t value) {
        payload = payload + word(static_cast<std::uint32_t>(value));
        content += nativeWord(value);
        return *this;
    }
    // Everything so far makes up complete entries.
    Sample& entry() {
        complete.push_back({payload.size(), content.size()});
        return *this;
    }
    // The class description before an element's text, with the short block tag (1-byte length) or another one (4-byte).
    Sample& element(std::string_view blockTagAndLength, const std::string& name, std::int32_t rc) {
        return wire("AC ED 00 05 73 72")                     // object stream, object, class
            .skippedText("com.qal.zul.stats.Element")        // length A
            .wire("01 02 03 04 05 06 07 08 0C 00 00 78 72")  // serial version, flags, no fields, superclass
            .skippedText("com.qal.zul.stats.Reply")          // length B
            .wire("11 12 13 14 15 16 17 18 0C 00 00 78 70")  // the same of the superclass, no further one
            .wire(blockTagAndLength)
            .text(name)
            .number(rc);
    }
    // What stands between a statistics element's item count and its items.
    Sample& itemsHead() {
        return stats ? wire("73 72").skippedText("com.qal.zul.stats.Stat").wire("21 22 23 24 25 26 27 28") : *this;
    }
    Sample& item(const std::string& id, const std::string& value) {
        return stats ? wire("0C 00 00 78 70 77 09").text(id).text(value).entry().wire("78 73") : text(id).entry();
    }
    // What ends the block of an element without statistics.
    Sample& end() {
        return stats ? *this : wire("78");
    }

    // Size of the content that a payload cut to this size leaves.
    std::size_t contentSizeFor(std::size_t payloadSize) const {
        std::size_t result = 12;
        for (const Complete& one : complete) {
            result = one.payloadSize <= payloadSize ? one.contentSize : result;
        }
        return result;
    }
};

// Four elements: no items, a failure, two items, an item with an empty value (the identifiers: no items).
Sample sampleOf(bool stats) {
    Sample sample(stats, 4, "01 00000004");
    sample.element("77 0C", "EMPTY", 0).number(0).entry().itemsHead().end();
    sample.element("7A 00 00 00 09", "nobody", INT_MIN).entry().wire("78");
    sample.element("77 0D", "CLIENT", 0).number(2).itemsHead().item("ACTIVE", "17").item("PEAK", "2048").end();
    if (stats) {
        sample.element("77 0D", "", INT_MAX).number(1).itemsHead().item("x", "");
    } else {
        sample.element("77 0C", "EMPTY", 3).number(0).entry().wire("78");
    }
    return sample;
}

// Expects a code, content of the given size (then a terminator) and lines.
void expectParsed(const Sample& sample, const Bytes& payload, std::size_t capacity, int rc, const std::string& content,
                  const std::vector<int>& numbers) {
    GuardedBlock in(payload);
    GuardedBlock out(capacity);
    std::memset(out.data(), 0x55, capacity);
    TraceCapture trace(1);
    const Parser parse = sample.stats ? parseStatsData : parseIdsData;
    EXPECT_EQ(parse(in.data(), out.text(), payload.size(), capacity), rc);
    ASSERT_LE(content.size() + 4, capacity);
    EXPECT_EQ(std::string(out.text(), content.size() + 4), content + TERMINATOR);
    EXPECT_EQ(trace.takeNumbers(), numbers);
}

class ParserSample : public testing::TestWithParam<bool> {
protected:
    const Sample sample = sampleOf(GetParam());
};

TEST_P(ParserSample, cutAtEachByteKeepsTheCompleteEntries) {
    for (std::size_t size = 0; size <= sample.payload.size(); ++size) {
        SCOPED_TRACE(size);
        std::string expected = sample.content.substr(0, sample.contentSizeFor(size));
        if (size < 5) {
            expected.replace(8, 4, nativeWord(0));  // the count itself is missing
        }
        expectParsed(sample, slice(sample.payload, 0, size), 1024, 0, expected,
                     size < sample.complete.back().payloadSize ? CUT_SHORT : NO_LINE);
    }
}

TEST_P(ParserSample, eachCapacityKeepsTheCompleteEntries) {
    for (std::size_t capacity = 4; capacity <= sample.content.size() + 4; ++capacity) {
        SCOPED_TRACE(capacity);
        std::size_t fitting = capacity < 16 ? 0 : 12;
        for (const Sample::Complete& one : sample.complete) {
            fitting = one.contentSize + 4 <= capacity ? one.contentSize : fitting;
        }
        const bool whole = fitting == sample.content.size();
        expectParsed(sample, sample.payload, capacity, whole ? 0 : -5, sample.content.substr(0, fitting),
                     whole ? NO_LINE : TOO_LARGE);
    }
}

TEST_P(ParserSample, impossibleLengthEndsTheContentBeforeIt) {
    for (const std::size_t field : sample.lengthFields) {
        for (const char* length : {"80 00", "FF FF", "7F FF"}) {
            SCOPED_TRACE(testing::Message() << "length field at " << field << ": " << length);
            expectParsed(sample, slice(sample.payload, 0, field) + hex(length) + slice(sample.payload, field + 2), 1024,
                         0, sample.content.substr(0, sample.contentSizeFor(field)), CUT_SHORT);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(IdsAndStats, ParserSample, testing::Bool());

// Taken for -1, the length (A or B) would lead back by a byte and the element be found after all.
TEST(Parser, negativeLengthDoesNotLeadBack) {
    const std::string twelve = "00 00 00 00 00 00 00 00 00 00 00 00";
    for (const std::string& distances : {"FF FF" + twelve + "00 00 00", "00 00 00" + twelve + "FF FF"}) {
        expectParsed(Sample(false, 1, ""),
                     hex("00 AC ED 00 05 73 72" + distances + twelve + "77 01 0001 'E' 00000000 00000001 0002 'id' 78"),
                     128, 0, "ZULIDSET" + nativeWord(1), CUT_SHORT);
    }
}

}  // namespace
}  // namespace unittest
