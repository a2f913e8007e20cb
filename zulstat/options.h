// The command line and the environment.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "monitor/collector.h"
#include "monitor/follower.h"
#include "format.h"
#include "range.h"
#include "rate.h"
#include "report.h"
#include "monitor/sample.h"
#include "recording/time.h"
#include "recording/writer.h"
#include "text.h"
#include "usage_error.h"

namespace zulstat {

// What check looks at in place of a value.
enum class ChangeWanted { none, perSecond, difference };

enum class Command {
    stats,
    ids,
    groups,
    watch,
    record,
    top,
    plot,
    diff,
    report,
    ping,
    explain,
    check,
    map,
    config,
    complete,
    demo
};

// What holds, and who says so.
struct InForce {
    std::string kind;  // "option", "target" or "selection"
    std::string name;
    std::string value;
    std::string from;  // "command line", a variable of the environment, "FILE:LINE" or "default"
};

struct Options {
    Command command = Command::stats;

    std::vector<monitor::Target> targets;  // at least one, none twice
    monitor::Target target;                // the first of them, which the members without one are about
    double timeout = 5;                    // seconds
    std::optional<Format> format;          // of -o or -j; each command has a default
    IdFilter globs;                        // -I, -X, and selections with globs
    bool header = true;
    bool lineFeeds = false;  // csv
    bool color = true;       // false for --no-color, NO_COLOR, TERM=dumb and where standard output is not a terminal
    bool quiet = false;
    bool verbose = false;
    int traceLevel = 0;
    std::string traceFile;

    std::vector<std::string> ids;     // stats, watch, top; of check globs too
    std::vector<std::string> groups;  // -g of stats, ids, watch, top; never together with ids

    bool counts = false;  // groups -l

    std::shared_ptr<monitor::Mapper> mapper;  // --map; nothing without it
    double observe = 10;                      // map: seconds
    bool web = false;                         // demo

    // watch and top (interval, and whether to reconnect); ping (interval and count).
    double interval = 1;        // seconds, at least 0.05
    std::optional<long> count;  // without it watch goes on until it is interrupted
    DerivedGlobs derived;       // -r and -d
    long headerEvery = 20;      // 0: only once
    bool reconnect = true;
    bool raw = false;   // top: numbers as the Gateway sends them
    bool wide = false;  // watch: a line for each sample

    // A recording in place of Gateways; empty for none. The times go with it.
    std::string from;
    std::optional<recording::TimeWord> at;
    std::optional<recording::TimeWord> to;
    std::optional<double> speed;  // of the recording's seconds in each second; nothing: without waits
    bool intervalGiven = false;

    std::string file;  // record
    recording::Rotation rotation;
    std::size_t keep = 0;

    std::vector<std::string> files;  // report, diff
    std::string outputFile;          // report

    std::vector<std::string> codes;  // explain
    std::vector<InForce> inForce;    // config, complete
    std::string completed;           // complete: the kind of word
    std::optional<Range> warning;    // check
    std::optional<Range> critical;
    ChangeWanted change = ChangeWanted::none;
    std::vector<std::string> expected;  // states; none: any value will do

    std::chrono::milliseconds timeoutMs() const;
    std::chrono::milliseconds intervalMs() const;
    bool several() const {
        return targets.size() > 1;
    }
    Layout layout() const;
    monitor::CollectorOptions collector() const {  // with the interrupt descriptor
        return collector(target);
    }
    monitor::CollectorOptions collector(const monitor::Target& gateway) const;
    // What stats, ids, watch, top and check ask for: everything, the ids or the groups.
    monitor::Query query() const;
    monitor::FollowerOptions follower() const {  // of watch and top
        return follower(target);
    }
    monitor::FollowerOptions follower(const monitor::Target& gateway) const;
    Subject subject() const {
        return subject(target);
    }
    Subject subject(const monitor::Target& gateway) const;
    // Throws UsageError where the library's trace would fall into a screen that is drawn again and again.
    void refuseTraceOnScreen() const;
};

// Thrown for -h and -V.
struct TextWanted {
    std::string text;
};

// Throws UsageError and TextWanted.
Options parseOptions(int argc, const char* const* argv);

}  // namespace zulstat
