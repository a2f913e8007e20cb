#include "format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "charset.h"
#include "monitor/number.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

// The values of `groups -l` are this program's counts.
bool isCounted(const Sample& sample) {
    return sample.query.what == What::groups && sample.hasValues;
}

// ---- table --------------------------------------------------------------------------------------------------------

constexpr std::size_t widestColumn = 60;  // a wider cell pushes the others in its row aside

using Row = std::vector<std::string>;

// Whether the query elements tell more than the identifiers do.
bool elementsMatter(const Sample& sample) {
    return std::any_of(sample.elements.begin(), sample.elements.end(), [](const Element& element) {
        const bool namesItsItem = element.items.size() == 1 && element.items[0].id == element.text;
        return element.rc >= 0 && element.text != "*" && !namesItsItem;
    });
}

std::vector<Row> tableRows(const Sample& sample, bool withElement) {
    std::vector<Row> rows;
    for (const Element& element : sample.elements) {
        const std::string text = escapeForTerminal(element.text);
        if (element.rc < 0) {
            rows.push_back({text, fmt::format("failed, rc {}", element.rc)});
        }
        for (const Item& item : element.items) {
            Row row = {escapeForTerminal(item.id)};
            if (sample.hasValues) {
                row.push_back(escapeForTerminal(item.value));
            }
            if (withElement) {
                row.push_back(text);
            }
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

std::string formatTable(const Sample& sample, bool header) {
    const bool withElement = elementsMatter(sample);
    std::vector<Row> rows = tableRows(sample, withElement);
    if (rows.empty()) {
        return {};
    }
    if (header) {
        Row titles = {sample.query.what == What::groups ? "GROUP" : "ID"};
        if (sample.hasValues) {
            titles.push_back(isCounted(sample) ? "STATISTICS" : "VALUE");
        }
        if (withElement) {
            titles.push_back("ELEMENT");
        }
        rows.insert(rows.begin(), std::move(titles));
    }
    std::array<std::size_t, 3> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column) {
            widths[column] = std::min(std::max(widths[column], columnWidth(row[column])), widestColumn);
        }
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column) {
            text += padRight(row[column], widths[column]) + "  ";
        }
        text += row.back() + "\n";
    }
    return text;
}

// ---- plain --------------------------------------------------------------------------------------------------------

std::string formatPlain(const Sample& sample) {
    std::string text;
    const auto addLine = [&](const Item& item, const Element& element) {
        text += item.id + '\t' + item.value + '\t' + element.text + '\t' + std::to_string(element.rc) + '\n';
    };
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            addLine({}, element);
        }
        for (const Item& item : element.items) {
            addLine(item, element);
        }
    }
    return text;
}

// ---- json ---------------------------------------------------------------------------------------------------------

using Json = nlohmann::ordered_json;

Json itemJson(const Item& item, const Sample& sample) {
    Json json = {{"id", item.id}};
    if (isCounted(sample)) {
        json["statistics"] = std::stol(item.value);
    } else if (sample.hasValues) {
        json["value"] = item.value;
        if (const std::optional<Number> number = parseExactNumber(item.value)) {
            std::visit([&](auto value) { json["number"] = value; }, *number);
        }
    }
    return json;
}

std::string formatJson(const Sample& sample, int indent, bool ascii) {
    Json elements = Json::array();
    for (const Element& element : sample.elements) {
        Json items = Json::array();
        for (const Item& item : element.items) {
            items.push_back(itemJson(item, sample));
        }
        elements.push_back({{"element", element.text}, {"rc", element.rc}, {"items", std::move(items)}});
    }
    const Json document = {
        {"schema", "zulstat/1"},
        {"target", {{"host", sample.target.host}, {"port", sample.target.port}}},
        {"protocol", sample.protocol},
        {"query", {{"what", whatName(sample.query.what)}, {"ids", sample.query.ids}}},
        {"time", isoTime(sample.wallTime)},
        {"wall", sample.wallTime},
        {"monotonic", sample.monotonicTime},
        {"open_seconds", sample.openSeconds},
        {"query_seconds", sample.querySeconds},
        {"fresh_connection", sample.freshConnection},
        {"size", sample.contentSize},
        {"elements", std::move(elements)},
    };
    // The library's own repair of UTF-8 may differ from repairUtf8 in the number of marks; neither loses a byte's
    // place.
    return document.dump(indent, ' ', ascii, Json::error_handler_t::replace) + "\n";
}

// ---- csv ----------------------------------------------------------------------------------------------------------

std::string csvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string field = "\"";
    for (const char c : text) {
        field += c == '"' ? "\"\"" : std::string(1, c);
    }
    return field + "\"";
}

std::string formatCsv(const Sample& sample, const Layout& layout) {
    const std::string_view end = layout.lineFeeds ? "\n" : "\r\n";
    std::string text = layout.header ? fmt::format("time,target,element,rc,id,value{}", end) : "";
    const std::string lead = isoTime(sample.wallTime) + "," + csvField(targetText(sample.target)) + ",";
    for (const Element& element : sample.elements) {
        const std::string part = lead + csvField(element.text) + "," + std::to_string(element.rc) + ",";
        if (element.rc < 0) {
            text += fmt::format("{},{}", part, end);
        }
        for (const Item& item : element.items) {
            text += fmt::format("{}{},{}{}", part, csvField(item.id), csvField(item.value), end);
        }
    }
    return text;
}

