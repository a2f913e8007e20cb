// Gateway tokens and their list: finding, chaining, dumping, deleting, and closing while a connection is in use.
#include "stapi_zul_gwytok.h"
#include "stapi_zul_identity.h"

#include "stapi_zul_diag.h"
#include "zulstats.h"

#include "support/interposer.h"
#include "support/process.h"
#include "support/fixture.h"
#include "scripted_peer.h"
#include "support/trace_capture.h"

#include <algorithm>
#include <cstdlib>

#include <fcntl.h>

namespace {

using namespace support;

using simgateway::Server;

void closeAll() {
    static_cast<void>(deleteGatewayTokens());
}

// Begins with an initialised library and an empty list, and deletes what is left at the end.
class TokenList : public testing::Test {
protected:
    ~TokenList() override {
        closeAll();
        closeAll();  // what is beyond the limit
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

    TraceCapture trace{0};
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
        {3, 1, STAPI_FIND_FOUND},      {3, 2, STAPI_FIND_FOUND},     {256, {}, STAPI_FIND_NOT_FOUND},
        {257, 256, STAPI_FIND_FOUND},  {257, {}, STAPI_GTL_RUNAWAY}, {258, 256, STAPI_FIND_FOUND},
        {258, 257, STAPI_GTL_RUNAWAY},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        make(one.length);
        const GatewayToken* target = one.target ? tokens[*one.target] : &stranger;
        GatewayToken* parent = &stranger;
        EXPECT_EQ(findGatewayToken(target, &parent), one.expected);
        EXPECT_EQ(verifyGatewayToken(target), parent != &stranger ? 0 : STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
        const bool found = one.expected == STAPI_FIND_FOUND;
        EXPECT_EQ(parent, !found ? &stranger : *one.target == 0 ? nullptr : tokens[*one.target - 1]);
        closeAll();
        closeAll();
    }
}

TEST_F(TokenList, chainingGoesByTheHeadFirst) {
    make(1);
    GatewayToken* const only = tokens[0];
    gtListTailPtr = nullptr;  // a head without a tail
    EXPECT_EQ(chainGatewayToken(&stranger), STAPI_RC_GTL_CORRUPT);
    trace.setLevel(1);
    {
        const AllocationFault allocations(0);
        GatewayToken* token = nullptr;
        EXPECT_EQ(createGatewayToken(nullptr, "127.0.0.1", 4711, &token), STAPI_RC_GTL_CORRUPT);
        EXPECT_TRUE(allocations.taken == allocations.released && token == nullptr);
    }
    EXPECT_EQ(trace.takeNumbers(), std::vector{2020});
    EXPECT_EQ(only->nextGwyTokPtr, nullptr);
    gtListHeadPtr = nullptr;  // a tail without a head, as the last token leaves it
    gtListTailPtr = only;
    EXPECT_EQ(chainGatewayToken(&stranger), 0);
    EXPECT_TRUE(gtListHeadPtr == &stranger && gtListTailPtr == &stranger && only->nextGwyTokPtr == nullptr);
    gtListHeadPtr = only;
}

TEST_F(TokenList, deletionReleasesEverythingAndTheTailFollows) {
    make(4);
    const auto [first, second, third, last] = std::tuple(tokens[0], tokens[1], tokens[2], tokens[3]);
    SocketPair pair;
    second->socket = std::exchange(pair.library, -1);
    second->resultSetBuf = allocateResultSetBuffer();
    second->connRSToken->queryString = static_cast<char*>(std::malloc(8));
    pair.write(message({.name = "BASE"}));
    const int descriptors = openDescriptors();
    {
        const AllocationFault allocations(0);
        EXPECT_EQ(deleteGatewayToken(&tokens[1], 1), 0);  // from the middle
        EXPECT_EQ(tokens[1], nullptr);
        // Token, buffer, version, result set, its two texts.
        EXPECT_EQ(allocations.released - allocations.taken, 6);
    }
    EXPECT_EQ(openDescriptors(), descriptors - 1);
    char byte;
    EXPECT_GT(recv(pair.peer, &byte, 1, MSG_DONTWAIT), 0);  // the close request
    EXPECT_TRUE(first->nextGwyTokPtr == third && gtListTailPtr == last);
    EXPECT_EQ(deleteGatewayToken(&tokens[3], 1), 0);  // the tail
    EXPECT_TRUE(third->nextGwyTokPtr == nullptr && gtListTailPtr == third);
    EXPECT_EQ(deleteGatewayToken(&tokens[0], 1), 0);  // the head
    EXPECT_TRUE(gtListHeadPtr == third && gtListTailPtr == third);
    EXPECT_EQ(deleteGatewayToken(&tokens[2], 1), 0);  // the only one: the tail is left alone and means nothing
    EXPECT_EQ(gtListHeadPtr, nullptr);
    make(1);
    EXPECT_EQ(listLength(), 1u);
}

// Another thread closes the connection: before it has a socket, when it is about to be handed out, and once it is in
// use. Each time the call in progress fails and releases everything, and nothing of a later connection.
TEST_F(TokenList, closingWhileItIsUsed) {
    const Server gateway;
    const int descriptors = openDescriptors();
    char former[] = "the caller's own";
    GatewayToken* token = nullptr;
    char* version = former;
    int attempts = 0;
    const auto expectLost = [&](const Server& server) {
        const AllocationFault allocations(0);
        EXPECT_EQ(openGatewayConnection(server.port(), &token, &version), STAPI_RC_GATEWAY_CONNECTION_LOST);
        EXPECT_EQ(allocations.taken, allocations.released);
        EXPECT_TRUE(token == nullptr && version == former);
    };
    {
        Server silent;  // nobody waits for it
        silent.inject(simgateway::Exchange::handshake, {.silent = true});
        const CallHook hook(Call::socket, closeAll);
        expectLost(silent);
    }
    {
        const AllocationFault allocations(0);
        static_cast<void>(openConnection(gateway.port()));
        attempts = allocations.attempts;
        closeAll();
    }
    {
        const AllocationFault hook(attempts, closeAll);  // the copy of the version
        expectLost(gateway);
    }
    for (const std::size_t length : {32766u, 32767u}) {  // too long for a copy
        const Server talkative({.protocolVersion = std::string(length, 'v')});
        trace.setLevel(1);
        const CallHook hook(Call::pthread_mutex_lock, closeAll, &traceLock.mutex);  // for the line that says so
        expectLost(talkative);
        trace.setLevel(0);
        EXPECT_EQ(trace.takeNumbers(), std::vector{1122});
    }
    {
        const AllocationFault allocations(0);
        ASSERT_EQ(createGatewayToken(nullptr, "127.0.0.1", gateway.port(), &token), 0);
        closeAll();
        make(1);
        EXPECT_EQ(deleteUsedGatewayToken(&token), STAPI_RC_GATEWAY_CONNECTION_LOST);
        EXPECT_EQ(listLength(), 1u);
        closeAll();
        EXPECT_EQ(allocations.taken, allocations.released);
    }
    EXPECT_EQ(fallenTo(descriptors, openDescriptors), descriptors);
}

// The connection stays its parent's, with the exchange that a thread there is in; the child gives its copies back.
TEST_F(TokenList, closingInAChildWhileTheParentUsesIt) {
    make(2);
    SocketPair pair;
    tokens[0]->socket = pair.library;
    tokens[0]->resultSetBuf = allocateResultSetBuffer();
    ASSERT_EQ(beginUse(tokens[0]), 0);
    expectInChild([this, &pair] {
        const AllocationFault allocations(0);
        const bool closed = closeGatewayConnection(&tokens[0]) == 0 && tokens[0] == nullptr;
        const bool released = allocations.released - allocations.taken == 5 && fcntl(pair.library, F_GETFD) == -1 &&
                              gtListHeadPtr == tokens[1];
        return closed && released ? 0 : 1;
    });
    char byte;
    EXPECT_EQ(recv(pair.peer, &byte, 1, MSG_DONTWAIT), -1);  // neither a request nor an end
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(endUse(tokens[0]));
    tokens[0]->socket = -1;
}

TEST_F(TokenList, dumpAndDeletionOfAllEndAtTheLimit) {
    trace.setLevel(1);
    for (const auto& [length, reached, code] : {std::tuple(0u, 0u, STAPI_GTL_EMPTY),
                                                {1u, 1u, 0},
                                                {255u, 255u, 0},
                                                {256u, 256u, STAPI_GTL_RUNAWAY},
                                                {257u, 256u, STAPI_GTL_RUNAWAY}}) {
        SCOPED_TRACE(length);
        make(length);
        EXPECT_EQ(dumpGatewayTokens(), code);
        const std::string total = format("Total number of Gateway Token List entries=%u", reached);
        const std::vector<std::string> lines = trace.take();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), total), 1);
        EXPECT_EQ(deleteGatewayTokens(), code);
        EXPECT_EQ(listLength(), length - reached);
        closeAll();
    }
}

}  // namespace
