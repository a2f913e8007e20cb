// Messages on standard error, which never keep the exporter waiting.
#pragma once

#include <cstdint>
#include <string_view>

namespace exporter {

// "zulstat-exporter: TEXT". Bytes that are no printable ASCII become '?'. A line that standard error does not take at
// once is dropped.
void log(std::string_view text);
std::uint64_t logLinesDropped();

// Tells the service manager that asked for it: "READY=1".
void notifyManager(std::string_view state);

}  // namespace exporter
