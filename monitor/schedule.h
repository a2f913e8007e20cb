// When to take the next sample, and when to try again after a failure.
#pragma once

#include <algorithm>
#include <chrono>

namespace monitor {

// Ticks at start + n * interval. Those that pass meanwhile are skipped, so that a slow answer shifts no later tick.
class Cadence {
public:
    using Clock = std::chrono::steady_clock;

    Cadence(Clock::time_point begin, std::chrono::milliseconds step) : start(begin), interval(step) {
    }
    Clock::time_point after(Clock::time_point now) const {
        return start + ((now - start) / interval + 1) * interval;
    }

private:
    Clock::time_point start;
    std::chrono::milliseconds interval;
};

// Pauses between attempts: 1 s, or the interval if it is shorter, then twice as long each time, up to 30 s.
class Backoff {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit Backoff(Milliseconds interval) : first(std::min(interval, Milliseconds(1000))), pause(first) {
    }
    Milliseconds next() {
        const Milliseconds now = pause;
        pause = std::min(pause * 2, Milliseconds(30000));
        return now;
    }
    void reset() {
        pause = first;
    }

private:
    Milliseconds first;
    Milliseconds pause;
};

}  // namespace monitor
