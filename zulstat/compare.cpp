#include "compare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

namespace zulstat {

using namespace monitor;

namespace {

// An item or a failed element. Its key: whether it failed, element, identifier, and which of several.
struct Entry {
    std::tuple<bool, std::string_view, std::string_view, std::size_t> key;
    std::string_view element;
    std::string_view id;
    std::string value;
};

// Answers to different queries have the same items in different elements.
std::vector<Entry> entriesOf(const std::optional<Sample>& sample, bool byElement) {
    std::vector<Entry> entries;
    std::map<std::tuple<bool, std::string_view, std::string_view>, std::size_t> seen;
    const auto add = [&](bool failed, std::string_view element, std::string_view id, std::string value) {
        const std::string_view place = byElement || failed ? element : std::string_view();
        entries.push_back({{failed, place, id, seen[{failed, place, id}]++}, element, id, std::move(value)});
    };
    if (!sample) {
        return entries;
    }
    for (const Element& element : sample->elements) {
        if (element.rc < 0) {
            add(true, element.text, {}, std::to_string(element.rc));
        }
        for (const Item& item : sample->itemsOf(element)) {
            add(false, element.text, item.id, std::string(item.value));
        }
    }
    return entries;
}

// Times of one boot differ by its clock, which is never set; those of two by the calendar.
double secondsBetween(const Sample& former, const Sample& later) {
    constexpr double agreement = 2;
    const double wall = later.wallTime - former.wallTime;
    const double monotonic = later.monotonicTime - former.monotonicTime;
    return std::abs(wall - monotonic) < agreement ? monotonic : wall;
}

// Without the digits that decimals gain when they become doubles: 6.69 - 3.17 is 3.52.
double rounded(double value) {
    return value == std::floor(value) ? value : std::strtod(fmt::format("{:.12g}", value).c_str(), nullptr);
}

void compare(Comparison& one) {
    const bool sameQuery = one.former && one.later && one.former->query.what == one.later->query.what &&
                           one.former->query.ids == one.later->query.ids;
    const std::vector<Entry> before = entriesOf(one.former, sameQuery);
    const std::vector<Entry> after = entriesOf(one.later, sameQuery);
    std::map<decltype(Entry::key), const Entry*> former;
    for (const Entry& entry : before) {
        former[entry.key] = &entry;
    }
    std::vector<Difference> changed;
    const auto difference = [](DifferenceKind kind, const Entry& entry) {
        return Difference{kind, std::string(entry.element), std::string(entry.id), {}, {}, {}, {}};
    };
    for (const Entry& entry : after) {
        const auto found = former.find(entry.key);
        if (found == former.end()) {
            one.differences.push_back(difference(DifferenceKind::appeared, entry));
            one.differences.back().value = entry.value;
            continue;
        }
        if (found->second->value != entry.value) {
            Difference& added = changed.emplace_back(difference(DifferenceKind::changed, entry));
            added.former = found->second->value;
            added.value = entry.value;
            const bool failed = std::get<0>(entry.key);
            const std::optional<Number> from = failed ? std::nullopt : parseNumber(added.former);
            const std::optional<Number> to = parseNumber(added.value);
            if (from && to) {
                added.difference = rounded(monitor::difference(*to, *from));
                added.perSecond =
                    one.seconds > 0 ? std::optional(rounded(*added.difference / one.seconds)) : std::nullopt;
            }
        }
        former.erase(found);
    }
    for (const Entry& entry : before) {
        if (former.contains(entry.key)) {
            one.differences.push_back(difference(DifferenceKind::went, entry));
            one.differences.back().former = entry.value;
        }
    }
    one.differences.insert(one.differences.end(), std::make_move_iterator(changed.begin()),
                           std::make_move_iterator(changed.end()));
}

}  // namespace

std::vector<Comparison> compareSamples(std::vector<Sample> former, std::vector<Sample> later) {
    std::vector<Comparison> all;
    const bool onePair = former.size() == 1 && later.size() == 1;
    for (Sample& sample : former) {
        all.push_back({std::move(sample), std::nullopt, 0, {}});
    }
    for (Sample& sample : later) {
        const auto same = std::find_if(all.begin(), all.end(), [&](const Comparison& one) {
            return one.former && !one.later &&
                   (onePair ||
                    (one.former->target.host == sample.target.host && one.former->target.port == sample.target.port));
        });
        if (same != all.end()) {
            same->seconds = secondsBetween(*same->former, sample);
            same->later = std::move(sample);
        } else {
            all.push_back({std::nullopt, std::move(sample), 0, {}});
        }
    }
    for (Comparison& one : all) {
        compare(one);
    }
    return all;
}

}  // namespace zulstat
