// The exchange of one request for one reply: what comes of the reply, and of SIGPIPE meanwhile.
#include "stapi_zul_socketcomms.h"

#include "zulstats.h"

#include "support/interposer.h"
#include "support/process.h"
#include "scripted_peer.h"
#include "support/trace_capture.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using namespace support;

constexpr FlowReasons UNTOUCHED = {1111, 2222, 3333, 4444};

bool operator==(const FlowReasons& left, const FlowReasons& right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
}

FlowReasons errNum(int value) {
    return {value, 2222, 3333, 4444};
}

FlowReasons gwyRc(int value) {
    return {1111, value, 3333, 4444};
}

// A request under way: its bytes, record and reasons.
struct Exchange {
    ~Exchange() {
        std::free(data);
    }
    int flowOn(int socketDesc) {
        const Bytes request = message({.name = "BASE", .flowType = 5}, hex("'body'"));
        std::memcpy(data, request.data(), request.size());
        return flow(socketDesc, 37, &data, "BASE", &header, &reasons);
    }
    bool fails(int socketDesc, const FlowReasons& expected) {
        return flowOn(socketDesc) == STAPI_RC_FLOW_COMMS_FAILED && reasons == expected;
    }
    // On a connection whose peer has gone.
    static bool failsAlone() {
        SocketPair pair;
        pair.closePeer();
        return Exchange().fails(pair.library, errNum(EPIPE));
    }

    unsigned char* data = static_cast<unsigned char*>(std::malloc(64));
    RequestHeader header = newRequestHeader("BASE", 5, 4);
    FlowReasons reasons = UNTOUCHED;
};

TEST(Flow, replyBodyTakesThePlaceOfTheRequest) {
    ScriptedPeer peer({message({.name = "BASE", .word12 = 0xAABBCCDD}, hex("'reply body'"))});
    Exchange exchange;
    const AllocationFault allocations(0);
    ASSERT_EQ(exchange.flowOn(peer.socket()), 0);
    EXPECT_TRUE(allocations.taken == 2 && allocations.released == 2);  // header and body, header and request
    EXPECT_EQ(toHex(Bytes(exchange.data, exchange.data + 30)), toHex(hex("'reply body'") + Bytes(20)));
    EXPECT_EQ(exchange.header.dataLength, 10);
    EXPECT_EQ(exchange.header.echoWord, static_cast<std::int32_t>(0xAABBCCDD));
    EXPECT_TRUE(exchange.reasons == UNTOUCHED);
}

TEST(Flow, repliesAndWhatTheyLeadTo) {
    constexpr char ZEROS[] = "\0\0\0";
    const Header four = {.name = "BASE", .dataLength = 4};
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
        {"rc, no body", message({.name = "BASE", .word16 = 0xF004}), 0, -4, gwyRc(61444), "Gate"},
        {"rc and body", message({.name = "BASE", .word16 = 0xFFFFFFFF}, hex("'why?'")), 0, -4, gwyRc(-1), "why?"},
        {"rc, body missing", message({.name = "BASE", .word16 = 5, .dataLength = 4}), 0, -1, errNum(-1), ZEROS},
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

// The lines of all receives of one read show what the whole read is to bring and where to, not their own parts of it.
TEST(ReadFromSocket, linesShowTheWholeRead) {
    SocketPair pair;
    pair.write(hex("'ab'"));
    shutdown(pair.peer, SHUT_WR);
    unsigned char data[8] = {};
    TraceCapture trace(4);
    errno = EFAULT;
    EXPECT_EQ(readFromSocket(pair.library, 8, data), EFAULT);
    constexpr char RECEIVED[] =
        "[%d] DEBUG  stapi_zul_socketcomms.readFromSocket recv(socketDesc=%d, dataSize=8, "
        "dataBuf=%p) readData=%d";
    const std::vector<std::string> lines = trace.take();
    EXPECT_EQ(lines.at(1), format(RECEIVED, 3240, pair.library, static_cast<void*>(data), 2) + ")");
    EXPECT_EQ(lines.at(2), format(RECEIVED, 3241, pair.library, static_cast<void*>(data), 0) + ", totaldata=2)");
}

TEST(Sigpipe, actionComesBackWhole) {
    expectInChild([] {
        struct sigaction set {};
        set.sa_sigaction = [](int, siginfo_t*, void*) { _exit(9); };
        set.sa_flags = SA_SIGINFO | SA_NODEFER;
        sigaddset(&set.sa_mask, SIGUSR2);
        sigaction(SIGPIPE, &set, nullptr);
        const bool failed = Exchange::failsAlone() && Exchange().fails(-1, errNum(EBADF));
        struct sigaction now {};
        sigaction(SIGPIPE, nullptr, &now);
        return failed && now.sa_sigaction == set.sa_sigaction && (now.sa_flags & SA_SIGINFO) != 0 &&
                       (now.sa_flags & SA_NODEFER) != 0 && sigismember(&now.sa_mask, SIGUSR2) == 1
                   ? 0
                   : 1;
    });
}

// The library's end of a connection whose peer reads nothing, and a thread that waits in a send on it.
class WaitingSend {
public:
    WaitingSend() : thread([this] { sendMuch(); }) {
        struct sigaction now {};
        do {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the alarm bounds it
            sigaction(SIGPIPE, nullptr, &now);
        } while (now.sa_handler != SIG_IGN);
    }
    ~WaitingSend() {
        pair.closePeer();
        thread.join();
    }

private:
    void sendMuch() {
        constexpr int SIZE = 16 << 20;
        auto* data = static_cast<unsigned char*>(std::calloc(SIZE, 1));
        RequestHeader header = newRequestHeader("BASE", 5, 4);
        FlowReasons reasons = {};
        static_cast<void>(flow(pair.library, SIZE, &data, "BASE", &header, &reasons));
        std::free(data);
    }
    SocketPair pair;
    std::thread thread;
};

bool takesDefaultAction() {
    struct sigaction now {};
    sigaction(SIGPIPE, nullptr, &now);
    return now.sa_handler == SIG_DFL;
}

// A sender relies on no other one, which may be gone, or have found another action.
TEST(Sigpipe, isIgnoredByEverySender) {
    expectInChild([] {
        signal(SIGPIPE, SIG_DFL);
        WaitingSend other;
        signal(SIGPIPE, SIG_DFL);
        return Exchange::failsAlone() ? 0 : 1;
    });
}

// A child has none of its parent's senders.
TEST(Sigpipe, childBeginsWithTheApplicationsAction) {
    expectInChild([] {
        signal(SIGPIPE, SIG_DFL);
        if (closeAllGatewayConnections() != 0) {  // the first call
            return 1;
        }
        WaitingSend other;
        return runInChild(
            [] { return takesDefaultAction() && Exchange::failsAlone() && takesDefaultAction() ? 0 : 2; });
    });
}

// A thread that put the action back while the other one sends would let SIGPIPE end the process.
TEST(Sigpipe, twoThreadsLoseTheirPeersAtOnce) {
    expectInChild([] {
        signal(SIGPIPE, SIG_DFL);
        std::atomic<int> wrong = 0;
        const auto work = [&wrong] {
            for (int i = 0; i < 5000; ++i) {
                wrong += Exchange::failsAlone() ? 0 : 1;
            }
        };
        std::thread other(work);
        work();
        other.join();
        return wrong == 0 && signal(SIGPIPE, SIG_DFL) == SIG_DFL ? 0 : 1;
    });
}

}  // namespace
