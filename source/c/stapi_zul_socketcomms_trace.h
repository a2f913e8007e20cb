// Trace points of stapi_zul_socketcomms: the message exchanges.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(flowAdminRequest_entry, 3200, ENTRY, 3,
            "stapi_zul_socketcomms.flowAdminRequest(socketDesc=%d, *request=%p, *reasons=%p)\n")
TRACE_POINT(flowAdminRequest_allocatedMessage, 3201, DEBUG, 4,
            "stapi_zul_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flowAdminRequest_messageNotAllocated, 3202, EXC, 1,
            "stapi_zul_socketcomms.flowAdminRequestFailed to allocate %d bytes.\n")
TRACE_POINT(flowAdminRequest_allocatedReplyData, 3203, DEBUG, 4,
            "stapi_zul_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flowAdminRequest_replyDataNotAllocated, 3204, EXC, 1,
            "stapi_zul_socketcomms.flowAdminRequestFailed to allocate %d bytes.\n")
TRACE_POINT(flowAdminRequest_exceptionFlag, 3205, EXC, 1,
            "stapi_zul_socketcomms.flowAdminRequest Exception occured during request execution\n")
TRACE_POINT(flowAdminRequest_refused, 3206, EXC, 1,
            "stapi_zul_socketcomms.flowAdminRequest Auth Request returned an error AuthRc=%d\n")
TRACE_POINT(flowAdminRequest_freeRequest, 3207, DEBUG, 4,
            "stapi_zul_socketcomms.flowAdminRequest Free request data %p\n")
TRACE_POINT(flowAdminRequest_exit, 3208, EXIT, 3,
            "stapi_zul_socketcomms.flowAdminRequest(socketDesc=%d, *request=%p, *reasons=%p) rc=%d\n")

TRACE_POINT(flowAuthRequest_entry, 3209, ENTRY, 3,
            "stapi_zul_socketcomms.flowAuthRequest(socketDesc=%d, *request=%p, *reasons=%p)\n")
TRACE_POINT(flowAuthRequest_allocated, 3210, DEBUG, 4,
            "stapi_zul_socketcomms.flowAuthRequest Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flowAuthRequest_notAllocated, 3211, EXC, 1,
            "stapi_zul_socketcomms.flowAuthRequestFailed to allocate %d bytes.\n")
TRACE_POINT(flowAuthRequest_refused, 3212, EXC, 1,
            "stapi_zul_socketcomms.flowAuthRequestAuth_Init request failed rc=%d\n")
TRACE_POINT(flowAuthRequest_freeRequest, 3213, DEBUG, 4, "stapi_zul_socketcomms.flowAuthRequest Free request data %p\n")
TRACE_POINT(flowAuthRequest_exit, 3214, EXIT, 3,
            "stapi_zul_socketcomms.flowAuthRequest(socketDesc=%d, *request=%p, *reasons=%p) rc=%d\n")

TRACE_POINT(flowHandshakeRequest_entry, 3215, ENTRY, 3,
            "stapi_zul_socketcomms.flowHandshakeRequest(socketDesc=%d, *reasons=%p)\n")
TRACE_POINT(flowHandshakeRequest_allocated, 3216, DEBUG, 4,
            "stapi_zul_socketcomms.flowHandshakeRequest Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flowHandshakeRequest_notAllocated, 3217, EXC, 1,
            "stapi_zul_socketcomms.flowHandshakeRequestFailed to allocate %d bytes.\n")
TRACE_POINT(flowHandshakeRequest_freeRequest, 3218, DEBUG, 4,
            "stapi_zul_socketcomms.flowHandshakeRequest Free handshake data %p\n")
TRACE_POINT(flowHandshakeRequest_exit, 3219, EXIT, 3,
            "stapi_zul_socketcomms.flowHandshakeRequest(socketDesc=%d, *reasons=%p) rc=%d\n")

TRACE_POINT(flowCloseRequest_entry, 3220, ENTRY, 3,
            "stapi_zul_socketcomms.flowCloseRequest(socketDesc=%d, *reasons=%p)\n")
TRACE_POINT(flowCloseRequest_allocated, 3221, DEBUG, 4,
            "stapi_zul_socketcomms.flowCloseRequest Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flowCloseRequest_notAllocated, 3222, EXC, 1,
            "stapi_zul_socketcomms.flowCloseRequest Failed to allocate %d bytes.\n")
TRACE_POINT(flowCloseRequest_freeRequest, 3223, DEBUG, 4,
            "stapi_zul_socketcomms.flowCloseRequest Free close request data %p\n")
