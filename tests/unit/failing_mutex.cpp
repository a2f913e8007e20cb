#include "failing_mutex.h"

#include <cerrno>
#include <utility>

namespace {

using support::MutexCall;

thread_local struct {
    MutexCall call;
    const pthread_mutex_t* mutex;  // null: nothing fails
    int result;
    int error;
} fault;

thread_local struct {
    MutexCall call;
    const pthread_mutex_t* mutex;
    void (*before)();  // null: nothing is called
} hook;

// Result of the call if it is the one that fails, else of the real one.
template <typename... Arguments>
int callOrFail(MutexCall call, int (*real)(pthread_mutex_t*, Arguments...), pthread_mutex_t* mutex,
               Arguments... arguments) {
    if (hook.before != nullptr && mutex == hook.mutex && call == hook.call) {
        std::exchange(hook.before, nullptr)();
    }
    if (mutex != fault.mutex || call != fault.call) {
        return real(mutex, arguments...);
    }
    errno = fault.error;
    return fault.result;
}

}  // namespace

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return callOrFail(MutexCall::INIT, __real_pthread_mutex_init, mutex, attributes);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return callOrFail(MutexCall::LOCK, __real_pthread_mutex_lock, mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    return callOrFail(MutexCall::UNLOCK, __real_pthread_mutex_unlock, mutex);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    return callOrFail(MutexCall::DESTROY, __real_pthread_mutex_destroy, mutex);
}

}  // extern "C"

namespace support {

MutexFault::MutexFault(MutexCall call, const pthread_mutex_t* mutex, int result, int error) {
    fault = {call, mutex, result, error};
}

MutexFault::~MutexFault() {
    fault = {};
}

MutexHook::MutexHook(MutexCall call, const pthread_mutex_t* mutex, void (*before)()) {
    hook = {call, mutex, before};
}

MutexHook::~MutexHook() {
    hook = {};
}

}  // namespace support
