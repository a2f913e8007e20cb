// zulstat watch.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "format.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "monitor/schedule.h"
#include "report.h"
#include "text.h"
#include "watch_display.h"

namespace zulstat {

using namespace monitor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds refreshTime(200);

class Watch {
public:
    explicit Watch(const Options& given)
        : options(given),
          query(given.query()),
          display(makeWatchDisplay(given)),
          collector(given.collector()),
          cadence(Clock::now(), given.intervalMs()),
          backoff(given.intervalMs()) {
    }

    int run() {
        const int result = watch();
        if (incomplete) {
            reportSample(*incomplete, options.subject());
        }
        return result;
    }

private:
    int watch() {
        for (;;) {
            Outcome outcome = collect();
            if (!outcome.failure) {
                take(outcome.sample);
                if (options.count && shown >= *options.count) {
                    collector.close(options.timeoutMs());
                    return exitCode;
                }
            } else if (outcome.failure->kind == FailureKind::interrupted) {
                return exitOk;
            } else if (shown == 0 || !options.reconnect || !mayPass(*outcome.failure)) {
                return reportFailure(*outcome.failure, query, options.subject());
            } else {
                lose(*outcome.failure);
            }
            if (!sleepUntil(wakeUp)) {
                return exitOk;
            }
        }
    }

    Outcome collect() {
        const Clock::time_point began = Clock::now();
        collector.begin(query, options.timeoutMs());
        for (;;) {
            if (std::optional<Outcome> outcome = collector.waitFor(refreshTime)) {
                return *std::move(outcome);
            }
            const double waited = std::chrono::duration<double>(Clock::now() - began).count();
            display->refresh(waited < 1 ? ""
                                        : fmt::format("waiting {:.0f} s: {}", waited,
                                                      escapeForTerminal(describeWait(collector.phase(), query))));
        }
    }

    bool sleepUntil(Clock::time_point moment) {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now());
            if (!sleepUnlessInterrupted(std::min(left, refreshTime))) {
                return false;
            }
            if (left <= refreshTime) {
                return true;
            }
            display->refresh("");
        }
    }

    void take(Sample& sample) {
        filter(sample, options.globs);
        if (lostSince && !display->showsState()) {
            note(options.subject(),
                 fmt::format("connected to {} again after {:.1f} s", escapeForTerminal(targetText(options.target)),
                             std::chrono::duration<double>(Clock::now() - *lostSince).count()));
        }
        lostSince.reset();
        backoff.reset();
        display->show(sample);
        if (!display->showsState()) {
            detail(options.subject(), sampleDetails(sample));
        }
        // Said once; on a terminal seen in the table, and said when that is left.
        if ((failedElements(sample) > 0 || itemCount(sample) == 0) && exitCode == exitOk) {
            exitCode = display->showsState() ? exitPartly : reportSample(sample, options.subject());
            incomplete = display->showsState() ? std::optional(sample) : std::nullopt;
        }
        ++shown;
        wakeUp = cadence.after(Clock::now());
    }

    void lose(const Failure& failure) {
        const bool first = !lostSince;
        const auto pause = backoff.next();
        if (first) {
            lostSince = Clock::now();
        }
        if (first && !display->showsState()) {
            complain(failureText(failure, options.subject()) + "; trying again");
        }
        display->gap(failure, first, pause);
        wakeUp = Clock::now() + pause;
    }

    const Options& options;
    const Query query;
    std::unique_ptr<WatchDisplay> display;
    Collector collector;
    Cadence cadence;
    Backoff backoff;
    std::optional<Clock::time_point> lostSince;
    Clock::time_point wakeUp;
    std::optional<Sample> incomplete;
    long shown = 0;
    int exitCode = exitOk;
};

}  // namespace

int runWatch(const Options& options) {
    try {
        return Watch(options).run();
    } catch (const Interrupted&) {
        return exitOk;
    }
}

}  // namespace zulstat
