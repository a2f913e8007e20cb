#include "advice.h"

#include <algorithm>
#include <array>

#include "monitor/codes.h"

namespace zulstat {

namespace {

constexpr std::string_view CALLER_FAULT =
    "A program passed a wrong argument; zulstat never does. Correct the call in that program.";
constexpr std::string_view RESTART = "Start the program again; if it happens again, check the machine's free memory.";
constexpr std::string_view OWNER_RULE =
    "Query a connection only from the process and thread that opened it, or walk a copy of the result set.";
constexpr std::string_view CHECK_TARGET =
    "Check host and port (-H, -p). 'zulstat ping' shows where a connection attempt stops.";

struct Advice {
    std::string_view name;  // of the code
    std::string_view text;
};

constexpr std::array ADVICES = {
    Advice{"STAPI_RC_LOCK_ALREADY_INITIALIZED", RESTART},
    Advice{"STAPI_RC_LOCK_INIT_FAILED", RESTART},
    Advice{"STAPI_RC_NULL_GATEWAY_TOKEN", CALLER_FAULT},
    Advice{"STAPI_RC_GATEWAY_TOKEN_NOT_FOUND", "Open a new connection: a failed query removes the old one."},
    Advice{"STAPI_RC_GATEWAY_CONNECTION_LOST",
           "Try again: the Gateway may have been restarted. If it goes on, look at the Gateway's log, and whether a "
           "Gateway listens on that port at all."},
    Advice{"STAPI_RC_NULL_PARAMETER", "Report it, with a trace (--trace 4 --trace-file FILE)."},
    Advice{"STAPI_RC_INVALID_TRACE_LEVEL", "Use a level from 0 to 5."},
    Advice{"STAPI_RC_NULL_VERSION_POINTER", CALLER_FAULT},
    Advice{"STAPI_RC_RESULT_SET_NOT_USER_OWNED",
           "Free copies only; the result set of a connection goes with the connection."},
    Advice{"STAPI_RC_INVALID_PORT", "Use a port from 1 to 65535."},
    Advice{"STAPI_RC_NULL_GATEWAY_TOKEN_POINTER", CALLER_FAULT},
    Advice{"STAPI_RC_NULL_POINTER", CALLER_FAULT},
    Advice{"STAPI_RC_NO_RESULT_SET_BUFFER",
           "Open a new connection, or make a new copy: this one ran out of memory when it was made."},
    Advice{"STAPI_RC_NO_MEMORY", "Free some memory, or raise the limit (ulimit -v), and try again."},
    Advice{"STAPI_RC_END_OF_RESULT_SET", "Nothing: every walk ends with it."},
    Advice{"STAPI_RC_GTL_CORRUPT", "Close connections: a process has 256 at most."},
    Advice{"STAPI_RC_INVALID_OWNER", "Report it, with a trace (--trace 4 --trace-file FILE)."},
    Advice{"STAPI_RC_CONNECT_FAILED", CHECK_TARGET},
    Advice{"STAPI_RC_WRONG_RESULT_SET_CONTENT", "Walk statistics with getFirstStat, identifiers with getFirstId."},
    Advice{"STAPI_RC_TRACE_INIT_FAILED", RESTART},
    Advice{"STAPI_RC_GATEWAY_REQUEST_FAILED",
           "Ask for less: an answer over 32767 bytes fails with this code. 'zulstat groups' lists the groups, 'zulstat "
           "stats -g GROUP' asks for one. Otherwise look at the Gateway's log."},
    Advice{"STAPI_RC_RESULT_SET_PID_MISMATCH", OWNER_RULE},
    Advice{"STAPI_RC_RESULT_SET_TID_MISMATCH", OWNER_RULE},
    Advice{"STAPI_RC_NULL_RESULT_SET_POINTER", CALLER_FAULT},
    Advice{"STAPI_RC_NULL_QUERY_STRING", CALLER_FAULT},
    Advice{"STAPI_RC_NULL_RESULT_SET", CALLER_FAULT},
    Advice{"STAPI_RC_NULL_ID_DATA", CALLER_FAULT},
    Advice{"STAPI_RC_NULL_STAT_DATA", CALLER_FAULT},
    Advice{"STAPI_RC_TRACE_FILE_OPEN_FAILED", "Check the file's name, directory and permissions (--trace-file)."},
    Advice{"STAPI_RC_NO_GOOD_IDS",
           "Check the identifiers and groups asked for: 'zulstat ids' and 'zulstat groups' list them."},
    Advice{"STAPI_RC_HOST_NOT_RESOLVED",
           "Check the name (-H), or use an address. 'getent hosts NAME' shows what the system makes of it."},
    Advice{"STAPI_RC_CONNECT_BAD_PARAMETER", CHECK_TARGET},
    Advice{"STAPI_RC_CONNECTION_REFUSED",
           "Is the Gateway running, and is it that port (-p)? 'zulstat ping' shows where a connection attempt stops."},
    Advice{"STAPI_RC_NETWORK_UNREACHABLE",
           "Check the address (-H) and this machine's routes ('ip route get ADDRESS')."},
};

}  // namespace

std::string_view adviceFor(int code) {
    const monitor::Code* known = monitor::findCode(code);
    const auto found = std::find_if(ADVICES.begin(), ADVICES.end(), [&](const Advice& advice) {
        return known != nullptr && advice.name == known->name;
    });
    return found == ADVICES.end() ? std::string_view() : found->text;
}

}  // namespace zulstat
