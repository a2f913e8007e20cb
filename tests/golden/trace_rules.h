// Which lines a trace may hold.
#ifndef TRACE_RULES_H
#define TRACE_RULES_H

#include <string>

namespace golden {

// What is wrong with a line of a trace made at this level: it is neither that of a trace point that is open at the
// level, with its number, kind and text, nor part of a dump, a list or a banner. Empty when nothing is.
[[nodiscard]] std::string faultOf(const std::string& line, int level);

}  // namespace golden

#endif
