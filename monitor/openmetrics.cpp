#include "openmetrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <optional>
#include <unordered_map>

#include "number.h"
#include "utf8.h"

namespace monitor {

namespace {

std::string escapeMetricText(std::string_view text) {
    std::string escaped;
    for (const char c : repairUtf8(text)) {
        switch (c) {
        case '\\':
            escaped += "\\\\";
            break;
        case '"':
            escaped += "\\\"";
            break;
        case '\n':
            escaped += "\\n";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// Words for units other than the base units that checkers of metrics insist on.
bool isOddUnit(std::string_view word) {
    constexpr std::array<std::string_view, 19> units = {"s",       "ms",    "us",   "ns",    "sec", "b", "kb",
                                                        "mb",      "gb",    "tb",   "pb",    "m",   "h", "d",
                                                        "minutes", "hours", "days", "weeks", "bits"};
    const bool prefixed =
        (word.ends_with("seconds") && word != "seconds") || (word.ends_with("bytes") && word != "bytes");
    return prefixed || std::find(units.begin(), units.end(), word) != units.end();
}

// gateway_host_load_1m for host.load.1m. A value stays in the Gateway's unit, so that the word for an odd one is no
// word of the name: gateway_host_memory_freekb.
std::string metricName(std::string_view id) {
    std::string name = "gateway";
    std::string word;
    const auto addWord = [&] {
        std::string lower = word;
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        name += word.empty() || isOddUnit(lower) ? "" : "_";
        name += std::exchange(word, {});
    };
    for (const char c : id) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 0x80) {
            word += c;
        } else {
            addWord();
        }
    }
    addWord();
    // Endings that belong to metric types. What is a counter and what not the Gateway does not tell.
    for (const std::string_view ending :
         {"_total", "_count", "_sum", "_bucket", "_created", "_info", "_gcount", "_gsum"}) {
        if (name.ends_with(ending)) {
            return name + "_value";
        }
    }
    return name;
}

// For a moment, gateway_host_boot_time_seconds.
std::string secondsName(std::string_view id) {
    const std::string name = metricName(id);
    return name.ends_with("_seconds") ? name : name + "_seconds";
}

}  // namespace

class OpenMetrics::SampleWriter {
public:
    SampleWriter(OpenMetrics& to, const Labels& labels) : metrics(to) {
        for (const auto& [name, value] : labels) {
            fmt::format_to(std::back_inserter(lead), "{}{}=\"{}\"", lead.empty() ? "" : ",", name,
                           escapeMetricText(value));
        }
    }
    // `labels` come behind those of the sample.
    void add(const std::string& name, std::string_view help, const std::string& labels, std::string_view value) {
        // An identifier may come twice in one query element.
        const int repeated = ++seen[name + labels];
        const std::string_view comma = lead.empty() || labels.empty() ? "" : ",";
        const std::string again = repeated > 1 ? fmt::format(",repeated=\"{}\"", repeated) : "";
        fmt::format_to(std::back_inserter(metrics.family(name, help)), "{}{{{}{}{}{}}} {}\n", name, lead, comma, labels,
                       again, value);
    }

private:
    OpenMetrics& metrics;
    std::string lead;
    std::unordered_map<std::string, int> seen;
};

std::string& OpenMetrics::family(const std::string& name, std::string_view help) {
    const auto [place, isNew] = indices.emplace(name, families.size());
    if (isNew) {
        families.push_back(fmt::format("# TYPE {0} gauge\n# HELP {0} {1}\n", name, escapeMetricText(help)));
    }
    return families[place->second];
}

void OpenMetrics::add(const Sample& sample, const Labels& sampleLabels) {
    SampleWriter writer(*this, sampleLabels);
    for (const Element& element : sample.elements) {
        const std::string elementLabel = "element=\"" + escapeMetricText(element.text) + "\"";
        writer.add("zulstat_element_rc", "The Gateway's return code of each query element.", elementLabel,
                   std::to_string(element.rc));
        for (const Item& item : sample.itemsOf(element)) {
            const std::string labels = elementLabel + ",id=\"" + escapeMetricText(item.id) + "\"";
            if (holdsCounts(sample)) {
                writer.add("zulstat_group_statistics", "How many statistics each resource group has.", labels,
                           item.value);
            } else if (!sample.hasValues) {
                writer.add("zulstat_identifier", "The Gateway's identifiers.", labels, "1");
            } else if (parseNumber(item.value)) {
                writer.add(metricName(item.id), fmt::format("The Gateway's statistic {}.", item.id), labels,
                           item.value);
            } else if (const std::optional<double> moment = parseMoment(item.value)) {
                writer.add(secondsName(item.id),
                           fmt::format("The Gateway's statistic {}, in seconds since 1970.", item.id), labels,
                           fmt::format("{}", *moment));
            } else {
                writer.add("zulstat_text", "The Gateway's statistics that are not numbers.",
                           labels + ",value=\"" + escapeMetricText(item.value) + "\"", "1");
            }
        }
    }
    writer.add("zulstat_open_seconds", "How long opening the connection took.", "",
               fmt::format("{}", sample.openSeconds));
    writer.add("zulstat_query_seconds", "How long the query took.", "", fmt::format("{}", sample.querySeconds));
    writer.add("zulstat_content_bytes", "The part of the library's result set that the answer takes.", "",
               std::to_string(sample.contentSize));
}

std::string OpenMetrics::text() const {
    std::string whole;
    for (const std::string& family : families) {
        whole += family;
    }
    return whole + "# EOF\n";
}

}  // namespace monitor
