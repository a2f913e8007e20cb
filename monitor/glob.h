// Globs over identifiers, and what their stars matched.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monitor {

// '*' any characters, '?' one character; everything else stands for itself. It matches the whole text; each star takes
// as little as it can. Returns what the stars matched, in their order; nothing where it does not match.
std::optional<std::vector<std::string_view>> matchGlob(std::string_view glob, std::string_view text);

// "a_$1_b" with what the stars matched, which `clean` may change; "$$" is a dollar sign. What has no star is empty.
std::string fillIn(std::string_view text, const std::vector<std::string_view>& stars,
                   std::string (*clean)(std::string_view) = nullptr);
// The largest number behind a dollar sign.
std::size_t starsNamed(std::string_view text);

}  // namespace monitor
