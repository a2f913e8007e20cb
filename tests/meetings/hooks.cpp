#include "hooks.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>

namespace meetings {
namespace {

constexpr auto RELAXED = std::memory_order_relaxed;
constexpr unsigned MICROSECONDS = 20;

thread_local Role role = OUTSIDE;
thread_local Meeting* meeting;

void await(const std::atomic<bool>& flag) {  // the process's alarm bounds it
    while (!flag.load(RELAXED)) {
        usleep(MICROSECONDS);
    }
}

void step(const char* name) {
    if (role != FIRST || meeting->steps.fetch_add(1, RELAXED) + 1 != meeting->pauseAt) {
        return;
    }
    const int error = errno;
    meeting->pausedAt.store(name, RELAXED);
    meeting->secondMayRun.store(true, RELAXED);
    await(meeting->firstMayGoOn);
    errno = error;
}

// What becomes of a call's result: nothing, another step behind the call, or one block more.
template <typename Result>
Result plain(const char* /*name*/, Result result) {
    return result;
}

template <typename Result>
Result behind(const char* name, Result result) {
    step(name);
    return result;
}

template <typename Result>
Result taken(const char* /*name*/, Result block) {
    if (role != OUTSIDE && block != nullptr) {
        meeting->blocks.fetch_add(1, RELAXED);
    }
    return block;
}

// Where the first's mutexes have this one, null for room for another; null where there is none.
std::atomic<const pthread_mutex_t*>* findHeld(const pthread_mutex_t* mutex) {
    for (std::atomic<const pthread_mutex_t*>& held : meeting->held) {
        if (held.load(RELAXED) == mutex) {
            return &held;
        }
    }
    return nullptr;
}

void replaceHeld(const pthread_mutex_t* from, const pthread_mutex_t* to) {
    std::atomic<const pthread_mutex_t*>* held = role == FIRST ? findHeld(from) : nullptr;
    if (held != nullptr) {
        held->store(to, RELAXED);
    }
}

}  // namespace

As::As(Role as, Meeting& at) {
    if (as == SECOND) {
        await(at.secondMayRun);
    }
    meeting = &at;
    role = as;
}

As::~As() {
    if (role == FIRST) {
        meeting->secondMayRun.store(true, RELAXED);
    } else if (role == SECOND) {
        meeting->firstMayGoOn.store(true, RELAXED);
    }
    role = OUTSIDE;
}

extern "C" {

#define STEP(result, name, parameters, arguments, then) \
    result __real_##name parameters;                    \
    result __wrap_##name parameters {                   \
        step(#name);                                    \
        return then(#name, __real_##name arguments);    \
    }
STEP(void*, malloc, (std::size_t size), (size), taken)
STEP(void*, calloc, (std::size_t count, std::size_t size), (count, size), taken)
STEP(char*, strdup, (const char* text), (text), taken)
STEP(int, socket, (int domain, int type, int protocol), (domain, type, protocol), behind)
STEP(int, ioctl, (int file, unsigned long request, int option), (file, request, option), plain)
STEP(int, connect, (int file, const sockaddr* to, socklen_t size), (file, to, size), behind)
STEP(int, select, (int limit, fd_set* in, fd_set* out, fd_set* odd, timeval* wait), (limit, in, out, odd, wait), plain)
STEP(ssize_t, send, (int file, const void* bytes, std::size_t size, int flags), (file, bytes, size, flags), plain)
STEP(ssize_t, recv, (int file, void* bytes, std::size_t size, int flags), (file, bytes, size, flags), plain)
STEP(int, shutdown, (int file, int how), (file, how), plain)
STEP(int, close, (int file), (file), behind)
STEP(int, sigaction, (int number, const struct sigaction* now, struct sigaction* before), (number, now, before), plain)
STEP(std::FILE*, fdopen, (int descriptor, const char* mode), (descriptor, mode), plain)
STEP(int, fclose, (std::FILE * file), (file), plain)
STEP(int, fflush, (std::FILE * file), (file), plain)
STEP(int, vfprintf, (std::FILE * file, const char* format, std::va_list arguments), (file, format, arguments), plain)

void __real_free(void* block);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

void __wrap_free(void* block) {
    step("free");
    if (role != OUTSIDE && block != nullptr) {
        meeting->blocks.fetch_sub(1, RELAXED);
    }
    __real_free(block);
    step("free");
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    step("pthread_mutex_lock");
    if (role == SECOND && findHeld(mutex) != nullptr) {
        meeting->firstMayGoOn.store(true, RELAXED);
    }
    const int rc = __real_pthread_mutex_lock(mutex);
    replaceHeld(nullptr, mutex);
    return rc;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    step("pthread_mutex_unlock");
    const int rc = __real_pthread_mutex_unlock(mutex);
    replaceHeld(mutex, nullptr);
    step("pthread_mutex_unlock");
    return rc;
}

}  // extern "C"
}  // namespace meetings
