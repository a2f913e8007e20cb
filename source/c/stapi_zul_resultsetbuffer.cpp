#include "stapi_zul_resultsetbuffer.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_mutex.h"
#include "stapi_zul_shown.h"

#include <cstdlib>

#include "stapi_zul_resultsetbuffer_trace.h"

pthread_mutex_t contentMutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

void holdContent() {
    pthread_mutex_lock(&contentMutex);
}

void letGoOfContent() {
    pthread_mutex_unlock(&contentMutex);
}

void storeContent(char* at, const void* bytes, std::size_t count) {
    const MutexHold hold(contentMutex);
    std::memcpy(at, bytes, count);
}

int create(ResultSetToken** newRsTokPtr, const char* eyecatcher, std::uint32_t owner) {
    if (newRsTokPtr == nullptr || eyecatcher == nullptr) {
        return STAPI_RC_NULL_PARAMETER;
    }
    if (owner != CONNECTION_OWNED && owner != USER_OWNED) {
        return STAPI_RC_INVALID_OWNER;
    }
    constexpr int tokenSize = sizeof(ResultSetToken);
    auto* token = static_cast<ResultSetToken*>(std::calloc(1, sizeof(ResultSetToken)));
    TRACE(createResultSet_allocatedToken, tokenSize, token);
    if (token == nullptr) {
        TRACE(createResultSet_tokenNotAllocated, tokenSize);
        *newRsTokPtr = nullptr;
        return STAPI_RC_NO_MEMORY;
    }
    token->verifiedQueryString = static_cast<char*>(std::calloc(QUERY_STRING_BUFFER_SIZE, 1));
    TRACE(createResultSet_allocatedQueryString, static_cast<int>(QUERY_STRING_BUFFER_SIZE), token->verifiedQueryString);
    if (token->verifiedQueryString == nullptr) {
        // Kept: the line shows the token's size, not that of the block that failed.
        TRACE(createResultSet_queryStringNotAllocated, tokenSize);
        std::free(token);
        return STAPI_RC_NO_MEMORY;
    }
    std::memcpy(token->eyecatcher, eyecatcher, strnlen(eyecatcher, EYECATCHER_SIZE));
    token->owner = owner;
    if (owner == CONNECTION_OWNED) {
        getPidTid(&token->pid, &token->tid);
        token->owningThread = pthread_self();
    }
    *newRsTokPtr = token;
    return 0;
}

int destroy(ResultSetToken** rsPtr) {
    if (rsPtr == nullptr) {
        return STAPI_RC_NULL_RESULT_SET_POINTER;
    }
    ResultSetToken* token = *rsPtr;
    if (token == nullptr) {
        return STAPI_RC_NULL_RESULT_SET;
    }
    if (token->verifiedQueryString != nullptr) {
        const void* released = addressOnly(token->verifiedQueryString);
        TRACE(deleteResultSet_freeQueryString, token->verifiedQueryString);
        std::free(token->verifiedQueryString);
        TRACE(deleteResultSet_freedQueryString, released);
        token->verifiedQueryString = nullptr;
    }
    const void* released = addressOnly(token);
    TRACE(deleteResultSet_freeToken, token);
    releaseResultSet(token);
    TRACE(deleteResultSet_freedToken, released);
    *rsPtr = nullptr;
    return 0;
}

int verifyOwner(const ResultSetToken* rsPtr) {
    std::uint32_t currentPid = 0;
    std::uint32_t currentTid = 0;
    getPidTid(&currentPid, &currentTid);
    if (currentPid != rsPtr->pid) {
        TRACE(verifyAPIResultSetToken_pidMismatch, currentPid, rsPtr->pid);
        return STAPI_RC_RESULT_SET_PID_MISMATCH;
    }
    if (compareTids(currentThread(), rsPtr->owningThread) == 0) {
        TRACE(verifyAPIResultSetToken_tidMismatch, currentTid, rsPtr->tid);
        return STAPI_RC_RESULT_SET_TID_MISMATCH;
    }
    return 0;
}

// What sets the two text writers apart.
struct TextWriter {
    const TracePoint<const void*, const void*, int>& entry;
    const TracePoint<const void*>& nullParameter;
    const TracePoint<const void*, int>& copying;
    const TracePoint<const void*, const void*, unsigned>& exit;
};

int addText(const TextWriter& writer, char** bufWPtr, const char* text, std::int32_t charCount) {
    TRACE(writer.entry, bufWPtr, text, charCount);
    int rc = 0;
    if (bufWPtr == nullptr || *bufWPtr == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
        TRACE(writer.nullParameter, bufWPtr);
    } else {
        TRACE(writer.copying, *bufWPtr, charCount);
        if (charCount > 0) {
            storeContent(*bufWPtr, text, static_cast<std::size_t>(charCount));
            *bufWPtr += charCount;
        }
    }
    TRACE(writer.exit, bufWPtr, text, static_cast<unsigned>(rc));
    return rc;
}

}  // namespace

int createResultSet(ResultSetToken** newRsTokPtr, const char* eyecatcher, std::uint32_t owner) {
    TRACE(createResultSet_entry, newRsTokPtr, eyecatcher, owner);
    const int rc = create(newRsTokPtr, eyecatcher, owner);
    TRACE(createResultSet_exit, newRsTokPtr, eyecatcher, owner, rc);
    return rc;
}

int deleteResultSet(ResultSetToken** rsPtr) {
    TRACE(deleteResultSet_entry, rsPtr);
    const int rc = destroy(rsPtr);
    TRACE(deleteResultSet_exit, rsPtr, rc);
    return rc;
}

void releaseResultSet(ResultSetToken* rs) {
    if (rs != nullptr) {
        std::free(rs->queryString);
        std::free(rs->verifiedQueryString);
        std::free(rs);
    }
}

