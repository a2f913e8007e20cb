// The process in which a Collector lets the library work.
//
// It is this program again, started as `zulstat --worker-process PARENT` with a socket at descriptor 3. It reports each
// step before it takes it, answers queries until it is told to close, and ends after any failure. The kernel ends it
// with its parent. Its standard input and output are /dev/null; the trace may go to standard error.
#pragma once

#include <string_view>

namespace monitor {

inline constexpr std::string_view workerArgument = "--worker-process";
inline constexpr int workerChannel = 3;

// Returns the exit code of the process.
int runWorker(int argc, char** argv);

}  // namespace monitor
