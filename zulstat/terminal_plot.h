// Plots as lines of text: dots of braille where the user's characters have them, ASCII otherwise.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "timeline.h"

namespace zulstat {

struct PlotSize {
    std::size_t columns = 80;
    std::size_t rows = 20;  // title and axes included
    bool braille = false;
};

// A statistic between two wall times, its rates where those are to be seen of it. Each line fits into the columns; a
// text that is no state has a line for its last value only. `gateway` stands in the title unless it is empty.
std::vector<std::string> plotLines(const Timeline& line, double width, double from, double to,
                                   const std::string& gateway, const PlotSize& size);

}  // namespace zulstat
