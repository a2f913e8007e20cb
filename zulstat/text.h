// Texts of a Gateway: any bytes at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sample.h"

namespace zulstat {

// For terminals: control characters, bytes that are not UTF-8, the backslash and characters that reorder text become
// escapes (\n \t \\ \x1b \u202e); the rest stays. The result is one line.
std::string escapeForTerminal(std::string_view bytes);

// What is not valid UTF-8 becomes U+FFFD, an incomplete character as a whole, other bytes each; the rest stays.
std::string repairUtf8(std::string_view bytes);

// The number of terminal columns of a text without control characters, such as escapeForTerminal returns.
std::size_t columnWidth(std::string_view text);

// The text, filled with spaces to the width.
std::string padRight(std::string_view text, std::size_t width);
std::string padLeft(std::string_view text, std::size_t width);

// A value that is a decimal number: an optional sign, digits with or without a point before, between or behind them,
// and an exponent or none. Whole numbers that fit 64 bits stay whole, others become the nearest double. "007", "+5" and
// ".5" are numbers; "1_0", "0x10", "nan" and what a double cannot hold are texts.
using Number = std::variant<std::int64_t, std::uint64_t, double>;
std::optional<Number> parseNumber(std::string_view text);
// The same for a value that loses nothing as a number of JSON: written as one there, a whole one that fits 64 bits or
// another of 15 significant digits at most.
std::optional<Number> parseExactNumber(std::string_view text);
double toDouble(const Number& number);

// later - earlier without loss for whole numbers, so that a counter near 2^64 still has differences.
double difference(const Number& later, const Number& earlier);

// '*' any characters, '?' one, "[a-z]", "[!a]" sets, '\' takes the next character literally; matches the whole text.
bool globMatches(const std::string& glob, const std::string& text);
bool anyGlobMatches(const std::vector<std::string>& globs, const std::string& text);

// -I and -X in the order of the command line. The first rule that matches decides; without a match an identifier is
// kept if the first rule is an exclusion (or there is none).
struct GlobRule {
    bool include = true;
    std::string glob;
};
bool keeps(const std::vector<GlobRule>& rules, const std::string& id);

// Removes the items that the rules do not keep, and the elements that lose all their items. Failed elements stay.
void filter(Sample& sample, const std::vector<GlobRule>& rules);

// Sums over a sample.
std::size_t itemCount(const Sample& sample);
std::size_t failedElements(const Sample& sample);

// Pieces between the separators; empty pieces are dropped.
std::vector<std::string> splitPieces(std::string_view text, char separator);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);

}  // namespace zulstat
