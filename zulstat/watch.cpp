// zulstat watch.
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "interrupt.h"
#include "monitor/follower.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"
#include "watch_display.h"

namespace zulstat {

using namespace monitor;

namespace {

class Watch {
public:
    explicit Watch(const Options& given)
        : options(given),
          subject(given.subject()),
          query(given.query()),
          display(makeWatchDisplay(given)),
          follower(given.follower()) {
    }

    int run() {
        const int result = watch();
        if (incomplete) {
            reportSample(*incomplete, subject);
        }
        return result;
    }

private:
    int watch() {
        for (;;) {
            while (std::optional<Event> event = follower.step(Clock::now())) {
                switch (event->kind) {
                case Event::Kind::sample:
                    take(*event);
                    break;
                case Event::Kind::gap:
                    lose(*event);
                    break;
                case Event::Kind::end:
                    return event->failure ? reportFailure(*event->failure, query, subject) : exitCode;
                }
            }
            const bool quiet = wait();
            if (interrupted()) {
                return options.count && shown >= *options.count ? exitCode : exitOk;
            }
            if (quiet) {
                display->refresh(waiting());
            }
        }
    }

    // Returns whether nothing came for a while.
    bool wait() const {
        const Clock::time_point now = Clock::now();
        const Clock::time_point wake = std::min(follower.nextWake(), now + std::chrono::milliseconds(200));
        std::array<pollfd, 2> watched = {{{interruptDescriptor(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}}};
        return poll(watched.data(), watched.size(), pollTime(wake, now)) == 0;
    }

    // What an answer waits for, once that takes long.
    std::string waiting() const {
        const double waited = std::chrono::duration<double>(Clock::now() - follower.began()).count();
        return follower.busy() && waited >= 1 ? fmt::format("waiting {:.0f} s: {}", waited,
                                                            escapeForTerminal(describeWait(follower.phase(), query)))
                                              : "";
    }

    void take(Event& event) {
        Sample& sample = event.sample;
        filter(sample, options.globs);
        if (event.lost && !display->showsState()) {
            note(subject,
                 fmt::format("connected to {} again after {:.1f} s", escapeForTerminal(targetText(options.target)),
                             std::chrono::duration<double>(*event.lost).count()));
        }
        display->show(sample);
        if (!display->showsState()) {
            detail(subject, sampleDetails(sample));
        }
        // Said once. A screen shows it in the table instead, and it is said when the screen ends.
        if ((failedElements(sample) > 0 || sample.items.empty()) && exitCode == exitOk) {
            exitCode = display->showsState() ? exitPartly : reportSample(sample, subject);
            incomplete = display->showsState() ? std::optional(sample) : std::nullopt;
        }
        ++shown;
    }

    void lose(const Event& event) {
        if (event.firstGap && !display->showsState()) {
            complain(failureText(*event.failure, subject) + "; trying again");
        }
        display->gap(*event.failure, event.firstGap, event.retryIn);
    }

    const Options& options;
    const Subject subject;
    const Query query;
    std::unique_ptr<WatchDisplay> display;
    Follower follower;
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
