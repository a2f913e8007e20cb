// The columns of top, and how they share the width of the screen.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "frame.h"
#include "top_list.h"
#include "track.h"

namespace zulstat {

struct TopColumn {
    std::string_view title;
    std::string_view help;
    // What sorts the rows, the largest first; nothing for the Gateway's order.
    std::optional<double> (*number)(const Track& track);
};
std::span<const TopColumn> topColumns();

// How rows are drawn.
struct TopTable {
    std::vector<std::string> targets;  // shown names of the Gateways
    std::vector<const Tracks*> gateways;
    std::vector<bool> lost;  // by Gateway: whether what is shown is of before
    double now = 0;          // monotonic seconds
    bool raw = false;        // values as the Gateway sends them
    bool unicode = true;
    std::size_t valueWidth = 5;  // of numbers; grows only, so that columns stay where they are
};

// Draws the title row and the lines from `first` on into the rows from `top` up to `bottom`, exclusively. The line
// `selected` is under the cursor.
void drawTable(Frame& frame, TopTable& table, const TopOrder& order, std::span<const TopLine> lines, std::size_t top,
               std::size_t bottom, std::size_t first, std::size_t selected);

// One character for each point, spaces for gaps (NaN), from the least to the largest.
std::string sparkline(std::span<const double> points, bool unicode);
// The same over several rows, the uppermost first.
std::vector<std::string> graph(std::span<const double> points, std::size_t rows, bool unicode);
// "8-41/s": least and largest; empty where there are no numbers.
std::string rangeOf(std::span<const double> points, const Track& track);
// An average of a track, "12.5/s" of a counter, else in its unit.
std::string averageText(const Track& track, double average);
// What stands under VALUE and RATE.
std::string valueText(const Track& track, bool raw);
std::string rateColumn(const Track& track);
// "changed 12 s ago"
std::string changedText(const Track& track, double now);

}  // namespace zulstat
