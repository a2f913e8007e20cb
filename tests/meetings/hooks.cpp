#include "hooks.h"

#include <unistd.h>

#include <cerrno>

namespace meetings {
namespace {

using support::Call;
namespace real = support::real;

constexpr auto RELAXED = std::memory_order_relaxed;
constexpr unsigned MICROSECONDS = 20;

void await(const std::atomic<bool>& flag) {  // the process's alarm bounds it
    while (!flag.load(RELAXED)) {
        usleep(MICROSECONDS);
    }
}

}  // namespace

As::As(Role as, Meeting& at) : role(as), meeting(at) {
    if (role == SECOND) {
        await(meeting.secondMayRun);
    }
    before = [this](Call call, const void* object) {
        step(call);
        const bool releases = call == Call::free && object != nullptr;
        meeting.blocks.fetch_add(support::allocates(call) ? 1 : releases ? -1 : 0, RELAXED);
        if (role == SECOND && call == Call::pthread_mutex_lock && findHeld(object) != nullptr) {
            meeting.firstMayGoOn.store(true, RELAXED);
        }
        return std::nullopt;
    };
    const auto andStepBehind = [this](Call call, auto& work) {
        return [this, call, &work](auto... arguments) {
            const auto result = work(arguments...);
            step(call);
            return result;
        };
    };
    socket = andStepBehind(Call::socket, real::socket);
    connect = andStepBehind(Call::connect, real::connect);
    close = andStepBehind(Call::close, real::close);
    free = [this](void* block) {
        real::free(block);
        step(Call::free);
    };
    pthread_mutex_lock = [this](pthread_mutex_t* mutex) {
        const int rc = real::pthread_mutex_lock(mutex);
        replaceHeld(nullptr, mutex);
        return rc;
    };
    pthread_mutex_unlock = [this](pthread_mutex_t* mutex) {
        const int rc = real::pthread_mutex_unlock(mutex);
        replaceHeld(mutex, nullptr);
        step(Call::pthread_mutex_unlock);
        return rc;
    };
}

As::~As() {
    if (role != ALONE) {
        (role == FIRST ? meeting.secondMayRun : meeting.firstMayGoOn).store(true, RELAXED);
    }
}

void As::step(Call call) {
    if (role != FIRST || meeting.steps.fetch_add(1, RELAXED) + 1 != meeting.pauseAt) {
        return;
    }
    const int error = errno;
    meeting.pausedAt.store(support::nameOf(call), RELAXED);
    meeting.secondMayRun.store(true, RELAXED);
    await(meeting.firstMayGoOn);
    errno = error;
}

// Where the first's mutexes have this one, null for room for another; null where there is none.
std::atomic<const void*>* As::findHeld(const void* mutex) {
    for (std::atomic<const void*>& held : meeting.held) {
        if (held.load(RELAXED) == mutex) {
            return &held;
        }
    }
    return nullptr;
}

void As::replaceHeld(const void* from, const void* to) {
    std::atomic<const void*>* held = role == FIRST ? findHeld(from) : nullptr;
    if (held != nullptr) {
        held->store(to, RELAXED);
    }
}

}  // namespace meetings
