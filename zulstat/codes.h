// The library's return codes, for messages and `zulstat explain`.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zulstat {

struct Code {
    int number;
    std::string_view name;     // as in zulstats.h
    std::string_view meaning;  // what happened
    std::string_view advice;   // what to do next
};

// Ends the advice where a connection cannot be had; ping leaves it out.
inline constexpr std::string_view pingAdvice = " 'zulstat ping' shows where a connection attempt stops.";

std::span<const Code> allCodes();
const Code* findCode(int number);
// By number ("-122") or name, whole or without STAPI_RC_, in any case.
const Code* findCode(std::string_view text);
// "STAPI_RC_GATEWAY_REQUEST_FAILED (-122)", or "code -5" for one that the library does not have.
std::string codeText(int number);

}  // namespace zulstat
