// What the trace says when something fails: exceptions and events.
#include "recording.h"

#include "support/interposer.h"
#include "support/process.h"

#include <sys/resource.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

// A token whose result set cannot be allocated stays allocated itself.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:allocateToken\n";
}

namespace {

using golden::Conversation;
using golden::Keep;
using golden::Recording;
using simgateway::Exchange;
using simgateway::Fault;
using simgateway::Reply;
using support::AllocationFault;
using support::openAndClose;

TEST_F(Conversation, cannotConnect) {
    const Recording recording("failed-connects", 2, server);
    EXPECT_EQ(openAndClose(server, support::UNRESOLVABLE), STAPI_RC_HOST_NOT_RESOLVED);
    EXPECT_EQ(openAndClose(server, "127.0.0.2"), STAPI_RC_CONNECTION_REFUSED);
    EXPECT_EQ(openAndClose(server, "127.255.255.255"), STAPI_RC_NETWORK_UNREACHABLE);
    support::expectInChild([this] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        return openAndClose(server) == STAPI_RC_CONNECT_FAILED ? 0 : 1;
    });
}

TEST_F(Conversation, isRefusedAtTheStart) {
    const Recording recording("failed-starts", 2, server, Keep::POINTS);
    const auto openWith = [this](Exchange exchange, const Fault& fault) {
        server.inject(exchange, fault);
        return openAndClose(server);
    };
    EXPECT_EQ(openWith(Exchange::handshake, {.headerRc = 5}), 0);
    EXPECT_EQ(openWith(Exchange::handshake, {.closeAfter = 0}), STAPI_RC_GATEWAY_CONNECTION_LOST);
    EXPECT_EQ(openWith(Exchange::authFirst, {.authRefused = true}), 0);
    EXPECT_EQ(openWith(Exchange::authSecond, {.authRefused = true}), 0);
    EXPECT_EQ(openWith(Exchange::adminInit, {.headerRc = 0xF004}), STAPI_RC_GATEWAY_CONNECTION_LOST);
    EXPECT_EQ(openWith(Exchange::adminInit, {.replyRc = 9}), STAPI_RC_GATEWAY_REQUEST_FAILED);
    EXPECT_EQ(openWith(Exchange::getAttribute, {.exceptionFlag = 1}), STAPI_RC_GATEWAY_REQUEST_FAILED);
    EXPECT_EQ(openWith(Exchange::getAttribute, {.bodySize = 8}), STAPI_RC_GATEWAY_REQUEST_FAILED);
    EXPECT_EQ(openWith(Exchange::getAttribute, {.payload = simgateway::attributePayload(std::string(32766, 'v'))}), 0);
}

