#include "stapi_zul_gwytok.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_shown.h"

#include <cstdio>
#include <cstring>

#include "stapi_zul_gwytok_trace.h"

constinit StapiLock gtlLock = {};
GatewayToken* gtListHeadPtr;
GatewayToken* gtListTailPtr;

std::uint32_t gtListGeneration = 1;

namespace {

// Look-ups walk this many entries of the list before they ask where the token was found last.
constexpr int SHORT_WALK = 8;

// Where the walks have met tokens: a hash table with room for twice as many as the list may hold. An entry is empty
// unless it is of the list's present generation. Guarded by gtlLock.
struct Position {
    const GatewayToken* token;
    GatewayToken* parent;
    int count;
    std::uint32_t generation;
};
constexpr std::size_t POSITIONS = 512;
static_assert(POSITIONS >= 2 * GTL_RUNAWAY_LIMIT);
Position positions[POSITIONS];

// The token's entry, or the empty one that is to become it.
Position* positionOf(const GatewayToken* token) {
    constexpr std::uint64_t SPREAD = 0x9E3779B97F4A7C15;
    std::size_t at = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(token) * SPREAD >> 32) % POSITIONS;
    while (positions[at].generation == gtListGeneration && positions[at].token != token) {
        at = (at + 1) % POSITIONS;
    }
    return &positions[at];
}

int find(const GatewayToken* target, GatewayToken** parent) {
    if (target == nullptr) {
        TRACE(findGatewayToken_nullTarget);
        return STAPI_FIND_NULL_TARGET;
    }
    GatewayToken* current = gtListHeadPtr;
    if (current == nullptr) {
        // Kept: an empty list is reported as corrupt.
        TRACE(findGatewayToken_corrupt, gtListHeadPtr, gtListTailPtr);
        return STAPI_FIND_GTL_EMPTY;
    }
    if (current == target) {
        if (parent != nullptr) {
            *parent = nullptr;
        }
        TRACE(findGatewayToken_found, 0);
        return STAPI_FIND_FOUND;
    }
    int count = 0;
    while (current->nextGwyTokPtr != nullptr && count < GTL_RUNAWAY_LIMIT) {
        if (count == SHORT_WALK) {
            const Position* position = positionOf(target);
            if (position->generation == gtListGeneration) {
                current = position->parent;
                count = position->count;
            }
        }
        if (count >= SHORT_WALK) {
            *positionOf(current->nextGwyTokPtr) = {current->nextGwyTokPtr, current, count, gtListGeneration};
        }
        if (current->nextGwyTokPtr == target) {
            if (parent != nullptr) {
                *parent = current;
            }
            TRACE(findGatewayToken_found, count);
            return STAPI_FIND_FOUND;
        }
        current = current->nextGwyTokPtr;
        ++count;
    }
    if (count == GTL_RUNAWAY_LIMIT) {
        TRACE(findGatewayToken_runaway, count);
        return STAPI_GTL_RUNAWAY;
    }
    TRACE(findGatewayToken_notFound, count, gtListHeadPtr, current);
    return STAPI_FIND_NOT_FOUND;
}

// What a dump shows of one result set; guarded by gtlLock.
ContentCopy shownContent;

// The caller holds gtlLock and traceLock: no trace line may be written here. Returns the number of entries written.
int dumpList() {
    writeTraceText("Gateway Token List dump\n");
    writeTraceRule();
    if (gtListHeadPtr == nullptr) {
        writeTraceText("The Gateway Token List is EMPTY\n");
        writeTraceRule();
    }
    int count = 0;
    const GatewayToken* token = gtListHeadPtr;
    while (token != nullptr && count < GTL_RUNAWAY_LIMIT) {
        char text[FORMATTED_TOKEN_SIZE];
        formatGatewayToken(token, text);
        ++count;
        writeTraceText("Gateway Token List entry -%4.4d- : %s\n", count, text);
        if (token->connRSToken != nullptr) {
            copyContent(token->connRSToken, &shownContent);
            dumpResultSetContent(token->connRSToken, shownContent);
            writeTraceRule();
        }
        token = token->nextGwyTokPtr;
    }
    writeTraceText("Total number of Gateway Token List entries=%d\n", count);
    writeTraceRule();
    return count;
}

int listResult(int count) {
    switch (count) {
    case 0:
        return STAPI_GTL_EMPTY;
    case GTL_RUNAWAY_LIMIT:
        return STAPI_GTL_RUNAWAY;
    default:
        return 0;
    }
}

}  // namespace

int initGTL() {
    TRACE(initGTL_entry);
    const int initLockRc = initializeLock(&gtlLock);
    // Kept: the line's rc is not the one returned.
    TRACE(initGTL_exit, initLockRc, initLockRc == 0 || initLockRc == 1 ? 0 : STAPI_RC_TRACE_INIT_FAILED);
    return initLockRc;
}

int findGatewayToken(const GatewayToken* target, GatewayToken** parent) {
    TRACE(findGatewayToken_entry, target, parent);
    const int rc = find(target, parent);
    TRACE(findGatewayToken_exit, target, parent, rc);
    return rc;
}

int formatGatewayToken(const GatewayToken* token, char* dst) {
    if (dst == nullptr) {
        return STAPI_RC_NULL_PARAMETER;
    }
    if (token == nullptr) {
        std::strcpy(dst, "GatwayToken(NULL)");
        return 0;
    }
    std::snprintf(dst, FORMATTED_TOKEN_SIZE,
                  "GatwayToken(%p) eyecatcher(%8.8s) port(%d) connStatus(%d) socket(%d) connRSToken(%p) "
                  "resultSetBuf(%p) owningPid(%8.8X) owningTid(%8.8X) nextGwyTokPtr(%p)",
                  static_cast<const void*>(token), token->eyecatcher, token->port, loadShown(token->connStatus),
                  loadShown(token->socket), static_cast<const void*>(token->connRSToken),
                  static_cast<const void*>(token->resultSetBuf), token->owningPid, token->owningTid,
                  static_cast<const void*>(loadShown(token->nextGwyTokPtr)));
    return 0;
}

int dumpGatewayTokens() {
    TRACE(dumpGatewayTokens_entry);
    requestLock(&gtlLock);
    requestLock(&traceLock);
    const int count = dumpList();
    flushTrace();
    releaseLock(&traceLock);
    releaseLock(&gtlLock);
    const int rc = listResult(count);
    if (rc == STAPI_GTL_RUNAWAY) {
        TRACE(dumpGatewayTokens_runaway, count);
    }
    TRACE(dumpGatewayTokens_exit, count, rc);
    return rc;
}
