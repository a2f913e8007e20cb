// The "Admin" request: writing it and reading its reply.
#include "stapi_zul_socketcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "stapi_zul_socketcomms_trace.h"

namespace {

// Magic and version of an object stream, and the tag of a string in it.
constexpr unsigned char OBJ_ARRAY_HEADER[5] = {0xAC, 0xED, 0x00, 0x05, 0x74};
constexpr std::uint32_t OUTBOUND_ARRAY_SIZE = 1;

// Call reply: type, rc and exception flag come before the payload.
constexpr std::uint32_t CALL_REPLY_HEAD = 9;

// Writes a body, or only counts its bytes while `at` is null.
struct BodyWriter {
    unsigned char* at;
    std::size_t size;

    void bytes(const void* from, std::size_t count) {
        if (at != nullptr) {
            std::memcpy(at + size, from, count);
        }
        size += count;
    }
    void word(std::uint32_t value) {
        unsigned char encoded[4];
        putU32(encoded, value);
        bytes(encoded, sizeof encoded);
    }
    // Kept: the length is the low 16 bits, the text is written whole.
    void text(const char* text) {
        const std::size_t length = text == nullptr ? 0 : std::strlen(text);
        unsigned char encoded[2];
        putU16(encoded, static_cast<std::uint16_t>(length));
        bytes(encoded, sizeof encoded);
        if (length != 0) {
            bytes(text, length);
        }
    }
};

std::size_t writeAdminBody(const AdminRequest& request, unsigned char* at) {
    BodyWriter body = {at, 0};
    body.word(static_cast<std::uint32_t>(request.adminCallType));
    if (request.adminCallType > ADMIN_INIT) {
        body.word(request.adminHandle);
        body.word(request.callLength);
        body.text(request.country);
        body.text(request.language);
        body.text(request.domainPrefix);
        body.text(request.objectName);
    }
    if (request.adminCallType == ADMIN_GET_ATTRIBUTE) {
        body.text(request.attributeName);
    }
    if (request.adminCallType == ADMIN_INVOKE) {
        body.text(request.actionName);
        body.word(OUTBOUND_ARRAY_SIZE);
        body.bytes(OBJ_ARRAY_HEADER, sizeof OBJ_ARRAY_HEADER);
        body.text(request.queryString);
        body.word(OUTBOUND_ARRAY_SIZE);
        body.text(request.signature);
    }
    return body.size;
}

// Copies the payload of a call reply into a block of its own. A body too short for its head, or none, has no payload.
int takePayload(const unsigned char* body, AdminRequest* request) {
    const std::int32_t bodySize = request->header.dataLength;
    const auto payloadSize = static_cast<std::uint32_t>(bodySize) - CALL_REPLY_HEAD;
    request->replyData = nullptr;
    if (bodySize >= static_cast<std::int32_t>(CALL_REPLY_HEAD)) {
        request->replyData = allocateMessage(payloadSize);
    }
    TRACE(flowAdminRequest_allocatedReplyData, static_cast<int>(payloadSize), request->replyData);
    if (request->replyData == nullptr) {
        // Kept: the line shows the size of the whole body.
        TRACE(flowAdminRequest_replyDataNotAllocated, bodySize);
        return STAPI_RC_NO_MEMORY;
    }
    std::memcpy(request->replyData, body + CALL_REPLY_HEAD, payloadSize);
    request->header.dataLength = static_cast<std::int32_t>(payloadSize);
    return 0;
}

int readAdminReply(const unsigned char* body, AdminRequest* request, FlowReasons* reasons) {
    request->adminCallType = getI32(body);
    request->adminRc = getI32(body + 4);
    if (request->adminRc != 0) {
        TRACE(flowAdminRequest_refused, request->adminRc);
        reasons->adminRc = request->adminRc;
        return STAPI_RC_FLOW_ADMIN_FAILED;
    }
    if (request->adminCallType == 0) {
        request->adminHandle = getU32(body + 8);
        return 0;
    }
    request->exceptionFlag = body[8];
    if (request->exceptionFlag != 0) {
        TRACE(flowAdminRequest_exceptionFlag);
        return STAPI_RC_FLOW_ADMIN_FAILED;
    }
    return takePayload(body, request);
}

int flowAdmin(int socketDesc, AdminRequest* request, FlowReasons* reasons) {
    const std::size_t headerSize = HEADER_FIXED_SIZE + request->header.requestNameLength;
    const std::size_t size = headerSize + static_cast<std::size_t>(request->header.dataLength);
    const std::size_t written = headerSize + writeAdminBody(*request, nullptr);
    unsigned char* data = nullptr;
    if (size <= INT_MAX) {
        data = allocateMessage(size > written ? size : written);
    }
    TRACE(flowAdminRequest_allocatedMessage, static_cast<int>(size), data);
    if (data == nullptr) {
        TRACE(flowAdminRequest_messageNotAllocated, static_cast<int>(size));
        return STAPI_RC_NO_MEMORY;
    }
    writeHeader(&request->header, data);
    writeAdminBody(*request, data + headerSize);
    clearRest(data, written, size);
    int rc = flow(socketDesc, static_cast<int>(size), &data, request->header.requestName, &request->header, reasons);
    if (rc == 0) {
        rc = readAdminReply(data, request, reasons);
    }
    TRACE(flowAdminRequest_freeRequest, data);
    std::free(data);
    return rc;
}

}  // namespace

int flowAdminRequest(int socketDesc, AdminRequest* request, FlowReasons* reasons) {
    TRACE(flowAdminRequest_entry, socketDesc, request, reasons);
    const int rc = flowAdmin(socketDesc, request, reasons);
    TRACE(flowAdminRequest_exit, socketDesc, request, reasons, rc);
    return rc;
}
