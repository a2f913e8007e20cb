#include "rate.h"

#include <fmt/format.h>

#include <cmath>

#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr const char* UNKNOWN = "-";

// About three digits: a rate is no more exact than the moments of its two samples.
std::string shortNumber(double value) {
    if (value == 0) {
        return "0";
    }
    return value >= 100  ? fmt::format("{:.0f}", value)
           : value >= 10 ? fmt::format("{:.1f}", value)
           : value >= 1  ? fmt::format("{:.2f}", value)
                         : fmt::format("{:.2g}", value);
}

}  // namespace

std::string rateText(const Change& change) {
    const std::optional<double> rate = change.perSecond();
    return rate ? shortNumber(*rate) + "/s" : change.fell ? "R" : UNKNOWN;
}

std::string differenceText(const Change& change) {
    if (!change.difference) {
        return UNKNOWN;
    }
    const double value = *change.difference;
    return value == 0                   ? "0"
           : value == std::floor(value) ? fmt::format("{:+.0f}", value)
                                        : fmt::format("{:+.6g}", value);
}

std::optional<std::string> derivedText(const Change& change, const DerivedGlobs& globs) {
    const std::string& id = std::get<1>(change.key);
    if (!change.number) {
        return std::nullopt;
    }
    return anyGlobMatches(globs.rates, id)    ? std::optional(rateText(change))
           : anyGlobMatches(globs.deltas, id) ? std::optional(differenceText(change))
                                              : std::nullopt;
}

}  // namespace zulstat
