#include "stapi_zul_wait.h"

#include <poll.h>
#include <sys/select.h>

#include <cerrno>

namespace {

int waitBySelect(int descriptor, WaitFor condition, int seconds, bool* writable) {
    fd_set wanted;
    FD_ZERO(&wanted);
    FD_SET(descriptor, &wanted);
    timeval limit = {seconds, 0};
    timeval* timeout = seconds == NO_TIME_LIMIT ? nullptr : &limit;
    if (condition == WaitFor::READABLE) {
        return select(descriptor + 1, &wanted, nullptr, nullptr, timeout);
    }
    fd_set exceptional = wanted;
    const int ready = select(descriptor + 1, nullptr, &wanted, &exceptional, timeout);
    *writable = ready > 0 && FD_ISSET(descriptor, &wanted);
    return ready;
}

int waitByPoll(int descriptor, WaitFor condition, int seconds, bool* writable) {
    const short events = condition == WaitFor::READABLE ? POLLIN : POLLOUT | POLLPRI;
    pollfd waited = {descriptor, events, 0};
    const int ready = poll(&waited, 1, seconds == NO_TIME_LIMIT ? -1 : seconds * 1000);
    if (ready > 0 && (waited.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    if (condition == WaitFor::CONNECTED) {
        *writable = ready > 0 && (waited.revents & (POLLOUT | POLLERR)) != 0;
    }
    return ready;
}

}  // namespace

int waitForDescriptor(int descriptor, WaitFor condition, int seconds, bool* writable) {
    // A set of select ends at FD_SETSIZE; poll means the same for the descriptors behind.
    return descriptor < FD_SETSIZE ? waitBySelect(descriptor, condition, seconds, writable)
                                   : waitByPoll(descriptor, condition, seconds, writable);
}
