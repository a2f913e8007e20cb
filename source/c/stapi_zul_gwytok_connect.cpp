// Creating and deleting gateway tokens, with the connections that they stand for.
#include "stapi_zul_gwytok.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwycon.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_shown.h"
#include "stapi_zul_statcomms.h"

#include <cstdlib>
#include <cstring>

#include "stapi_zul_gwytok_trace.h"

namespace {

// The caller holds gtlLock; parent is the token's predecessor, null for the head.
void unchain(const GatewayToken* token, GatewayToken* parent) {
    ++gtListGeneration;
    if (parent != nullptr) {
        storeShown(&parent->nextGwyTokPtr, token->nextGwyTokPtr);
        if (parent->nextGwyTokPtr == nullptr) {
            gtListTailPtr = parent;
        }
    } else {
        // Kept: the tail is left alone; it means nothing without a head.
        gtListHeadPtr = token->nextGwyTokPtr;
    }
}

// The caller holds gtlLock.
void destroy(GatewayToken** gwTokPtr, GatewayToken* parent) {
    GatewayToken* token = *gwTokPtr;
    if (retireUsed(token)) {
        unchain(token, parent);
        static_cast<void>(endUse(token));
        *gwTokPtr = nullptr;
        return;
    }
    storeShown(&token->connStatus, closeConnection(&token->socket) == 0 ? CONN_CLOSED : CONN_CLOSE_FAILED);
    const int deleteRc = deleteResultSet(&token->connRSToken);
    if (deleteRc != 0) {
        TRACE(deleteGatewayToken_resultSetNotDeleted, deleteRc);
    }
    if (token->resultSetBuf != nullptr) {
        TRACE(deleteGatewayToken_freeBuffer, token->resultSetBuf);
        std::free(token->resultSetBuf);
        token->resultSetBuf = nullptr;
    }
    if (token->protocolVersion != nullptr) {
        TRACE(deleteGatewayToken_freeVersion, token->protocolVersion);
        std::free(token->protocolVersion);
        token->protocolVersion = nullptr;
    }
    unchain(token, parent);
    TRACE(deleteGatewayToken_freeToken, gwTokPtr, token);
    std::free(token);
    *gwTokPtr = nullptr;
    // Kept: the line shows the token as null.
    TRACE(deleteGatewayToken_freedToken, gwTokPtr, *gwTokPtr);
}

// What a deletion begins with.
enum class From { LIST_HEAD, ADDRESS, USE };

int removeToken(GatewayToken** gwTokPtr, From from) {
    if (gwTokPtr == nullptr) {
        return STAPI_RC_NULL_GATEWAY_TOKEN_POINTER;
    }
    if (*gwTokPtr == nullptr) {
        return STAPI_RC_NULL_GATEWAY_TOKEN;
    }
    if (from == From::LIST_HEAD) {
        destroy(gwTokPtr, nullptr);
        return 0;
    }
    requestLock(&gtlLock);
    GatewayToken* parent = nullptr;
    int rc = STAPI_RC_GATEWAY_TOKEN_NOT_FOUND;
    if (from == From::USE && endUse(*gwTokPtr)) {
        rc = STAPI_RC_GATEWAY_CONNECTION_LOST;
    } else if (findGatewayToken(*gwTokPtr, &parent) == STAPI_FIND_FOUND) {
        destroy(gwTokPtr, parent);
        rc = 0;
    }
    releaseLock(&gtlLock);
    return rc;
}

int tracedRemove(GatewayToken** gwTokPtr, int lockRequired, From from) {
    TRACE(deleteGatewayToken_entry, gwTokPtr, lockRequired);
    const int rc = removeToken(gwTokPtr, from);
    TRACE(deleteGatewayToken_exit, gwTokPtr, lockRequired, rc);
    return rc;
}

// The caller holds gtlLock. Stores the number of tokens deleted.
int removeAll(int* count) {
    if (gtListHeadPtr == nullptr) {
        TRACE(deleteGatewayTokens_empty);
        return STAPI_GTL_EMPTY;
    }
    GatewayToken* current = gtListHeadPtr;
    while (current != nullptr && *count < GTL_RUNAWAY_LIMIT) {
        char text[FORMATTED_TOKEN_SIZE];
        formatGatewayToken(current, text);
        ++*count;
        TRACE(deleteGatewayTokens_deleting, current, *count, text);
        GatewayToken* next = current->nextGwyTokPtr;
        static_cast<void>(deleteGatewayToken(&current, 0));
        current = next;
    }
    if (*count == GTL_RUNAWAY_LIMIT) {
        TRACE(deleteGatewayTokens_runaway, *count);
        return STAPI_GTL_RUNAWAY;
    }
    return 0;
}

// The caller holds gtlLock.
int append(GatewayToken* token) {
    if (gtListHeadPtr == nullptr) {
        gtListHeadPtr = token;
    } else if (gtListTailPtr != nullptr) {
        storeShown(&gtListTailPtr->nextGwyTokPtr, token);
    } else {
        TRACE(chainGatewayToken_corrupt, gtListHeadPtr, gtListTailPtr);
        return STAPI_RC_GTL_CORRUPT;
    }
    gtListTailPtr = token;
    return 0;
}

// What a code of the TCP connection means to a caller of the library.
int foldConnectCode(int connectCode) {
    switch (connectCode) {
    case 0:
        return 0;
    case STAPI_RC_SOCKET_RESOLVE_FAILED:
        return STAPI_RC_HOST_NOT_RESOLVED;
    case STAPI_RC_SOCKET_CONNECT_TIMEOUT:
        return STAPI_RC_CONNECT_BAD_PARAMETER;
    case STAPI_RC_SOCKET_CONNECT_REFUSED:
        return STAPI_RC_CONNECTION_REFUSED;
    case STAPI_RC_SOCKET_NETWORK_UNREACHABLE:
        return STAPI_RC_NETWORK_UNREACHABLE;
    default:
        return STAPI_RC_CONNECT_FAILED;
    }
}

// A token with its buffers, neither chained nor connected.
int allocateToken(GatewayToken** newToken, int port) {
    constexpr int tokenSize = sizeof(GatewayToken);
    auto* token = static_cast<GatewayToken*>(std::calloc(1, sizeof(GatewayToken)));
    TRACE(createGatewayToken_allocatedToken, tokenSize, token);
    if (token == nullptr) {
        TRACE(createGatewayToken_tokenNotAllocated, tokenSize);
        return STAPI_RC_NO_MEMORY;
    }
    std::memcpy(token->eyecatcher, GATEWAY_TOKEN_EYECATCHER, sizeof token->eyecatcher);
    token->connStatus = CONN_CREATED;
    token->port = port;
    token->socket = -1;
    const int rc = createResultSet(&token->connRSToken, CONNECTION_OWNED_EYECATCHER, CONNECTION_OWNED);
    if (rc != 0) {
        // Kept: the token block stays allocated.
        TRACE(createGatewayToken_resultSetFailed, rc);
        return rc;
    }
    getPidTid(&token->owningPid, &token->owningTid);
    token->owningThread = pthread_self();
    token->protocolVersion = static_cast<char*>(std::calloc(PROTOCOL_VERSION_SIZE, 1));
    token->resultSetBuf = allocateResultSetBuffer();
    constexpr int bufferSize = RESULT_SET_BUFFER_SIZE;
    // Kept: the line shows the token, not the buffer.
    TRACE(createGatewayToken_allocatedBuffer, bufferSize, token);
    if (token->resultSetBuf == nullptr) {
        TRACE(createGatewayToken_bufferNotAllocated, bufferSize);
        releaseUnchainedToken(token);
        return STAPI_RC_NO_MEMORY;
    }
    addTerminator(token->resultSetBuf);
    token->connRSToken->head = token->resultSetBuf;
    *newToken = token;
    return 0;
}

// Connects a chained token and asks for the protocol version. The caller has begun a use of it.
int connectToken(GatewayToken* token, const char* hostname, int port) {
    const int rc = openStatsSocket(token, hostname, port);
    if (rc != 0) {
        return rc;
    }
    FlowReasons reasons{};
    const int versionRc = statProtocolVer(token, &reasons);
    if (versionRc != 0) {
        TRACE(createGatewayToken_removing, token, versionRc);
    }
    return foldExchangeCode(versionRc, reasons);
}

int create(GatewayToken** gwTokPtr, const char* hostname, int port, GatewayToken** created) {
    GatewayToken* token = nullptr;
    int rc = allocateToken(&token, port);
    if (rc != 0) {
        return rc;
    }
    token->users = 1;
    rc = chainGatewayToken(token);
    if (rc != 0) {
        releaseUnchainedToken(token);
        return rc;
    }
    rc = connectToken(token, hostname, port);
    if (rc != 0) {
        const int deleteRc = deleteUsedGatewayToken(&token);
        return deleteRc == STAPI_RC_GATEWAY_CONNECTION_LOST ? deleteRc : rc;
    }
    char text[FORMATTED_TOKEN_SIZE];
    formatGatewayToken(token, text);
    TRACE(createGatewayToken_created, gwTokPtr, text);
    *created = token;
    return 0;
}

}  // namespace

