#include "recording.h"

#include "filter.h"
#include "trace_rules.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

namespace golden {

namespace {

constexpr unsigned WATCHDOG_SECONDS = 55;
constexpr int LOCK_POINTS_BEGIN = 3100;
constexpr int LOCK_POINTS_END = 3115;

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool isKept(const std::string& line, Keep keep) {
    const int number = numberOf(line);
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

void compare(const std::string& name, const std::string& trace, int level, Keep keep, const std::string& directory,
             int port) {
    if (const char* copies = std::getenv("ZULSTATS_TEST_TRACE_DIR")) {
        std::ofstream(std::string(copies) + "/golden." + name + ".trace") << trace;
    }
    std::vector<std::string> found;
    for (const std::string& line : linesOf(trace)) {
        const std::string fault = faultOf(line, level);
        EXPECT_EQ(fault, "") << line;
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
    ASSERT_TRUE(std::filesystem::exists(path)) << path;
    const std::vector<std::string> expected = linesOf(unittest::readFile(path));
    EXPECT_TRUE(found == expected) << name << ".txt, " << difference(found, expected);
}

Recording::Recording(std::string goldenName, int level, const simgateway::Server& server, Keep kept)
    : name(std::move(goldenName)), highest(level), keep(kept), port(server.port()) {
    EXPECT_EQ(setAPITraceFile(directory.file("trace").c_str()), 0);
    EXPECT_EQ(setAPITraceLevel(level), 0);
}

Recording::~Recording() {
    setAPITraceLevel(0);
    setAPITraceFile(nullptr);
    const std::string trace = unittest::readFile(directory.file("trace"));
    compare(name, trace, highest, keep, directory.file(""), port);
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
