#include "range.h"

#include <charconv>

namespace zulstat {

namespace {

bool parseBound(std::string_view text, double& bound) {
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), bound);
    return error == std::errc() && rest == text.data() + text.size() && bound - bound == 0;
}

}  // namespace

std::optional<Range> parseRange(std::string_view text) {
    Range range;
    range.text = text;
    if (text.starts_with('@')) {
        range.alertInside = true;
        text.remove_prefix(1);
    }
    const std::size_t colon = text.find(':');
    std::string_view high = text;
    if (colon != std::string_view::npos) {
        const std::string_view low = text.substr(0, colon);
        high = text.substr(colon + 1);
        if (low == "~") {
            range.low = -std::numeric_limits<double>::infinity();
        } else if (!low.empty() && !parseBound(low, range.low)) {
            return std::nullopt;
        }
    }
    const bool highMayLack = colon != std::string_view::npos && text.size() > 1;
    if (!(high.empty() && highMayLack) && !parseBound(high, range.high)) {
        return std::nullopt;
    }
    return range.low <= range.high ? std::optional(range) : std::nullopt;
}

}  // namespace zulstat
