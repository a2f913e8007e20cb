#include "failing_malloc.h"

#include <cerrno>
#include <cstddef>

namespace {

thread_local struct {
    bool counting;
    int failing;       // the attempt that fails, 0: none
    void (*before)();  // called before that one in place of failing it, may be null
    int attempts;
    int taken;
    int released;
} counters;

// True if this attempt is the one that fails.
bool fails() {
    if (counters.counting && ++counters.attempts == counters.failing) {
        if (counters.before != nullptr) {
            counters.before();
            return false;
        }
        errno = ENOMEM;
        return true;
    }
    return false;
}

void* count(void* block) {
    counters.taken += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) {
    return fails() ? nullptr : count(__real_malloc(size));
}

void* __wrap_calloc(std::size_t number, std::size_t size) {
    return fails() ? nullptr : count(__real_calloc(number, size));
}

void* __wrap_realloc(void* block, std::size_t size) {
    if (block == nullptr) {
        return __wrap_malloc(size);
    }
    return fails() ? nullptr : __real_realloc(block, size);
}

void __wrap_free(void* block) {
    counters.released += block != nullptr ? 1 : 0;
    __real_free(block);
}

}  // extern "C"

namespace support {

AllocationFault::AllocationFault(int nth, void (*before)()) {
    counters = {true, nth, before, 0, 0, 0};
}

AllocationFault::~AllocationFault() {
    counters.counting = false;
}

int AllocationFault::attempts() const {
    return counters.attempts;
}

int AllocationFault::taken() const {
    return counters.taken;
}

int AllocationFault::released() const {
    return counters.released;
}

}  // namespace support
