// Texts of a Gateway in HTML.
#pragma once

#include <string>
#include <string_view>

namespace monitor {

// Characters of markup become references; what is no UTF-8, control characters and those that reorder text become
// U+FFFD.
std::string escapeHtml(std::string_view text);

}  // namespace monitor
