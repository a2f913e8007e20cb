#include "codes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "zulstats.h"

namespace zulstat {

namespace {

constexpr std::string_view prefix = "STAPI_RC_";
constexpr std::string_view callerFault =
    "A program passed a wrong argument; zulstat never does. Correct the call in that program.";
constexpr std::string_view restart = "Start the program again; if it happens again, check the machine's free memory.";
constexpr std::string_view ownerRule =
    "Query a connection only from the process and thread that opened it, or walk a copy of the result set.";
constexpr std::string_view checkTarget =
    "Check host and port (-H, -p). 'zulstat ping' shows where a connection attempt stops.";

#define CODE(name) name, #name
constexpr std::array codes = {
    Code{CODE(STAPI_RC_LOCK_ALREADY_INITIALIZED), "the connection list's lock was initialised before", restart},
    Code{CODE(STAPI_RC_LOCK_INIT_FAILED), "the connection list's lock could not be created", restart},
    Code{CODE(STAPI_RC_NULL_GATEWAY_TOKEN), "the gateway token is NULL", callerFault},
    Code{CODE(STAPI_RC_GATEWAY_TOKEN_NOT_FOUND), "the connection was closed, removed or never opened",
         "Open a new connection: a failed query removes the old one."},
    Code{CODE(STAPI_RC_GATEWAY_CONNECTION_LOST),
         "sending, waiting or receiving failed, or the Gateway gave the connection up",
         "Try again: the Gateway may have been restarted. If it goes on, look at the Gateway's log, and whether a "
         "Gateway "
         "listens on that port at all."},
    Code{CODE(STAPI_RC_NULL_PARAMETER), "an internal routine received a NULL pointer",
         "Report it, with a trace (--trace 4 --trace-file FILE)."},
    Code{CODE(STAPI_RC_INVALID_TRACE_LEVEL), "the trace level is outside 0..5", "Use a level from 0 to 5."},
    Code{CODE(STAPI_RC_NULL_VERSION_POINTER), "the address for the protocol version is NULL", callerFault},
    Code{CODE(STAPI_RC_RESULT_SET_NOT_USER_OWNED), "the result set is not a copy and cannot be freed by the caller",
         "Free copies only; the result set of a connection goes with the connection."},
    Code{CODE(STAPI_RC_INVALID_PORT), "the port is outside 1..65535", "Use a port from 1 to 65535."},
    Code{CODE(STAPI_RC_NULL_GATEWAY_TOKEN_POINTER), "the address for the gateway token is NULL", callerFault},
    Code{CODE(STAPI_RC_NULL_POINTER), "the address for the result is NULL", callerFault},
    Code{CODE(STAPI_RC_NO_RESULT_SET_BUFFER), "the connection or the result set has no content buffer",
         "Open a new connection, or make a new copy: this one ran out of memory when it was made."},
    Code{CODE(STAPI_RC_NO_MEMORY), "storage ran out",
         "Free some memory, or raise the limit (ulimit -v), and try again."},
    Code{CODE(STAPI_RC_END_OF_RESULT_SET), "there is no further entry", "Nothing: every walk ends with it."},
    Code{CODE(STAPI_RC_GTL_CORRUPT), "the connection list is inconsistent or longer than 256 entries",
         "Close connections: a process has 256 at most."},
    Code{CODE(STAPI_RC_INVALID_OWNER), "the owner code of a new result set is unknown",
         "Report it, with a trace (--trace 4 --trace-file FILE)."},
    Code{CODE(STAPI_RC_CONNECT_FAILED), "connecting failed for a reason without a code of its own", checkTarget},
    Code{CODE(STAPI_RC_WRONG_RESULT_SET_CONTENT), "the result set does not hold what the call expects",
         "Walk statistics with getFirstStat, identifiers with getFirstId."},
    Code{CODE(STAPI_RC_TRACE_INIT_FAILED), "the trace could not be initialised", restart},
    Code{CODE(STAPI_RC_GATEWAY_REQUEST_FAILED), "the Gateway refused the request, or its answer cannot be used",
         "Ask for less: an answer over 32767 bytes fails with this code. 'zulstat groups' lists the groups, 'zulstat "
         "stats "
         "-g GROUP' asks for one. Otherwise look at the Gateway's log."},
    Code{CODE(STAPI_RC_RESULT_SET_PID_MISMATCH), "the connection or result set belongs to another process", ownerRule},
    Code{CODE(STAPI_RC_RESULT_SET_TID_MISMATCH), "the connection or result set belongs to another thread", ownerRule},
    Code{CODE(STAPI_RC_NULL_RESULT_SET_POINTER), "the address of the result set pointer is NULL", callerFault},
    Code{CODE(STAPI_RC_NULL_QUERY_STRING), "the query string is NULL", callerFault},
    Code{CODE(STAPI_RC_NULL_RESULT_SET), "the result set is NULL", callerFault},
    Code{CODE(STAPI_RC_NULL_ID_DATA), "the identifier record is NULL", callerFault},
    Code{CODE(STAPI_RC_NULL_STAT_DATA), "the statistic record is NULL", callerFault},
    Code{CODE(STAPI_RC_TRACE_FILE_OPEN_FAILED), "the trace file could not be opened for append",
         "Check the file's name, directory and permissions (--trace-file)."},
    Code{CODE(STAPI_RC_NO_GOOD_IDS), "no identifier of the result set can go into a query string",
         "Check the identifiers and groups asked for: 'zulstat ids' and 'zulstat groups' list them."},
    Code{CODE(STAPI_RC_HOST_NOT_RESOLVED), "the host name could not be resolved",
         "Check the name (-H), or use an address. 'getent hosts NAME' shows what the system makes of it."},
    Code{CODE(STAPI_RC_CONNECT_BAD_PARAMETER), "the connection layer refused its parameters", checkTarget},
    Code{CODE(STAPI_RC_CONNECTION_REFUSED), "the host refused the connection: no Gateway listens there",
         "Is the Gateway running, and is it that port (-p)? 'zulstat ping' shows where a connection attempt stops."},
    Code{CODE(STAPI_RC_NETWORK_UNREACHABLE), "the host's network is unreachable",
         "Check the address (-H) and this machine's routes ('ip route get ADDRESS')."},
};
#undef CODE

}  // namespace

std::span<const Code> allCodes() {
    return codes;
}

const Code* findCode(int number) {
    const auto found =
        std::find_if(codes.begin(), codes.end(), [&](const Code& code) { return code.number == number; });
    return found == codes.end() ? nullptr : &*found;
}

const Code* findCode(std::string_view text) {
    int number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && rest == text.data() + text.size()) {
        return findCode(number);
    }
    std::string name(text);
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    if (!name.starts_with(prefix)) {
        name.insert(0, prefix);
    }
    const auto found = std::find_if(codes.begin(), codes.end(), [&](const Code& code) { return code.name == name; });
    return found == codes.end() ? nullptr : &*found;
}

std::string codeText(int number) {
    const Code* code = findCode(number);
    return code == nullptr ? "code " + std::to_string(number)
                           : std::string(code->name) + " (" + std::to_string(number) + ")";
}

}  // namespace zulstat
