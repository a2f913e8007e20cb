// Samples as metrics, in the OpenMetrics text format.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sample.h"

namespace monitor {

// Names and values; values may hold any bytes.
using Labels = std::vector<std::pair<std::string, std::string>>;

// Collects samples and writes them out together: the metrics of one name stand together, in the order in which the
// names came first. It keeps texts only, no sample. Nothing blocks; use one from one thread at a time.
class OpenMetrics {
public:
    // Adds all metrics of a sample. Each of them has these labels first, which tell it from those of other samples.
    void add(const Sample& sample, const Labels& labels);
    // Everything added so far, and "# EOF".
    std::string text() const;

private:
    class SampleWriter;

    // A sentence with an identifier in it, or without.
    struct Help {
        std::string_view before;
        std::string_view id = {};
        std::string_view behind = {};
    };

    std::string& family(std::string_view name, Help help);

    std::vector<std::string> families;
    std::map<std::string, std::size_t, std::less<>> indices;  // of the families, by name
};

}  // namespace monitor
