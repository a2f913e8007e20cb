// Gateway tokens and their list: finding, verifying, dumping, chaining, creating against a simulated Gateway, deleting.
#include "stapi_zul_gwytok.h"

#include "stapi_zul_diag.h"
#include "zulstats.h"

#include "child.h"
#include "failing_malloc.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "trace_capture.h"

#include <simgateway/sim_gateway.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

namespace unittest {
namespace {

using simgateway::Server;

// How many descriptors the process has open.
std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

// Whether that comes to be so many: the Gateway may still be about to accept a connection that is closed already.
bool descriptorsComeTo(std::ptrdiff_t count) {
    for (int i = 0; i < 1000 && openDescriptors() != count; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return openDescriptors() == count;
}

// Begins with an initialised library and an empty list, and deletes what is left at the end.
class TokenList : public testing::Test {
protected:
    TokenList() {
        int level = 0;
        EXPECT_EQ(getAPITraceLevel(&level), 0);
    }
    ~TokenList() override {
        while (gtListHeadPtr != nullptr) {
            GatewayToken* token = gtListHeadPtr;
            deleteGatewayToken(&token, 0);
        }
    }
    // Makes a list of so many tokens as createGatewayToken makes them, without a connection.
    void make(std::size_t length) {
        tokens.clear();
        while (tokens.size() < length) {
            auto* token = static_cast<GatewayToken*>(std::calloc(1, sizeof(GatewayToken)));
            EXPECT_EQ(createResultSet(&token->connRSToken, CONNECTION_OWNED_EYECATCHER, CONNECTION_OWNED), 0);
            token->protocolVersion = static_cast<char*>(std::calloc(PROTOCOL_VERSION_SIZE, 1));
            token->socket = -1;
            getPidTid(&token->owningPid, &token->owningTid);
            token->owningThread = pthread_self();
            EXPECT_EQ(chainGatewayToken(token), 0);
            EXPECT_EQ(gtListTailPtr, token);
            tokens.push_back(token);
        }
    }
    static std::size_t listLength() {
        std::size_t length = 0;
        for (const GatewayToken* token = gtListHeadPtr; token != nullptr; token = token->nextGwyTokPtr) {
            ++length;
        }
        return length;
    }

    std::vector<GatewayToken*> tokens;
    GatewayToken stranger{};
};

TEST_F(TokenList, findEndsAtTheLimit) {
    const struct {
        std::size_t length;
        std::optional<std::size_t> target;  // index, or the stranger
        int expected;
    } cases[] = {
        {0, {}, STAPI_FIND_GTL_EMPTY}, {1, 0, STAPI_FIND_FOUND},     {1, {}, STAPI_FIND_NOT_FOUND},
        {3, 0, STAPI_FIND_FOUND},      {3, 1, STAPI_FIND_FOUND},     {3, 2, STAPI_FIND_FOUND},
        {3, {}, STAPI_FIND_NOT_FOUND}, {256, 255, STAPI_FIND_FOUND}, {256, {}, STAPI_FIND_NOT_FOUND},
        {257, 256, STAPI_FIND_FOUND},  {257, {}, STAPI_GTL_RUNAWAY}, {258, 256, STAPI_FIND_FOUND},
        {258, 257, STAPI_GTL_RUNAWAY},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        make(one.length);
        const GatewayToken* target = one.target ? tokens[*one.target] : &stranger;
        GatewayToken* parent = &stranger;
        EXPECT_EQ(findGatewayToken(target, &parent), one.expected);
        EXPECT_EQ(findGatewayToken(target, nullptr), one.expected);
        EXPECT_EQ(findGatewayToken(nullptr, &parent), STAPI_FIND_NULL_TARGET);
        const bool found = one.expected == STAPI_FIND_FOUND;
        EXPECT_EQ(parent, !found ? &stranger : *one.target == 0 ? nullptr : tokens[*one.target - 1]);
        while (gtListHeadPtr != nullptr) {
            static_cast<void>(deleteGatewayTokens());
        }
    }
}

TEST_F(TokenList, tokenBelongsToItsProcessAndThread) {
    make(2);
    const GatewayToken* token = tokens[1];
    EXPECT_EQ(verifyGatewayToken(token), 0);
    EXPECT_EQ(verifyGatewayToken(&stranger), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(verifyGatewayToken(nullptr), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    std::thread([token] {
        EXPECT_EQ(verifyGatewayToken(token), STAPI_RC_RESULT_SET_TID_MISMATCH);
        EXPECT_EQ(runInChild([token] { return -verifyGatewayToken(token); }), -STAPI_RC_RESULT_SET_PID_MISMATCH);
    }).join();
    EXPECT_EQ(runInChild([token] { return -verifyGatewayToken(token); }), -STAPI_RC_RESULT_SET_PID_MISMATCH);
}

TEST_F(TokenList, chainingGoesByTheHeadFirst) {
    make(1);
    GatewayToken* const only = tokens[0];
    gtListTailPtr = nullptr;  // a head without a tail
    EXPECT_EQ(chainGatewayToken(&stranger), STAPI_RC_GTL_CORRUPT);
    EXPECT_EQ(only->nextGwyTokPtr, nullptr);
    {
        const AllocationFault allocations(0);
        GatewayToken* token = nullptr;
        EXPECT_EQ(createGatewayToken(nullptr, "127.0.0.1", 4711, &token), STAPI_RC_GTL_CORRUPT);
        EXPECT_EQ(allocations.taken(), allocations.released());
        EXPECT_EQ(token, nullptr);
    }
    gtListHeadPtr = nullptr;  // a tail without a head, as the last token leaves it
    gtListTailPtr = only;
    EXPECT_EQ(chainGatewayToken(&stranger), 0);
    EXPECT_EQ(gtListHeadPtr, &stranger);
    EXPECT_EQ(gtListTailPtr, &stranger);
    EXPECT_EQ(only->nextGwyTokPtr, nullptr);
    EXPECT_EQ(chainGatewayToken(nullptr), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    gtListHeadPtr = only;
}

// Allocation failures one by one: those of the token have their codes, those of handshake and authorisation need not
// make the call fail. Whatever the code, the call comes back and everything goes away again, but one block of a token
// without a result set. Each works in a child because of that.
TEST_F(TokenList, creationWithoutMemory) {
    static constexpr int CODES[] = {STAPI_RC_NO_MEMORY, STAPI_RC_NO_MEMORY, STAPI_RC_NO_MEMORY,
                                    STAPI_RC_GATEWAY_REQUEST_FAILED, STAPI_RC_NO_MEMORY};
    int nth = 1;
    for (int result = 1; result == 1; ++nth) {
        SCOPED_TRACE(nth);
        result = runInChild([nth] {
            const Server gateway;
            const auto descriptors = openDescriptors();
            GatewayToken* token = nullptr;
            const AllocationFault fault(nth);
            const int rc = createGatewayToken(nullptr, "127.0.0.1", gateway.port(), &token);
            const bool reached = fault.attempts() >= nth;
            if ((rc == 0) != (token != nullptr) || (rc == 0) != (gtListHeadPtr != nullptr)) {
                return 3;
            }
            if (nth <= 5 ? rc != CODES[nth - 1]
                         : rc != 0 && rc != STAPI_RC_GATEWAY_CONNECTION_LOST && rc != STAPI_RC_GATEWAY_REQUEST_FAILED) {
                return 4;
            }
            if (rc == 0 && (endUse(token) || deleteGatewayToken(&token, 1) != 0)) {
                return 5;
            }
            if (fault.taken() - fault.released() != (nth == 2 || nth == 3 ? 1 : 0)) {
                return 6;
            }
            return !descriptorsComeTo(descriptors) ? 7 : reached ? 1 : 0;
        });
        EXPECT_TRUE(result == 0 || result == 1) << result;
    }
    EXPECT_GT(nth, 20);  // handshake, two auth steps and two admin exchanges take three blocks and more each
}

TEST_F(TokenList, deletionReleasesEverythingAndTheTailFollows) {
    make(4);
    GatewayToken* none = nullptr;
    GatewayToken* handle = &stranger;
    EXPECT_EQ(deleteGatewayToken(nullptr, 1), STAPI_RC_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(deleteGatewayToken(&none, 0), STAPI_RC_NULL_GATEWAY_TOKEN);
    EXPECT_EQ(deleteGatewayToken(&handle, 1), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(handle, &stranger);
    const auto [first, second, third, last] = std::tuple(tokens[0], tokens[1], tokens[2], tokens[3]);
    SocketPair pair;
    second->socket = std::exchange(pair.library, -1);
    second->resultSetBuf = allocateResultSetBuffer();
    second->connRSToken->queryString = static_cast<char*>(std::malloc(8));
    pair.write(message({.name = "BASE"}));
    const auto descriptors = openDescriptors();
    {
        const AllocationFault allocations(0);
        EXPECT_EQ(deleteGatewayToken(&tokens[1], 1), 0);  // from the middle
        EXPECT_EQ(tokens[1], nullptr);
        EXPECT_EQ(allocations.released() - allocations.taken(),
                  6);  // token, buffer, version, result set, its two texts
    }
    EXPECT_EQ(openDescriptors(), descriptors - 1);
    char byte;
    EXPECT_GT(recv(pair.peer, &byte, 1, MSG_DONTWAIT), 0);  // the close request
    EXPECT_EQ(first->nextGwyTokPtr, third);
    EXPECT_EQ(gtListTailPtr, last);
    EXPECT_EQ(deleteGatewayToken(&tokens[3], 1), 0);  // the tail
    EXPECT_EQ(third->nextGwyTokPtr, nullptr);
    EXPECT_EQ(gtListTailPtr, third);
    EXPECT_EQ(deleteGatewayToken(&tokens[0], 1), 0);  // the head
    EXPECT_EQ(gtListHeadPtr, third);
    EXPECT_EQ(gtListTailPtr, third);
    EXPECT_EQ(deleteGatewayToken(&tokens[2], 1), 0);  // the only one: the tail is left alone and means nothing
    EXPECT_EQ(gtListHeadPtr, nullptr);
    make(1);
    EXPECT_EQ(listLength(), 1u);
}

void closeAll() {
    static_cast<void>(deleteGatewayTokens());
}

// Another thread closes the connection: before it has a socket, when it is about to be handed out, and once it is in
// use. Each time the call in progress fails and releases everything, and nothing of a later connection.
TEST_F(TokenList, closingWhileItIsUsed) {
    const Server gateway;
    const auto descriptors = openDescriptors();
    GatewayToken* token = nullptr;
    char* version = nullptr;
    const auto open = [&] { return openGatewayConnection(gateway.port(), &token, &version); };
    ASSERT_EQ(open(), 0);
    std::free(version);
    version = nullptr;
    closeAll();
    token = nullptr;
    {
        Server silent;  // nobody waits for it
        silent.inject(simgateway::Exchange::handshake, {.silent = true});
        SocketCalls calls;
        calls.beforeSocket = closeAll;
        const AllocationFault allocations(0);
        EXPECT_EQ(openGatewayConnection(silent.port(), &token, &version), STAPI_RC_GATEWAY_CONNECTION_LOST);
        EXPECT_EQ(allocations.taken(), allocations.released());
    }
    int attempts = 0;
    {
        const AllocationFault allocations(0);
        ASSERT_EQ(open(), 0);
        attempts = allocations.attempts();
        closeAll();
    }
    token = nullptr;
    std::free(std::exchange(version, nullptr));
    {
        const AllocationFault allocations(attempts, closeAll);  // the copy of the version
        EXPECT_EQ(open(), STAPI_RC_GATEWAY_CONNECTION_LOST);
        EXPECT_EQ(allocations.taken(), allocations.released());
    }
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(version, nullptr);
    {
        const AllocationFault allocations(0);
        ASSERT_EQ(createGatewayToken(nullptr, "127.0.0.1", gateway.port(), &token), 0);
        closeAll();
        make(1);
        EXPECT_EQ(deleteUsedGatewayToken(&token), STAPI_RC_GATEWAY_CONNECTION_LOST);
        EXPECT_EQ(listLength(), 1u);
        closeAll();
        EXPECT_EQ(allocations.taken(), allocations.released());
    }
    EXPECT_TRUE(descriptorsComeTo(descriptors));
}

TEST_F(TokenList, dumpAndDeletionOfAllEndAtTheLimit) {
    for (const auto& [length, reached, code] : {std::tuple(0u, 0u, STAPI_GTL_EMPTY),
                                                {1u, 1u, 0},
                                                {255u, 255u, 0},
                                                {256u, 256u, STAPI_GTL_RUNAWAY},
                                                {257u, 256u, STAPI_GTL_RUNAWAY}}) {
        SCOPED_TRACE(length);
        make(length);
        TraceCapture trace(1);
        EXPECT_EQ(dumpGatewayTokens(), code);
        const std::string total = format("Total number of Gateway Token List entries=%u", reached);
        const std::vector<std::string> lines = trace.take();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), total), 1);
        EXPECT_EQ(deleteGatewayTokens(), code);
        EXPECT_EQ(listLength(), length - reached);
        static_cast<void>(deleteGatewayTokens());
    }
}

}  // namespace
}  // namespace unittest
