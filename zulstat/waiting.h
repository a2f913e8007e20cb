// Waits of the commands, which signals end.
#pragma once

#include <algorithm>
#include <vector>

#include "interrupt.h"
#include "monitor/schedule.h"

namespace zulstat {

// Waits until one of the descriptors is readable (-1 is passed over), a signal of interrupt.h has come or the moment is
// there. Returns false where only time has passed.
bool waitForAny(const std::vector<int>& descriptors, monitor::Clock::time_point wake);

// Steps things that have step(), descriptor() and nextWake(), all at the same time, until `done` holds for each; those
// that are done go on meanwhile. Returns false when a signal came first.
template <typename Things, typename Done>
bool stepUntil(Things& things, Done done) {
    for (;;) {
        std::vector<int> descriptors;
        monitor::Clock::time_point wake = monitor::Clock::time_point::max();
        bool all = true;
        for (auto& thing : things) {
            thing.step(monitor::Clock::now());
            all = all && done(thing);
            descriptors.push_back(thing.descriptor());
            wake = std::min(wake, thing.nextWake());
        }
        if (all) {
            return true;
        }
        waitForAny(descriptors, wake);
        if (interrupted()) {
            return false;
        }
    }
}

}  // namespace zulstat
