// What reaches the exporter: requests, mapping files, and samples on their way to metrics.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "exporter/allow.h"
#include "exporter/request.h"
#include "monitor/html.h"
#include "monitor/mapping_file.h"
#include "monitor/openmetrics.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what);
        std::abort();
    }
}

// The text up to the separator, which is taken with it.
std::string_view take(std::string_view& input, char separator) {
    const std::string_view piece = input.substr(0, input.find(separator));
    input.remove_prefix(std::min(piece.size() + 1, input.size()));
    return piece;
}

void request(std::string_view input) {
    const std::string accept(take(input, '\n'));
    const std::string timeout(take(input, '\n'));
    const std::string authorization(take(input, '\n'));
    exporter::Arguments arguments;
    while (!input.empty()) {
        std::string_view value = take(input, '&');
        const std::string_view name = take(value, '=');
        arguments.emplace(name, value);
    }
    const auto parsed = exporter::parseProbe(arguments);
    if (const auto* const probe = std::get_if<exporter::ProbeParameters>(&parsed)) {
        const auto again = exporter::parseTarget(monitor::targetText(probe->target));
        require(again && again->host == probe->target.host && again->port == probe->target.port,
                "a target's text is the target");
        exporter::AllowList({"10.0.0.0/8", "gw*:7531"}).networksFor(probe->target);
    }
    exporter::formatAccepted(accept);
    exporter::parseBasic(authorization);
    const double seconds = exporter::probeSeconds(exporter::parseScrapeTimeout(timeout), 0.5, std::nullopt);
    require(seconds > 0 && seconds <= 8, "a probe has from 0 to 8 seconds");
    require(monitor::escapeHtml(accept).find_first_of("<>\"'") == std::string::npos, "markup is escaped");
}

// Reads one label's value, up to its quotation mark.
bool skipValue(std::string_view& line) {
    while (!line.empty()) {
        const char c = line[0];
        line.remove_prefix(1);
        if (c == '"') {
            return true;
        }
        if (c == '\\') {
            if (line.empty() || (line[0] != '\\' && line[0] != '"' && line[0] != 'n')) {
                return false;
            }
            line.remove_prefix(1);
        }
    }
    return false;
}

// name{name="value",...} number, and no series twice.
void checkLine(std::string_view line, std::set<std::string>& series) {
    const std::string_view whole = line;
    require(monitor::isMetricName(take(line, '{')), "a metric has a name");
    std::set<std::string_view> labels;
    while (!line.starts_with('}')) {
        const std::string_view label = take(line, '=');
        require(monitor::isLabelName(label) && take(line, '"').empty() && skipValue(line),
                "labels are names and values");
        require(labels.insert(label).second, "no label is there twice");
        line.remove_prefix(line.starts_with(',') ? 1 : 0);
    }
    require(series.emplace(whole.substr(0, whole.size() - line.size())).second, "no series is there twice");
    require(line.starts_with("} "), "a value follows");
    const std::string value(line.substr(2));
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    require(!value.empty() && *end == '\0' && std::isfinite(number), "a value is a number");
}

void metrics(std::string_view input, const std::shared_ptr<const monitor::Module>& module) {
    monitor::Mapper mapper(module);
    for (int times = 0; times < 2; ++times) {
        monitor::Sample sample;
        std::string_view rest = input;
        while (!rest.empty()) {
            std::string_view element = take(rest, '\0');
            sample.addElement(take(element, '\n'), element.starts_with('-') ? -1 : 0);
            while (!element.empty() && sample.elements.back().rc == 0) {
                const std::string_view id = take(element, '=');
                sample.addItem(id, take(element, '\n'));
            }
        }
        for (const auto format : {monitor::MetricsFormat::openMetrics, monitor::MetricsFormat::text}) {
            monitor::OpenMetrics writer(format);
            writer.add(sample, {{"target", "t"}}, times == 0 ? nullptr : &mapper);
            std::string text = writer.text();
            std::string_view lines = text;
            std::set<std::string> series;
            while (!lines.empty()) {
                const std::string_view line = take(lines, '\n');
                if (!line.starts_with('#')) {
                    checkLine(line, series);
                }
            }
        }
    }
}

void mapping(std::string_view input) {
    std::string_view rest = input;
    const std::string file(take(rest, '\1'));
    try {
        const monitor::MappingFile parsed =
            monitor::parseMapping(file, "f", {exporter::wordExpected, exporter::targetExpected});
        exporter::AllowList allowed(parsed.allow);
        for (const auto& [name, module] : parsed.modules) {
            metrics(rest, module);
        }
    } catch (const monitor::MappingFileError& error) {
        require(std::string_view(error.what()).starts_with("f:"), "an error names the file");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (input.empty()) {
        return 0;
    }
    switch (input[0]) {
    case 'r':
        request(input.substr(1));
        break;
    case 'm':
        mapping(input.substr(1));
        break;
    default:
        metrics(input.substr(1), std::make_shared<const monitor::Module>());
    }
    return 0;
}
