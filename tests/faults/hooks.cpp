#include "faults.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace faults {

thread_local Hooks hooks;
Record* record;

namespace {

// What becomes of this call.
int meet(Call call) {
    if (!hooks.on || hooks.allocations != (call == ALLOCATE)) {
        return UNHARMED;
    }
    ++hooks.nth[call];
    if (hooks.recording) {
        record->event[record->events++] = {hooks.step, call, hooks.nth[call]};
    }
    const int index = hooks.seen++;
    return index == hooks.target || (hooks.onward && index > hooks.target) ? hooks.harm : UNHARMED;
}

bool fails(int harm) {
    errno = harm > 0 ? harm : errno;
    return harm > 0;
}

template <typename Taken>
Taken taken(Taken block) {
    hooks.held += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace

extern "C" {

void __real_free(void* block);
int __real_close(int descriptor);
ssize_t __real_send(int descriptor, const void* bytes, std::size_t size, int flags);
ssize_t __real_recv(int descriptor, void* bytes, std::size_t size, int flags);

// Calls that are either made or fail.
#define HOOKED(call, result, name, parameters, arguments, failure, success)                         \
    result __real_##name parameters;                                                                \
    result __wrap_##name parameters {                                                               \
        return fails(meet(call)) ? static_cast<result>(failure) : success(__real_##name arguments); \
    }
HOOKED(ALLOCATE, void*, malloc, (std::size_t size), (size), nullptr, taken)
HOOKED(ALLOCATE, void*, calloc, (std::size_t count, std::size_t size), (count, size), nullptr, taken)
HOOKED(ALLOCATE, char*, strdup, (const char* text), (text), nullptr, taken)
HOOKED(SOCKET, int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, )
HOOKED(IOCTL, int, ioctl, (int file, unsigned long request, int option), (file, request, option), -1, )
HOOKED(CONNECT, int, connect, (int file, const sockaddr* to, socklen_t size), (file, to, size), -1, )
HOOKED(SELECT, int, select, (int limit, fd_set* in, fd_set* out, fd_set* odd, timeval* wait),
       (limit, in, out, odd, wait), -1, )

void __wrap_free(void* block) {
    hooks.held -= block != nullptr ? 1 : 0;
    __real_free(block);
}

ssize_t __wrap_send(int descriptor, const void* bytes, std::size_t size, int flags) {
    const int harm = meet(SEND);
    if (harm > 0 || harm == ZERO) {
        return fails(harm) ? -1 : 0;
    }
    if (hooks.recording) {
        ++record->replies;
        record->start[record->replies] = record->start[record->replies - 1];
    }
    const ssize_t sent = __real_send(descriptor, bytes, harm == HALF ? size / 2 : size, flags);
    if (harm == HALF) {
        shutdown(descriptor, SHUT_WR);  // the Gateway does not wait for the rest
    }
    return sent;
}

ssize_t __wrap_recv(int descriptor, void* bytes, std::size_t size, int flags) {
    const int harm = meet(RECV);
    if (harm > 0 || harm == ZERO) {
        return fails(harm) ? -1 : 0;
    }
    const ssize_t received = __real_recv(descriptor, bytes, harm == ONE_BYTE ? 1 : size, flags);
    if (hooks.recording && received > 0) {
        std::memcpy(record->bytes + record->start[record->replies], bytes, static_cast<std::size_t>(received));
        record->start[record->replies] += static_cast<std::size_t>(received);
    }
    return received;
}

// A descriptor is gone whatever close returns.
int __wrap_close(int descriptor) {
    const int harm = meet(CLOSE_SOCKET);
    const int rc = __real_close(descriptor);
    return fails(harm) ? -1 : rc;
}

}  // extern "C"
}  // namespace faults
