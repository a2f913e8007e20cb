// The process in which a Collector lets the library work: the program zulstats-worker.
//
// The library waits without limit and holds a lock of the process while it closes a connection; its waits are ended by
// ending the process. A worker holds one connection to one Gateway. It reports each step before it takes it, answers
// queries until it is told to close, and ends after any failure. Its standard input and output are the channel to its
// Collector; the trace may go to standard error; all other descriptors it closes at its start. It gains no privileges
// by what it might execute, and ends with the thread that started it, by the kernel's hand, or when the channel is
// closed.
#pragma once

namespace monitor {

// The standard input of the process is the channel, a stream socket. Returns the exit code of the process. Blocks as
// the library does.
int runWorker();

}  // namespace monitor
