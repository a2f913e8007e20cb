// The diagnostic trace: lines, levels, dumps, threads and destination.
#include "stapi_zul_diag.h"
#include "stapi_zul_identity.h"
#include "zulstats.h"

#include "support/interposer.h"
#include "support/guarded_block.h"
#include "support/process.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#define X15 "xxxxxxxxxxxxxxx"
#define X240 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15 X15

namespace {

using namespace support;

TRACE_POINT(test_entry, 7, ENTRY, 1, "test.entry()\n")
TRACE_POINT(test_debug, 42, DEBUG, 4, "test.debug 100%% %4.4d|%s|\n")
TRACE_POINT(test_data, 3000, DATA, 4, "test.data data=%p len=%d stopword=%8.8X\n")
TRACE_POINT(test_stale, 8, ENTRY, 1, "test.stale()\n", STALE_STAMP)
TRACE_POINT(test_text, 9, DEBUG, 1, "test.text(%s)\n")
TRACE_POINT(test_longest, 10, EXC, 1, X240 "0123456789 %s\n")
static_assert(sizeof X240 "0123456789 %s\n" == trace_text::MESSAGE_MAX - 1);

using testing::ElementsAre;

// Sets TZ while it lives.
class TimeZone {
public:
    explicit TimeZone(const std::string& name) {
        setenv("TZ", name.c_str(), 1);
        tzset();
    }
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
};

TEST(TraceLine, gateIsTheRowsLevelAndAClosedOneEvaluatesNothing) {
    for (int level = 0; level <= 5; ++level) {
        TraceCapture trace(level);
        int evaluated = 0;
        TRACE(test_debug, ++evaluated, "text");
        EXPECT_EQ(evaluated, level >= 4 ? 1 : 0) << level;
        EXPECT_EQ(trace.takeNumbers({42}).size(), level >= 4 ? 1u : 0u) << level;
    }
}

TEST(TraceLine, prefixShowsLocalTimeProcessAndThread) {
    TraceCapture trace(1);
    const TimeZone zone("TST-5:30");
    // Not by time(), whose seconds begin a little later than those of the clock that lines are written by.
    const auto now = [] { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); };
    const std::time_t before = now();
    TRACE(test_entry);
    const auto line = parseTraceLine(trace.takeRaw().at(0)).value();
    EXPECT_EQ(line.pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(line.tid, static_cast<std::uint32_t>(pthread_self()));
    std::tm stamp{};
    ASSERT_NE(strptime(line.stamp.c_str(), "%d/%m/%y %H:%M:%S:", &stamp), nullptr) << line.stamp;
    const std::time_t written = timegm(&stamp) - (5 * 60 + 30) * 60;
    EXPECT_TRUE(before <= written && written <= now()) << line.stamp;
}

TEST(TraceLine, staleRowRepeatsTheStampOfTheLineBefore) {
    TraceCapture trace(1);
    TRACE(test_entry);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    TRACE(test_stale);
    TRACE(test_entry);
    const std::vector<std::string> lines = trace.takeRaw();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].substr(0, 21), lines[0].substr(0, 21));
    EXPECT_NE(lines[2].substr(0, 21), lines[0].substr(0, 21));
}

TEST(TraceLine, nullAndLongArgumentsAndTheLongestText) {
    TraceCapture trace(1);
    const std::string longText(32000, 'l');
    for (const char* argument : {static_cast<const char*>(nullptr), longText.c_str()}) {
        TRACE(test_text, argument);
        TRACE(test_longest, argument);
        const std::string shown = argument == nullptr ? "(null)" : argument;
        EXPECT_THAT(trace.take(),
                    ElementsAre("[0009] DEBUG  test.text(" + shown + ")", "[0010] *EXC*  " X240 "0123456789 " + shown));
    }
}

TEST(TraceLine, writingKeepsErrno) {
    constexpr int SOME_ERRNO = 4242;  // no call sets this one
    const std::pair<const char*, const char*> cases[] = {
        {"UTC0", nullptr}, {":/nowhere", nullptr}, {":/proc", nullptr}, {"UTC0", "/dev/full"}};
    StapiLock unusable{};
    const std::function<void()> writers[] = {
        [] { TRACE(test_entry); },        [] { TRACE_DUMP(test_data, "ABCD", 4); },
        [&] { requestLock(&unusable); },  [] { traceOutStorage("ABCD", 4, 0, 16, 1); },
        [] { writeTraceText("text\n"); },
    };
    for (const auto& [zoneName, destination] : cases) {
        TraceCapture trace(5);
        const TimeZone zone(zoneName);
        if (destination != nullptr) {
            switchTo(destination);
        }
        for (const auto& write : writers) {
            errno = SOME_ERRNO;
            write();
            EXPECT_EQ(errno, SOME_ERRNO) << zoneName << ", writer " << &write - writers;
        }
    }
}

