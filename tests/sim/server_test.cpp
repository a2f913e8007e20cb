// Many connections at once, and a server that leaves nothing behind.

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "raw_client.h"
#include "walk.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using simgateway::Fault;
using simgateway::Server;
using Clock = std::chrono::steady_clock;
using enum simgateway::Exchange;

auto entriesOf(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

// What a process holds. A thread that was joined can still be listed for a moment.
struct Holdings {
    bool areBack() const {
        const auto deadline = Clock::now() + patience;
        while (entriesOf("/proc/self/task") > threads && Clock::now() < deadline) {
            std::this_thread::sleep_for(2ms);
        }
        return Clock::now() < deadline && entriesOf("/proc/self/fd") == descriptors;
    }

    std::ptrdiff_t descriptors = entriesOf("/proc/self/fd");
    std::ptrdiff_t threads = entriesOf("/proc/self/task");
};

TEST(Server, servesManyConnectionsAtOnce) {
    constexpr int clients = 16;
    constexpr int rounds = 6;
    Server server;
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&server, &good] {
            RawClient client(server.port());
            client.exchange(client.requestFor(authSecond));
            for (int round = 0; round < rounds; ++round) {
                good += Walked::stats(client.query("GET_STATS")).elements.size() == 10;
                server.advance(1);
            }
            client.exchange(closeRequest);
            good += client.awaitEnd() == End::closed;
        });
    }
    for (int i = 0; i < 8; ++i) {  // peers that misbehave meanwhile
        RawClient client(server.port());
        client.send(hex("'nonsense of some length, surely more than a header'"));
        client.awaitEnd();
        RawClient(server.port()).send(adminInitRequest + adminInitRequest);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, clients * (rounds + 1));
    EXPECT_TRUE(server.waitForConnections(0, patience));
}

TEST(Server, wordsDifferBetweenConnections) {
    Server server;
    RawClient(server.port()).exchange(adminInitRequest);
    const Bytes init = RawClient(server.port()).exchange(adminInitRequest);
    EXPECT_EQ(toHex(slice(init, 12, 16) + slice(init, 42)), "E5 00 02 01 9A 00 00 02 ");
    EXPECT_EQ(server.requests().back().connection, 2U);
}

TEST(Server, stopsPromptly) {
    { const Server first; }  // with the first thread a sanitizer's runtime starts one of its own
    const Holdings before;
    {
        Server server;
        server.setPayload(invoke, simgateway::statsOfContentSize(6000000).bytes());
        server.inject(handshake, {.silent = true});
        server.inject(authFirst, {.delay = 3600s});
        server.inject(adminInit, {.writeSize = 1, .writePause = 3600s});
        std::vector<std::unique_ptr<RawClient>> clients;
        const auto add = [&](const Bytes& request) {
            clients.push_back(std::make_unique<RawClient>(server.port()));
            clients.back()->send(request);
        };
        add(handshakeRequest);
        add(authFirstRequest);
        add(adminInitRequest);
        ASSERT_TRUE(server.waitForRequests(3, patience));
        add(slice(closeRequest, 0, 10));
        add({});  // a peer that does not read: the reply does not fit the socket's buffers
        clients.back()->send(clients.back()->requestFor(invoke));
        ASSERT_TRUE(server.waitForRequests(5, patience));
        EXPECT_EQ(server.connections(), 5U);

        const auto start = Clock::now();
        server.stop();
        EXPECT_LT(Clock::now() - start, 1s);
        EXPECT_EQ(server.connections(), 0U);
        for (const auto& client : clients) {
            EXPECT_NE(client->awaitEnd(), End::open);
        }
        EXPECT_THROW(RawClient(server.port()), std::system_error);
        server.stop();
    }
    EXPECT_TRUE(before.areBack());
}

TEST(Server, releasesConnectionsWhileItRuns) {
    Server server;
    const Holdings before;
    for (int i = 0; i < 50; ++i) {
        RawClient(server.port()).exchange(closeRequest);
    }
    EXPECT_TRUE(server.waitForConnections(0, patience));
    EXPECT_TRUE(before.areBack());
}

TEST(Server, needsAFreePort) {
    Server first;
    RawClient(first.port()).exchange(handshakeRequest);
    simgateway::Options options;
    options.port = first.port();
    EXPECT_THROW(Server{options}, std::system_error);
    first.stop();
    Server second(options);
    EXPECT_EQ(RawClient(second.port()).exchange(handshakeRequest).size(), 51U);
}

}  // namespace
}  // namespace simtest
