// Two threads whose calls of the library meet: the first pauses at one of its steps, and goes on when the second is
// done, or waits for a mutex that the first holds. A step is the moment before a call of the system, of storage, a
// mutex or a stream, or behind one that others may see the effect of at once.
#pragma once

#include "support/interposer.h"

#include <atomic>

namespace meetings {

enum Role { ALONE, FIRST, SECOND };  // ALONE: its blocks are counted, and it meets nobody

// All members are read and written relaxed: a checking tool must not take the meeting itself for synchronisation of the
// two calls.
struct Meeting {
    int pauseAt = 0;  // step of the first, from 1; 0: the second follows the first
    std::atomic<int> steps = 0;
    std::atomic<const char*> pausedAt = nullptr;
    std::atomic<bool> secondMayRun = false;
    std::atomic<bool> firstMayGoOn = false;
    std::atomic<const void*> held[8] = {};  // mutexes, by the first
    std::atomic<int> blocks = 0;            // taken and not released
};

// What this thread's calls count as, as long as the object lives. FIRST lets the second run when it ends, SECOND waits
// for that and lets the first go on when it ends.
class As : support::Script {
public:
    As(Role role, Meeting& meeting);
    ~As();

private:
    void step(support::Call call);
    std::atomic<const void*>* findHeld(const void* mutex);
    void replaceHeld(const void* from, const void* to);

    const Role role;
    Meeting& meeting;
};

}  // namespace meetings