// Also where the storage that a dump shows faults, all before it is on file.
TEST(TraceLine, isOnFileWhenTheCallReturns) {
    TempDirectory directory;
    TraceCapture trace(4);
    const std::string path = directory.file("trace");
    switchTo(path);
    TRACE(test_entry);
    EXPECT_EQ(splitLines(readFile(path)).size(), 1u);
    GuardedBlock block({'A', 'B', 'C', 'D'});
    EXPECT_EQ(runInChild([&] {
                  signal(SIGSEGV, SIG_DFL);
                  return traceOutStorage(block.data(), 5, 0, 16, 1);
              }),
              -100 - SIGSEGV);
    EXPECT_THAT(readFile(path), testing::EndsWith(": 41424344"));
}

TEST(StorageDump, readsNothingBehindItsBounds) {
    constexpr std::uint32_t STOP = 0x504F5453;
    TraceCapture trace(0);
    for (const int size : {4, 5, 15, 16, 17, 18, 20, 31, 32, 33, 34, 36, 32767}) {
        SCOPED_TRACE(size);
        GuardedBlock block(std::vector<unsigned char>(static_cast<std::size_t>(size), 'g'));
        const auto dump = [&] { return traceOutStorage(block.data(), 0, STOP, 16, 0, block.data() + size); };
        EXPECT_EQ(dump(), size - 3);
        EXPECT_EQ(trace.take().size(), static_cast<std::size_t>((size - 3 + 15) / 16));
        if (size % 16 != 4) {  // a line that starts with the stop word is shown whole
            std::memcpy(block.data() + size - sizeof STOP, &STOP, sizeof STOP);
            EXPECT_EQ(dump(), size - 4);
        }
        EXPECT_EQ(traceOutStorage(block.data(), size, 0, 16, 1), size);
        static_cast<void>(trace.take());
    }
}

TEST(TraceThreads, dataLineAndItsDumpStayTogether) {
    constexpr std::size_t THREADS = 4;
    constexpr std::size_t ROUNDS = 50;
    TraceCapture trace(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < THREADS; ++i) {
        threads.emplace_back([i] {
            const std::string bytes(20, static_cast<char>('A' + i));
            for (std::size_t round = 0; round < ROUNDS; ++round) {
                TRACE_DUMP(test_data, bytes.data(), 20);
                TRACE(test_text, "between");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = trace.take();
    ASSERT_EQ(lines.size(), THREADS * ROUNDS * 4);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].starts_with("[3000]")) {
            const char letter = lines.at(i + 1).at(lines[i + 1].find(" : ") + 3);
            const std::string hex = format("%02X%02X%02X%02X", letter, letter, letter, letter);
            const std::string all(16, letter);
            ASSERT_EQ(lines[i + 1], hex + " " + hex + " " + hex + " " + hex + " : " + all + " ");
            ASSERT_EQ(lines.at(i + 2), hex + std::string(27, ' ') + " : " + all.substr(0, 4));
        }
    }
}

// Lock lines and state lines are written without traceLock while the destination goes away under them.
TEST(TraceThreads, linesStayWholeWhileTheDestinationSwitches) {
    constexpr int ROUNDS = 120;
    const std::string longText(6000, 'l');  // more than a stream buffers
    TempDirectory directory;
    TraceCapture trace(5);
    std::atomic<int> writing = 2;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < ROUNDS; ++round) {
                TRACE(test_text, longText.c_str());
                writeTraceState();
            }
            --writing;
        });
    }
    int switches = 0;
    for (; writing > 0 || switches < 6; ++switches) {
        switchTo(directory.file(switches % 2 == 0 ? "a" : "b"));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    trace.setLevel(0);

    int texts = 0;
    int states = 0;
    std::vector<std::string> lines = trace.takeRaw();
    for (const char* name : {"a", "b"}) {
        const std::vector<std::string> more = splitLines(readFile(directory.file(name)));
        lines.insert(lines.end(), more.begin(), more.end());
    }
    for (const std::string& line : lines) {
        const auto parsed = parseTraceLine(line);
        const bool isText = parsed && parsed->number == 9;
        const bool isWhole = isText   ? parsed->message == "test.text(" + longText + ")"
                             : parsed ? parsed->message.starts_with("stapi_zul_lock.re") &&
                                            (line.ends_with(")") || line.ends_with(" mutexRc=0 rc=0"))
                                      : line.starts_with("zulstats state dump: API Version=1_1_0_0 Trace Level=5 ");
        ASSERT_TRUE(isWhole) << line.substr(0, 200);
        texts += isText ? 1 : 0;
        states += parsed ? 0 : 1;
    }
    EXPECT_EQ(texts, 2 * ROUNDS);
    EXPECT_EQ(states, 2 * ROUNDS);
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(4 * ROUNDS + 4 * (2 * ROUNDS + switches)));  // four of locks each
}

