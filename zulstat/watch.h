// zulstat watch. Repeated samples: redrawn on a terminal, rows in a pipe, flushed per sample.
#pragma once

namespace zulstat {

struct Options;

// Returns the exit code of report.h. Throws what print() of output.h throws.
int runWatch(const Options& options);

}  // namespace zulstat
