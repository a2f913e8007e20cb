// The exported calls that open and close connections.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"

#include <cstdlib>

#include "stapi_zul_impl_trace.h"

namespace {

constexpr char LOCAL_GATEWAY_HOST[] = "127.0.0.1";
constexpr int PORT_MAX = 65535;

// What an open call hands out as version text.
struct VersionCopy {
    char* text;    // owned until it is handed out; null where there is none
    bool refused;  // the text is too long: the application's variable keeps what it holds
};

VersionCopy copyVersion(const GatewayToken* token, char* const* protoColVersion) {
    VersionCopy copy = {nullptr, false};
    if (token->protocolVersion == nullptr) {
        TRACE(openRemoteGatewayConnection_nullVersion, token);
        return copy;
    }
    // Kept: the connection stays open even if there is no copy.
    const int rc = copyNativeString(token->protocolVersion, &copy.text, protoColVersion);
    copy.refused = rc == TEXT_COPY_REFUSED;
    TRACE(openRemoteGatewayConnection_versionCopied, protoColVersion, copy.refused ? *protoColVersion : copy.text);
    return copy;
}

int openGateway(const char* hostname, int port, GatewayToken** gwTokPtr, char** protoColVersion) {
    if (port < 1 || port > PORT_MAX) {
        return STAPI_RC_INVALID_PORT;
    }
    if (gwTokPtr == nullptr) {
        return STAPI_RC_NULL_GATEWAY_TOKEN_POINTER;
    }
    if (protoColVersion == nullptr) {
        return STAPI_RC_NULL_VERSION_POINTER;
    }
    GatewayToken* token = nullptr;
    const int rc = createGatewayToken(gwTokPtr, hostname, port, &token);
    if (rc != 0) {
        return rc;
    }
    const VersionCopy version = copyVersion(token, protoColVersion);
    if (endUse(token)) {
        std::free(version.text);
        return STAPI_RC_GATEWAY_CONNECTION_LOST;  // another thread has closed the connection
    }
    if (!version.refused) {
        *protoColVersion = version.text;
    }
    *gwTokPtr = token;
    return 0;
}

int closeGateway(GatewayToken** gwTokPtr) {
    if (gwTokPtr == nullptr) {
        TRACE(closeGatewayConnection_nullToken, gwTokPtr);
        return STAPI_RC_NULL_GATEWAY_TOKEN;
    }
    const GatewayToken* token = *gwTokPtr;
    const void* closed = addressOnly(token);
    const int rc = deleteGatewayToken(gwTokPtr, 1);
    // Kept: written whatever the result.
    TRACE(closeGatewayConnection_closed, closed);
    return rc;
}

}  // namespace

int openGatewayConnection(int port, GatewayToken** gwTokPtr, char** protoColVersion) {
    static_cast<void>(stapiInit());  // for the entry line; a failure shows in the call below
    TRACE(openGatewayConnection_entry, port, gwTokPtr, protoColVersion);
    const int rc = openRemoteGatewayConnection(LOCAL_GATEWAY_HOST, port, gwTokPtr, protoColVersion);
    TRACE(openGatewayConnection_exit, port, rc);
    return rc;
}

int openRemoteGatewayConnection(const char* hostname, int port, GatewayToken** gwTokPtr, char** protoColVersion) {
    int rc = stapiInit();
    TRACE(openRemoteGatewayConnection_entry, hostname, port, gwTokPtr, protoColVersion);
    if (rc == 0) {
        rc = openGateway(hostname, port, gwTokPtr, protoColVersion);
    }
    TRACE(openRemoteGatewayConnection_exit, port, rc);
    return rc;
}

int closeGatewayConnection(GatewayToken** gwTokPtr) {
    int rc = stapiInit();
    TRACE(closeGatewayConnection_entry, gwTokPtr);
    if (rc == 0) {
        rc = closeGateway(gwTokPtr);
    }
    TRACE(closeGatewayConnection_exit, gwTokPtr, rc);
    return rc;
}

int closeAllGatewayConnections() {
    int rc = stapiInit();
    int gwyTokRc = 0;
    TRACE(closeAllGatewayConnections_entry);
    if (rc == 0) {
        gwyTokRc = deleteGatewayTokens();
        rc = gwyTokRc == STAPI_GTL_RUNAWAY ? STAPI_RC_GTL_CORRUPT : 0;
        TRACE(closeAllGatewayConnections_closed);
    }
    TRACE(closeAllGatewayConnections_exit, gwyTokRc, rc);
    return rc;
}
