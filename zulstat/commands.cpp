#include "commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "advice.h"
#include "asking.h"
#include "charset.h"
#include "format.h"
#include "monitor/codes.h"
#include "options.h"
#include "output.h"
#include "playback.h"
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

// Samples of a recording.
int showRecorded(const Options& given) {
    Playback playback(given, std::nullopt);
    const Options& options = playback.options();
    std::vector<Sample> samples = playback.samples();
    for (Sample& sample : samples) {
        keepAsked(sample, options);
        filter(sample, options.globs);
    }
    if (!samples.empty()) {
        print(formatSamples(options.format.value_or(Format::table), samples, options.layout()));
    }
    std::vector<Result> results;
    int exitCode = samples.empty() ? exitPartly : exitOk;
    for (const Sample& sample : samples) {
        const Subject subject = options.subject(sample.target);
        const std::string whose = subject.several ? escapeForTerminal(targetText(sample.target)) + ": " : "";
        note(subject, fmt::format("{}the sample of {}", whose, isoTime(sample.wallTime)));
        for (const std::string& id : options.ids) {
            const bool there = std::any_of(sample.items.begin(), sample.items.end(),
                                           [&](const Item& item) { return item.id == id; }) ||
                               std::any_of(sample.elements.begin(), sample.elements.end(),
                                           [&](const Element& element) { return element.text == id; });
            if (!there) {
                note(subject, fmt::format("{}it has no statistic {}", whose, escapeForTerminal(id)));
                exitCode = exitPartly;
            }
        }
        results.push_back({subject, &sample});
    }
    for (const recording::Entry& last : playback.states()) {
        if (last.gap) {
            const Subject subject = options.subject(last.sample.target);
            note(subject, fmt::format("no sample of {} from {} on{}{}",
                                      escapeForTerminal(targetText(last.sample.target)), isoTime(last.sample.wallTime),
                                      last.reason.empty() ? "" : ": ", escapeForTerminal(last.reason)));
        }
    }
    return results.empty() ? exitCode : std::max(exitCode, reportSamples(results));
}

}  // namespace

int runQuery(const Options& options) {
    if (!options.from.empty()) {
        return showRecorded(options);
    }
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

int runConfig(const Options& options) {
    std::size_t nameWidth = 0;
    std::size_t valueWidth = 0;
    for (const InForce& one : options.inForce) {
        nameWidth = std::max(nameWidth, columnWidth(escapeForTerminal(one.name)));
        valueWidth = std::max(valueWidth, columnWidth(escapeForTerminal(one.value)));
    }
    const auto row = [&](const std::string& kind, const std::string& name, const std::string& value,
                         const std::string& from) {
        constexpr std::size_t widestKind = 9;
        constexpr std::size_t widest = 60;
        print(inUsersCharacters(fmt::format("{}  {}  {}  {}\n", padRight(kind, widestKind),
                                            padRight(name, std::min(nameWidth, widest)),
                                            padRight(value, std::min(valueWidth, widest)), from)));
    };
    if (options.header) {
        row("KIND", "NAME", "VALUE", "FROM");
    }
    for (const InForce& one : options.inForce) {
        row(one.kind, escapeForTerminal(one.name), escapeForTerminal(one.value), escapeForTerminal(one.from));
    }
    return exitOk;
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
