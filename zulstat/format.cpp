#include "format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "charset.h"
#include "monitor/number.h"
#include "monitor/openmetrics.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

// ---- table --------------------------------------------------------------------------------------------------------

constexpr std::size_t WIDEST_COLUMN = 60;  // a wider cell pushes the others in its row aside

using Row = std::vector<std::string>;

// Whether the query elements tell more than the identifiers do.
bool elementsMatter(const Sample& sample) {
    return std::any_of(sample.elements.begin(), sample.elements.end(), [&](const Element& element) {
        const bool namesItsItem = element.itemCount == 1 && sample.itemsOf(element)[0].id == element.text;
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
        for (const Item& item : sample.itemsOf(element)) {
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
            titles.push_back(holdsCounts(sample) ? "STATISTICS" : "VALUE");
        }
        if (withElement) {
            titles.push_back("ELEMENT");
        }
        rows.insert(rows.begin(), std::move(titles));
    }
    std::array<std::size_t, 3> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column) {
            widths[column] = std::min(std::max(widths[column], columnWidth(row[column])), WIDEST_COLUMN);
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
        text += fmt::format("{}\t{}\t{}\t{}\n", item.id, item.value, element.text, element.rc);
    };
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            addLine({}, element);
        }
        for (const Item& item : sample.itemsOf(element)) {
            addLine(item, element);
        }
    }
    return text;
}

// ---- json ---------------------------------------------------------------------------------------------------------

using Json = nlohmann::ordered_json;

Json itemJson(const Item& item, const Sample& sample) {
    Json json = {{"id", item.id}};
    if (holdsCounts(sample)) {
        json["statistics"] = std::stol(std::string(item.value));
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
        for (const Item& item : sample.itemsOf(element)) {
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
        for (const Item& item : sample.itemsOf(element)) {
            text += fmt::format("{}{},{}{}", part, csvField(item.id), csvField(item.value), end);
        }
    }
    return text;
}

// ---- openmetrics --------------------------------------------------------------------------------------------------

std::string formatOpenMetrics(const Sample& sample, Mapper* mapper) {
    OpenMetrics metrics;
    metrics.add(sample, {{"target", targetText(sample.target)}}, mapper);
    return metrics.text();
}

constexpr std::array<std::pair<std::string_view, Format>, 6> NAMED_FORMATS = {{
    {"table", Format::table},
    {"plain", Format::plain},
    {"json", Format::json},
    {"jsonl", Format::jsonl},
    {"csv", Format::csv},
    {"openmetrics", Format::openmetrics},
}};

}  // namespace

std::optional<Format> formatByName(std::string_view name) {
    for (const auto& [known, format] : NAMED_FORMATS) {
        if (known == name) {
            return format;
        }
    }
    return std::nullopt;
}

std::vector<std::string_view> formatNames() {
    std::vector<std::string_view> names;
    for (const auto& [name, format] : NAMED_FORMATS) {
        names.push_back(name);
    }
    return names;
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
        return formatOpenMetrics(sample, layout.mapper);
    }
    return {};
}

}  // namespace zulstat
