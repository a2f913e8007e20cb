// The lock wrapper: codes and markers.
#include "stapi_zul_lock.h"

#include "support/interposer.h"
#include "support/trace_capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace {

using namespace support;

constexpr struct {
    int (*call)(StapiLock*);
    Call mutexCall;
    int failedCode;
    int firstNumber;  // entry; not initialised, failed and exit follow
} GUARDED[] = {
    {requestLock, Call::pthread_mutex_lock, -4, 3103},
    {releaseLock, Call::pthread_mutex_unlock, -5, 3107},
    {destroyLock, Call::pthread_mutex_destroy, -4, 3111},
};

TEST(Lock, recordWithoutItsMarkerIsRefusedAndItsMutexNotTouched) {
    TraceCapture trace(5);
    for (const auto& operation : GUARDED) {
        for (const std::uint32_t marker : {0u, LOCK_DESTROYED, 0xFFEEDDCDu}) {
            StapiLock lock{};
            std::memset(static_cast<void*>(&lock.mutex), 0xA5, sizeof lock.mutex);
            const std::string before(reinterpret_cast<const char*>(&lock.mutex), sizeof lock.mutex);
            lock.marker = marker;
            EXPECT_EQ(operation.call(&lock), STAPI_RC_LOCK_NOT_INITIALIZED);
            EXPECT_EQ(isLockInitialized(&lock), marker);
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(&lock.mutex), sizeof lock.mutex), before);
            const int first = operation.firstNumber;
            EXPECT_EQ(trace.takeNumbers(), (std::vector{first, first + 1, first + 3}));
        }
    }
}

TEST(Lock, failedMutexCallShowsErrnoInItsLineAndTheCallsResultAtExit) {
    for (const auto& operation : GUARDED) {
        StapiLock lock{};
        ASSERT_EQ(initializeLock(&lock), 0);
        TraceCapture trace(5);
        {
            const CallFault fault(operation.mutexCall, {.error = 77, .result = EBUSY}, &lock.mutex);
            EXPECT_EQ(operation.call(&lock), operation.failedCode);
        }
        const std::vector<std::string> lines = trace.take();
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_TRUE(lines[1].starts_with(format("[%d] *EXC*", operation.firstNumber + 2))) << lines[1];
        EXPECT_TRUE(lines[1].ends_with(" errno=77")) << lines[1];
        EXPECT_TRUE(lines[2].ends_with(format(" mutexRc=%d rc=%d", EBUSY, operation.failedCode))) << lines[2];
        EXPECT_EQ(destroyLock(&lock), 0);
    }
    StapiLock lock{};
    lock.marker = LOCK_DESTROYED;
    const CallFault fault(Call::pthread_mutex_init, {.error = 77, .result = ENOMEM}, &lock.mutex);
    EXPECT_EQ(initializeLock(&lock), STAPI_RC_LOCK_INIT_FAILED);
    EXPECT_EQ(isLockInitialized(&lock), LOCK_DESTROYED);
}

}  // namespace
