// Admin requests for statistics and the exchanges that they make.
#include "stapi_zul_statcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_shown.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_statcomms_trace.h"

namespace {

// The reply data of the version attribute: the text's length at byte 6, the text behind it.
constexpr int VERSION_LENGTH_AT = 6;
constexpr int VERSION_TEXT_AT = 8;

int initAdmin(std::int32_t socketDesc, AdminRequest* admin, FlowReasons* reasons) {
    admin->header = newRequestHeader(ADMIN_REQUEST_NAME, FLOW_CALL, 4);
    admin->adminCallType = ADMIN_INIT;
    admin->replyData = nullptr;
    return flowAdminRequest(socketDesc, admin, reasons);
}

// Turns the record that an init exchange left into a call: what is not set here is the init reply's.
void prepareCall(AdminRequest* admin, std::int32_t adminCallType) {
    admin->header.flowType = FLOW_CALL;
    admin->header.requestName = ADMIN_REQUEST_NAME;
    admin->header.returnCode = 0;
    admin->adminCallType = adminCallType;
    admin->adminRc = 0;
    admin->language = ADMIN_CLIENT_LANGUAGE;
    admin->country = ADMIN_CLIENT_COUNTRY;
    admin->domainPrefix = "";
    admin->objectName = STATS_MBEAN_NAME;
    std::free(admin->replyData);  // of an init reply that brought some
    admin->replyData = nullptr;
}

void setCallLength(AdminRequest* admin, std::uint32_t callLength) {
    admin->callLength = callLength;
    admin->header.dataLength = static_cast<std::int32_t>(callLength + 12);
}

// A text in a call is a 2-byte length and its characters.
std::size_t textSize(const char* text) {
    return (text == nullptr ? 0 : std::strlen(text)) + 2;
}

std::size_t commonCallSize(const AdminRequest& admin) {
    return textSize(admin.country) + textSize(admin.language) + textSize(admin.domainPrefix) +
           textSize(admin.objectName);
}

// Copies the version text into the token's buffer: no more bytes than announced, and none beyond the reply.
int storeVersion(const AdminRequest& admin, GatewayToken* gatewayToken) {
    const int announced = static_cast<std::int16_t>(getU16(admin.replyData + VERSION_LENGTH_AT));
    const int length = announced > 0 ? announced : 0;
    const int size = length + 1;
    if (gatewayToken->protocolVersion != nullptr && static_cast<std::size_t>(size) > PROTOCOL_VERSION_SIZE) {
        char* larger = static_cast<char*>(std::calloc(static_cast<std::size_t>(size), 1));
        std::free(gatewayToken->protocolVersion);
        gatewayToken->protocolVersion = larger;
    }
    TRACE(statProtocolVer_versionBuffer, size, gatewayToken->protocolVersion);
    if (gatewayToken->protocolVersion == nullptr) {
        TRACE(statProtocolVer_noVersionBuffer, size);
        return STAPI_RC_NO_MEMORY;
    }
    const int present = admin.header.dataLength > VERSION_TEXT_AT ? admin.header.dataLength - VERSION_TEXT_AT : 0;
    const auto copied = static_cast<std::size_t>(length < present ? length : present);
    std::memcpy(gatewayToken->protocolVersion, admin.replyData + VERSION_TEXT_AT, copied);
    gatewayToken->protocolVersion[copied] = '\0';
    return 0;
}

int readVersion(GatewayToken* gatewayToken, FlowReasons* reasons) {
    const std::int32_t socketDesc = loadShown(gatewayToken->socket);
    AdminRequest admin{};
    int rc = getInitAdminRequest(socketDesc, &admin, reasons);
    if (rc != 0) {
        return rc;
    }
    TRACE(statProtocolVer_initialized);
    prepareCall(&admin, ADMIN_GET_ATTRIBUTE);
    admin.attributeName = STATS_MBEAN_PROTOCOL_VERSION;
    setCallLength(&admin, calculateGetAttrCallLength(admin));
    rc = flowAdminRequest(socketDesc, &admin, reasons);
    if (rc != 0) {
        return rc;
    }
    if (admin.replyData == nullptr) {
        return STAPI_RC_NULL_PARAMETER;  // answered like an init: there is no version
    }
    TRACE(statProtocolVer_gotVersion);
    rc = storeVersion(admin, gatewayToken);
    std::free(admin.replyData);
    return rc;
}

int invoke(std::int32_t socketDesc, const char* queryType, const char* queryString, char* buffer, AdminRequest* admin,
           FlowReasons* reasons) {
    int rc = getInitAdminRequest(socketDesc, admin, reasons);
    if (rc != 0) {
        return rc;
    }
    TRACE(statCommsString_initialized);
    prepareCall(admin, ADMIN_INVOKE);
    admin->actionName = queryType;
    admin->queryString = queryString;
    admin->signature = STATS_MBEAN_SIG;
    setCallLength(admin, calculateCallLength(*admin));
    rc = flowAdminRequest(socketDesc, admin, reasons);
    if (rc != 0) {
        return rc;
    }
    if (admin->replyData == nullptr) {
        return STAPI_RC_NULL_PARAMETER;  // answered like an init: there is nothing to parse
    }
    TRACE_DUMP(statCommsString_replyData, admin->replyData, admin->header.dataLength);
    const auto size = static_cast<std::size_t>(admin->header.dataLength);
    if (std::strcmp(queryType, STATS_MBEAN_ACTION_GET_STATS) == 0) {
        TRACE(statCommsString_calledForStats);
        rc = parseStatsData(admin->replyData, buffer, size, RESULT_SET_BUFFER_SIZE);
    } else {
        TRACE(statCommsString_calledForIds);
        rc = parseIdsData(admin->replyData, buffer, size, RESULT_SET_BUFFER_SIZE);
    }
    return rc == STAPI_RC_FLOW_CONTENT_TOO_LARGE ? rc : 0;
}

}  // namespace

