// Connecting to a Gateway and waiting for a connect in progress.
#include "stapi_zul_gwycon.h"

#include "zulstats.h"

#include "support/interposer.h"
#include "support/process.h"
#include "scripted_peer.h"
#include "support/trace_capture.h"

#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

namespace {

using namespace support;

enum class Ready { NONE, WRITABLE, EXCEPTION };

// The result of one select: `result` with `error`, or the set in which its descriptor is found ready.
struct SelectResult {
    int result = 0;
    int error = 0;
    Ready ready = Ready::NONE;
};

// A script for a connect in progress.
struct Connecting : Script {
    Connecting() {
        select = [this](int limit, fd_set* in, fd_set* out, fd_set* odd, timeval* wait) {
            const int descriptor = limit - 1;
            const bool asExpected = in == nullptr && FD_ISSET(descriptor, out) && FD_ISSET(descriptor, odd);
            timeouts.push_back(asExpected && wait->tv_usec == 0 ? wait->tv_sec : -1);
            if (timeouts.size() > results.size()) {
                return real::select(limit, in, out, odd, wait);
            }
            const SelectResult& found = results[timeouts.size() - 1];
            errno = found.error;
            FD_CLR(descriptor, found.ready == Ready::WRITABLE ? odd : out);
            return found.ready == Ready::NONE ? found.result : 1;
        };
    }
    std::vector<SelectResult> results{};  // one a call; after the last select does its work
    std::vector<long> timeouts{};         // -1 where it was not asked for writable or exception alone
};

// What socket, connect and the wait for a connect in progress lead to.
TEST(ConnectToGateway, outcomes) {
    using Numbers = std::vector<int>;
    const Numbers waited = {9999, 3014, 3003, 3005};
    const Numbers told = {9999, 3014, 3015, 3006};
    const Numbers failed = {9999, 3014, 3017, 3006};
    const SelectResult writable = {.ready = Ready::WRITABLE};
    const struct {
        int connectError;
        SelectResult select;
        std::optional<int> pendingError;
        int expected;
        Numbers numbers;
    } cases[] = {
        {ENETUNREACH, {}, {}, STAPI_RC_SOCKET_NETWORK_UNREACHABLE, {3006}},
        {ECONNREFUSED, {}, {}, STAPI_RC_SOCKET_CONNECT_REFUSED, {3006}},
        {EHOSTUNREACH, {}, {}, STAPI_RC_SOCKET_CONNECT_ERROR, {3006}},
        {ETIMEDOUT, {}, {}, STAPI_RC_SOCKET_CONNECT_ERROR, {3006}},
        {EINTR, {}, {}, STAPI_RC_SOCKET_CONNECT_ERROR, {3006}},
        // A socket that was never connected can be written and has no error; the handshake then fails.
        {EINPROGRESS, writable, {}, 0, waited},
        // Nobody asks such a socket for its error.
        {EINPROGRESS, {.ready = Ready::EXCEPTION}, ECONNREFUSED, 0, waited},
        {EINPROGRESS, writable, ECONNREFUSED, STAPI_RC_SOCKET_CONNECT_REFUSED, told},
        {EINPROGRESS, writable, ENETUNREACH, STAPI_RC_SOCKET_NETWORK_UNREACHABLE, told},
        {EINPROGRESS, writable, ETIMEDOUT, STAPI_RC_SOCKET_CONNECT_ERROR, told},
        {EINPROGRESS, {.result = 0}, {}, 0, {9999, 3014, 3016, 3006}},
        {EINPROGRESS, {-1, ENETUNREACH}, {}, STAPI_RC_SOCKET_NETWORK_UNREACHABLE, failed},
        {EINPROGRESS, {-1, ECONNREFUSED}, {}, STAPI_RC_SOCKET_CONNECT_REFUSED, failed},
        {EINPROGRESS, {-1, ENOMEM}, {}, STAPI_RC_SOCKET_CONNECT_ERROR, failed},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        TraceCapture trace(4);
        std::vector<int> modes;
        Connecting calls;
        const CallFault fault(Call::connect, {one.connectError});
        calls.results = {one.select};
        calls.getsockopt = [&one](int descriptor, int level, int option, void* value, socklen_t* size) {
            const int rc = real::getsockopt(descriptor, level, option, value, size);
            if (one.pendingError && level == SOL_SOCKET && option == SO_ERROR) {
                std::memcpy(value, &*one.pendingError, *size);
            }
            return rc;
        };
        calls.ioctl = [&modes](int descriptor, unsigned long request, long argument) {
            modes.push_back(request == FIONBIO ? static_cast<int>(argument) : -1);
            return real::ioctl(descriptor, request, argument);
        };
        std::int32_t descriptor = -1;
        EXPECT_EQ(connectToGateway(1, "127.0.0.1", &descriptor), one.expected);
        EXPECT_EQ(trace.takeNumbers({9999, 3003, 3004, 3005, 3006, 3014, 3015, 3016, 3017}), one.numbers);
        EXPECT_EQ(modes.at(0), 1);  // by value, so the socket stays blocking
        EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
        close(descriptor);
    }
    const CallFault fault(Call::socket, {EMFILE});
    std::int32_t descriptor = 4711;
    EXPECT_EQ(connectToGateway(1, "127.0.0.1", &descriptor), STAPI_RC_SOCKET_CREATE_FAILED);
    EXPECT_EQ(descriptor, -1);
}

// A closed standard stream's number is nobody's: what prints to it would reach the Gateway or the trace.
TEST(ConnectToGateway, socketAndTraceHaveNoStandardStreamsNumber) {
    const TempDirectory directory;
    expectInChild([&] {
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            close(stream);
        }
        const CallFault fault(Call::connect, {ECONNREFUSED});
        std::int32_t descriptor = -1;
        const int rc = connectToGateway(1, "127.0.0.1", &descriptor);
        const int set = setAPITraceFile(directory.file("trace").c_str());
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            if (fcntl(stream, F_GETFD) != -1) {
                return 1 + stream;
            }
        }
        dumpState();
        const bool written = set == 0 && readFile(directory.file("trace")).starts_with("zulstats state dump");
        const bool closesOnExec = (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
        return rc == STAPI_RC_SOCKET_CONNECT_REFUSED && descriptor > 2 && closesOnExec && written ? 0 : 4;
    });
}

