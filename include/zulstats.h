/*
 * zulstats: fetch the statistics of a Gateway and walk them one entry at a time.
 *
 * Conventions
 *
 *  1. Return codes. Every call returns an int: 0 for success, otherwise a STAPI_RC_ code, negative but for
 *     STAPI_RC_LOCK_ALREADY_INITIALIZED: compare with 0. Results go through pointer arguments, and are written only on
 *     success unless a call says otherwise.
 *  2. Initialisation. The first call of a process initialises the library; there is no call for it. If that fails,
 *     every call returns a code of the group "initialisation" below and does nothing else.
 *  3. Arguments. Pointers are tested for NULL and numbers for their range first, in the order of the codes listed with
 *     each call; then handles are checked; then work begins. The first failure is returned, unless a call says
 *     otherwise.
 *  4. Ownership. A gateway token and the result set of its queries belong to the library until the connection ends.
 *     The version text of the open calls is the caller's, to be released with free(). A copy made by copyResultSet is
 *     the caller's, to be released with freeResultSet. Everything else that a call hands out is the library's.
 *  5. Texts. Identifiers, values and query elements are (length, pointer) pairs that point into the result set and have
 *     no terminating NUL. They stay valid until the next query on the connection or its end; in a copy, until
 *     freeResultSet.
 *  6. Threads and processes. A gateway token and its result set belong to the process and thread that opened the
 *     connection: query and walking calls from another are refused. Any thread may close a connection: a call in
 *     progress on it ends with STAPI_RC_GATEWAY_CONNECTION_LOST, and its result set must not be in use. A copy belongs
 *     to nobody in particular and may be used by any thread, one at a time. Calls on different connections may run at
 *     the same time.
 *  7. Waiting. Connecting is bounded by the system; every exchange with the Gateway after that, closing included, waits
 *     without limit for the answer. A signal handled by the calling thread while it waits ends the exchange with
 *     STAPI_RC_GATEWAY_CONNECTION_LOST: block signals around the calls where that matters.
 *  8. Limits. A result set holds 32767 bytes, a query string 32765 characters, a process 256 connections.
 *  9. The library starts no threads, has no configuration files or environment variables of its own, and writes only to
 *     the trace destination, and to the standard error stream when its first initialisation fails.
 */
#ifndef ZULSTATS_H
#define ZULSTATS_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZULSTATS_API __attribute__((visibility("default")))
#else
#define ZULSTATS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- return codes ---------------------------------------------------------------------------------------------- */

/* initialisation: any call may return these */
#define STAPI_RC_LOCK_ALREADY_INITIALIZED 1 /* the connection list's lock was initialised before */
#define STAPI_RC_LOCK_INIT_FAILED (-2)      /* the connection list's lock could not be created */
#define STAPI_RC_TRACE_INIT_FAILED (-121)   /* the trace could not be initialised; also calls after a failure */
/* STAPI_RC_NO_MEMORY (-111) likewise, from the first call */

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
#define STAPI_RC_GTL_CORRUPT (-115)              /* the connection list is inconsistent or longer than 256 entries */
#define STAPI_RC_INVALID_OWNER (-116)            /* the owner code of a new result set is unknown */
#define STAPI_RC_WRONG_RESULT_SET_CONTENT (-119) /* the result set does not hold what the call expects */
#define STAPI_RC_RESULT_SET_PID_MISMATCH (-123)  /* the connection or result set belongs to another process */
#define STAPI_RC_RESULT_SET_TID_MISMATCH (-124)  /* the connection or result set belongs to another thread */

/* work */
#define STAPI_RC_GATEWAY_CONNECTION_LOST (-102) /* sending, waiting or receiving failed, or the Gateway gave up */
#define STAPI_RC_NO_MEMORY (-111)               /* storage ran out */
#define STAPI_RC_END_OF_RESULT_SET (-113)       /* there is no further entry */
#define STAPI_RC_CONNECT_FAILED (-118)          /* connecting failed for a reason without a code of its own */
#define STAPI_RC_GATEWAY_REQUEST_FAILED (-122)  /* the Gateway refused the request, or its answer cannot be used */
#define STAPI_RC_TRACE_FILE_OPEN_FAILED (-130)  /* the trace file could not be opened for append */
#define STAPI_RC_NO_GOOD_IDS (-131)             /* no identifier of the result set can go into a query string */
#define STAPI_RC_HOST_NOT_RESOLVED (-132)       /* the host name could not be resolved */
#define STAPI_RC_CONNECT_BAD_PARAMETER (-134)   /* the connection layer refused its parameters */
#define STAPI_RC_CONNECTION_REFUSED (-135)      /* the host refused the connection: no Gateway listens there */
#define STAPI_RC_NETWORK_UNREACHABLE (-136)     /* the host's network is unreachable */

