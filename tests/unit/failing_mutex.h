// Mutex calls that fail on request. Every pthread_mutex_ call of this program's own objects, the library's among them,
// goes through here.
#ifndef FAILING_MUTEX_H
#define FAILING_MUTEX_H

#include <pthread.h>

namespace support {

enum class MutexCall { INIT, LOCK, UNLOCK, DESTROY };

// While it lives, the call on the given mutex returns `result` and sets errno on the calling thread instead of doing
// its work. One at a time.
class MutexFault {
public:
    MutexFault(MutexCall call, const pthread_mutex_t* mutex, int result, int error);
    ~MutexFault();
    MutexFault(const MutexFault&) = delete;
    MutexFault& operator=(const MutexFault&) = delete;
};

// While it lives, the first such call on the given mutex by the calling thread calls the function before it does its
// work. One at a time.
class MutexHook {
public:
    MutexHook(MutexCall call, const pthread_mutex_t* mutex, void (*before)());
    ~MutexHook();
    MutexHook(const MutexHook&) = delete;
    MutexHook& operator=(const MutexHook&) = delete;
};

}  // namespace support

#endif
