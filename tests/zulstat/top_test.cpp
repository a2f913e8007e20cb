// The screens of top, as pure text: scenes of a working day in several sizes, compared with committed files.
// ZULSTAT_UPDATE_SCREENS=1 in the environment rewrites the files.
#include "top_view.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>

#include "charset.h"
#include "keys.h"
#include "monitor/sample.h"
#include "terminal.h"
#include "text.h"

namespace zulstat {
namespace {

using monitor::Sample;

struct Group {
    std::string element;
    std::vector<std::pair<std::string, std::string>> items;
    std::int32_t rc = 0;
};

Sample sampleOf(double time, const std::vector<Group>& groups) {
    Sample sample;
    sample.protocol = "1_0_0_0";
    sample.monotonicTime = 1000 + time;
    sample.wallTime = 1763700000 + time;
    for (const Group& group : groups) {
        sample.addElement(sample.keep(group.element), group.rc);
        for (const auto& [id, value] : group.items) {
            const std::string_view keptId = sample.keep(id);
            sample.addItem(keptId, sample.keep(value));
        }
    }
    return sample;
}

// A Gateway's day: counters, gauges, states and constants that follow from the time alone.
std::vector<Group> day(double time, bool incident = false, int offset = 0) {
    const auto whole = [](double value) { return std::to_string(static_cast<long long>(std::floor(value))); };
    const double wave = std::sin(time / 5 + offset);
    const double errors = incident ? 40 * std::max(time - 20, 0.0) : 0;
    std::vector<Group> groups = {
        {"daemon",
         {{"daemon.version", "3.4.1"},
          {"daemon.state", incident && time > 20 ? "DEGRADED" : "RUNNING"},
          {"daemon.uptime.seconds", whole(86400 * 3 + time)},
          {"daemon.memory.used.kb", whole(374000 + 4000 * wave)},
          {"daemon.memory.limit.kb", "524288"},
          {"daemon.requests.total", whole(2550000 + time * (200 + 50 * wave))},
          {"daemon.errors.total", whole(30200 + time / 4 + errors)},
          {"daemon.cpu.percent", fmt::format("{:.2f}", incident ? 91 + wave : 12 + 3 * wave)}}},
        {"host",
         {{"host.name", "zulhost"},
          {"host.load.1m", fmt::format("{:.2f}", 1.5 + wave)},
          {"host.net.in.bytes.total", whole(24221314732 + time * (300000 + 90000 * wave))},
          {"host.boot.time", "2023-12-31T00:23:12Z"}}},
        {"conn",
         {{"conn.state", incident && time > 21 ? "REFUSING" : "LISTENING"},
          {"conn.limit", "200"},
          {"conn.open.now", whole(incident ? 200 : 110 + 8 * wave)},
          {"conn.accepted.total", whole(1703965 + time * 22)},
          {"conn.refused.total", whole(4180 + errors)}}},
        {"worker",
         {{"worker.lane1.tasks.with.a.very.long.name.total", whole(2940842 + time * 31)},
          {"worker.lane1.tasks.with.a.very.long.name.failed.total", whole(26820 + errors / 8)},
          {"worker.queue.now", whole(incident ? 16 + errors / 10 : 16 + 4 * wave)},
          {"worker.run.ms.avg", fmt::format("{:.2f}", 50 + 9 * wave)}}}};
    if (incident && time > 25) {
        groups[1] = {"host", {}, -7};
    }
    return groups;
}

// What a terminal would show.
std::vector<std::string> textOf(const Frame& frame) {
    std::vector<std::vector<std::string>> cells(frame.rows, std::vector<std::string>(frame.columns, " "));
    for (const Piece& piece : frame.pieces) {
        std::size_t column = piece.column;
        std::string_view rest = piece.text;
        while (!rest.empty() && column < frame.columns) {
            std::string cell = cutToWidth(rest, 1);
            cells[piece.row][column++] = cell;
            rest.remove_prefix(cell.size());
        }
    }
    std::vector<std::string> lines;
    for (const auto& row : cells) {
        std::string line = join(row, "");
        line.resize(line.find_last_not_of(' ') + 1);
        lines.push_back(line);
    }
    return lines;
}

// One letter for each character's style, without those of normal ones.
std::vector<std::string> stylesOf(const Frame& frame) {
    constexpr std::string_view letters = " bdh!nB>";
    std::vector<std::string> lines(frame.rows, std::string(frame.columns, ' '));
    for (const Piece& piece : frame.pieces) {
        const std::size_t width = std::min(columnWidth(piece.text), frame.columns - piece.column);
        lines[piece.row].replace(piece.column, width,
                                 std::string(width, letters[static_cast<std::size_t>(piece.style)]));
    }
    for (std::string& line : lines) {
        line.resize(line.find_last_not_of(' ') + 1);
    }
    return lines;
}

class Scene {
public:
    explicit Scene(std::size_t count = 1, TopSettings settings = {}) : gateways(count), view(settings) {
        for (std::size_t index = 0; index < count; ++index) {
            gateways[index].target = fmt::format("gw{}:7531", index + 1);
        }
    }
    void take(std::size_t gateway, const Sample& sample) {
        TopGateway& taker = gateways[gateway];
        taker.tracks.take(sample);
        taker.protocol = sample.protocol;
        taker.sampled = true;
        now = sample.monotonicTime;
        wall = sample.wallTime;
    }
    void run(double from, double to, bool incident = false) {
        for (double time = from; time <= to; time += 1) {
            for (std::size_t gateway = 0; gateway < gateways.size(); ++gateway) {
                take(gateway, sampleOf(time, day(time, incident && gateway == 0, static_cast<int>(gateway))));
            }
        }
    }
    void press(std::initializer_list<int> keys) {
        for (const int key : keys) {
            view.draw(24, 80, gateways, now, wall);
            view.press(key, gateways);
        }
    }
    Frame draw(std::size_t rows = 24, std::size_t columns = 80) {
        return view.draw(rows, columns, gateways, now, wall);
    }
    std::string text(std::size_t rows = 24, std::size_t columns = 80) {
        return join(textOf(draw(rows, columns)), "\n");
    }

