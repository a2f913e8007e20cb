#include "socket_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

namespace {

thread_local support::SocketCalls* calls;

// Takes the first element of a script, if there is one.
template <typename Element>
std::optional<Element> takeFirst(std::vector<Element>& script) {
    if (script.empty()) {
        return std::nullopt;
    }
    const Element first = script.front();
    script.erase(script.begin());
    return first;
}

bool fails(std::optional<int> support::SocketCalls::*error) {
    if (calls == nullptr || !(calls->*error)) {
        return false;
    }
    errno = *(calls->*error);
    return true;
}

}  // namespace

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_connect(int descriptor, const sockaddr* address, socklen_t size);
int __real_select(int limit, fd_set* readSet, fd_set* writeSet, fd_set* exceptionSet, timeval* timeout);
int __real_getsockopt(int descriptor, int level, int option, void* value, socklen_t* size);
int __real_ioctl(int descriptor, unsigned long request, ...);
std::time_t __real_time(std::time_t* result);
int __real_madvise(void* at, std::size_t size, int advice) noexcept;

int __wrap_socket(int domain, int type, int protocol) {
    if (calls != nullptr && calls->beforeSocket != nullptr) {
        calls->beforeSocket();
    }
    return fails(&support::SocketCalls::socketError) ? -1 : __real_socket(domain, type, protocol);
}

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t size) {
    return fails(&support::SocketCalls::connectError) ? -1 : __real_connect(descriptor, address, size);
}

int __wrap_select(int limit, fd_set* readSet, fd_set* writeSet, fd_set* exceptionSet, timeval* timeout) {
    const int descriptor = limit - 1;  // the library waits for one at a time
    std::optional<support::SelectResult> scripted;
    if (calls != nullptr && timeout != nullptr) {
        const bool asExpected = readSet == nullptr && FD_ISSET(descriptor, writeSet) &&
                                FD_ISSET(descriptor, exceptionSet) && timeout->tv_usec == 0;
        calls->timeouts.push_back(asExpected ? timeout->tv_sec : -1);
        scripted = takeFirst(calls->selectResults);
    }
    if (!scripted) {
        return __real_select(limit, readSet, writeSet, exceptionSet, timeout);
    }
    if (scripted->ready == support::Ready::NONE) {
        errno = scripted->error;
        return scripted->result;
    }
    FD_CLR(descriptor, scripted->ready == support::Ready::WRITABLE ? exceptionSet : writeSet);
    return 1;
}

int __wrap_getsockopt(int descriptor, int level, int option, void* value, socklen_t* size) {
    if (calls != nullptr && calls->pendingError && level == SOL_SOCKET && option == SO_ERROR) {
        std::memcpy(value, &*calls->pendingError, *size);
        return 0;
    }
    return __real_getsockopt(descriptor, level, option, value, size);
}

// The library passes an int where an address belongs.
int __wrap_ioctl(int descriptor, unsigned long request, ...) {
    std::va_list arguments;
    va_start(arguments, request);
    const int option = va_arg(arguments, int);
    va_end(arguments);
    if (calls != nullptr && request == FIONBIO) {
        calls->modeOptions.push_back(option);
    }
    return __real_ioctl(descriptor, request, option);
}

int __wrap_madvise(void* at, std::size_t size, int advice) noexcept {
    if (calls != nullptr && calls->beforeMadvise != nullptr) {
        calls->beforeMadvise();
    }
    return fails(&support::SocketCalls::madviseError) ? -1 : __real_madvise(at, size, advice);
}

std::time_t __wrap_time(std::time_t* result) {
    const auto scripted = calls == nullptr ? std::nullopt : takeFirst(calls->times);
    return scripted ? *scripted : __real_time(result);
}

}  // extern "C"

namespace support {

SocketCalls::SocketCalls() {
    calls = this;
}

SocketCalls::~SocketCalls() {
    calls = nullptr;
}

}  // namespace support
