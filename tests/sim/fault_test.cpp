// Each fault does what it says, once, and the exchange after it is healthy again. A server leaves nothing behind.
#include <system_error>

#include <gtest/gtest.h>

#include "raw_client.h"
#include "support/process.h"
#include "walk.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using simgateway::Fault;
using simgateway::Server;
using Clock = std::chrono::steady_clock;
using enum simgateway::Exchange;

constexpr std::size_t END = static_cast<std::size_t>(-1);

TEST(Fault, changesTheReplyBytes) {
    struct {
        simgateway::Exchange exchange;
        Fault fault;
        std::size_t from;  // the bytes of the healthy reply that are replaced
        std::size_t to;
        const char* replacement;
    } const cases[] = {
        {handshake, {.headerRc = 0xF004}, 16, 20, "00 00 F0 04"},
        {invoke, {.eyecatcher = "Door"}, 0, 4, "'Door'"},
        {adminInit, {.version = 0x01020304}, 4, 8, "01 02 03 04"},
        {authFirst, {.flowType = -9}, 8, 12, "FF FF FF F7"},
        {authFirst, {.echoWord = 0x7777}, 12, 16, "00 00 77 77"},
        {invoke, {.headerFlag = 7}, 29, 30, "07"},
        {handshake, {.name = ""}, 20, 28, "00 00 00 00"},
        {handshake, {.nameLength = 77}, 20, 24, "00 00 00 4D"},
        {handshake, {.dataLength = -1}, 29, 33, "FF FF FF FF"},
        {authFirst, {.authRefused = true}, 29, END, "00 00 00 08 00 00 00 00 00 00 00 11"},
        {adminInit, {.word0 = 2}, 34, 38, "00 00 00 02"},
        {invoke, {.bodySize = 8}, 30, END, "00 00 00 08 00 00 00 05 00 00 00 00"},
        {authFirst, {.payload = hex("01 02 03")}, 29, END, "00 00 00 03 01 02 03"},
        {handshake, {.rawReply = hex("'Gate' 00")}, 0, END, "'Gate' 00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        // Words depend on the number of the connection and of the reply, which are the same on both servers.
        Server healthyServer;
        RawClient healthy(healthyServer.port());
        const Bytes usual = healthy.exchange(healthy.requestFor(c.exchange));
        const Bytes expected = slice(usual, 0, c.from) + hex(c.replacement) + slice(usual, c.to);

        Server server;
        RawClient client(server.port());
        server.inject(c.exchange, c.fault);
        client.send(client.requestFor(c.exchange));
        EXPECT_EQ(toHex(client.receive(expected.size())), toHex(expected));
        EXPECT_TRUE(client.receive(1, 20ms).empty()) << "bytes after the reply";
        EXPECT_EQ(server.pendingFaults(c.exchange), 0U);
    }
}

TEST(Fault, changesTheQueryPayload) {
    Server server;
    RawClient client(server.port());
    struct {
        Fault fault;
        const char* expected;
    } const cases[] = {
        {{.blockTag = 0x7A}, "host.name+/1 conn+/16 "},
        {{.elementRc = -44, .elementIndex = 1}, "host.name/1 conn(-44)/0 "},
        {{.elementRc = 6}, "host.name(6)/1 conn/16 "},
        {{.elementRc = -1, .elementIndex = 99}, "host.name/1 conn/16 "},
        {{}, "host.name/1 conn/16 "},
    };
    for (const auto& c : cases) {
        server.inject(invoke, c.fault);
        EXPECT_EQ(walked(client.query("GET_STATS", "host.name:conn")).summary, c.expected);
    }
    server.inject(invoke, {.arrayFlag = 0x00});
    EXPECT_EQ(walked(client.query("GET_STATS", "host.name")).summary, "host.name/1 ");
    server.setPayload(invoke, hex("01 02"));
    server.inject(invoke, {});
    server.inject(invoke, {.payload = hex("00")});
    for (const char* expected : {"01 02 ", "00 ", "01 02 "}) {
        EXPECT_EQ(toHex(client.query("GET_STATS")), expected);
    }
    server.clearPayload(invoke);
    EXPECT_EQ(walked(client.query("GET_STATS", "host.name")).summary, "host.name/1 ");
}

// A follow-up request has to bring back what the faulty reply really said.
TEST(Fault, expectationsFollowTheBytesSent) {
    Server server;
    RawClient client(server.port());
    server.inject(
        adminInit,
        {.payload = word(0) + word(0) + word(0x12345678), .eyecatcher = "Door", .version = 5, .echoWord = 0x7777});
    client.exchange(adminInitRequest);
    const Bytes called = client.exchange(hex("'Door'") + word(5) + slice(getAttributeRequest(0x7777, 0x12345678), 8));
    EXPECT_EQ(toHex(slice(called, 34, 43)), "00 00 00 01 00 00 00 00 00 ");
}

TEST(Fault, isRefusedWhereItCannotBe) {
    Server server;
    EXPECT_THROW(server.inject(unknown, {}), std::invalid_argument);
    EXPECT_THROW(server.inject(close, {.eyecatcher = "Gates"}), std::invalid_argument);
}

TEST(Fault, connectionEndsAtAByte) {
    Server server;
    for (const std::size_t after : {0U, 1U, 24U, 50U, 51U, 52U}) {
        for (const bool reset : {false, true}) {
            RawClient client(server.port());
            server.inject(handshake, {.closeAfter = after, .reset = reset});
            client.send(handshakeRequest);
            EXPECT_TRUE(reset || client.receive(52).size() == std::min<std::size_t>(after, 51)) << after;
            EXPECT_EQ(client.awaitEnd(), reset ? End::reset : End::closed) << after;
        }
    }
}

TEST(Server, stopsPromptlyAndLeavesNothingBehind) {
    { const Server first; }  // with the first thread a sanitizer's runtime starts one of its own
    const auto descriptors = openDescriptors();
    const auto threads = runningThreads();
    {
        Server server;
        const auto alone = openDescriptors();
        for (int i = 0; i < 50; ++i) {
            RawClient(server.port()).exchange(closeRequest);
        }
        EXPECT_TRUE(server.waitForConnections(0, patience));
        EXPECT_EQ(fallenTo(alone, openDescriptors), alone) << "connections are released while it runs";
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
        ASSERT_TRUE(server.waitForRequests(53, patience));
        add(slice(closeRequest, 0, 10));
        add({});  // a peer that does not read: the reply does not fit the socket's buffers
        clients.back()->send(clients.back()->requestFor(invoke));
        ASSERT_TRUE(server.waitForRequests(55, patience));
        EXPECT_EQ(server.connections(), 5U);
        const auto start = Clock::now();
        server.stop();
        EXPECT_LT(Clock::now() - start, 10s);
        EXPECT_EQ(server.connections(), 0U);
        for (const auto& client : clients) {
            EXPECT_NE(client->awaitEnd(), End::open);
        }
        EXPECT_THROW(RawClient(server.port()), std::system_error);
    }
    EXPECT_EQ(fallenTo(descriptors, openDescriptors), descriptors);
    EXPECT_EQ(fallenTo(threads, runningThreads), threads);
}

}  // namespace
}  // namespace simtest
