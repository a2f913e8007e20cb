// zulstat top.
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
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

class Top {
public:
    explicit Top(const Options& given)
        : options(given),
          subject(given.subject()),
          query(given.query()),
          follower(given.follower()),
          view({.raw = given.raw, .named = !given.ids.empty(), .unicode = userHasUtf8(), .interval = given.interval}),
          screen(std::make_unique<Screen>(given.color)) {
        TopGateway gateway;
        gateway.target = escapeForTerminal(targetText(given.target));
        gateway.tracks = Tracks(given.derived, given.mapper);
        gateways.push_back(std::move(gateway));
    }

    int run() {
        std::optional<Failure> end;
        while (!view.leaving && !hungUp && !interrupted() && !end) {
            end = sample();
            gateways.front().state = state();
            screen->show(view.draw(screen->rows(), screen->columns(), gateways, seconds(Clock::now()), wallTime));
            wait();
            while (const std::optional<int> pressed = screen->key()) {
                press(*pressed);
            }
        }
        screen.reset();
        return end ? reportFailure(*end, query, subject) : exitOk;
    }

private:
    // Returns the failure that ends it all.
    std::optional<Failure> sample() {
        TopGateway& gateway = gateways.front();
        while (std::optional<Event> event = follower.step(Clock::now())) {
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
                gateway.lost = failureText(*event->failure, subject);
                break;
            case Event::Kind::end:
                return event->failure;
            }
        }
        return std::nullopt;
    }

    // Until a key, an answer, a signal or the next moment at which something is to be done.
    void wait() {
        const Clock::time_point now = Clock::now();
        const Clock::time_point wake =
            std::min(follower.nextWake(), now + std::chrono::seconds(1));  // the state counts
        std::array<pollfd, 3> watched = {
            {{STDIN_FILENO, POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), pollTime(wake, now));
        hungUp = ready > 0 && (watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }

    void press(int key) {
        const double interval = view.interval;
        view.press(key, gateways);
        if (view.interval != interval) {
            follower.setInterval(Milliseconds(static_cast<long>(view.interval * 1000)), Clock::now());
        }
        follower.pause(view.paused);
    }

    // Nothing while all is well.
    std::string state() const {
        const TopGateway& gateway = gateways.front();
        const double waited = std::chrono::duration<double>(Clock::now() - follower.began()).count();
        if (!gateway.lost.empty()) {
            const double left = std::chrono::duration<double>(follower.nextAttempt() - Clock::now()).count();
            return view.paused       ? "no connection, last values: " + gateway.lost
                   : follower.busy() ? "trying again: " + gateway.lost
                                     : fmt::format("next attempt in {:.0f} s: {}", std::max(left, 0.0), gateway.lost);
        }
        if (follower.busy() && (waited >= 1 || !gateway.sampled)) {
            return fmt::format("waiting {:.0f} s: {}", waited,
                               escapeForTerminal(describeWait(follower.phase(), query)));
        }
        return {};
    }

    const Options& options;
    const Subject subject;
    const Query query;
    Follower follower;
    std::vector<TopGateway> gateways;
    TopView view;
    std::unique_ptr<Screen> screen;
    double wallTime = 0;  // of the last sample
    bool hungUp = false;
};

}  // namespace

int runTop(const Options& options) {
    options.refuseTraceOnScreen();
    return Top(options).run();
}

}  // namespace zulstat
