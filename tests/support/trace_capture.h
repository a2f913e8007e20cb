// The trace in a file of the test's own, and its lines taken apart.
#pragma once

#include "temp_directory.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace support {

// A trace line's fields. Dump lines, rules and banners have no prefix.
struct TraceLine {
    std::string stamp;  // empty, or 21 characters
    std::uint32_t pid;
    std::uint32_t tid;
    int number;
    std::string kind;  // six columns
    std::string message;
};

// Nothing if the line does not begin with a whole and well-formed prefix.
[[nodiscard]] std::optional<TraceLine> parseTraceLine(const std::string& line);

// The line without its prefix's time and ids, "[3103] ENTRY  message", or its dump's address, "41424344 ... : ABCD";
// other lines as they are.
[[nodiscard]] std::string withoutPrefix(const std::string& line);

// Splits at line ends. What stands behind the last line end counts as a line that ends in "<cut>".
[[nodiscard]] std::vector<std::string> splitLines(const std::string& text);

// printf into a string.
[[nodiscard]] std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));

// Opens a file and makes it the destination.
void switchTo(const std::string& path);

// Directs the trace to a file while it lives; afterwards the level is 0 and the destination stderr. Initialises the
// library if nothing has.
class TraceCapture {
public:
    explicit TraceCapture(int level);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    void setLevel(int level);

    // Each returns what was written since the last take: raw lines; lines without their prefixes; the trace point
    // numbers, all or those in a list.
    [[nodiscard]] std::vector<std::string> takeRaw();
    [[nodiscard]] std::vector<std::string> take();
    [[nodiscard]] std::vector<int> takeNumbers(const std::vector<int>& wanted = {});

private:
    TempDirectory directory;
    std::string path;
    std::size_t taken = 0;
};

}  // namespace support
