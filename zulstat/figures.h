// Numbers as people read them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "monitor/number.h"

namespace zulstat {

// What a number counts, as the identifier's words tell: "daemon.memory.used.kb", "daemon.uptime.seconds".
enum class Unit : unsigned char { none, bytes, kilobytes, megabytes, milliseconds, seconds, uptime, percent };
Unit unitOf(std::string_view id);
// "KiB", "s"; empty for none.
std::string_view unitName(Unit unit);

// Three significant digits, with a letter of thousands behind a blank: "0.023", "12.5", "812", "2.55 M". Whole numbers
// below 100,000 stay whole.
std::string shortFigure(double value);
// In the unit: "365 MiB", "up 23 m", "12 ms", "9.24 %"; without one as shortFigure does.
std::string figure(const monitor::Number& number, Unit unit);
// A number per second, of a fixed width with the decimal point at a fixed place: "  12.5  /s", "   2.55k/s".
inline constexpr std::size_t RATE_WIDTH = 11;
std::string alignedRate(double perSecond);
// The same without "/s".
inline constexpr std::size_t AVERAGE_WIDTH = 9;
std::string alignedFigure(double value);
// From the least to the largest: "8-41", "1.2k-3.4k", "3.9-5.3 GiB".
std::string figureRange(double low, double high, Unit unit);

// A number of an axis whose ticks are a step apart, and the largest of which is so large: all have the same unit or
// letter, and the decimals that tell them apart.
std::string axisFigure(double value, double step, double largest, Unit unit);
// A round step for at most this many ticks over a span, in the unit; `largest` as above.
double roundStep(double span, std::size_t most, double largest, Unit unit);

// "12 s", "23 m", "5 h 10 m", "3 d 4 h".
std::string duration(double seconds);

}  // namespace zulstat