// Lines to a pipe whose reader has gone, as trace file and as standard error stream, and what is left of them at the
// end.
TEST(TraceDestination, brokenPipeEndsNothing) {
    TempDirectory directory;
    const std::string name = directory.file("fifo");
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    for (const bool toFile : {true, false}) {
        EXPECT_EQ(runInChild([&] {
                      int ends[2] = {-1, -1};
                      if (toFile) {
                          ends[0] = open(name.c_str(), O_RDONLY | O_NONBLOCK);
                          static_cast<void>(setAPITraceFile(name.c_str()));
                      } else if (pipe(ends) == 0) {
                          dup2(ends[1], STDERR_FILENO);
                          close(ends[1]);
                      }
                      setAPITraceLevel(5);
                      close(ends[0]);
                      signal(SIGPIPE, SIG_DFL);
                      errno = 4711;
                      TRACE(test_entry);
                      TRACE_DUMP(test_data, name.c_str(), 4);
                      writeTraceState();
                      const bool kept = errno == 4711 && signal(SIGPIPE, SIG_DFL) == SIG_DFL;
                      std::fflush(nullptr);
                      return kept ? 0 : 1;
                  }),
                  0)
            << toFile;
    }
}

// Whether checks and trace lines name the calling process.
bool namesTheCaller() {
    std::uint32_t pid = 0;
    getPidTid(&pid, nullptr);
    TraceCapture trace(1);
    TRACE(test_entry);
    const auto line = parseTraceLine(trace.takeRaw().at(0));
    return pid == static_cast<std::uint32_t>(getpid()) && line && line->pid == pid;
}

// The library keeps the process id, or asks each time where the kernel has no storage for it, or says yes to
// everything. In any case a child has its own, a cloned one too, of which the C library does not know.
TEST(ProcessId, isTheCallersOwn) {
    const std::optional<Outcome> advised[] = {std::nullopt, Outcome{.error = EINVAL}, Outcome{.error = 0, .result = 0}};
    for (const std::optional<Outcome>& outcome : advised) {
        SCOPED_TRACE(outcome ? outcome->error : -1);
        expectInChild([&outcome] {
            std::optional<CallFault> fault;
            if (outcome) {
                fault.emplace(Call::madvise, *outcome);
            }
            keepProcessId();
            if (!namesTheCaller() || runInChild([] { return namesTheCaller() ? 0 : 1; }) != 0) {
                return 1;
            }
#ifdef __s390__  // which has the stack before the flags
            const auto clone = static_cast<pid_t>(syscall(SYS_clone, 0, SIGCHLD, 0, 0, 0));
#else
            const auto clone = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
#endif
            if (clone == 0) {
                _exit(namesTheCaller() ? 0 : 2);
            }
            int status = -1;
            return waitpid(clone, &status, 0) == clone && status == 0 ? 0 : 3;
        });
    }
}

// The second of two first calls comes while the first is at work, and waits for it.
TEST(FirstCall, ofTwoThreadsAtOnce) {
    static std::thread second;
    static std::atomic<int> secondRc = -1;
    expectInChild([] {
        const CallHook hook(Call::madvise, [] {
            second = std::thread([] { secondRc = closeAllGatewayConnections(); });
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        });
        const int rc = closeAllGatewayConnections();
        second.join();
        return rc == 0 && secondRc == 0 ? 0 : 1;
    });
}

}  // namespace
