/*
 * zulstats: fetch the statistics of a Gateway and walk them one entry at a time.
 *
 * A Gateway is a server process that keeps statistics and listens on a TCP port; there is no default port. A statistic
 * is an identifier and a value, both texts, such as host.load.1m and 8.04.
 *
 * Conventions
 *
 *  1. Return codes. Every call returns an int: 0 for success, otherwise a STAPI_RC_ code, negative but for
 *     STAPI_RC_LOCK_ALREADY_INITIALIZED: compare with 0. Results go through pointer arguments, and are written only on
 *     success unless a call says otherwise.
 *  2. Initialisation. The first call of a process initialises the library; there is no call for it. If that fails, that
 *     call and all later ones return a code of the group "initialisation" below and do nothing else: there is no second
 *     attempt.
 *  3. Arguments. Pointers are tested for NULL and numbers for their range first, in the order of the codes listed with
 *     each call; then handles are checked; then work begins. The first failure is returned, unless a call says
 *     otherwise.
 *  4. Ownership. A gateway token and the result set of its queries belong to the library until the connection ends. The
 *     version text of the open calls is the caller's, to be released with free(). A copy made by copyResultSet is the
 *     caller's, to be released with freeResultSet. Everything else that a call hands out is the library's.
 *  5. Texts. Identifiers, values and query elements are (length, pointer) pairs that point into the result set and have
 *     no terminating NUL. They hold what the Gateway sent, any byte included. They stay valid until the next query on
 *     the connection or its end; in a copy, until freeResultSet.
 *  6. Queries and answers. A resource group is a named set of statistics, such as host. The Gateway answers a query
 *     with query elements, one for each identifier asked for. A query element is the text asked for, a code and, unless
 *     the code is negative, items: the statistics, or identifiers of statistics or groups, for which the text stands.
 *     When everything is asked for, the Gateway chooses the elements, for example one for each resource group. A
 *     negative code tells that this element failed, for example because the Gateway does not know the identifier; the
 *     query succeeds all the same. A positive code comes with items like 0. What the numbers mean otherwise is the
 *     Gateway's.
 *  7. Stale handles. A connection ends when it is closed, and when a query other than getStatsByStatGroupId returns
 *     STAPI_RC_GATEWAY_CONNECTION_LOST or STAPI_RC_GATEWAY_REQUEST_FAILED, for such a query closes and removes it. Set
 *     every variable that holds its token or its result set to NULL then, and do not close it again: a connection
 *     opened later may get the same address, and closing the old token would close that one. A program that goes on
 *     opens a new connection.
 *  8. Threads. A gateway token and its result set belong to the process and thread that opened the connection: query
 *     and walking calls from another are refused. A copy belongs to nobody in particular and may be used by any thread,
 *     one at a time. Calls on different connections may run at the same time. Any thread may close a connection: a call
 *     in progress on it ends with STAPI_RC_GATEWAY_CONNECTION_LOST, and its result set must not be in use. Nothing else
 *     tells the owning thread: convention 7 holds for its variables too.
 *  9. Waiting. Connecting is bounded by the system, which may take minutes; every exchange with the Gateway after that,
 *     closing included, waits without limit for the answer. A connection is closed under a lock of the process, also by
 *     the query or open call that fails: when a Gateway is silent then, all other open, query and close calls of the
 *     process and dumpState wait with it. A program that must go on whatever one Gateway does talks to it from a
 *     process of its own.
 * 10. Ending a wait. A query that waits is ended by closing its connection from another thread; an open call, whose
 *     token nobody has yet, by closeAllGatewayConnections. Each then returns STAPI_RC_GATEWAY_CONNECTION_LOST, an open
 *     call only after the host name is resolved. No call ends a close that waits: only the answer, the end of the TCP
 *     connection or a signal (convention 11) does.
 * 11. Signals. A signal that the calling thread handles ends its wait for one answer, SA_RESTART or not. A query then
 *     returns STAPI_RC_GATEWAY_CONNECTION_LOST, an open call that or STAPI_RC_GATEWAY_REQUEST_FAILED, both after they
 *     have closed the connection, which may mean to wait again; a close succeeds. A signal handled without SA_RESTART
 *     while an open call connects leads to STAPI_RC_CONNECT_FAILED, perhaps only when the system gives the attempt up.
 *     A request of which a signal let only a part be sent is not completed; the call then waits for the answer. Block
 *     signals around the calls where that matters. While a request is sent, or the trace goes to anything but a regular
 *     file, SIGPIPE is ignored in the whole process and then gets its former disposition back: one set meanwhile is
 *     lost, and a program that another thread starts meanwhile (posix_spawn) ignores SIGPIPE.
 * 12. Not inside a call. Call nothing of the library in a signal handler, do not fork in a handler that interrupted a
 *     call nor jump out of it (longjmp), and do not cancel a thread (pthread_cancel) inside a call: the connection
 *     stays in use, and storage and descriptors are lost.
 * 13. fork. A child process owns none of its parent's connections: query and walking calls on them are refused. It
 *     leaves them alone: closing one may send the close request in the parent's conversation, and the parent then loses
 *     the connection. The child may open its own, unless another thread of the parent was inside a call when it forked:
 *     a lock of the library may then stay taken in the child, where calls hang. Sockets and the trace file are closed
 *     on exec.
 * 14. Limits. A result set holds 32767 bytes. A larger answer fails with STAPI_RC_GATEWAY_REQUEST_FAILED and costs the
 *     connection: where a Gateway may have more than some hundred statistics, ask by group. A query string has at most
 *     32765 characters. The library finds 257 connections of a process. The 258th is opened, and then not found
 *     (STAPI_RC_GATEWAY_TOKEN_NOT_FOUND) until an earlier one is closed; an open call that fails there keeps its
 *     descriptor until closeAllGatewayConnections, which closes 256 in a call. dumpState shows 256.
 * 15. The library starts no threads, has no configuration files or environment variables of its own, stays in the
 *     process once loaded (dlclose does not unload it), and leaves the descriptors 0, 1 and 2 alone. It writes only to
 *     the trace destination and, when initialisation has failed, a line at each call to the standard error stream.
 * 16. Nothing on the network is encrypted, and the authorisation protects nothing: use networks that you trust, or a
 *     tunnel.
 *
 * Example
 *
 *     GatewayToken* gateway = NULL;
 *     ResultSetToken* result = NULL;
 *     char* version = NULL;
 *     StatData stat;
 *     int rc = openRemoteGatewayConnection("gw1", 7531, &gateway, &version);
 *     free(version);
 *     if (rc == 0) rc = getStatsByStatId(gateway, "host.name:host.load.1m", &result);
 *     if (rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_REQUEST_FAILED) gateway = NULL;
 *     while (rc == 0 && (rc = getNextStat(result, &stat)) == 0) {
 *         if (stat.queryElementRC < 0) printf("%.*s: failed\n", stat.queryElementLen, stat.queryElementPtr);
 *         else printf("%.*s = %.*s\n", stat.statIdLen, stat.statIdPtr, stat.statValueLen, stat.statValuePtr);
 *     }
 *     if (gateway != NULL) closeGatewayConnection(&gateway);
 */
