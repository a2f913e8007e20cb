// A Collector, with workers and Gateways that stop anywhere.
#include "monitor/collector.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "processes.h"
#include "simgateway/sim_gateway.h"

namespace monitor {

namespace {

using simgateway::Exchange;

const Query conn = {What::statsByGroup, {"conn"}};
constexpr Milliseconds ENOUGH = patience;

simgateway::Fault silence() {
    simgateway::Fault fault;
    fault.silent = true;
    return fault;
}

// Accepts no connection, but lets them come.
class Listener {
public:
    Listener() : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size);
        listen(descriptor, 8);
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~Listener() {
        close(descriptor);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int descriptor;
    int port = 0;
};

class Directory {
public:
    Directory() : path((std::filesystem::temp_directory_path() / "zulstats-monitor-XXXXXX").string()) {
        EXPECT_NE(mkdtemp(path.data()), nullptr);
    }
    ~Directory() {
        std::filesystem::remove_all(path);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string path;
};

// Everything that stalls in one phase.
struct Stall {
    Phase phase;
    const char* wait;  // in words
    std::function<CollectorOptions()> prepare;
};

class Stalls : public testing::Test {
protected:
    CollectorOptions silentIn(Exchange exchange) {
        server.emplace();
        server->inject(exchange, silence());
        return to(server->port());
    }

    const std::vector<Stall> stalls = {
        {Phase::starting, "starting the worker process",
         [&] {
             variables.push_back(std::make_unique<Variable>("ODD_WORKER", "mute"));
             CollectorOptions options = to(1);
             options.worker = ODD_WORKER_PROGRAM;
             return options;
         }},
        {Phase::tracing, "",
         [&] {
             CollectorOptions options = to(1);
             options.traceLevel = 1;
             options.traceFile = directory.path + "/fifo" + std::to_string(fifos++);
             mkfifo(options.traceFile.c_str(), 0600);
             return options;
         }},
        {Phase::resolving, "resolving the host name",
         [&] {
             variables.push_back(std::make_unique<Variable>("LD_PRELOAD", SLOW_RESOLVER));
             variables.push_back(std::make_unique<Variable>("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"));
             return to(1);
         }},
        {Phase::opening, "opening the connection", [&] { return to(listener.port); }},
        {Phase::opening, "opening the connection", [&] { return silentIn(Exchange::handshake); }},
        {Phase::opening, "opening the connection", [&] { return silentIn(Exchange::getAttribute); }},
        {Phase::querying, "connection open, waiting for group conn", [&] { return silentIn(Exchange::invoke); }},
    };

