// zulstat top. Full screen.
#pragma once

namespace zulstat {

struct Options;

// Returns the exit code of report.h. Throws what print() of output.h throws.
int runTop(const Options& options);

}  // namespace zulstat
