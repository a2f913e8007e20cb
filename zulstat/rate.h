// Changes from one sample to the next, for rates and differences.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "monitor/number.h"
#include "monitor/sample.h"

namespace zulstat {

struct Options;

// Query element, identifier, and which of several equal pairs in a sample.
using ItemKey = std::tuple<std::string, std::string, std::size_t>;

struct Change {
    ItemKey key;
    std::optional<monitor::Number> number;  // the value, where it is a number
    std::optional<double> difference;       // nothing without a former number on the same connection
    bool fell = false;                      // below the former number, were it on another connection
    double seconds = 0;                     // between the two

    // Nothing where it fell: a counter that started anew has no rate.
    std::optional<double> perSecond() const;
};

// Remembers the numbers of the former sample.
class Changes {
public:
    // One Change for each item of the sample, in order. Times are monotonic. There is no difference across a gap: on
    // a fresh connection counters may have started anew, which shows where one fell.
    std::vector<Change> next(const monitor::Sample& sample);

private:
    std::map<ItemKey, monitor::Number> former;
    double formerTime = 0;
};

// "12.5/s", "R" for a counter that fell, "-" without a former value.
std::string rateText(const Change& change);
// "+12", "-3", "0", "-" without a former value.
std::string differenceText(const Change& change);
// What -r and -d show in place of the value; nothing where they do not match or the value is no number.
std::optional<std::string> derivedText(const Change& change, const Options& options);

}  // namespace zulstat
