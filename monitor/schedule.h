// When to take the next sample, and when to try again after a failure. Plain arithmetic on moments that the caller
// gives.
#pragma once

#include <algorithm>
#include <chrono>

namespace monitor {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// How long to poll() at `now` to be back at `wake`: rounded up, at least 0, a day at most.
inline int pollTime(Clock::time_point wake, Clock::time_point now) {
    constexpr Milliseconds most = std::chrono::hours(24);
    const Milliseconds left = wake <= now         ? Milliseconds(0)
                              : wake > now + most ? most
                                                  : std::chrono::ceil<Milliseconds>(wake - now);
    return static_cast<int>(left.count());
}

// Ticks at start + n * interval. Those that pass meanwhile are skipped, so that a slow answer shifts no later tick.
class Cadence {
public:
    Cadence(Clock::time_point begin, Milliseconds step) : start(begin), interval(step) {
    }
    Clock::time_point after(Clock::time_point now) const {
        return start + ((now - start) / interval + 1) * interval;
    }

private:
    Clock::time_point start;
    Milliseconds interval;
};

// Pauses between attempts: 1 s, or the interval if it is shorter, then twice as long each time, up to 30 s.
class Backoff {
public:
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