int foldExchangeCode(int exchangeCode, const FlowReasons& reasons) {
    switch (exchangeCode) {
    case 0:
        return 0;
    case STAPI_RC_FLOW_COMMS_FAILED:
        return STAPI_RC_GATEWAY_CONNECTION_LOST;
    case STAPI_RC_FLOW_GATEWAY_ERROR:
        return reasons.gwyRc == GATEWAY_RC_CONNECTION_LOST ? STAPI_RC_GATEWAY_CONNECTION_LOST
                                                           : STAPI_RC_GATEWAY_REQUEST_FAILED;
    default:
        return STAPI_RC_GATEWAY_REQUEST_FAILED;
    }
}

int getInitAdminRequest(std::int32_t socketDesc, AdminRequest* admin, FlowReasons* reasons) {
    TRACE(getInitAdminRequest_entry, socketDesc, admin, reasons);
    const int rc = initAdmin(socketDesc, admin, reasons);
    TRACE(getInitAdminRequest_exit, socketDesc, admin, reasons, rc);
    return rc;
}

std::uint32_t calculateGetAttrCallLength(const AdminRequest& admin) {
    TRACE(calculateGetAttrCallLength_entry);
    const auto size = static_cast<std::uint32_t>(commonCallSize(admin) + textSize(admin.attributeName));
    TRACE(calculateGetAttrCallLength_exit, static_cast<int>(size));
    return size;
}

std::uint32_t calculateCallLength(const AdminRequest& admin) {
    TRACE(calculateCallLength_entry);
    constexpr std::size_t queryFraming = 9;      // array size and string header of the query string
    constexpr std::size_t signatureFraming = 4;  // array size of the signature
    const auto size =
        static_cast<std::uint32_t>(commonCallSize(admin) + textSize(admin.actionName) + textSize(admin.queryString) +
                                   queryFraming + textSize(admin.signature) + signatureFraming);
    TRACE(calculateCallLength_exit, static_cast<int>(size));
    return size;
}

int statProtocolVer(GatewayToken* gatewayToken, FlowReasons* reasons) {
    TRACE(statProtocolVer_entry, gatewayToken);
    const int rc = readVersion(gatewayToken, reasons);
    TRACE(statProtocolVer_exit, gatewayToken, rc);
    return rc;
}

int statCommsString(std::int32_t socketDesc, const char* queryType, const char* queryString, char* buffer,
                    FlowReasons* reasons) {
    TRACE(statCommsString_entry, socketDesc, queryType, queryString, buffer, reasons);
    AdminRequest admin{};
    const int rc = invoke(socketDesc, queryType, queryString, buffer, &admin, reasons);
    if (admin.replyData != nullptr) {
        TRACE(statCommsString_freeReplyData, admin.replyData);
        std::free(admin.replyData);
    }
    TRACE(statCommsString_exit, socketDesc, queryType, queryString, buffer, reasons, rc);
    return rc;
}

int statComms(std::int32_t socketDesc, const char* queryType, char* buffer, FlowReasons* reasons) {
    TRACE(statComms_entry, socketDesc, queryType, buffer, reasons);
    const int rc = statCommsString(socketDesc, queryType, "", buffer, reasons);
    TRACE(statComms_exit, socketDesc, queryType, buffer, reasons, rc);
    return rc;
}
