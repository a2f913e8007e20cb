// A sample as text, in the formats of -o.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/mapping.h"
#include "monitor/sample.h"

namespace zulstat {

// table        for people, in the user's characters; odd bytes escaped
// plain        one line per entry, columns separated by tabs: id, value, element, rc, and of several Gateways the one;
//              bytes as they came
// json         one document, indented, as recording/sample_json.h has it
// jsonl        the same document in one line
// csv          RFC 4180, columns time,target,element,rc,id,value
// openmetrics  metric families and "# EOF"
enum class Format { table, plain, json, jsonl, csv, openmetrics };

std::optional<Format> formatByName(std::string_view name);

// The names of all formats, in the order above.
std::vector<std::string_view> formatNames();

struct Layout {
    bool header = true;      // of table and csv; a series of samples has it once
    bool asciiJson = false;  // other characters as \u escapes, so that a terminal obeys none of them
    bool lineFeeds = false;  // lines of csv end in LF alone, not in CR LF
    bool targets = false;    // several Gateways: table and plain have a column for them
    std::string gap{};       // jsonl: why a sample is none, where a recording tells it
    // For openmetrics; the caller's. Where there are several samples each has a copy of its own.
    monitor::Mapper* mapper = nullptr;
};

// A field as csv has it.
std::string csvField(std::string_view text);

// Ends with a line end unless it is empty. Several samples, one of each Gateway, are one table, one text of
// openmetrics, and documents one behind the other.
std::string formatSamples(Format format, std::span<const monitor::Sample> samples, const Layout& layout = {});
std::string formatSample(Format format, const monitor::Sample& sample, const Layout& layout = {});

}  // namespace zulstat
