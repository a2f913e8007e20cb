// zulstat top.
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "charset.h"
#include "commands.h"
#include "feed.h"
#include "interrupt.h"
#include "options.h"
#include "playback.h"
#include "report.h"
#include "screen.h"
#include "text.h"
#include "top_view.h"

namespace zulstat {

using namespace monitor;

namespace {

// What the screen shows one Gateway each of.
struct Followed {
    Followed(const Options& options, const Target& target, std::unique_ptr<Feed> series)
        : subject(options.subject(target)), feed(std::move(series)) {
    }

    const Subject subject;
    std::unique_ptr<Feed> feed;
    std::optional<Failure> end;
    bool ended = false;
};

class Top {
public:
    // `recording` where the feeds are of one.
    Top(const Options& given, std::vector<std::unique_ptr<Feed>> feeds, Playback* recording)
        : options(given),
          query(given.query()),
          playback(recording),
          view({.raw = given.raw,
                .named = !given.ids.empty(),
                .unicode = userHasUtf8(),
                .interval = given.interval,
                .speed = recording != nullptr ? std::optional(recording->pace()) : std::nullopt}),
          screen(std::make_unique<Screen>(given.color)) {
        for (std::size_t index = 0; index < given.targets.size(); ++index) {
            followed.emplace_back(given, given.targets[index], std::move(feeds[index]));
            TopGateway gateway;
            gateway.target = escapeForTerminal(targetText(given.targets[index]));
            gateway.tracks = newTracks();
            gateways.push_back(std::move(gateway));
        }
    }

    int run() {
        while (!view.leaving && !hungUp && !interrupted() && !allEnded()) {
            // An answer comes in many pieces; most of them change nothing.
            bool changed = Clock::now() >= nextSecond;
            for (std::size_t index = 0; index < followed.size(); ++index) {
                changed = sample(index) || changed;
                std::string text = state(index);
                changed = changed || text != gateways[index].state;
                gateways[index].state = std::move(text);
            }
            while (const std::optional<int> pressed = screen->key()) {
                press(*pressed);
                changed = true;
            }
            if (changed) {
                view.atEnd = playback != nullptr && playback->atEnd();
                const double now = playback != nullptr ? clock : clockSeconds(CLOCK_MONOTONIC);
                screen->show(view.draw(screen->rows(), screen->columns(), gateways, now, wallTime));
                nextSecond = Clock::now() + std::chrono::seconds(1);
            }
            wait();
        }
        screen.reset();
        int exitCode = exitOk;
        for (const Followed& one : followed) {
            exitCode = one.end ? std::max(exitCode, reportFailure(*one.end, query, one.subject)) : exitCode;
        }
        return exitCode;
    }

private:
    // Each has its own: a map remembers the texts of one Gateway.
    Tracks newTracks() const {
        return Tracks(options.derived, options.mapper ? std::make_shared<Mapper>(*options.mapper) : nullptr);
    }

    bool allEnded() const {
        return std::all_of(followed.begin(), followed.end(), [](const Followed& one) { return one.ended; });
    }

    // Returns whether there is something new.
    bool sample(std::size_t index) {
        bool any = false;
        TopGateway& gateway = gateways[index];
        Followed& one = followed[index];
        constexpr int mostAtOnce = 5000;  // so that keys are seen
        for (int count = 0; count < mostAtOnce; ++count) {
            std::optional<FeedEvent> event = one.feed->step(Clock::now());
            if (!event) {
                break;
            }
            any = true;
            switch (event->kind) {
            case Event::Kind::sample:
                filter(event->sample, options.globs);
                event->sample.monotonicTime = event->clock;
                gateway.tracks.take(event->sample);
                gateway.protocol = escapeForTerminal(event->sample.protocol);
                gateway.sampled = true;
                gateway.lost.clear();
                wallTime = event->wallTime;
                clock = event->clock;
                break;
            case Event::Kind::gap:
                if (event->firstGap) {
                    gateway.tracks.gap();
                }
                gateway.lost = event->text;
                wallTime = playback != nullptr ? event->wallTime : wallTime;
                clock = event->clock;
                break;
            case Event::Kind::end:
                one.ended = true;
                one.end = std::move(event->failure);
                gateway.lost = one.end ? event->text : gateway.lost;
                break;
            }
        }
        return any;
    }

    // Until a key, an answer, a signal or the next moment at which something is to be done.
    void wait() {
        const Clock::time_point now = Clock::now();
        Clock::time_point wake = nextSecond;
        std::vector<pollfd> watched = {{STDIN_FILENO, POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}};
        for (const Followed& one : followed) {
            wake = std::min(wake, one.feed->nextWake());
            watched.push_back({one.feed->descriptor(), POLLIN, 0});
        }
        const int ready = poll(watched.data(), watched.size(), pollTime(wake, now));
        hungUp = ready > 0 && (watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }

    void press(int key) {
        const double interval = view.interval;
        const std::optional<double> speed = view.speed;
        const bool paused = view.paused;
        view.press(key, gateways);
        for (Followed& one : followed) {
            if (view.interval != interval) {
                one.feed->setInterval(Milliseconds(static_cast<long>(view.interval * 1000)), Clock::now());
            }
            one.feed->pause(view.paused);
        }
        if (playback == nullptr) {
            return;
        }
        if (view.speed != speed) {
            playback->setPace(*view.speed);
        }
        if (view.paused != paused) {
            playback->pause(view.paused);
        }
        if (std::exchange(view.stepped, false)) {
            playback->stepOnce();
        }
        if (const double moved = std::exchange(view.moved, 0); moved != 0) {
            playback->move(moved);
            for (TopGateway& gateway : gateways) {
                gateway.tracks = newTracks();
                gateway.lost.clear();
                gateway.sampled = false;
            }
        }
    }

    // Nothing while all is well.
    std::string state(std::size_t index) const {
        const TopGateway& gateway = gateways[index];
        const Followed& one = followed[index];
        if (!gateway.lost.empty()) {
            if (one.ended) {
                return gateway.lost;
            }
            const std::string hope = playback != nullptr ? "no sample"
                                     : view.paused       ? "no connection, last values"
                                                         : one.feed->hope(Clock::now());
            return hope + ": " + gateway.lost;
        }
        return one.feed->waiting(Clock::now(), gateway.sampled ? 1 : 0);
    }

    const Options& options;
    const Query query;
    Playback* const playback;
    std::deque<Followed> followed;
    std::vector<TopGateway> gateways;
    TopView view;
    std::unique_ptr<Screen> screen;
    double wallTime = 0;           // of the last sample
    double clock = 0;              // of a recording's last sample or gap
    Clock::time_point nextSecond;  // when the screen is drawn again although nothing came: it has times that pass
    bool hungUp = false;
};

}  // namespace

int runTop(const Options& options) {
    options.refuseTraceOnScreen();
    if (!options.from.empty()) {
        Playback playback(options, options.speed.value_or(1));
        playback.stay();
        return Top(playback.options(), playback.feeds(), &playback).run();
    }
    return Top(options, gatewayFeeds(options), nullptr).run();
}

}  // namespace zulstat