    Listener listener;
    Directory directory;
    int fifos = 0;
    std::optional<simgateway::Server> server;
    std::vector<std::unique_ptr<Variable>> variables;
};

}  // namespace

TEST_F(Stalls, DeadlineEndsEveryPhase) {
    for (const Stall& stall : stalls) {
        SCOPED_TRACE(stall.wait);
        Collector collector(stall.prepare());
        const Clock::time_point deadline = Clock::now() + std::chrono::hours(1);
        collector.begin(conn, deadline);
        variables.clear();
        ASSERT_TRUE(reaches(collector, stall.phase));
        EXPECT_EQ(collector.nextWake(), deadline);
        EXPECT_FALSE(collector.advance(deadline - Milliseconds(1)));
        const pid_t worker = collector.process();
        const std::optional<Outcome> outcome = collector.advance(deadline);
        ASSERT_TRUE(outcome && outcome->failure);
        EXPECT_EQ(outcome->failure->kind, FailureKind::deadline);
        EXPECT_EQ(outcome->failure->phase, stall.phase);
        if (stall.phase == Phase::tracing) {
            EXPECT_EQ(outcome->failure->text.find(directory.path), 0u);
        } else {
            EXPECT_EQ(outcome->failure->text, stall.wait);
        }
        EXPECT_FALSE(collector.busy());
        EXPECT_EQ(collector.nextWake(), Clock::time_point::max());
        EXPECT_TRUE(eventually([&] { return !alive(worker); }));
    }
}

TEST_F(Stalls, WorkerKilledInEveryPhase) {
    for (const Stall& stall : stalls) {
        SCOPED_TRACE(stall.wait);
        Collector collector(stall.prepare());
        collector.begin(conn, Clock::now() + ENOUGH);
        variables.clear();
        ASSERT_TRUE(reaches(collector, stall.phase));
        kill(collector.process(), SIGKILL);
        const Outcome outcome = collector.wait();
        ASSERT_TRUE(outcome.failure);
        EXPECT_EQ(outcome.failure->kind, FailureKind::internal);
        EXPECT_EQ(outcome.failure->phase, stall.phase);
        EXPECT_EQ(outcome.failure->text, "the worker process ended unexpectedly");
        EXPECT_TRUE(mayPass(*outcome.failure));
    }
    // The next query finds everything in order.
    Collector collector(silentIn(Exchange::close));
    EXPECT_FALSE(collector.collect(conn, ENOUGH).failure);
    const pid_t former = collector.process();
    ASSERT_TRUE(collector.beginClose(Clock::now() + ENOUGH));
    ASSERT_TRUE(reaches(collector, Phase::closing));
    ASSERT_TRUE(eventually([&] { return server->pendingFaults(Exchange::close) == 0; }));
    kill(former, SIGKILL);
    EXPECT_EQ(collector.wait().failure.value().phase, Phase::closing);
    const Outcome outcome = collector.collect(conn, ENOUGH);
    EXPECT_FALSE(outcome.failure);
    EXPECT_TRUE(outcome.sample.freshConnection);
    EXPECT_NE(collector.process(), former);
}

TEST(Collector, ClosesWithoutWaiting) {
    simgateway::Server server;
    Collector collector(to(server.port()));
    EXPECT_FALSE(collector.beginClose(Clock::now() + ENOUGH));  // nothing to close
    EXPECT_FALSE(collector.close(ENOUGH));
    ASSERT_FALSE(collector.collect(conn, ENOUGH).failure);
    EXPECT_TRUE(collector.connected());
    ASSERT_TRUE(collector.beginClose(Clock::now() + ENOUGH));
    const Outcome outcome = collector.wait();
    EXPECT_FALSE(outcome.failure);
    EXPECT_FALSE(collector.connected());
    EXPECT_EQ(server.requests().back().exchange, Exchange::close);

    ASSERT_FALSE(collector.collect(conn, ENOUGH).failure);
    server.inject(Exchange::close, silence());
    const Clock::time_point deadline = Clock::now() + std::chrono::hours(1);
    ASSERT_TRUE(collector.beginClose(deadline));
    ASSERT_TRUE(reaches(collector, Phase::closing));
    EXPECT_EQ(collector.advance(deadline).value().failure.value().kind, FailureKind::deadline);
}

TEST(Collector, HearsWhatAnOddWorkerSays) {
    const std::pair<const char*, const char*> cases[] = {
        {"half", "the worker process ended unexpectedly"},
        {"version", "is of another version (2, not 1)"},
        {"rude", "is not understood"},
        {"twice", "is not understood"},
        {"backward", "is not understood"},
        {"long", "is not understood"},
        {"odd", "is not understood"},
    };
    for (const auto& [mode, text] : cases) {
        SCOPED_TRACE(mode);
        const Variable variable("ODD_WORKER", mode);
        CollectorOptions options = to(1);
        options.worker = ODD_WORKER_PROGRAM;
        Collector collector(options);
        const Outcome outcome = collector.collect(conn, ENOUGH);
        ASSERT_TRUE(outcome.failure);
        EXPECT_EQ(outcome.failure->kind, FailureKind::internal);
        EXPECT_NE(outcome.failure->text.find(text), std::string::npos) << outcome.failure->text;
    }
    for (const char* const mode : {"stuck", "flood"}) {
        SCOPED_TRACE(mode);
        const Variable variable("ODD_WORKER", mode);
        CollectorOptions options = to(1);
        options.worker = ODD_WORKER_PROGRAM;
        Collector collector(options);
        EXPECT_EQ(collector.collect(conn, Milliseconds(300)).failure.value().kind, FailureKind::deadline);
    }
}

TEST(Collector, AQueryWhileBusyTakesThePlaceOfTheFormer) {
    simgateway::Server server;
    server.inject(Exchange::invoke, silence());
    Collector collector(to(server.port()));
    collector.begin({What::stats, {}}, Clock::now() + ENOUGH);
    ASSERT_TRUE(eventually([&] { return server.pendingFaults(Exchange::invoke) == 0; }));
    EXPECT_FALSE(collector.advance(Clock::now()));
    EXPECT_EQ(collector.phase(), Phase::querying);
    const pid_t former = collector.process();
    collector.begin(conn, Clock::now() + ENOUGH);
    const Outcome outcome = collector.wait();
    ASSERT_FALSE(outcome.failure);
    ASSERT_EQ(outcome.sample.elements.size(), 1u);
    EXPECT_EQ(outcome.sample.elements[0].text, "conn");
    EXPECT_EQ(outcome.sample.query.what, What::statsByGroup);
    EXPECT_TRUE(outcome.sample.freshConnection);
    EXPECT_NE(collector.process(), former);
    EXPECT_TRUE(eventually([&] { return !alive(former); }));
    // On the same connection.
    EXPECT_FALSE(collector.collect(conn, ENOUGH).sample.freshConnection);
}

TEST(Collector, SamplesOutliveIt) {
    Sample kept;
    {
        simgateway::Server server;
        Collector collector(to(server.port()));
        const Outcome outcome = collector.collect({What::stats, {}}, ENOUGH);
        ASSERT_FALSE(outcome.failure);
        kept = outcome.sample;
        collector.collect(conn, ENOUGH);
    }
    EXPECT_EQ(kept.items.size(), 150u);
    EXPECT_EQ(kept.items[0].id, "daemon.version");
    EXPECT_EQ(kept.texts.size(), 1u);
    for (const Element& element : kept.elements) {
        EXPECT_EQ(kept.itemsOf(element).size(), element.itemCount);
    }
}

TEST(Collector, SizeIsThatOfTheWholeAnswer) {
    simgateway::Server server;
    Collector collector(to(server.port()));
    simgateway::Reply some;
    some.element("a").stat("a.one", "1").element("nothing in it").element("z").stat("z.one", "2");
    simgateway::Reply ids(simgateway::Reply::Content::identifiers);
    ids.element("a").id("a.one").element("empty").element("z").id("z.one").id("z.two");
    const std::pair<What, simgateway::Reply> cases[] = {
        {What::stats, simgateway::statsOfContentSize(32767)}, {What::stats, some}, {What::ids, ids}};
    for (const auto& [what, reply] : cases) {
        server.setPayload(Exchange::invoke, reply.bytes());
        const Outcome outcome = collector.collect({what, {}}, ENOUGH);
        ASSERT_FALSE(outcome.failure);
        EXPECT_EQ(outcome.sample.contentSize, reply.contentSize());
    }
    EXPECT_EQ(cases[0].second.contentSize(), RESULT_SET_LIMIT);
}

TEST(Collector, LeavesNothingBehindAfterManyFailures) {
    constexpr int failures = SANITIZED ? 100 : 1000;
    const std::size_t descriptors = openDescriptors();
    {
        Collector refused(to(unusedPort()));
        CollectorOptions options = to(1);
        options.worker = "/nonexistent/zulstats-worker";
        Collector missing(options);
        const Listener listener;
        Collector stalled(to(listener.port));
        for (int count = 0; count < failures; ++count) {
            Collector& collector = count % 4 == 0 ? stalled : count % 4 == 1 ? missing : refused;
            const Milliseconds timeout = count % 4 == 0 ? Milliseconds(count % 7) : ENOUGH;
            const Outcome outcome = collector.collect(conn, timeout);
            ASSERT_TRUE(outcome.failure);
            const FailureKind expected = count % 4 == 0   ? FailureKind::deadline
                                         : count % 4 == 1 ? FailureKind::internal
                                                          : FailureKind::cannotConnect;
            ASSERT_EQ(outcome.failure->kind, expected) << outcome.failure->text;
        }
        EXPECT_EQ(openDescriptors(), descriptors + 1);  // the listener's
        EXPECT_LE(children().size(), 2u);               // ended, and waited for by the next call
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(children().empty());
}

TEST(Collector, AnInterruptDescriptorEndsWhatWaits) {
    const Listener listener;
    CollectorOptions options = to(listener.port);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "", 1), 1);
    options.interruptFd = ends[0];
    Collector collector(options);
    EXPECT_EQ(collector.collect(conn, ENOUGH).failure.value().kind, FailureKind::interrupted);
    close(ends[0]);
    close(ends[1]);
}

TEST(Collector, FindsTheWorker) {
    const std::string own = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    EXPECT_TRUE(findWorker().starts_with(own + "/../")) << findWorker();  // none lies beside this program
    EXPECT_TRUE(findWorker().ends_with("/zulstats/zulstats-worker")) << findWorker();
    const Variable variable("ZULSTATS_WORKER", "/some/where");
    EXPECT_EQ(findWorker(), "/some/where");
    CollectorOptions options = to(1);
    options.worker = findWorker();
    const Failure failure = Collector(options).collect(conn, ENOUGH).failure.value();
    EXPECT_EQ(describeFailure(failure, options.target, std::chrono::seconds(5)),
              "internal error: cannot start the worker process /some/where: No such file or directory");
}

}  // namespace monitor
