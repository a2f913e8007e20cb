// Framed request/reply exchanges with the Gateway on a connected socket, and the requests that travel in them: the
// "BASE" handshake and close, the "Auth" steps and the "Admin" requests. Every exchange waits without limit for its
// reply. Knows descriptors and messages, no tokens.
#pragma once

#include <cstddef>
#include <cstdint>

// Codes of this layer.
inline constexpr int STAPI_RC_FLOW_COMMS_FAILED = -1;
inline constexpr int STAPI_RC_FLOW_AUTH_FAILED = -2;
inline constexpr int STAPI_RC_FLOW_ADMIN_FAILED = -3;
inline constexpr int STAPI_RC_FLOW_GATEWAY_ERROR = -4;

inline constexpr char MESSAGE_EYECATCHER[] = "Gate";
inline constexpr std::uint32_t MESSAGE_VERSION = 0x00700000;
inline constexpr char HANDSHAKE_REQUEST_NAME[] = "BASE";
inline constexpr char AUTH_REQUEST_NAME[] = "Auth";
inline constexpr char ADMIN_REQUEST_NAME[] = "Admin";

inline constexpr std::int32_t FLOW_HANDSHAKE = 5;
inline constexpr std::int32_t FLOW_CLOSE = 10;
inline constexpr std::int32_t FLOW_CALL = 1;

// A header takes this many bytes and its request name.
inline constexpr std::size_t HEADER_FIXED_SIZE = 29;
// Zeroed bytes behind every message block: words at fixed positions of a short reply read as zero.
inline constexpr std::size_t REPLY_SLACK = 20;

// Detail of a failed exchange. A flow sets only the field that belongs to the failure.
struct FlowReasons {
    std::int32_t errNum;   // errno of a failed send, or readFromSocket's value
    std::int32_t gwyRc;    // return code word of a reply header
    std::int32_t authRc;   // auth rc of an "Auth" reply
    std::int32_t adminRc;  // admin rc of an "Admin" reply
};

// A message header in memory; every request record begins with one. After an exchange it holds the reply's.
struct RequestHeader {
    char eyecatcher[4];  // no NUL
    std::uint32_t version;
    std::int32_t flowType;
    std::int32_t echoWord;
    std::int32_t returnCode;
    std::uint32_t requestNameLength;
    const char* requestName;  // not owned
    std::uint8_t flag;
    std::int32_t dataLength;  // of the body behind the header
};

struct AuthRequest {
    RequestHeader header;
    std::int32_t authCallType;  // request: 0 first step, 1 second; after a reply: its word 0
    std::int32_t authRc;
    std::uint32_t authData1;  // from the first reply, for the second step
    std::uint32_t authData2;
    std::uint32_t authData3;
    std::uint32_t authData4;
    std::uint32_t authResult1;
    std::uint32_t authResult2;
};

inline constexpr std::int32_t ADMIN_INIT = 0;
inline constexpr std::int32_t ADMIN_GET_ATTRIBUTE = 1;
inline constexpr std::int32_t ADMIN_INVOKE = 5;

// The texts are not owned; a null text is sent as the empty one.
struct AdminRequest {
    RequestHeader header;
    std::int32_t adminCallType;  // request: ADMIN_...; after a reply: its word 0
    std::int32_t adminRc;
    std::uint32_t adminHandle;  // from the init reply, sent in every call
    std::uint32_t callLength;   // body bytes after the first three words
    const char* country;
    const char* language;
    const char* domainPrefix;
    const char* objectName;
    const char* attributeName;
    const char* actionName;
    const char* queryString;
    const char* signature;
    std::uint8_t exceptionFlag;
    unsigned char* replyData;  // heap block of a successful call; header.dataLength bytes and REPLY_SLACK; the caller's
};

// The header fields with which a conversation begins.
[[nodiscard]] RequestHeader newRequestHeader(const char* requestName, std::int32_t flowType, std::int32_t dataLength);

// ---- framing ------------------------------------------------------------------------------------------------------

// Writes HEADER_FIXED_SIZE + requestNameLength bytes.
void writeHeader(const RequestHeader* req, unsigned char* data);

// Decodes the header at data, of which `size` bytes are there; false when its request name reaches beyond them, the
// fields behind the name are then unchanged. requestName is never changed.
[[nodiscard]] bool populateHeader(const unsigned char* data, RequestHeader* req, std::size_t size = SIZE_MAX);

// A block for a message of `size` bytes, which is about to be written, with REPLY_SLACK zeroed bytes behind; null when
// there is no memory. Released with free().
[[nodiscard]] unsigned char* allocateMessage(std::size_t size);

// Zeroes what has not been written of such a block.
void clearRest(unsigned char* message, std::size_t written, std::size_t size);

// Reads dataSize bytes: 0, or an errno value, or -1 when the peer closed before sending any. *received, unless null, is
// how many have come.
[[nodiscard]] int readFromSocket(int socketDesc, int dataSize, unsigned char* dataBuf, int* received = nullptr);

// Sends the request at *data and reads the reply: its header into `header`, its body into a new block at *data. A reply
// without a body leaves the request there. 0, STAPI_RC_FLOW_COMMS_FAILED, STAPI_RC_FLOW_GATEWAY_ERROR or
// STAPI_RC_NO_MEMORY. The caller owns *data before and after; it may be null after a failure.
[[nodiscard]] int flow(int socketDesc, int datalen, unsigned char** data, const char* requestName,
                       RequestHeader* header, FlowReasons* reasons);

// ---- flows --------------------------------------------------------------------------------------------------------

// Each returns a code of flow, or STAPI_RC_NO_MEMORY without an exchange.
[[nodiscard]] int flowHandshakeRequest(int socketDesc, FlowReasons* reasons);
[[nodiscard]] int flowCloseRequest(int socketDesc, FlowReasons* reasons);

// One step of the authorisation: also STAPI_RC_FLOW_AUTH_FAILED.
[[nodiscard]] int flowAuthRequest(int socketDesc, AuthRequest* request, FlowReasons* reasons);

// One admin exchange: also STAPI_RC_FLOW_ADMIN_FAILED. After a call replyData is the payload; after an init exchange
// adminHandle is set.
[[nodiscard]] int flowAdminRequest(int socketDesc, AdminRequest* request, FlowReasons* reasons);
