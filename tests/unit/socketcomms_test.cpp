// Headers, reading, and the exchange of one request for one reply, alone and beside other threads and signals.
#include "stapi_zul_socketcomms.h"

#include "zulstats.h"

#include "child.h"
#include "failing_malloc.h"
#include "guarded_block.h"
#include "scripted_peer.h"
#include "trace_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace unittest {
namespace {

constexpr FlowReasons UNTOUCHED = {1111, 2222, 3333, 4444};

bool operator==(const FlowReasons& left, const FlowReasons& right) {
    return left.errNum == right.errNum && left.gwyRc == right.gwyRc && left.authRc == right.authRc &&
           left.adminRc == right.adminRc;
}

// Every field with a value of its own; of the two words behind the flow type a request has the return code first, a
// reply the echo word.
const Bytes SAMPLE_HEADER = hex("'Gate' 01020304 05060708 11121314 21222324 00000005 'Admin' 31 41424344");

TEST(Header, nameReachingBeyondTheReplyIsRefused) {
    constexpr struct {
        std::uint32_t nameLength;
        bool fits;
        std::uint8_t flag;  // found behind a name of that length
    } CASES[] = {
        {0, true, 'A'},
        {4, true, 'n'},
        {5, true, 0x31},
        {6, false, 0x77},
        {0x7FFF, false, 0x77},
        {0x80000000, false, 0x77},
        {0xFFFFFFE2, false, 0x77},
        {0xFFFFFFFF, false, 0x77},
    };
    for (const auto& one : CASES) {
        GuardedBlock in(slice(SAMPLE_HEADER, 0, 20) + word(one.nameLength) + slice(SAMPLE_HEADER, 24));
        RequestHeader header{};
        header.flag = 0x77;
        EXPECT_EQ(populateHeader(in.data(), &header, SAMPLE_HEADER.size()), one.fits) << one.nameLength;
        EXPECT_EQ(header.flag, one.flag) << one.nameLength;
        EXPECT_EQ(header.echoWord, 0x11121314);  // not swapped back
        EXPECT_EQ(header.returnCode, 0x21222324);
    }
}

// Of a socket that keeps message boundaries one recv returns one message.
TEST(ReadFromSocket, pieceByPieceAndNoByteMore) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    for (const char* piece : {"a", "bc", "def", "next"}) {
        ASSERT_GT(send(ends[1], piece, std::strlen(piece), 0), 0);
    }
    GuardedBlock in(6);
    EXPECT_EQ(readFromSocket(ends[0], 6, in.data()), 0);
    EXPECT_EQ(std::string(in.text(), 6), "abcdef");
    EXPECT_EQ(recv(ends[0], in.data(), 4, MSG_DONTWAIT), 4);
    close(ends[0]);
    close(ends[1]);
}

TEST(ReadFromSocket, peerThatClosesOrStaysSilent) {
    const struct {
        Bytes sent;
        bool closes;  // else the read runs into a time-out of the socket
        int errnoBefore;
        int expected;
        std::vector<int> numbers;
    } cases[] = {
        {{}, true, EFAULT, -1, {3240}},
        {{1, 2}, true, 0, 0, {3240, 3241, 3242, 3243}},
        {{1, 2}, true, EFAULT, EFAULT, {3240, 3241, 3242, 3243}},
        {{}, false, 0, EAGAIN, {3240, 3244}},
        {{1, 2}, false, 0, EAGAIN, {3240, 3241, 3242, 3243}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        SocketPair pair;
        const timeval shortly = {0, 1000};
        setsockopt(pair.library, SOL_SOCKET, SO_RCVTIMEO, &shortly, sizeof shortly);
        pair.write(one.sent);
        if (one.closes) {
            pair.closePeer();
        }
        GuardedBlock in(4);
        TraceCapture trace(4);
        errno = one.errnoBefore;
        EXPECT_EQ(readFromSocket(pair.library, 4, in.data()), one.expected);
        EXPECT_EQ(trace.takeNumbers({3240, 3241, 3242, 3243, 3244}), one.numbers);
    }
    unsigned char byte;
    EXPECT_EQ(readFromSocket(-1, 1, &byte), EBADF);
}

// A request under way: its bytes, record and reasons.
struct Exchange {
    ~Exchange() {
        std::free(data);
    }
    int flowOn(int socketDesc, int size = 37) {
        const Bytes request = hex("'Gate' 00700000 00000005 00000000 00000000 00000004 'BASE' 00 00000004 'body'");
        std::memcpy(data, request.data(), request.size());
        return flow(socketDesc, size, &data, "BASE", &header, &reasons);
    }
    bool fails(int socketDesc, int code, const FlowReasons& expected) {
        return flowOn(socketDesc) == code && reasons == expected;
    }

    unsigned char* data = static_cast<unsigned char*>(std::malloc(64));
    RequestHeader header = newRequestHeader("BASE", 5, 4);
    FlowReasons reasons = UNTOUCHED;
};

FlowReasons errNum(int value) {
    return {value, UNTOUCHED.gwyRc, UNTOUCHED.authRc, UNTOUCHED.adminRc};
}

FlowReasons gwyRc(int value) {
    return {UNTOUCHED.errNum, value, UNTOUCHED.authRc, UNTOUCHED.adminRc};
}

TEST(Flow, nothingToSendSendsNothing) {
    const SocketPair pair;
    Exchange exchange;
    unsigned char* none = nullptr;
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(exchange.flowOn(pair.library, size), -1) << size;
    }
    EXPECT_EQ(flow(pair.library, 8, nullptr, "BASE", &exchange.header, &exchange.reasons), -1);
    EXPECT_EQ(flow(pair.library, 8, &none, "BASE", &exchange.header, &exchange.reasons), -1);
    EXPECT_TRUE(exchange.reasons == UNTOUCHED);
    char byte;
    EXPECT_EQ(recv(pair.peer, &byte, 1, MSG_DONTWAIT), -1);
}

