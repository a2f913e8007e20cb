// The rows of top: the last sample with rates and recent history, sorted and filtered.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "rate.h"

namespace zulstat {

enum class SortBy : std::uint8_t { id, value, rate };

struct TopRow {
    std::string id;  // escaped, as are the other texts; of a failed element its text
    std::string value;
    std::string rate;
    std::optional<double> number;
    std::optional<double> perSecond;
    bool failed = false;
    std::deque<std::optional<double>> history;  // oldest first; nothing for gaps
};

class TopRows {
public:
    explicit TopRows(DerivedGlobs given) : derived(std::move(given)) {
    }

    void take(const monitor::Sample& sample);
    // Marks a gap in the histories.
    void gap();
    // A filter without glob characters matches anywhere in the identifier; an empty one keeps everything.
    std::vector<const TopRow*> select(SortBy sort, bool reverse, const std::string& filterText) const;
    std::size_t count() const {
        return all.size();
    }

private:
    struct History {
        std::deque<std::optional<double>> numbers;
        int falls = 0;
    };
    std::string rateColumn(const monitor::Change& change, const History& history) const;

    DerivedGlobs derived;
    monitor::Changes changes;
    std::map<monitor::ItemKey, History> histories;
    std::vector<TopRow> all;
};

// One character for each entry, spaces for gaps, filled to the width from the left.
std::string sparkline(const std::deque<std::optional<double>>& history, std::size_t width, bool unicode);

}  // namespace zulstat
