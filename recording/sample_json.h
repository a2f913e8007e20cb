// A sample as one document of JSON: the line of a recording.
//
//     {"schema": "zulstat/1", "target": {"host", "port"}, "protocol", "query": {"what", "ids": [...]},
//      "time": ISO 8601, "wall", "monotonic", "open_seconds", "query_seconds": seconds, "fresh_connection",
//      "size": bytes, "gap": why, "elements": [{"element", "rc", "items": [{"id", "value", "number"}...]}...]}
//
// where "value" is the Gateway's text, absent in lists of identifiers, and "number" is there only for a value that
// parseExactNumber takes; groups with counts have "statistics", a number, instead of both. A gap is one element without
// a name, with a code of the client's; "gap" is there in its line only. Readers pass over fields that they do not know.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "monitor/sample.h"

namespace recording {

struct Layout {
    bool indented = false;  // several lines
    bool ascii = false;     // other characters as \u escapes
    std::string gap{};      // why there is no sample; empty for none, and where that is not known
};

// With a line end. What is not valid UTF-8 becomes U+FFFD.
std::string sampleLine(const monitor::Sample& sample, const Layout& layout = {});

// A sample without values that stands for a gap: the failure's code, one of the client's.
monitor::Sample gapSample(const monitor::Target& target, double wallTime, double monotonicTime, std::int32_t rc);

// What a line of a recording is.
struct Entry {
    bool gap = false;          // no sample: the Gateway, or the recording, was away
    std::string reason{};      // gap: why, as far as it is known
    std::int32_t rc = 0;       // gap: the code that tells it
    monitor::Sample sample{};  // of a gap: target, query, wallTime and monotonicTime only
};

// The seconds from one moment of a recording to a later one: by the clock that is never set, and by the other one where
// the machine may have been started anew in between, as it may in a gap. Never negative.
double elapsed(const monitor::Sample& from, const monitor::Sample& to, bool gapBetween);

// What is wrong with a line.
struct BadLine : std::runtime_error {
    BadLine(const std::string& what, bool torn) : std::runtime_error(what), cut(torn) {
    }
    bool cut;  // it ends before the document does
};

// Reads lines. Keep one for many of them: it knows how much the next one will need.
class LineParser {
public:
    // With or without a line end. Throws BadLine for what is no whole sample.
    Entry parse(std::string_view line);

private:
    std::size_t elements = 0;  // of the line before
    std::size_t items = 0;
};

}  // namespace recording
