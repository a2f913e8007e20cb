// Lock wrapper: a POSIX mutex that knows whether it has been initialised, so that a call made too early fails with a
// code instead of touching an uninitialised mutex. The library has two: traceLock (diag) and gtlLock (gwytok).
// Lock order: gtlLock before traceLock.
#pragma once

#include "zulstats.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>

// Codes of this layer; STAPI_RC_LOCK_ALREADY_INITIALIZED and STAPI_RC_LOCK_INIT_FAILED reach callers and stand in
// zulstats.h.
inline constexpr int STAPI_RC_LOCK_NOT_INITIALIZED = -1;
inline constexpr int STAPI_RC_LOCK_REQUEST_FAILED = -4;
inline constexpr int STAPI_RC_LOCK_RELEASE_FAILED = -5;

inline constexpr std::uint32_t LOCK_INITIALIZED = 0xFFEEDDCC;
inline constexpr std::uint32_t LOCK_DESTROYED = 0xCCDDEEFF;

// Both instances are zero-filled statics; a marker that is neither value above means never initialised.
struct StapiLock {
    pthread_mutex_t mutex;  // default attributes: not recursive
    std::atomic<std::uint32_t> marker;
    int cancellation;  // the holder's before it took the lock; guarded by the lock itself
};

// 0, STAPI_RC_LOCK_ALREADY_INITIALIZED (+1, the mutex is left alone) or STAPI_RC_LOCK_INIT_FAILED.
int initializeLock(StapiLock* lockPtr);

// 0, STAPI_RC_LOCK_NOT_INITIALIZED or STAPI_RC_LOCK_REQUEST_FAILED. The holder cannot be cancelled.
int requestLock(StapiLock* lockPtr);

// 0, STAPI_RC_LOCK_NOT_INITIALIZED or STAPI_RC_LOCK_RELEASE_FAILED.
int releaseLock(StapiLock* lockPtr);

// 0, STAPI_RC_LOCK_NOT_INITIALIZED or STAPI_RC_LOCK_REQUEST_FAILED (shared with a failed request). Kept: nobody
// calls it.
[[nodiscard]] int destroyLock(StapiLock* lockPtr);

// The marker word itself.
[[nodiscard]] std::uint32_t isLockInitialized(const StapiLock* lockPtr);
