// Values that are numbers or moments.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>

namespace monitor {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

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

// The seconds since 1970 of a value that is a moment with its zone: "2026-11-21T13:15:55.024Z",
// "2026-11-21T14:15:55+01:00".
std::optional<double> parseMoment(std::string_view text);

}  // namespace monitor
