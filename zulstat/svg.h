// The drawings of a report, as SVG: lines of numbers and bands of states on a common time axis. Coordinates are those
// of a plot's area; all of them are the same width.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "axis.h"
#include "timeline.h"

namespace zulstat {

inline constexpr std::size_t PLOT_WIDTH = 264;  // columns, each one unit wide
inline constexpr std::size_t PLOT_HEIGHT = 84;
inline constexpr std::size_t PLOT_LEFT = 50;  // room for labels
inline constexpr std::size_t PLOT_TOP = 8;
inline constexpr std::size_t PLOT_RIGHT = 10;
inline constexpr std::size_t PLOT_BOTTOM = 18;
inline constexpr std::size_t BAND_HEIGHT = 14;  // of states, and the space behind it
inline constexpr std::size_t BAND_STEP = 18;

// What all plots of a page have in common.
struct PlotFrame {
    double from = 0;
    double to = 1;
    double width = 1;                   // of the buckets, seconds
    std::vector<std::string> gateways;  // names, shown; where there are several they stand before values
};

// For a <defs> that the plots refer to: the marks and labels of the time axis, and the gaps.
std::string sharedParts(const PlotFrame& frame, std::span<const Gap> gaps);

// A plot of one statistic: one line for each Gateway, nothing where it has none.
std::string linePlot(const PlotFrame& frame, std::span<const Timeline* const> lines, bool rates);
// The same for states: one band for each Gateway. `classes` says for each of a timeline's states which colour it has.
struct Band {
    const Timeline* line = nullptr;
    std::vector<std::size_t> colors;  // of its states, and of all others
};
std::string bandPlot(const PlotFrame& frame, std::span<const Band> bands);

}  // namespace zulstat
