#include "trace_capture.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_impl.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace support {

namespace {

// Of a message as of a dump line. Matched against a line's begin only: a message may be longer than a regex stands.
const std::regex PREFIX(
    R"(^(\d\d/\d\d/\d\d \d\d:\d\d:\d\d:\d{3})? \[0x([0-9A-F]{8}),0x([0-9A-F]{8})\] (\[(\d{4,9})\] (.{6}) ))");
const std::regex DUMP_PREFIX("^0x[0-9A-F]{8}: ");

bool matches(const std::string& line, std::smatch* match, const std::regex& prefix) {
    const auto end = line.begin() + std::min<std::ptrdiff_t>(80, static_cast<std::ptrdiff_t>(line.size()));
    return std::regex_search(line.begin(), end, *match, prefix, std::regex_constants::match_continuous);
}

std::uint32_t hex8(const std::string& text) {
    return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

}  // namespace

std::optional<TraceLine> parseTraceLine(const std::string& line) {
    std::smatch match;
    if (!matches(line, &match, PREFIX)) {
        return std::nullopt;
    }
    return TraceLine{match[1],       hex8(match[2]),
                     hex8(match[3]), std::stoi(match[5]),
                     match[6],       line.substr(static_cast<std::size_t>(match.length()))};
}

std::string withoutPrefix(const std::string& line) {
    std::smatch match;
    if (matches(line, &match, PREFIX)) {
        return line.substr(static_cast<std::size_t>(match.position(4)));
    }
    return matches(line, &match, DUMP_PREFIX) ? line.substr(static_cast<std::size_t>(match.length())) : line;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', from)) {
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    if (from < text.size()) {
        lines.push_back(text.substr(from) + "<cut>");
    }
    return lines;
}

std::string format(const char* text, ...) {
    std::va_list arguments;
    va_start(arguments, text);
    char made[4096];
    const int length = std::vsnprintf(made, sizeof made, text, arguments);
    va_end(arguments);
    return {made, static_cast<std::size_t>(length)};
}

void switchTo(const std::string& path) {
    std::FILE* file = openTraceFile(path.c_str());
    if (file == nullptr) {
        throw std::runtime_error("cannot open " + path);
    }
    requestLock(&traceLock);
    setTraceDestination(file, path.c_str());
    releaseLock(&traceLock);
}

TraceCapture::TraceCapture(int level) : path(directory.file("trace")) {
    if (stapiInit() != 0) {
        throw std::runtime_error("stapiInit failed");
    }
    switchTo(path);
    setLevel(level);
}

TraceCapture::~TraceCapture() {
    setLevel(0);
    requestLock(&traceLock);
    setTraceDestination(stderr, defaultTraceFilename);
    releaseLock(&traceLock);
    if (const char* copies = std::getenv("ZULSTATS_TEST_TRACE_DIR")) {
        static int count = 0;
        const std::string name = "/unit-" + std::to_string(getpid()) + "-" + std::to_string(++count);
        std::ofstream(copies + name) << readFile(path);
    }
}

void TraceCapture::setLevel(int level) {
    statAPITrace.store(level);
}

std::vector<std::string> TraceCapture::takeRaw() {
    flushTrace();
    const std::string text = readFile(path).substr(taken);
    taken += text.size();
    return splitLines(text);
}

std::vector<std::string> TraceCapture::take() {
    std::vector<std::string> lines = takeRaw();
    std::transform(lines.begin(), lines.end(), lines.begin(), withoutPrefix);
    return lines;
}

std::vector<int> TraceCapture::takeNumbers(const std::vector<int>& wanted) {
    std::vector<int> numbers;
    for (const std::string& line : takeRaw()) {
        const auto parsed = parseTraceLine(line);
        if (parsed && (wanted.empty() || std::find(wanted.begin(), wanted.end(), parsed->number) != wanted.end())) {
            numbers.push_back(parsed->number);
        }
    }
    return numbers;
}

}  // namespace support
