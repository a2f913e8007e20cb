#include "axis.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

namespace zulstat {

namespace {

// Nothing for what the C library has no calendar for.
std::tm calendar(double wallTime) {
    const auto whole = static_cast<std::time_t>(std::clamp(std::floor(wallTime), -6e10, 3e11));
    std::tm fields{};
    localtime_r(&whole, &fields);
    return fields;
}

constexpr double DAY = 86400;

std::string tickLabel(const std::tm& fields, double step, double span) {
    const bool midnight = fields.tm_hour == 0 && fields.tm_min == 0 && fields.tm_sec == 0;
    if (step >= DAY || (midnight && span > DAY)) {
        return fmt::format("{} {:%b}", fields.tm_mday, fields);
    }
    return step >= 60 ? fmt::format("{:%H:%M}", fields) : fmt::format("{:%H:%M:%S}", fields);
}

double timeStep(double least) {
    constexpr std::array<double, 21> steps = {1,    2,    5,    10,    15,    30,    60,  120,     300,     600,    900,
                                              1800, 3600, 7200, 10800, 21600, 43200, DAY, 2 * DAY, 3 * DAY, 7 * DAY};
    const auto* const step = std::lower_bound(steps.begin(), steps.end(), least);
    return step != steps.end() ? *step : std::ceil(least / (7 * DAY)) * 7 * DAY;
}

void dropRepeated(std::vector<Tick>& ticks) {
    std::string former;
    for (Tick& tick : ticks) {
        if (tick.label == former) {
            tick.label.clear();
        } else {
            former = tick.label;
        }
    }
}

}  // namespace

double Axis::place(double value) const {
    // Halves, where the whole is more than a double holds.
    return std::isfinite(high - low) ? (value - low) / (high - low) : (value / 2 - low / 2) / (high / 2 - low / 2);
}

Axis valueAxis(double smallest, double largest, Unit unit, std::size_t steps) {
    constexpr double wholeFromZero = 0.6;  // a smallest of this part of the largest does not need the zero
    Axis axis;
    if (!std::isfinite(smallest) || !std::isfinite(largest)) {
        return axis;
    }
    if (smallest > 0 && smallest < wholeFromZero * largest) {
        smallest = 0;
    } else if (largest < 0 && largest > wholeFromZero * smallest) {
        largest = 0;
    }
    if (smallest == largest) {
        const double room = smallest == 0 ? 1 : std::abs(smallest) / 10;
        largest += room;
        smallest -= smallest == 0 ? 0 : room;
    }
    const double size = std::max(std::abs(smallest), std::abs(largest));
    const double step = roundStep(largest - smallest, steps, size, unit);
    const double first = std::floor(smallest / step + 1e-9);
    const double last = std::ceil(largest / step - 1e-9);
    axis.low = first * step;
    axis.high = last * step;
    if (!(axis.high > axis.low) || !std::isfinite(axis.high - axis.low) || last - first > 100) {
        axis.low = smallest;  // numbers at the end of what a double can tell apart
        axis.high = largest > smallest ? largest : std::nextafter(smallest, INFINITY);
        axis.ticks = {{axis.low, shortFigure(axis.low)}, {axis.high, shortFigure(axis.high)}};
        return axis;
    }
    for (double index = first; index <= last; ++index) {
        axis.ticks.push_back({index * step, axisFigure(index * step, step, size, unit)});
    }
    dropRepeated(axis.ticks);
    return axis;
}

Axis timeAxis(double from, double to, std::size_t most) {
    Axis axis{from, to > from ? to : from + 1, {}};
    const double span = axis.high - axis.low;
    const double step = timeStep(span / static_cast<double>(std::max<std::size_t>(most, 1)));
    const std::tm begin = calendar(from);
    const auto offset = static_cast<double>(begin.tm_gmtoff);
    for (double at = std::ceil((from + offset) / step) * step - offset; at <= axis.high && axis.ticks.size() <= most;
         at += step) {
        axis.ticks.push_back({at, tickLabel(calendar(at), step, span)});
    }
    dropRepeated(axis.ticks);
    return axis;
}

std::string localTime(double wallTime) {
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", calendar(wallTime));
}

std::string zoneName(double wallTime) {
    const char* const name = calendar(wallTime).tm_zone;
    return name == nullptr ? "" : name;
}

}  // namespace zulstat
