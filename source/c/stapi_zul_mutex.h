// The library's private mutexes, which no trace line shows, and cancellation, which is off while any lock is held: a
// thread cancelled then would leave the lock held for good.
#pragma once

#include <pthread.h>

// Switches the calling thread's cancellation off. Returns what restoreCancellation takes.
[[nodiscard]] inline int disableCancellation() {
    int before = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    return before;
}

inline void restoreCancellation(int before) {
    pthread_setcancelstate(before, nullptr);
}

// Holds a private mutex for a block.
class MutexHold {
public:
    explicit MutexHold(pthread_mutex_t& held) : mutex(held), cancellation(disableCancellation()) {
        pthread_mutex_lock(&mutex);
    }
    ~MutexHold() {
        pthread_mutex_unlock(&mutex);
        restoreCancellation(cancellation);
    }
    MutexHold(const MutexHold&) = delete;
    MutexHold& operator=(const MutexHold&) = delete;

private:
    pthread_mutex_t& mutex;
    const int cancellation;
};
