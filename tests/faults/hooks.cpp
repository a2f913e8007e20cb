#include "faults.h"

#include <cerrno>
#include <cstring>

namespace faults {

Hooks hooks;
Record* record;

namespace {

// What becomes of this call, if it is one that is counted.
int meet(Call call) {
    const bool ofTheSystem = call >= Call::socket && call <= Call::close && call != Call::getsockopt;
    if (!hooks.on || !(hooks.allocations ? support::allocates(call) : ofTheSystem)) {
        return UNHARMED;
    }
    const Call kind = hooks.allocations ? Call::malloc : call;
    const int nth = ++hooks.nth[kind];
    if (hooks.recording) {
        record->event[record->events++] = {hooks.step, kind, nth};
    }
    const int index = hooks.seen++;
    return index == hooks.target || (hooks.onward && index > hooks.target) ? hooks.harm : UNHARMED;
}

std::optional<support::Outcome> outcome(Call call, const void* block) {
    hooks.met = meet(call);
    if (hooks.met > 0 && call != Call::close) {
        return support::Outcome{hooks.met};
    }
    if (hooks.met == ZERO) {
        return support::Outcome{errno, 0};
    }
    hooks.held += support::allocates(call) ? 1 : call == Call::free && block != nullptr ? -1 : 0;
    return std::nullopt;
}

ssize_t sendSome(int descriptor, const void* bytes, std::size_t size, int flags) {
    if (hooks.recording) {
        ++record->replies;
        record->start[record->replies] = record->start[record->replies - 1];
    }
    const bool half = hooks.met == HALF;
    const ssize_t sent = support::real::send(descriptor, bytes, half ? size / 2 : size, flags);
    if (half) {
        shutdown(descriptor, SHUT_WR);  // the Gateway does not wait for the rest
    }
    return sent;
}

ssize_t receiveSome(int descriptor, void* bytes, std::size_t size, int flags) {
    const ssize_t received = support::real::recv(descriptor, bytes, hooks.met == ONE_BYTE ? 1 : size, flags);
    if (hooks.recording && received > 0) {
        std::memcpy(record->bytes + record->start[record->replies], bytes, static_cast<std::size_t>(received));
        record->start[record->replies] += static_cast<std::size_t>(received);
    }
    return received;
}

// A descriptor is gone whatever close returns.
int closeAnyway(int descriptor) {
    const int harm = hooks.met;
    const int rc = support::real::close(descriptor);
    errno = harm > 0 ? harm : errno;
    return harm > 0 ? -1 : rc;
}

}  // namespace

HookedCalls::HookedCalls() {
    before = outcome;
    send = sendSome;
    recv = receiveSome;
    close = closeAnyway;
}

}  // namespace faults
