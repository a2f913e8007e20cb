// One query of one Gateway.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "monitor/sampler.h"
#include "options.h"

namespace zulstat {

// Asks a Gateway what stats, ids or groups ask for, and closes the connection, with one deadline for all of it. Nothing
// waits: call step() when descriptor() is readable or nextWake() has come. Use it from one thread.
class Asking {
public:
    // The options outlive it.
    Asking(const Options& options, const monitor::Target& target, monitor::Clock::time_point deadline);
    // The same with a query of its own.
    Asking(const Options& options, const monitor::Target& target, monitor::Clock::time_point deadline,
           const monitor::Query& query);

    void step(monitor::Clock::time_point now);
    // Whether `sample` or `failure` is there.
    bool answered() const {
        return stage > Stage::counting;
    }
    bool over() const {
        return stage == Stage::over;
    }
    int descriptor() const;
    monitor::Clock::time_point nextWake() const;

    monitor::Target target;
    monitor::Sample sample;  // filtered; of groups with the number of statistics where that is wanted
    std::optional<monitor::Failure> failure;
    std::vector<std::string> known;           // what the Gateway has, where an element failed and notes are wanted
    std::optional<monitor::Failure> closing;  // why the close has no answer

private:
    enum class Stage { querying, counting, looking, closing, over };

    void take(monitor::Outcome outcome);
    void countNext();
    void finish();

    const Options& options;
    monitor::Clock::time_point deadline;
    monitor::Sampler sampler;
    Stage stage = Stage::querying;
    std::size_t counted = 0;  // groups whose statistics are counted
};

}  // namespace zulstat
