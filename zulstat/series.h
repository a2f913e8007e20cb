// The loop of watch and record: the series of several Gateways at the same time.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "feed.h"
#include "options.h"
#include "report.h"

namespace zulstat {

// One Gateway's.
struct Member {
    Subject subject;
    std::unique_ptr<Feed> feed;
    long taken = 0;  // samples
    int exitCode = exitOk;
    bool ended = false;
};

class Series {
public:
    // The options outlive it. The feeds are of their targets, in the order of these.
    Series(const Options& given, std::vector<std::unique_ptr<Feed>> feeds);
    virtual ~Series() = default;
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;

    // Goes on until all have ended or a signal comes; returns the worst exit code. A signal ends a series in order,
    // also one that has no end of its own.
    int run();

protected:
    virtual void take(std::size_t index, FeedEvent& event) = 0;
    virtual void lose(std::size_t index, const FeedEvent& event) = 0;
    virtual void end(std::size_t index, const FeedEvent& event) = 0;
    // Nothing came for a while.
    virtual void idle() {
    }
    // What the answers wait for, once that takes long.
    std::vector<std::string> waiting() const;

    const Options& options;
    std::deque<Member> all;

private:
    void step(std::size_t index);
    int worst() const;
    bool wait() const;
};

}  // namespace zulstat
