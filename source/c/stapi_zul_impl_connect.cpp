// The exported calls that open and close connections, and the copies of texts that the library takes and hands out.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_impl_trace.h"

namespace {

constexpr char LOCAL_GATEWAY_HOST[] = "127.0.0.1";
constexpr int PORT_MAX = 65535;

// What sets the two copy routines apart.
struct TextCopier {
    const TracePoint<const void*, const void*>& entry;
    const TracePoint<int, const void*>& allocated;
    void (*traceCopying)(const char* block, int size);
    const TracePoint<int>& notAllocated;
    const TracePoint<>& refused;
    const TracePoint<int, int>& exit;
};

int copyText(const TextCopier& copier, const char* dataPtr, char** outputPtr, std::size_t size) {
    if (dataPtr == nullptr || size > TEXT_COPY_MAX || outputPtr == nullptr) {
        TRACE(copier.refused);
        return TEXT_COPY_REFUSED;
    }
    *outputPtr = static_cast<char*>(std::malloc(size));
    TRACE(copier.allocated, static_cast<int>(size), *outputPtr);
    if (*outputPtr == nullptr) {
        TRACE(copier.notAllocated, static_cast<int>(size));
        return TEXT_COPY_NO_MEMORY;
    }
    copier.traceCopying(*outputPtr, static_cast<int>(size));
    std::memcpy(*outputPtr, dataPtr, size);
    return 0;
}

// shownPtr is where the line says that the copy goes.
int tracedCopyText(const TextCopier& copier, const char* dataPtr, char** outputPtr, const void* shownPtr) {
    TRACE(copier.entry, dataPtr, shownPtr);
    const std::size_t size = dataPtr == nullptr ? 0 : std::strlen(dataPtr) + 1;
    const int rc = copyText(copier, dataPtr, outputPtr, size);
    TRACE(copier.exit, static_cast<int>(size), rc);
    return rc;
}

constexpr TextCopier NATIVE_COPIER = {dup2NativeString_entry,
                                      dup2NativeString_allocated,
                                      [](const char* /*block*/, int size) { TRACE(dup2NativeString_copying, size); },
                                      dup2NativeString_notAllocated,
                                      dup2NativeString_overlength,
                                      dup2NativeString_exit};

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
    const int rc = tracedCopyText(NATIVE_COPIER, token->protocolVersion, &copy.text, protoColVersion);
    copy.refused = rc == TEXT_COPY_REFUSED;
    TRACE(openRemoteGatewayConnection_versionCopied, protoColVersion, copy.refused ? *protoColVersion : copy.text);
    return copy;
}

int open(const char* hostname, int port, GatewayToken** gwTokPtr, char** protoColVersion) {
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

int close(GatewayToken** gwTokPtr) {
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

int dup2ASCIIString(const char* dataPtr, char** outputPtr) {
    static constexpr TextCopier COPIER = {
        dup2ASCIIString_entry,
        dup2ASCIIString_allocated,
        [](const char* block, int size) { TRACE(dup2ASCIIString_copying, block, size); },
        dup2ASCIIString_notAllocated,
        dup2ASCIIString_overlength,
        dup2ASCIIString_exit};
    return tracedCopyText(COPIER, dataPtr, outputPtr, outputPtr);
}

int dup2NativeString(const char* dataPtr, char** outputPtr) {
    return tracedCopyText(NATIVE_COPIER, dataPtr, outputPtr, outputPtr);
}

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
        rc = open(hostname, port, gwTokPtr, protoColVersion);
    }
    TRACE(openRemoteGatewayConnection_exit, port, rc);
    return rc;
}

int closeGatewayConnection(GatewayToken** gwTokPtr) {
    int rc = stapiInit();
    TRACE(closeGatewayConnection_entry, gwTokPtr);
    if (rc == 0) {
        rc = close(gwTokPtr);
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
