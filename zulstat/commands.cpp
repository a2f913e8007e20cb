#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "advice.h"
#include "asking.h"
#include "format.h"
#include "monitor/codes.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

// Prints what came, in the order in which the Gateways are named.
void printSamples(const std::deque<Asking>& all, const Options& options) {
    std::vector<Sample> samples;
    for (const Asking& one : all) {
        if (!one.failure) {
            samples.push_back(one.sample);
        }
    }
    if (!samples.empty()) {
        print(formatSamples(options.format.value_or(Format::table), samples, options.layout()));
    }
    for (const Asking& one : all) {
        if (!one.failure) {
            detail(options.subject(one.target), sampleDetails(one.sample));
        }
    }
}

int report(const std::deque<Asking>& all, const Options& options) {
    const Query query = options.query();
    std::vector<Result> results;
    std::set<std::string> hints;
    int exitCode = exitOk;
    for (const Asking& one : all) {
        Subject subject = options.subject(one.target);
        if (one.failure) {
            const bool repeated = !hints.insert(hintFor(*one.failure, query, subject)).second;
            subject.quiet = subject.quiet || repeated;
            exitCode = std::max(exitCode, reportFailure(*one.failure, query, subject));
        }
        // What was asked for is there: a Gateway that does not answer the close request is worth a note only.
        if (one.closing) {
            noteClosing(*one.closing, subject);
        }
        results.push_back({subject, one.failure ? nullptr : &one.sample, one.known});
    }
    return std::max(exitCode, reportSamples(results));
}

}  // namespace

int runQuery(const Options& options) {
    const Clock::time_point deadline = Clock::now() + options.timeoutMs();
    std::deque<Asking> all;
    for (const Target& target : options.targets) {
        all.emplace_back(options, target, deadline);
    }
    if (!stepUntil(all, [](const Asking& one) { return one.answered(); })) {
        return exitInterrupted;
    }
    printSamples(all, options);
    const bool ended = stepUntil(all, [](const Asking& one) { return one.over(); });
    const int exitCode = report(all, options);
    return ended ? exitCode : exitInterrupted;
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
