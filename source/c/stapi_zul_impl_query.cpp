// The exported calls that query a Gateway.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_shown.h"
#include "stapi_zul_statquery.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_impl_trace.h"

namespace {

// What sets the six calls apart.
struct QueryCall {
    bool takesQueryString;
    bool resetsAfterQuery;  // resets the result set after the query, whatever its result, and leaves the owner code
    int (*run)(std::int32_t socketDesc, char* buffer, const char* queryString);
    void (*traceQuerying)(const char* queryString);
    const TracePoint<const void*>& resultSet;
    const TracePoint<const void*>& noBuffer;
    bool removesOnFailure;  // a comms failure of the query removes the connection
    const TracePoint<const void*, int>& removing;
};

// 0 has begun a use of the connection.
int checkArguments(const QueryCall& call, GatewayToken* gwTok, const char* queryString, ResultSetToken** statRSPtr) {
    if (gwTok == nullptr) {
        return STAPI_RC_NULL_GATEWAY_TOKEN;
    }
    if (call.takesQueryString && queryString == nullptr) {
        return STAPI_RC_NULL_QUERY_STRING;
    }
    if (statRSPtr == nullptr) {
        return STAPI_RC_NULL_RESULT_SET_POINTER;
    }
    return beginUse(gwTok);
}

// Makes the token's copy of the query string, which may be text of the token itself. An overlength string leaves the
// copy of the query before; without memory there is none.
void copyQueryString(ResultSetToken* rs, const char* queryString) {
    char* previous = rs->queryString;
    if (dup2ASCIIString(queryString, &rs->queryString) != TEXT_COPY_REFUSED) {
        std::free(previous);
    }
}

void resetWalk(ResultSetToken* rs, char* content) {
    storeShown(&rs->next, content);
    storeShown(&rs->head, content);
    rs->queryIndex = 0;
}

int query(const QueryCall& call, const GatewayToken* gwTok, const char* queryString) {
    ResultSetToken* rs = gwTok->connRSToken;
    if (gwTok->resultSetBuf == nullptr) {
        TRACE(call.noBuffer, gwTok);
        return STAPI_RC_NO_RESULT_SET_BUFFER;
    }
    if (call.takesQueryString) {
        copyQueryString(rs, queryString);
    }
    if (!call.resetsAfterQuery) {
        storeShown(&rs->owner, CONNECTION_OWNED);
        resetWalk(rs, gwTok->resultSetBuf);
    }
    call.traceQuerying(queryString);
    const int rc = call.run(loadShown(gwTok->socket), gwTok->resultSetBuf, rs->queryString);
    TRACE(call.resultSet, rs);
    if (call.resetsAfterQuery) {
        resetWalk(rs, gwTok->resultSetBuf);
        TRACE(getResourceGroupIds_resultSetBuffer, rs->head);
    }
    return rc;
}

bool isCommsFailure(int rc) {
    return rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_REQUEST_FAILED;
}

// A query string as an exit line shows it. It may be one of getIdQuery's, text that goes with the connection. The line
// of a call that has queried, after which the connection may be gone, shows a copy.
struct ShownText {
    const char* text;
    char* copy;  // owned
};

void keepForExitLine(ShownText* shown, const char* queryString) {
    shown->copy = traceIsOpen(getStatIdsByStatGroupId_exit.row.level) ? strdup(queryString) : nullptr;
    shown->text = shown->copy;
}

// Ends the use of the connection, and removes it after a failure that the call's rule names; true when another thread
// has closed it meanwhile.
bool endQuery(const QueryCall& call, GatewayToken* gwTok, int rc) {
    if (!call.removesOnFailure || !isCommsFailure(rc)) {
        return endUse(gwTok);
    }
    TRACE(call.removing, gwTok, rc);
    return deleteUsedGatewayToken(&gwTok) == STAPI_RC_GATEWAY_CONNECTION_LOST;
}

// The body of every query call, between its entry and exit lines; initRc is the result of the initialisation, shown is
// null for calls whose exit line does not show the query string.
int runQuery(const QueryCall& call, int initRc, GatewayToken* gwTok, const char* queryString,
             ResultSetToken** statRSPtr, ShownText* shown = nullptr) {
    int rc = initRc;
    if (rc == 0) {
        rc = checkArguments(call, gwTok, queryString, statRSPtr);
    }
    if (rc != 0) {
        return rc;
    }
    rc = query(call, gwTok, queryString);
    ResultSetToken* rs = gwTok->connRSToken;
    if (shown != nullptr) {
        keepForExitLine(shown, queryString);
    }
    if (endQuery(call, gwTok, rc)) {
        return STAPI_RC_GATEWAY_CONNECTION_LOST;
    }
    if (rc == 0) {
        *statRSPtr = rs;
    }
    return rc;
}

constexpr QueryCall GET_STATS = {
    .takesQueryString = false,
    .resetsAfterQuery = false,
    .run = [](std::int32_t socketDesc, char* buffer, const char*) { return commsStats(socketDesc, buffer); },
    .traceQuerying = [](const char*) { TRACE(getStats_querying); },
    .resultSet = getStats_resultSet,
    .noBuffer = getStats_noBuffer,
    .removesOnFailure = true,
    .removing = getStats_removing};

constexpr QueryCall GET_STAT_IDS = {
    .takesQueryString = false,
    .resetsAfterQuery = false,
    .run = [](std::int32_t socketDesc, char* buffer, const char*) { return commsStatIds(socketDesc, buffer); },
    .traceQuerying = [](const char*) { TRACE(getStatIds_querying); },
    .resultSet = getStatIds_resultSet,
    .noBuffer = getStatIds_noBuffer,
    .removesOnFailure = true,
    .removing = getStatIds_removing};

// Kept: this call resets the result set after its query.
constexpr QueryCall GET_RESOURCE_GROUP_IDS = {
    .takesQueryString = false,
    .resetsAfterQuery = true,
    .run = [](std::int32_t socketDesc, char* buffer,
              const char*) { return commsResourceGroupsIds(socketDesc, buffer); },
    .traceQuerying = [](const char*) { TRACE(getResourceGroupIds_querying); },
    .resultSet = getResourceGroupIds_resultSet,
    .noBuffer = getResourceGroupIds_noBuffer,
    .removesOnFailure = true,
    .removing = getResourceGroupIds_removing};

constexpr QueryCall GET_STATS_BY_STAT_ID = {
    .takesQueryString = true,
    .resetsAfterQuery = false,
    .run = commsStatsByStatId,
    .traceQuerying = [](const char* queryString) { TRACE(getStatsByStatId_querying, queryString); },
    .resultSet = getStatsByStatId_resultSet,
    .noBuffer = getStatsByStatId_noBuffer,
    .removesOnFailure = true,
    .removing = getStatsByStatId_removing};

// Kept: a failed query leaves this call's connection on the list.
constexpr QueryCall GET_STATS_BY_STAT_GROUP_ID = {
    .takesQueryString = true,
    .resetsAfterQuery = false,
    .run = commsStatsByStatGroupId,
    .traceQuerying = [](const char* queryString) { TRACE(getStatsByStatGroupId_querying, queryString); },
    .resultSet = getStatsByStatGroupId_resultSet,
    .noBuffer = getStatsByStatGroupId_noBuffer,
    .removesOnFailure = false,
    .removing = getStatsByStatGroupId_removing};

constexpr QueryCall GET_STAT_IDS_BY_STAT_GROUP_ID = {
    .takesQueryString = true,
    .resetsAfterQuery = false,
    .run = commsStatIdsByStatGroupId,
    .traceQuerying = [](const char* queryString) { TRACE(getStatIdsByStatGroupId_querying, queryString); },
    .resultSet = getStatIdsByStatGroupId_resultSet,
    .noBuffer = getStatIdsByStatGroupId_noBuffer,
    .removesOnFailure = true,
    .removing = getStatIdsByStatGroupId_removing};

}  // namespace

