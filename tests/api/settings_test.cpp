// Version, trace level and trace destination.
#include "child.h"
#include "fixture.h"
#include "temp_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using unittest::readFile;

const std::string BANNER =
    "**** QAL Velatra ZULSTATS DLL Version 1_1_0_0 Diagnostic trace - build(b410-20090429) ****\n";

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

int level() {
    int value = -1;
    EXPECT_EQ(getAPITraceLevel(&value), 0);
    return value;
}

// The name of the trace destination, as a state dump to a file shows it, or nothing when there is none.
std::string shownName(const std::string& file) {
    EXPECT_EQ(dumpState(), 0);
    const std::string text = readFile(file);
    const std::string label = "statAPITraceFile=";
    const std::size_t from = text.rfind(label) + label.size();
    return text.substr(from, text.find('\n', from) - from);
}

class Settings : public apitest::QuietTest {
protected:
    void write(const std::string& name) {
        ASSERT_EQ(setAPITraceFile(name.c_str()), 0) << name;
    }
    const unittest::TempDirectory directory;
    const std::string one = directory.file("one");
    const std::string two = directory.file("two");
};

// Runs the work with the standard error stream in a file and returns what it wrote.
template <typename Work>
std::string standardErrorOf(const std::string& file, Work work) {
    const int failed = unittest::runInChild([&] {
        if (std::freopen(file.c_str(), "w", stderr) == nullptr) {
            return 1;
        }
        work();
        std::fflush(stderr);
        return 0;
    });
    EXPECT_EQ(failed, 0);
    return readFile(file);
}

TEST_F(Settings, versionIsTheLibrarys) {
    char* first = nullptr;
    char* second = nullptr;
    ASSERT_EQ(getStatsAPIVersion(&first), 0);
    EXPECT_STREQ(first, "1_1_0_0");
    ASSERT_EQ(getStatsAPIVersion(&second), 0);
    EXPECT_EQ(first, second);
}

TEST_F(Settings, beginWithNothingTraced) {
    const std::string text = standardErrorOf(one, [] {
        int value = -1;
        char* version = nullptr;
        getAPITraceLevel(&value);
        getStatsAPIVersion(&version);
        getStatsAPIVersion(nullptr);
        setAPITraceLevel(9);
        std::fprintf(stderr, "level %d\n", value);
        dumpState();
    });
    EXPECT_THAT(text, StartsWith("level 0\nzulstats state dump: API Version=1_1_0_0 Trace Level=0 "
                                 "statAPITraceFile=stderr\nGateway Token List dump\n"));
}

TEST_F(Settings, keepAllLevels) {
    write(one);
    for (int value = 0; value <= 5; ++value) {
        EXPECT_EQ(setAPITraceLevel(value), 0);
        EXPECT_EQ(level(), value);
        EXPECT_EQ(setAPITraceLevel(6), STAPI_RC_INVALID_TRACE_LEVEL);
        EXPECT_EQ(setAPITraceLevel(-1), STAPI_RC_INVALID_TRACE_LEVEL);
        EXPECT_EQ(level(), value);
    }
    EXPECT_EQ(setAPITraceLevel(0), 0);
    const std::string before = readFile(one);
    EXPECT_EQ(getStatsAPIVersion(nullptr), STAPI_RC_NULL_POINTER);
    EXPECT_EQ(setAPITraceLevel(6), STAPI_RC_INVALID_TRACE_LEVEL);
    EXPECT_EQ(readFile(one), before) << "level 0 writes nothing";
}

// The kinds of line that each level adds.
TEST_F(Settings, levelsOpenOneKindAfterTheOther) {
    const simgateway::Server server;
    const char* kinds[] = {"*EXC* ", "EVENT ", "ENTRY ", "DEBUG ", "stapi_zul_lock."};
    for (int value = 0; value <= 5; ++value) {
        const std::string file = directory.file("level" + std::to_string(value));
        write(file);
        ASSERT_EQ(setAPITraceLevel(value), 0);
        EXPECT_EQ(apitest::openAndClose(server), 0);
        EXPECT_EQ(closeGatewayConnection(nullptr), STAPI_RC_NULL_GATEWAY_TOKEN);
        ASSERT_EQ(setAPITraceLevel(0), 0);
        const std::string text = readFile(file);
        for (int kind = 1; kind <= 5; ++kind) {
            EXPECT_EQ(count(text, kinds[kind - 1]) > 0, value >= kind) << value << " " << kinds[kind - 1];
        }
    }
}

TEST_F(Settings, switchingOnWritesABanner) {
    write(one);
    EXPECT_EQ(readFile(one), "") << "a file taken while nothing is traced has none";
    const struct {
        int level;
        std::size_t banners;
    } steps[] = {{3, 1}, {5, 1}, {1, 1}, {0, 1}, {1, 2}, {0, 2}, {0, 2}, {4, 3}};
    for (const auto& step : steps) {
        ASSERT_EQ(setAPITraceLevel(step.level), 0);
        setAPITraceLevel(7);  // a line, if any level is on, flushes the banner
        if (step.level > 0) {
            EXPECT_EQ(count(readFile(one), BANNER), step.banners) << step.level;
        }
    }
}

TEST_F(Settings, aFileTakenWhileTracingBeginsWithOneBanner) {
    write(one);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    write(two);
    EXPECT_THAT(readFile(two), StartsWith(BANNER));
    ASSERT_EQ(setAPITraceLevel(0), 0);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(count(readFile(two), BANNER), 1U) << "written by the file switch, so not again by the level";
    write(two);
    EXPECT_EQ(count(readFile(two), BANNER), 2U) << "each switch is a new destination";
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(count(readFile(two), BANNER), 2U);
    EXPECT_EQ(count(readFile(one), BANNER), 1U);
}

