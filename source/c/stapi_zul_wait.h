// Waiting for one descriptor.
#pragma once

enum class WaitFor {
    READABLE,
    CONNECTED,  // writable, or with an exceptional condition
};

inline constexpr int NO_TIME_LIMIT = -1;  // in place of seconds

// What select says: positive when the descriptor is ready, 0 when the time is over, -1 with errno set. CONNECTED also
// tells whether it can be written; READABLE leaves `writable` alone.
[[nodiscard]] int waitForDescriptor(int descriptor, WaitFor condition, int seconds, bool* writable);
