// The library under many threads, many calls, and as the first calls of a process.
#include "child.h"
#include "fixture.h"
#include "walk.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_IS_THE_SANITIZERS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HEAP_IS_THE_SANITIZERS 1
#endif
#endif

namespace {

using apitest::allStatIds;
using apitest::allStats;
using apitest::Connection;
using apitest::Entries;
using apitest::Exchange;
using apitest::openDescriptors;
using apitest::PATIENCE;
using apitest::QUERY_CALLS;
using apitest::QueryCall;
using apitest::walkIds;
using apitest::walkStats;

constexpr int THREADS = 8;

void inThreads(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Blocks of the heap that are in use, after a first round of work has taken what is taken once.
std::size_t heapInUse() {
    return mallinfo2().uordblks + mallinfo2().hblkhd;
}

// A server in a process of its own: its bookkeeping would hide what the library keeps.
class ForkedServer {
public:
    ForkedServer() {
        int channel[2];
        EXPECT_EQ(pipe2(channel, O_CLOEXEC), 0);
        process = fork();
        if (process == 0) {
            alarm(50);
            const simgateway::Server server({.stats = 40, .keepRequests = false});
            const std::uint16_t number = server.port();
            const ssize_t written = write(channel[1], &number, sizeof number);
            close(channel[1]);
            char ignored = 0;
            // Until the parent is gone, or has sent the signal that ends this process.
            _exit(written == sizeof number && pause() < 0 ? ignored : 1);
        }
        close(channel[1]);
        EXPECT_EQ(read(channel[0], &port, sizeof port), static_cast<ssize_t>(sizeof port));
        close(channel[0]);
    }
    ~ForkedServer() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    ForkedServer(const ForkedServer&) = delete;
    ForkedServer& operator=(const ForkedServer&) = delete;

    std::uint16_t port = 0;

private:
    pid_t process = -1;
};

GatewayToken* openAt(int port) {
    GatewayToken* token = nullptr;
    char* version = nullptr;
    EXPECT_EQ(openGatewayConnection(port, &token, &version), 0);
    std::free(version);
    return token;
}

class Endurance : public apitest::QuietTest {
protected:
    const ForkedServer server;

    // Repeats the work and expects descriptors and heap to be as after the first rounds.
    static void expectNoGrowth(int rounds, const std::function<void()>& work) {
        for (int i = 0; i < 20; ++i) {
            work();
        }
        const int descriptors = openDescriptors();
        const std::size_t heap = heapInUse();
        for (int i = 0; i < rounds; ++i) {
            work();
        }
        EXPECT_EQ(openDescriptors(), descriptors);
#ifndef HEAP_IS_THE_SANITIZERS
        EXPECT_LE(heapInUse(), heap + 2048);
#else
        static_cast<void>(heap);  // the leak check at the end of the process stands for it
#endif
    }
};

TEST_F(Endurance, ofQueries) {
    GatewayToken* token = openAt(server.port);
    expectNoGrowth(400, [&] {
        for (const QueryCall& call : QUERY_CALLS) {
            ResultSetToken* result = nullptr;
            ASSERT_EQ(call.run(token, &result, "daemon"), 0);
            char* query = nullptr;
            ASSERT_EQ(getIdQuery(result, &query), 0);
        }
    });
    EXPECT_EQ(closeGatewayConnection(&token), 0);
}

TEST_F(Endurance, ofConnections) {
    expectNoGrowth(300, [&] {
        GatewayToken* token = openAt(server.port);
        ResultSetToken* result = nullptr;
        ASSERT_EQ(getStatsByStatGroupId(token, "daemon", &result), 0);
        ASSERT_EQ(closeGatewayConnection(&token), 0);
        token = openAt(server.port);
        ASSERT_EQ(closeAllGatewayConnections(), 0);
    });
}

TEST_F(Endurance, ofCopies) {
    GatewayToken* token = openAt(server.port);
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    expectNoGrowth(2000, [&] {
        ResultSetToken* copy = nullptr;
        ASSERT_EQ(copyResultSet(result, &copy), 0);
        char* query = nullptr;
        ASSERT_EQ(getIdQuery(copy, &query), 0);
        ASSERT_EQ(freeResultSet(&copy), 0);
    });
    EXPECT_EQ(closeGatewayConnection(&token), 0);
}

TEST_F(Endurance, ofFailures) {
    expectNoGrowth(200, [] {
        GatewayToken* token = nullptr;
        char* version = nullptr;
        ASSERT_EQ(openRemoteGatewayConnection(apitest::UNRESOLVABLE, 1, &token, &version), STAPI_RC_HOST_NOT_RESOLVED);
        ASSERT_EQ(openRemoteGatewayConnection("127.255.255.255", 1, &token, &version), STAPI_RC_NETWORK_UNREACHABLE);
        ASSERT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    });
}

// Failed queries and failed openings give back what they took. The server is this process's, so only descriptors count.
TEST(EnduranceOfFaults, keepsNoDescriptor) {
    alarm(55);
    simgateway::Server server;
    const int before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        server.inject(Exchange::invoke, {.closeAfter = static_cast<std::size_t>(i)});
        GatewayToken* token = openAt(server.port());
        ResultSetToken* result = nullptr;
        if (getStats(token, &result) == 0) {
            EXPECT_EQ(closeGatewayConnection(&token), 0);
        }
        server.inject(Exchange::getAttribute, {.replyRc = 1});
        EXPECT_EQ(apitest::openAndClose(server), STAPI_RC_GATEWAY_REQUEST_FAILED);
    }
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    EXPECT_EQ(openDescriptors(), before);
    alarm(0);
}

using Threads = apitest::QuietGatewayTest;

TEST_F(Threads, workOnTheirOwnConnections) {
    const Entries stats = allStats(simgateway::Model());
    const Entries ids = allStatIds(simgateway::Model());
    inThreads([&](int) {
        for (int round = 0; round < 10; ++round) {
            Connection connection(server);
            ResultSetToken* result = nullptr;
            ResultSetToken* copy = nullptr;
            ASSERT_EQ(getStats(connection, &result), 0);
            EXPECT_EQ(walkStats(result), stats);
            ASSERT_EQ(copyResultSet(result, &copy), 0);
            ASSERT_EQ(getStatIds(connection, &result), 0);
            EXPECT_EQ(walkIds(result), ids);
            EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
            EXPECT_EQ(walkStats(copy), stats);
            EXPECT_EQ(freeResultSet(&copy), 0);
        }
    });
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
}

// Queries that fail in some threads leave the others' connections alone.
TEST_F(Threads, loseTheirOwnConnectionsOnly) {
    std::atomic<int> lost{0};
    for (int i = 0; i < 3; ++i) {
        server.inject(Exchange::invoke, {.closeAfter = 0});
    }
    inThreads([&](int) {
        Connection connection(server);
        for (int round = 0; round < 20; ++round) {
            ResultSetToken* result = nullptr;
            const int rc = getStats(connection, &result);
            if (rc == STAPI_RC_GATEWAY_CONNECTION_LOST) {
                ++lost;
                *connection.address() = nullptr;
                break;
            }
            ASSERT_EQ(rc, 0);
        }
    });
    EXPECT_EQ(lost, 3);
}

// Settings change and states are dumped while others trace; every line of the result stays whole.
TEST_F(Threads, shareTheTrace) {
    const std::string path = testing::TempDir() + "zulstats-threads-" + std::to_string(getpid()) + ".trace";
    ASSERT_EQ(setAPITraceFile(path.c_str()), 0);
    ASSERT_EQ(setAPITraceLevel(3), 0);
    inThreads([&](int number) {
        if (number == 0) {
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(setAPITraceLevel(i % 2 == 0 ? 5 : 3), 0);
                EXPECT_EQ(setAPITraceFile(path.c_str()), 0);
            }
            return;
        }
        for (int i = 0; i < 20; ++i) {
            char* version = nullptr;
            int level = 0;
            EXPECT_EQ(getStatsAPIVersion(&version), 0);
            EXPECT_EQ(getAPITraceLevel(&level), 0);
            EXPECT_TRUE(level == 3 || level == 5) << level;
        }
        const Connection connection(server);
    });
    ASSERT_EQ(setAPITraceLevel(0), 0);
    ASSERT_EQ(setAPITraceFile(nullptr), 0);
    std::FILE* trace = std::fopen(path.c_str(), "re");
    ASSERT_NE(trace, nullptr);
    char line[1024];
    std::size_t count = 0;
    while (std::fgets(line, sizeof line, trace) != nullptr) {
        ++count;
        // Each begins as a trace line, a dump line or a banner does, and goes up to its line end.
        EXPECT_THAT(line, testing::MatchesRegex("([0-9]|0x|\\*\\*\\*\\* QAL).*\n"));
    }
    EXPECT_GT(count, 500U);
    std::fclose(trace);
    std::remove(path.c_str());
}