#ifndef ZULSTATS_H
#define ZULSTATS_H

#include <stdint.h>

/* The version of this header and its library; the number is MAJOR * 10000 + MINOR * 100 + PATCH. */
#define ZULSTATS_VERSION_MAJOR 1
#define ZULSTATS_VERSION_MINOR 2
#define ZULSTATS_VERSION_PATCH 0
#define ZULSTATS_VERSION "1.2.0"
#define ZULSTATS_VERSION_NUMBER 10200

#if defined(__GNUC__)
#define ZULSTATS_API __attribute__((visibility("default")))
#else
#define ZULSTATS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- return codes ---------------------------------------------------------------------------------------------- */

/* initialisation: any call may return these and STAPI_RC_NO_MEMORY */
#define STAPI_RC_LOCK_ALREADY_INITIALIZED 1 /* the connection list's lock was initialised before */
#define STAPI_RC_LOCK_INIT_FAILED (-2)      /* the connection list's lock could not be created */
#define STAPI_RC_TRACE_INIT_FAILED (-121)   /* the trace could not be initialised, or initialisation failed before */
/*
 * The first call returns the code of what failed, every later call STAPI_RC_TRACE_INIT_FAILED. openGatewayConnection
 * returns STAPI_RC_TRACE_INIT_FAILED even as the first call.
 */

