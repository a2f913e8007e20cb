// The library over a long life, under many threads, and as the first calls of many processes.
#include "support/fixture.h"
#include "support/forked_server.h"
#include "support/process.h"
#include "support/walk.h"

#include <atomic>
#include <barrier>
#include <thread>

namespace {

using support::Exchange;
using support::ForkedServer;
using support::openDescriptors;
using support::QUERY_CALLS;
using Clock = std::chrono::steady_clock;

constexpr char USAGE[] =
    "usage: soak queries N | connections N | threads THREADS QUERIES | close ROUNDS | first PROCESSES\n"
    "            [--hostile] [--level LEVEL] [--seconds LIMIT] [--any-size]\n"
    "  --hostile   every 100th of the queries or connections meets a hostile reply\n"
    "  --level     threads: one trace level throughout, in place of all in turn\n"
    "  --any-size  the resident size may grow, as a checking tool makes it\n";

struct Options {
    std::string kind{};
    std::vector<int> counts{};
    bool hostile = false;
    int level = -1;
    unsigned seconds = 110;
    bool anySize = false;
};

// Answers to the six queries, with the first group as query string.
const std::vector<support::Entries> ANSWERS = [] {
    const simgateway::Model model(1, ForkedServer::STATISTICS);
    const support::Entries all = support::allStats(model);
    const support::Entries group = support::statsOfGroup(model, "daemon");
    return std::vector{all, support::idsOnly(all), support::allGroupIds(model), group, group, support::idsOnly(group)};
}();

// Asks, walks the answer and a copy of it, and makes a query string. What is not hostile succeeds with the true answer.
int ask(GatewayToken* token, int number, bool hostile) {
    const std::size_t index = static_cast<std::size_t>(number) % std::size(QUERY_CALLS);
    const support::QueryCall& call = QUERY_CALLS[index];
    ResultSetToken* result = nullptr;
    const int rc = call.run(token, &result, "daemon");
    EXPECT_TRUE(rc == 0 || hostile) << rc << " from query " << number;
    if (rc == 0) {
        ResultSetToken* copy = nullptr;
        char* query = nullptr;
        const support::Entries entries = support::walk(result, call.statistics);
        EXPECT_TRUE(hostile || entries == ANSWERS[index]) << "query " << number;
        EXPECT_EQ(copyResultSet(result, &copy), 0);
        EXPECT_TRUE(support::walk(copy, call.statistics) == entries) << "query " << number;
        EXPECT_TRUE(getIdQuery(copy, &query) == 0 || hostile) << "query " << number;
        EXPECT_EQ(freeResultSet(&copy), 0);
    }
    return rc;
}

int open(const ForkedServer& server, GatewayToken** token, bool mayFail = false) {
    char* version = nullptr;
    *token = nullptr;
    const int rc = openGatewayConnection(server.port(), token, &version);
    EXPECT_TRUE(mayFail || (rc == 0 && std::string(version) == "1_0_0_0")) << rc;
    std::free(version);
    return rc;
}

// Resident kilobytes, counted page by page: the counter in statm may lag behind by dozens of pages.
int residentSize() {
    int size = 0;
    std::FILE* file = std::fopen("/proc/self/smaps_rollup", "re");
    for (char line[256]; std::fgets(line, sizeof line, file) != nullptr;) {
        static_cast<void>(std::sscanf(line, "Rss: %d", &size));
    }
    std::fclose(file);
    return size;
}

// Repeats the work and compares what the process takes after the first thousand rounds and at the end.
void soak(const Options& options, const std::function<int(int number, bool hostile)>& round) {
    const int count = options.counts[0];
    int size = residentSize();  // once for what looking itself takes
    int descriptors = openDescriptors();
    int spoiled = 0;
    int refused = 0;
    for (int i = 0; i < count; ++i) {
        if (i == std::min(1000, count / 2)) {
            size = residentSize();
            descriptors = openDescriptors();
        }
        const bool hostile = options.hostile && i % (i < 1000 ? 10 : 100) == 9;  // at first all kinds of it
        spoiled += hostile ? 1 : 0;
        refused += round(i, hostile) == 0 ? 0 : 1;
    }
    const int last = residentSize();
    std::printf("rss %d kB -> %d kB, descriptors %d -> %d, %d hostile, %d refused\n", size, last, descriptors,
                openDescriptors(), spoiled, refused);
    EXPECT_TRUE(options.anySize || last - size <= 64);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(!options.hostile || (refused > 0 && refused < spoiled)) << "hostile replies without effect";
}

// Queries on four connections in turn. One that had a hostile reply is opened anew.
void soakQueries(const ForkedServer& server, const Options& options) {
    GatewayToken* tokens[4];
    for (GatewayToken*& token : tokens) {
        open(server, &token);
    }
    soak(options, [&](int i, bool hostile) {
        const int hundred = i / 100;
        GatewayToken*& token = tokens[hundred % 4];
        EXPECT_TRUE(!hostile || server.spoil(hundred % 5 == 0 ? Exchange::adminInit : Exchange::invoke));
        const int rc = ask(token, i + hundred, hostile);
        if (hostile) {
            EXPECT_TRUE(closeGatewayConnection(&token) == 0 || rc != 0) << i;
            open(server, &token);
        }
        return rc;
    });
    EXPECT_EQ(closeAllGatewayConnections(), 0);
}

// Connections with a query each, closed one by one and all at once in turn, and openings that fail. A hostile reply
// comes in any exchange.
void soakConnections(const ForkedServer& server, const Options& options) {
    soak(options, [&](int i, bool hostile) {
        EXPECT_TRUE(!hostile || server.spoil(static_cast<Exchange>(i / 100 % static_cast<int>(Exchange::unknown))));
        GatewayToken* token = nullptr;
        char* version = nullptr;
        int rc = open(server, &token, hostile);
        if (rc == 0) {
            rc = ask(token, i, hostile);
            EXPECT_TRUE((i % 2 == 0 ? closeGatewayConnection(&token) : closeAllGatewayConnections()) == 0 || rc != 0);
        }
        EXPECT_EQ(openRemoteGatewayConnection(support::UNRESOLVABLE, 1, &token, &version), STAPI_RC_HOST_NOT_RESOLVED);
        EXPECT_EQ(openRemoteGatewayConnection("127.255.255.255", 1, &token, &version), STAPI_RC_NETWORK_UNREACHABLE);
        EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
        return rc;
    });
}

void inThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Dumps, and traces in detail, hold the locks for long: others get four times as long without them.
void repeatWhile(const std::atomic<int>& working, const std::function<void()>& work) {
    while (working > 0) {
        const Clock::time_point start = Clock::now();
        work();
        std::this_thread::sleep_for(4 * (Clock::now() - start) + std::chrono::milliseconds(1));
    }
}

// All levels in turn, each round to another destination; the file has no name as soon as it is open.
void changeSettingsWhile(const std::atomic<int>& working) {
    const std::string path = testing::TempDir() + "zulstats-soak-" + std::to_string(getpid()) + ".trace";
    bool toFile = false;
    repeatWhile(working, [&] {
        toFile = !toFile;
        EXPECT_EQ(setAPITraceFile(toFile ? path.c_str() : "/dev/null"), 0);
        unlink(path.c_str());
        for (int level = 5; level >= 0; --level) {
            EXPECT_EQ(setAPITraceLevel(level), 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
}

void soakThreads(const ForkedServer& server, const Options& options) {
    const int count = options.counts[0];
    std::atomic<int> working = count;
    setAPITraceFile("/dev/null");
    setAPITraceLevel(std::max(options.level, 0));
    inThreads(count + 2, [&](int number) {
        if (number == count) {
            repeatWhile(working, [] { EXPECT_EQ(dumpState(), 0); });
        } else if (number > count && options.level < 0) {
            changeSettingsWhile(working);
        } else if (number < count) {
            GatewayToken* token = nullptr;
            for (int i = open(server, &token) == 0 ? 0 : options.counts[1]; i < options.counts[1]; ++i) {
                ask(token, i + number, false);
            }
            EXPECT_EQ(closeGatewayConnection(&token), 0);
            --working;
        }
    });
}

// Everything is closed, over and over, while threads open, query and close. Nothing is walked: a result set must not
// be in use when its connection goes. A token may be another thread's by then.
void soakClose(const ForkedServer& server, const Options& options) {
    constexpr int THREADS = 4;
    std::atomic<int> working = 1;
    std::atomic<int> opened = 0;
    std::atomic<int> answered = 0;
    std::atomic<int> lost = 0;
    setAPITraceFile("/dev/null");
    const int descriptors = openDescriptors();
    inThreads(THREADS + 3, [&](int number) {
        if (number == THREADS) {
            repeatWhile(working, [] { EXPECT_EQ(dumpState(), 0); });
        } else if (number == THREADS + 1) {
            changeSettingsWhile(working);
        } else if (number == THREADS + 2) {
            for (int round = 0; round < options.counts[0]; ++round) {
                for (const int seen = opened; opened < seen + 1 + round % 5;) {  // the alarm bounds it
                    std::this_thread::sleep_for(std::chrono::microseconds(100 * (round % 7)));
                }
                EXPECT_EQ(closeAllGatewayConnections(), 0);
            }
            working = 0;
        }
        while (number < THREADS && working > 0) {
            GatewayToken* token = nullptr;
            ResultSetToken* result = nullptr;
            int rc = open(server, &token, true);
            if (rc == 0) {
                ++opened;
                rc = QUERY_CALLS[number].run(token, &result);
                closeGatewayConnection(&token);
            }
            ++(rc == 0 ? answered : lost);
            EXPECT_TRUE(rc == 0 || rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_TOKEN_NOT_FOUND ||
                        rc == STAPI_RC_RESULT_SET_TID_MISMATCH)
                << rc;
        }
    });
    std::printf("%d answered, %d lost\n", answered.load(), lost.load());
    EXPECT_TRUE(answered > 0 && lost > 0);
    EXPECT_EQ(openDescriptors(), descriptors);
}

// The first calls of a process may come from several threads at once: one of them initialises, all succeed.
void soakFirst(const ForkedServer& server, const Options& options) {
    constexpr int THREADS = 8;
    const auto race = [&] {
        std::barrier start(THREADS);
        inThreads(THREADS, [&](int number) {
            char* version = nullptr;
            int level = -1;
            GatewayToken* token = nullptr;
            start.arrive_and_wait();
            if (number % 4 == 0) {
                EXPECT_TRUE(getStatsAPIVersion(&version) == 0 && std::string(version) == "1_1_0_0");
            } else if (number % 4 == 1) {
                EXPECT_TRUE(getAPITraceLevel(&level) == 0 && level == 0);
            } else if (number % 4 == 2) {
                EXPECT_EQ(closeAllGatewayConnections(), 0);
            } else {
                EXPECT_THAT(open(server, &token, true), testing::AnyOf(0, STAPI_RC_GATEWAY_CONNECTION_LOST));
            }
        });
        return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
    };
    for (int i = 0; i < options.counts[0]; ++i) {
        EXPECT_EQ(support::runInChild(race), 0) << "process " << i;
    }
}

struct Kind {
    const char* name;
    std::size_t counts;
    void (*run)(const ForkedServer&, const Options&);
};

constexpr Kind KINDS[] = {{"queries", 1, soakQueries},
                          {"connections", 1, soakConnections},
                          {"threads", 2, soakThreads},
                          {"close", 1, soakClose},
                          {"first", 1, soakFirst}};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--hostile") {
            options.hostile = true;
        } else if (argument == "--any-size") {
            options.anySize = true;
        } else if (argument == "--level" && i + 1 < argc) {
            options.level = std::atoi(argv[++i]);
        } else if (argument == "--seconds" && i + 1 < argc) {
            options.seconds = static_cast<unsigned>(std::atoi(argv[++i]));
        } else if (options.kind.empty()) {
            options.kind = argument;
        } else {
            options.counts.push_back(std::atoi(argv[i]));
        }
    }
    for (const Kind& kind : KINDS) {
        if (options.kind == kind.name && options.counts.size() == kind.counts) {
            alarm(options.seconds);
            kind.run(ForkedServer(), options);
            return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
        }
    }
    std::fputs(USAGE, stderr);
    return 2;
}
