// Samples as metrics, in the OpenMetrics text format or in the older one.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mapping.h"
#include "sample.h"

namespace monitor {

// Names and values; values may hold any bytes.
using Labels = std::vector<std::pair<std::string, std::string>>;

enum class MetricsFormat {
    openMetrics,  // OpenMetrics 1.0
    text,         // the text format 0.0.4 of Prometheus
};

// The name of an identifier's metric where no rule gives one: gateway_host_load_1m for host.load.1m.
std::string metricName(std::string_view id);

// What a value is as a number by a rule for a counter or a gauge, scaled and without its unit; empty where it is none.
std::string numberByRule(const Rule& rule, std::string_view value);

// Collects samples and writes them out together: the metrics of one name stand together, in the order in which the
// names came first. It keeps texts only, no sample. Nothing blocks; use one from one thread at a time.
class OpenMetrics {
public:
    OpenMetrics() = default;
    explicit OpenMetrics(MetricsFormat format);

    // Adds all metrics of a sample. Each of them has these labels first, which tell it from those of other samples. A
    // mapper is the sample's target's; without one the metrics have the names and types that every identifier has.
    void add(const Sample& sample, const Labels& labels, Mapper* mapper = nullptr);
    // Adds a metric that is no statistic. The name has no ending of its type.
    void add(std::string_view name, MetricType type, std::string_view help, const Labels& labels,
             std::string_view value);
    // Everything added so far, with "# EOF" where the format has it.
    std::string text() const;

private:
    class SampleWriter;
    struct Family {
        std::string text;
        MetricType type;
        // Of the sample in hand: how many metrics there are, and where the first one's name and labels stand.
        unsigned sample = 0;
        std::size_t metrics = 0;
        std::size_t firstBegin = 0;
        std::size_t firstSize = 0;
    };
    // A sentence with an identifier in it, or without.
    struct Help {
        std::string_view before;
        std::string_view id = {};
        std::string_view behind = {};
    };

    // Nothing where there is one of the name with another type.
    Family* family(std::string_view name, MetricType type, Help help);

    MetricsFormat metricsFormat = MetricsFormat::openMetrics;
    std::vector<Family> families;
    unsigned samples = 0;
    std::map<std::string, std::size_t, std::less<>> indices;  // of the families, by name
};

}  // namespace monitor
