// The exported calls for version, trace settings and state.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "stapi_zul_impl_trace.h"

namespace {

int currentLevel() {
    return statAPITrace.load(std::memory_order_relaxed);
}

int changeLevel(int level) {
    if (static_cast<unsigned>(level) > 5) {
        TRACE(setAPITraceLevel_invalidLevel, level);
        return STAPI_RC_INVALID_TRACE_LEVEL;
    }
    requestLock(&traceLock);
    if (traceHeaderWrite == 0 && currentLevel() == 0 && level > 0) {
        // Kept: switching the trace off and on again writes the banner again.
        writeTraceBanner();
    }
    statAPITrace.store(level, std::memory_order_relaxed);
    releaseLock(&traceLock);
    return 0;
}

int changeFile(const char* traceFile) {
    // Opening may block (a FIFO without a reader), so it comes before the lock.
    std::FILE* file = traceFile == nullptr ? nullptr : openTraceFile(traceFile);
    const int openErrno = errno;
    const bool failed = traceFile != nullptr && file == nullptr;

    requestLock(&traceLock);
    bool switched = false;
    if (file != nullptr) {
        setTraceDestination(file, traceFile);
        switched = true;
    } else if (!failed && !traceGoesToStderr()) {
        setTraceDestination(stderr, defaultTraceFilename);
        switched = true;
    }
    if (currentLevel() > 0 && traceHeaderWrite == 0) {
        writeTraceBanner();
        traceHeaderWrite = 1;
    }
    releaseLock(&traceLock);

    if (failed) {
        TRACE(setAPITraceFile_openFailed, traceFile, openErrno, statAPITraceFilename);
        return STAPI_RC_TRACE_FILE_OPEN_FAILED;
    }
    if (switched) {
        TRACE(setAPITraceFile_switched, statAPITraceFilename);
    } else {
        TRACE(setAPITraceFile_unchanged, statAPITraceFilename);
    }
    return 0;
}

}  // namespace

int getStatsAPIVersion(char** apiVersPtr) {
    int rc = stapiInit();
    TRACE(getStatsAPIVersion_entry, apiVersPtr);
    if (rc == 0) {
        if (apiVersPtr == nullptr) {
            rc = STAPI_RC_NULL_POINTER;
            TRACE(getStatsAPIVersion_nullPointer);
        } else {
            *apiVersPtr = stapiVersion;
        }
    }
    TRACE(getStatsAPIVersion_exit, apiVersPtr, rc);
    return rc;
}

int getAPITraceLevel(int* traceStatePtr) {
    int rc = stapiInit();
    TRACE(getAPITraceLevel_entry, traceStatePtr);
    if (rc == 0) {
        if (traceStatePtr == nullptr) {
            rc = STAPI_RC_NULL_POINTER;
            TRACE(getAPITraceLevel_nullPointer);
        } else {
            *traceStatePtr = currentLevel();
        }
    }
    TRACE(getAPITraceLevel_exit, traceStatePtr, rc);
    return rc;
}

int setAPITraceLevel(int traceState) {
    int rc = stapiInit();
    TRACE(setAPITraceLevel_entry, traceState, currentLevel());
    if (rc == 0) {
        rc = changeLevel(traceState);
    }
    TRACE(setAPITraceLevel_exit, traceState, currentLevel(), rc);
    return rc;
}

int setAPITraceFile(const char* traceFile) {
    int rc = stapiInit();
    TRACE(setAPITraceFile_entry, traceFile, statAPITraceFilename);
    if (rc == 0) {
        rc = changeFile(traceFile);
    }
    TRACE(setAPITraceFile_exit, traceFile, statAPITraceFilename, rc);
    return rc;
}

int dumpState() {
    const int rc = stapiInit();
    TRACE(dumpState_entry);
    if (rc == 0) {
        writeTraceState();
        dumpGatewayTokens();
    }
    TRACE(dumpState_exit);
    return rc;
}
