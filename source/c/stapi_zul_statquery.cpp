#include "stapi_zul_statquery.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_resultsetbuffer.h"

#include "stapi_zul_statquery_trace.h"

namespace {

using BufferPoint = TracePoint<const void*, int, unsigned>;

int traceBuffer(const BufferPoint& point, const char* buffer, int rc) {
    if (rc == 0) {
        TRACE_DUMP(point, buffer, 0, RESULT_SET_TERMINATOR, buffer + RESULT_SET_BUFFER_SIZE);
    }
    return rc;
}

int queryAll(const char* queryType, std::int32_t socketDesc, char* buffer, const BufferPoint& point) {
    if (buffer == nullptr) {
        return STAPI_RC_NULL_PARAMETER;
    }
    FlowReasons reasons{};
    const int rc = statComms(socketDesc, queryType, buffer, &reasons);
    return traceBuffer(point, buffer, foldExchangeCode(rc, reasons));
}

int querySome(const char* queryType, std::int32_t socketDesc, char* buffer, const char* ids, const BufferPoint& point) {
    if (buffer == nullptr) {
        return STAPI_RC_NULL_PARAMETER;
    }
    FlowReasons reasons{};
    const int rc = statCommsString(socketDesc, queryType, ids, buffer, &reasons);
    return traceBuffer(point, buffer, foldExchangeCode(rc, reasons));
}

}  // namespace

int commsStats(std::int32_t socketDesc, char* buffer) {
    TRACE(commsStats_entry, socketDesc, buffer);
    const int rc = queryAll(STATS_MBEAN_ACTION_GET_STATS, socketDesc, buffer, commsStats_buffer);
    TRACE(commsStats_exit, socketDesc, buffer, rc);
    return rc;
}

int commsStatIds(std::int32_t socketDesc, char* buffer) {
    TRACE(commsStatIds_entry, socketDesc, buffer);
    const int rc = queryAll(STATS_MBEAN_ACTION_STAT_IDS, socketDesc, buffer, commsStatIds_buffer);
    TRACE(commsStatIds_exit, socketDesc, buffer, rc);
    return rc;
}

int commsResourceGroupsIds(std::int32_t socketDesc, char* buffer) {
    TRACE(commsResourceGroupsIds_entry, socketDesc, buffer);
    const int rc = queryAll(STATS_MBEAN_ACTION_RESOURCE_GROUPS, socketDesc, buffer, commsResourceGroupsIds_buffer);
    TRACE(commsResourceGroupsIds_exit, socketDesc, buffer, rc);
    return rc;
}

int commsStatsByStatGroupId(std::int32_t socketDesc, char* buffer, const char* ids) {
    TRACE(commsStatsByStatGroupId_entry, socketDesc, buffer, ids);
    const int rc = querySome(STATS_MBEAN_ACTION_GET_STATS, socketDesc, buffer, ids, commsStatsByStatGroupId_buffer);
    TRACE(commsStatsByStatGroupId_exit, socketDesc, buffer, ids, rc);
    return rc;
}

int commsStatsByStatId(std::int32_t socketDesc, char* buffer, const char* ids) {
    TRACE(commsStatsByStatId_entry, socketDesc, buffer, ids);
    const int rc = querySome(STATS_MBEAN_ACTION_GET_STATS, socketDesc, buffer, ids, commsStatsByStatId_buffer);
    TRACE(commsStatsByStatId_exit, socketDesc, buffer, ids, rc);
    return rc;
}

int commsStatIdsByStatGroupId(std::int32_t socketDesc, char* buffer, const char* ids) {
    TRACE(commsStatIdsByStatGroupId_entry, socketDesc, buffer, ids);
    const int rc = querySome(STATS_MBEAN_ACTION_STAT_IDS, socketDesc, buffer, ids, commsStatIdsByStatGroupId_buffer);
    TRACE(commsStatIdsByStatGroupId_exit, socketDesc, buffer, ids, rc);
    return rc;
}
