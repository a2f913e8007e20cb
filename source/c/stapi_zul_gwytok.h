// Gateway tokens, the records behind connection handles, and the process-wide Gateway Token List in which every live
// token is chained.
#pragma once

#include "stapi_zul_lock.h"
#include "stapi_zul_resultsetbuffer.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>

inline constexpr char GATEWAY_TOKEN_EYECATCHER[] = "ZULGWTOK";
inline constexpr std::size_t PROTOCOL_VERSION_SIZE = 64;
inline constexpr std::size_t FORMATTED_TOKEN_SIZE = 512;
// A walk of the list ends after this many entries, so that a cyclic list cannot hang the caller.
inline constexpr int GTL_RUNAWAY_LIMIT = 256;

// Results of the list routines; positive, never returned by an exported call.
inline constexpr int STAPI_FIND_GTL_EMPTY = 1001;
inline constexpr int STAPI_FIND_NULL_TARGET = 1002;
inline constexpr int STAPI_FIND_NOT_FOUND = 1003;
inline constexpr int STAPI_FIND_FOUND = 1004;
inline constexpr int STAPI_GTL_RUNAWAY = 1005;
inline constexpr int STAPI_GTL_EMPTY = 1006;

enum ConnectionStatus : std::int32_t {
    CONN_CREATED = 0,
    CONN_CONNECTED = 1,
    CONN_CONNECT_FAILED = 2,
    CONN_CLOSE_FAILED = 3,
    CONN_CLOSED = 4,
};

// A token belongs to the thread that opened the connection. Another thread may show it while it is being opened
// (dumpState), or chain its own behind it: the fields marked "shown" are written and read as atomics.
struct GatewayToken {
    char eyecatcher[EYECATCHER_SIZE];  // no NUL
    std::int32_t port;
    std::int32_t connStatus;      // shown
    std::int32_t socket;          // shown; -1 until connectToGateway sets it, SOCKET_SHUT when closed before that
    ResultSetToken* connRSToken;  // owned; its head is resultSetBuf
    char* resultSetBuf;           // owned: RESULT_SET_BUFFER_SIZE bytes and slack
    std::uint32_t owningPid;
    std::uint32_t owningTid;
    char* protocolVersion;        // owned: PROTOCOL_VERSION_SIZE bytes, more for a longer text
    GatewayToken* nextGwyTokPtr;  // shown; written under gtlLock
    pthread_t owningThread;       // what owningTid shows 32 bits of
    // 0: in the list, and no call is in progress on the connection.
    // n: in the list, with n calls in progress: one of the owner, at most.
    // TOKEN_RETIRED | n: another thread has closed the connection; the last of n calls releases the token.
    // Calls begin, and tokens are retired, under gtlLock only.
    std::uint32_t users;
};

inline constexpr std::uint32_t TOKEN_RETIRED = 0x80000000;

// Guards the two list pointers and every token's nextGwyTokPtr.
extern StapiLock gtlLock;
extern GatewayToken* gtListHeadPtr;
extern GatewayToken* gtListTailPtr;  // meaningful only while the head is set

// Changes whenever a token leaves the list: what a look-up has found where is then forgotten. Guarded by gtlLock.
extern std::uint32_t gtListGeneration;

// ---- the list -----------------------------------------------------------------------------------------------------

// The result of initializeLock(gtlLock): 0, STAPI_RC_LOCK_ALREADY_INITIALIZED or STAPI_RC_LOCK_INIT_FAILED.
[[nodiscard]] int initGTL();

// STAPI_FIND_... or STAPI_GTL_RUNAWAY; `parent`, unless null, receives the predecessor of a token that was found (null
// for the head). The caller holds gtlLock.
[[nodiscard]] int findGatewayToken(const GatewayToken* target, GatewayToken** parent);

