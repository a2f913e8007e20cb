// Storage that ends right before a page on which every access faults: one byte read or written too many ends the test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace support {

class GuardedBlock {
public:
    explicit GuardedBlock(std::size_t size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t usable = (size / page + 1) * page;
        mapped = usable + page;
        base = static_cast<unsigned char*>(
            mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base == MAP_FAILED || mprotect(base + usable, page, PROT_NONE) != 0) {
            throw std::bad_alloc();
        }
        start = base + usable - size;
    }
    explicit GuardedBlock(const std::vector<unsigned char>& content) : GuardedBlock(content.size()) {
        std::copy(content.begin(), content.end(), start);
    }
    ~GuardedBlock() {
        munmap(base, mapped);
    }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    unsigned char* data() {
        return start;
    }
    char* text() {
        return reinterpret_cast<char*>(start);
    }

private:
    std::size_t mapped = 0;
    unsigned char* base = nullptr;
    unsigned char* start = nullptr;
};

}  // namespace support
