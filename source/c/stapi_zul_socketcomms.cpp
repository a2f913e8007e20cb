// Message headers and the exchange of one request for one reply.
#include "stapi_zul_socketcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_sigpipe.h"
#include "stapi_zul_wait.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "stapi_zul_socketcomms_trace.h"

namespace {

// No reply that fits a result set is nearly as large; a longer one is not worth the storage that it announces.
constexpr int BODY_MAX = 512 << 20;

// Blocks from this size on come zeroed from the system. Smaller ones are quicker to have as they are.
constexpr std::size_t ZEROED_BLOCK_SIZE = 64 << 10;

int sendRequest(int socketDesc, const unsigned char* data, int datalen, FlowReasons* reasons) {
    TRACE_DUMP(flow_request, data, datalen);
    ignoreSigpipe();
    // Kept: one send; a partial one counts as complete.
    const ssize_t sent = send(socketDesc, data, static_cast<std::size_t>(datalen), 0);
    const int sendErrno = errno;
    restoreSigpipe();
    if (sent > 0) {
        return 0;
    }
    TRACE(flow_sendFailed, static_cast<int>(sent));
    reasons->errNum = sendErrno;
    TRACE(flow_sendErrno, reasons->errNum);
    return STAPI_RC_FLOW_COMMS_FAILED;
}

// Waits without limit: 0 or STAPI_RC_FLOW_COMMS_FAILED.
int waitForReply(int socketDesc) {
    // Kept: a signal ends the wait and with it the exchange.
    return waitForDescriptor(socketDesc, WaitFor::READABLE, NO_TIME_LIMIT, nullptr) < 0 ? STAPI_RC_FLOW_COMMS_FAILED
                                                                                        : 0;
}

int receive(int socketDesc, int dataSize, unsigned char* dataBuf, FlowReasons* reasons) {
    int received = 0;
    const int error = readFromSocket(socketDesc, dataSize, dataBuf, &received);
    clearRest(dataBuf, static_cast<std::size_t>(received), static_cast<std::size_t>(dataSize));
    if (error != 0) {
        reasons->errNum = error;
        return STAPI_RC_FLOW_COMMS_FAILED;
    }
    return 0;
}

// Reads the reply header, whose name is taken to be as long as the request's.
int receiveHeader(int socketDesc, const char* requestName, RequestHeader* header, FlowReasons* reasons) {
    const std::size_t nameLength = std::strlen(requestName);
    const std::size_t headerSize = nameLength + HEADER_FIXED_SIZE;
    const int size = static_cast<int>(headerSize);
    unsigned char* headerData = allocateMessage(headerSize);
    TRACE(flow_allocatedHeader, size, headerData);
    if (headerData == nullptr) {
        TRACE(flow_headerNotAllocated, size);
        return STAPI_RC_NO_MEMORY;
    }
    const int rc = receive(socketDesc, size, headerData, reasons);
    if (rc != 0) {
        std::free(headerData);
        return rc;
    }
    const bool decoded = populateHeader(headerData, header, headerSize);
    TRACE(flow_freeHeader, headerData);
    std::free(headerData);
    if (!decoded) {
        TRACE(flow_badHeader, header->requestNameLength, static_cast<int>(nameLength));
        reasons->errNum = EPROTO;
        return STAPI_RC_FLOW_COMMS_FAILED;
    }
    return 0;
}

// Puts a block with the reply body in place of the request.
int receiveBody(int socketDesc, int bodySize, unsigned char** data, FlowReasons* reasons) {
    TRACE(flow_freeCallData, *data);
    std::free(*data);
    *data = nullptr;
    TRACE(flow_callDataCleared, data);
    if (bodySize <= BODY_MAX) {
        *data = allocateMessage(static_cast<std::size_t>(bodySize));
    }
    TRACE(flow_allocatedBody, bodySize, *data);
    if (*data == nullptr) {
        TRACE(flow_bodyNotAllocated, bodySize);
        return STAPI_RC_NO_MEMORY;
    }
    return receive(socketDesc, bodySize, *data, reasons);
}

int exchange(int socketDesc, int datalen, unsigned char** data, const char* requestName, RequestHeader* header,
             FlowReasons* reasons) {
    int rc = sendRequest(socketDesc, *data, datalen, reasons);
    if (rc == 0) {
        rc = waitForReply(socketDesc);
    }
    if (rc == 0) {
        rc = receiveHeader(socketDesc, requestName, header, reasons);
    }
    if (rc != 0) {
        return rc;
    }
    if (header->dataLength > 0) {
        rc = receiveBody(socketDesc, header->dataLength, data, reasons);
        if (rc != 0) {
            return rc;
        }
    } else {
        // Kept: the caller reads its own request as if it were the reply body.
        TRACE(flow_noBody, *data);
    }
    if (header->returnCode != 0) {
        reasons->gwyRc = header->returnCode;
        return STAPI_RC_FLOW_GATEWAY_ERROR;
    }
    TRACE(flow_exchanged, socketDesc);
    return 0;
}

int readAll(int socketDesc, int dataSize, unsigned char* dataBuf, int* received) {
    ssize_t readData = recv(socketDesc, dataBuf, static_cast<std::size_t>(dataSize), 0);
    int error = errno;
    TRACE(readFromSocket_firstRecv, socketDesc, dataSize, dataBuf, static_cast<int>(readData));
    if (readData < 0) {
        TRACE(readFromSocket_firstRecvFailed, error);
        return error;
    }
    if (readData == 0) {
        return -1;
    }
    int result = 0;
    int& total = *received;
    total = static_cast<int>(readData);
    while (total < dataSize) {
        readData = recv(socketDesc, dataBuf + total, static_cast<std::size_t>(dataSize - total), 0);
        error = errno;
        TRACE(readFromSocket_nextRecv, socketDesc, dataSize, dataBuf, static_cast<int>(readData), total);
        if (readData <= 0) {
            // Kept: a peer that closes inside a message sets no errno, so what errno held before is the result, 0
            // included, which makes a short read a success.
            result = error;
            TRACE(readFromSocket_nextRecvFailed, result);
            break;
        }
        total += static_cast<int>(readData);
    }
    TRACE_DUMP(readFromSocket_received, dataBuf, total);
    return result;
}

}  // namespace

