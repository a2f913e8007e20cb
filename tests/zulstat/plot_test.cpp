// Plots of the terminal as text, and comparisons of samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "compare.h"
#include "samples.h"
#include "terminal_plot.h"
#include "text.h"

namespace zulstat {
namespace {

using monitor::Sample;

class TerminalPlots : public ::testing::Test {
protected:
    TerminalPlots() {
        setenv("TZ", "UTC0", 1);
        tzset();
        for (int second = 0; second < 600; ++second) {
            if (second >= 300 && second < 360) {
                continue;
            }
            lines.take(sampleAt(second, {{"requests", std::to_string(static_cast<long>(second * 100))},
                                         {"wave", std::to_string(std::lround(50 * std::sin(second / 60.0)))},
                                         {"state", second == 123 ? "FAILED" : "RUNNING"}}));
        }
    }
    ~TerminalPlots() override {
        unsetenv("TZ");
        tzset();
    }
    std::string plot(const std::string& id, const PlotSize& size) {
        std::string text;
        for (const Timelines::Row& row : lines.rows()) {
            if (row.first().id == id) {
                for (const std::string& line :
                     plotLines(row.first(), lines.width(), lines.from(), lines.to(), "", size)) {
                    text += line + "\n";
                    EXPECT_LE(columnWidth(line), size.columns);
                }
            }
        }
        return text;
    }
    Timelines lines;
};

TEST_F(TerminalPlots, ShowWhatTheyAreMadeOf) {
    EXPECT_EQ(plot("wave", {60, 11, false}), R"(wave  -50-50
 50 +     *******                            *******
    |   ***     ****                       ***     ***
    | ***          **                    **          ***
    |**             ***                ***             **
  0 +*                **              **                ***
    |                   **                                **
    |                    ***
-50 +                       *****
    ++---------+----------+----------+----------+-----------
   04:40     04:42      04:44      04:46      04:48
)");
    EXPECT_EQ(plot("state", {40, 20, true}), R"(state  2 changes
 │aaaaaaabaaaaaaaaaaaa  aaaaaaaaaaaaaaaa
 └┬─────────────────┬───────────────────
04:40             04:45
  a RUNNING  b FAILED
)");
    EXPECT_EQ(plot("requests", {40, 6, true}), R"(requests  100/s, mean 100/s
120 ┤
100 ┤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤   ⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤⠤
 80 ┤
    └┬────────────────┬─────────────────
   04:40            04:45
)");
}

TEST_F(TerminalPlots, StandAnySize) {
    for (const std::size_t columns : {1U, 8U, 20U, 300U}) {
        for (const std::size_t rows : {0U, 1U, 5U, 100U}) {
            for (const Timelines::Row& row : lines.rows()) {
                plotLines(row.first(), lines.width(), lines.from(), lines.to(), "gw", {columns, rows, rows % 2 == 0});
                plotLines(row.first(), lines.width(), 0, 0, "gw", {columns, rows, rows % 2 == 0});
            }
        }
    }
}

std::string shown(const std::vector<Comparison>& all) {
    std::string text;
    for (const Comparison& one : all) {
        text += one.former ? one.former->target.host : "-";
        text += ">" + (one.later ? one.later->target.host : "-") + "\n";
        for (const Difference& each : one.differences) {
            text += std::string(1, "+-*"[static_cast<int>(each.kind)]) + each.element + " " + each.id + " " +
                    each.former + ">" + each.value;
            text += each.difference ? " " + std::to_string(*each.difference) : "";
            text += each.perSecond ? " " + std::to_string(*each.perSecond) : "";
            text += "\n";
        }
    }
    return text;
}

TEST(Comparisons, TellWhatAppearedWentAndChanged) {
    Sample former =
        sampleAt(0, {{"n", "18446744073709551000"}, {"same", "1"}, {"gone", "x"}, {"twice", "1"}, {"twice", "2"}});
    former.addElement("broken", -7);
    Sample later =
        sampleAt(10, {{"new", "y"}, {"n", "18446744073709551610"}, {"same", "1"}, {"twice", "1"}, {"twice", "3.5"}});
    later.addElement("broken", -8);
    EXPECT_EQ(shown(compareSamples({former}, {later})),
              "gw>gw\n+* new >y\n-* gone x>\n** n 18446744073709551000>18446744073709551610 610.000000 61.000000\n"
              "** twice 2>3.5 1.500000 0.150000\n*broken  -7>-8\n");
    EXPECT_EQ(shown(compareSamples({later}, {later})), "gw>gw\n");
}

TEST(Comparisons, PutGatewaysSideBySide) {
    const Sample a = sampleAt(0, {{"n", "1"}}, "a");
    const Sample b = sampleAt(5, {{"n", "3"}}, "b");
    EXPECT_EQ(shown(compareSamples({a}, {b})), "a>b\n** n 1>3 2.000000 0.400000\n");
    EXPECT_EQ(shown(compareSamples({a, b}, {b})), "a>-\n-* n 1>\nb>b\n");
    EXPECT_EQ(shown(compareSamples({b}, {a, b})), "b>b\n->a\n+* n >1\n");
    // By group and by identifier: the same items in other elements.
    Sample byId = sampleAt(5, {}, "a");
    byId.query = {monitor::What::statsById, {"n"}};
    byId.addElement("n", 0);
    byId.addItem("n", "1");
    EXPECT_EQ(shown(compareSamples({a}, {byId})), "a>a\n");
}

TEST(Comparisons, CountSecondsByTheClockThatFits) {
    Sample later = sampleAt(10, {{"n", "11"}});
    later.monotonicTime = 3;  // another boot
    EXPECT_EQ(shown(compareSamples({sampleAt(0, {{"n", "1"}})}, {later})), "gw>gw\n** n 1>11 10.000000 1.000000\n");
    later.wallTime -= 3600;  // set back, and no rate is known
    EXPECT_EQ(shown(compareSamples({sampleAt(0, {{"n", "1"}})}, {later})), "gw>gw\n** n 1>11 10.000000\n");
}

}  // namespace
}  // namespace zulstat
