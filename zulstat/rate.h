// Rates and differences in words.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "monitor/changes.h"

namespace zulstat {

// Which identifiers are shown per second, and which as differences.
struct DerivedGlobs {
    std::vector<std::string> rates;   // -r
    std::vector<std::string> deltas;  // -d

    bool empty() const {
        return rates.empty() && deltas.empty();
    }
};

// "12.5/s", "R" for a counter that fell, "-" without a former value.
std::string rateText(const monitor::Change& change);
// "+12", "-3", "0", "-" without a former value.
std::string differenceText(const monitor::Change& change);
// What the globs show in place of the value; nothing where they do not match or the value is no number.
std::optional<std::string> derivedText(const monitor::Change& change, const DerivedGlobs& globs);

}  // namespace zulstat