struct Waited {
    int rc;
    std::int32_t error;
};

Waited waitOn(std::int32_t descriptor) {
    std::int32_t error = 4711;
    const int rc = waitForConnection(&descriptor, &error);
    return {rc, error};
}

// After an interruption the wait goes on for what is left of the minute, or for one second.
TEST(WaitForConnection, interruptedWaitGoesOn) {
    constexpr std::time_t START = 1000000;
    const SocketPair pair;
    EXPECT_EQ(waitOn(pair.library).rc, 0);
    for (const auto& [elapsed, seconds] :
         {std::pair(0, 1L), {1, 59}, {2, 58}, {30, 30}, {59, 1}, {60, 1}, {61, 1}, {86400, 1}, {-1, 1}}) {
        SCOPED_TRACE(elapsed);
        const std::vector<std::time_t> times = {START, START + elapsed, START + 20};
        std::size_t asked = 0;
        Connecting calls;
        calls.results = {{.result = -1, .error = EINTR}, {.result = -1, .error = EINTR}, {.result = 0}};
        calls.time = [&](std::time_t*) { return times.at(asked++); };
        const Waited waited = waitOn(pair.library);
        EXPECT_EQ(waited.rc, STAPI_RC_SOCKET_CONNECT_TIMEOUT);
        EXPECT_EQ(waited.error, 4711);
        EXPECT_EQ(calls.timeouts, (std::vector{60L, seconds, 40L}));  // the last from the start, too
    }
}

// No fd_set holds it.
TEST(WaitForConnection, largeDescriptor) {
    expectInChild([] {
        constexpr int LARGE = 1500;
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        const SocketPair pair;
        if (dup2(pair.library, LARGE) != LARGE) {
            return 2;
        }
        const Waited open = waitOn(LARGE);
        close(LARGE);
        const Waited closed = waitOn(LARGE);
        return open.rc == 0 && closed.rc == STAPI_RC_SOCKET_CONNECT_ERROR && closed.error == EBADF ? 0 : 1;
    });
}

}  // namespace
