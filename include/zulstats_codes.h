/*
 * The return codes of zulstats.h as a table: ZULSTATS_CODES(ROW) stands for ROW(name, meaning, hint) of each of them,
 * where name is the constant's, without STAPI_RC_, and meaning and hint are texts: what happened, and what to do.
 */
#ifndef ZULSTATS_CODES_H
#define ZULSTATS_CODES_H

#include "zulstats.h"

/* clang-format off */
#define ZULSTATS_CODES(ROW) \
    ROW(LOCK_ALREADY_INITIALIZED, "the connection list's lock was initialised before", \
        "Start the program again.") \
    ROW(LOCK_INIT_FAILED, "the connection list's lock could not be created", \
        "Start the program again; look at its limits and free memory.") \
    ROW(NULL_GATEWAY_TOKEN, "the gateway token is NULL", \
        "Open a connection first.") \
    ROW(GATEWAY_TOKEN_NOT_FOUND, "the connection was closed, removed or never opened", \
        "Open a new connection: a failed query removes the old one.") \
    ROW(GATEWAY_CONNECTION_LOST, "sending, waiting or receiving failed, or the Gateway gave the connection up", \
        "Open a new connection and ask again: the Gateway may have been restarted.") \
    ROW(NULL_PARAMETER, "an internal routine received a NULL pointer", \
        "Report it, with a trace of level 4.") \
    ROW(INVALID_TRACE_LEVEL, "the trace level is outside 0..5", \
        "Use a level from 0 to 5.") \
    ROW(NULL_VERSION_POINTER, "the address for the protocol version is NULL", \
        "Pass an address for the version text.") \
    ROW(RESULT_SET_NOT_USER_OWNED, "the result set is not a copy and cannot be freed by the caller", \
        "Free copies only; a connection's result set goes with it.") \
    ROW(INVALID_PORT, "the port is outside 1..65535", \
        "Use a port from 1 to 65535.") \
    ROW(NULL_GATEWAY_TOKEN_POINTER, "the address for the gateway token is NULL", \
        "Pass an address for the gateway token.") \
    ROW(NULL_POINTER, "the address for the result is NULL", \
        "Pass an address for the result.") \
    ROW(NO_RESULT_SET_BUFFER, "the connection or the result set has no content buffer", \
        "Open a new connection, or make a new copy.") \
    ROW(NO_MEMORY, "storage ran out", \
        "Free some memory, or raise the limit (ulimit -v), and try again.") \
    ROW(END_OF_RESULT_SET, "there is no further entry", \
        "Nothing: every walk ends with it.") \
    ROW(GTL_CORRUPT, "the connection list is inconsistent or longer than 256 entries", \
        "Close connections: a process has 256 at most.") \
    ROW(INVALID_OWNER, "the owner code of a new result set is unknown", \
        "Report it, with a trace of level 4.") \
    ROW(CONNECT_FAILED, "connecting failed for a reason without a code of its own", \
        "Check host and port, and whether the host answers.") \
    ROW(WRONG_RESULT_SET_CONTENT, "the result set does not hold what the call expects", \
        "Walk statistics as statistics, identifiers as identifiers.") \
    ROW(TRACE_INIT_FAILED, "the trace could not be initialised", \
        "Start the program again; look at its limits and free memory.") \
    ROW(GATEWAY_REQUEST_FAILED, "the Gateway refused the request, or its answer cannot be used", \
        "Ask for less, by group for example: an answer over 32767 bytes fails with this code.") \
    ROW(RESULT_SET_PID_MISMATCH, "the connection or result set belongs to another process", \
        "Use a connection only in the process that opened it, or open another one.") \
    ROW(RESULT_SET_TID_MISMATCH, "the connection or result set belongs to another thread", \
        "Use a connection only in the thread that opened it, or walk a copy of the result set.") \
    ROW(NULL_RESULT_SET_POINTER, "the address of the result set pointer is NULL", \
        "Pass an address for the result set.") \
    ROW(NULL_QUERY_STRING, "the query string is NULL", \
        "Pass a query string; the empty one asks for everything.") \
    ROW(NULL_RESULT_SET, "the result set is NULL", \
        "Query first, and walk what the query handed out.") \
    ROW(NULL_ID_DATA, "the identifier record is NULL", \
        "Pass a record for the identifier.") \
    ROW(NULL_STAT_DATA, "the statistic record is NULL", \
        "Pass a record for the statistic.") \
    ROW(TRACE_FILE_OPEN_FAILED, "the trace file could not be opened for append", \
        "Check the file's name, directory and permissions.") \
    ROW(NO_GOOD_IDS, "no identifier of the result set can go into a query string", \
        "Build the query from a result set with an element whose code is 0.") \
    ROW(HOST_NOT_RESOLVED, "the host name could not be resolved", \
        "Check the host name.") \
    ROW(CONNECT_BAD_PARAMETER, "the connection layer refused its parameters", \
        "Report it, with a trace of level 4.") \
    ROW(CONNECTION_REFUSED, "the host refused the connection: no Gateway listens there", \
        "Check host and port, and whether the Gateway is running.") \
    ROW(NETWORK_UNREACHABLE, "the host's network is unreachable", \
        "Check the address and the routes to it.")
/* clang-format on */

#endif
