// Allocations that fail on request: every malloc, calloc, realloc and free of this program's own objects, the library's
// among them. What the C and C++ run-time libraries allocate (streams, operator new) is not counted.
#ifndef FAILING_MALLOC_H
#define FAILING_MALLOC_H

namespace support {

// While it lives, counts the calling thread's allocations and lets the nth fail, or, given a function, calls that
// before it; with 0 none fails. One at a time.
class AllocationFault {
public:
    explicit AllocationFault(int nth, void (*before)() = nullptr);
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;

    [[nodiscard]] int attempts() const;  // failed ones included
    [[nodiscard]] int taken() const;     // blocks handed out
    [[nodiscard]] int released() const;  // blocks given back, whoever had allocated them
};

}  // namespace support

#endif
