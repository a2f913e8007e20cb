// Trace points of stapi_zul_lock: the lock wrapper.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(initializeLock_entry, 3100, ENTRY, 5, "stapi_zul_lock.initializeLock(lockPtr=%p)\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(initializeLock_initFailed, 3101, EXC, 1,
            "stapi_zul_lock.initializeLock(lockPtr=%p) Lock initialization failed errno=%d\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(initializeLock_exit, 3102, EXIT, 5,
            "stapi_zul_lock.initializeLock(lockPtr=%p) mutexRc=%d rc=%d\n", NOT_UNDER_TRACE_LOCK)

TRACE_POINT(requestLock_entry, 3103, ENTRY, 5, "stapi_zul_lock.requestLock(lockPtr=%p)\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(requestLock_notInitialized, 3104, EXC, 1,
            "stapi_zul_lock.requestLock(lockPtr=%p) Lock not initialized\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(requestLock_requestFailed, 3105, EXC, 1,
            "stapi_zul_lock.requestLock(lockPtr=%p) Lock request failed errno=%d\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(requestLock_exit, 3106, EXIT, 5,
            "stapi_zul_lock.requestLock(lockPtr=%p) mutexRc=%d rc=%d\n", NOT_UNDER_TRACE_LOCK)

TRACE_POINT(releaseLock_entry, 3107, ENTRY, 5, "stapi_zul_lock.releaseLock(lockPtr=%p)\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(releaseLock_notInitialized, 3108, EXC, 1,
            "stapi_zul_lock.releaseLock(lockPtr=%p) Lock not initialized\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(releaseLock_releaseFailed, 3109, EXC, 1,
            "stapi_zul_lock.releaseLock(lockPtr=%p) Lock release failed errno=%d\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(releaseLock_exit, 3110, EXIT, 5,
            "stapi_zul_lock.releaseLock(lockPtr=%p) mutexRc=%d rc=%d\n", NOT_UNDER_TRACE_LOCK)

TRACE_POINT(destroyLock_entry, 3111, ENTRY, 5, "stapi_zul_lock.destroyLock(lockPtr=%p)\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(destroyLock_notInitialized, 3112, EXC, 1,
            "stapi_zul_lock.destroyLock(lockPtr=%p) Lock not initialized\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(destroyLock_destroyFailed, 3113, EXC, 1,
            "stapi_zul_lock.destroyLock(lockPtr=%p) Lock destroy failed errno=%d\n", NOT_UNDER_TRACE_LOCK)
TRACE_POINT(destroyLock_exit, 3114, EXIT, 5,
            "stapi_zul_lock.destroyLock(lockPtr=%p) mutexRc=%d rc=%d\n", NOT_UNDER_TRACE_LOCK)
