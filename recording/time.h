// Moments of a recording, as people write them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace recording {

inline constexpr double LATEST_TIME = 1e11;  // seconds since 1970, as calendars of four digits have them

// What was expected in place of a word.
struct BadTime : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A word before the recording is known.
struct TimeWord {
    enum class Kind : std::uint8_t {
        moment,     // seconds since 1970
        ofDay,      // seconds of the local day on which the recording ends
        beforeEnd,  // seconds before its end
    };
    Kind kind = Kind::moment;
    double seconds = 0;
};

// Reads 2026-11-21T03:12:00Z, 2026-11-21 03:12[:00] (local time), 03:12[:00] (local, of the recording's last day), -10m
// (before its end; s, m, h or d) and @1732152000 (seconds since 1970). Seconds may have a fraction. Throws BadTime.
TimeWord parseTime(std::string_view word);

// Seconds since 1970, for a recording that ends at `end`.
double resolveTime(const TimeWord& time, double end);

}  // namespace recording
