// How watch shows its samples.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "feed.h"
#include "monitor/sample.h"

namespace zulstat {

struct Options;

class WatchDisplay {
public:
    WatchDisplay() = default;
    virtual ~WatchDisplay() = default;
    WatchDisplay(const WatchDisplay&) = delete;
    WatchDisplay& operator=(const WatchDisplay&) = delete;

    // `gateway` is the place among the targets of the options.
    virtual void show(std::size_t gateway, const monitor::Sample& sample) = 0;
    // No sample could be had. Called after each attempt; a first gap is the one that ended a series.
    virtual void gap(std::size_t gateway, const FeedEvent& event) = 0;
    // There will be no more of this Gateway, while others go on. Called where showsState().
    virtual void end(std::size_t gateway, const FeedEvent& event) {
        static_cast<void>(gateway);
        static_cast<void>(event);
    }
    // Called a few times a second in between. `waiting` says what the answers wait for, once that takes long.
    virtual void refresh(const std::vector<std::string>& waiting) {
        static_cast<void>(waiting);
    }
    // Whether gap() tells the user already what the messages on standard error would.
    virtual bool showsState() const {
        return false;
    }
};

// A table drawn again and again on a terminal, rows in a pipe, or documents, as the options and standard output want.
std::unique_ptr<WatchDisplay> makeWatchDisplay(const Options& options);

}  // namespace zulstat
