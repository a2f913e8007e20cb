// Version, trace level and trace destination.
#include "support/fixture.h"
#include "support/process.h"
#include "support/temp_directory.h"

#include <cstdio>
#include <fstream>

namespace {

using namespace support;
using testing::HasSubstr;
using testing::StartsWith;

const std::string BANNER =
    "**** QAL Velatra ZULSTATS DLL Version 1_1_0_0 Diagnostic trace - build(b410-20090429) ****\n";

int level() {
    int value = -1;
    EXPECT_EQ(getAPITraceLevel(&value), 0);
    return value;
}

// Whether a state dump to the file shows this name of the trace destination.
bool showsName(const std::string& file, const std::string& name) {
    EXPECT_EQ(dumpState(), 0);
    return readFile(file).find(" statAPITraceFile=" + name + "\n") != std::string::npos;
}

class Settings : public QuietTest {
protected:
    static void write(const std::string& name) {
        ASSERT_EQ(setAPITraceFile(name.c_str()), 0) << name;
    }
    // Banners in a trace file, after a line that flushes them, if any level is on.
    static int banners(const std::string& file) {
        setAPITraceLevel(7);
        const std::string text = readFile(file);
        int found = 0;
        for (std::size_t at = text.find(BANNER); at != std::string::npos; at = text.find(BANNER, at + 1)) {
            ++found;
        }
        return found;
    }
    const TempDirectory directory;
    const std::string one = directory.file("one");
    const std::string two = directory.file("two");
};

// A process whose standard error stream is a file: what it says before any setting, and after one that was taken back.
TEST_F(Settings, beginWithNothingTracedOnTheStandardErrorStream) {
    const int failed = runInChild([&] {
        char* version = nullptr;
        if (std::freopen(two.c_str(), "w", stderr) == nullptr || getAPITraceLevel(nullptr) != STAPI_RC_NULL_POINTER ||
            setAPITraceLevel(9) == 0 || getStatsAPIVersion(&version) != 0) {
            return 1;
        }
        std::fprintf(stderr, "%s, level %d\n", version, level());
        dumpState();
        setAPITraceFile(one.c_str());
        setAPITraceFile(nullptr);
        setAPITraceFile(one.c_str());
        std::fprintf(stderr, "still open\n");
        return std::fflush(stderr);
    });
    EXPECT_EQ(failed, 0);
    const std::string text = readFile(two);
    EXPECT_THAT(text, StartsWith("1_1_0_0, level 0\nzulstats state dump: API Version=1_1_0_0 Trace Level=0 "
                                 "statAPITraceFile=stderr\nGateway Token List dump\n"));
    EXPECT_TRUE(text.ends_with("\nstill open\n")) << text;
}

TEST_F(Settings, switchingOnWritesABanner) {
    write(one);
    EXPECT_EQ(banners(one), 0) << "a file taken while nothing is traced has none";
    for (const auto& [value, expected] : {std::pair(3, 1), {5, 1}, {1, 1}, {0, 1}, {1, 2}, {0, 2}, {0, 2}, {4, 3}}) {
        ASSERT_EQ(setAPITraceLevel(value), 0);
        EXPECT_EQ(value == 0 ? expected : banners(one), expected) << value;
    }
    // A file switch that fails writes the banner that the level's change has not marked as written, once.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
        EXPECT_EQ(banners(one), 4);
    }
    write(two);
    EXPECT_THAT(readFile(two), StartsWith(BANNER));
    ASSERT_EQ(setAPITraceLevel(0), 0);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    EXPECT_EQ(banners(two), 1) << "written by the file switch, so not again by the level";
    write(two);
    EXPECT_EQ(banners(two), 2) << "each switch is a new destination";
}

TEST_F(Settings, fileIsAppendedToAndLeft) {
    std::ofstream(one) << "before\n";
    write(one);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    const int descriptors = openDescriptors();
    write(two);
    const std::string left = readFile(one);
    EXPECT_THAT(left, StartsWith("before\n" + BANNER));
    EXPECT_EQ(level(), 3);
    EXPECT_EQ(readFile(one), left);
    EXPECT_THAT(readFile(two), HasSubstr("API.getAPITraceLevel"));
    EXPECT_EQ(openDescriptors(), descriptors);
}

// The shown name ends at 1023 characters, the file is the one that was named.
TEST_F(Settings, fileNamesOfEveryLength) {
    for (const std::size_t length : {std::size_t{1023}, std::size_t{1024}, std::size_t{4095}}) {
        const std::string last = "trace" + std::to_string(length);
        std::string name = directory.file("");
        name.append(length - name.size() - last.size(), '/').append(last);
        write(name);
        ASSERT_EQ(setAPITraceLevel(4), 0);
        EXPECT_TRUE(showsName(directory.file(last), name.substr(0, 1023)));
        write(name);  // and again, with the name in trace lines
        ASSERT_EQ(setAPITraceLevel(0), 0);
    }
}

}  // namespace
