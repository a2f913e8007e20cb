// Initialisation, and the copies of texts that the library takes and hands out.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_mutex.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_sigpipe.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "stapi_zul_impl_trace.h"

constinit std::atomic<int> stapiState = 0;
char stapiVersion[STAPI_VERSION_SIZE];

namespace {

// Serialises initialisation only. A plain mutex, taken before any other lock, because no StapiLock exists yet.
pthread_mutex_t initMutex = PTHREAD_MUTEX_INITIALIZER;

// An initialisation has begun, and failed unless stapiState says otherwise. Guarded by initMutex.
bool initTried;

// What only the first call does. Kept: after a failed initialisation every later call fails.
int initTraceOnce() {
    if (initTried) {
        return STAPI_RC_TRACE_INIT_FAILED;
    }
    initTried = true;
    keepProcessId();
    restoreSigpipeInChildren();
    freeContentInChildren();
    return initTrace();
}

// The caller holds initMutex.
int initialize() {
    statAPITrace.store(1, std::memory_order_relaxed);
    int rc = initTraceOnce();
    if (rc != 0) {
        std::fprintf(stderr, "API.stapiInit() Initialization of zulstats API trace has failed. rc=%d\n", rc);
        return rc;
    }
    rc = initGTL();
    if (rc != 0) {
        TRACE(stapiInit_gtlInitFailed, rc);
        return rc;
    }
    statAPITrace.store(0, std::memory_order_relaxed);
    std::memcpy(stapiVersion, STAPI_VERSION, sizeof STAPI_VERSION);
    stapiState.store(1, std::memory_order_release);
    return 0;
}

// What sets the two copy routines apart.
struct TextCopier {
    const TracePoint<const void*, const void*>& entry;
    const TracePoint<int, const void*>& allocated;
    void (*traceCopying)(const char* block, int size);
    const TracePoint<int>& notAllocated;
    const TracePoint<>& refused;
    const TracePoint<int, int>& exit;
};

int copyText(const TextCopier& copier, const char* dataPtr, char** outputPtr, std::size_t size) {
    if (dataPtr == nullptr || size > TEXT_COPY_MAX || outputPtr == nullptr) {
        TRACE(copier.refused);
        return TEXT_COPY_REFUSED;
    }
    *outputPtr = static_cast<char*>(std::malloc(size));
    TRACE(copier.allocated, static_cast<int>(size), *outputPtr);
    if (*outputPtr == nullptr) {
        TRACE(copier.notAllocated, static_cast<int>(size));
        return TEXT_COPY_NO_MEMORY;
    }
    copier.traceCopying(*outputPtr, static_cast<int>(size));
    std::memcpy(*outputPtr, dataPtr, size);
    return 0;
}

// shownPtr is the address that the entry line shows.
int tracedCopyText(const TextCopier& copier, const char* dataPtr, char** outputPtr, const void* shownPtr) {
    TRACE(copier.entry, dataPtr, shownPtr);
    const std::size_t size = dataPtr == nullptr ? 0 : std::strlen(dataPtr) + 1;
    const int rc = copyText(copier, dataPtr, outputPtr, size);
    TRACE(copier.exit, static_cast<int>(size), rc);
    return rc;
}

}  // namespace

int initializeLibrary() {
    const MutexHold hold(initMutex);
    return stapiState.load(std::memory_order_acquire) != 0 ? 0 : initialize();
}

int dup2ASCIIString(const char* dataPtr, char** outputPtr) {
    static constexpr TextCopier COPIER = {
        .entry = dup2ASCIIString_entry,
        .allocated = dup2ASCIIString_allocated,
        .traceCopying = [](const char* block, int size) { TRACE(dup2ASCIIString_copying, block, size); },
        .notAllocated = dup2ASCIIString_notAllocated,
        .refused = dup2ASCIIString_overlength,
        .exit = dup2ASCIIString_exit};
    return tracedCopyText(COPIER, dataPtr, outputPtr, outputPtr);
}

int dup2NativeString(const char* dataPtr, char** outputPtr) {
    return copyNativeString(dataPtr, outputPtr, outputPtr);
}

int copyNativeString(const char* dataPtr, char** outputPtr, char* const* shownPtr) {
    static constexpr TextCopier COPIER = {
        .entry = dup2NativeString_entry,
        .allocated = dup2NativeString_allocated,
        .traceCopying = [](const char* /*block*/, int size) { TRACE(dup2NativeString_copying, size); },
        .notAllocated = dup2NativeString_notAllocated,
        .refused = dup2NativeString_overlength,
        .exit = dup2NativeString_exit};
    return tracedCopyText(COPIER, dataPtr, outputPtr, shownPtr);
}