TEST_F(Conversation, losesConnections) {
    const Recording recording("failed-queries", 2, server, Keep::POINTS);
    const struct {
        int query;  // of QUERY_CALLS
        Fault fault;
        int code;
    } cases[] = {
        {0, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {1, {.closeAfter = 50}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {2, {.payload = simgateway::idsOfContentSize(32768).bytes()}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {3, {.exceptionFlag = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {5, {.replyRc = 4}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {0, {.name = "Admin2"}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        // The reset is there before the second query: its send fails.
        {4, {.closeAfter = 0, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {4, {.word0 = 0}, STAPI_RC_GATEWAY_REQUEST_FAILED},
    };
    for (const auto& one : cases) {
        const support::QueryCall& call = support::QUERY_CALLS[one.query];
        EXPECT_EQ(setAPITraceLevel(1), 0);
        GatewayToken* token = open();
        server.inject(Exchange::invoke, one.fault);
        EXPECT_EQ(setAPITraceLevel(2), 0);
        ResultSetToken* result = nullptr;
        errno = EFAULT;
        EXPECT_EQ(call.run(token, &result, one.query == 3 ? "a" : "g"), one.code) << call.name;
        call.run(token, &result, one.query == 3 ? "a" : "g");
        EXPECT_EQ(closeAllGatewayConnections(), 0);
    }
}

TEST_F(Conversation, hasOddReplies) {
    GatewayToken* token = open();
    const Recording recording("odd-replies", 4, server, Keep::POINTS);
    ResultSetToken* result = nullptr;
    server.inject(Exchange::invoke, {.bodySize = 9});
    EXPECT_EQ(getStats(token, &result), 0);
    // Without the last identifier.
    const auto payload = Reply(Reply::Content::identifiers).element("e", -1).element("f").id("i").id("j").bytes();
    server.inject(Exchange::invoke, {.payload = payload, .bodySize = 9 + payload.size() - 2});
    EXPECT_EQ(getStatIds(token, &result), 0);
    server.inject(Exchange::invoke, {.noBody = true});
    EXPECT_EQ(getStats(token, &result), STAPI_RC_GATEWAY_REQUEST_FAILED);
}

TEST_F(Conversation, belongsToSomebodyElse) {
    GatewayToken* token = open();
    ResultSetToken* result = nullptr;
    ASSERT_EQ(getStats(token, &result), 0);
    const Recording recording("foreign-owners", 1, server);
    const auto use = [&] {
        StatData stat{};
        ResultSetToken* other = nullptr;
        int rc = getStats(token, &other);
        for (const int next : {getFirstStat(result, &stat), copyResultSet(result, &other)}) {
            rc = next == rc ? rc : 0;
        }
        return -rc;
    };
    std::thread([&] { EXPECT_EQ(use(), -STAPI_RC_RESULT_SET_TID_MISMATCH); }).join();
    EXPECT_EQ(support::runInChild(use), -STAPI_RC_RESULT_SET_PID_MISMATCH);
}

// Every allocation of every call fails once; the calls say so and the library goes on.
TEST_F(Conversation, runsOutOfMemory) {
    GatewayToken* token = nullptr;
    ResultSetToken* result = nullptr;
    ResultSetToken* copy = nullptr;
    ResultSetToken* stats = nullptr;
    char* text = nullptr;
    const Recording recording("no-memory", 1, server, Keep::POINTS);
    // Up to the call that makes fewer allocations than the one that is to fail.
    const auto failEach = [](const std::function<int()>& call, const std::function<void()>& undo) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            {
                const AllocationFault fault(nth);
                const int rc = call();
                failed = fault.attempts >= nth;
                // A reply that there is no memory for stays unread, and the next exchange meets it.
                EXPECT_THAT(rc, testing::AnyOf(0, STAPI_RC_NO_MEMORY, STAPI_RC_GATEWAY_REQUEST_FAILED,
                                               STAPI_RC_GATEWAY_CONNECTION_LOST))
                    << nth;
            }
            undo();
        }
    };
    failEach([&] { return openGatewayConnection(server.port(), &token, &text); },
             [&] {
                 std::free(std::exchange(text, nullptr));
                 closeAllGatewayConnections();
             });
    GatewayToken* const source = open();
    token = open();
    const auto reopen = [&] {
        closeGatewayConnection(&token);  // out of step with its Gateway
        token = open();
    };
    ASSERT_EQ(getStats(source, &stats), 0);
    failEach([&] { return getStatsByStatGroupId(token, "none", &result); }, reopen);
    failEach([&] { return copyResultSet(stats, &copy); },
             [&] {
                 ResultSetToken* second = nullptr;
                 copyResultSet(copy, &second);
                 dumpResultSet(copy);
                 StatData stat{};
                 getFirstStat(copy, &stat);
                 getIdQuery(copy, &text);
                 freeResultSet(&second);
                 freeResultSet(&copy);
             });
    failEach([&] { return getIdQuery(stats, &text); }, [] {});
    failEach([&] { return closeGatewayConnection(&token); }, [&] { token = open(); });
}

// A list longer than a walk over it goes.
TEST_F(Conversation, hasTooManyConnections) {
    GatewayToken* last = nullptr;
    for (int i = 0; i < 258; ++i) {
        last = open();
    }
    const Recording recording("runaway", 1, server, Keep::POINTS);
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(last, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(dumpState(), 0);
    EXPECT_EQ(closeAllGatewayConnections(), STAPI_RC_GTL_CORRUPT);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
}

}  // namespace
