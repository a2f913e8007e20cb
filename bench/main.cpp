// Measures the library against bare yardsticks; scripts/bench runs it and makes a table of what it prints.
//
//     bench ROUNDS NAME=LIBRARY...
//     bench --count SUBJECT N    runs the subject over N statistics in bench_measured, for a counting tool
//
// In each round every subject runs one batch, in an order that changes; traced ones follow after all rounds. Lines of
// output are words with tabs between them:
//     elapsed GROUP SUBJECT N PER TIME...    nanoseconds of one run, round by round; to be shown divided by PER
//     processor ...                          the same in time of the client's processor
//     figure TEXT VALUE
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "careful.h"
#include "subjects.h"

using namespace bench;

namespace {

constexpr double BATCH_NANOSECONDS = 2e6;
constexpr unsigned LIMIT_SECONDS = 600;
constexpr int GROWTH_QUERIES = 10000;

double nanoseconds(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void print(const std::string& text, double value) {
    std::printf("figure\t%s\t%.6g\n", text.c_str(), value);
}

double clockTime(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double processorTime() {
    return clockTime(CLOCK_THREAD_CPUTIME_ID);
}

double processTime() {
    return clockTime(CLOCK_PROCESS_CPUTIME_ID);
}

// Runs a batch and keeps the times of one run in it.
void measure(Subject* subject, int batch) {
    if (subject->before) {
        subject->before();
    }
    bool right = true;
    const double start = processorTime();
    const double time = nanoseconds([&] {
        for (int i = 0; i < batch; ++i) {
            right = subject->run() == subject->expected && right;
        }
    });
    subject->elapsed.push_back(time / batch);
    subject->processor.push_back((processorTime() - start) / batch);
    if (subject->after) {
        subject->after();
    }
    if (!right) {
        fail((subject->name + " does not come to the right sum").c_str());
    }
}

void printTimes(const char* kind, const Subject& subject, const std::vector<double>& times) {
    std::printf("%s\t%s\t%s\t%d\t%d", kind, subject.group.c_str(), subject.name.c_str(), subject.count, subject.per);
    for (const double time : times) {
        std::printf("\t%.2f", time);
    }
    std::printf("\n");
}

// Processes that run or want to run, without this one.
double othersRunning() {
    std::ifstream stat("/proc/stat");
    std::string line;
    double running = 1;
    while (std::getline(stat, line)) {
        std::sscanf(line.c_str(), "procs_running %lf", &running);
    }
    return running - 1;
}

double heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

void fetchTen(const Library& library, GatewayToken* gateway, const char* query = nullptr) {
    static const long expected = expectedSum(10);
    if (fetchStats(library, gateway, query) != expected) {
        fail("a fetch");
    }
}

void printGrowth(const Library& library, std::uint16_t port, const char* query, const char* text) {
    GatewayToken* gateway = openConnection(library, port);
    double before = 0;
    for (int i = -10; i < GROWTH_QUERIES; ++i) {
        before = i <= 0 ? heapInUse() : before;
        fetchTen(library, gateway, query);
    }
    print(std::string("heap growth per query, bytes, ") + text, (heapInUse() - before) / GROWTH_QUERIES);
    closeConnection(library, gateway);
}

void printConnections(const Library& library, std::uint16_t port, int count) {
    std::vector<double> opening;
    std::vector<double> closing;
    std::vector<double> fetching;
    double heap = 0;
    for (int repetition = 0; repetition < 5; ++repetition) {
        std::vector<GatewayToken*> gateways(static_cast<std::size_t>(count));
        heap = heapInUse();
        opening.push_back(nanoseconds([&] {
            for (GatewayToken*& gateway : gateways) {
                gateway = openConnection(library, port);
            }
        }));
        heap = (heapInUse() - heap) / count;
        for (int i = 0; i < 20; ++i) {
            fetching.push_back(nanoseconds([&] { fetchTen(library, gateways.back()); }));
        }
        closing.push_back(nanoseconds([&] {
            for (GatewayToken* gateway : gateways) {
                closeConnection(library, gateway);
            }
        }));
    }
    const std::string of = ", " + std::to_string(count) + " connections";
    print("us per open" + of, median(opening) / count / 1e3);
    print("us per close" + of, median(closing) / count / 1e3);
    print("us per fetch (N = 10) on the newest" + of, median(fetching) / 1e3);
    print("heap bytes per connection" + of, heap);
}

// Fetches per second of all threads together, each on a connection of its own, and what a fetch takes of the
// processors.
template <typename MakeFetch>
void printThroughput(const char* name, int threadCount, MakeFetch makeFetch) {
    constexpr int FETCHES = 2000;
    std::barrier barrier(threadCount + 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            const auto fetch = makeFetch();
            barrier.arrive_and_wait();
            for (int done = 0; done < FETCHES; ++done) {
                fetch();
            }
            barrier.arrive_and_wait();
        });
    }
    barrier.arrive_and_wait();
    const double processorStart = processTime();
    const double time = nanoseconds([&] { barrier.arrive_and_wait(); });
    const double processor = processTime() - processorStart;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string of = " (N = 10), " + std::to_string(threadCount) + " threads, " + name;
    print("fetches per second" + of, threadCount * FETCHES / time * 1e9);
    print("processor us per fetch" + of, processor / threadCount / FETCHES / 1e3);
}

void printFigures(const Library& library, std::uint16_t port) {
    printGrowth(library, port, nullptr, "no query string");
    printGrowth(library, port, "group.element.1:group.element.2", "with a query string");
    for (const int count : {1, 16, 64, 256}) {
        printConnections(library, port, count);
    }
    for (const int count : {1, 2, 4}) {
        for (const auto& [name, calls] :
             {std::pair{"floor", 0u}, std::pair{"floor, same calls", BareClient::ALL_CALLS}}) {
            printThroughput(name, count, [&, made = calls] {
                const auto client = std::make_shared<BareClient>(port);
                return [client, made] { client->fetch(made); };
            });
        }
        printThroughput("careful", count, [&] {
            const auto client = std::make_shared<CarefulClient>(port);
            return [client] { client->fetch(); };
        });
        printThroughput("zulstats", count, [&] {
            const std::shared_ptr<GatewayToken> gateway(openConnection(library, port),
                                                        [&](GatewayToken* token) { closeConnection(library, token); });
            return [&library, gateway] { fetchTen(library, gateway.get()); };
        });
    }
}

int measureAll(int rounds, char** libraryArguments) {
    alarm(LIMIT_SECONDS);
    const std::vector<int> sizes = {10, 100, 400, statsLimit()};
    const Cores cores = availableCores();
    std::vector<Bytes> payloads;
    for (const int count : sizes) {
        payloads.push_back(statsReply(count).bytes());
    }
    const std::vector<std::uint16_t> ports = startServer(payloads, cores.server);
    std::vector<Subject> redis;
    addRedis(&redis, {10, 100, 400}, cores.server);
    pinTo(cores.client);
    std::vector<Library> libraries;
    for (; *libraryArguments != nullptr; ++libraryArguments) {
        const std::string argument = *libraryArguments;
        const std::size_t equals = argument.find('=');
        libraries.push_back(loadLibrary(argument.substr(0, equals), argument.substr(equals + 1)));
    }
    char traceFile[] = "/tmp/zulstats-bench-XXXXXX";
    close(mkstemp(traceFile));
    if (libraries.front().setAPITraceFile(traceFile) != 0) {
        fail("opening the trace file");
    }
    printFigures(libraries.front(), ports[0]);

    std::vector<Subject> subjects;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        addFetches(&subjects, libraries, sizes[i], ports[i], traceFile);
        addCxx(&subjects, std::filesystem::read_symlink("/proc/self/exe").replace_filename("bench_cxx.so"), sizes[i],
               ports[i]);
        std::copy_if(redis.begin(), redis.end(), std::back_inserter(subjects),
                     [&](const Subject& subject) { return subject.count == sizes[i]; });
    }
    addSystemCalls(&subjects, sizes[1], ports[1]);
    std::vector<Walker> walkers;
    for (const Library& library : libraries) {
        walkers.push_back({library.name, library.getFirstStat, library.getNextStat});
    }
    addWalks(&subjects, walkers, sizes[2]);
    addParses(&subjects, sizes[2]);
    for (Subject& subject : subjects) {
        measure(&subject, 5);
        measure(&subject, 10);
        subject.batch = std::clamp(static_cast<int>(BATCH_NANOSECONDS / subject.elapsed.back()), 2, 2000);
        subject.elapsed.clear();
        subject.processor.clear();
    }
    double others = 0;
    std::vector<Subject*> order;
    for (Subject& subject : subjects) {
        if (!subject.before) {
            order.push_back(&subject);
        }
    }
    std::mt19937 random(1);  // the same orders in every run
    for (int round = 0; round < rounds; ++round) {
        others += othersRunning() / rounds;
        std::shuffle(order.begin(), order.end(), random);
        for (Subject* subject : order) {
            measure(subject, subject->batch);
        }
    }
    // Tracing leaves caches and writes behind that the next subject would pay for.
    for (int round = 0; round < (rounds + 9) / 10; ++round) {
        for (Subject& subject : subjects) {
            if (subject.before) {
                measure(&subject, subject.batch);
            }
        }
    }
    std::remove(traceFile);
    print("other processes running", others);
    for (const Subject& subject : subjects) {
        printTimes("elapsed", subject, subject.elapsed);
        printTimes("processor", subject, subject.processor);
    }
    return 0;
}

}  // namespace

extern "C" [[gnu::noinline]] void bench_measured(Subject* subject) {
    measure(subject, 100);
}

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--count") == 0) {
        std::vector<Subject> subjects;
        addParses(&subjects, std::atoi(argv[3]));
        addWalks(&subjects, {{"zulstats", getFirstStat, getNextStat}}, std::atoi(argv[3]));
        for (Subject& subject : subjects) {
            if (subject.group + ", " + subject.name == argv[2]) {
                measure(&subject, 1);  // what only a first call does
                bench_measured(&subject);
                return 0;
            }
        }
    } else if (argc >= 3 && std::atoi(argv[1]) > 0) {
        return measureAll(std::atoi(argv[1]), argv + 2);
    }
    std::fprintf(stderr, "usage: bench ROUNDS NAME=LIBRARY...\n       bench --count SUBJECT N\n");
    return 2;
}
