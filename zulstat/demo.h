// zulstat demo. Starts zulstat-sim on a free port, and top on it, or watch without a terminal.
#pragma once

namespace zulstat {

struct Options;

// Returns the exit code of report.h. Throws what print() of output.h throws.
int runDemo(const Options& options);

}  // namespace zulstat
