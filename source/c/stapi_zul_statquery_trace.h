// Trace points of stapi_zul_statquery: the query functions.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(commsResourceGroupsIds_entry, 2300, ENTRY, 3,
            "stapi_zul_statquery.commsResourceGroupsIds(socketDesc=%d, buffer=%p)\n")
TRACE_POINT(commsResourceGroupsIds_exit, 2301, EXIT, 3,
            "stapi_zul_statquery.commsResourceGroupsIds(socketDesc=%d, buffer=%p) zulstatRc=%d\n")
TRACE_POINT(commsResourceGroupsIds_buffer, 2312, DATA, 4,
            "stapi_zul_statquery.commsResourceGroupsIds data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(commsStatIdsByStatGroupId_entry, 2302, ENTRY, 3,
            "stapi_zul_statquery.commsStatIdsByStatGroupId(socketDesc=%d, buffer=%p, ids=%p)\n")
TRACE_POINT(commsStatIdsByStatGroupId_exit, 2303, EXIT, 3,
            "stapi_zul_statquery.commsStatIdsByStatGroupId(socketDesc=%d, buffer=%p, ids=%p) zulStatRc=%d\n")
TRACE_POINT(commsStatIdsByStatGroupId_buffer, 2313, DATA, 4,
            "stapi_zul_statquery.commsStatIdsByStatGroupId data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(commsStatIds_entry, 2304, ENTRY, 3, "stapi_zul_statquery.commsStatIds(socketDesc=%d, buffer=%p)\n")
TRACE_POINT(commsStatIds_exit, 2305, EXIT, 3,
            "stapi_zul_statquery.commsStatIds(socketDesc=%d, buffer=%p) zulstatRc=%d\n")
TRACE_POINT(commsStatIds_buffer, 2314, DATA, 4, "stapi_zul_statquery.commsStatIds data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(commsStatsByStatId_entry, 2306, ENTRY, 3,
            "stapi_zul_statquery.commsStatsByStatId(socketDesc=%d, buffer=%p, ids=%p)\n")
TRACE_POINT(commsStatsByStatId_exit, 2307, EXIT, 3,
            "stapi_zul_statquery.commsStatsByStatId(socketDesc=%d, buffer=%p, ids=%p) zulStatRc=%d\n")
TRACE_POINT(commsStatsByStatId_buffer, 2315, DATA, 4,
            "stapi_zul_statquery.commsStatsByStatId data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(commsStatsByStatGroupId_entry, 2308, ENTRY, 3,
            "stapi_zul_statquery.commsStatsByStatGroupId(socketDesc=%d, buffer=%p, ids=%p)\n")
TRACE_POINT(commsStatsByStatGroupId_exit, 2309, EXIT, 3,
            "stapi_zul_statquery.commsStatsByStatGroupId(socketDesc=%d, buffer=%p, ids=%p) zulStatRc=%d\n")
TRACE_POINT(commsStatsByStatGroupId_buffer, 2316, DATA, 4,
            "stapi_zul_statquery.commsStatsByStatGroupId data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(commsStats_entry, 2310, ENTRY, 3, "stapi_zul_statquery.commsStats(socketDesc=%d, buffer=%p)\n")
TRACE_POINT(commsStats_exit, 2311, EXIT, 3, "stapi_zul_statquery.commsStats(socketDesc=%d, buffer=%p) zulstatRc=%d\n")
TRACE_POINT(commsStats_buffer, 2317, DATA, 4, "stapi_zul_statquery.commsStats data=%p len=%d stopword=%8.8X\n")
