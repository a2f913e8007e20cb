// The library's return codes: numbers, names and meanings.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace monitor {

struct Code {
    int number;
    std::string_view name;     // as in zulstats.h
    std::string_view meaning;  // what happened
};

// Codes that programs ask for; worker.cpp holds them against the library's header.
inline constexpr int RC_CONNECTION_LOST = -102;
inline constexpr int RC_REQUEST_FAILED = -122;
inline constexpr int RC_HOST_NOT_RESOLVED = -132;

std::span<const Code> allCodes();
// Nothing for a number or a text that is none of them.
const Code* findCode(int number);
// By number ("-122") or name, whole or without STAPI_RC_, in any case.
const Code* findCode(std::string_view text);
// "STAPI_RC_GATEWAY_REQUEST_FAILED (-122)", or "code -5" for one that the library does not have.
std::string codeText(int number);

}  // namespace monitor