int getStats(GatewayToken* gwTok, ResultSetToken** statRSPtr) {
    const int initRc = stapiInit();
    TRACE(getStats_entry, gwTok, statRSPtr);
    const void* shown = addressOnly(gwTok);
    const int rc = runQuery(GET_STATS, initRc, gwTok, nullptr, statRSPtr);
    TRACE(getStats_exit, shown, statRSPtr, rc);
    return rc;
}

int getStatIds(GatewayToken* gwTok, ResultSetToken** statIdRSPtr) {
    const int initRc = stapiInit();
    TRACE(getStatIds_entry, gwTok, statIdRSPtr);
    const void* shown = addressOnly(gwTok);
    const int rc = runQuery(GET_STAT_IDS, initRc, gwTok, nullptr, statIdRSPtr);
    TRACE(getStatIds_exit, shown, statIdRSPtr, rc);
    return rc;
}

int getResourceGroupIds(GatewayToken* gwTok, ResultSetToken** resGrpIdRSPtr) {
    const int initRc = stapiInit();
    TRACE(getResourceGroupIds_entry, gwTok, resGrpIdRSPtr);
    const int rc = runQuery(GET_RESOURCE_GROUP_IDS, initRc, gwTok, nullptr, resGrpIdRSPtr);
    TRACE(getResourceGroupIds_exit, rc);
    return rc;
}

int getStatsByStatId(GatewayToken* gwTok, const char* statIds, ResultSetToken** statRSPtr) {
    const int initRc = stapiInit();
    TRACE(getStatsByStatId_entry, gwTok, statIds, statRSPtr);
    const void* shown = addressOnly(gwTok);
    const int rc = runQuery(GET_STATS_BY_STAT_ID, initRc, gwTok, statIds, statRSPtr);
    TRACE(getStatsByStatId_exit, shown, statIds, statRSPtr, rc);
    return rc;
}

int getStatsByStatGroupId(GatewayToken* gwTok, const char* statGroupIds, ResultSetToken** statRSPtr) {
    const int initRc = stapiInit();
    TRACE(getStatsByStatGroupId_entry, gwTok, statGroupIds, statRSPtr);
    const void* shown = addressOnly(gwTok);
    const int rc = runQuery(GET_STATS_BY_STAT_GROUP_ID, initRc, gwTok, statGroupIds, statRSPtr);
    TRACE(getStatsByStatGroupId_exit, shown, statGroupIds, statRSPtr, rc);
    return rc;
}

int getStatIdsByStatGroupId(GatewayToken* gwTok, const char* statGroupIds, ResultSetToken** statIdRSPtr) {
    const int initRc = stapiInit();
    TRACE(getStatIdsByStatGroupId_entry, gwTok, statGroupIds, statIdRSPtr);
    const void* shown = addressOnly(gwTok);
    ShownText ids = {statGroupIds, nullptr};
    const int rc = runQuery(GET_STAT_IDS_BY_STAT_GROUP_ID, initRc, gwTok, statGroupIds, statIdRSPtr, &ids);
    TRACE(getStatIdsByStatGroupId_exit, shown, ids.text, statIdRSPtr, rc);
    std::free(ids.copy);
    return rc;
}
