#include "recording.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <utility>
#include <vector>

namespace golden {

namespace {

constexpr unsigned WATCHDOG_SECONDS = 55;
constexpr int LOCK_POINTS_BEGIN = 3100;
constexpr int LOCK_POINTS_END = 3115;

// Up to the trace point: an optional time stamp and the two ids.
const std::regex PREFIX(R"(^(\d\d/\d\d/\d\d \d\d:\d\d:\d\d:\d{3})? \[0x[0-9A-F]{8},0x[0-9A-F]{8}\] (?=\[\d{4}\] ))");

const struct {
    std::regex pattern;
    const char* replacement;
} RULES[] = {
    {PREFIX, ""},
    {std::regex("0x0x[0-9a-f]+"), "0x<ptr>"},  // some texts write the 0x themselves
    {std::regex("0x[0-9a-f]+"), "<ptr>"},
    {std::regex(R"((socketDesc(?:riptor)?[=(]|socket[(]|socket: |socket |socketdescriptor )\d+)"), "$1<fd>"},
    {std::regex(R"(((?:owning|current)[PT]id[=(])-?[0-9A-Fa-f]+)"), "$1<id>"},
    {std::regex(R"((getHostInfoUnable to resolve host \(.*\): ).*)"), "$1<reason>"},
};

// The line without what differs from run to run: "[1234] ENTRY  message" of a trace point's. Names in angle brackets
// stand for addresses, descriptors, ids, the port, the directory and what the resolver said.
std::string filtered(std::string line, const std::string& directory, int port) {
    static const std::regex dumpAddress("^0x[0-9A-F]{8}: ");
    if (std::regex_search(line, dumpAddress)) {
        return std::regex_replace(line, dumpAddress, "");
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

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool isKept(const std::string& line, Keep keep) {
    std::smatch prefix;
    const int number = std::regex_search(line, prefix, PREFIX) ? std::stoi(prefix.suffix().str().substr(1, 4)) : 0;
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
    for (const std::string& line : linesOf(trace)) {
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
    const std::vector<std::string> expected = linesOf(support::readFile(path));
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

void Conversation::SetUp() {
    alarm(WATCHDOG_SECONDS);
    setAPITraceLevel(0);  // the first call of the process, which initialises
}

void Conversation::TearDown() {
    while (closeAllGatewayConnections() == STAPI_RC_GTL_CORRUPT) {
    }
    alarm(0);
}

GatewayToken* Conversation::open() const {
    GatewayToken* token = nullptr;
    char* version = nullptr;
    EXPECT_EQ(openGatewayConnection(server.port(), &token, &version), 0);
    std::free(version);
    return token;
}

}  // namespace golden
