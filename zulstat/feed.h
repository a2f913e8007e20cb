// Where a series of samples comes from: a Gateway, or a recording of one. Who shows it does not know which.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "monitor/follower.h"
#include "options.h"
#include "report.h"

namespace zulstat {

// What a series comes to. `failure` is a Gateway's alone.
struct FeedEvent : monitor::Event {
    std::string text{};        // gap, and end with a failure: why, shown as it is
    std::string reason{};      // gap of a recording: the text there
    std::int32_t rc = 0;       // gap: the code that tells it
    double wallTime = 0;       // sample and gap
    double monotonicTime = 0;  // gap: as it is written
    double clock = 0;          // sample and gap: seconds on a clock of the series that never goes back
};

class Feed {
public:
    Feed() = default;
    virtual ~Feed() = default;
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    // As a Follower has them.
    virtual std::optional<FeedEvent> step(monitor::Clock::time_point now) = 0;
    virtual monitor::Clock::time_point nextWake() const = 0;
    virtual int descriptor() const = 0;
    virtual void pause(bool wanted) = 0;
    virtual void setInterval(monitor::Milliseconds interval, monitor::Clock::time_point now) = 0;

    // What is awaited, once that takes `least` seconds: "waiting 2 s: ..."; empty for nothing.
    virtual std::string waiting(monitor::Clock::time_point now, double least) const = 0;
    // What comes after a gap: "next attempt in 3 s", "trying again"; empty for nothing.
    virtual std::string hope(monitor::Clock::time_point now) const = 0;
};

// Seconds, of CLOCK_REALTIME or CLOCK_MONOTONIC.
double clockSeconds(clockid_t clock);

// The series of a Gateway. Where `persists`, it goes on until it is interrupted, also where the first attempt fails or
// what failed cannot pass. The options outlive it.
std::unique_ptr<Feed> gatewayFeed(const Options& options, const monitor::Target& target, bool persists = false);
// Those of all targets of the options.
std::vector<std::unique_ptr<Feed>> gatewayFeeds(const Options& options, bool persists = false);

}  // namespace zulstat