/* arguments */
#define STAPI_RC_NULL_GATEWAY_TOKEN (-100)         /* the gateway token is NULL */
#define STAPI_RC_INVALID_TRACE_LEVEL (-104)        /* the trace level is outside 0..5 */
#define STAPI_RC_NULL_VERSION_POINTER (-105)       /* the address for the protocol version is NULL */
#define STAPI_RC_RESULT_SET_NOT_USER_OWNED (-106)  /* the result set is not a copy and cannot be freed by the caller */
#define STAPI_RC_INVALID_PORT (-107)               /* the port is outside 1..65535 */
#define STAPI_RC_NULL_GATEWAY_TOKEN_POINTER (-108) /* the address for the gateway token is NULL */
#define STAPI_RC_NULL_POINTER (-109)               /* the address for the result is NULL */
#define STAPI_RC_NULL_RESULT_SET_POINTER (-125)    /* the address of the result set pointer is NULL */
#define STAPI_RC_NULL_QUERY_STRING (-126)          /* the query string is NULL */
#define STAPI_RC_NULL_RESULT_SET (-127)            /* the result set is NULL */
#define STAPI_RC_NULL_ID_DATA (-128)               /* the identifier record is NULL */
#define STAPI_RC_NULL_STAT_DATA (-129)             /* the statistic record is NULL */

/* handles */
#define STAPI_RC_GATEWAY_TOKEN_NOT_FOUND (-101)  /* the connection was closed, removed or never opened */
#define STAPI_RC_NULL_PARAMETER (-103)           /* an internal routine received a NULL pointer */
#define STAPI_RC_NO_RESULT_SET_BUFFER (-110)     /* the connection or the result set has no content buffer */
#define STAPI_RC_GTL_CORRUPT (-115)              /* the connection list is inconsistent, or had 256 to close */
#define STAPI_RC_INVALID_OWNER (-116)            /* the owner code of a new result set is unknown */
#define STAPI_RC_WRONG_RESULT_SET_CONTENT (-119) /* the result set does not hold what the call expects */
#define STAPI_RC_RESULT_SET_PID_MISMATCH (-123)  /* the connection or result set belongs to another process */
#define STAPI_RC_RESULT_SET_TID_MISMATCH (-124)  /* the connection or result set belongs to another thread */

/* work */
#define STAPI_RC_GATEWAY_CONNECTION_LOST (-102) /* sending, waiting or receiving failed, or the Gateway gave up */
#define STAPI_RC_NO_MEMORY (-111)               /* storage ran out */
#define STAPI_RC_END_OF_RESULT_SET (-113)       /* there is no further entry */
#define STAPI_RC_CONNECT_FAILED (-118)          /* connecting failed for a reason without a code of its own */
#define STAPI_RC_GATEWAY_REQUEST_FAILED (-122)  /* the Gateway refused the request, or its answer cannot be used: */
                                                /* not understood, over 32767 bytes, or no memory for it */
#define STAPI_RC_TRACE_FILE_OPEN_FAILED (-130)  /* the trace file could not be opened for append */
#define STAPI_RC_NO_GOOD_IDS (-131)             /* no identifier of the result set can go into a query string */
#define STAPI_RC_HOST_NOT_RESOLVED (-132)       /* the host name could not be resolved */
#define STAPI_RC_CONNECT_BAD_PARAMETER (-134)   /* the connection layer refused its parameters */
#define STAPI_RC_CONNECTION_REFUSED (-135)      /* the host refused the connection: no Gateway listens there */
#define STAPI_RC_NETWORK_UNREACHABLE (-136)     /* the host's network is unreachable */

/* ---- records --------------------------------------------------------------------------------------------------- */

/* A connection to a Gateway. Nothing in it is the caller's to look at; a token is compared with NULL only. */
typedef struct GatewayToken GatewayToken;

