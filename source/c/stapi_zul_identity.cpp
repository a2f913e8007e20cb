#include "stapi_zul_identity.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

std::atomic<std::uint32_t>* keptPid;

void keepProcessId() {
    if (keptPid != nullptr) {
        return;
    }
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return;
    }
    // Emulators of processors may take every advice and follow none, which one that there is not shows.
    constexpr int NO_ADVICE = -1;
    if (madvise(page, size, NO_ADVICE) == 0) {
        munmap(page, size);
        return;
    }
    if (madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return;
    }
    keptPid = new (page) std::atomic<std::uint32_t>(0);
}

std::uint32_t askForPid() {
    const auto pid = static_cast<std::uint32_t>(getpid());
    if (keptPid != nullptr) {
        keptPid->store(pid, std::memory_order_relaxed);
    }
    return pid;
}
