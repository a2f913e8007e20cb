// Timelines against what a look at all samples at once finds, and the axes of plots.
#include "timeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "axis.h"
#include "samples.h"

namespace zulstat {
namespace {

using monitor::Sample;

const Timeline& lineOf(const std::vector<Timelines::Row>& rows, const std::string& id, std::size_t gateway = 0) {
    for (const Timelines::Row& row : rows) {
        if (row.first().id == id) {
            return *row.ofGateways.at(gateway);
        }
    }
    throw std::runtime_error("no " + id);
}

// The parts of a line that no gap divides: the columns' lasts, with a bar where it ends.
std::string drawn(const Timeline& line, const Timelines& lines, bool rates) {
    std::string text;
    for (const Column& column : columnsOf(line, lines.width(), rates, lines.from(), lines.to(), 1000)) {
        if (!column.numbers.empty()) {
            text += (column.numbers.broken ? "| " : "") + std::to_string(std::lround(column.numbers.last)) + " ";
        }
    }
    return text;
}

TEST(Timelines, LoseNoPeakHoweverLongTheyAre) {
    std::mt19937 random(16);
    for (const std::size_t most : {2U, 7U, 64U, 1024U}) {
        Timelines lines({}, nullptr, most);
        std::map<double, double> values;  // by wall time
        std::map<double, double> rates;
        double time = 0;
        double counter = 0;
        double former = 0;
        for (int index = 0; index < 4000; ++index) {
            // A second, a blink, or minutes in which nothing came.
            const double step = index % 500 == 499 ? 600 : std::uniform_real_distribution(0.05, 2.0)(random);
            time += step;
            const double value = std::floor(std::exponential_distribution(0.01)(random)) - 100;
            counter += std::floor(std::exponential_distribution(0.05)(random));
            values[1763700000 + time] = value;
            if (index > 0) {
                rates[1763700000 + time] = (counter - former) / step;
            }
            former = counter;
            lines.take(sampleAt(time, {{"a.gauge", std::to_string(std::lround(value))},
                                       {"a.counter", std::to_string(std::lround(counter))}}));
        }
        const auto rows = lines.rows();
        ASSERT_EQ(rows.size(), 2U);
        EXPECT_EQ(lineOf(rows, "a.gauge").kind(), Kind::gauge);
        EXPECT_EQ(lineOf(rows, "a.counter").kind(), Kind::counter);
        for (const bool rate : {false, true}) {
            const Timeline& line = lineOf(rows, rate ? "a.counter" : "a.gauge");
            ASSERT_LE(line.buckets.all.size(), most);
            std::map<std::int64_t, Extent> expected;
            for (const auto& [wall, number] : rate ? rates : values) {
                expected[static_cast<std::int64_t>(std::floor(wall / lines.width()))].add(number, false);
            }
            for (std::size_t index = 0; index < line.buckets.all.size(); ++index) {
                const auto place = line.buckets.first + static_cast<std::int64_t>(index);
                const Extent& found = rate ? line.buckets.all[index].rate : line.buckets.all[index].value;
                const auto wanted = expected.find(place);
                ASSERT_EQ(found.empty(), wanted == expected.end()) << place;
                if (!found.empty()) {
                    EXPECT_NEAR(found.low, wanted->second.low, 1e-6 * std::abs(found.low));
                    EXPECT_NEAR(found.high, wanted->second.high, 1e-6 * std::abs(found.high));
                    EXPECT_NEAR(found.last, wanted->second.last, 1e-6 * std::abs(found.last));
                    expected.erase(wanted);
                }
            }
            EXPECT_TRUE(expected.empty());
            // Nor do columns, of which a bucket is in one or two.
            for (const std::size_t count : {1U, 10U, 333U}) {
                Extent all;
                for (const Column& column : columnsOf(line, lines.width(), rate, lines.from(), lines.to(), count)) {
                    all.add(column.numbers);
                }
                EXPECT_EQ(all.low, rate ? line.rates.low : line.values.low);
                EXPECT_EQ(all.high, rate ? line.rates.high : line.values.high);
            }
        }
    }
}

TEST(Timelines, EndLinesAtGaps) {
    Timelines lines;
    const auto take = [&](double time, const std::string& counter, bool fresh = false) {
        Sample sample = sampleAt(time, {{"n", counter}});
        sample.freshConnection = fresh;
        lines.take(std::move(sample));
    };
    take(0, "0", true);
    for (int second = 1; second < 5; ++second) {
        take(second, std::to_string(10 * second));
    }
    lines.gap({"gw", 7531}, 1763700000 + 5, "lost\x1b[31m");
    lines.gap({"gw", 7531}, 1763700000 + 6, "refused");
    take(7, "5", true);  // the Gateway was started anew
    take(8, "15");
    take(9, "20");
    take(60, "530");  // nobody says why
    take(61, "540");
    lines.gap({"gw", 7531}, 1763700000 + 70, "");
    const auto rows = lines.rows();
    const Timeline& line = lineOf(rows, "n");
    EXPECT_TRUE(line.showsRates());
    EXPECT_EQ(drawn(line, lines, false), "0 10 20 30 40 | 5 15 20 | 530 540 ");
    EXPECT_EQ(drawn(line, lines, true), "| 10 10 10 10 | 10 5 | 10 10 ");
    const GatewayTimeline& gateway = lines.gateways().front();
    ASSERT_EQ(gateway.gaps.size(), 3U);
    EXPECT_EQ(gateway.gaps[0].reason, "lost\\x1b[31m");
    EXPECT_EQ(gateway.gaps[0].to.value_or(0) - gateway.gaps[0].from, 3);
    EXPECT_EQ(gateway.gaps[1].to.value_or(0) - gateway.gaps[1].from, 51);
    EXPECT_FALSE(gateway.gaps[2].to);
    EXPECT_EQ(gateway.gapSeconds, 54);
    EXPECT_EQ(gateway.connections, 1U);
    ASSERT_EQ(gateway.resets.size(), 1U);
    EXPECT_EQ(line.resets, 1U);
    EXPECT_EQ(lines.to() - lines.from(), 70);
}

TEST(Timelines, GoOnInAnotherRecordingOfTheSameBoot) {
    const auto second = [](double time, double monotonic) {
        Timelines lines;
        for (int index = 0; index < 5; ++index) {
            lines.take(sampleAt(index, {{"n", std::to_string(index * 10)}}));
        }
        lines.nextRecording();
        lines.take(sampleAt(time, {{"n", "50"}}, "gw", monotonic));
        lines.take(sampleAt(time + 1, {{"n", "60"}}, "gw", monotonic + 1));
        return drawn(lineOf(lines.rows(), "n"), lines, true);
    };
    EXPECT_EQ(second(5, 1005), "| 10 10 10 10 10 10 ");
    EXPECT_EQ(second(5, 3), "| 10 10 10 10 | 10 ");       // another boot
    EXPECT_EQ(second(500, 1020), "| 10 10 10 10 | 10 ");  // another boot that has been up for longer
}

TEST(Timelines, KeepStatesOfOneSample) {
    Timelines lines({}, nullptr, 16);
    for (int index = 0; index < 5000; ++index) {
        lines.take(
            sampleAt(index, {{"state", index == 3217 ? "FAILED" : "RUNNING"}, {"odd", std::to_string(index) + "x"}}));
    }
    const auto rows = lines.rows();
    const Timeline& line = lineOf(rows, "state");
    EXPECT_EQ(line.kind(), Kind::state);
    EXPECT_EQ(lineOf(rows, "odd").kind(), Kind::text);
    ASSERT_EQ(line.stateChanges.size(), 2U);
    EXPECT_EQ(line.stateChanges[0].wallTime, 1763700000 + 3217);
    std::size_t failed = 0;
    for (const Column& column : columnsOf(line, lines.width(), false, lines.from(), lines.to(), 40)) {
        failed += (column.texts.states & 2U) != 0 ? 1 : 0;
    }
    EXPECT_EQ(failed, 1U);
    EXPECT_EQ(lineOf(rows, "odd").states.size(), MOST_STATES);
    EXPECT_EQ(lineOf(rows, "odd").stateChanges.size() + lineOf(rows, "odd").moreStateChanges,
              4999 - (5000 - 1 - MOST_STATES));
}

TEST(Timelines, TakeNoMomentsAndNoManyTextsForStates) {
    Timelines lines;
    for (int index = 0; index < 200; ++index) {
        const std::string part = std::to_string(index / 20);
        lines.take(sampleAt(index, {{"at", "2026-11-21T13:15:0" + part + "Z"},
                                    {"ten", "text " + part},
                                    {"two", index < 100 ? "up" : "down"}}));
    }
    const auto rows = lines.rows();
    EXPECT_EQ(lineOf(rows, "at").kind(), Kind::text);
    EXPECT_EQ(lineOf(rows, "ten").kind(), Kind::text);
    EXPECT_EQ(lineOf(rows, "two").kind(), Kind::state);
    EXPECT_EQ(rangeText({0, 2048, 1}, Unit::bytes, true), "0-2 KiB/s");
    EXPECT_EQ(rangeText({1, 20, 1}, Unit::uptime, false), "1-20 s");
}

TEST(Timelines, StandAnyClockAndAnyNumberOfStatistics) {
    Timelines lines;
    for (const double wall : {0.0, -1e300, 1e300, std::nan(""), -5.0, 2e9}) {
        lines.take(sampleAt(wall, {{"n", "1"}}, "gw", 1));
    }
    EXPECT_LE(lineOf(lines.rows(), "n").buckets.all.size(), MOST_BUCKETS);
    Timelines many;
    for (int index = 0; index < 120; ++index) {
        Values values;
        for (int each = 0; each < 100; ++each) {
            values.emplace_back("n" + std::to_string(100 * index + each), "1");
        }
        many.take(sampleAt(index, values));
    }
    EXPECT_EQ(many.rows().size(), MOST_TIMELINES);
    EXPECT_EQ(many.left(), 12000 - MOST_TIMELINES);
    EXPECT_GT(120 / many.width(), MOST_BUCKETS / 16);
    EXPECT_LE(120 / many.width(), MOST_BUCKETS / 4);
    for (int index = 0; index < 300; ++index) {
        many.take(sampleAt(index, {}, "gw" + std::to_string(index)));
    }
    EXPECT_EQ(many.gateways().size(), MOST_GATEWAYS);
    EXPECT_EQ(many.leftOfGateways(), 300 - (MOST_GATEWAYS - 1));
}

std::string labels(const Axis& axis) {
    std::string text;
    for (const Tick& tick : axis.ticks) {
        text += (text.empty() ? "" : ", ") + tick.label;
    }
    return text;
}

TEST(Axes, HaveRoundNumbersInTheUnit) {
    struct {
        double low;
        double high;
        Unit unit;
        const char* labels;
    } const cases[] = {
        {0, 0, Unit::none, "0.0, 0.5, 1.0"},
        {1, 9, Unit::none, "0, 5, 10"},
        {0.02, 0.13, Unit::none, "0.00, 0.05, 0.10, 0.15"},
        {2550000, 2551900, Unit::none, "2.550 M, 2.551 M, 2.552 M"},
        {-3, 14, Unit::none, "-10, 0, 10, 20"},
        {0, 12500, Unit::none, "0 k, 5 k, 10 k, 15 k"},
        {0, 3e9, Unit::bytes, "0 GiB, 1 GiB, 2 GiB, 3 GiB"},
        {371000, 378000, Unit::kilobytes, "360 MiB, 365 MiB, 370 MiB"},
        {3, 97, Unit::percent, "0 %, 50 %, 100 %"},
        {0, 5400, Unit::seconds, "0, 30 m, 60 m, 90 m"},
        {86400 * 3, 86400 * 3 + 3600, Unit::uptime, "3 d 0 h, , 3 d 1 h"},
        {0, 1e308, Unit::none, "0 E, 5e+289 E, 1e+290 E"},
        {-1.7e308, 1.7e308, Unit::none, "-1.7e+290 E, 1.7e+290 E"},
        {1e-300, 3e-300, Unit::none, "0, 1e-300, 2e-300, 3e-300"},
    };
    for (const auto& c : cases) {
        const Axis axis = valueAxis(c.low, c.high, c.unit, 3);
        EXPECT_EQ(labels(axis), c.labels) << c.low << " to " << c.high;
        EXPECT_LE(axis.low, c.low);
        EXPECT_GE(axis.high, c.high);
        EXPECT_LT(axis.low, axis.high);
        EXPECT_TRUE(axis.place(c.low) >= 0 && axis.place(c.high) <= 1);
    }
}

TEST(Axes, HaveRoundMoments) {
    setenv("TZ", "CET-1", 1);
    tzset();
    const double begin = 1763700000;  // 05:40 there
    EXPECT_EQ(labels(timeAxis(begin, begin + 60, 5)), "05:40:00, 05:40:15, 05:40:30, 05:40:45, 05:41:00");
    EXPECT_EQ(labels(timeAxis(begin + 1, begin + 3600, 5)), "05:45, 06:00, 06:15, 06:30");
    EXPECT_EQ(labels(timeAxis(begin, begin + 86400, 5)), "06:00, 12:00, 18:00, 00:00");
    EXPECT_EQ(labels(timeAxis(begin, begin + 2 * 86400, 5)), "12:00, 22 Nov, 12:00, 23 Nov");
    EXPECT_EQ(labels(timeAxis(begin, begin + 10 * 86400, 4)), "23 Nov, 26 Nov, 29 Nov");
    unsetenv("TZ");
    tzset();
}

}  // namespace
}  // namespace zulstat