// ---- openmetrics --------------------------------------------------------------------------------------------------

std::string escapeMetricText(std::string_view text) {
    std::string escaped;
    for (const char c : repairUtf8(text)) {
        escaped += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string(1, c);
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

// The families in the order of their first samples, and their samples together, as the format wants them.
class MetricFamilies {
public:
    explicit MetricFamilies(const Target& of) : target("target=\"" + escapeMetricText(targetText(of)) + "\"") {
    }
    // `labels` come behind that of the target.
    void add(const std::string& name, std::string_view help, const std::string& labels, std::string_view value) {
        const auto [place, isNew] = indices.emplace(name, families.size());
        if (isNew) {
            families.push_back(fmt::format("# TYPE {0} gauge\n# HELP {0} {1}\n", name, escapeMetricText(help)));
        }
        // An identifier may come twice in one query element.
        const int repeated = ++seen[name + labels];
        families[place->second] += fmt::format("{}{{{}{}{}{}}} {}\n", name, target, labels.empty() ? "" : ",", labels,
                                               repeated > 1 ? fmt::format(",repeated=\"{}\"", repeated) : "", value);
    }
    std::string text() const {
        return join(families, "") + "# EOF\n";
    }

private:
    const std::string target;
    std::vector<std::string> families;
    std::map<std::string, std::size_t> indices;
    std::map<std::string, int> seen;
};

std::string formatOpenMetrics(const Sample& sample) {
    MetricFamilies families(sample.target);
    for (const Element& element : sample.elements) {
        const std::string elementLabel = "element=\"" + escapeMetricText(element.text) + "\"";
        families.add("zulstat_element_rc", "The Gateway's return code of each query element.", elementLabel,
                     std::to_string(element.rc));
        for (const Item& item : element.items) {
            const std::string labels = elementLabel + ",id=\"" + escapeMetricText(item.id) + "\"";
            if (isCounted(sample)) {
                families.add("zulstat_group_statistics", "How many statistics each resource group has.", labels,
                             item.value);
            } else if (!sample.hasValues) {
                families.add("zulstat_identifier", "The Gateway's identifiers.", labels, "1");
            } else if (parseNumber(item.value)) {
                families.add(metricName(item.id), "The Gateway's statistic " + item.id + ".", labels, item.value);
            } else if (const std::optional<double> moment = parseMoment(item.value)) {
                families.add(secondsName(item.id), "The Gateway's statistic " + item.id + ", in seconds since 1970.",
                             labels, fmt::format("{}", *moment));
            } else {
                families.add("zulstat_text", "The Gateway's statistics that are not numbers.",
                             labels + ",value=\"" + escapeMetricText(item.value) + "\"", "1");
            }
        }
    }
    families.add("zulstat_open_seconds", "How long opening the connection took.", "",
                 fmt::format("{}", sample.openSeconds));
    families.add("zulstat_query_seconds", "How long the query took.", "", fmt::format("{}", sample.querySeconds));
    families.add("zulstat_content_bytes", "The part of the library's result set that the answer takes.", "",
                 std::to_string(sample.contentSize));
    return families.text();
}

constexpr std::array<std::pair<std::string_view, Format>, 6> formatNames = {{
    {"table", Format::table},
    {"plain", Format::plain},
    {"json", Format::json},
    {"jsonl", Format::jsonl},
    {"csv", Format::csv},
    {"openmetrics", Format::openmetrics},
}};

}  // namespace

std::optional<Format> formatByName(std::string_view name) {
    for (const auto& [known, format] : formatNames) {
        if (known == name) {
            return format;
        }
    }
    return std::nullopt;
}

std::string formatSample(Format format, const Sample& sample, const Layout& layout) {
    switch (format) {
    case Format::table:
        return inUsersCharacters(formatTable(sample, layout.header));
    case Format::plain:
        return formatPlain(sample);
    case Format::json:
        return formatJson(sample, 2, layout.asciiJson);
    case Format::jsonl:
        return formatJson(sample, -1, layout.asciiJson);
    case Format::csv:
        return formatCsv(sample, layout);
    case Format::openmetrics:
        return formatOpenMetrics(sample);
    }
    return {};
}

std::string isoTime(double wallTime) {
    const double milliseconds = std::floor(wallTime * 1000);
    const std::time_t whole = static_cast<std::time_t>(milliseconds / 1000);
    std::tm fields{};
    gmtime_r(&whole, &fields);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900, fields.tm_mon + 1,
                       fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                       static_cast<int>(milliseconds - static_cast<double>(whole) * 1000));
}

std::string targetText(const Target& target) {
    const bool address6 = target.host.find(':') != std::string::npos;
    return fmt::format(fmt::runtime(address6 ? "[{}]:{}" : "{}:{}"), target.host, target.port);
}

std::string_view whatName(What what) {
    constexpr std::array<std::string_view, 6> names = {"stats", "stats-by-id",  "stats-by-group",
                                                       "ids",   "ids-by-group", "groups"};
    return names[static_cast<std::size_t>(what)];
}

}  // namespace zulstat
