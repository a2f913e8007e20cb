// SIGINT and SIGTERM, as a descriptor that becomes readable and as interrupted system calls: the first one ends the
// program in order, a second one at once. Signals in quick succession are one, as timeout(1) sends them.
#pragma once

#include <chrono>

namespace zulstat {

// Installs the handlers, without SA_RESTART, one for SIGALRM among them. Call once, before the first worker is started.
void catchInterrupts();
// Readable from the first signal on; -1 before catchInterrupts().
int interruptDescriptor();
bool interrupted();
// Waits, but no longer than until the first signal. Returns false when there was one.
bool sleepUnlessInterrupted(std::chrono::milliseconds duration);

}  // namespace zulstat
