#include "series.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "interrupt.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

Series::Series(const Options& given, std::vector<std::unique_ptr<Feed>> feeds) : options(given) {
    for (std::size_t index = 0; index < feeds.size(); ++index) {
        all.push_back({.subject = options.subject(options.targets[index]), .feed = std::move(feeds[index])});
    }
}

int Series::run() {
    for (;;) {
        for (std::size_t index = 0; index < all.size(); ++index) {
            step(index);
        }
        if (std::all_of(all.begin(), all.end(), [](const Member& one) { return one.ended; })) {
            return worst();
        }
        const bool quiet = wait();
        if (interrupted()) {
            return worst();
        }
        if (quiet) {
            idle();
        }
    }
}

void Series::step(std::size_t index) {
    Member& one = all[index];
    while (std::optional<FeedEvent> event = one.feed->step(Clock::now())) {
        switch (event->kind) {
        case Event::Kind::sample:
            take(index, *event);
            ++one.taken;
            break;
        case Event::Kind::gap:
            lose(index, *event);
            break;
        case Event::Kind::end:
            one.ended = true;
            one.exitCode = event->failure ? exitCodeFor(*event->failure) : one.exitCode;
            end(index, *event);
            break;
        }
    }
}

int Series::worst() const {
    int exitCode = exitOk;
    for (const Member& one : all) {
        const bool complete = one.ended || (options.count && one.taken >= *options.count);
        exitCode = std::max(exitCode, complete ? one.exitCode : exitOk);
    }
    return exitCode;
}

// Returns whether nothing came for a while.
bool Series::wait() const {
    Clock::time_point wake = Clock::now() + std::chrono::milliseconds(200);
    std::vector<int> descriptors;
    for (const Member& one : all) {
        wake = std::min(wake, one.feed->nextWake());
        descriptors.push_back(one.feed->descriptor());
    }
    return !waitForAny(descriptors, wake);
}

std::vector<std::string> Series::waiting() const {
    std::vector<std::string> texts;
    for (const Member& one : all) {
        texts.push_back(one.feed->waiting(Clock::now(), 1));
    }
    return texts;
}

}  // namespace zulstat