int deleteGatewayToken(GatewayToken** gwTokPtr, int lockRequired) {
    return tracedRemove(gwTokPtr, lockRequired, lockRequired == 1 ? From::ADDRESS : From::LIST_HEAD);
}

int deleteUsedGatewayToken(GatewayToken** gwTokPtr) {
    return tracedRemove(gwTokPtr, 1, From::USE);
}

int deleteGatewayTokens() {
    TRACE(deleteGatewayTokens_entry);
    requestLock(&gtlLock);
    int count = 0;
    const int rc = removeAll(&count);
    releaseLock(&gtlLock);
    TRACE(deleteGatewayTokens_exit, count, rc);
    return rc;
}

int chainGatewayToken(GatewayToken* token) {
    TRACE(chainGatewayToken_entry, token);
    int rc = STAPI_RC_NULL_GATEWAY_TOKEN_POINTER;
    if (token == nullptr) {
        TRACE(chainGatewayToken_nullToken);
    } else {
        requestLock(&gtlLock);
        rc = append(token);
        releaseLock(&gtlLock);
    }
    TRACE(chainGatewayToken_exit, token, rc);
    return rc;
}

int openStatsSocket(GatewayToken* token, const char* hostname, int port) {
    TRACE(openStatsSocket_entry, token, hostname, port);
    const auto unsignedPort = static_cast<std::uint32_t>(port);
    const int connectRc = connectToGateway(unsignedPort, hostname, &token->socket);
    // Kept: the lines show an empty host.
    if (connectRc == 0) {
        storeShown(&token->connStatus, CONN_CONNECTED);
        TRACE(openStatsSocket_connected, "", unsignedPort, loadShown(token->socket));
    } else {
        storeShown(&token->connStatus, CONN_CONNECT_FAILED);
        TRACE(openStatsSocket_connectFailed, "", unsignedPort);
    }
    const int rc = foldConnectCode(connectRc);
    TRACE(openStatsSocket_exit, token, hostname, port, rc);
    return rc;
}

int createGatewayToken(GatewayToken** gwTokPtr, const char* hostname, int port, GatewayToken** created) {
    TRACE(createGatewayToken_entry, gwTokPtr, port);
    const int rc = create(gwTokPtr, hostname, port, created);
    TRACE(createGatewayToken_exit, gwTokPtr, port, rc);
    return rc;
}
