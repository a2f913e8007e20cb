// A Follower on a clock that stands still unless the test moves it.
#include "monitor/follower.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "processes.h"
#include "simgateway/sim_gateway.h"

namespace {

using namespace monitor;
using simgateway::Exchange;
using std::chrono::seconds;

class Follow : public testing::Test {
protected:
    Follow() {
        options.collector = to(server->port());
        options.query = {What::statsByGroup, {"host"}};
        options.interval = seconds(10);
    }

    void start() {
        follower.emplace(options);
    }
    // The next event at this moment of the clock; nothing once there is only time to wait for.
    std::optional<Event> next() {
        const Clock::time_point end = Clock::now() + patience;
        while (Clock::now() < end) {
            if (std::optional<Event> come = follower->step(now)) {
                return come;
            }
            if (follower->descriptor() < 0) {
                return std::nullopt;
            }
            pollfd watched = {follower->descriptor(), POLLIN, 0};
            poll(&watched, 1, 1000);
        }
        ADD_FAILURE() << "nothing comes";
        return std::nullopt;
    }
    bool nextIs(Event::Kind kind) {
        event = next();
        return event && event->kind == kind;
    }
    // The first sample, and nothing behind it.
    void startWithASample() {
        start();
        EXPECT_TRUE(nextIs(Event::Kind::sample));
        EXPECT_FALSE(next());
    }
    void stopServer() {
        EXPECT_FALSE(next());
        server->stop();
        toNextWake();
    }
    // Moves the clock to the next moment at which there is something to do.
    Clock::duration toNextWake() {
        const Clock::time_point before = now;
        now = follower->nextWake();
        return now - before;
    }
    std::optional<simgateway::Server> server{std::in_place};
    FollowerOptions options;
    std::optional<Follower> follower;
    std::optional<Event> event;
    Clock::time_point now = Clock::time_point(seconds(1000));
};

TEST_F(Follow, SamplesComeAtTicksUntilTheyAreEnough) {
    options.count = 4;
    start();
    EXPECT_LE(follower->nextWake(), now);
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_TRUE(event->sample.freshConnection && !event->lost);
    EXPECT_FALSE(next());
    EXPECT_EQ(toNextWake(), seconds(10));
    now -= Milliseconds(1);
    EXPECT_FALSE(next());
    now += Milliseconds(1);
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_FALSE(event->sample.freshConnection);
    now += seconds(25);  // it was long in use: two ticks have passed, and none moves
    EXPECT_FALSE(next());
    EXPECT_EQ(toNextWake(), seconds(5));
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_FALSE(next());
    toNextWake();
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_LE(follower->nextWake(), now);
    ASSERT_TRUE(nextIs(Event::Kind::end));
    EXPECT_FALSE(event->failure);
    EXPECT_EQ(server->requests().back().exchange, Exchange::close);
    EXPECT_EQ(follower->nextWake(), Clock::time_point::max());
    now += seconds(100);
    EXPECT_FALSE(next());
}

TEST_F(Follow, ASilentCloseIsNoFailure) {
    server->inject(Exchange::close, {.silent = true});
    options.count = 1;
    start();
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_FALSE(follower->step(now));
    EXPECT_EQ(toNextWake(), options.timeout);
    ASSERT_TRUE(nextIs(Event::Kind::end));
    EXPECT_FALSE(event->failure);
}

TEST_F(Follow, GapsGrowUntilTheGatewayIsBack) {
    startWithASample();
    stopServer();
    const Clock::time_point lost = now;
    for (const int pause : {1, 2, 4, 8, 16, 30, 30}) {
        ASSERT_TRUE(nextIs(Event::Kind::gap)) << pause;
        EXPECT_EQ(event->firstGap, pause == 1);
        EXPECT_EQ(event->failure->kind, pause == 1 ? FailureKind::lost : FailureKind::cannotConnect);
        EXPECT_EQ(event->retryIn, seconds(pause));
        EXPECT_FALSE(next());
        EXPECT_EQ(toNextWake(), seconds(pause));
    }
    server.emplace(simgateway::Options{.port = static_cast<std::uint16_t>(server->port())});
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_TRUE(event->sample.freshConnection);
    EXPECT_EQ(event->lost, now - lost);
    EXPECT_FALSE(next());
    EXPECT_LE(toNextWake(), seconds(10));
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_FALSE(event->lost);
    stopServer();
    ASSERT_TRUE(nextIs(Event::Kind::gap));
    EXPECT_TRUE(event->firstGap);
    EXPECT_EQ(event->retryIn, seconds(1));
}

TEST_F(Follow, AnAnswerThatIsLateIsAGap) {
    startWithASample();
    server->inject(Exchange::invoke, {.silent = true});
    toNextWake();
    EXPECT_FALSE(follower->step(now));
    ASSERT_TRUE(eventually([&] { return server->pendingFaults(Exchange::invoke) == 0; }));
    EXPECT_TRUE(follower->busy());
    EXPECT_EQ(toNextWake(), options.timeout);
    ASSERT_TRUE(nextIs(Event::Kind::gap));
    EXPECT_EQ(event->failure->kind, FailureKind::deadline);
}

TEST_F(Follow, EndsWithoutAFirstSampleOrWithoutLeaveToTryAgain) {
    options.reconnect = false;
    startWithASample();
    stopServer();
    ASSERT_TRUE(nextIs(Event::Kind::end));
    EXPECT_EQ(event->failure.value().kind, FailureKind::lost);
    options.reconnect = true;
    start();
    ASSERT_TRUE(nextIs(Event::Kind::end));
    EXPECT_EQ(event->failure.value().kind, FailureKind::cannotConnect);
}

TEST_F(Follow, PausesAndChangesItsInterval) {
    startWithASample();
    follower->pause(true);
    EXPECT_EQ(follower->nextWake(), Clock::time_point::max());
    now += seconds(30);
    EXPECT_FALSE(next());
    follower->pause(false);
    ASSERT_TRUE(nextIs(Event::Kind::sample));
    EXPECT_FALSE(next());
    follower->setInterval(seconds(2), now);
    EXPECT_EQ(toNextWake(), seconds(2));
    ASSERT_TRUE(nextIs(Event::Kind::sample));

    stopServer();
    ASSERT_TRUE(nextIs(Event::Kind::gap));
    follower->setInterval(seconds(60), now);  // an attempt is not put off
    EXPECT_EQ(toNextWake(), seconds(1));
}

}  // namespace
