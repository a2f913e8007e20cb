#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <string>

#include "charset.h"
#include "advice.h"
#include "monitor/collector.h"
#include "monitor/sampler.h"
#include "format.h"
#include "interrupt.h"
#include "monitor/codes.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

// One deadline for a whole command.
class TimeLeft {
public:
    explicit TimeLeft(const Options& options) : end(Clock::now() + options.timeoutMs()) {
    }
    std::chrono::milliseconds operator()() const {
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()), std::chrono::milliseconds(0));
    }

private:
    Clock::time_point end;
};

// What was asked for is there: a Gateway that does not answer the close request is worth a note only.
int closeQuietly(auto& collector, std::chrono::milliseconds timeLeft, const Options& options) {
    const std::optional<Failure> failure = collector.close(timeLeft);
    if (failure && failure->kind != FailureKind::interrupted) {
        note(options.subject(), "closing: " + failureText(*failure, options.subject()));
    }
    return failure && failure->kind == FailureKind::interrupted ? exitInterrupted : exitOk;
}

// Turns the answer to a query for groups into one with the number of statistics of each. Asks for one group at a time,
// so that no answer grows too large.
std::optional<Failure> countStatistics(Sampler& collector, Sample& groups, const TimeLeft& timeLeft) {
    for (Item& group : groups.items) {
        Outcome outcome = collector.collect({What::idsByGroup, {std::string(group.id)}}, timeLeft());
        if (outcome.failure) {
            return outcome.failure;
        }
        group.value = groups.keep(std::to_string(outcome.sample.items.size()));
    }
    groups.hasValues = true;
    return std::nullopt;
}

// The times of the queries that ping has made.
class PingTimes {
public:
    void add(double time) {
        least = std::min(least, time);
        most = std::max(most, time);
        sum += time;
        ++count;
    }
    void printSummary() const {
        if (count > 0) {
            print(fmt::format("{} {}, min/avg/max {:.1f}/{:.1f}/{:.1f} ms\n", count, count == 1 ? "query" : "queries",
                              least, sum / static_cast<double>(count), most));
        }
    }

private:
    double least = std::numeric_limits<double>::infinity();
    double most = 0;
    double sum = 0;
    long count = 0;
};

}  // namespace

int runQuery(const Options& options) {
    const TimeLeft timeLeft(options);
    const Query query = options.query();
    Sampler collector(options.collector());
    Outcome outcome = collector.collect(query, timeLeft());
    if (!outcome.failure) {
        filter(outcome.sample, options.globs);
        outcome.failure = options.counts ? countStatistics(collector, outcome.sample, timeLeft) : std::nullopt;
    }
    if (outcome.failure) {
        return reportFailure(*outcome.failure, query, options.subject());
    }
    const Sample& sample = outcome.sample;
    print(formatSample(options.format.value_or(Format::table), sample, options.layout()));
    detail(options.subject(), sampleDetails(sample));
    const int closed = closeQuietly(collector, timeLeft(), options);
    const int reported = reportSample(sample, options.subject());
    return closed != exitOk ? closed : reported;
}

int runPing(const Options& options) {
    constexpr long defaultCount = 4;
    const long count = options.count.value_or(defaultCount);
    const Query query{What::stats, {}};
    Collector collector(options.collector());
    PingTimes times;
    for (long done = 0; done < count; ++done) {
        if (done > 0 && !sleepUnlessInterrupted(options.intervalMs())) {
            times.printSummary();
            return exitInterrupted;
        }
        const Outcome outcome = collector.collect(query, options.timeoutMs());
        const Sample& sample = outcome.sample;
        if (sample.freshConnection) {
            print(inUsersCharacters(fmt::format("{}: open in {:.1f} ms, protocol {}\n",
                                                escapeForTerminal(targetText(options.target)),
                                                milliseconds(sample.openSeconds), escapeForTerminal(sample.protocol))));
        }
        if (outcome.failure) {
            times.printSummary();
            return reportFailure(*outcome.failure, query, options.subject());
        }
        const double time = milliseconds(sample.querySeconds);
        print(fmt::format("query {}: {:.1f} ms, {} entries, {}\n", done + 1, time, sample.items.size(),
                          sizeText(sample)));
        times.add(time);
    }
    times.printSummary();
    return closeQuietly(collector, options.timeoutMs(), options);
}

int runExplain(const Options& options) {
    if (options.codes.empty()) {
        for (const Code& code : allCodes()) {
            print(fmt::format("{:>5}  {}\n       {}\n", code.number, code.name, code.meaning));
        }
        return exitOk;
    }
    int exitCode = exitOk;
    for (const std::string& text : options.codes) {
        if (const Code* code = findCode(text)) {
            print(fmt::format("{} ({})\n  What happened: {}.\n  What to do:    {}\n", code->name, code->number,
                              code->meaning, adviceFor(code->number)));
        } else {
            const Code* negative = findCode("-" + text);
            complain(fmt::format("'{}' is no code of the library{}", escapeForTerminal(text),
                                 negative == nullptr ? "" : fmt::format(", {} is", codeText(negative->number))));
            note(
                options.subject(),
                "hint: The codes of query elements (rc) are the Gateway's own; 'zulstat explain' lists the library's.");
            exitCode = exitPartly;
        }
    }
    return exitCode;
}

}  // namespace zulstat
