#include "format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "charset.h"
#include "monitor/openmetrics.h"
#include "recording/sample_json.h"
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

void addRows(const Sample& sample, bool withTarget, bool withElement, std::vector<Row>& rows) {
    const Row lead = withTarget ? Row{escapeForTerminal(targetText(sample.target))} : Row{};
    const auto add = [&](const Row& cells) {
        rows.push_back(lead);
        rows.back().insert(rows.back().end(), cells.begin(), cells.end());
    };
    for (const Element& element : sample.elements) {
        const std::string text = escapeForTerminal(element.text);
        if (element.rc < 0) {
            add({text, fmt::format("failed, rc {}", element.rc)});
        }
        for (const Item& item : sample.itemsOf(element)) {
            Row row = {escapeForTerminal(item.id)};
            if (sample.hasValues) {
                row.push_back(escapeForTerminal(item.value));
            }
            if (withElement) {
                row.push_back(text);
            }
            add(row);
        }
    }
}

std::string formatTable(std::span<const Sample> samples, const Layout& layout) {
    const bool withElement = std::any_of(samples.begin(), samples.end(), elementsMatter);
    std::vector<Row> rows;
    for (const Sample& sample : samples) {
        addRows(sample, layout.targets, withElement, rows);
    }
    if (rows.empty()) {
        return {};
    }
    if (layout.header) {
        const Sample& first = samples.front();
        Row titles;
        if (layout.targets) {
            titles.push_back("TARGET");
        }
        titles.push_back(first.query.what == What::groups ? "GROUP" : "ID");
        if (first.hasValues) {
            titles.push_back(holdsCounts(first) ? "STATISTICS" : "VALUE");
        }
        if (withElement) {
            titles.push_back("ELEMENT");
        }
        rows.insert(rows.begin(), std::move(titles));
    }
    std::array<std::size_t, 4> widths{};
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

std::string formatPlain(const Sample& sample, const Layout& layout) {
    const std::string behind = layout.targets ? "\t" + targetText(sample.target) : "";
    std::string text;
    const auto addLine = [&](const Item& item, const Element& element) {
        text += fmt::format("{}\t{}\t{}\t{}{}\n", item.id, item.value, element.text, element.rc, behind);
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

// ---- csv ----------------------------------------------------------------------------------------------------------

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

std::string formatOpenMetrics(std::span<const Sample> samples, Mapper* mapper) {
    OpenMetrics metrics;
    for (const Sample& sample : samples) {
        std::optional<Mapper> own;
        if (mapper != nullptr && samples.size() > 1) {
            own = *mapper;
        }
        metrics.add(sample, {{"target", targetText(sample.target)}}, own ? &*own : mapper);
    }
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

std::string formatSamples(Format format, std::span<const Sample> samples, const Layout& layout) {
    if (format == Format::table) {
        return inUsersCharacters(formatTable(samples, layout));
    }
    if (format == Format::openmetrics) {
        return formatOpenMetrics(samples, layout.mapper);
    }
    std::string text;
    Layout next = layout;
    for (const Sample& sample : samples) {
        text += format == Format::plain ? formatPlain(sample, next)
                : format == Format::csv
                    ? formatCsv(sample, next)
                    : recording::sampleLine(
                          sample, {.indented = format == Format::json, .ascii = next.asciiJson, .gap = next.gap});
        next.header = false;
    }
    return text;
}

std::string formatSample(Format format, const Sample& sample, const Layout& layout) {
    return formatSamples(format, {&sample, 1}, layout);
}

}  // namespace zulstat
