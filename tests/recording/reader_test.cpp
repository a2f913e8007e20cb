// Lines of recordings, whole and not; places and times in files; files that are none.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <limits>

#include "recording/time.h"
#include "recording/zst.h"
#include "samples.h"
#include "support/temp_directory.h"

namespace recording {
namespace {

using monitor::Sample;
using support::TempDirectory;

TEST(Lines, readAsTheyWereWritten) {
    Sample ids = makeSample(START, 1);
    ids.query = {monitor::What::idsByGroup, {"a", "b"}};
    ids.hasValues = false;
    Sample counts = makeSample(START, 1);
    counts.query = {monitor::What::groups, {}};
    LineParser parser;
    for (std::size_t number = 0; number < ODD_TEXTS.size(); ++number) {
        const Sample sample = makeSample(START + 0.1, number);
        for (const Layout& layout : {Layout{}, Layout{.ascii = true}, Layout{.indented = true}}) {
            const Entry entry = parser.parse(sampleLine(sample, layout));
            EXPECT_EQ(described(entry.sample), described(sample));
            EXPECT_FALSE(entry.gap);
            EXPECT_TRUE(entry.sample.hasValues);
        }
    }
    EXPECT_EQ(described(parser.parse(sampleLine(ids)).sample), described(ids));
    EXPECT_FALSE(parser.parse(sampleLine(ids)).sample.hasValues);
    for (const std::size_t item : {0u, 1u, 2u}) {
        counts.items[item].value = "7";
    }
    counts.items[3].value = "9223372036854775807";
    EXPECT_EQ(described(parser.parse(sampleLine(counts)).sample), described(counts));

    counts.items[3].value = "9223372036854775807";
    std::string large = sampleLine(counts);
    large.replace(large.find("9223372036854775807"), 19, "9223372036854775808");
    EXPECT_THROW(parser.parse(large), BadLine);

    const Entry gap = parser.parse(sampleLine(gapSample(SECOND, START, 5, -102), {.gap = "why \"so\""}));
    EXPECT_TRUE(gap.gap);
    EXPECT_EQ(gap.reason, "why \"so\"");
    EXPECT_EQ(gap.rc, -102);
    EXPECT_EQ(monitor::targetText(gap.sample.target), "[2001:db8::1]:7532");
    EXPECT_EQ(gap.sample.wallTime, START);
    EXPECT_EQ(gap.sample.monotonicTime, 5);
    EXPECT_TRUE(gap.sample.elements.empty());
    EXPECT_EQ(parser.parse(sampleLine(gapSample(FIRST, 1, 1, -7))).reason, "");
}

// What is wrong with a line, and whether it is the begin of one.
TEST(Lines, areRefusedUnlessTheyAreWholeSamples) {
    const std::string good = sampleLine(makeSample(START, 1));
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string line = good;
        EXPECT_NE(line.find(from), std::string::npos) << from;
        return line.replace(line.find(from), from.size(), to);
    };
    const std::string deep(1000000, '[');
    const struct {
        std::string line;
        std::string reason;  // empty: none
    } cases[] = {
        {changed("\"protocol\"", "\"later\":" + deep.substr(0, 1000) + std::string(1000, ']') + ",\"protocol\""), ""},
        {changed("\"items\":[{", "\"items\":[{\"later\":{\"id\":[null,{}]},"), ""},
        {changed("\"open_seconds\":0.25,", ""), ""},
        {deep, "no text 'schema'"},
        {changed("\"protocol\"", "\"later\":" + deep + ",\"protocol\""), "no JSON from byte"},
        {"null", "no text 'schema'"},
        {"{}", "no text 'schema'"},
        {good.substr(0, good.size() - 1) + good, "no JSON from byte"},
        {changed("zulstat/1", "zulstat/2"), "its schema is not zulstat/1"},
        {changed("\"host\":\"gw1\",", ""), "no text 'host'"},
        {changed("\"port\":7531", "\"port\":65536"), "the number 'port' is none of a port"},
        {changed("\"port\":7531", "\"port\":-1"), "the number 'port' is none of a port"},
        {changed("\"gw1\"", "\"" + std::string(1025, 'h') + '"'), "the text 'host' is longer than 1024 bytes"},
        {changed("\"what\":\"stats\"", "\"what\":\"stat\""), "no query is 'stat'"},
        {changed("\"ids\":[]", "\"ids\":[1]"), "no text in 'ids'"},
        {changed("\"ids\":[]", "\"ids\":{}"), "no array 'ids'"},
        {changed("\"wall\":", "\"walk\":"), "no number 'wall'"},
        {changed("\"wall\":", "\"wall\":-"), "the number 'wall' is no time"},
        {changed("\"wall\":", "\"wall\":1e300,\"w\":"), "the number 'wall' is no time"},
        {changed("\"monotonic\":", "\"monotonic\":1e300,\"w\":"), "the number 'monotonic' is no time"},
        {changed("\"wall\":", "\"wall\":1,\"wall\":"), "two fields 'wall'"},
        {changed("false", "0"), "no truth value 'fresh_connection'"},
        {changed("\"size\":", "\"size\":-"), "the number 'size' is negative"},
        {changed("\"elements\":[", "\"elements\":[[],"), "no object in 'elements'"},
        {changed("\"items\":[", "\"items\":[null,"), "no object in 'items'"},
        {changed("\"rc\":-7", "\"rc\":-2147483648"), ""},
        {changed("\"rc\":-7", "\"rc\":-2147483649"), "the number 'rc' has more than 32 bits"},
        {changed("\"id\":", "\"name\":"), "no text 'id'"},
        {changed("\"value\":", "\"other\":"), "no text 'value'"},
        {changed("\"element\":\"nosuch\"", "\"element\":1"), "no text 'element'"},
    };
    for (const auto& c : cases) {
        std::string reason;
        try {
            LineParser().parse(c.line);
        } catch (const BadLine& error) {
            reason = error.what();
            EXPECT_FALSE(error.cut && c.line.ends_with('\n')) << reason;
        }
        EXPECT_EQ(reason.substr(0, c.reason.size()), c.reason);
        EXPECT_EQ(reason.empty(), c.reason.empty()) << reason;
    }
    for (std::size_t size = 0; size + 1 < good.size(); ++size) {
        try {
            LineParser().parse(good.substr(0, size));
            ADD_FAILURE() << size;
        } catch (const BadLine& error) {
            EXPECT_TRUE(error.cut) << size << error.what();
        }
    }
}

class Files : public testing::Test {
protected:
    const TempDirectory directory;
    const std::string file = directory.file("recording");
};

TEST_F(Files, passOverWhatIsNoSample) {
    const std::string one = sampleLine(makeSample(START, 1));
    const std::string two = sampleLine(makeSample(START + 1, 2));
    const std::string gap = sampleLine(gapSample(FIRST, START + 2, 5, -102), {.gap = "why"});
    setContent(file, one.substr(0, 50) + "\n\n" + one + std::string(5000, '\0') + "\n" + gap + " \r\nx\n" + two +
                         two.substr(0, two.size() - 1));
    const Content content = readAll(file);
    EXPECT_EQ(content.samples, (std::vector{one, two, two}));
    EXPECT_EQ(content.gaps, std::vector<std::string>{"why"});
    EXPECT_EQ(content.counts.torn, 3U);
    EXPECT_EQ(Reader(file).span().torn, 3U);
    EXPECT_EQ(content.complaint, file + ":4: no JSON from byte 1 on");

    setContent(file, one + two.substr(0, two.size() - 2));
    EXPECT_EQ(readAll(file).complaint, "");
    EXPECT_EQ(readAll(file).counts.torn, 1U);
    setContent(file, "");
    EXPECT_EQ(readAll(file).counts.torn, 0U);
}

TEST_F(Files, thatAreNoneAreRefused) {
    for (const std::string& name : {directory.file("none"), std::string("/"), std::string("/dev/zero")}) {
        EXPECT_THROW(readAll(name), std::runtime_error) << name;
    }
    std::string hosts;
    for (std::size_t index = 0; index <= MOST_TARGETS; ++index) {
        hosts += sampleLine(makeSample(START, 1, {"gw" + std::to_string(index), 1}));
    }
    setContent(file, hosts);
    EXPECT_THROW(readAll(file), std::runtime_error);
    EXPECT_THROW(Reader(file).span(), std::runtime_error);
}

TEST_F(Files, passOverLinesThatAreTooLong) {
    const std::string one = sampleLine(makeSample(START, 1));
    const std::string two = sampleLine(makeSample(START + 1, 2));
    const std::string three = sampleLine(makeSample(START + 2, 3));
    const std::string tooLong(LONGEST_LINE + 500000, '[');
    for (const std::string& end : {std::string("\n"), std::string()}) {
        setContent(file, one + tooLong + (end.empty() ? "" : "\n" + two) + (end.empty() ? "" : tooLong + "\n" + three));
        const Content content = readAll(file);
        EXPECT_EQ(content.samples, end.empty() ? std::vector{one} : (std::vector{one, two, three}));
        EXPECT_EQ(content.counts.torn, end.empty() ? 1U : 2U);
        EXPECT_EQ(content.complaint, "");
        Reader reader(file);
        EXPECT_EQ(reader.span().torn, content.counts.torn);
        reader.seek(START + 1);
        EXPECT_EQ(reader.next()->sample.contentSize, end.empty() ? 1001U : 1002U);
    }
}

// A frame that says of a byte that it comes again and again.
TEST_F(Files, thatGrowWithoutMeasureAreNotKept) {
    if (!CAN_COMPRESS) {
        GTEST_SKIP() << "built without libzstd";
    }
    std::string bytes = std::string(ZST_MAGIC) + std::string("\x00\x58", 2);
    for (int block = 0; block < 5000; ++block) {
        bytes += std::string("\x02\x00\x10[", 4);  // 128 KiB
    }
    setContent(file, bytes);
    EXPECT_EQ(readAll(file).counts.torn, 1U);
    const Reader unread(file);
    EXPECT_EQ(unread.damage(), "");
    Reader reader(file);
    EXPECT_TRUE(reader.span().targets.empty());
    // One that asks for more storage than there is for it.
    setContent(file, std::string(ZST_MAGIC) + std::string("\x00\xA8\x01\x00\x00", 5));
    Reader large(file);
    EXPECT_EQ(large.span().torn, 1U);
    EXPECT_NE(large.damage().find("memory"), std::string::npos) << large.damage();
}

TEST_F(Files, areSoughtByTime) {
    std::string lines;
    const auto add = [&](double time, std::size_t number, const monitor::Target& target = FIRST) {
        lines += sampleLine(makeSample(START + time, number, target, 600));  // more than one mark
    };
    for (std::size_t number = 0; number < 200; ++number) {
        add(static_cast<double>(number), number);
    }
    lines += sampleLine(gapSample(FIRST, START + 200, 5, -102));
    add(150.25, 300);  // the clock was set back
    add(150.5, 301, SECOND);
    add(202, 302);
    setContent(file, lines);
    const std::string plain = file;
    Reader reader(plain);
    const auto numberAt = [&](double time) {
        reader.seek(START + time);
        return reader.next()->sample.contentSize - 1000;
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(numberAt(120.9), 120U);
        EXPECT_EQ(numberAt(0), 0U);
        EXPECT_EQ(numberAt(-1), 0U);
        EXPECT_EQ(reader.next()->sample.contentSize, 1001U);
        EXPECT_EQ(numberAt(199.5), 199U);
        EXPECT_TRUE(reader.next()->gap);
        EXPECT_EQ(numberAt(201), 199U);
        EXPECT_EQ(numberAt(std::numeric_limits<double>::infinity()), 302U);
        EXPECT_FALSE(reader.next());
        EXPECT_EQ(numberAt(77), 77U);
    }
    const std::vector<Sample> moment = reader.moment(START + 201);
    ASSERT_EQ(moment.size(), 2U);
    EXPECT_EQ(moment[0].contentSize, 1199U);
    EXPECT_EQ(moment[1].contentSize, 1301U);
    EXPECT_EQ(reader.moment(START + 199.5).size(), 2U);
    EXPECT_EQ(reader.moment(START + 150.3).at(0).contentSize, 1300U);
    EXPECT_EQ(reader.disorder(), 49.75);
    EXPECT_TRUE(reader.moment(START - 1).empty());
    EXPECT_TRUE(reader.lastEntries(START + 199.5).at(0).sample.contentSize == 1199);
    EXPECT_TRUE(reader.lastEntries(START + 201).at(0).gap);
    const Span span = reader.span();
    EXPECT_EQ(span.first, START);
    EXPECT_EQ(span.last, START + 202);
    EXPECT_EQ(span.targets.size(), 2U);
    EXPECT_EQ(span.torn, 0U);

    // A line that looks whole and is none, before the moment that is looked for.
    const std::size_t place = lines.find("group.item7", lines.find("\"wall\":1795231969"));
    lines[place] = '\x01';
    setContent(file, lines);
    Reader damaged(file);
    damaged.seek(START + 49.5);
    EXPECT_EQ(damaged.next()->sample.contentSize, 1048U);
    EXPECT_EQ(Reader(file).moment(START + 49.5).at(0).contentSize, 1048U);
    setContent(file, "x\n");
    EXPECT_TRUE(Reader(file).span().targets.empty());
    EXPECT_TRUE(Reader(file).moment(1e10).empty());
}

TEST(Times, areReadAsPeopleWriteThem) {
    setenv("TZ", "CET-1", 1);
    tzset();
    const double end = START + 3600 * 10.5;  // 15:02 of the 21st
    const struct {
        std::string_view word;
        double time;  // 0: refused
    } cases[] = {
        {"2026-11-21T03:32:00Z", START},
        {"2026-11-21T03:32:00.250Z", START + 0.25},
        {"2026-11-21 03:32Z", START},
        {"2026-11-21 04:32:00", START},
        {"2026-11-21T04:32", START},
        {"04:32", START},
        {"04:32:10.5", START + 10.5},
        {"23:59", START + 70020},
        {"@1795231920", START},
        {"@1795231920.5", START + 0.5},
        {"-10m", end - 600},
        {"-1.5h", end - 5400},
        {"-90s", end - 90},
        {"-2d", end - 172800},
        {"", 0},
        {"now", 0},
        {"-10", 0},
        {"10m", 0},
        {"--1m", 0},
        {"-1e3s", 0},
        {"24:00", 0},
        {"4:32", 0},
        {"04:60", 0},
        {"04:32:61", 0},
        {"04:32:1", 0},
        {"04:32:", 0},
        {"04:32:00.", START},
        {"2026-11-21", 0},
        {"2026-02-30 00:00", 0},
        {"2026-13-01 00:00", 0},
        {"2026-11-21T03:32:00+01:00", 0},
        {"@", 0},
        {"@-5", 0},
        {"@1e9", 0},
        {"@99999999999999", 0},
    };
    for (const auto& c : cases) {
        try {
            const double time = resolveTime(parseTime(c.word), end);
            EXPECT_EQ(time, c.time) << c.word;
        } catch (const BadTime& error) {
            EXPECT_EQ(c.time, 0) << error.what();
        }
    }
    unsetenv("TZ");
    tzset();
}

}  // namespace
}  // namespace recording
