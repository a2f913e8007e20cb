// The exchanges that frame the life of a connection: handshake, authorisation, close.
#include "stapi_zul_socketcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_socketcomms_trace.h"

namespace {

// Language "en" and country "GB", each with its length, and ten zero bytes.
// Kept: the admin requests say "US".
constexpr unsigned char HANDSHAKE_BODY[18] = {0x00, 0x02, 'e', 'n', 0x00, 0x02, 'G', 'B'};

// What sets the two "BASE" requests apart.
struct BaseRequest {
    std::int32_t flowType;
    std::int32_t echoWord;
    std::int32_t bodySize;
    const TracePoint<int, const void*>& entry;
    const TracePoint<int, const void*>& allocated;
    const TracePoint<int>& notAllocated;
    const TracePoint<const void*>& freeRequest;
    const TracePoint<int, const void*, int>& exit;
};

int flowBase(const BaseRequest& request, int socketDesc, FlowReasons* reasons) {
    RequestHeader header = newRequestHeader(HANDSHAKE_REQUEST_NAME, request.flowType, request.bodySize);
    header.echoWord = request.echoWord;
    const int size = static_cast<int>(HEADER_FIXED_SIZE + header.requestNameLength) + request.bodySize;
    unsigned char* data = allocateMessage(static_cast<std::size_t>(size));
    TRACE(request.allocated, size, data);
    if (data == nullptr) {
        TRACE(request.notAllocated, size);
        return STAPI_RC_NO_MEMORY;
    }
    writeHeader(&header, data);
    std::memcpy(data + HEADER_FIXED_SIZE + header.requestNameLength, HANDSHAKE_BODY,
                static_cast<std::size_t>(request.bodySize));
    const int rc = flow(socketDesc, size, &data, HANDSHAKE_REQUEST_NAME, &header, reasons);
    TRACE(request.freeRequest, data);
    std::free(data);
    return rc;
}

int flowTracedBase(const BaseRequest& request, int socketDesc, FlowReasons* reasons) {
    TRACE(request.entry, socketDesc, reasons);
    const int rc = flowBase(request, socketDesc, reasons);
    TRACE(request.exit, socketDesc, reasons, rc);
    return rc;
}

// Body of an "Auth" request: the call type, in the second step followed by the four data words.
std::size_t authBodySize(const AuthRequest& request) {
    return request.authCallType == 1 ? 20 : 4;
}

void writeAuthBody(const AuthRequest& request, unsigned char* at) {
    at = putI32(at, request.authCallType);
    if (request.authCallType == 1) {
        at = putU32(at, request.authData1);
        at = putU32(at, request.authData2);
        at = putU32(at, request.authData3);
        putU32(at, request.authData4);
    }
}

int readAuthReply(const unsigned char* body, AuthRequest* request, FlowReasons* reasons) {
    request->authCallType = getI32(body);
    request->authRc = getI32(body + 4);
    if (request->authCallType != 0) {
        // Kept: such a reply succeeds whatever its auth rc.
        request->authResult1 = getU32(body + 8);
        request->authResult2 = getU32(body + 12);
        return 0;
    }
    if (request->authRc != 0) {
        TRACE(flowAuthRequest_refused, request->authRc);
        reasons->authRc = request->authRc;
        return STAPI_RC_FLOW_AUTH_FAILED;
    }
    request->authData1 = getU32(body + 8);
    request->authData2 = getU32(body + 12);
    request->authData3 = getU32(body + 16);
    return 0;
}

int flowAuth(int socketDesc, AuthRequest* request, FlowReasons* reasons) {
    const std::size_t headerSize = HEADER_FIXED_SIZE + request->header.requestNameLength;
    const std::size_t size = headerSize + static_cast<std::size_t>(request->header.dataLength);
    const std::size_t written = headerSize + authBodySize(*request);
    // A reply without a body is read from the request: never less than the words that a reply holds.
    unsigned char* data = allocateMessage(size > written ? size : written);
    TRACE(flowAuthRequest_allocated, static_cast<int>(size), data);
    if (data == nullptr) {
        TRACE(flowAuthRequest_notAllocated, static_cast<int>(size));
        return STAPI_RC_NO_MEMORY;
    }
    writeHeader(&request->header, data);
    writeAuthBody(*request, data + headerSize);
    clearRest(data, written, size);
    int rc = flow(socketDesc, static_cast<int>(size), &data, request->header.requestName, &request->header, reasons);
    if (rc == 0) {
        rc = readAuthReply(data, request, reasons);
    }
    TRACE(flowAuthRequest_freeRequest, data);
    std::free(data);
    return rc;
}

}  // namespace

int flowHandshakeRequest(int socketDesc, FlowReasons* reasons) {
    static constexpr BaseRequest HANDSHAKE = {.flowType = FLOW_HANDSHAKE,
                                              .echoWord = 0,
                                              .bodySize = sizeof HANDSHAKE_BODY,
                                              .entry = flowHandshakeRequest_entry,
                                              .allocated = flowHandshakeRequest_allocated,
                                              .notAllocated = flowHandshakeRequest_notAllocated,
                                              .freeRequest = flowHandshakeRequest_freeRequest,
                                              .exit = flowHandshakeRequest_exit};
    return flowTracedBase(HANDSHAKE, socketDesc, reasons);
}

int flowCloseRequest(int socketDesc, FlowReasons* reasons) {
    static constexpr BaseRequest CLOSE = {.flowType = FLOW_CLOSE,
                                          .echoWord = -1,
                                          .bodySize = 0,
                                          .entry = flowCloseRequest_entry,
                                          .allocated = flowCloseRequest_allocated,
                                          .notAllocated = flowCloseRequest_notAllocated,
                                          .freeRequest = flowCloseRequest_freeRequest,
                                          .exit = flowCloseRequest_exit};
    return flowTracedBase(CLOSE, socketDesc, reasons);
}

int flowAuthRequest(int socketDesc, AuthRequest* request, FlowReasons* reasons) {
    TRACE(flowAuthRequest_entry, socketDesc, request, reasons);
    const int rc = flowAuth(socketDesc, request, reasons);
    TRACE(flowAuthRequest_exit, socketDesc, request, reasons, rc);
    return rc;
}
