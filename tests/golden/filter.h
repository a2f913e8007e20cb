// Trace lines without what differs from run to run.
#ifndef FILTER_H
#define FILTER_H

#include <string>

namespace golden {

// The trace point of a line; 0 for a line without one.
[[nodiscard]] int numberOf(const std::string& line);

// "[1234] ENTRY  message" of a trace point's line. Addresses, descriptors, process and thread ids, the port, the
// directory and what the resolver said stand as names in angle brackets. The address of a dump line is gone.
[[nodiscard]] std::string filtered(const std::string& line, const std::string& directory, int port);

}  // namespace golden

#endif
