// Trace points of stapi_zul_impl: the exported calls.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(openGatewayConnection_entry, 1000, ENTRY, 3,
            "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n")
TRACE_POINT(openGatewayConnection_exit, 1003, EXIT, 3, "API.openGatewayConnection(port=%d) rc=%d\n")

TRACE_POINT(openRemoteGatewayConnection_versionCopied, 1001, EVENT, 2,
            "API.openRemoteGatewayConnection(&protoColVersion=0x%p) created String for proto@0x%p\n")
TRACE_POINT(openRemoteGatewayConnection_nullVersion, 1002, EXC, 1,
            "API.openRemoteGatewayConnection(gwTokPtr=0x%p) New gateway token has NULL protocolVersion pointer\n")
TRACE_POINT(openRemoteGatewayConnection_exit, 1003, EXIT, 3, "API.openRemoteGatewayConnection(port=%d) rc=%d\n")
TRACE_POINT(openRemoteGatewayConnection_entry, 1142, ENTRY, 3,
            "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n")

TRACE_POINT(closeGatewayConnection_entry, 1004, ENTRY, 3, "API.closeGatewayConnection(&gwTokPtr=%p)\n")
TRACE_POINT(closeGatewayConnection_nullToken, 1005, EXC, 1,
            "API.closeGatewayConnection(&gwTokPtr=%p) Null gateway token\n")
TRACE_POINT(closeGatewayConnection_exit, 1006, EXIT, 3, "API.closeGatewayConnection(&gwTokPtrPtr=%p) rc=%d\n")
TRACE_POINT(closeGatewayConnection_closed, 1133, EVENT, 2,
            "API.closeGatewayConnection Closed Gateway connection for token %p\n")

TRACE_POINT(closeAllGatewayConnections_entry, 1007, ENTRY, 3, "API.closeAllGatewayConnections()\n", STALE_STAMP)
TRACE_POINT(closeAllGatewayConnections_exit, 1008, EXIT, 3, "API.closeAllGatewayConnections() gwyTokRc=%d, rc=%d\n")
TRACE_POINT(closeAllGatewayConnections_closed, 1134, EVENT, 2,
            "API.closeAllGatewayConnections Closed all Gateway connections\n")

