// zulstat plot: statistics over time as blocks in the terminal, of recordings or as they come.
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <deque>
#include <string>
#include <vector>

#include "charset.h"
#include "commands.h"
#include "interrupt.h"
#include "monitor/follower.h"
#include "options.h"
#include "output.h"
#include "recorded.h"
#include "report.h"
#include "terminal.h"
#include "terminal_plot.h"
#include "text.h"
#include "timeline.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

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
        complain(lines.gateways().empty() ? "there is no sample in that time" : "nothing matches what is asked for");
        return exitPartly;
    }
    printAll(lines);
    return exitOk;
}

// Samples as they come, drawn again and again on a terminal.
class LivePlot {
public:
    explicit LivePlot(const Options& given)
        : options(given), query(given.query()), lines(given.derived, given.mapper), redraws(canRedraw()) {
        for (const Target& target : options.targets) {
            all.emplace_back(options, target);
        }
    }

    int run() {
        for (;;) {
            for (Followed& one : all) {
                step(one);
            }
            const bool over = std::all_of(all.begin(), all.end(), [](const Followed& one) { return one.ended; });
            if (over || interrupted()) {
                return end();
            }
            wait();
        }
    }

private:
    struct Followed {
        Followed(const Options& options, const Target& target)
            : subject(options.subject(target)), follower(options.follower(target)) {
        }
        const Subject subject;
        Follower follower;
        int exitCode = exitOk;
        bool ended = false;
    };

    void step(Followed& one) {
        while (std::optional<Event> event = one.follower.step(Clock::now())) {
            switch (event->kind) {
            case Event::Kind::sample:
                if (failedElements(event->sample) > 0 && one.exitCode == exitOk) {
                    one.exitCode = reportSample(event->sample, one.subject);
                }
                choose(event->sample, options);
                lines.take(std::move(event->sample));
                draw();
                break;
            case Event::Kind::gap:
                if (event->firstGap) {
                    complain(failureText(*event->failure, one.subject) + "; trying again");
                }
                lines.gap(one.subject.target, static_cast<double>(std::time(nullptr)), {});
                break;
            case Event::Kind::end:
                one.ended = true;
                if (event->failure) {
                    one.exitCode = reportFailure(*event->failure, query, one.subject);
                }
                break;
            }
        }
    }

    void draw() {
        if (!redraws) {
            return;
        }
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

    void wait() const {
        Clock::time_point wake = Clock::time_point::max();
        std::vector<int> descriptors;
        for (const Followed& one : all) {
            wake = std::min(wake, one.follower.nextWake());
            descriptors.push_back(one.follower.descriptor());
        }
        waitForAny(descriptors, wake);
    }

    int end() const {
        if (!redraws && !lines.rows().empty()) {
            printAll(lines);
        }
        int exitCode = exitOk;
        for (const Followed& one : all) {
            exitCode = std::max(exitCode, one.exitCode);
        }
        if (exitCode == exitOk && lines.rows().empty() && !lines.gateways().empty()) {
            complain("nothing matches what is asked for");
            return exitPartly;
        }
        return exitCode;
    }

    const Options& options;
    const Query query;
    Timelines lines;
    const bool redraws;
    bool drawn = false;
    std::deque<Followed> all;
};

}  // namespace

int runPlot(const Options& options) {
    if (!options.from.empty()) {
        return plotRecording(options);
    }
    options.refuseTraceOnScreen();
    return LivePlot(options).run();
}

}  // namespace zulstat