// 0, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND, STAPI_RC_RESULT_SET_PID_MISMATCH or STAPI_RC_RESULT_SET_TID_MISMATCH. `token`
// need not point at a token.
[[nodiscard]] int verifyGatewayToken(const GatewayToken* token);

// The same, and 0 begins a use of the connection, to be ended with endUse.
[[nodiscard]] int beginUse(GatewayToken* token);

// Ends a use; true when the connection was closed meanwhile: the token is then gone.
[[nodiscard]] bool endUse(GatewayToken* token);

// Closing a connection in use: marks it, and shuts its socket down, which ends the call in progress. True begins a use
// of the caller's own, in which it takes the token off the list. False where no call is in progress. In a process
// forked from the owner's the calls in progress are none of its own: they are forgotten, and the socket stays as it is.
// The caller holds gtlLock.
[[nodiscard]] bool retireUsed(GatewayToken* token);

// Releases a token and what it owns without a trace line; it is not in the list and has no socket.
void releaseUnchainedToken(GatewayToken* token);

// Writes the token as text into dst (FORMATTED_TOKEN_SIZE bytes): 0 or STAPI_RC_NULL_PARAMETER. token may be null.
int formatGatewayToken(const GatewayToken* token, char* dst);

// Writes the list and its result sets to the trace destination, whatever the level: 0, STAPI_GTL_RUNAWAY or
// STAPI_GTL_EMPTY. Takes gtlLock and traceLock.
int dumpGatewayTokens();

// ---- creation and deletion ----------------------------------------------------------------------------------------

// Connects to a Gateway and chains a token for it, stored through `created` on success only, with a use of it begun.
// gwTokPtr is the address that the application gave for it; trace lines show it, nothing is stored there. 0,
// STAPI_RC_NO_MEMORY, STAPI_RC_GTL_CORRUPT, a code of openStatsSocket or, from the version exchange,
// STAPI_RC_GATEWAY_CONNECTION_LOST or STAPI_RC_GATEWAY_REQUEST_FAILED. Takes gtlLock for chaining and removing, not
// while it waits for the Gateway.
[[nodiscard]] int createGatewayToken(GatewayToken** gwTokPtr, const char* hostname, int port, GatewayToken** created);

// Appends a token to the list: 0, STAPI_RC_NULL_GATEWAY_TOKEN_POINTER or STAPI_RC_GTL_CORRUPT. Takes gtlLock.
[[nodiscard]] int chainGatewayToken(GatewayToken* token);

// Connects: 0, STAPI_RC_HOST_NOT_RESOLVED, STAPI_RC_CONNECT_BAD_PARAMETER, STAPI_RC_CONNECTION_REFUSED,
// STAPI_RC_NETWORK_UNREACHABLE or STAPI_RC_CONNECT_FAILED.
[[nodiscard]] int openStatsSocket(GatewayToken* token, const char* hostname, int port);

// Closes the connection, unchains and releases the token and what it owns and sets *gwTokPtr to null: 0,
// STAPI_RC_NULL_GATEWAY_TOKEN_POINTER, STAPI_RC_NULL_GATEWAY_TOKEN or STAPI_RC_GATEWAY_TOKEN_NOT_FOUND. lockRequired 1:
// takes gtlLock and looks the token up. Any other value: the caller holds gtlLock and the token is the list's head.
int deleteGatewayToken(GatewayToken** gwTokPtr, int lockRequired);

// Ends the use that the caller has begun and deletes the token as with lockRequired 1, in one section of gtlLock: once
// a token is free its address may be that of another. Also STAPI_RC_GATEWAY_CONNECTION_LOST: the connection was closed
// meanwhile.
int deleteUsedGatewayToken(GatewayToken** gwTokPtr);

// Deletes all tokens, at most GTL_RUNAWAY_LIMIT: 0, STAPI_GTL_RUNAWAY or STAPI_GTL_EMPTY. Takes gtlLock.
[[nodiscard]] int deleteGatewayTokens();
