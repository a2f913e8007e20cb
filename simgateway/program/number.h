// Numbers in words of the command line.
#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "usage_error.h"

namespace zulstatsim {

// The whole text as a number from low to high. Throws UsageError, which names what the number is for.
template <typename Number>
Number parseNumber(std::string_view what, std::string_view text, Number low, Number high) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || rest != end || !(value >= low && value <= high)) {
        throw UsageError("bad value '" + std::string(text) + "' for " + std::string(what));
    }
    return value;
}

}  // namespace zulstatsim
