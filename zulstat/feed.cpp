#include "feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "monitor/codes.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

class GatewayFeed : public Feed {
public:
    GatewayFeed(const Options& options, const Target& target, bool persists)
        : subject(options.subject(target)),
          query(options.query()),
          follower(followerOptions(options, target, persists)) {
    }

    std::optional<FeedEvent> step(Clock::time_point now) override {
        std::optional<Event> came = follower.step(now);
        if (!came) {
            return std::nullopt;
        }
        FeedEvent event{*std::move(came)};
        const bool sample = event.kind == Event::Kind::sample;
        event.wallTime = sample ? event.sample.wallTime : clockSeconds(CLOCK_REALTIME);
        event.monotonicTime = sample ? event.sample.monotonicTime : clockSeconds(CLOCK_MONOTONIC);
        event.clock = event.monotonicTime;
        if (event.failure) {
            event.text = failureText(*event.failure, subject);
            event.rc = event.failure->rc < 0 ? event.failure->rc : RC_CONNECTION_LOST;
        }
        return event;
    }
    Clock::time_point nextWake() const override {
        return follower.nextWake();
    }
    int descriptor() const override {
        return follower.descriptor();
    }
    void pause(bool wanted) override {
        follower.pause(wanted);
    }
    void setInterval(Milliseconds interval, Clock::time_point now) override {
        follower.setInterval(interval, now);
    }
    std::string waiting(Clock::time_point now, double least) const override {
        const double waited = std::chrono::duration<double>(now - follower.began()).count();
        return follower.busy() && waited >= least
                   ? fmt::format("waiting {:.0f} s: {}", waited,
                                 escapeForTerminal(describeWait(follower.phase(), query)))
                   : "";
    }
    std::string hope(Clock::time_point now) const override {
        const double left = std::chrono::duration<double>(follower.nextAttempt() - now).count();
        return follower.busy() ? "trying again" : fmt::format("next attempt in {:.0f} s", std::max(left, 0.0));
    }

private:
    static FollowerOptions followerOptions(const Options& options, const Target& target, bool persists) {
        FollowerOptions wanted = options.follower(target);
        wanted.persists = persists;
        return wanted;
    }

    const Subject subject;
    const Query query;
    Follower follower;
};

}  // namespace

double clockSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::unique_ptr<Feed> gatewayFeed(const Options& options, const Target& target, bool persists) {
    return std::make_unique<GatewayFeed>(options, target, persists);
}

std::vector<std::unique_ptr<Feed>> gatewayFeeds(const Options& options, bool persists) {
    std::vector<std::unique_ptr<Feed>> feeds;
    for (const Target& target : options.targets) {
        feeds.push_back(gatewayFeed(options, target, persists));
    }
    return feeds;
}

}  // namespace zulstat
