#include "waiting.h"

#include <poll.h>

namespace zulstat {

bool waitForAny(const std::vector<int>& descriptors, monitor::Clock::time_point wake) {
    std::vector<pollfd> watched = {{interruptDescriptor(), POLLIN, 0}};
    for (const int descriptor : descriptors) {
        watched.push_back({descriptor, POLLIN, 0});
    }
    return poll(watched.data(), watched.size(), monitor::pollTime(wake, monitor::Clock::now())) != 0;
}

}  // namespace zulstat
