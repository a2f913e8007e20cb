// Ranges as monitoring plugins take them.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace zulstat {

// "10" alerts outside 0..10, "10:" below 10, "~:10" above 10, "10:20" outside and "@10:20" inside of it.
struct Range {
    double low = 0;
    double high = std::numeric_limits<double>::infinity();
    bool alertInside = false;
    std::string text;  // as given

    bool alerts(double value) const {
        const bool inside = value >= low && value <= high;
        return inside == alertInside;
    }
};

std::optional<Range> parseRange(std::string_view text);

}  // namespace zulstat
