// zulstat watch.
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "feed.h"
#include "options.h"
#include "output.h"
#include "playback.h"
#include "report.h"
#include "series.h"
#include "text.h"
#include "watch_display.h"

namespace zulstat {

using namespace monitor;

namespace {

class Watch : public Series {
public:
    Watch(const Options& given, std::vector<std::unique_ptr<Feed>> feeds)
        : Series(given, std::move(feeds)), query(given.query()), display(makeWatchDisplay(given)), laters(all.size()) {
    }

    int watch() {
        const int result = run();
        for (std::size_t index = 0; index < all.size(); ++index) {
            if (laters[index].incomplete) {
                reportSample(*laters[index].incomplete, all[index].subject);
            }
            if (laters[index].failure) {
                reportFailure(*laters[index].failure, query, all[index].subject);
            }
        }
        return result;
    }

private:
    // What is to be reported at the end.
    struct Later {
        std::optional<Sample> incomplete;
        std::optional<Failure> failure;
    };

    void take(std::size_t index, FeedEvent& event) override {
        Member& one = all[index];
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
            laters[index].incomplete = display->showsState() ? std::optional(sample) : std::nullopt;
        }
    }

    void lose(std::size_t index, const FeedEvent& event) override {
        if (event.firstGap && event.failure && !display->showsState()) {
            complain(event.text + "; trying again");
        }
        display->gap(index, event);
    }

    void end(std::size_t index, const FeedEvent& event) override {
        if (!event.failure) {
            return;
        }
        if (options.several() && display->showsState()) {
            display->end(index, event);
            laters[index].failure = event.failure;
        } else {
            reportFailure(*event.failure, query, all[index].subject);
        }
    }

    void idle() override {
        display->refresh(waiting());
    }

    const Query query;
    const std::unique_ptr<WatchDisplay> display;
    std::vector<Later> laters;
};

}  // namespace

int runWatch(const Options& options) {
    try {
        if (!options.from.empty()) {
            Playback playback(options, options.speed);
            return Watch(playback.options(), playback.feeds()).watch();
        }
        return Watch(options, gatewayFeeds(options)).watch();
    } catch (const Interrupted&) {
        return exitOk;
    }
}

}  // namespace zulstat
