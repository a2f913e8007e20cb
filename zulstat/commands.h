// The commands that end after one query or a few. Each returns the exit code and throws what print() throws.
#pragma once

#include <string>

namespace zulstat {

struct Options;

int runQuery(const Options& options);  // stats, ids, groups
int runPing(const Options& options);
int runExplain(const Options& options);
int runCheck(const Options& options);
// The line and the exit code of a check that cannot be made.
int concludeUnknown(const std::string& why);

}  // namespace zulstat
