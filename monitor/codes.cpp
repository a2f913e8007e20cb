#include "codes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace monitor {

namespace {

constexpr std::string_view PREFIX = "STAPI_RC_";

constexpr std::array CODES = {
    Code{1, "STAPI_RC_LOCK_ALREADY_INITIALIZED", "the connection list's lock was initialised before"},
    Code{-2, "STAPI_RC_LOCK_INIT_FAILED", "the connection list's lock could not be created"},
    Code{-100, "STAPI_RC_NULL_GATEWAY_TOKEN", "the gateway token is NULL"},
    Code{-101, "STAPI_RC_GATEWAY_TOKEN_NOT_FOUND", "the connection was closed, removed or never opened"},
    Code{-102, "STAPI_RC_GATEWAY_CONNECTION_LOST",
         "sending, waiting or receiving failed, or the Gateway gave the connection up"},
    Code{-103, "STAPI_RC_NULL_PARAMETER", "an internal routine received a NULL pointer"},
    Code{-104, "STAPI_RC_INVALID_TRACE_LEVEL", "the trace level is outside 0..5"},
    Code{-105, "STAPI_RC_NULL_VERSION_POINTER", "the address for the protocol version is NULL"},
    Code{-106, "STAPI_RC_RESULT_SET_NOT_USER_OWNED", "the result set is not a copy and cannot be freed by the caller"},
    Code{-107, "STAPI_RC_INVALID_PORT", "the port is outside 1..65535"},
    Code{-108, "STAPI_RC_NULL_GATEWAY_TOKEN_POINTER", "the address for the gateway token is NULL"},
    Code{-109, "STAPI_RC_NULL_POINTER", "the address for the result is NULL"},
    Code{-110, "STAPI_RC_NO_RESULT_SET_BUFFER", "the connection or the result set has no content buffer"},
    Code{-111, "STAPI_RC_NO_MEMORY", "storage ran out"},
    Code{-113, "STAPI_RC_END_OF_RESULT_SET", "there is no further entry"},
    Code{-115, "STAPI_RC_GTL_CORRUPT", "the connection list is inconsistent or longer than 256 entries"},
    Code{-116, "STAPI_RC_INVALID_OWNER", "the owner code of a new result set is unknown"},
    Code{-118, "STAPI_RC_CONNECT_FAILED", "connecting failed for a reason without a code of its own"},
    Code{-119, "STAPI_RC_WRONG_RESULT_SET_CONTENT", "the result set does not hold what the call expects"},
    Code{-121, "STAPI_RC_TRACE_INIT_FAILED", "the trace could not be initialised"},
    Code{-122, "STAPI_RC_GATEWAY_REQUEST_FAILED", "the Gateway refused the request, or its answer cannot be used"},
    Code{-123, "STAPI_RC_RESULT_SET_PID_MISMATCH", "the connection or result set belongs to another process"},
    Code{-124, "STAPI_RC_RESULT_SET_TID_MISMATCH", "the connection or result set belongs to another thread"},
    Code{-125, "STAPI_RC_NULL_RESULT_SET_POINTER", "the address of the result set pointer is NULL"},
    Code{-126, "STAPI_RC_NULL_QUERY_STRING", "the query string is NULL"},
    Code{-127, "STAPI_RC_NULL_RESULT_SET", "the result set is NULL"},
    Code{-128, "STAPI_RC_NULL_ID_DATA", "the identifier record is NULL"},
    Code{-129, "STAPI_RC_NULL_STAT_DATA", "the statistic record is NULL"},
    Code{-130, "STAPI_RC_TRACE_FILE_OPEN_FAILED", "the trace file could not be opened for append"},
    Code{-131, "STAPI_RC_NO_GOOD_IDS", "no identifier of the result set can go into a query string"},
    Code{-132, "STAPI_RC_HOST_NOT_RESOLVED", "the host name could not be resolved"},
    Code{-134, "STAPI_RC_CONNECT_BAD_PARAMETER", "the connection layer refused its parameters"},
    Code{-135, "STAPI_RC_CONNECTION_REFUSED", "the host refused the connection: no Gateway listens there"},
    Code{-136, "STAPI_RC_NETWORK_UNREACHABLE", "the host's network is unreachable"},
};

}  // namespace

std::span<const Code> allCodes() {
    return CODES;
}

const Code* findCode(int number) {
    const auto found =
        std::find_if(CODES.begin(), CODES.end(), [&](const Code& code) { return code.number == number; });
    return found == CODES.end() ? nullptr : &*found;
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
    if (!name.starts_with(PREFIX)) {
        name.insert(0, PREFIX);
    }
    const auto found = std::find_if(CODES.begin(), CODES.end(), [&](const Code& code) { return code.name == name; });
    return found == CODES.end() ? nullptr : &*found;
}

std::string codeText(int number) {
    const Code* code = findCode(number);
    return code == nullptr ? "code " + std::to_string(number)
                           : std::string(code->name) + " (" + std::to_string(number) + ")";
}

}  // namespace monitor