/* The answer to a query, with a position that the walking calls move. */
typedef struct ResultSetToken ResultSetToken;

/*
 * One entry of a statistics result set. The caller provides the record, a walking call fills it. Test queryElementRC
 * first: when it is negative, the query element failed and the four last fields are unchanged. Every item of a query
 * element comes with the same queryElementPtr, queryElementLen and queryElementRC. Lengths are in bytes.
 */
typedef struct StatData {
    char eyecatcher[8];          /* "ZULSTSET", no NUL; set when a walk begins */
    const char* queryElementPtr; /* what was asked for, as the Gateway repeats it */
    int32_t queryElementLen;
    int32_t queryElementRC; /* the Gateway's code for this query element: negative, it failed; else it has items */
    int32_t statIdLen;
    const char* statIdPtr; /* the statistic's identifier */
    int32_t statValueLen;
    const char* statValuePtr; /* its value, as text */
} StatData;

/* One entry of an identifier result set; as StatData, with two last fields that a failed query element leaves alone. */
typedef struct IdData {
    char eyecatcher[8]; /* "ZULIDSET" */
    const char* queryElementPtr;
    int32_t queryElementLen;
    int32_t queryElementRC;
    int32_t idLen;
    const char* idPtr;
} IdData;

/* ---- opening --------------------------------------------------------------------------------------------------- */

/*
 * Opens a connection to the Gateway at 127.0.0.1, otherwise as openRemoteGatewayConnection. On a host with
 * IPv6 addresses and no IPv4 address but 127.0.0.1 it returns STAPI_RC_HOST_NOT_RESOLVED; openRemoteGatewayConnection
 * reaches the same Gateway there as "::ffff:127.0.0.1".
 */
ZULSTATS_API int openGatewayConnection(int port, GatewayToken** gwTokPtr, char** protoColVersion);

/*
 * Opens a connection to the Gateway at hostname (a name or an address) and port, and asks it for its statistics
 * protocol version. Only the first address that the system finds for a name is tried. A NULL hostname means the
 * loopback interface, as a rule at its IPv6 address, where a Gateway that listens on 127.0.0.1 only is not found.
 *
 * On success *gwTokPtr is the connection, owned by the calling process and thread until it is closed or a query removes
 * it, and *protoColVersion a copy of the version text, such as "1_0_0_0", that the caller releases with free(). When
 * there is no memory for the copy *protoColVersion is NULL, and for a text of more than 32765 characters it is not
 * written; the call succeeds all the same. On failure neither is written. Both are written at the end of the call:
 * initialise them with NULL.
 *
 * Returns 0, STAPI_RC_INVALID_PORT, STAPI_RC_NULL_GATEWAY_TOKEN_POINTER, STAPI_RC_NULL_VERSION_POINTER,
 * STAPI_RC_HOST_NOT_RESOLVED, STAPI_RC_CONNECTION_REFUSED, STAPI_RC_NETWORK_UNREACHABLE,
 * STAPI_RC_CONNECT_BAD_PARAMETER, STAPI_RC_CONNECT_FAILED, STAPI_RC_GATEWAY_CONNECTION_LOST,
 * STAPI_RC_GATEWAY_REQUEST_FAILED, STAPI_RC_NO_MEMORY, STAPI_RC_GTL_CORRUPT, or an initialisation code.
 * STAPI_RC_CONNECT_FAILED also stands for a host that does not answer, for a descriptor that could not be had, and for
 * a signal (convention 11); STAPI_RC_GATEWAY_CONNECTION_LOST also for closeAllGatewayConnections called meanwhile. A
 * call that fails once it has connected closes the connection and waits for the Gateway's answer to that (convention
 * 9). Any thread may open connections at any time.
 */
ZULSTATS_API int openRemoteGatewayConnection(const char* hostname, int port, GatewayToken** gwTokPtr,
                                             char** protoColVersion);

/* ---- querying -------------------------------------------------------------------------------------------------- */

