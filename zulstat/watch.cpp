// zulstat watch.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "interrupt.h"
#include "monitor/follower.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"
#include "waiting.h"
#include "watch_display.h"

namespace zulstat {

using namespace monitor;

namespace {

// What is watched, one Gateway each.
struct Watched {
    Watched(const Options& options, const Target& target)
        : subject(options.subject(target)), follower(options.follower(target)) {
    }

    const Subject subject;
    Follower follower;
    std::optional<Sample> incomplete;  // to be reported at the end
    std::optional<Failure> failure;    // the end, to be reported then
    long shown = 0;
    int exitCode = exitOk;
    bool ended = false;
};

class Watch {
public:
    explicit Watch(const Options& given) : options(given), query(given.query()), display(makeWatchDisplay(given)) {
        for (const Target& target : options.targets) {
            all.emplace_back(options, target);
        }
    }

    int run() {
        const int result = watch();
        for (const Watched& one : all) {
            if (one.incomplete) {
                reportSample(*one.incomplete, one.subject);
            }
            if (one.failure) {
                reportFailure(*one.failure, query, one.subject);
            }
        }
        return result;
    }

private:
    int watch() {
        for (;;) {
            for (std::size_t index = 0; index < all.size(); ++index) {
                step(index);
            }
            if (std::all_of(all.begin(), all.end(), [](const Watched& one) { return one.ended; })) {
                return worst();
            }
            const bool quiet = wait();
            if (interrupted()) {
                return worst();
            }
            if (quiet) {
                display->refresh(waiting());
            }
        }
    }

    void step(std::size_t index) {
        Watched& one = all[index];
        while (std::optional<Event> event = one.follower.step(Clock::now())) {
            switch (event->kind) {
            case Event::Kind::sample:
                take(index, *event);
                break;
            case Event::Kind::gap:
                lose(index, *event);
                break;
            case Event::Kind::end:
                end(index, *event);
                break;
            }
        }
    }

    // An interrupt ends a series in order, also one that has no end of its own.
    int worst() const {
        int exitCode = exitOk;
        for (const Watched& one : all) {
            const bool complete = one.ended || (options.count && one.shown >= *options.count);
            exitCode = std::max(exitCode, complete ? one.exitCode : exitOk);
        }
        return exitCode;
    }

    // Returns whether nothing came for a while.
    bool wait() const {
        Clock::time_point wake = Clock::now() + std::chrono::milliseconds(200);
        std::vector<int> descriptors;
        for (const Watched& one : all) {
            wake = std::min(wake, one.follower.nextWake());
            descriptors.push_back(one.follower.descriptor());
        }
        return !waitForAny(descriptors, wake);
    }

    // What the answers wait for, once that takes long.
    std::vector<std::string> waiting() const {
        std::vector<std::string> texts;
        for (const Watched& one : all) {
            const double waited = std::chrono::duration<double>(Clock::now() - one.follower.began()).count();
            texts.push_back(one.follower.busy() && waited >= 1
                                ? fmt::format("waiting {:.0f} s: {}", waited,
                                              escapeForTerminal(describeWait(one.follower.phase(), query)))
                                : "");
        }
        return texts;
    }

    void take(std::size_t index, Event& event) {
        Watched& one = all[index];
        Sample& sample = event.sample;
        filter(sample, options.globs);
        if (event.lost && !display->showsState()) {
            note(one.subject,
                 fmt::format("connected to {} again after {:.1f} s", escapeForTerminal(targetText(one.subject.target)),
                             std::chrono::duration<double>(*event.lost).count()));
        }
        display->show(index, sample);
        if (!display->showsState()) {
            detail(one.subject, sampleDetails(sample));
        }
        // Said once. A screen shows it in the table instead, and it is said when the screen ends.
        if ((failedElements(sample) > 0 || sample.items.empty()) && one.exitCode == exitOk) {
            one.exitCode = display->showsState() ? exitPartly : reportSample(sample, one.subject);
            one.incomplete = display->showsState() ? std::optional(sample) : std::nullopt;
        }
        ++one.shown;
    }

    void lose(std::size_t index, const Event& event) {
        if (event.firstGap && !display->showsState()) {
            complain(failureText(*event.failure, all[index].subject) + "; trying again");
        }
        display->gap(index, *event.failure, event.firstGap, event.retryIn);
    }

    void end(std::size_t index, const Event& event) {
        Watched& one = all[index];
        one.ended = true;
        if (!event.failure) {
            return;
        }
        one.exitCode = exitCodeFor(*event.failure);
        if (options.several() && display->showsState()) {
            display->end(index, *event.failure);
            one.failure = event.failure;
        } else {
            reportFailure(*event.failure, query, one.subject);
        }
    }

    const Options& options;
    const Query query;
    std::unique_ptr<WatchDisplay> display;
    std::deque<Watched> all;
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
