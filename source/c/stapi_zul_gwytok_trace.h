// Trace points of stapi_zul_gwytok: gateway tokens and their list.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(createGatewayToken_entry, 2000, ENTRY, 3, "stapi_zul_gwytok.createGatewayToken(&gwTokPtr=%p,port=%d)\n")
TRACE_POINT(createGatewayToken_exit, 2001, EXIT, 3, "stapi_zul_gwytok.createGatewayToken(&gwTokPtr=%p,port=%d) rc=%d\n")
TRACE_POINT(createGatewayToken_created, 2033, EVENT, 2, "stapi_zul_gwytok.createGatewayToken(&gwTokPtr=%p) %s\n")
TRACE_POINT(createGatewayToken_resultSetFailed, 2036, EXC, 1,
            "stapi_zul_gwytok.createGatewayToken Creation of resultset failed rc=%d\n")
TRACE_POINT(createGatewayToken_allocatedToken, 2038, DEBUG, 4,
            "stapi_zul_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(createGatewayToken_tokenNotAllocated, 2039, EXC, 1,
            "stapi_zul_gwytok.createGatewayToken Failed to allocate %d bytes\n")
TRACE_POINT(createGatewayToken_allocatedBuffer, 2040, DEBUG, 4,
            "stapi_zul_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(createGatewayToken_bufferNotAllocated, 2041, EXC, 1,
            "stapi_zul_gwytok.createGatewayToken Failed to allocate %d bytes.\n")
TRACE_POINT(createGatewayToken_removing, 2042, EVENT, 2,
            "stapi_zul_gwytok.createGatewayToken Removing GatewayToken %p due to comms failure %d\n")

TRACE_POINT(openStatsSocket_entry, 2002, ENTRY, 3,
            "stapi_zul_gwytok.openStatsSocket(gwTokPtr=%p) Attempting to connect to %s:%d\n")
TRACE_POINT(openStatsSocket_connected, 2003, EVENT, 2,
            "stapi_zul_gwytok.openStatsSocket() Connected to Gateway %s:%u - socketDescriptor(%d)\n")
TRACE_POINT(openStatsSocket_connectFailed, 2004, EXC, 1,
            "stapi_zul_gwytok.openStatsSocket() Failed to connect to Gateway %s:%u\n")
TRACE_POINT(openStatsSocket_exit, 2005, EXIT, 3,
            "stapi_zul_gwytok.openStatsSocket(gwTokPtr=%p, hostname=%s, port=%d) rc=%d\n")

TRACE_POINT(verifyGatewayToken_entry, 2006, ENTRY, 3, "stapi_zul_gwytok.verifyGatewayToken(&gwTokPtr=%p)\n")
TRACE_POINT(verifyGatewayToken_notFound, 2007, EXC, 1,
            "stapi_zul_gwytok.verifyGatewayToken(&gwTokPtr=%p) Gateway token not found - findRc=%d\n")
TRACE_POINT(verifyGatewayToken_exit, 2008, EXIT, 3, "stapi_zul_gwytok.verifyGatewayToken(&gwTokPtr=%p) rc=%d\n")
TRACE_POINT(verifyGatewayToken_pidMismatch, 2032, EXC, 1,
            "stapi_zul_gwytok.verifyGatewayToken PID mismatch: currentPid=%d, owningPid=%d\n")
TRACE_POINT(verifyGatewayToken_tidMismatch, 2033, EXC, 1,
            "stapi_zul_gwytok.verifyGatewayToken TID mismatch: currentTid=%d, owningTid=%d\n")

TRACE_POINT(deleteGatewayToken_entry, 2009, ENTRY, 3,
            "stapi_zul_gwytok.deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d)\n")
TRACE_POINT(deleteGatewayToken_freeToken, 2010, DEBUG, 4,
            "stapi_zul_gwytok.deleteGatewayToken(&gwTokPtr=%p) Free gateway token(%p) \n")
TRACE_POINT(deleteGatewayToken_freedToken, 2011, DEBUG, 4,
            "stapi_zul_gwytok.deleteGatewayToken(&gwTokPtr=%p) Freed gateway token(%p) \n")
TRACE_POINT(deleteGatewayToken_exit, 2012, EXIT, 3,
            "stapi_zul_gwytok.deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d) rc=%d\n")