TRACE_POINT(getResourceGroupIds_entry, 1009, ENTRY, 3, "API.getResourceGroupIds(gwTok=%p resGrpIdRSPtr=%p)\n")
TRACE_POINT(getResourceGroupIds_resultSet, 1010, DEBUG, 4, "API.getResourceGroupIds() result set pointer (%p)\n")
TRACE_POINT(getResourceGroupIds_resultSetBuffer, 1011, DEBUG, 4, "API.getResourceGroupIds() result set buffer (%p)\n")
TRACE_POINT(getResourceGroupIds_noBuffer, 1012, EXC, 1,
            "API.getResourceGroupIds(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
TRACE_POINT(getResourceGroupIds_removing, 1013, EVENT, 2,
            "API.getResourceGroupIds Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getResourceGroupIds_exit, 1014, EXIT, 3, "API.getResourceGroupIds() rc=%d\n")
TRACE_POINT(getResourceGroupIds_querying, 1128, EVENT, 2, "API.getResourceGroupIds Getting Resource Group Ids\n")

TRACE_POINT(getStatIdsByStatGroupId_entry, 1015, ENTRY, 3,
            "API.getStatIdsByStatGroupId(gwTok=%p,providerIdsPtr=%p,statIdRsPtr=%p)\n")
TRACE_POINT(getStatIdsByStatGroupId_resultSet, 1016, DEBUG, 4,
            "API.getStatIdsByStatGroupId() result set pointer (%p)\n")
TRACE_POINT(getStatIdsByStatGroupId_noBuffer, 1017, EXC, 1,
            "API.getStatIdsByStatGroupId(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
TRACE_POINT(getStatIdsByStatGroupId_removing, 1018, EVENT, 2,
            "API.getStatIdsByStatGroupId Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getStatIdsByStatGroupId_exit, 1019, EXIT, 3, "API.getStatIdsByStatGroupId(gwTok=%p,query=%s,rs=%p) rc=%d\n")
TRACE_POINT(getStatIdsByStatGroupId_querying, 1129, EVENT, 2,
            "API.getStatIdsByStatGroupId Getting Stat Ids for Stat Group Ids %s\n")

TRACE_POINT(getStatIds_entry, 1020, ENTRY, 3, "API.getStatIds(gwTok=%p,rs=%p)\n")
TRACE_POINT(getStatIds_resultSet, 1021, DEBUG, 4, "API.getStatIds() result set pointer (%p)\n")
TRACE_POINT(getStatIds_noBuffer, 1022, EXC, 1,
            "API.getStatIds(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
TRACE_POINT(getStatIds_removing, 1023, EVENT, 2, "API.getStatIds Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getStatIds_exit, 1024, EXIT, 3, "API.getStatIds(gwTok=%p,rs=%p) rc=%d\n")
TRACE_POINT(getStatIds_querying, 1130, EVENT, 2, "API.getStatIds Getting Stat Ids from the Gateway\n")

TRACE_POINT(getStats_entry, 1025, ENTRY, 3, "API.getStats(gwTok=%p,statRSPtr=%p)\n")
TRACE_POINT(getStats_resultSet, 1026, DEBUG, 4, "API.getStats() result set pointer (%p)\n")
TRACE_POINT(getStats_noBuffer, 1027, EXC, 1, "API.getStats(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
TRACE_POINT(getStats_removing, 1028, EVENT, 2, "API.getStats Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getStats_exit, 1029, EXIT, 3, "API.getStats(gwTok=%p,rs=%p) rc=%d\n")
TRACE_POINT(getStats_querying, 1130, EVENT, 2, "API.getStats Getting all Stats from the Gateway Daemon\n")

TRACE_POINT(getStatsByStatId_entry, 1030, ENTRY, 3, "API.getStatsByStatId(gwTok=%p,statIdsPtr=%p,statRSPtr=%p)\n")
TRACE_POINT(getStatsByStatId_resultSet, 1031, DEBUG, 4, "API.getStatsByStatId() result set pointer (%p)\n")
TRACE_POINT(getStatsByStatId_noBuffer, 1032, EXC, 1,
            "API.getStatsByStatId(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
TRACE_POINT(getStatsByStatId_removing, 1033, EVENT, 2,
            "API.getStatsByStatId Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getStatsByStatId_exit, 1034, EXIT, 3, "API.getStatsByStatId(gwTok=%p,statIdsPtr=%p,statRSPtr=%p) rc=%d\n")
TRACE_POINT(getStatsByStatId_querying, 1131, EVENT, 2, "API.getStatsByStatId Getting Stats for Stat Ids %s\n")

TRACE_POINT(getStatsByStatGroupId_entry, 1035, ENTRY, 3,
            "API.getStatsByStatGroupId(gwTok=%p,providerIdPtr=%p,statRSPtr=%p)\n")
TRACE_POINT(getStatsByStatGroupId_resultSet, 1036, DEBUG, 4, "API.getStatsByStatGroupId() result set pointer (%p)\n")
TRACE_POINT(getStatsByStatGroupId_noBuffer, 1037, EXC, 1,
            "API.getStatsByStatGroupId(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n")
// Kept: nobody writes it, because this call leaves its connection on the list.
TRACE_POINT(getStatsByStatGroupId_removing, 1038, EVENT, 2,
            "API.getStatsByStatGroupId Removing GatewayToken %p due to comms failure %d\n")
TRACE_POINT(getStatsByStatGroupId_exit, 1039, EXIT, 3,
            "API.getStatsByStatGroupId(gwTok=%p,providerIdPtr=%p,statRSPtr=%p) rc=%d\n")
TRACE_POINT(getStatsByStatGroupId_querying, 1132, EVENT, 2,
            "API.getStatsByStatGroupId Getting Stats for Stat Group Ids %s\n")

TRACE_POINT(getIdQuery_entry, 1040, ENTRY, 3, "API.getIdQuery(rsPtr=%p,idQueryStringPtr=%p)\n")
TRACE_POINT(getIdQuery_wrongContent, 1041, EXC, 1, "API.getIdQuery Resultset does not contain recognised content\n")
TRACE_POINT(getIdQuery_exit, 1042, EXIT, 3, "API.getIdQuery(rsPtr=%p,idQueryString=%s) goodIdCount=%d rc=%d\n")
TRACE_POINT(getIdQuery_created, 1141, EVENT, 2,
            "API.getIdQuery Created query string %s from results in result set token %p\n")

TRACE_POINT(getFirstId_entry, 1043, ENTRY, 3, "API.getFirstId(rsPtr=%p,idDataPtr=%p)\n")
TRACE_POINT(getFirstId_wrongContent, 1044, EXC, 1, "API.getFirstId Resultset does not contain id data\n")
TRACE_POINT(getFirstId_queryHeader, 1045, DEBUG, 4,
            "API.getFirstId Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d\n")
TRACE_POINT(getFirstId_negativeRc, 1046, EVENT, 2,
            "API.getFirstId(rsPtr=%p,idDataPtr=%p) Found negative queryElementRC(%d)\n")
TRACE_POINT(getFirstId_item, 1047, DEBUG, 4,
            "API.getFirstId Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, idLen=%d\n")
TRACE_POINT(getFirstId_endOfSubset, 1048, DEBUG, 4, "API.getFirstId End of subset queryIndex=%d. Resultset=%p\n")
TRACE_POINT(getFirstId_exit, 1049, EXIT, 3, "API.getFirstId() last=%d rc=%d\n")
TRACE_POINT(getFirstId_retrieved, 1137, EVENT, 2, "API.getFirstId Successfully retrieved first Id from resultset %p\n")

TRACE_POINT(getNextId_entry, 1050, ENTRY, 3, "API.getNextId(rsPtr=%p,idDataPtr=%p)\n")
TRACE_POINT(getNextId_wrongContent, 1051, EXC, 1, "API.getNextId Resultset does not contain id data\n")
TRACE_POINT(getNextId_notStarted, 1052, DEBUG, 4,
            "API.getNextId No getFirstId() called on Resultset=%p. Datacursor=%p\n")
TRACE_POINT(getNextId_queryHeader, 1053, DEBUG, 4,
            "API.getNextId Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d\n")
TRACE_POINT(getNextId_negativeRc, 1054, EVENT, 2,
            "API.getNextId(rsPtr=%p,idDataPtr=%p) Found negative queryElementRC(%d)\n")
TRACE_POINT(getNextId_item, 1055, DEBUG, 4,
            "API.getNextId Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, idLen=%d\n")
TRACE_POINT(getNextId_endOfSubset, 1056, DEBUG, 4, "API.getNextId End of subset queryIndex=%d. Resultset=%p\n")
TRACE_POINT(getNextId_exit, 1057, EXIT, 3, "API.getNextId() rc=%d\n")
TRACE_POINT(getNextId_retrieved, 1138, EVENT, 2, "API.getNextId Successfully retrieved the next Id from resultset %p\n")

TRACE_POINT(getFirstStat_entry, 1058, ENTRY, 3, "API.getFirstStat(rsPtr=%p,statDataPtr=%p)\n")
TRACE_POINT(getFirstStat_wrongContent, 1059, EXC, 1, "API.getFirstStat Resultset does not contain statistics\n")
TRACE_POINT(getFirstStat_queryHeader, 1060, DEBUG, 4,
            "API.getFirstStat Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d\n")
TRACE_POINT(getFirstStat_caching, 1061, DEBUG, 4,
            "API.getFirstStat Caching new query element details. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d\n")
TRACE_POINT(getFirstStat_endOfSubset, 1062, DEBUG, 4, "API.getFirstStat End of subset queryIndex=%d. Resultset=%p\n")
TRACE_POINT(getFirstStat_exit, 1063, EXIT, 3, "API.getFirstStat() last=%d rc=%d\n")
TRACE_POINT(getFirstStat_retrieved, 1139, EVENT, 2,
            "API.getFirstStat Successfully retrieved first stat from resultset %p\n")

TRACE_POINT(getNextStat_entry, 1064, ENTRY, 3, "API.getNextStat(rsPtr=%p,statDataPtr=%p)\n")
TRACE_POINT(getNextStat_wrongContent, 1065, EXC, 1, "API.getNextStat Resultset does not contain statistics\n")
TRACE_POINT(getNextStat_notStarted, 1066, DEBUG, 4,
            "API.getNextStat No getFirstStat() called on Resultset=%p. Datacursor=%p\n")
TRACE_POINT(getNextStat_queryHeader, 1067, DEBUG, 4,
            "API.getNextStat Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d\n")
TRACE_POINT(getNextStat_negativeRc, 1068, EVENT, 2,
            "API.getNextStat(rsPtr=%p,statDataPtr=%p) Found negative queryElementRC(%d)\n")
TRACE_POINT(getNextStat_item, 1069, DEBUG, 4,
            "API.getNextStat Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, statIdLen=%d\n")
TRACE_POINT(getNextStat_endOfSubset, 1070, DEBUG, 4, "API.getNextStat End of subset queryIndex=%d. Resultset=%p\n")
TRACE_POINT(getNextStat_exit, 1071, EXIT, 3, "API.getNextStat() rc=%d\n")
TRACE_POINT(getNextStat_retrieved, 1140, EVENT, 2,
            "API.getNextStat Successfully retrieved the next stat from resultset %p\n")

TRACE_POINT(copyResultSet_entry, 1072, ENTRY, 3, "API.copyResultSet(srcRsPtr=%p,&tarRsPtr=%p)\n")
TRACE_POINT(copyResultSet_noBuffer, 1073, EXC, 1,
            "API.copyResultSet(srcRs=%p) resultSetBuf is NULL - no data to copy\n")
TRACE_POINT(copyResultSet_wrongContent, 1074, EXC, 1,
            "API.copyResultSet Resultset does not contain recognised content\n")
TRACE_POINT(copyResultSet_created, 1075, EVENT, 2,
            "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) Created result set token(%p)\n")
TRACE_POINT(copyResultSet_allocated, 1076, DEBUG, 4, "API.copyResultSet Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(copyResultSet_notAllocated, 1077, EXC, 1, "API.copyResultSet() Malloc failed for %d bytes\n")
TRACE_POINT(copyResultSet_createFailed, 1078, EXC, 1, "API.copyResultSet() Invalid source resultset zulStatRc=d\n")
TRACE_POINT(copyResultSet_exit, 1079, EXIT, 3, "API.copyResultSet(srcRs=%p,tarRsPtr=%p) rc=%d\n")
TRACE_POINT(copyResultSet_copied, 1135, EVENT, 2, "API.copyResultSet Copied resultsetbuffer from %p to %p\n")

TRACE_POINT(freeResultSet_entry, 1080, ENTRY, 3, "API.freeResultSet(&rsPtr=%p)\n")
TRACE_POINT(freeResultSet_nullPointer, 1081, EXC, 1,
            "API.freeResultSet(&rsPtr=%p) Supplied result set pointer is NULL\n")
TRACE_POINT(freeResultSet_nullToken, 1082, EXC, 1, "API.freeResultSet(&rsPtr=%p) Supplied result set token is NULL\n")
TRACE_POINT(freeResultSet_notUserOwned, 1083, EXC, 1,
            "API.freeResultSet(rsPtr=%p) Cannot free result sets with owner=%d\n")
TRACE_POINT(freeResultSet_notUserOwnedAtRelease, 1084, EXC, 1,
            "API.freeResultSet(rsPtr=%p) Cannot free result sets with owner=%d\n")
TRACE_POINT(freeResultSet_freeBuffer, 1085, DEBUG, 4, "API.freeResultSet() free result set buffer storage (%p)\n")
TRACE_POINT(freeResultSet_noBuffer, 1086, EXC, 1,
            "API.freeResultSet(rsPtr=%p) Result set buffer pointer was already null\n")
TRACE_POINT(freeResultSet_exit, 1087, EXIT, 3, "API.freeResultSet(&rsPtr=%p) rc=%d\n")
TRACE_POINT(freeResultSet_freed, 1136, EVENT, 2, "API.freeResultSetFreed result set %p\n")

TRACE_POINT(getStatsAPIVersion_entry, 1088, ENTRY, 3, "API.getStatsAPIVersion(&apiVersPtr=%p)\n")
TRACE_POINT(getStatsAPIVersion_nullPointer, 1089, EXC, 1, "API.getStatsAPIVersion() Supplied pointer is NULL\n")
TRACE_POINT(getStatsAPIVersion_exit, 1090, EXIT, 3, "API.getStatsAPIVersion(apiVersPtr=%p), rc=%d\n")

TRACE_POINT(getAPITraceLevel_entry, 1091, ENTRY, 3, "API.getAPITraceLevel(traceStatePtr=%p)\n")
TRACE_POINT(getAPITraceLevel_nullPointer, 1092, EXC, 1, "API.getAPITraceLevel() Supplied pointer is NULL\n")
TRACE_POINT(getAPITraceLevel_exit, 1093, EXIT, 3, "API.getAPITraceLevel(traceStatePtr=%p) rc=%d\n")

TRACE_POINT(setAPITraceLevel_entry, 1094, ENTRY, 3, "API.setAPITraceLevel(traceState=%d) current trace level=%d\n")
TRACE_POINT(setAPITraceLevel_invalidLevel, 1095, EXC, 1,
            "API.setAPITraceLevel() Supplied trace state value %d was invalid\n")
TRACE_POINT(setAPITraceLevel_exit, 1096, EXIT, 3, "API.setAPITraceLevel(traceState=%d) new trace level=%d rc=%d\n")

TRACE_POINT(setAPITraceFile_entry, 1097, ENTRY, 3, "API.setAPITraceFile(traceFile=%p) current trace destination=%s\n")
TRACE_POINT(setAPITraceFile_switched, 1098, DEBUG, 4,
            "API.setAPITraceFile() Trace file switched to new destination. Filename=%s\n")
TRACE_POINT(setAPITraceFile_unchanged, 1099, DEBUG, 4,
            "API.setAPITraceFile() Trace file destination is unchanged. Filename=%s\n")
TRACE_POINT(setAPITraceFile_openFailed, 1100, EXC, 1,
            "API.setAPITraceFile(%s) file append failed with errno=%d. Trace file destination is unchanged. Filename=%s\n")
TRACE_POINT(setAPITraceFile_exit, 1101, EXIT, 3, "API.setAPITraceFile(traceFile=%p) new trace destination=%s rc=%d\n")

TRACE_POINT(dumpResultSet_entry, 1102, ENTRY, 3, "API.dumpResultSet(rsPtr=%p)\n")
TRACE_POINT(dumpResultSet_noBuffer, 1103, EXC, 1,
            "API.dumpResultSet(rsPtr=%p) resultSetBuf is NULL - no data to dump\n")
TRACE_POINT(dumpResultSet_wrongContent, 1104, EXC, 1,
            "API.dumpResultSet Resultset does not contain recognised content\n")
TRACE_POINT(dumpResultSet_exit, 1105, EXIT, 3, "API.dumpResultSet(rsPtr=%p) rc=%d\n")

TRACE_POINT(dumpState_entry, 1106, ENTRY, 3, "API.dumpState()\n", STALE_STAMP)
TRACE_POINT(dumpState_exit, 1107, EXIT, 3, "API.dumpState()\n")

TRACE_POINT(dup2ASCIIString_entry, 1108, ENTRY, 3, "API.dup2ASCIIString(dataPtr=%p, &outputPtr=%p) \n")
TRACE_POINT(dup2ASCIIString_allocated, 1109, DEBUG, 4, "API.dup2ASCIIString() called malloc for %d bytes. rc=%p\n")
TRACE_POINT(dup2ASCIIString_copying, 1112, DEBUG, 4, "API.dup2ASCIIString() using memcpy() on writePtr(%p) bytes(%d)\n")
TRACE_POINT(dup2ASCIIString_notAllocated, 1113, EXC, 1, "API.dup2ASCIIString() malloc failed for %d bytes\n")
TRACE_POINT(dup2ASCIIString_overlength, 1114, EXC, 1,
            "API.dup2ASCIIString() supplied input data pointer was NULL or overlength\n")
TRACE_POINT(dup2ASCIIString_exit, 1115, EXIT, 3, "API.dup2ASCIIString() readByteCount=%d rc=%d\n")

TRACE_POINT(dup2NativeString_entry, 1116, ENTRY, 3, "API.dup2NativeString(source dataPtr=%p, &outputPtr=%p) \n")
TRACE_POINT(dup2NativeString_allocated, 1117, DEBUG, 4, "API.dup2NativeString() called strdup for %d bytes. rc=0x%p\n")
TRACE_POINT(dup2NativeString_copying, 1120, DEBUG, 4, "API.dup2NativeString() about to memcpy for %d bytes. \n")
TRACE_POINT(dup2NativeString_notAllocated, 1121, EXC, 1, "API.dup2NativeString() malloc failed for %d bytes\n")
TRACE_POINT(dup2NativeString_overlength, 1122, EXC, 1,
            "API.dup2NativeString() supplied input data pointer was NULL or overlength\n")
TRACE_POINT(dup2NativeString_exit, 1123, EXIT, 3, "API.dup2NativeString() readByteCount=%d rc=%d\n")

TRACE_POINT(stapiInit_gtlInitFailed, 1124, EXC, 1,
            "API.stapiInit() Initialization of zulstats API Gateway Token List has failed. rc=%d\n")
