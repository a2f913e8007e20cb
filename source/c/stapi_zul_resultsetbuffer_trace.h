// Trace points of stapi_zul_resultsetbuffer: result set tokens and buffers.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(addIdStr_entry, 2100, ENTRY, 3, "stapi_zul_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p)\n")
TRACE_POINT(addIdStr_nullParameter, 2101, EXC, 1,
            "stapi_zul_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p) function received a null parameter\n")
TRACE_POINT(addIdStr_arguments, 2102, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addIdStr bufWPtr(%p) *bufWPtr(%p) source string(%s) string lentgh(%d)\n")
TRACE_POINT(addIdStr_beforeLength, 2103, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addIdStr Before writing id length, write cursor=%p\n")
TRACE_POINT(addIdStr_wroteLength, 2104, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addIdStr Wrote length value %u to address %p, which reads back as %u\n")
TRACE_POINT(addIdStr_beforeString, 2105, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addIdStr Before writing id string, write cursor=%p\n")
TRACE_POINT(addIdStr_wroteString, 2106, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addIdStr Wrote string %s len %u to address %p, first char reads back as %c\n")
TRACE_POINT(addIdStr_exit, 2107, EXIT, 3, "stapi_zul_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p)\n")

TRACE_POINT(addInteger_entry, 2108, ENTRY, 3, "stapi_zul_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%u)\n")
TRACE_POINT(addInteger_nullParameter, 2109, EXC, 1,
            "stapi_zul_resultsetbuffer.addInteger(&bufWPtr=%p) function received a null parameter\n")
TRACE_POINT(addInteger_exit, 2110, EXIT, 3, "stapi_zul_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%u) zulStatRc=%u\n")

TRACE_POINT(addChars_entry, 2111, ENTRY, 3, "stapi_zul_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p,charCount=%d)\n")
TRACE_POINT(addChars_nullParameter, 2112, EXC, 1,
            "stapi_zul_resultsetbuffer.addChars(&bufWPtr=%p) function received a null parameter\n")
TRACE_POINT(addChars_copying, 2114, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addChars() using memcpy() on writeCursor(%p) charCount(%d)\n")
TRACE_POINT(addChars_exit, 2115, EXIT, 3, "stapi_zul_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p) zulStatRc=%u\n")

TRACE_POINT(addPlatformChars_entry, 2116, ENTRY, 3,
            "stapi_zul_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p,charCount=%d)\n")
TRACE_POINT(addPlatformChars_nullParameter, 2117, EXC, 1,
            "stapi_zul_resultsetbuffer.addPlatformChars(&bufWPtr=%p) function received a null parameter\n")
TRACE_POINT(addPlatformChars_copying, 2118, DEBUG, 4,
            "stapi_zul_resultsetbuffer.addPlatformChars() writeCursor(%p) charCount(%d) \n")
TRACE_POINT(addPlatformChars_exit, 2119, EXIT, 3,
            "stapi_zul_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p) zulStatRc=%u\n")

TRACE_POINT(addTerminator_entry, 2120, ENTRY, 3, "stapi_zul_resultsetbuffer.addTerminator(writeCursor=%p)\n")
TRACE_POINT(addTerminator_nullParameter, 2121, EXC, 1,
            "stapi_zul_resultsetbuffer.addTerminator(writeCursor=%p) function received a null parameter\n")
TRACE_POINT(addTerminator_exit, 2122, EXIT, 3,
            "stapi_zul_resultsetbuffer.addTerminator(writeCursor=%p, zulStatRc=%d)\n")

TRACE_POINT(checkTerminator_entry, 2123, ENTRY, 3,
            "stapi_zul_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p)\n")
TRACE_POINT(checkTerminator_nullParameter, 2124, EXC, 1,
            "stapi_zul_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) function received a null parameter\n")
TRACE_POINT(checkTerminator_checked, 2125, DEBUG, 4,
            "stapi_zul_resultsetbuffer.checkTerminator(dataCursor=%p) Found Terminator=%d\n")
TRACE_POINT(checkTerminator_exit, 2126, EXIT, 3,
            "stapi_zul_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) rc=%d\n")

TRACE_POINT(createResultSet_entry, 2127, ENTRY, 3,
            "stapi_zul_resultsetbuffer.createResultSet(&newRsTokPtr=%p,eyecatcher=%p,owner=%X)\n")
TRACE_POINT(createResultSet_allocatedToken, 2128, DEBUG, 4,
            "stapi_zul_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(createResultSet_tokenNotAllocated, 2129, EXC, 1,
            "stapi_zul_resultsetbuffer.createResultSet Failed to allocate %d bytes\n")
TRACE_POINT(createResultSet_allocatedQueryString, 2130, DEBUG, 4,
            "stapi_zul_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(createResultSet_queryStringNotAllocated, 2131, EXC, 1,
            "stapi_zul_resultsetbuffer.createResultSet Failed to allocate %d bytes\n")
TRACE_POINT(createResultSet_exit, 2132, EXIT, 3,
            "stapi_zul_resultsetbuffer.createResultSet(&newRsTokPtr=%p,eyecatcher=%p,owner=%X) rc=%d\n")

TRACE_POINT(deleteResultSet_entry, 2133, ENTRY, 3, "stapi_zul_resultsetbuffer.deleteResultSet(&rsPtr=%p)\n")
TRACE_POINT(deleteResultSet_freeQueryString, 2134, DEBUG, 4,
            "stapi_zul_resultsetbuffer.deleteResultSet Free result set verifiedQueryString(%p)\n")
TRACE_POINT(deleteResultSet_freedQueryString, 2135, DEBUG, 4,
            "stapi_zul_resultsetbuffer.deleteResultSet Freed result set token(%p)\n")
TRACE_POINT(deleteResultSet_freeToken, 2136, DEBUG, 4,
            "stapi_zul_resultsetbuffer.deleteResultSet Free result set token(%p)\n")
TRACE_POINT(deleteResultSet_freedToken, 2137, DEBUG, 4,
            "stapi_zul_resultsetbuffer.deleteResultSet Freed result set token(%p)\n")
TRACE_POINT(deleteResultSet_exit, 2138, EXIT, 3, "stapi_zul_resultsetbuffer.deleteResultSet(&rsPtr=%p) rc=%d\n")

TRACE_POINT(dumpResultSetInternal_entry, 2139, ENTRY, 3, "stapi_zul_resultsetbuffer.dumpResultSetInternal(rsPtr=%p)\n")
TRACE_POINT(dumpResultSetInternal_exit, 2140, EXIT, 3,
            "stapi_zul_resultsetbuffer.dumpResultSetInternal(rsPtr=%p) bytes dumped=%d rc=%d\n")

TRACE_POINT(verifyAPIResultSetToken_entry, 2141, ENTRY, 3,
            "stapi_zul_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p)\n")
TRACE_POINT(verifyAPIResultSetToken_pidMismatch, 2142, EXC, 1,
            "stapi_zul_resultsetbuffer.verifyAPIResultSetToken PID mismatch: currentPid=%x, owningPid=%x\n")
TRACE_POINT(verifyAPIResultSetToken_tidMismatch, 2143, EXC, 1,
            "stapi_zul_resultsetbuffer.verifyAPIResultSetToken TID mismatch: currentTid=%x, owningTid=%x\n")
TRACE_POINT(verifyAPIResultSetToken_exit, 2144, EXIT, 3,
            "stapi_zul_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p) rc=%d\n")