TRACE_POINT(flowCloseRequest_exit, 3224, EXIT, 3,
            "stapi_zul_socketcomms.flowCloseRequest(socketDesc=%d, *reasons=%p) rc=%d\n")

TRACE_POINT(flow_entry, 3225, ENTRY, 3,
            "stapi_zul_socketcomms.flow(socketDesc=%d, datalen=%d, &data=%p, requestName=%s, header=%p, reasons=%p)\n")
TRACE_POINT(flow_request, 3226, DATA, 4, "stapi_zul_socketcomms.flow data=%p len=%d stopword=%8.8X\n")
TRACE_POINT(flow_noData, 3227, EXC, 1, "stapi_zul_socketcomms.flow No data to flow!!\n")
TRACE_POINT(flow_sendFailed, 3228, EXC, 1, "stapi_zul_socketcomms.flow Unable to write data to socket rc=%d\n")
TRACE_POINT(flow_sendErrno, 3229, EXC, 1, "stapi_zul_socketcomms.flow Unable to send data to Gateway: errno=%d\n")
TRACE_POINT(flow_allocatedHeader, 3230, DEBUG, 4, "stapi_zul_socketcomms.flow Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flow_headerNotAllocated, 3231, EXC, 1, "stapi_zul_socketcomms.flowFailed to allocate %d bytes.\n")
TRACE_POINT(flow_freeHeader, 3232, DEBUG, 4, "stapi_zul_socketcomms.flow Free header data %p\n")
TRACE_POINT(flow_freeCallData, 3233, DEBUG, 4, "stapi_zul_socketcomms.flow Free call data %p\n")
TRACE_POINT(flow_callDataCleared, 3234, DEBUG, 4, "stapi_zul_socketcomms.flow (re-)malloc call &data %p\n")
TRACE_POINT(flow_allocatedBody, 3235, DEBUG, 4, "stapi_zul_socketcomms.flow Called malloc for %d bytes. rc=%p\n")
TRACE_POINT(flow_bodyNotAllocated, 3236, EXC, 1, "stapi_zul_socketcomms.flow Failed to allocate %d bytes.\n")
TRACE_POINT(flow_noBody, 3237, DEBUG, 4,
            "stapi_zul_socketcomms.flow Managed to read in whole response in one go. data=0x%p\n")
TRACE_POINT(flow_exit, 3238, EXIT, 3,
            "stapi_zul_socketcomms.flow(socketDesc=%d, datalen=%d, data=%p, requestName=%s, header=%p, reasons=%p) rc=%d\n")
TRACE_POINT(flow_exchanged, 3250, EVENT, 2,
            "stapi_zul_socketcomms.flow Successfully sent and received data with Gateway on socket %d\n")
TRACE_POINT(flow_badHeader, 3251, EXC, 1,
            "stapi_zul_socketcomms.flow reply header has a request name of %u bytes, expected at most %d\n")

TRACE_POINT(readFromSocket_entry, 3239, ENTRY, 3,
            "stapi_zul_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p)\n")
TRACE_POINT(readFromSocket_firstRecv, 3240, DEBUG, 4,
            "stapi_zul_socketcomms.readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d)\n")
TRACE_POINT(readFromSocket_nextRecv, 3241, DEBUG, 4,
            "stapi_zul_socketcomms.readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d, totaldata=%d)\n")
TRACE_POINT(readFromSocket_nextRecvFailed, 3242, EXC, 1,
            "stapi_zul_socketcomms.readFromSocket read returned an error code: errno=%d\n")
TRACE_POINT(readFromSocket_received, 3243, DATA, 4,
            "stapi_zul_socketcomms.readFromSocket data=%p len=%d stopword=%8.8X\n")
TRACE_POINT(readFromSocket_firstRecvFailed, 3244, EXC, 1,
            "stapi_zul_socketcomms.readFromSocket read returned an error code: errno=%d\n")
TRACE_POINT(readFromSocket_exit, 3245, EXIT, 3,
            "stapi_zul_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p) rc=%d\n")

TRACE_POINT(populateHeader_entry, 3246, ENTRY, 3, "stapi_zul_socketcomms.populateHeader(data=%p, req=%p)\n")
TRACE_POINT(populateHeader_exit, 3247, EXIT, 3, "stapi_zul_socketcomms.populateHeader(data=%p, req=%p)\n")

TRACE_POINT(writeHeader_entry, 3248, ENTRY, 3, "stapi_zul_socketcomms.writeHeader(req=%p, data=%p)\n")
TRACE_POINT(writeHeader_exit, 3249, EXIT, 3, "stapi_zul_socketcomms.writeHeader(req=%p, data=%p)\n")
