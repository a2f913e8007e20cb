// Trace points of stapi_zul_statcomms: the statistics requests and reply parsers.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(statProtocolVer_entry, 2200, ENTRY, 3, "stapi_zul_statcomms.statProtocolVer(gwTokPtr=%p)\n")
TRACE_POINT(statProtocolVer_initialized, 2201, DEBUG, 4,
            "stapi_zul_statcomms.statProtocolVer Successfully init'd admin request\n")
TRACE_POINT(statProtocolVer_gotVersion, 2202, DEBUG, 4,
            "stapi_zul_statcomms.statProtocolVer Successfully got the protocol version from the Gateway\n")
TRACE_POINT(statProtocolVer_versionBuffer, 2203, DEBUG, 4,
            "stapi_zul_statcomms.statProtocolVer Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(statProtocolVer_noVersionBuffer, 2204, EXC, 1,
            "stapi_zul_statcomms.statProtocolVerFailed to allocate %d bytes.\n")
TRACE_POINT(statProtocolVer_exit, 2205, EXIT, 3, "stapi_zul_statcomms.statProtocolVer(gwTokPtr=%p) rc=%d\n")

TRACE_POINT(statComms_entry, 2206, ENTRY, 3,
            "stapi_zul_statcomms.statComms(socketDesc=%d, queryType=%s, buffer=%p, reasons=%p)\n")
TRACE_POINT(statComms_exit, 2207, EXIT, 3,
            "stapi_zul_statcomms.statComms(socketDesc=%d, queryType=%s, buffer=%p, reasons=%p) rc=%d\n")

TRACE_POINT(statCommsString_entry, 2208, ENTRY, 3,
            "stapi_zul_statcomms.statCommsString(socketDesc=%d, queryType=%s, queryString=%p, buffer=%p, reasons=%p)\n")
TRACE_POINT(statCommsString_initialized, 2209, DEBUG, 4,
            "stapi_zul_statcomms.statCommsString Successfully init'd the Admin Request\n")
TRACE_POINT(statCommsString_calledForStats, 2210, DEBUG, 4,
            "stapi_zul_statcomms.statCommsString Successfully called the Gateway for Stats\n")
TRACE_POINT(statCommsString_calledForIds, 2211, DEBUG, 4,
            "stapi_zul_statcomms.statCommsString Successfully called the Gateway for IDs\n")
TRACE_POINT(statCommsString_freeReplyData, 2212, DEBUG, 4,
            "stapi_zul_statcomms.statCommsString Free request callData %p\n")
TRACE_POINT(statCommsString_exit, 2213, EXIT, 3,
            "stapi_zul_statcomms.statCommsString(socketDesc=%d, queryType=%s, queryString=%p, buffer=%p, reasons=%p) rc=%d\n")
TRACE_POINT(statCommsString_replyData, 2230, DATA, 4,
            "stapi_zul_statcomms.statCommsString data=%p len=%d stopword=%8.8X\n")

TRACE_POINT(getInitAdminRequest_entry, 2214, ENTRY, 3,
            "stapi_zul_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p)\n")
TRACE_POINT(getInitAdminRequest_exit, 2215, EXIT, 3,
            "stapi_zul_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p) rc=%d\n")

TRACE_POINT(calculateCallLength_entry, 2216, ENTRY, 3, "stapi_zul_statcomms.calculateCallLength\n", STALE_STAMP)
TRACE_POINT(calculateCallLength_exit, 2217, EXIT, 3, "stapi_zul_statcomms.calculateCallLengthsize=%d\n")

TRACE_POINT(calculateGetAttrCallLength_entry, 2218, ENTRY, 3,
            "stapi_zul_statcomms.calculateGetAttrCallLength\n", STALE_STAMP)
TRACE_POINT(calculateGetAttrCallLength_exit, 2219, EXIT, 3, "stapi_zul_statcomms.calculateGetAttrCallLengthsize=%d\n")

TRACE_POINT(parseStatsData_entry, 2220, ENTRY, 3, "stapi_zul_statcomms.parseStatsData(rawData=%p, buffer=%p)\n")
TRACE_POINT(parseStatsData_received, 2221, DEBUG, 4,
            "stapi_zul_statcomms.parseStatsData received %d responses from the Gateway\n")
TRACE_POINT(parseStatsData_reading, 2222, DEBUG, 4,
            "stapi_zul_statcomms.parseStatsData reading %d stats for result %d\n")
TRACE_POINT(parseStatsData_exit, 2223, EXIT, 3, "stapi_zul_statcomms.parseStatsData(rawData=%p, buffer=%p)\n")

TRACE_POINT(parseIdsData_entry, 2224, ENTRY, 3, "stapi_zul_statcomms.parseIdsData(rawData=%p, buffer=%p)\n")
TRACE_POINT(parseIdsData_received, 2225, DEBUG, 4,
            "stapi_zul_statcomms.parseIdsData received %d responses from the Gateway\n")
TRACE_POINT(parseIdsData_elementRc, 2226, DEBUG, 4, "stapi_zul_statcomms.parseIdsData Query rc=%d or (hex=%8.8X)\n")
TRACE_POINT(parseIdsData_reading, 2227, DEBUG, 4, "stapi_zul_statcomms.parseIdsData reading %d IDs for result %d\n")
TRACE_POINT(parseIdsData_badElement, 2228, DEBUG, 4,
            "stapi_zul_statcomms.parseIdsData Bad query id element(%d), move on to next one\n")
TRACE_POINT(parseIdsData_exit, 2229, EXIT, 3, "stapi_zul_statcomms.parseIdsData(rawData=%p, buffer=%p)\n")

TRACE_POINT(parseData_cutShort, 2231, EXC, 1,
            "stapi_zul_statcomms.parseData reply data ends early or is malformed at byte %d of %d, result set cut after %d bytes\n")
TRACE_POINT(parseData_tooLarge, 2232, EXC, 1,
            "stapi_zul_statcomms.parseData content does not fit the result set buffer of %d bytes\n")
