#include "faults.h"

#include <sys/mman.h>

int main(int argc, char** argv) {
    const bool full = argc > 2 && std::string_view(argv[2]) == "--full";
    const int behind = full ? 3 : 2;
    void* shared = mmap(nullptr, sizeof(faults::Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    faults::record = shared == MAP_FAILED ? nullptr : static_cast<faults::Record*>(shared);
    for (const auto& [name, run] : {std::pair<const char*, void (*)(faults::Walk&)>("memory", faults::walkMemory),
                                    {"calls", faults::walkCalls},
                                    {"wire", faults::walkWire},
                                    {"boundary", faults::walkBoundary},
                                    {"descriptors", faults::walkDescriptors}}) {
        if (faults::record != nullptr && argc > 1 && argc <= behind + 1 && std::string_view(argv[1]) == name) {
            faults::Walk walk{name, full, argc > behind ? argv[behind] : ""};
            const auto start = std::chrono::steady_clock::now();
            run(walk);
            const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
            std::printf("%-12s %6d points %4d failed %6.1f s\n", name, walk.points, walk.failures, taken.count());
            return walk.points > 0 && walk.failures == 0 ? 0 : 1;
        }
    }
    std::fputs("usage: fault_walk memory|calls|wire|boundary|descriptors [--full] [POINT]\n", stderr);
    return 2;
}
