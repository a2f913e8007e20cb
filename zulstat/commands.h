// The commands. Each returns the exit code of report.h, check that of a monitoring plugin, and throws what print() of
// output.h throws.
#pragma once

#include <string>

namespace zulstat {

struct Options;

int runQuery(const Options& options);  // stats, ids, groups
int runWatch(const Options& options);  // repeated samples: redrawn on a terminal, rows in a pipe, flushed per sample
int runRecord(const Options& options);
int runTop(const Options& options);     // full screen
int runPlot(const Options& options);    // of a recording, or of samples as they come
int runDiff(const Options& options);    // exitPartly where something differs
int runReport(const Options& options);  // a page from recordings
int runPing(const Options& options);
int runExplain(const Options& options);
int runCheck(const Options& options);  // throws nothing
int runMap(const Options& options);    // samples for a while, then a mapping file on standard output
int runConfig(const Options& options);
int runComplete(const Options& options);
int runDemo(const Options& options);  // starts zulstat-sim on a free port, and top on it, or watch without a terminal

// The line and the exit code of a check that cannot be made.
int concludeUnknown(const std::string& why);

}  // namespace zulstat
