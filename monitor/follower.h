// One sample after the other from one Gateway: cadence, gaps, and attempts to connect again.
#pragma once

#include <cstdint>
#include <optional>

#include "collector.h"
#include "failure.h"
#include "sample.h"
#include "sampler.h"
#include "schedule.h"

namespace monitor {

struct FollowerOptions {
    CollectorOptions collector;
    Query query;
    Milliseconds interval = Milliseconds(1000);  // between samples
    Milliseconds timeout = Milliseconds(5000);   // for each, opening the connection included
    std::optional<long> count;                   // it ends after so many samples; 1: one sample, once
    bool reconnect = true;                       // false: the first failure is the end
    bool persists = false;                       // no failure is the end, whether or not there was a sample
};

struct Event {
    enum class Kind : std::uint8_t {
        sample,  // one more
        gap,     // an attempt failed, and another follows
        end,     // there will be no more
    };
    Kind kind = Kind::end;
    Sample sample;                        // sample
    std::optional<Clock::duration> lost;  // sample: how long there was none, where gaps came before it
    std::optional<Failure> failure;       // gap and end: why; nothing at the end where the count was reached
    bool firstGap = false;                // gap: there was a sample before it
    Milliseconds retryIn{0};              // gap: until the next attempt
};

// Takes a sample at once and then at each tick of the interval. Where the first one cannot be had, that is the end;
// later it tries again, with pauses that grow (Backoff), unless the failure cannot pass. Options say otherwise. After
// the last sample it closes the connection; a Gateway that does not answer that is no failure.
//
// Nothing waits, and time is what the caller says. Use it from one thread, which must outlive it (collector.h).
//
//     for (;;) {
//         while (std::optional<Event> event = follower.step(Clock::now())) {
//             ...
//         }
//         poll({..., {follower.descriptor(), POLLIN}}, pollTime(follower.nextWake(), Clock::now()));
//     }
class Follower {
public:
    explicit Follower(FollowerOptions options);

    // What has come of it by `now`. Call it again until it returns nothing, then when descriptor() is readable or
    // nextWake() has come. Moments never go back. Ticks that passed before the call that follows a sample are skipped.
    std::optional<Event> step(Clock::time_point now);
    Clock::time_point nextWake() const;
    int descriptor() const;  // -1 while there is nothing to wait for but time; poll() passes over it

    // No query begins while it pauses; one in progress goes on.
    void pause(bool wanted);
    // Counts ticks from `now` on. A pause between attempts ends when it would have.
    void setInterval(Milliseconds interval, Clock::time_point now);

    // For a display.
    bool busy() const;                      // an answer is awaited
    Phase phase() const;                    // what that is at
    Clock::time_point began() const;        // when it began
    Clock::time_point nextAttempt() const;  // when the next query is due, while none is in progress

private:
    Event taken(Sample sample, Clock::time_point now);
    Event failed(Failure failure, Clock::time_point now);
    Event end(std::optional<Failure> failure);
    bool complete() const;

    FollowerOptions settings;
    Sampler sampler;
    std::optional<Cadence> cadence;  // from the first step on
    Backoff backoff;
    Clock::time_point due = Clock::time_point::min();
    Clock::time_point queryBegan;
    std::optional<Clock::time_point> lostSince;
    long samples = 0;
    bool tickWanted = false;  // the next step looks for the next tick
    bool paused = false;
    bool closing = false;
    bool ended = false;
};

}  // namespace monitor
