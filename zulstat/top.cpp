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
#include "interrupt.h"
#include "monitor/follower.h"
#include "options.h"
#include "report.h"
#include "screen.h"
#include "text.h"
#include "top_view.h"

namespace zulstat {

using namespace monitor;

namespace {

double seconds(Clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

// What the screen shows one Gateway each of.
struct Followed {
    Followed(const Options& options, const Target& target)
        : subject(options.subject(target)), follower(options.follower(target)) {
    }

    const Subject subject;
    Follower follower;
    std::optional<Failure> end;
    bool ended = false;
};

class Top {
public:
    explicit Top(const Options& given)
        : options(given),
          query(given.query()),
          view({.raw = given.raw, .named = !given.ids.empty(), .unicode = userHasUtf8(), .interval = given.interval}),
          screen(std::make_unique<Screen>(given.color)) {
        for (const Target& target : given.targets) {
            followed.emplace_back(given, target);
            TopGateway gateway;
            gateway.target = escapeForTerminal(targetText(target));
            // Each has its own: a map remembers the texts of one Gateway.
            gateway.tracks = Tracks(given.derived, given.mapper ? std::make_shared<Mapper>(*given.mapper) : nullptr);
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
                screen->show(view.draw(screen->rows(), screen->columns(), gateways, seconds(Clock::now()), wallTime));
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
    bool allEnded() const {
        return std::all_of(followed.begin(), followed.end(), [](const Followed& one) { return one.ended; });
    }

    // Returns whether there is something new.
    bool sample(std::size_t index) {
        bool any = false;
        TopGateway& gateway = gateways[index];
        Followed& one = followed[index];
        while (std::optional<Event> event = one.follower.step(Clock::now())) {
            any = true;
            switch (event->kind) {
            case Event::Kind::sample:
                filter(event->sample, options.globs);
                gateway.tracks.take(event->sample);
                gateway.protocol = escapeForTerminal(event->sample.protocol);
                gateway.sampled = true;
                gateway.lost.clear();
                wallTime = event->sample.wallTime;
                break;
            case Event::Kind::gap:
                if (event->firstGap) {
                    gateway.tracks.gap();
                }
                gateway.lost = failureText(*event->failure, one.subject);
                break;
            case Event::Kind::end:
                one.ended = true;
                one.end = std::move(event->failure);
                gateway.lost = one.end ? failureText(*one.end, one.subject) : gateway.lost;
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
            wake = std::min(wake, one.follower.nextWake());
            watched.push_back({one.follower.descriptor(), POLLIN, 0});
        }
        const int ready = poll(watched.data(), watched.size(), pollTime(wake, now));
        hungUp = ready > 0 && (watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }

    void press(int key) {
        const double interval = view.interval;
        view.press(key, gateways);
        for (Followed& one : followed) {
            if (view.interval != interval) {
                one.follower.setInterval(Milliseconds(static_cast<long>(view.interval * 1000)), Clock::now());
            }
            one.follower.pause(view.paused);
        }
    }

    // Nothing while all is well.
    std::string state(std::size_t index) const {
        const TopGateway& gateway = gateways[index];
        const Followed& one = followed[index];
        const double waited = std::chrono::duration<double>(Clock::now() - one.follower.began()).count();
        if (!gateway.lost.empty()) {
            const double left = std::chrono::duration<double>(one.follower.nextAttempt() - Clock::now()).count();
            return one.ended     ? gateway.lost
                   : view.paused ? "no connection, last values: " + gateway.lost
                   : one.follower.busy()
                       ? "trying again: " + gateway.lost
                       : fmt::format("next attempt in {:.0f} s: {}", std::max(left, 0.0), gateway.lost);
        }
        if (one.follower.busy() && (waited >= 1 || !gateway.sampled)) {
            return fmt::format("waiting {:.0f} s: {}", waited,
                               escapeForTerminal(describeWait(one.follower.phase(), query)));
        }
        return {};
    }

    const Options& options;
    const Query query;
    std::deque<Followed> followed;
    std::vector<TopGateway> gateways;
    TopView view;
    std::unique_ptr<Screen> screen;
    double wallTime = 0;           // of the last sample
    Clock::time_point nextSecond;  // when the screen is drawn again although nothing came: it has times that pass
    bool hungUp = false;
};

}  // namespace

int runTop(const Options& options) {
    options.refuseTraceOnScreen();
    return Top(options).run();
}

}  // namespace zulstat
