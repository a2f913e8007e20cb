// Samples for what is made of a series of them.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "monitor/sample.h"

namespace zulstat {

using Values = std::vector<std::pair<std::string, std::string>>;

// With these items, in one element.
inline monitor::Sample sampleAt(double time, const Values& values, const std::string& host = "gw",
                                double monotonic = -1) {
    monitor::Sample sample;
    sample.target.host = host;
    sample.wallTime = 1763700000 + time;
    sample.monotonicTime = monotonic < 0 ? 1000 + time : monotonic;
    sample.addElement("*", 0);
    for (const auto& [id, value] : values) {
        const std::string_view kept = sample.keep(id);
        sample.addItem(kept, sample.keep(value));
    }
    return sample;
}

}  // namespace zulstat
