#include "top_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "monitor/number.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t HISTORY_LENGTH = 20;

void remember(std::deque<std::optional<double>>& numbers, std::optional<double> number) {
    numbers.push_back(number);
    if (numbers.size() > HISTORY_LENGTH) {
        numbers.pop_front();
    }
}

// Numbers from the largest on, or from the least; what is none comes last both ways.
bool before(const std::optional<double>& left, const std::optional<double>& right, bool reverse) {
    return left && (!right || (reverse ? *left < *right : *left > *right));
}

}  // namespace

// The Gateway does not tell which values are counters. Without -r, a value that fell twice is none, and has no rate.
std::string TopRows::rateColumn(const Change& change, const History& history) const {
    if (!change.number) {
        return {};
    }
    if (!derived.empty()) {
        return derivedText(change, derived).value_or("");
    }
    return history.falls < 2 ? rateText(change) : "";
}

void TopRows::take(const Sample& sample) {
    const std::vector<Change> newest = changes.next(sample);
    auto change = newest.begin();
    std::map<ItemKey, History> current;  // without those of identifiers that are gone
    all.clear();
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            TopRow row;
            row.id = escapeForTerminal(element.text);
            row.value = fmt::format("failed, rc {}", element.rc);
            row.failed = true;
            all.push_back(row);
        }
        for (const Item& item : sample.itemsOf(element)) {
            History& history = current[change->key] = std::move(histories[change->key]);
            history.falls += change->fell ? 1 : 0;
            const auto number = change->number ? std::optional(toDouble(*change->number)) : std::nullopt;
            remember(history.numbers, number);
            TopRow row;
            row.id = escapeForTerminal(item.id);
            row.value = escapeForTerminal(item.value);
            row.rate = rateColumn(*change, history);
            row.number = number;
            row.perSecond = row.rate.empty() ? std::nullopt : change->perSecond();
            row.history = history.numbers;
            all.push_back(std::move(row));
            ++change;
        }
    }
    histories = std::move(current);
}

void TopRows::gap() {
    for (auto& [key, history] : histories) {
        remember(history.numbers, std::nullopt);
        history.falls = 0;
    }
}

std::vector<const TopRow*> TopRows::select(SortBy sort, bool reverse, const std::string& filterText) const {
    const bool isGlob = filterText.find_first_of("*?[") != std::string::npos;
    const std::string glob = isGlob ? filterText : "*" + filterText + "*";
    std::vector<const TopRow*> rows;
    for (const TopRow& row : all) {
        if (filterText.empty() || globMatches(glob, row.id)) {
            rows.push_back(&row);
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [&](const TopRow* left, const TopRow* right) {
        return sort == SortBy::value  ? before(left->number, right->number, reverse)
               : sort == SortBy::rate ? before(left->perSecond, right->perSecond, reverse)
                                      : (reverse ? right->id < left->id : left->id < right->id);
    });
    return rows;
}

std::string sparkline(const std::deque<std::optional<double>>& history, std::size_t width, bool unicode) {
    constexpr std::array<const char*, 8> blocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr std::array<const char*, 8> letters = {"_", ".", "-", "~", "=", "+", "*", "#"};
    std::optional<double> low;
    std::optional<double> high;
    for (const std::optional<double>& number : history) {
        if (number) {
            low = std::min(low.value_or(*number), *number);
            high = std::max(high.value_or(*number), *number);
        }
    }
    std::string text(width > history.size() ? width - history.size() : 0, ' ');
    for (const std::optional<double>& number : history) {
        if (!number) {
            text += ' ';
            continue;
        }
        const double share = *high > *low ? (*number - *low) / (*high - *low) : 0;
        const auto level = static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * 7.0 + 0.5);
        text += (unicode ? blocks : letters)[std::min(level, blocks.size() - 1)];
    }
    return text;
}

}  // namespace zulstat
