// The exported calls that manage result sets as objects.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_resultsetbuffer.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_impl_trace.h"

namespace {

// Longest query string that getIdQuery builds.
constexpr std::size_t ID_QUERY_MAX = QUERY_STRING_BUFFER_SIZE - 1;

bool isRecognised(const char* head) {
    return hasContent(head, IDS_CONTENT_MARKER) || hasContent(head, STATS_CONTENT_MARKER);
}

// What copying and dumping ask of a result set: content of either kind, and its owner.
int checkContent(const ResultSetToken* rs, const TracePoint<const void*>& noBuffer, const TracePoint<>& wrongContent) {
    if (rs->head == nullptr) {
        TRACE(noBuffer, rs);
        return STAPI_RC_NO_RESULT_SET_BUFFER;
    }
    if (!isRecognised(rs->head)) {
        TRACE(wrongContent);
        return STAPI_RC_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(rs);
}

int copy(const ResultSetToken* source, ResultSetToken** target) {
    if (source == nullptr) {
        return STAPI_RC_NULL_RESULT_SET;
    }
    if (target == nullptr) {
        return STAPI_RC_NULL_RESULT_SET_POINTER;
    }
    int rc = checkContent(source, copyResultSet_noBuffer, copyResultSet_wrongContent);
    if (rc != 0) {
        return rc;
    }
    rc = createResultSet(target, USER_OWNED_EYECATCHER, USER_OWNED);
    if (rc != 0) {
        TRACE(copyResultSet_createFailed);
        return rc;
    }
    ResultSetToken* created = *target;
    TRACE(copyResultSet_created, source, target, created);
    constexpr int bufferSize = RESULT_SET_BUFFER_SIZE;
    created->head = allocateResultSetBuffer();
    TRACE(copyResultSet_allocated, bufferSize, created->head);
    if (created->head == nullptr) {
        // Kept: the caller holds a result set without content.
        TRACE(copyResultSet_notAllocated, bufferSize);
        return STAPI_RC_NO_MEMORY;
    }
    created->reserved = source->reserved;
    created->next = created->head;
    std::memcpy(created->head, source->head, RESULT_SET_BUFFER_SIZE);
    TRACE(copyResultSet_copied, source, target);
    return 0;
}

int release(ResultSetToken** rsPtr) {
    if (rsPtr == nullptr) {
        TRACE(freeResultSet_nullPointer, rsPtr);
        return STAPI_RC_NULL_RESULT_SET_POINTER;
    }
    ResultSetToken* rs = *rsPtr;
    if (rs == nullptr) {
        TRACE(freeResultSet_nullToken, rsPtr);
        return STAPI_RC_NULL_RESULT_SET;
    }
    if (rs->owner != USER_OWNED) {
        TRACE(freeResultSet_notUserOwned, rs, static_cast<int>(rs->owner));
        return STAPI_RC_RESULT_SET_NOT_USER_OWNED;
    }
    if (rs->head != nullptr) {
        TRACE(freeResultSet_freeBuffer, rs->head);
        std::free(rs->head);
        rs->head = nullptr;
    } else {
        TRACE(freeResultSet_noBuffer, rs);
    }
    deleteResultSet(rsPtr);
    TRACE(freeResultSet_freed, rsPtr);
    return 0;
}

int dump(const ResultSetToken* rs) {
    if (rs == nullptr) {
        return STAPI_RC_NULL_RESULT_SET;
    }
    const int rc = checkContent(rs, dumpResultSet_noBuffer, dumpResultSet_wrongContent);
    if (rc == 0) {
        dumpResultSetInternal(rs);
    }
    return rc;
}

// The query string under construction: identifiers, each whole, joined by ":".
struct IdQuery {
    char* text;  // QUERY_STRING_BUFFER_SIZE zeroed bytes, null when there was no memory
    std::size_t length;
    int goodIdCount;
};

// Appends a good identifier, behind a separator or without, as a whole; false when it does not fit.
bool append(IdQuery* query, bool isSeparated, const char* chars, std::size_t count) {
    const std::size_t separator = isSeparated ? 1 : 0;
    if (separator + count > ID_QUERY_MAX - query->length) {
        return false;
    }
    char* end = query->text + query->length;
    std::memset(end, ':', separator);
    std::memcpy(end + separator, chars, count);
    query->length += separator + count;
    ++query->goodIdCount;
    return true;
}

// Walks the token with a First and a Next call; idOf tells the identifier of a record.
template <typename Record, typename IdOf>
void collectIds(ResultSetToken* rs, int (*first)(ResultSetToken*, Record*), int (*next)(ResultSetToken*, Record*),
                IdOf idOf, IdQuery* query) {
    Record record{};
    // Kept: a separator comes before every good entry but the first of all, so a string whose first entry is not good
    // begins with one.
    bool isFirst = true;
    for (int rc = first(rs, &record); rc == 0; rc = next(rs, &record)) {
        if (record.queryElementRC == 0) {
            const auto [id, length] = idOf(record);
            if (!append(query, !isFirst, id, strnlen(id, static_cast<std::size_t>(length)))) {
                break;
            }
        }
        isFirst = false;
    }
}

struct Identifier {
    const char* chars;
    std::int32_t length;
};

int checkIdQuery(const ResultSetToken* rs, char** idQueryStringPtr, const IdQuery& query) {
    if (query.text == nullptr) {
        return STAPI_RC_NO_MEMORY;
    }
    if (rs == nullptr) {
        return STAPI_RC_NULL_RESULT_SET;
    }
    if (idQueryStringPtr == nullptr) {
        return STAPI_RC_NULL_POINTER;
    }
    return checkOwner(rs);
}

int buildIdQuery(ResultSetToken* rs, char** idQueryStringPtr, IdQuery* query) {
    const int rc = checkIdQuery(rs, idQueryStringPtr, *query);
    // Kept: unknown content replaces any code found before.
    if (rs != nullptr && (rs->head == nullptr || !isRecognised(rs->head))) {
        TRACE(getIdQuery_wrongContent);
        return STAPI_RC_WRONG_RESULT_SET_CONTENT;
    }
    if (rc != 0) {
        return rc;
    }
    if (hasContent(rs->head, IDS_CONTENT_MARKER)) {
        collectIds<IdData>(
            rs, getFirstId, getNextId,
            [](const IdData& data) {
                return Identifier{data.idPtr, data.idLen};
            },
            query);
    } else {
        collectIds<StatData>(
            rs, getFirstStat, getNextStat,
            [](const StatData& data) {
                return Identifier{data.statIdPtr, data.statIdLen};
            },
            query);
    }
    if (query->length == 0) {
        return STAPI_RC_NO_GOOD_IDS;
    }
    std::memcpy(rs->verifiedQueryString, query->text, query->length + 1);
    *idQueryStringPtr = rs->verifiedQueryString;
    TRACE(getIdQuery_created, rs->verifiedQueryString, rs);
    return 0;
}

}  // namespace

int copyResultSet(ResultSetToken* srcRsPtr, ResultSetToken** tarRsPtr) {
    int rc = stapiInit();
    TRACE(copyResultSet_entry, srcRsPtr, tarRsPtr);
    if (rc == 0) {
        rc = copy(srcRsPtr, tarRsPtr);
    }
    TRACE(copyResultSet_exit, srcRsPtr, tarRsPtr, rc);
    return rc;
}

int freeResultSet(ResultSetToken** rsPtr) {
    int rc = stapiInit();
    TRACE(freeResultSet_entry, rsPtr);
    if (rc == 0) {
        rc = release(rsPtr);
    }
    TRACE(freeResultSet_exit, rsPtr, rc);
    return rc;
}

int dumpResultSet(ResultSetToken* rsPtr) {
    int rc = stapiInit();
    TRACE(dumpResultSet_entry, rsPtr);
    if (rc == 0) {
        rc = dump(rsPtr);
    }
    TRACE(dumpResultSet_exit, rsPtr, rc);
    return rc;
}

int getIdQuery(ResultSetToken* rsPtr, char** idQueryStringPtr) {
    int rc = stapiInit();
    TRACE(getIdQuery_entry, rsPtr, idQueryStringPtr);
    IdQuery query = {nullptr, 0, 0};
    if (rc == 0) {
        query.text = static_cast<char*>(std::calloc(QUERY_STRING_BUFFER_SIZE, 1));
        rc = buildIdQuery(rsPtr, idQueryStringPtr, &query);
    }
    TRACE(getIdQuery_exit, rsPtr, query.text == nullptr ? "" : query.text, query.goodIdCount, rc);
    std::free(query.text);
    return rc;
}
