// Who may use a connection, the calls in progress on it, and what closing does to them.
#include "stapi_zul_gwytok.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_gwycon.h"
#include "stapi_zul_identity.h"

#include <unistd.h>

#include <cstdlib>

#include "stapi_zul_gwytok_trace.h"

namespace {

// Looks the token up and compares the owner. A use begins while gtlLock is held: once it is released another thread may
// close the connection.
int verify(const GatewayToken* token, std::uint32_t* users) {
    std::uint32_t currentPid = 0;
    std::uint32_t currentTid = 0;
    getPidTid(&currentPid, &currentTid);
    requestLock(&gtlLock);
    const int findRc = findGatewayToken(token, nullptr);
    const bool found = findRc == STAPI_FIND_FOUND;
    const std::uint32_t owningPid = found ? token->owningPid : 0;
    const std::uint32_t owningTid = found ? token->owningTid : 0;
    const bool ownProcess = found && currentPid == owningPid;
    const bool ownThread = found && compareTids(currentThread(), token->owningThread) != 0;
    if (ownProcess && ownThread && users != nullptr) {
        __atomic_fetch_add(users, 1, __ATOMIC_RELAXED);
    }
    releaseLock(&gtlLock);
    if (!found) {
        TRACE(verifyGatewayToken_notFound, token, findRc);
        return STAPI_RC_GATEWAY_TOKEN_NOT_FOUND;
    }
    if (!ownProcess) {
        TRACE(verifyGatewayToken_pidMismatch, static_cast<int>(currentPid), static_cast<int>(owningPid));
        return STAPI_RC_RESULT_SET_PID_MISMATCH;
    }
    if (!ownThread) {
        TRACE(verifyGatewayToken_tidMismatch, static_cast<int>(currentTid), static_cast<int>(owningTid));
        return STAPI_RC_RESULT_SET_TID_MISMATCH;
    }
    return 0;
}

int tracedVerify(const GatewayToken* token, std::uint32_t* users) {
    TRACE(verifyGatewayToken_entry, token);
    const int rc = verify(token, users);
    TRACE(verifyGatewayToken_exit, token, rc);
    return rc;
}

}  // namespace

int verifyGatewayToken(const GatewayToken* token) {
    return tracedVerify(token, nullptr);
}

int beginUse(GatewayToken* token) {
    return tracedVerify(token, &token->users);
}

bool endUse(GatewayToken* token) {
    const std::uint32_t users = __atomic_fetch_sub(&token->users, 1, __ATOMIC_ACQ_REL);
    if ((users & TOKEN_RETIRED) == 0) {
        return false;
    }
    if (users == (TOKEN_RETIRED | 1)) {
        if (token->socket >= 0) {
            close(token->socket);
        }
        releaseUnchainedToken(token);
    }
    return true;
}

bool retireUsed(GatewayToken* token) {
    if (__atomic_fetch_add(&token->users, 1, __ATOMIC_ACQ_REL) == 0) {
        return false;
    }
    std::uint32_t pid = 0;
    getPidTid(&pid, nullptr);
    if (token->owningPid == pid) {
        __atomic_fetch_or(&token->users, TOKEN_RETIRED, __ATOMIC_ACQ_REL);
        shutSocket(&token->socket);
    } else {
        // The calls are the parent's, and so is the connection.
        __atomic_store_n(&token->users, TOKEN_RETIRED | 1, __ATOMIC_RELEASE);
    }
    return true;
}

void releaseUnchainedToken(GatewayToken* token) {
    releaseResultSet(token->connRSToken);
    std::free(token->resultSetBuf);
    std::free(token->protocolVersion);
    std::free(token);
}