/*
 * The six query calls ask the Gateway and store its answer in the connection's result set. On success *statRSPtr (and
 * likewise in the other calls) is that result set: the same one for every query on the connection, its former content
 * overwritten and its walk not started. It lives as long as the connection and is not to be freed; copyResultSet makes
 * a copy that lasts. On failure the pointer is not written.
 *
 * A query string names what is wanted: identifiers joined by ":", as getIdQuery builds them, for example
 * "host.name:host.load.1m" or, by group, "host:conn". The call copies it. The empty string asks for everything. A
 * string of 32766 characters or more is replaced by the copy made for the connection's previous query string. Where
 * there is none, and when there is no memory for a copy, the Gateway is asked with the empty string.
 *
 * After STAPI_RC_GATEWAY_CONNECTION_LOST or STAPI_RC_GATEWAY_REQUEST_FAILED the connection is closed and removed, and
 * its token and result set are gone: set the variables that hold them to NULL and do not close the connection
 * (convention 7). The call waits for the Gateway's answer to the close request (convention 9). getStatsByStatGroupId
 * alone leaves the connection to the caller to close: a further query on it may read the failed one's answer, or wait
 * for one that never comes.
 *
 * Each returns 0, STAPI_RC_NULL_GATEWAY_TOKEN, STAPI_RC_NULL_QUERY_STRING (the calls with a query string),
 * STAPI_RC_NULL_RESULT_SET_POINTER, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND, STAPI_RC_RESULT_SET_PID_MISMATCH,
 * STAPI_RC_RESULT_SET_TID_MISMATCH, STAPI_RC_NO_RESULT_SET_BUFFER, STAPI_RC_GATEWAY_CONNECTION_LOST,
 * STAPI_RC_GATEWAY_REQUEST_FAILED (also for an answer over 32767 bytes), STAPI_RC_NULL_PARAMETER, or an initialisation
 * code. Only the thread that opened the connection may call them.
 */

/* All statistics. Walk with getFirstStat and getNextStat. */
ZULSTATS_API int getStats(GatewayToken* gwTok, ResultSetToken** statRSPtr);

/* The identifiers of all statistics. Walk with getFirstId and getNextId. */
ZULSTATS_API int getStatIds(GatewayToken* gwTok, ResultSetToken** statIdRSPtr);

/* The identifiers of all resource groups. Walk with getFirstId and getNextId. */
ZULSTATS_API int getResourceGroupIds(GatewayToken* gwTok, ResultSetToken** resGrpIdRSPtr);

/*
 * The statistics with the given identifiers. Walk with getFirstStat and getNextStat. The request is the same as that of
 * getStatsByStatGroupId: it is the Gateway that tells identifiers of statistics from those of groups.
 */
ZULSTATS_API int getStatsByStatId(GatewayToken* gwTok, const char* statIds, ResultSetToken** statRSPtr);

/*
 * The statistics of the given groups. Walk with getFirstStat and getNextStat. After STAPI_RC_GATEWAY_CONNECTION_LOST
 * or STAPI_RC_GATEWAY_REQUEST_FAILED the caller closes the connection, unless another thread has closed it during the
 * call: token and result set are then gone.
 */
ZULSTATS_API int getStatsByStatGroupId(GatewayToken* gwTok, const char* statGroupIds, ResultSetToken** statRSPtr);

/* The identifiers of the statistics of the given groups. Walk with getFirstId and getNextId. */
ZULSTATS_API int getStatIdsByStatGroupId(GatewayToken* gwTok, const char* statGroupIds, ResultSetToken** statIdRSPtr);

/* ---- walking --------------------------------------------------------------------------------------------------- */

/*
 * A walk is one First call, then Next calls until STAPI_RC_END_OF_RESULT_SET. A Next call on a result set whose walk
 * has not started begins it. A First call always begins again. The position belongs to the result set, not to the
 * caller, and moves only when a call returns 0. Each query element that failed is one entry, with its negative
 * queryElementRC; each item of the others is one. A query element without items is passed over.
 *
 * The calls copy nothing but the eyecatcher: the record's pointers point into the result set (convention 5). On
 * STAPI_RC_END_OF_RESULT_SET a call that begins a walk has written the eyecatcher, and nothing else.
 *
 * Each returns 0, STAPI_RC_NULL_RESULT_SET, STAPI_RC_NULL_STAT_DATA or STAPI_RC_NULL_ID_DATA,
 * STAPI_RC_NO_RESULT_SET_BUFFER, STAPI_RC_WRONG_RESULT_SET_CONTENT (statistics calls on identifiers or the reverse),
 * STAPI_RC_RESULT_SET_PID_MISMATCH, STAPI_RC_RESULT_SET_TID_MISMATCH, STAPI_RC_END_OF_RESULT_SET, or an initialisation
 * code. A connection's result set may be walked only by the thread that opened the connection; a copy by any thread,
 * one at a time.
 */
