// zulstat plot: statistics over time as blocks in the terminal, of recordings or as they come.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "charset.h"
#include "commands.h"
#include "feed.h"
#include "options.h"
#include "output.h"
#include "recorded.h"
#include "report.h"
#include "series.h"
#include "terminal.h"
#include "terminal_plot.h"
#include "timeline.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t LEAST_ROWS = 8;  // of a plot of several on a terminal

// The lines of each.
std::vector<std::vector<std::string>> plots(const Timelines& lines, const PlotSize& size) {
    std::vector<std::vector<std::string>> all;
    for (const Timelines::Row& row : lines.rows()) {
        for (std::size_t gateway = 0; gateway < row.ofGateways.size(); ++gateway) {
            if (row.ofGateways[gateway] == nullptr) {
                continue;
            }
            const std::string name = lines.gateways().size() > 1 ? lines.gateways()[gateway].name : "";
            all.push_back(plotLines(*row.ofGateways[gateway], lines.width(), lines.from(), lines.to(), name, size));
        }
    }
    return all;
}

std::size_t countPlots(const Timelines& lines) {
    std::size_t count = 0;
    for (const Timelines::Row& row : lines.rows()) {
        count += static_cast<std::size_t>(std::count_if(row.ofGateways.begin(), row.ofGateways.end(),
                                                        [](const Timeline* line) { return line != nullptr; }));
    }
    return count;
}

// As large as the terminal; 80 columns and 20 rows elsewhere.
PlotSize sizeFor(const Timelines& lines) {
    PlotSize size;
    size.braille = userHas(U'⠿') && userHas(U'┬');
    if (isatty(STDOUT_FILENO) == 1) {
        const TerminalSize terminal = terminalSize();
        size.columns = terminal.columns;
        const std::size_t count = std::max<std::size_t>(countPlots(lines), 1);
        size.rows = std::max((terminal.rows - 1) / count - (count > 1 ? 1 : 0), std::min(LEAST_ROWS, terminal.rows));
    }
    return size;
}

// The plots that a terminal has room for, whole ones but for a first one; its last line tells of the others. The cursor
// stays in the line below.
std::vector<std::string> fitting(const std::vector<std::vector<std::string>>& all, const TerminalSize& terminal) {
    const std::size_t room = terminal.rows - 1;
    const auto linesOf = [&](std::size_t count) {
        std::vector<std::string> lines;
        for (std::size_t index = 0; index < count; ++index) {
            if (index > 0) {
                lines.emplace_back();
            }
            lines.insert(lines.end(), all[index].begin(), all[index].end());
        }
        return lines;
    };
    std::size_t count = std::min(all.size(), room);
    std::vector<std::string> shown = linesOf(count);
    while (count > 1 && shown.size() + (count < all.size() ? 1 : 0) > room) {
        shown = linesOf(--count);
    }
    if (count < all.size() && room > 1) {
        const std::size_t more = all.size() - count;
        shown.resize(std::min(shown.size(), room - 1));
        shown.push_back(
            cutToWidth(fmt::format("{} more {} no room", more, more == 1 ? "has" : "have"), terminal.columns));
    }
    shown.resize(std::min(shown.size(), room));
    return shown;
}

void printAll(const Timelines& lines) {
    std::string text;
    for (const std::vector<std::string>& plot : plots(lines, sizeFor(lines))) {
        text += text.empty() ? "" : "\n";
        for (const std::string& line : plot) {
            text += line + "\n";
        }
    }
    print(inUsersCharacters(text));
}

int plotRecording(const Options& options) {
    Timelines lines(options.derived, options.mapper);
    readTimelines({options.from}, options, lines);
    if (lines.rows().empty()) {
        complainOfNothing(lines);
        return exitPartly;
    }
    printAll(lines);
    noteLeft(lines, options);
    return exitOk;
}

// Samples as they come, drawn again and again on a terminal.
class LivePlot : public Series {
public:
    LivePlot(const Options& given, std::vector<std::unique_ptr<Feed>> feeds)
        : Series(given, std::move(feeds)), lines(given.derived, given.mapper), redraws(canRedraw()) {
    }

    int plot() {
        const int exitCode = run();
        if (!redraws && !lines.rows().empty()) {
            printAll(lines);
        }
        noteLeft(lines, options);
        if (exitCode == exitOk && lines.rows().empty() && !lines.gateways().empty()) {
            complain(NOTHING_MATCHES);
            return exitPartly;
        }
        return exitCode;
    }

private:
    void take(std::size_t index, FeedEvent& event) override {
        Member& one = all[index];
        if (failedElements(event.sample) > 0 && one.exitCode == exitOk) {
            one.exitCode = reportSample(event.sample, one.subject);
        }
        choose(event.sample, options);
        lines.take(std::move(event.sample));
        if (redraws) {
            draw();
        }
    }

    void lose(std::size_t index, const FeedEvent& event) override {
        if (event.firstGap) {
            complain(event.text + "; trying again");
        }
        lines.gap(all[index].subject.target, event.wallTime, event.text);
    }

    void end(std::size_t index, const FeedEvent& event) override {
        if (event.failure) {
            reportFailure(*event.failure, options.query(), all[index].subject);
        }
    }

    void draw() {
        const TerminalSize terminal = terminalSize();
        // What the terminal showed before moves up into its history.
        std::string frame = drawn ? "\x1b[H" : std::string(terminal.rows, '\n') + "\x1b[H";
        drawn = true;
        for (const std::string& line : fitting(plots(lines, sizeFor(lines)), terminal)) {
            frame += line + "\x1b[K\r\n";
        }
        print(inUsersCharacters(frame + "\x1b[J"));
    }

    Timelines lines;
    const bool redraws;
    bool drawn = false;
};

}  // namespace

int runPlot(const Options& options) {
    if (!options.from.empty()) {
        return plotRecording(options);
    }
    options.refuseTraceOnScreen();
    return LivePlot(options, gatewayFeeds(options)).plot();
}

}  // namespace zulstat