/* ---- records --------------------------------------------------------------------------------------------------- */

/* A connection to a Gateway. */
typedef struct GatewayToken GatewayToken;

/* The answer to a query, with a position that the walking calls move. */
typedef struct ResultSetToken ResultSetToken;

/*
 * One entry of a statistics result set. The caller provides the record, a walking call fills it. Test queryElementRC
 * first: when it is negative, the query element produced nothing and the four last fields are unchanged.
 */
typedef struct StatData {
    char eyecatcher[8];          /* "ZULSTSET", no NUL; set when a walk begins */
    const char* queryElementPtr; /* what was asked for, as the Gateway repeats it */
    int32_t queryElementLen;
    int32_t queryElementRC; /* the Gateway's code for this query element */
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
 * Opens a connection to the Gateway at 127.0.0.1, otherwise as openRemoteGatewayConnection.
 */
ZULSTATS_API int openGatewayConnection(int port, GatewayToken** gwTokPtr, char** protoColVersion);

/*
 * Opens a connection to the Gateway at hostname (a name or an address; NULL means the local host) and port, and asks
 * it for its statistics protocol version.
 *
 * On success *gwTokPtr is the connection, owned by the calling process and thread until it is closed or a query removes
 * it, and *protoColVersion a copy of the version text that the caller releases with free(), or NULL when there was no
 * memory for the copy (the call succeeds all the same). On failure neither is written.
 *
 * Returns 0, STAPI_RC_INVALID_PORT, STAPI_RC_NULL_GATEWAY_TOKEN_POINTER, STAPI_RC_NULL_VERSION_POINTER,
 * STAPI_RC_HOST_NOT_RESOLVED, STAPI_RC_CONNECTION_REFUSED, STAPI_RC_NETWORK_UNREACHABLE,
 * STAPI_RC_CONNECT_BAD_PARAMETER, STAPI_RC_CONNECT_FAILED, STAPI_RC_GATEWAY_CONNECTION_LOST,
 * STAPI_RC_GATEWAY_REQUEST_FAILED, STAPI_RC_NO_MEMORY, STAPI_RC_GTL_CORRUPT, or an initialisation code.
 * Any thread may open connections at any time.
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
 * A query string names what is wanted: identifiers joined by ":", as getIdQuery builds them. The call copies it. The
 * empty string asks for everything. A string of 32766 characters or more is replaced by the copy made for the
 * connection's previous query string. Where there is none, and when there is no memory for a copy, the Gateway is asked
 * with the empty string.
 *
 * After STAPI_RC_GATEWAY_CONNECTION_LOST or STAPI_RC_GATEWAY_REQUEST_FAILED the connection is closed and removed, and
 * its token and result set are gone. getStatsByStatGroupId alone leaves the connection to the caller to close: a
 * further query on it may read the failed one's answer, or wait for one that never comes.
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

/* The statistics with the given identifiers. Walk with getFirstStat and getNextStat. */
ZULSTATS_API int getStatsByStatId(GatewayToken* gwTok, const char* statIds, ResultSetToken** statRSPtr);

/* The statistics of the given groups. Walk with getFirstStat and getNextStat. */
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
 * Closes a connection, releases its token and its result set and sets *gwTokPtr to NULL. Waits for the Gateway's answer
 * to the close request, unless a call of another thread is in progress on the connection: that call is ended with
 * STAPI_RC_GATEWAY_CONNECTION_LOST and nothing is awaited. Any thread may call it.
 *
 * Returns 0, STAPI_RC_NULL_GATEWAY_TOKEN (gwTokPtr or *gwTokPtr is NULL), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND, or an
 * initialisation code.
 */
ZULSTATS_API int closeGatewayConnection(GatewayToken** gwTokPtr);

/*
 * Closes all connections of the process. Every gateway token and every connection's result set is gone afterwards.
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
 * data with storage dumps, 5 and lock operations. The level is 0 after initialisation.
 * Returns 0, STAPI_RC_INVALID_TRACE_LEVEL, or an initialisation code. Any thread may call it.
 */
ZULSTATS_API int setAPITraceLevel(int traceState);

/*
 * Appends the trace of the process to the file traceFile, or writes it to the standard error stream again when
 * traceFile is NULL. The trace shows the first 1023 characters of a longer name.
 * Returns 0, STAPI_RC_TRACE_FILE_OPEN_FAILED (the destination is unchanged), or an initialisation code. Any thread may
 * call it.
 */
ZULSTATS_API int setAPITraceFile(const char* traceFile);

/*
 * Writes the library's version, trace settings and all connections with their result sets to the trace destination,
 * whatever the trace level. A connection with a call in progress is shown without its result set.
 * Returns 0 or an initialisation code. Any thread may call it at any time.
 */
ZULSTATS_API int dumpState(void);

#ifdef __cplusplus
}
#endif

#endif
