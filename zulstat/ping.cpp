// zulstat ping.
#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "charset.h"
#include "commands.h"
#include "monitor/collector.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr long DEFAULT_COUNT = 4;

const Query EVERYTHING = {What::stats, {}};

// The queries of one Gateway, each printed when it is answered.
class Pinging {
public:
    Pinging(const Options& given, const Target& gateway)
        : options(given),
          subject(given.subject(gateway)),
          lead(options.several() ? escapeForTerminal(targetText(gateway)) + ": " : ""),
          collector(given.collector(gateway)) {
    }

    void step(Clock::time_point now) {
        if (!over && !closing && !collector.busy() && now >= due) {
            collector.begin(EVERYTHING, now + options.timeoutMs());
        }
        while (std::optional<Outcome> outcome = collector.advance(now)) {
            closing ? closed(*outcome) : take(*outcome, now);
        }
    }
    int descriptor() const {
        return collector.busy() ? collector.descriptor() : -1;
    }
    Clock::time_point nextWake() const {
        return collector.busy() ? collector.nextWake() : over ? Clock::time_point::max() : due;
    }

    void printSummary() {
        if (done > 0 && !std::exchange(summed, true)) {
            print(inUsersCharacters(fmt::format("{}{} {}, min/avg/max {:.1f}/{:.1f}/{:.1f} ms\n", lead, done,
                                                done == 1 ? "query" : "queries", least, sum / static_cast<double>(done),
                                                most)));
        }
    }

    bool over = false;
    int exitCode = exitOk;

private:
    void take(const Outcome& outcome, Clock::time_point now) {
        const Sample& sample = outcome.sample;
        if (sample.freshConnection) {
            print(inUsersCharacters(fmt::format("{}: open in {:.1f} ms, protocol {}\n",
                                                escapeForTerminal(targetText(subject.target)),
                                                milliseconds(sample.openSeconds), escapeForTerminal(sample.protocol))));
        }
        if (outcome.failure) {
            printSummary();
            exitCode = reportFailure(*outcome.failure, EVERYTHING, subject);
            over = true;
            return;
        }
        const double time = milliseconds(sample.querySeconds);
        least = std::min(least, time);
        most = std::max(most, time);
        sum += time;
        ++done;
        print(inUsersCharacters(fmt::format("{}query {}: {:.1f} ms, {} entries, {}\n", lead, done, time,
                                            sample.items.size(), sizeText(sample))));
        due = Clock::now() + options.intervalMs();
        if (done == options.count.value_or(DEFAULT_COUNT)) {
            printSummary();
            closing = collector.beginClose(now + options.timeoutMs());
            over = !closing;
        }
    }
    void closed(const Outcome& outcome) {
        over = true;
        if (outcome.failure) {
            noteClosing(*outcome.failure, subject);
        }
    }

    const Options& options;
    const Subject subject;
    const std::string lead;
    Collector collector;
    Clock::time_point due = Clock::time_point::min();
    double least = std::numeric_limits<double>::infinity();
    double most = 0;
    double sum = 0;
    long done = 0;
    bool closing = false;
    bool summed = false;
};

}  // namespace

int runPing(const Options& options) {
    std::deque<Pinging> all;
    for (const Target& target : options.targets) {
        all.emplace_back(options, target);
    }
    int exitCode = exitOk;
    if (!stepUntil(all, [](const Pinging& one) { return one.over; })) {
        exitCode = exitInterrupted;
        for (Pinging& one : all) {
            one.printSummary();
        }
    }
    for (const Pinging& one : all) {
        exitCode = std::max(exitCode, one.exitCode);
    }
    return exitCode;
}

}  // namespace zulstat
