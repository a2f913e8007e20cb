// What to do about a return code of the library.
#pragma once

#include <string_view>

namespace zulstat {

// Ends the advice where a connection cannot be had; ping leaves it out.
inline constexpr std::string_view PING_ADVICE = " 'zulstat ping' shows where a connection attempt stops.";

// Sentences for people; empty for a code that the library does not have.
std::string_view adviceFor(int code);

}  // namespace zulstat