ZULSTATS_API int getFirstStat(ResultSetToken* rsPtr, StatData* statDataPtr);
ZULSTATS_API int getNextStat(ResultSetToken* rsPtr, StatData* statDataPtr);
ZULSTATS_API int getFirstId(ResultSetToken* rsPtr, IdData* idDataPtr);
ZULSTATS_API int getNextId(ResultSetToken* rsPtr, IdData* idDataPtr);

/* ---- managing result sets -------------------------------------------------------------------------------------- */

/*
 * Copies a result set, so that it outlives the next query and the connection. *tarRsPtr receives the copy, its walk not
 * started; release it with freeResultSet.
 *
 * Returns 0, STAPI_RC_NULL_RESULT_SET, STAPI_RC_NULL_RESULT_SET_POINTER, STAPI_RC_NO_RESULT_SET_BUFFER,
 * STAPI_RC_WRONG_RESULT_SET_CONTENT, STAPI_RC_RESULT_SET_PID_MISMATCH, STAPI_RC_RESULT_SET_TID_MISMATCH,
 * STAPI_RC_NO_MEMORY, or an initialisation code. After STAPI_RC_NO_MEMORY *tarRsPtr may be unchanged, NULL, or an empty
 * result set that freeResultSet accepts: initialise it with NULL and pass it to freeResultSet when it is not NULL.
 * A connection's result set may be copied only by the thread that opened the connection.
 */
ZULSTATS_API int copyResultSet(ResultSetToken* srcRsPtr, ResultSetToken** tarRsPtr);

/*
 * Releases a copy and sets *rsPtr to NULL. Any thread may do so.
 *
 * Returns 0, STAPI_RC_NULL_RESULT_SET_POINTER, STAPI_RC_NULL_RESULT_SET, STAPI_RC_RESULT_SET_NOT_USER_OWNED (the result
 * set of a connection, left as it is), or an initialisation code.
 */
ZULSTATS_API int freeResultSet(ResultSetToken** rsPtr);

/*
 * Writes a result set's content to the trace destination, whatever the trace level.
 *
 * Returns 0, STAPI_RC_NULL_RESULT_SET, STAPI_RC_NO_RESULT_SET_BUFFER, STAPI_RC_WRONG_RESULT_SET_CONTENT,
 * STAPI_RC_RESULT_SET_PID_MISMATCH, STAPI_RC_RESULT_SET_TID_MISMATCH, or an initialisation code. A connection's result
 * set may be dumped only by the thread that opened the connection.
 */
ZULSTATS_API int dumpResultSet(ResultSetToken* rsPtr);

/*
 * Joins the identifiers of a result set with ":" into a query string for a further query. Only identifiers of query
 * elements whose code is 0 go into it, each whole (up to a NUL in it), as long as the string stays within 31999
 * characters. The string begins with ":" when the first entry of the result set is not among them. Moves the result
 * set's position to the last entry looked at, normally its end.
 *
 * *idQueryStringPtr receives the string. It belongs to the result set, lives as long as that and is overwritten by the
 * next getIdQuery on it; queries on the connection leave it alone.
 *
 * Returns 0, STAPI_RC_NULL_RESULT_SET, STAPI_RC_NULL_POINTER, STAPI_RC_RESULT_SET_PID_MISMATCH,
 * STAPI_RC_RESULT_SET_TID_MISMATCH, STAPI_RC_WRONG_RESULT_SET_CONTENT, STAPI_RC_NO_GOOD_IDS, STAPI_RC_NO_MEMORY, or an
 * initialisation code. STAPI_RC_NO_MEMORY comes before all others; STAPI_RC_WRONG_RESULT_SET_CONTENT, also for a result
 * set without content, replaces what was found before, but for a NULL result set. Thread rule as for walking.
 */
