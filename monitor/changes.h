// Changes from one sample to the next: rates, differences, counters that started anew.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "number.h"
#include "sample.h"

namespace monitor {

// Query element, identifier, and which of several equal pairs in a sample.
using ItemKey = std::tuple<std::string, std::string, std::size_t>;

struct Change {
    ItemKey key;
    std::optional<Number> number;      // the value, where it is a number
    std::optional<double> difference;  // nothing without a former number on the same connection
    bool fell = false;                 // below the former number, were it on another connection
    double seconds = 0;                // between the two

    // Nothing where it fell: a counter that started anew has no rate.
    std::optional<double> perSecond() const;
};

// Remembers the numbers of the former sample. One for each series, used from one thread at a time; it keeps no sample.
class Changes {
public:
    // One Change for each item of the sample, in order. Times are monotonic. There is no difference across a gap: on
    // a fresh connection counters may have started anew, which shows where one fell.
    std::vector<Change> next(const Sample& sample);

private:
    std::map<ItemKey, Number> former;
    double formerTime = 0;
};

}  // namespace monitor
