// The terminal behind standard output.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zulstat {

struct TerminalSize {
    std::size_t rows = 24;
    std::size_t columns = 80;
};
TerminalSize terminalSize();

// Whether standard output is a terminal that understands cursor movement.
bool canRedraw();

// The longest beginning of a text without control characters that fits into this many terminal columns.
std::string cutToWidth(std::string_view text, std::size_t columns);

// The same, with a mark (an ellipsis, where the user's locale has it) at the end of what was cut.
std::string cutWithMark(std::string_view text, std::size_t columns);

// The text in lines of at most this many columns, broken at blanks where it can be.
std::vector<std::string> wrapToWidth(std::string_view text, std::size_t columns);

// 13:05:01, in the user's time zone.
std::string clockTime(double wallTime);
// 2026-11-21 13:05:01, likewise.
std::string dateAndTime(double wallTime);

}  // namespace zulstat