// The state, dumped while other threads open and close.
TEST_F(Threads, openWhileTheStateIsDumped) {
    ASSERT_EQ(setAPITraceFile("/dev/null"), 0);
    std::atomic<int> working{THREADS - 1};
    inThreads([&](int number) {
        if (number == 0) {
            while (working > 0) {
                EXPECT_EQ(dumpState(), 0);
            }
            return;
        }
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(apitest::openAndClose(server), 0);
        }
        --working;
    });
}

// The first calls of a process may come from several threads at once: one of them initialises, all succeed.
TEST(FirstCalls, raceWithoutALoser) {
    for (int round = 0; round < 20; ++round) {
        const int failures = unittest::runInChild([] {
            std::barrier start(THREADS);
            std::atomic<int> failed{0};
            inThreads([&](int number) {
                start.arrive_and_wait();
                char* version = nullptr;
                int level = -1;
                const int rc = number % 3 == 0   ? getStatsAPIVersion(&version)
                               : number % 3 == 1 ? getAPITraceLevel(&level)
                                                 : closeAllGatewayConnections();
                failed += rc == 0 ? 0 : 1;
                failed += number % 3 != 0 || std::string(version) == "1_1_0_0" ? 0 : 1;
                failed += number % 3 != 1 || level == 0 ? 0 : 1;
            });
            return failed.load();
        });
        ASSERT_EQ(failures, 0) << "round " << round;
    }
}

}  // namespace