RequestHeader newRequestHeader(const char* requestName, std::int32_t flowType, std::int32_t dataLength) {
    RequestHeader header{};
    std::memcpy(header.eyecatcher, MESSAGE_EYECATCHER, sizeof header.eyecatcher);
    header.version = MESSAGE_VERSION;
    header.flowType = flowType;
    header.requestNameLength = static_cast<std::uint32_t>(std::strlen(requestName));
    header.requestName = requestName;
    header.dataLength = dataLength;
    return header;
}

void writeHeader(const RequestHeader* req, unsigned char* data) {
    TRACE(writeHeader_entry, req, data);
    std::memcpy(data, req->eyecatcher, sizeof req->eyecatcher);
    putU32(data + 4, req->version);
    putI32(data + 8, req->flowType);
    // Kept: the two words change places between writing and reading; that is how a follow-up request made from the same
    // record carries the reply's word 12 back at 16.
    putI32(data + 12, req->returnCode);
    putI32(data + 16, req->echoWord);
    putU32(data + 20, req->requestNameLength);
    std::memcpy(data + 24, req->requestName, req->requestNameLength);
    unsigned char* behindName = data + 24 + req->requestNameLength;
    putU8(behindName, req->flag);
    putI32(behindName + 1, req->dataLength);
    TRACE(writeHeader_exit, req, data);
}

bool populateHeader(const unsigned char* data, RequestHeader* req, std::size_t size) {
    TRACE(populateHeader_entry, data, req);
    std::memcpy(req->eyecatcher, data, sizeof req->eyecatcher);
    req->version = getU32(data + 4);
    req->flowType = getI32(data + 8);
    req->echoWord = getI32(data + 12);
    req->returnCode = getI32(data + 16);
    req->requestNameLength = getU32(data + 20);
    const bool fits = req->requestNameLength <= size - HEADER_FIXED_SIZE;
    if (fits) {
        const unsigned char* behindName = data + 24 + req->requestNameLength;
        req->flag = *behindName;
        req->dataLength = getI32(behindName + 1);
    }
    TRACE(populateHeader_exit, data, req);
    return fits;
}

unsigned char* allocateMessage(std::size_t size) {
    if (size >= ZEROED_BLOCK_SIZE) {
        return static_cast<unsigned char*>(std::calloc(size + REPLY_SLACK, 1));
    }
    auto* message = static_cast<unsigned char*>(std::malloc(size + REPLY_SLACK));
    if (message != nullptr) {
        std::memset(message + size, 0, REPLY_SLACK);
    }
    return message;
}

void clearRest(unsigned char* message, std::size_t written, std::size_t size) {
    if (written < size && size < ZEROED_BLOCK_SIZE) {
        std::memset(message + written, 0, size - written);
    }
}

int readFromSocket(int socketDesc, int dataSize, unsigned char* dataBuf, int* received) {
    TRACE(readFromSocket_entry, socketDesc, dataSize, dataBuf);
    int ignored = 0;
    const int result = readAll(socketDesc, dataSize, dataBuf, received == nullptr ? &ignored : received);
    TRACE(readFromSocket_exit, socketDesc, dataSize, dataBuf, result);
    return result;
}

int flow(int socketDesc, int datalen, unsigned char** data, const char* requestName, RequestHeader* header,
         FlowReasons* reasons) {
    TRACE(flow_entry, socketDesc, datalen, data, requestName, header, reasons);
    if (datalen <= 0 || data == nullptr || *data == nullptr) {
        // Kept: no exit line follows.
        TRACE(flow_noData);
        return STAPI_RC_FLOW_COMMS_FAILED;
    }
    const int rc = exchange(socketDesc, datalen, data, requestName, header, reasons);
    TRACE(flow_exit, socketDesc, datalen, *data, requestName, header, reasons, rc);
    return rc;
}
