#include "recording.h"

#include "support/trace_capture.h"

#include <cstdlib>
#include <fstream>
#include <regex>

namespace golden {

namespace {

constexpr int LOCK_POINTS_BEGIN = 3100;
constexpr int LOCK_POINTS_END = 3115;

const struct {
    std::regex pattern;
    const char* replacement;
} RULES[] = {
    {std::regex("0x0x[0-9a-f]+"), "0x<ptr>"},  // some texts write the 0x themselves
    {std::regex("0x[0-9a-f]+"), "<ptr>"},
    {std::regex(R"((socketDesc(?:riptor)?[=(]|socket[(]|socket: |socket |socketdescriptor )\d+)"), "$1<fd>"},
    {std::regex(R"(((?:owning|current)[PT]id[=(])-?[0-9A-Fa-f]+)"), "$1<id>"},
    {std::regex(R"((getHostInfoUnable to resolve host \(.*\): ).*)"), "$1<reason>"},
};

// The line without what differs from run to run: "[1234] ENTRY  message" of a trace point's. Names in angle brackets
// stand for addresses, descriptors, ids, the port, the directory and what the resolver said.
std::string filtered(const std::string& raw, const std::string& directory, int port) {
    std::string line = support::withoutPrefix(raw);
    if (raw.starts_with("0x") && line != raw) {
        return line;  // of a dump
    }
    for (const auto& rule : RULES) {
        line = std::regex_replace(line, rule.pattern, rule.replacement);
    }
    line = std::regex_replace(line, std::regex("\\b" + std::to_string(port) + "\\b"), "<port>");
    for (std::size_t at = 0; (at = line.find(directory)) != std::string::npos;) {
        line.replace(at, directory.size(), "<directory>/");
    }
    return line;
}

bool isKept(const std::string& line, Keep keep) {
    const auto parsed = support::parseTraceLine(line);
    const int number = parsed ? parsed->number : 0;
    const bool ofLocks = number >= LOCK_POINTS_BEGIN && number < LOCK_POINTS_END;
    return keep == Keep::ALL || (!ofLocks && (keep == Keep::WITHOUT_LOCKS || number != 0));
}

// The first line that differs says more than two long texts.
std::string difference(const std::vector<std::string>& found, const std::vector<std::string>& expected) {
    std::size_t at = 0;
    while (at < found.size() && at < expected.size() && found[at] == expected[at]) {
        ++at;
    }
    const auto show = [at](const std::vector<std::string>& lines) {
        return at < lines.size() ? lines[at] : "(end of the trace)";
    };
    return "line " + std::to_string(at + 1) + "\n  traced: " + show(found) + "\n  golden: " + show(expected);
}

}  // namespace

void compare(const std::string& name, const std::string& trace, Keep keep, const std::string& directory, int port) {
    if (const char* copies = std::getenv("ZULSTATS_TEST_TRACE_DIR")) {
        std::ofstream(std::string(copies) + "/golden." + name + ".trace") << trace;
    }
    std::vector<std::string> found;
    for (const std::string& line : support::splitLines(trace)) {
        if (isKept(line, keep)) {
            found.push_back(filtered(line, directory, port));
        }
    }
    const std::string path = std::string(GOLDEN_DIRECTORY) + "/" + name + ".txt";
    if (std::getenv("ZULSTATS_UPDATE_GOLDEN") != nullptr) {
        std::ofstream file(path, std::ios::trunc);
        for (const std::string& line : found) {
            file << line << '\n';
        }
        ASSERT_TRUE(file.flush()) << path;
        return;
    }
    const std::vector<std::string> expected = support::splitLines(support::readFile(path));
    EXPECT_TRUE(found == expected) << name << ".txt, " << difference(found, expected);
}

Recording::Recording(std::string goldenName, int level, const simgateway::Server& server, Keep kept)
    : name(std::move(goldenName)), keep(kept), port(server.port()) {
    EXPECT_EQ(setAPITraceFile(directory.file("trace").c_str()), 0);
    EXPECT_EQ(setAPITraceLevel(level), 0);
}

Recording::~Recording() {
    setAPITraceLevel(0);
    setAPITraceFile(nullptr);
    const std::string trace = support::readFile(directory.file("trace"));
    compare(name, trace, keep, directory.file(""), port);
}

}  // namespace golden
