#include "stapi_zul_lock.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_mutex.h"

#include <cerrno>

#include "stapi_zul_lock_trace.h"

namespace {

// What sets request, release and destroy apart.
struct LockOperation {
    const TracePoint<const void*>& entry;
    const TracePoint<const void*>& notInitialized;
    const TracePoint<const void*, int>& failed;
    const TracePoint<const void*, int, int>& exit;
    int (*call)(pthread_mutex_t*);
    int failedCode;
    std::uint32_t markerAfter;
};

int runOperation(StapiLock* lockPtr, const LockOperation& operation) {
    TRACE(operation.entry, lockPtr);
    int mutexRc = 0;
    int rc = 0;
    if (isLockInitialized(lockPtr) != LOCK_INITIALIZED) {
        rc = STAPI_RC_LOCK_NOT_INITIALIZED;
        TRACE(operation.notInitialized, lockPtr);
    } else {
        mutexRc = operation.call(&lockPtr->mutex);
        const int error = errno;
        if (mutexRc != 0) {
            rc = operation.failedCode;
            TRACE(operation.failed, lockPtr, error);
        } else if (operation.markerAfter != LOCK_INITIALIZED) {
            lockPtr->marker.store(operation.markerAfter, std::memory_order_release);
        }
    }
    TRACE(operation.exit, lockPtr, mutexRc, rc);
    return rc;
}

}  // namespace

int initializeLock(StapiLock* lockPtr) {
    TRACE(initializeLock_entry, lockPtr);
    int mutexRc = 0;
    int rc = STAPI_RC_LOCK_ALREADY_INITIALIZED;
    if (isLockInitialized(lockPtr) != LOCK_INITIALIZED) {
        mutexRc = pthread_mutex_init(&lockPtr->mutex, nullptr);
        const int error = errno;
        if (mutexRc == 0) {
            lockPtr->marker.store(LOCK_INITIALIZED, std::memory_order_release);
            rc = 0;
        } else {
            rc = STAPI_RC_LOCK_INIT_FAILED;
            TRACE(initializeLock_initFailed, lockPtr, error);
        }
    }
    TRACE(initializeLock_exit, lockPtr, mutexRc, rc);
    return rc;
}

int requestLock(StapiLock* lockPtr) {
    static constexpr LockOperation REQUEST = {.entry = requestLock_entry,
                                              .notInitialized = requestLock_notInitialized,
                                              .failed = requestLock_requestFailed,
                                              .exit = requestLock_exit,
                                              .call = pthread_mutex_lock,
                                              .failedCode = STAPI_RC_LOCK_REQUEST_FAILED,
                                              .markerAfter = LOCK_INITIALIZED};
    const int cancellation = disableCancellation();
    const int rc = runOperation(lockPtr, REQUEST);
    if (rc == 0) {
        lockPtr->cancellation = cancellation;
    } else {
        restoreCancellation(cancellation);
    }
    return rc;
}

int releaseLock(StapiLock* lockPtr) {
    static constexpr LockOperation RELEASE = {.entry = releaseLock_entry,
                                              .notInitialized = releaseLock_notInitialized,
                                              .failed = releaseLock_releaseFailed,
                                              .exit = releaseLock_exit,
                                              .call = pthread_mutex_unlock,
                                              .failedCode = STAPI_RC_LOCK_RELEASE_FAILED,
                                              .markerAfter = LOCK_INITIALIZED};
    const int cancellation = lockPtr->cancellation;
    const int rc = runOperation(lockPtr, RELEASE);
    if (rc == 0) {
        restoreCancellation(cancellation);
    }
    return rc;
}

int destroyLock(StapiLock* lockPtr) {
    // Kept: a failed destroy returns the code of a failed request.
    static constexpr LockOperation DESTROY = {.entry = destroyLock_entry,
                                              .notInitialized = destroyLock_notInitialized,
                                              .failed = destroyLock_destroyFailed,
                                              .exit = destroyLock_exit,
                                              .call = pthread_mutex_destroy,
                                              .failedCode = STAPI_RC_LOCK_REQUEST_FAILED,
                                              .markerAfter = LOCK_DESTROYED};
    return runOperation(lockPtr, DESTROY);
}

std::uint32_t isLockInitialized(const StapiLock* lockPtr) {
    return lockPtr->marker.load(std::memory_order_acquire);
}
