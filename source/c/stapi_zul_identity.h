// The ids of the calling process and thread: for the checks of owners, and for trace lines.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

// The calling thread, without a call where the platform tells how its C library finds it.
[[nodiscard]] inline pthread_t currentThread() {
#if defined(__x86_64__) && defined(__LP64__) && defined(__GLIBC__)
    pthread_t self;
    asm("mov %%fs:16, %0" : "=r"(self));
    return self;
#else
    return pthread_self();
#endif
}

// 1 if the two threads are the same, else 0.
[[nodiscard]] inline int compareTids(pthread_t t1, pthread_t t2) {
    return pthread_equal(t1, t2) != 0 ? 1 : 0;
}

// From then on asking for the process id costs no system call: it is kept where the kernel clears it in a forked child.
// Where there is no such storage nothing changes. To be called before there is a second thread in the library.
void keepProcessId();

// The process id, 0 until somebody asks, in a page that the kernel clears in a child process. Null without such a page.
extern std::atomic<std::uint32_t>* keptPid;

// The process id from the system, which is then kept.
[[nodiscard]] std::uint32_t askForPid();

// Whether the caller is the process, and the thread, with these ids, as far as that can be told without a system call;
// false where it cannot.
[[nodiscard]] inline bool isSurelyCaller(std::uint32_t pid, pthread_t thread) {
    return keptPid != nullptr && pid != 0 && keptPid->load(std::memory_order_relaxed) == pid &&
           compareTids(currentThread(), thread) != 0;
}

// Stores the calling process's and thread's ids, 32 bits each; either pointer may be null.
inline void getPidTid(std::uint32_t* pid, std::uint32_t* tid) {
    if (pid != nullptr) {
        const std::uint32_t kept = keptPid == nullptr ? 0 : keptPid->load(std::memory_order_relaxed);
        *pid = kept != 0 ? kept : askForPid();
    }
    if (tid != nullptr) {
        *tid = static_cast<std::uint32_t>(currentThread());
    }
}
