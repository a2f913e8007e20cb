// Work in a forked process: for what ends a process, blocks it, or needs another process id.
#ifndef CHILD_H
#define CHILD_H

#include <functional>

namespace unittest {

// Runs `work` in a child and returns its result, 0 to 253. -1: the child threw. -100 - n: signal n ended it; one that
// is not done after `seconds` ends by SIGALRM.
[[nodiscard]] int runInChild(const std::function<int()>& work, unsigned seconds = 10);

}  // namespace unittest

#endif