TEST(Flow, replyBodyTakesThePlaceOfTheRequest) {
    ScriptedPeer peer({message({.name = "BASE", .word12 = 0xAABBCCDD}, hex("'reply body'"))});
    Exchange exchange;
    const AllocationFault allocations(0);
    ASSERT_EQ(exchange.flowOn(peer.socket()), 0);
    EXPECT_EQ(allocations.taken(), 2);     // header and body
    EXPECT_EQ(allocations.released(), 2);  // header and request
    EXPECT_EQ(toHex(Bytes(exchange.data, exchange.data + 30)), toHex(hex("'reply body'") + Bytes(20)));
    EXPECT_EQ(exchange.header.dataLength, 10);
    EXPECT_EQ(exchange.header.echoWord, static_cast<std::int32_t>(0xAABBCCDD));
    EXPECT_TRUE(exchange.reasons == UNTOUCHED);
}

TEST(Flow, repliesAndWhatTheyLeadTo) {
    constexpr char ZEROS[] = "\0\0\0";
    const ReplyHeader four = {.name = "BASE", .dataLength = 4};
    const struct {
        const char* name;
        Bytes reply;
        int errnoBefore;
        int expected;
        FlowReasons reasons;
        const char* left;  // what the block holds afterwards
    } cases[] = {
        {"no body", message({.name = "BASE"}), 0, 0, UNTOUCHED, "Gate"},
        {"negative length", message({.name = "BASE", .dataLength = -1}), 0, 0, UNTOUCHED, "Gate"},
        {"rc, no body", message({.name = "BASE", .returnCode = 0xF004}), 0, -4, gwyRc(61444), "Gate"},
        {"rc and body", message({.name = "BASE", .returnCode = 0xFFFFFFFF}, hex("'why?'")), 0, -4, gwyRc(-1), "why?"},
        {"rc, body missing", message({.name = "BASE", .returnCode = 5, .dataLength = 4}), 0, -1, errNum(-1), ZEROS},
        {"closed before", {}, EFAULT, -1, errNum(-1), "Gate"},
        {"closed inside the header", hex("'Gate' 00"), EFAULT, -1, errNum(EFAULT), "Gate"},
        {"a header of zeros", hex("'Gate' 00"), 0, 0, UNTOUCHED, "Gate"},
        {"closed before the body", message(four), EFAULT, -1, errNum(-1), ZEROS},
        {"closed inside the body", message(four, hex("'ab'")), EFAULT, -1, errNum(EFAULT), "ab\0"},
        {"shorter name", message({.name = "BA", .dataLength = 4}, hex("'..body'")), 0, 0, UNTOUCHED, "body"},
        {"longer name", message({.name = "BASES"}), 0, -1, errNum(EPROTO), "Gate"},
        {"endless name", message({.name = "BASE", .nameLength = 0xFFFFFFFF}), 0, -1, errNum(EPROTO), "Gate"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        SocketPair pair;
        pair.write(one.reply);
        shutdown(pair.peer, SHUT_WR);  // a closed peer would refuse the request
        Exchange exchange;
        errno = one.errnoBefore;
        EXPECT_EQ(exchange.flowOn(pair.library), one.expected);
        EXPECT_TRUE(exchange.reasons == one.reasons) << exchange.reasons.errNum << ' ' << exchange.reasons.gwyRc;
        EXPECT_EQ(std::string(reinterpret_cast<char*>(exchange.data), 4), std::string(one.left, 4));
    }
}

TEST(Flow, noStorageForAnEndlessBody) {
    for (const std::int32_t size : {(512 << 20) + 1, INT_MAX}) {
        ScriptedPeer peer({message({.name = "BASE", .dataLength = size})});
        Exchange exchange;
        EXPECT_EQ(exchange.flowOn(peer.socket()), STAPI_RC_NO_MEMORY);
        EXPECT_EQ(exchange.data, nullptr);
    }
}

bool isDefault(int signalNumber) {
    struct sigaction now {};
    sigaction(signalNumber, nullptr, &now);
    return now.sa_handler == SIG_DFL;
}

// Sends the calling thread signals until it goes.
class Interrupter {
public:
    Interrupter() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        sender = std::thread([this, target = pthread_self()] {
            while (!stopping) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    }
    ~Interrupter() {
        stopping = true;
        sender.join();
    }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

private:
    std::atomic<bool> stopping = false;
    std::thread sender;
};

bool sigpipeActionComesBackWhole() {
    struct sigaction set {};
    set.sa_sigaction = [](int, siginfo_t*, void*) { _exit(9); };
    set.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaddset(&set.sa_mask, SIGUSR2);
    sigaction(SIGPIPE, &set, nullptr);
    SocketPair pair;
    pair.write(message({.name = "BASE"}));
    bool good = Exchange().flowOn(pair.library) == 0;
    pair.closePeer();
    good = good && Exchange().fails(pair.library, -1, errNum(EPIPE)) && Exchange().fails(-1, -1, errNum(EBADF));
    struct sigaction now {};
    sigaction(SIGPIPE, nullptr, &now);
    return good && now.sa_sigaction == set.sa_sigaction && (now.sa_flags & SA_SIGINFO) != 0 &&
           (now.sa_flags & SA_NODEFER) != 0 && sigismember(&now.sa_mask, SIGUSR2) == 1;
}

// A thread that put the action back while the other one sends would let SIGPIPE end the process.
bool twoThreadsLoseTheirPeersAtOnce() {
    signal(SIGPIPE, SIG_DFL);
    std::atomic<int> wrong = 0;
    const auto work = [&wrong] {
        SocketPair pair;
        pair.closePeer();
        for (int i = 0; i < 5000; ++i) {
            wrong += Exchange().fails(pair.library, -1, errNum(EPIPE)) ? 0 : 1;
        }
    };
    std::thread other(work);
    work();
    other.join();
    return wrong == 0 && isDefault(SIGPIPE);
}

// Even where other calls would be restarted.
bool signalEndsTheWaitAndLeavesTheReasonsAlone() {
    const SocketPair pair;
    const Interrupter interrupter;
    return Exchange().fails(pair.library, -1, UNTOUCHED);
}

// No fd_set holds it.
bool largeDescriptorBehavesLikeTheOthers() {
    constexpr int LARGE = 1500;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    SocketPair pair;
    bool good = dup2(pair.library, LARGE) == LARGE;
    pair.write(message({.name = "BASE"}, hex("'body'")));
    good = good && Exchange().fails(LARGE, 0, UNTOUCHED);
    {
        const Interrupter interrupter;
        good = good && Exchange().fails(LARGE, -1, UNTOUCHED);
    }
    pair.write(message({.name = "BASE", .returnCode = 6}));
    shutdown(pair.peer, SHUT_WR);
    return good && Exchange().fails(LARGE, -4, gwyRc(6)) && Exchange().fails(LARGE, -1, errNum(-1));
}

TEST(FlowProcess, sharesSignalsAndDescriptorsWithTheRest) {
    EXPECT_EQ(runInChild([] { return sigpipeActionComesBackWhole() ? 0 : 1; }), 0);
    EXPECT_EQ(runInChild([] { return twoThreadsLoseTheirPeersAtOnce() ? 0 : 1; }), 0);
    EXPECT_EQ(runInChild([] { return signalEndsTheWaitAndLeavesTheReasonsAlone() ? 0 : 1; }), 0);
    EXPECT_EQ(runInChild([] { return largeDescriptorBehavesLikeTheOthers() ? 0 : 1; }), 0);
}

}  // namespace
}  // namespace unittest
