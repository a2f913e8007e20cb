// Conversations with a live server, byte for byte, and what it does with requests that are wrong.
#include <gtest/gtest.h>

#include "raw_client.h"

namespace simtest {
namespace {

using simgateway::Server;
using enum simgateway::Exchange;

constexpr std::uint32_t HANDLE = 0x9A000001;

TEST(Session, wholeConversationByteForByte) {
    struct {
        simgateway::Exchange kind;
        Bytes request;
        const char* reply;
    } const exchanges[] = {
        {handshake, handshakeRequest,
         "'Gate' 00 70 00 00 00 00 00 05"     // eyecatcher, version, flow type
         "E5 00 01 01 00 00 00 00"            // echo word, return code
         "00 00 00 04 'BASE' 00 00 00 00 12"  // name, flag byte, data length
         "00 02 'en' 00 02 'GB' 00 00 00 00 00 00 00 00 00 00"},
        {authFirst, authFirstRequest,
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 02 00 00 00 00 00 00 00 04 'Auth' 00 00 00 00 14"
         "00 00 00 00 00 00 00 00"                // first step passed, auth rc
         "A1 00 00 01 A2 00 00 01 A3 00 00 01"},  // auth data
        {authSecond, authSecondRequest(0xE5000102, hex("A1 00 00 01 A2 00 00 01 A3 00 00 01")),
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 03 00 00 00 00 00 00 00 04 'Auth' 00 00 00 00 10"
         "00 00 00 01 00 00 00 00"    // second step passed, auth rc
         "B1 00 00 01 B2 00 00 01"},  // auth results
        {adminInit, adminInitRequest,
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 04 00 00 00 00 00 00 00 05 'Admin' 00 00 00 00 0C"
         "00 00 00 00 00 00 00 00 9A 00 00 01"},  // init, admin rc, handle
        {getAttribute, getAttributeRequest(0xE5000104, HANDLE),
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 05 00 00 00 00 00 00 00 05 'Admin' 00 00 00 00 14"
         "00 00 00 01 00 00 00 00 00"       // get attribute, admin rc, exception flag
         "00 AC ED 00 05 74 00 03 '1_2'"},  // array flag, stream with one string
        {adminInit, adminInitRequest,
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 06 00 00 00 00 00 00 00 05 'Admin' 00 00 00 00 0C"
         "00 00 00 00 00 00 00 00 9A 00 00 01"},
        {invoke, invokeRequest(0xE5000106, HANDLE, "STAT_IDS", "host.name"),
         "'Gate' 00 70 00 00 00 00 00 01 E5 00 01 07 00 00 00 00 00 00 00 05 'Admin' 00 00 00 00 84"
         "00 00 00 05 00 00 00 00 00"  // invoke, admin rc, exception flag
         "01 00 00 00 01 AC ED 00 05 73 72"
         "00 1A 'com.qal.zul.stats.IdsReply' 2F 6A 1C 0D 58 E3 B9 47 0C 00 00 78 72"
         "00 17 'com.qal.zul.stats.Reply' 51 D0 93 7E 4C 2A F8 6B 0C 00 00 78 70"
         "77 1E 00 09 'host.name' 00 00 00 00 00 00 00 01 00 09 'host.name' 78"},
        {close, closeRequest,
         "'Gate' 00 70 00 00 00 00 00 0A E5 00 01 08 00 00 00 00 00 00 00 04 'BASE' 00 00 00 00 00"},
    };
    Server server({.protocolVersion = "1_2"});
    RawClient client(server.port());
    for (const auto& exchange : exchanges) {
        EXPECT_EQ(toHex(client.exchange(exchange.request)), toHex(hex(exchange.reply)));
        EXPECT_EQ(server.requests().back().exchange, exchange.kind);
        EXPECT_EQ(server.requests().back().bytes, exchange.request);
    }
    EXPECT_EQ(client.awaitEnd(), End::closed);
    EXPECT_EQ(server.requests().size(), std::size(exchanges));
}

TEST(Session, refusalsLeaveTheConnectionOpen) {
    // Each request follows an Auth first step and an Admin init on its connection.
    const Bytes data = hex("A1 00 00 01 A2 00 00 01 A3 00 00 01");
    constexpr std::uint32_t auth = 0xE5000101;
    constexpr std::uint32_t admin = 0xE5000102;
    const Bytes call = invokeRequest(admin, HANDLE, "GET_STATS", "host");
    const auto replaced = [&call](const std::string& from, const std::string& to) {
        std::string text(call.begin(), call.end());
        text.replace(text.find(from), from.size(), to);
        return Bytes(text.begin(), text.end());
    };
    struct {
        const char* what;
        Bytes bytes;
        std::uint32_t headerRc = 0;
        std::uint32_t replyRc = 0;
        std::uint8_t exceptionFlag = 0;
    } const cases[] = {
        {"healthy second step", authSecondRequest(auth, data), 0, 0, 0xB1},  // no flag there, but an auth result
        {"healthy call", call},
        {"wrong auth data", authSecondRequest(auth, hex("A1 00 00 01 A2 00 00 01 A3 00 00 02")), 0, 17},
        {"non-zero last auth word", request(1, auth, "Auth", word(1) + data + word(9)), 0, 17},
        {"first step with an echo word", request(1, 5, "Auth", word(0)), 0xF001},
        {"call with the echo word of another exchange", invokeRequest(auth, HANDLE, "GET_STATS"), 0xF001},
        {"attribute with a wrong handle", getAttributeRequest(admin, HANDLE + 1), 0, 33},
        {"unknown attribute", getAttributeRequest(admin, HANDLE, "protocols"), 0, 0, 1},
        {"unknown operation", invokeRequest(admin, HANDLE, "GET_STATISTICS"), 0, 0, 1},
        {"unknown object", replaced("type=Stats", "type=State"), 0, 0, 1},
        {"unknown signature", replaced("java.lang.String", "java.lang.Object"), 0, 0, 1},
    };
    for (const auto& c : cases) {
        Server server;
        RawClient client(server.port());
        client.exchange(authFirstRequest);
        client.exchange(adminInitRequest);
        const Bytes reply = client.exchange(c.bytes);
        const std::size_t body = 29 + wordAt(reply, 20);
        EXPECT_EQ(wordAt(reply, 16), c.headerRc) << c.what;
        EXPECT_EQ(reply.size() < body + 8 ? 0 : wordAt(reply, body + 4), c.replyRc) << c.what;
        EXPECT_EQ(reply.size() < body + 9 ? 0 : reply[body + 8], c.exceptionFlag) << c.what;
        EXPECT_EQ(wordAt(client.exchange(adminInitRequest), 16), 0U) << c.what;
    }
    Server server;
    EXPECT_EQ(wordAt(RawClient(server.port()).exchange(authSecondRequest(0, data)), 37), 17U) << "no first step";
}

TEST(Session, malformedRequestEndsOnlyItsConnection) {
    Server server;
    RawClient bystander(server.port());
    bystander.exchange(handshakeRequest);

    const Bytes init = adminInitRequest;
    const Bytes call = invokeRequest(0, 0, "GET_STATS", "abc");
    const auto changed = [](Bytes bytes, std::size_t offset, std::uint8_t value) {
        bytes.at(offset) = value;
        return bytes;
    };
    struct {
        const char* what;
        Bytes bytes;
        simgateway::Exchange recordedAs;
    } const cases[] = {
        {"eyecatcher", changed(init, 0, 'g'), adminInit},
        {"version", changed(init, 5, 0x71), adminInit},
        {"return code in a request", changed(init, 15, 1), adminInit},
        {"name", changed(init, 24, 'a'), unknown},
        {"name of 25 characters", request(1, 0, std::string(25, 'A'), word(0)), unknown},
        {"negative data length", changed(init, 30, 0x80), unknown},
        {"admin without a body", request(1, 0, "Admin", {}), unknown},
        {"unknown admin call type", request(1, 0, "Admin", word(2)), unknown},
        {"short second auth body", request(1, 0, "Auth", word(1) + word(0)), authSecond},
        {"close with a body", request(10, 0xFFFFFFFF, "BASE", hex("00")), close},
        {"handshake padding", changed(handshakeRequest, 50, 1), handshake},
        {"call length", changed(call, 45, 1), invoke},
        {"swapped locale", changed(changed(call, 48, 'u'), 49, 's'), invoke},
        {"parameter count", changed(call, call.size() - 33, 2), invoke},
        {"call of another length", request(1, 0, "Admin", slice(call, 34, call.size() - 1)), invoke},
    };
    for (const auto& c : cases) {
        const std::size_t before = server.requests().size();
        RawClient client(server.port());
        client.send(c.bytes);
        EXPECT_NE(client.awaitEnd(), End::open) << c.what;
        ASSERT_EQ(server.requests().size(), before + 1) << c.what;
        EXPECT_EQ(server.requests().back().exchange, c.recordedAs) << c.what;
    }
    RawClient(server.port()).send(slice(call, 0, 60));
    ASSERT_TRUE(server.waitForRequests(std::size(cases) + 2, patience));
    EXPECT_EQ(toHex(server.requests().back().bytes), toHex(slice(call, 0, 60)));
    for (const std::uint8_t byte : adminInitRequest) {  // in small pieces
        bystander.send({byte});
    }
    EXPECT_EQ(bystander.exchange(authFirstRequest).size(), 46U);
    EXPECT_EQ(bystander.exchange({}).size(), 53U);
}

}  // namespace
}  // namespace simtest