ZULSTATS_API int getIdQuery(ResultSetToken* rsPtr, char** idQueryStringPtr);

/* ---- closing --------------------------------------------------------------------------------------------------- */

/*
 * Closes a connection, releases its token and its result set and sets *gwTokPtr to NULL; set all other variables that
 * hold them to NULL, too (convention 7). Waits for the Gateway's answer to the close request, and stops other calls of
 * the process meanwhile (convention 9), unless a call of another thread is in progress on the connection: that call is
 * ended with STAPI_RC_GATEWAY_CONNECTION_LOST and nothing is awaited. Any thread may call it.
 *
 * Returns 0 (also when the Gateway did not answer), STAPI_RC_NULL_GATEWAY_TOKEN (gwTokPtr or *gwTokPtr is NULL),
 * STAPI_RC_GATEWAY_TOKEN_NOT_FOUND (*gwTokPtr is unchanged), or an initialisation code.
 */
ZULSTATS_API int closeGatewayConnection(GatewayToken** gwTokPtr);

/*
 * Closes all connections of the process, one after the other as closeGatewayConnection does, also those that open calls
 * of other threads are about to hand out. Every gateway token and every connection's result set is gone afterwards.
 *
 * Returns 0 (also when there was none), STAPI_RC_GTL_CORRUPT (there were 256 or more: 256 have been closed, call
 * again), or an initialisation code. Any thread may call it; calls in progress end as with closeGatewayConnection.
 */
ZULSTATS_API int closeAllGatewayConnections(void);

/* ---- settings and diagnosis ------------------------------------------------------------------------------------ */

/*
 * *apiVersPtr receives the library's version text, "1_1_0_0". It is the library's: do not change or free it.
 * Returns 0, STAPI_RC_NULL_POINTER, or an initialisation code. Any thread may call it.
 */
ZULSTATS_API int getStatsAPIVersion(char** apiVersPtr);

/*
 * *traceStatePtr receives the trace level.
 * Returns 0, STAPI_RC_NULL_POINTER, or an initialisation code. Any thread may call it.
 */
ZULSTATS_API int getAPITraceLevel(int* traceStatePtr);

/*
 * Sets the trace level of the process: 0 nothing, 1 exceptions, 2 and events, 3 and entries and exits, 4 and debug and
 * data with storage dumps, 5 and lock operations. The level is 0 after initialisation. From level 4 on the trace holds
 * requests and replies in full, with all identifiers and values.
 * Returns 0, STAPI_RC_INVALID_TRACE_LEVEL, or an initialisation code. Any thread may call it.
 */
ZULSTATS_API int setAPITraceLevel(int traceState);

/*
 * Appends the trace of the process to the file traceFile, or writes it to the standard error stream again when
 * traceFile is NULL. The file is created where there is none, with the rights that the umask leaves, and symbolic links
 * are followed. The trace shows the first 1023 characters of a longer name.
 *
 * A destination that blocks, such as a pipe whose reader does not read, blocks every call that writes to it, and
 * those that wait for the same locks; opening a FIFO waits for its reader. What cannot be written, to a full device or
 * to a pipe without a reader, is lost, and the calls go on as they would; the next line that can be written may be
 * joined to a rest of an earlier one.
 *
 * Returns 0, STAPI_RC_TRACE_FILE_OPEN_FAILED (the destination is unchanged), or an initialisation code. Any thread may
 * call it.
 */
ZULSTATS_API int setAPITraceFile(const char* traceFile);

/*
 * Writes the library's version, trace settings and all connections with their result sets to the trace destination,
 * whatever the trace level. The result set of a connection with a call in progress is shown as it stands at that
 * moment. Returns 0 or an initialisation code. Any thread may call it; it waits while a connection is closed
 * (convention 9).
 */
ZULSTATS_API int dumpState(void);

#ifdef __cplusplus
}
#endif

#endif