// A file switch that fails writes the banner that the level's change has not marked as written.
TEST_F(Settings, aFailedSwitchWritesTheBannerThatIsDue) {
    write(one);
    ASSERT_EQ(setAPITraceLevel(1), 0);
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(count(readFile(one), BANNER), 2U);
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(count(readFile(one), BANNER), 2U);
}

TEST_F(Settings, fileIsAppendedTo) {
    std::ofstream(one) << "before\n";
    write(one);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(level(), 3);
    EXPECT_THAT(readFile(one), StartsWith("before\n" + BANNER));
    write(two);
    const std::string left = readFile(one);
    EXPECT_EQ(level(), 3);
    EXPECT_EQ(readFile(one), left) << "the file left is written no more";
    EXPECT_THAT(readFile(two), HasSubstr("API.getAPITraceLevel"));
    const int descriptors = apitest::openDescriptors();
    write(one);
    EXPECT_EQ(apitest::openDescriptors(), descriptors) << "the file left stays open";
    EXPECT_EQ(readFile(one).substr(0, left.size()), left);
}

TEST_F(Settings, aFileThatCannotBeOpenedKeepsTheOneBefore) {
    write(one);
    ASSERT_EQ(setAPITraceLevel(1), 0);
    const std::string directoryName = directory.file("");
    for (const std::string& bad : {std::string("/nonexistent/trace"), std::string(), directoryName}) {
        EXPECT_EQ(setAPITraceFile(bad.c_str()), STAPI_RC_TRACE_FILE_OPEN_FAILED) << bad;
        EXPECT_THAT(readFile(one), HasSubstr("API.setAPITraceFile(" + bad + ") file append failed with errno=")) << bad;
        EXPECT_EQ(shownName(one), one);
    }
}

TEST_F(Settings, nullGoesBackToTheStandardErrorStream) {
    const std::string text = standardErrorOf(two, [this] {
        setAPITraceFile(nullptr);  // nothing to go back from
        setAPITraceFile(one.c_str());
        setAPITraceLevel(1);
        setAPITraceLevel(9);
        setAPITraceFile(nullptr);
        setAPITraceLevel(8);
        setAPITraceFile(nullptr);
        dumpState();
        setAPITraceLevel(0);
    });
    EXPECT_THAT(readFile(one), HasSubstr("trace state value 9 was invalid"));
    EXPECT_THAT(readFile(one), Not(HasSubstr("trace state value 8 was invalid")));
    EXPECT_THAT(text, StartsWith(BANNER));
    EXPECT_EQ(count(text, BANNER), 1U);
    EXPECT_THAT(text, HasSubstr("trace state value 8 was invalid"));
    EXPECT_THAT(text, HasSubstr("statAPITraceFile=stderr\n"));
    // The stream itself stays open for the application.
    EXPECT_EQ(standardErrorOf(two,
                              [this] {
                                  setAPITraceFile(one.c_str());
                                  setAPITraceFile(nullptr);
                                  setAPITraceFile(one.c_str());
                                  std::fprintf(stderr, "mine\n");
                              }),
              "mine\n");
}

// The shown name ends at 1023 characters, the file is the one that was named.
TEST_F(Settings, fileNamesOfEveryLength) {
    const std::filesystem::path before = std::filesystem::current_path();
    for (const std::size_t length : {std::size_t{1023}, std::size_t{1024}, std::size_t{1025}, std::size_t{4095}}) {
        // As long as wished: directories that lead nowhere, then the name.
        std::string name = directory.file("d");
        std::filesystem::create_directory(name);
        const std::string last = "trace" + std::to_string(length);
        while (name.size() + last.size() + 1 < length) {
            name += name.size() + last.size() + 3 <= length ? "/." : "/";
        }
        name += "/" + last;
        ASSERT_EQ(name.size(), length);
        const int expected = length <= 4095 ? 0 : STAPI_RC_TRACE_FILE_OPEN_FAILED;
        ASSERT_EQ(setAPITraceFile(name.c_str()), expected);
        ASSERT_EQ(setAPITraceLevel(4), 0);
        EXPECT_EQ(level(), 4);
        const std::string real = directory.file("d/" + last);
        EXPECT_THAT(readFile(real), HasSubstr("API.getAPITraceLevel"));
        EXPECT_EQ(shownName(real), name.substr(0, 1023));
        EXPECT_EQ(setAPITraceFile(name.c_str()), expected) << "and again, with the name in trace lines";
        ASSERT_EQ(setAPITraceLevel(0), 0);
    }
    std::filesystem::current_path(before);
}

TEST_F(Settings, longestNameButOneFails) {
    write(one);
    ASSERT_EQ(setAPITraceLevel(1), 0);
    const std::string name = "/" + std::string(5000, 'x');
    EXPECT_EQ(setAPITraceFile(name.c_str()), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_THAT(readFile(one), HasSubstr(name)) << "the line shows the name whole";
    EXPECT_EQ(shownName(one), one);
}

// Trace lines, also those with a dump, leave errno alone and are whole lines in the file at once.
TEST_F(Settings, stateGoesToTheDestination) {
    const simgateway::Server server;
    write(one);
    const apitest::Connection connection(server);
    ASSERT_EQ(dumpState(), 0);
    const std::string text = readFile(one);
    EXPECT_THAT(text, StartsWith("zulstats state dump: API Version=1_1_0_0 Trace Level=0 statAPITraceFile=" + one));
    EXPECT_THAT(text, HasSubstr("Total number of Gateway Token List entries=1\n"));
    EXPECT_EQ(text.back(), '\n');
}

}  // namespace
