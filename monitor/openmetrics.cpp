#include "openmetrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>

#include "number.h"
#include "utf8.h"

namespace monitor {

namespace {

void appendEscaped(std::string& to, std::string_view text) {
    while (!text.empty()) {
        // Mostly there is nothing to escape or to repair.
        const auto plain = std::find_if(text.begin(), text.end(), [](char c) {
            return c == '\\' || c == '"' || c == '\n' || static_cast<unsigned char>(c) >= 0x80;
        });
        to.append(text.begin(), plain);
        text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
        if (text.empty()) {
            return;
        }
        const Character character = decode(text);
        to += !character.valid       ? "\xEF\xBF\xBD"
              : text.front() == '\\' ? "\\\\"
              : text.front() == '"'  ? "\\\""
              : text.front() == '\n' ? "\\n"
                                     : text.substr(0, character.size);
        text.remove_prefix(character.size);
    }
}

// name="value", behind what is there already.
void appendLabel(std::string& labels, std::string_view name, std::string_view value) {
    labels += labels.empty() ? "" : ",";
    labels += name;
    labels += "=\"";
    appendEscaped(labels, value);
    labels += '"';
}

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// In any case; `lower` is in small letters.
bool equalsAnyCase(std::string_view word, std::string_view lower) {
    return std::equal(word.begin(), word.end(), lower.begin(), lower.end(),
                      [](char c, char small) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == small; });
}

// Words for units other than the base units that checkers of metrics insist on.
bool isOddUnit(std::string_view word) {
    constexpr std::array<std::string_view, 19> units = {"s",       "ms",    "us",   "ns",    "sec", "b", "kb",
                                                        "mb",      "gb",    "tb",   "pb",    "m",   "h", "d",
                                                        "minutes", "hours", "days", "weeks", "bits"};
    for (const std::string_view base : {"seconds", "bytes"}) {
        if (word.size() > base.size() && equalsAnyCase(word.substr(word.size() - base.size()), base)) {
            return true;
        }
    }
    return std::any_of(units.begin(), units.end(), [&](std::string_view unit) { return equalsAnyCase(word, unit); });
}

// gateway_host_load_1m for host.load.1m. A value stays in the Gateway's unit, so that the word for an odd one is no
// word of the name: gateway_host_memory_freekb.
std::string metricName(std::string_view id) {
    constexpr std::string_view first = "gateway";
    std::string name(first);
    name.reserve(first.size() + id.size() + 1);
    while (!id.empty()) {
        const auto end = std::find_if_not(id.begin(), id.end(), isWordCharacter);
        const std::string_view word = id.substr(0, static_cast<std::size_t>(end - id.begin()));
        name += word.empty() || isOddUnit(word) ? "" : "_";
        name += word;
        id.remove_prefix(std::min(word.size() + 1, id.size()));
    }
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
    SampleWriter(OpenMetrics& to, const Labels& labels, std::size_t most) : metrics(to) {
        for (const auto& [name, value] : labels) {
            appendLabel(lead, name, value);
        }
        seen.reserve(most);
    }
    // `labels` come behind those of the sample.
    void add(std::string_view name, Help help, std::string_view labels, std::string_view value) {
        std::string series;
        series.reserve(name.size() + lead.size() + labels.size() + 2);
        series += name;
        series += '{';
        series += lead;
        series += lead.empty() || labels.empty() ? "" : ",";
        series += labels;
        std::string& family = metrics.family(name, help);
        family += series;
        // An identifier may come twice in one query element.
        if (const int repeated = ++seen[std::move(series)]; repeated > 1) {
            family += ",repeated=\"" + std::to_string(repeated) + "\"";
        }
        family += "} ";
        family += value;
        family += '\n';
    }

private:
    OpenMetrics& metrics;
    std::string lead;
    std::unordered_map<std::string, int> seen;
};

std::string& OpenMetrics::family(std::string_view name, Help help) {
    const auto place = indices.find(name);
    if (place != indices.end()) {
        return families[place->second];
    }
    indices.emplace(name, families.size());
    std::string& family = families.emplace_back();
    family.reserve(256);  // its comments and a sample or two
    family.append("# TYPE ").append(name).append(" gauge\n# HELP ").append(name) += ' ';
    family += help.before;
    appendEscaped(family, help.id);
    family += help.behind;
    family += '\n';
    return family;
}

void OpenMetrics::add(const Sample& sample, const Labels& sampleLabels) {
    constexpr std::string_view statistic = "The Gateway's statistic ";
    SampleWriter writer(*this, sampleLabels, sample.items.size() + sample.elements.size());
    std::string labels;
    for (const Element& element : sample.elements) {
        labels.clear();
        appendLabel(labels, "element", element.text);
        writer.add("zulstat_element_rc", {"The Gateway's return code of each query element."}, labels,
                   std::to_string(element.rc));
        const std::size_t ownLabels = labels.size();
        for (const Item& item : sample.itemsOf(element)) {
            labels.resize(ownLabels);
            appendLabel(labels, "id", item.id);
            if (holdsCounts(sample)) {
                writer.add("zulstat_group_statistics", {"How many statistics each resource group has."}, labels,
                           item.value);
            } else if (!sample.hasValues) {
                writer.add("zulstat_identifier", {"The Gateway's identifiers."}, labels, "1");
            } else if (parseNumber(item.value)) {
                writer.add(metricName(item.id), {statistic, item.id, "."}, labels, item.value);
            } else if (const std::optional<double> moment = parseMoment(item.value)) {
                writer.add(secondsName(item.id), {statistic, item.id, ", in seconds since 1970."}, labels,
                           fmt::format("{}", *moment));
            } else {
                appendLabel(labels, "value", item.value);
                writer.add("zulstat_text", {"The Gateway's statistics that are not numbers."}, labels, "1");
            }
        }
    }
    writer.add("zulstat_open_seconds", {"How long opening the connection took."}, "",
               fmt::format("{}", sample.openSeconds));
    writer.add("zulstat_query_seconds", {"How long the query took."}, "", fmt::format("{}", sample.querySeconds));
    writer.add("zulstat_content_bytes", {"The part of the library's result set that the answer takes."}, "",
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