TRACE_POINT(deleteGatewayToken_resultSetNotDeleted, 2037, EXC, 1,
            "stapi_zul_gwytok.deleteGatewayToken Unable to delete ResultSet. rc=%d\n")
TRACE_POINT(deleteGatewayToken_freeBuffer, 2043, DEBUG, 4,
            "stapi_zul_gwytok.deleteGatewayToken About to free resultSetBuffer (%p)\n")
TRACE_POINT(deleteGatewayToken_freeVersion, 2044, DEBUG, 4,
            "stapi_zul_gwytok.deleteGatewayToken About to free protocolVersion String (%p)\n")

TRACE_POINT(deleteGatewayTokens_entry, 2013, ENTRY, 3, "stapi_zul_gwytok.deleteGatewayTokens()\n", STALE_STAMP)
TRACE_POINT(deleteGatewayTokens_runaway, 2014, EXC, 1,
            "stapi_zul_gwytok.deleteGatewayTokensGTL iteration has hit RUNAWAY limit %d.....\n")
TRACE_POINT(deleteGatewayTokens_exit, 2015, EXIT, 3,
            "stapi_zul_gwytok.deleteGatewayTokens() Entries deleted=%d rc=%d\n")
TRACE_POINT(deleteGatewayTokens_deleting, 2034, EVENT, 2,
            "stapi_zul_gwytok.deleteGatewayTokens(indexToken=%p) GTL entry %4.4d: %s\n")
TRACE_POINT(deleteGatewayTokens_empty, 2035, EVENT, 2, "stapi_zul_gwytok.deleteGatewayTokens() GTL is EMPTY\n")

TRACE_POINT(dumpGatewayTokens_entry, 2016, ENTRY, 3, "stapi_zul_gwytok.dumpGatewayTokens()\n", STALE_STAMP)
TRACE_POINT(dumpGatewayTokens_runaway, 2017, EXC, 1,
            "stapi_zul_gwytok.dumpGatewayTokensGateway Token List iteration has hit RUNAWAY limit %d.....\n")
TRACE_POINT(dumpGatewayTokens_exit, 2018, EXIT, 3, "stapi_zul_gwytok.dumpGatewayTokens() List length=%d rc=%d\n")

TRACE_POINT(chainGatewayToken_entry, 2019, ENTRY, 3, "stapi_zul_gwytok.chainGatewayToken(&gwTokPtr=%p)\n")
TRACE_POINT(chainGatewayToken_corrupt, 2020, EXC, 1,
            "stapi_zul_gwytok.chainGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n")
TRACE_POINT(chainGatewayToken_nullToken, 2021, EXC, 1,
            "stapi_zul_gwytok.chainGatewayToken() Chain request was for a null token\n")
TRACE_POINT(chainGatewayToken_exit, 2022, EXIT, 3, "stapi_zul_gwytok.chainGatewayToken(&gwTokPtr=%p) rc=%d\n")

TRACE_POINT(findGatewayToken_entry, 2023, ENTRY, 3, "stapi_zul_gwytok.findGatewayToken(target=%p,&parent=%p)\n")
TRACE_POINT(findGatewayToken_runaway, 2024, EXC, 1,
            "stapi_zul_gwytok.findGatewayTokenGTL iteration has hit RUNAWAY limit %d.....\n")
TRACE_POINT(findGatewayToken_notFound, 2025, DEBUG, 4,
            "stapi_zul_gwytok.findGatewayTokenTarget token not found. GTL entries(%d) head(%p) last(%p)\n")
TRACE_POINT(findGatewayToken_found, 2026, DEBUG, 4,
            "stapi_zul_gwytok.findGatewayTokenTarget token found at GTL Entry(%d)\n")
TRACE_POINT(findGatewayToken_corrupt, 2027, EXC, 1,
            "stapi_zul_gwytok.findGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n")
TRACE_POINT(findGatewayToken_nullTarget, 2028, EXC, 1, "stapi_zul_gwytok.findGatewayToken() Target was a null token\n")
TRACE_POINT(findGatewayToken_exit, 2029, EXIT, 3, "stapi_zul_gwytok.findGatewayToken(target=%p,&parent=%p) rc=%d\n")

TRACE_POINT(initGTL_entry, 2030, ENTRY, 3, "stapi_zul_gwytok.initGTL()\n", STALE_STAMP)
TRACE_POINT(initGTL_exit, 2031, EXIT, 3, "stapi_zul_gwytok.initGTL() initLockRc=%d, rc=%d\n")
