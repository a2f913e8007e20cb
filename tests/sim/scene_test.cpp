// A server of scenes: what it serves follows them, and where they have no model nobody reaches it.
#include <atomic>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>

#include "raw_client.h"
#include "simgateway/model.h"
#include "support/port.h"
#include "walk.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

bool canConnect(std::uint16_t port) {
    try {
        const RawClient client(port);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

// Waits for the port to take connections, or to refuse them.
bool becomes(bool reachable, std::uint16_t port) {
    for (const auto end = Clock::now() + patience; canConnect(port) != reachable && Clock::now() < end;) {
        std::this_thread::sleep_for(2ms);
    }
    return canConnect(port) == reachable;
}

TEST(Scenes, decideWhatIsServed) {
    std::atomic<bool> reachable{false};
    std::atomic<std::uint64_t> moment{0};
    const simgateway::Model model({
        {"host",
         {{"host.a", [](std::uint64_t now) { return std::to_string(now); }},
          {"host.b", [](std::uint64_t) { return std::string("b"); }}}},
        {"partly", {{"partly.a", [](std::uint64_t) { return std::string("c"); }}}, 3},
        {"single", {{"single", [](std::uint64_t) { return std::string("d"); }}}, 0, false},
        {"nosuch", {}, -7, false},
    });
    simgateway::Options options;
    options.speed = 1000;
    options.scenes = [&](double seconds) {
        return simgateway::Scene{reachable ? &model : nullptr, moment, "7_7", seconds + 1};
    };
    simgateway::Server server(options);
    EXPECT_FALSE(canConnect(server.port()));
    EXPECT_THROW(TakenPort(false, server.port()), std::system_error) << "others can take the port meanwhile";
    EXPECT_THROW(server.advance(1), std::logic_error);
    for (int round = 0; round < 2; ++round) {
        reachable = true;
        ASSERT_TRUE(becomes(true, server.port())) << round;
        RawClient client(server.port());
        EXPECT_EQ(walked(client.query("GET_STATS")).summary, "host/2 partly(3)/1 single/1 nosuch(-7)/0 ");
        moment = 11;
        EXPECT_EQ(walked(client.query("GET_STATS", "host.a")).lastValue, "11");
        moment = 12;
        EXPECT_EQ(walked(client.query("GET_STATS", "host.a")).lastValue, "12");
        EXPECT_EQ(walked(client.query("GET_STATS", "nosuch:single:none")).summary, "nosuch(-7)/0 single/1 none(-1)/0 ");
        EXPECT_EQ(walked(client.query("STAT_IDS", "partly"), false).summary, "partly(3)/1 ");
        EXPECT_EQ(walked(client.query("RESOURCE_GROUPS"), false).summary, "*/2 ");
        EXPECT_EQ(walked(client.query("RESOURCE_GROUPS", "host:single"), false).summary, "host/1 single(-1)/0 ");
        const Bytes reply = client.exchange(client.requestFor(simgateway::Exchange::getAttribute));
        EXPECT_EQ(toHex(slice(reply, 43)), toHex(hex("00 AC ED 00 05 74 00 03 '7_7'")));
        RawClient idle(server.port());
        reachable = false;
        EXPECT_EQ(client.awaitEnd(), End::closed);
        EXPECT_NE(idle.awaitEnd(), End::open);
        ASSERT_TRUE(becomes(false, server.port())) << round;
        EXPECT_TRUE(server.waitForConnections(0, patience));
    }
}

}  // namespace
}  // namespace simtest