int verifyAPIResultSetTokenOwner(const ResultSetToken* rsPtr) {
    TRACE(verifyAPIResultSetToken_entry, rsPtr);
    const int rc = verifyOwner(rsPtr);
    TRACE(verifyAPIResultSetToken_exit, rsPtr, rc);
    return rc;
}

int dumpResultSetInternal(const ResultSetToken* rsPtr) {
    TRACE(dumpResultSetInternal_entry, rsPtr);
    int rc = 0;
    int bytesDumped = 0;
    if (rsPtr == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
    } else {
        requestLock(&traceLock);
        bytesDumped = dumpResultSetContent(rsPtr, rsPtr->head);
        writeTraceRule();
        flushTrace();
        releaseLock(&traceLock);
    }
    TRACE(dumpResultSetInternal_exit, rsPtr, bytesDumped, rc);
    return rc;
}

void copyContent(const ResultSetToken* rsPtr, ContentCopy* copy) {
    const char* head = loadShown(rsPtr->head);
    if (head != nullptr) {
        const MutexHold hold(contentMutex);
        std::memcpy(copy, head, sizeof *copy);
    }
}

int dumpResultSetContent(const ResultSetToken* rsPtr, const char* content) {
    const char* head = loadShown(rsPtr->head);
    writeTraceText("Dump of ResultSet(%p) owner(%x) head(%p) next(%p)\n", static_cast<const void*>(rsPtr),
                   loadShown(rsPtr->owner), static_cast<const void*>(head),
                   static_cast<const void*>(loadShown(rsPtr->next)));
    writeTraceRule();
    if (head == nullptr) {
        return 0;
    }
    return traceOutStorage(content, 0, RESULT_SET_TERMINATOR, 16, 0, content + RESULT_SET_BUFFER_SIZE, head);
}

void freeContentInChildren() {
    pthread_atfork(holdContent, letGoOfContent, letGoOfContent);
}

char* allocateResultSetBuffer() {
    return static_cast<char*>(std::calloc(RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK, 1));
}

int addInteger(char** bufWPtr, std::uint32_t value) {
    TRACE(addInteger_entry, bufWPtr, value);
    int rc = 0;
    if (bufWPtr == nullptr || *bufWPtr == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
        TRACE(addInteger_nullParameter, bufWPtr);
    } else {
        storeContent(*bufWPtr, &value, sizeof value);
        *bufWPtr += sizeof value;
    }
    TRACE(addInteger_exit, bufWPtr, value, static_cast<unsigned>(rc));
    return rc;
}

int addChars(char** bufWPtr, const char* text, std::int32_t charCount) {
    static constexpr TextWriter WRITER = {.entry = addChars_entry,
                                          .nullParameter = addChars_nullParameter,
                                          .copying = addChars_copying,
                                          .exit = addChars_exit};
    return addText(WRITER, bufWPtr, text, charCount);
}

int addPlatformChars(char** bufWPtr, const char* text, std::int32_t charCount) {
    static constexpr TextWriter WRITER = {.entry = addPlatformChars_entry,
                                          .nullParameter = addPlatformChars_nullParameter,
                                          .copying = addPlatformChars_copying,
                                          .exit = addPlatformChars_exit};
    return addText(WRITER, bufWPtr, text, charCount);
}

int addTerminator(char* writeCursor) {
    TRACE(addTerminator_entry, writeCursor);
    int rc = 0;
    if (writeCursor == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
        TRACE(addTerminator_nullParameter, writeCursor);
    } else {
        storeContent(writeCursor, &RESULT_SET_TERMINATOR, sizeof RESULT_SET_TERMINATOR);
    }
    TRACE(addTerminator_exit, writeCursor, rc);
    return rc;
}

int addIdStr(char** bufWPtr, const char* idString) {
    TRACE(addIdStr_entry, bufWPtr, idString);
    int rc = 0;
    if (bufWPtr == nullptr || *bufWPtr == nullptr || idString == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
        TRACE(addIdStr_nullParameter, bufWPtr, idString);
    } else {
        const auto length = static_cast<std::uint32_t>(std::strlen(idString));
        TRACE(addIdStr_arguments, bufWPtr, *bufWPtr, idString, static_cast<int>(length));
        TRACE(addIdStr_beforeLength, *bufWPtr);
        storeContent(*bufWPtr, &length, sizeof length);
        // Kept: the line reads back the first byte of the length only.
        TRACE(addIdStr_wroteLength, length, *bufWPtr, static_cast<unsigned char>(**bufWPtr));
        *bufWPtr += sizeof length;
        TRACE(addIdStr_beforeString, *bufWPtr);
        storeContent(*bufWPtr, idString, length + 1);
        TRACE(addIdStr_wroteString, idString, length, *bufWPtr, **bufWPtr);
        *bufWPtr += length;
    }
    TRACE(addIdStr_exit, bufWPtr, idString);
    return rc;
}

int checkTerminator(const char* dataCursor, std::int32_t* isRSTermPtr) {
    TRACE(checkTerminator_entry, dataCursor, isRSTermPtr);
    int rc = 0;
    if (dataCursor == nullptr || isRSTermPtr == nullptr) {
        rc = STAPI_RC_NULL_PARAMETER;
        TRACE(checkTerminator_nullParameter, dataCursor, isRSTermPtr);
    } else {
        *isRSTermPtr = loadWord(dataCursor) == RESULT_SET_TERMINATOR ? 1 : 0;
        TRACE(checkTerminator_checked, dataCursor, *isRSTermPtr);
    }
    TRACE(checkTerminator_exit, dataCursor, isRSTermPtr, rc);
    return rc;
}
