// Axes of plots: where their ticks are, and what stands at them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "figures.h"

namespace zulstat {

struct Tick {
    double at = 0;
    std::string label;
};

struct Axis {
    double low = 0;
    double high = 1;
    std::vector<Tick> ticks;  // in ascending order; a label that the one before has already is empty

    // From 0 at the low end to 1 at the high one.
    double place(double value) const;
};

// For numbers from the smallest to the largest, with about so many steps. It begins at 0 where that costs little of it.
Axis valueAxis(double smallest, double largest, Unit unit, std::size_t steps);
// Round moments of the user's time zone between two wall times, at most so many: "03:12", "03:12:30", "21 Nov".
Axis timeAxis(double from, double to, std::size_t most);
// "2026-11-21 03:12:30" in the user's time zone, and what that is: "UTC", "CET".
std::string localTime(double wallTime);
std::string zoneName(double wallTime);

}  // namespace zulstat
