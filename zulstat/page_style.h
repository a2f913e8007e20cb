// How the page of zulstat report looks: light and dark, on paper and on a phone.
#pragma once

#include <cstddef>
#include <string_view>

namespace zulstat {

inline constexpr std::size_t GATEWAY_COLORS = 8;  // classes g0 to g7
inline constexpr std::size_t STATE_COLORS = 8;    // classes s0 to s7, of which the first is the calmest

std::string_view pageStyle();

}  // namespace zulstat
