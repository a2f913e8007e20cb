// Signals, and writes that they end.
#include "interrupt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace zulstat {

TEST(ZulstatInterruptDeathTest, SecondSignalEndsAtOnce) {
    const auto signalled = [](int number, bool again) {
        catchInterrupts();
        raise(number);
        raise(number);  // one event, told twice
        if (!interrupted() || sleepUnlessInterrupted(std::chrono::seconds(1))) {
            std::_Exit(1);
        }
        if (again) {
            usleep(300000);
            raise(number);
        }
        std::_Exit(0);
    };
    for (const int number : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(signalled(number, false), testing::ExitedWithCode(0), "");
        EXPECT_EXIT(signalled(number, true), testing::KilledBySignal(number), "");
    }
}

}  // namespace zulstat
