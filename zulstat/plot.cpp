// zulstat plot: statistics over time as blocks in the terminal, of recordings or as they come.
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

constexpr std::string_view NOTHING_MATCHES = "nothing matches what is asked for";
constexpr std::size_t LEAST_ROWS = 8;  // of a plot of several on a terminal

std::vector<std::string> plots(const Timelines& lines, const PlotSize& size) {
    std::vector<std::string> all;
    for (const Timelines::Row& row : lines.rows()) {
        for (std::size_t gateway = 0; gateway < row.ofGateways.size(); ++gateway) {
            if (row.ofGateways[gateway] == nullptr) {
                continue;
            }
            const std::string name = lines.gateways().size() > 1 ? lines.gateways()[gateway].name : "";
            const std::vector<std::string> one =
                plotLines(*row.ofGateways[gateway], lines.width(), lines.from(), lines.to(), name, size);
            if (!all.empty()) {
                all.emplace_back();
            }
            all.insert(all.end(), one.begin(), one.end());
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

void printAll(const Timelines& lines) {
    std::string text;
    for (const std::string& line : plots(lines, sizeFor(lines))) {
        text += line + "\n";
    }
    print(inUsersCharacters(text));
}

int plotRecording(const Options& options) {
    Timelines lines(options.derived, options.mapper);
    readTimelines({options.from}, options, lines);
    if (lines.rows().empty()) {
        complain(lines.gateways().empty() ? "there is no sample in that time" : NOTHING_MATCHES);
        return exitPartly;
    }
    printAll(lines);
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
        std::vector<std::string> shown = plots(lines, sizeFor(lines));
        shown.resize(std::min(shown.size(), terminal.rows - 1));  // the cursor stays in the last line
        for (const std::string& line : shown) {
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