    std::vector<TopGateway> gateways;
    TopView view;
    double now = 0;
    double wall = 0;
};

void compare(const std::string& name, const std::string& shown) {
    const std::string path = std::string(SCREENS) + "/" + name + ".txt";
    if (std::getenv("ZULSTAT_UPDATE_SCREENS") != nullptr) {
        std::ofstream(path) << shown;
        return;
    }
    std::ifstream file(path);
    const std::string expected{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(expected, shown) << path;
}

class Screens : public testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        setLocale();
        if (!userHasUtf8()) {
            GTEST_FAIL() << "the screens are drawn in UTF-8";
        }
    }
    // In the four sizes; the styles of the most usual one, too.
    static void compareSizes(const std::string& name, Scene& scene) {
        for (const auto& [columns, rows] : {std::pair{80, 24}, {120, 30}, {200, 50}, {30, 6}}) {
            const Frame frame = scene.draw(static_cast<std::size_t>(rows), static_cast<std::size_t>(columns));
            std::string shown = join(textOf(frame), "\n") + "\n";
            if (columns == 80) {
                shown += "-- styles: b bold, d dim, h header, ! bad, n notice, B bright, > selected\n" +
                         join(stylesOf(frame), "\n") + "\n";
            }
            compare(fmt::format("{}-{}x{}", name, columns, rows), shown);
        }
    }
};

TEST_F(Screens, start) {
    Scene scene;
    scene.run(0, 3);
    compareSizes("start", scene);
}

TEST_F(Screens, incident) {
    Scene scene;
    scene.run(0, 30, true);
    scene.press({keyDown});
    compareSizes("incident", scene);
}

TEST_F(Screens, restart) {
    Scene scene;
    scene.run(0, 20);
    scene.gateways[0].tracks.gap();
    scene.gateways[0].lost = "gw1:7531: lost the connection";
    scene.gateways[0].state = "next attempt in 2 s: gw1:7531: lost the connection";
    scene.now += 3;
    compareSizes("restart-lost", scene);
    Sample fresh = sampleOf(24, {{"conn", {{"conn.state", "LISTENING"}, {"conn.accepted.total", "3"}}}});
    fresh.freshConnection = true;
    scene.take(0, fresh);
    scene.gateways[0].lost.clear();
    scene.gateways[0].state.clear();
    compareSizes("restart-back", scene);
}

TEST_F(Screens, twoGateways) {
    Scene scene(2);
    scene.run(0, 25, true);
    scene.press({'t', 't'});
    compareSizes("two-all", scene);
    scene.press({'t'});
    compareSizes("two-side-by-side", scene);
}

TEST_F(Screens, helpAndPane) {
    Scene scene;
    scene.run(0, 30);
    scene.press({'?'});
    compareSizes("help", scene);
    for (const std::string& line : textOf(scene.draw())) {
        EXPECT_LT(columnWidth(line), 80u) << "the help fits";
    }
    scene.press({'x', '/', 'r', 'e', 'q', 'u', ENTER_KEY, ENTER_KEY});
    compareSizes("pane", scene);
}

TEST_F(Screens, recording) {
    Scene scene(1, {.speed = 1});
    scene.run(0, 25, true);
    scene.press({'n', '.', '.', '<', '+', '+', '-'});
    EXPECT_TRUE(scene.view.stepped);
    EXPECT_TRUE(scene.view.paused);
    EXPECT_EQ(scene.view.moved, -280);
    EXPECT_EQ(scene.view.speed, 2);
    scene.gateways[0].tracks.gap();
    scene.gateways[0].lost = "the recording was not running";
    scene.gateways[0].state = "no sample: the recording was not running";
    compareSizes("recording", scene);
    scene.view.atEnd = true;
    EXPECT_NE(scene.text().find("recorded, x2  the end"), std::string::npos) << scene.text();
    for (const std::size_t columns : {80u, 60u, 44u, 30u, 24u}) {
        const std::string title = scene.text(6, columns).substr(0, scene.text(6, columns).find('\n'));
        EXPECT_NE(title.find("04:40:25"), std::string::npos) << title;
        EXPECT_TRUE(title.ends_with("the end")) << title;
    }
    scene.press({'?'});
    EXPECT_NE(scene.text(40).find("5 minutes back and forth"), std::string::npos) << scene.text(40);

    Scene live;
    live.run(0, 3);
    live.press({'n', '.', '<'});
    EXPECT_FALSE(live.view.stepped || live.view.paused || live.view.moved != 0);
}

TEST_F(Screens, noTwoRowsLookAlikeAndValuesAreThere) {
    Scene scene;
    for (double time = 0; time < 3; ++time) {
        scene.take(0, sampleOf(time, {{"server.alpha.with.a.long.name",
                                       {{"server.alpha.with.a.long.name.tasks.accepted.total", "1"},
                                        {"server.alpha.with.a.long.name.tasks.accepted.late", "2"}}}}));
    }
    for (const std::size_t columns : {80u, 30u}) {
        const std::string text = scene.text(10, columns);
        EXPECT_NE(text.find("\n  total "), std::string::npos) << text;
        EXPECT_NE(text.find("\n  late "), std::string::npos) << text;
        EXPECT_NE(text.find(" 1\n"), std::string::npos) << text;
    }
}

TEST_F(Screens, oddTextsAndSizesDoNoHarm) {
    Scene scene(3);
    std::vector<Group> groups = {{"", {{"", ""}, {"", "1"}, {"a", std::string(5000, 'x')}}},
                                 {"\x1b[2J", {{"\x1b[2J\n", "\x1b]0;t\a"}, {std::string(300, 'i'), "1e308"}}},
                                 {"g", {{"g.", "-1e308"}, {"g.\xe4\xb8\xad", "18446744073709551615"}}}};
    for (double time = 0; time < 15; ++time) {
        groups[0].items.push_back({"n" + std::to_string(time), std::to_string(time)});
        if (time == 7) {
            groups[2].rc = -3;
            groups[2].items.clear();
        }
        scene.take(static_cast<std::size_t>(time) % 3, sampleOf(time, groups));
        for (const int key : {static_cast<int>('s'), static_cast<int>('t'), static_cast<int>(keyDown),
                              static_cast<int>(ENTER_KEY), static_cast<int>(keyLeft), static_cast<int>('a'),
                              static_cast<int>('c'), static_cast<int>(keyEnd), static_cast<int>('e')}) {
            scene.press({key});
            for (const std::size_t size : {1u, 2u, 5u, 13u, 40u, 300u}) {
                for (const Piece& piece : scene.draw(size, size).pieces) {
                    EXPECT_EQ(piece.text.find_first_of("\x1b\n\a"), std::string::npos);
                }
            }
        }
    }
}

TEST_F(Screens, sortingFilteringAndFolding) {
    Scene scene;
    scene.run(0, 12);
    EXPECT_EQ(scene.text().find("daemon.version"), std::string::npos);
    EXPECT_EQ(scene.text().find("memory.limit"), std::string::npos) << "constants are folded away after ten seconds";
    EXPECT_NE(scene.text().find("daemon  8 statistics, 3 constant"), std::string::npos) << scene.text();
    scene.press({'c'});
    EXPECT_NE(scene.text().find("memory.limit"), std::string::npos);
    scene.press({'a'});
    EXPECT_EQ(scene.text().find("memory.limit"), std::string::npos);
    EXPECT_NE(scene.text().find("▸ host"), std::string::npos);
    scene.press({keyRight});
    EXPECT_NE(scene.text().find("memory.limit"), std::string::npos);
    scene.press({'s'});
    EXPECT_EQ(textOf(scene.draw())[2].substr(0, 24), "host.net.in.bytes.total ") << "large values first";
    scene.press({'s'});
    EXPECT_EQ(textOf(scene.draw())[2].substr(0, 24), "host.net.in.bytes.total ") << "and rates";
    scene.press({'r'});
    EXPECT_NE(textOf(scene.draw())[2].substr(0, 24), "host.net.in.bytes.total ");
    scene.press({'/', 'n', 'o', 'p', 'e'});
    EXPECT_NE(scene.text().find("no identifier matches 'nope'"), std::string::npos);
}

// What a value does tells whether it is a counter; one fall on a connection tells that it is none.
TEST(Tracks, kindsAndResets) {
    Tracks tracks({.rates = {"asked"}, .deltas = {}});
    const auto take = [&](double time, const std::string& value, bool fresh = false) {
        Sample sample =
            sampleOf(time, {{"g", {{"asked", value}, {"told", value}, {"constant", "5"}, {"load", value + ".5"}}}});
        sample.freshConnection = fresh;
        tracks.take(sample);
    };
    const auto track = [&](std::size_t index) -> const Track& { return *tracks.all()[index]; };
    take(0, "10", true);
    EXPECT_EQ(track(0).kind(), Kind::counter);
    EXPECT_EQ(track(1).kind(), Kind::number);
    for (int time = 1; time <= 3; ++time) {
        take(time, std::to_string(10 + 4 * time));
    }
    EXPECT_EQ(track(1).kind(), Kind::counter);
    EXPECT_EQ(track(3).kind(), Kind::number) << "three rises of a decimal are no evidence";
    EXPECT_DOUBLE_EQ(*track(1).perSecond, 4);
    EXPECT_DOUBLE_EQ(*track(1).averageRate[0], 4);
    EXPECT_TRUE(track(2).constant());
    take(4, "1", true);
    EXPECT_TRUE(track(0).reset && track(1).reset && !track(1).fell);
    EXPECT_EQ(track(1).kind(), Kind::counter) << "a new connection may begin anew";
    take(5, "3");
    EXPECT_DOUBLE_EQ(*track(1).perSecond, 2);
    take(6, "2");
    EXPECT_TRUE(track(0).reset && !track(1).reset);
    EXPECT_EQ(track(1).kind(), Kind::gauge);
    take(7, "7");
    EXPECT_EQ(track(1).kind(), Kind::gauge) << "for good";
    EXPECT_EQ(tracks.points(track(1), 4).back(), 7);
    EXPECT_TRUE(std::isnan(tracks.points(track(0), 4)[2])) << "no rate across a fall";
}

TEST(Tracks, comeBackWithTheirHistory) {
    Tracks tracks;
    const std::vector<Group> whole = {{"a", {{"a.x", "1"}}}, {"b", {{"b.y", "2"}}}};
    tracks.take(sampleOf(0, whole));
    tracks.take(sampleOf(1, {{"a", {{"a.x", "1"}}}, {"b", {}, -5}}));
    EXPECT_TRUE(tracks.all()[1]->failed);
    tracks.take(sampleOf(2, whole));
    const std::vector<double> points = tracks.points(*tracks.all()[1], 3);
    EXPECT_TRUE(points[0] == 2 && std::isnan(points[1]) && points[2] == 2);
    EXPECT_EQ(tracks.all()[1]->firstSeen, 1000);
    for (int round = 0; round < 1000; ++round) {  // the ring is reused
        tracks.take(sampleOf(3 + round, {whole[0]}));
    }
    tracks.take(sampleOf(1003, whole));
    const std::vector<double> late = tracks.points(*tracks.all()[1], HISTORY_LENGTH);
    EXPECT_TRUE(std::isnan(late[0]) && std::isnan(late[late.size() - 2]) && late.back() == 2);
}

TEST(Figures, asPeopleReadThem) {
    for (const auto& [id, value, shown] :
         std::vector<std::tuple<std::string, std::string, std::string>>{{"x.total", "2550000", "2.55 M"},
                                                                        {"x.now", "99999", "99999"},
                                                                        {"x.pid", "100000", "100 k"},
                                                                        {"m.used.kb", "373760", "365 MiB"},
                                                                        {"n.bytes.total", "512", "512 B"},
                                                                        {"n.bytes.in.total", "2340763121", "2.18 GiB"},
                                                                        {"d.uptime.seconds", "1399", "up 23 m"},
                                                                        {"d.uptime.seconds", "262800", "up 3 d 1 h"},
                                                                        {"q.wait.ms.avg", "12.29", "12.3 ms"},
                                                                        {"c.busy.percent", "58.44", "58.4 %"},
                                                                        {"x", "-0", "0"},
                                                                        {"x", "0.00001", "1e-05"},
                                                                        {"x", "-1234567", "-1.23 M"},
                                                                        {"x", "1e300", "1e+282 E"},
                                                                        {"x", "999999", "1.00 M"}}) {
        EXPECT_EQ(figure(*monitor::parseNumber(value), unitOf(id)), shown) << id << " " << value;
    }
    for (const double rate : {0.0, 0.023, 1.5, 12.25, 812.0, 2550.0, 999.7, -3.2}) {
        const std::string text = alignedRate(rate);
        EXPECT_EQ(text.size(), RATE_WIDTH) << text;
        EXPECT_TRUE(text.find('.') == std::string::npos || text.find('.') == 4) << text;
    }
    EXPECT_EQ(figureRange(8, 41, Unit::none), "8-41");
    EXPECT_EQ(figureRange(1200, 3400, Unit::none), "1.2-3.4k");
    EXPECT_EQ(figureRange(900, 3400, Unit::none), "900-3.4k");
    EXPECT_EQ(figureRange(4089446, 5557452, Unit::kilobytes), "3.9-5.3 GiB");
}

// The manual has the tables of keys and columns.
TEST(Manual, hasKeysAndColumns) {
    const std::string path = MANUAL;
    std::ifstream file(path);
    std::string page{std::istreambuf_iterator<char>(file), {}};
    const auto put = [&](const std::string& title, const auto& rows, const auto& name) {
        std::string table = title + ":\n\n";
        for (const auto& row : rows) {
            table += fmt::format("|{} *{}*\n:{} {}\n", &row == &rows.front() ? "[" : " ", name(row),
                                 &row == &rows.front() ? "[" : " ", row.help);
        }
        const std::size_t begin = page.find(title + ":\n\n", page.find("\n## top\n"));
        const std::size_t end = page.find("\n\n", begin + title.size() + 3);
        ASSERT_NE(end, std::string::npos);
        page.replace(begin, end + 1 - begin, table);
    };
    put("Keys", TopView::keys(), [](const TopKey& key) { return key.keys; });
    put("Columns", topColumns(), [](const TopColumn& column) { return column.title; });
    std::ifstream again(path);
    const std::string before{std::istreambuf_iterator<char>(again), {}};
    if (std::getenv("ZULSTAT_UPDATE_SCREENS") != nullptr) {
        std::ofstream(path) << page;
        return;
    }
    EXPECT_EQ(before, page) << path;
}

}  // namespace
}  // namespace zulstat
