// Work in a forked process, for what ends a process, blocks it, or needs another process id; and what is open in this.
#pragma once

#include <functional>

namespace support {

// Runs `work` in a child and returns its result, 0 to 253. -1: the child threw. -100 - n: signal n ended it; one that
// is not done after `seconds` ends by SIGALRM.
[[nodiscard]] int runInChild(const std::function<int()>& work, unsigned seconds = 10);

// Expects 0 of it.
void expectInChild(const std::function<int()>& work);

// Descriptors that are open, and threads that run, in this process.
[[nodiscard]] int openDescriptors();
[[nodiscard]] int runningThreads();

// Their number once it has fallen to `count` or below, or is still above after seconds: a Gateway in this process may
// be about to close a connection that its client has closed, and a thread that was joined can still be listed.
[[nodiscard]] int fallenTo(int count, int (*current)());

}  // namespace support
