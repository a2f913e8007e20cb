// A Collector, with workers and Gateways that stop anywhere.
#include "monitor/collector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "processes.h"
#include "simgateway/sim_gateway.h"
#include "support/port.h"
#include "support/process.h"
#include "support/temp_directory.h"

namespace {

using namespace monitor;
using simgateway::Exchange;
using support::openDescriptors;

const Query conn = {What::statsByGroup, {"conn"}};
constexpr Milliseconds ENOUGH = patience;

CollectorOptions withOddWorker() {
    CollectorOptions options = to(1);
    options.worker = ODD_WORKER_PROGRAM;
    return options;
}

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
        server->inject(exchange, {.silent = true});
        return to(server->port());
    }

    const std::vector<Stall> stalls = {
        {Phase::starting, "starting the worker process",
         [&] {
             variables.push_back(std::make_unique<Variable>("ODD_WORKER", "mute"));
             return withOddWorker();
         }},
        {Phase::tracing, "",
         [&] {
             CollectorOptions options = to(1);
             options.traceLevel = 1;
             options.traceFile = directory.file("fifo" + std::to_string(fifos++));
             mkfifo(options.traceFile.c_str(), 0600);
             return options;
         }},
        {Phase::resolving, "resolving the host name",
         [&] {
             variables.push_back(std::make_unique<Variable>("LD_PRELOAD", SLOW_RESOLVER));
             variables.push_back(std::make_unique<Variable>("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"));
             return to(1);
         }},
        {Phase::opening, "opening the connection", [&] { return to(listener.number); }},
        {Phase::opening, "opening the connection", [&] { return silentIn(Exchange::handshake); }},
        {Phase::opening, "opening the connection", [&] { return silentIn(Exchange::getAttribute); }},
        {Phase::querying, "connection open, waiting for group conn", [&] { return silentIn(Exchange::invoke); }},
    };

    support::TakenPort listener{true};
    support::TempDirectory directory;
    int fifos = 0;
    std::optional<simgateway::Server> server;
    std::vector<std::unique_ptr<Variable>> variables;
};

TEST_F(Stalls, DeadlineOrDeathOfTheWorkerEndsEveryPhase) {
    for (const Stall& stall : stalls) {
        for (const bool killed : {false, true}) {
            SCOPED_TRACE(std::string(stall.wait) + (killed ? ", killed" : ""));
            Collector collector(stall.prepare());
            const Clock::time_point deadline = Clock::now() + std::chrono::hours(1);
            collector.begin(conn, deadline);
            variables.clear();
            ASSERT_TRUE(reaches(collector, stall.phase));
            EXPECT_EQ(collector.nextWake(), deadline);
            EXPECT_FALSE(collector.advance(deadline - Milliseconds(1)));
            const pid_t worker = collector.process();
            if (killed) {
                kill(worker, SIGKILL);
            }
            const Failure failure = (killed ? collector.wait() : collector.advance(deadline).value()).failure.value();
            const std::string text = killed                          ? "the worker process ended unexpectedly"
                                     : stall.phase == Phase::tracing ? directory.file("")
                                                                     : stall.wait;
            EXPECT_EQ(failure.kind, killed ? FailureKind::internal : FailureKind::deadline);
            EXPECT_EQ(failure.phase, stall.phase);
            EXPECT_TRUE(failure.text.starts_with(text)) << failure.text;
            EXPECT_TRUE(mayPass(failure) || !killed);
            EXPECT_FALSE(collector.busy());
            EXPECT_EQ(collector.nextWake(), Clock::time_point::max());
            EXPECT_TRUE(eventually([&] { return !alive(worker); }));
        }
    }
    // The next query finds everything in order.
    Collector collector(silentIn(Exchange::close));
    EXPECT_FALSE(collector.collect(conn, ENOUGH).failure);
    const pid_t former = collector.process();
    EXPECT_TRUE(collector.connected());
    ASSERT_TRUE(collector.beginClose(Clock::now() + ENOUGH));
    ASSERT_TRUE(reaches(collector, Phase::closing));
    ASSERT_TRUE(eventually([&] { return server->pendingFaults(Exchange::close) == 0; }));
    kill(former, SIGKILL);
    EXPECT_EQ(collector.wait().failure.value().phase, Phase::closing);
    EXPECT_FALSE(collector.connected() || collector.beginClose(Clock::now() + ENOUGH) || collector.close(ENOUGH));
    const Outcome outcome = collector.collect(conn, ENOUGH);
    EXPECT_TRUE(!outcome.failure && outcome.sample.freshConnection);
    EXPECT_NE(collector.process(), former);
    EXPECT_FALSE(collector.close(ENOUGH) || collector.connected());
    EXPECT_EQ(server->requests().back().exchange, Exchange::close);
}

TEST(Collector, HearsWhatAnOddWorkerSays) {
    const struct {
        const char* mode;
        FailureKind kind;
        const char* text;
    } cases[] = {
        {"half", FailureKind::internal, "the worker process ended unexpectedly"},
        {"version", FailureKind::internal, "is of another version (3, not 2)"},
        {"rude", FailureKind::internal, "is not understood"},
        {"twice", FailureKind::internal, "is not understood"},
        {"backward", FailureKind::internal, "is not understood"},
        {"long", FailureKind::internal, "is not understood"},
        {"odd", FailureKind::internal, "is not understood"},
        {"stuck", FailureKind::deadline, ""},
        {"flood", FailureKind::deadline, ""},
    };
    for (const auto& [mode, kind, text] : cases) {
        SCOPED_TRACE(mode);
        const Variable variable("ODD_WORKER", mode);
        const Milliseconds timeout = kind == FailureKind::deadline ? Milliseconds(300) : ENOUGH;
        const Failure failure = Collector(withOddWorker()).collect(conn, timeout).failure.value();
        EXPECT_EQ(failure.kind, kind);
        EXPECT_NE(failure.text.find(text), std::string::npos) << failure.text;
    }
}

TEST(Collector, AQueryWhileBusyTakesThePlaceOfTheFormer) {
    simgateway::Server server;
    server.inject(Exchange::invoke, {.silent = true});
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
    EXPECT_FALSE(collector.collect(conn, ENOUGH).sample.freshConnection);
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
    const support::TakenPort nobody;
    const int descriptors = openDescriptors();
    {
        Collector refused(to(nobody.number));
        CollectorOptions options = to(1);
        options.worker = "/nonexistent/zulstats-worker";
        Collector missing(options);
        const support::TakenPort listener(true);
        Collector stalled(to(listener.number));
        for (int count = 0; count < failures; ++count) {
            Collector& collector = count % 4 == 0 ? stalled : count % 4 == 1 ? missing : refused;
            const Milliseconds timeout = count % 4 == 0 ? Milliseconds(count % 7) : ENOUGH;
            const Failure failure = collector.collect(conn, timeout).failure.value();
            const FailureKind expected = count % 4 == 0   ? FailureKind::deadline
                                         : count % 4 == 1 ? FailureKind::internal
                                                          : FailureKind::cannotConnect;
            ASSERT_EQ(failure.kind, expected) << failure.text;
        }
        EXPECT_EQ(openDescriptors(), descriptors + 1);  // the listener's
        EXPECT_LE(children().size(), 2u);               // ended, and waited for by the next call
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(children().empty());
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

}  // namespace
