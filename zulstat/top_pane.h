// All of one statistic, at the bottom of top.
#pragma once

#include <cstddef>

#include "frame.h"
#include "top_columns.h"
#include "track.h"

namespace zulstat {

inline constexpr std::size_t PANE_ROWS = 10;

// Draws it into the rows from `top` up to the last but one of the frame.
void drawPane(Frame& frame, const TopTable& table, const Track& track, std::size_t gateway, std::size_t top);

}  // namespace zulstat
