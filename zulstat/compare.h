// What differs between two samples of a Gateway.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "monitor/number.h"
#include "monitor/sample.h"

namespace zulstat {

enum class DifferenceKind : std::uint8_t { appeared, went, changed };

// Texts are the Gateway's bytes.
struct Difference {
    DifferenceKind kind = DifferenceKind::changed;
    std::string element;
    std::string id;  // empty: the element itself failed, or does so no more; the values are its codes then
    std::string former;
    std::string value;
    std::optional<double> difference;  // of numbers
    std::optional<double> perSecond;   // where time passed
};

struct Comparison {
    std::optional<monitor::Sample> former;  // at least one of them is there
    std::optional<monitor::Sample> later;
    double seconds = 0;  // between them, 0 where one is missing
    std::vector<Difference>
        differences;  // what appeared, then what went, then what changed, each in its sample's order
};

// Samples of the same Gateway stand side by side; where there is one on each side, they do whatever their names. Of a
// Gateway that one side lacks, everything appeared or went.
std::vector<Comparison> compareSamples(std::vector<monitor::Sample> former, std::vector<monitor::Sample> later);

}  // namespace zulstat
