#include "rate.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include "options.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr const char* unknown = "-";

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

std::optional<double> Change::perSecond() const {
    return difference && !fell && seconds > 0 ? std::optional(*difference / seconds) : std::nullopt;
}

std::vector<Change> Changes::next(const Sample& sample) {
    const double seconds = sample.monotonicTime - formerTime;
    std::vector<Change> changes;
    std::map<ItemKey, Number> current;
    std::map<std::pair<std::string, std::string>, std::size_t> seen;
    for (const Element& element : sample.elements) {
        for (const Item& item : element.items) {
            const std::size_t repeated = seen[{element.text, item.id}]++;
            Change change{{element.text, item.id, repeated}, parseNumber(item.value), std::nullopt, false, seconds};
            if (change.number) {
                const auto place = former.find(change.key);
                if (place != former.end()) {
                    const double grown = difference(*change.number, place->second);
                    change.fell = grown < 0;
                    change.difference = sample.freshConnection ? std::nullopt : std::optional(grown);
                }
                current.emplace(change.key, *change.number);
            }
            changes.push_back(std::move(change));
        }
    }
    former = std::move(current);
    formerTime = sample.monotonicTime;
    return changes;
}

std::string rateText(const Change& change) {
    const std::optional<double> rate = change.perSecond();
    return rate ? shortNumber(*rate) + "/s" : change.fell ? "R" : unknown;
}

std::string differenceText(const Change& change) {
    if (!change.difference) {
        return unknown;
    }
    const double value = *change.difference;
    return value == 0                   ? "0"
           : value == std::floor(value) ? fmt::format("{:+.0f}", value)
                                        : fmt::format("{:+.6g}", value);
}

std::optional<std::string> derivedText(const Change& change, const Options& options) {
    const std::string& id = std::get<1>(change.key);
    if (!change.number) {
        return std::nullopt;
    }
    return anyGlobMatches(options.rates, id)    ? std::optional(rateText(change))
           : anyGlobMatches(options.deltas, id) ? std::optional(differenceText(change))
                                                : std::nullopt;
}

}  // namespace zulstat
