#include "report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "advice.h"
#include "charset.h"
#include "monitor/codes.h"
#include "monitor/number.h"
#include "nearest.h"
#include "output.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

// Empty where the query asks for little already.
std::string tooLargeHint(const Query& query) {
    const bool byGroup = query.what == What::statsByGroup || query.what == What::idsByGroup;
    const std::string_view less =
        query.ids.empty()                  ? query.what == What::groups
                                                 ? "'zulstat stats -g GROUP' asks for less"
                                                 : "'zulstat stats -g GROUP' asks for less; 'zulstat groups' lists the groups"
        : byGroup && query.ids.size() == 1 ? "'zulstat groups -l' counts the statistics of each group, and 'zulstat "
                                             "stats ID...' asks for single identifiers"
                                           : "";
    return less.empty() ? "" : fmt::format("An answer over {} bytes fails like this: {}.", RESULT_SET_LIMIT, less);
}

// What the failed elements look like.
std::string elementsHint(const Result& result) {
    const auto anyFailed = [&](auto looksSo) {
        return std::any_of(result.sample->elements.begin(), result.sample->elements.end(),
                           [&](const Element& element) { return element.rc < 0 && looksSo(element.text); });
    };
    const auto has = [](const char* characters) {
        return [=](std::string_view text) { return text.find_first_of(characters) != std::string::npos; };
    };
    std::vector<std::string> meant;
    for (const Element& element : result.sample->elements) {
        const std::string best = element.rc < 0 ? nearest(element.text, result.known) : "";
        if (!best.empty()) {
            meant.push_back(escapeForTerminal(best));
        }
    }
    return !meant.empty() ? fmt::format("Did you mean {}?", join(meant, ", "))
           : result.subject.series && anyFailed(parseNumber)
               ? "Interval and count go before or behind the identifiers, or to -i and -c."
           : anyFailed(has("*?[")) ? "-I chooses identifiers by a pattern."
           : anyFailed(has(","))   ? "Identifiers and groups are separated by blanks or ':'."
                                   : "'zulstat ids' and 'zulstat groups' list what the Gateway knows.";
}

}  // namespace

int exitCodeFor(const Failure& failure) {
    switch (failure.kind) {
    case FailureKind::deadline:
        return exitDeadline;
    case FailureKind::cannotConnect:
        return exitCannotConnect;
    case FailureKind::lost:
    case FailureKind::refused:
        return exitLost;
    case FailureKind::interrupted:
        return exitInterrupted;
    case FailureKind::libraryCode:
    case FailureKind::internal:
    case FailureKind::forbidden:
        break;
    }
    return exitInternal;
}

std::string failureText(const Failure& failure, const Subject& subject) {
    const std::string text = describeFailure(failure, subject.target, std::chrono::duration<double>(subject.timeout));
    const std::string gateway = targetText(subject.target);
    const bool named = !subject.several || text.find(gateway) != std::string::npos;
    return escapeForTerminal(named ? text : gateway + ": " + text);
}

std::string hintFor(const Failure& failure, const Query& query, const Subject& subject) {
    if (failure.kind == FailureKind::deadline) {
        return failure.phase == Phase::starting  ? "The machine may be busy: try a longer time (-T)."
               : failure.phase == Phase::tracing ? "A FIFO is opened once somebody reads it."
               : failure.phase == Phase::opening
                   ? "Is it a Gateway that listens there, and does a firewall let the connection through?"
               : failure.phase == Phase::resolving ? "Is the name server reachable? An address (-H) does without it."
                                                   : "The Gateway may be busy: try a longer time (-T).";
    }
    if (failure.phase == Phase::opening &&
        (failure.kind == FailureKind::lost || failure.kind == FailureKind::refused)) {
        return "Is it a Gateway that listens there? Its log may say why it ended the conversation.";
    }
    const std::string tooLarge = failure.rc == RC_REQUEST_FAILED ? tooLargeHint(query) : "";
    if (!tooLarge.empty()) {
        return tooLarge;
    }
    std::string_view advice = adviceFor(failure.rc);
    if (subject.ping && advice.ends_with(PING_ADVICE)) {
        advice.remove_suffix(PING_ADVICE.size());
    }
    return std::string(advice);
}

void complain(std::string_view text) {
    // Where nobody reads it, nothing is lost.
    writeAll(STDERR_FILENO, inUsersCharacters(fmt::format("zulstat: {}\n", text)));
}

void note(const Subject& subject, std::string_view text) {
    if (!subject.quiet) {
        complain(text);
    }
}

void detail(const Subject& subject, std::string_view text) {
    if (subject.verbose) {
        complain(subject.several ? fmt::format("{}: {}", escapeForTerminal(targetText(subject.target)), text)
                                 : std::string(text));
    }
}

int reportFailure(const Failure& failure, const Query& query, const Subject& subject) {
    if (failure.kind != FailureKind::interrupted) {
        complain(failureText(failure, subject));
        if (const std::string hint = hintFor(failure, query, subject); !hint.empty()) {
            note(subject, "hint: " + hint);
        }
    }
    return exitCodeFor(failure);
}

double milliseconds(double seconds) {
    return seconds * 1000;
}

std::string sizeText(const Sample& sample) {
    return fmt::format("{} of {} bytes ({} %)", sample.contentSize, RESULT_SET_LIMIT,
                       sample.contentSize * 100 / RESULT_SET_LIMIT);
}

std::string sampleDetails(const Sample& sample) {
    const std::string split = sample.parts == 1 ? "" : fmt::format("in {} answers of at most ", sample.parts);
    const std::string byIds =
        sample.splitGroups == 0 ? "" : fmt::format(", groups asked for by identifiers: {}", sample.splitGroups);
    return fmt::format("protocol {}, opened in {:.1f} ms, answered in {:.1f} ms, {}{}{}",
                       escapeForTerminal(sample.protocol), milliseconds(sample.openSeconds),
                       milliseconds(sample.querySeconds), split, sizeText(sample), byIds);
}

void noteClosing(const Failure& failure, const Subject& subject) {
    note(subject, "closing: " + failureText(failure, subject));
}

int reportSamples(const std::vector<Result>& results) {
    const Subject& subject = results.front().subject;
    std::size_t silent = 0;
    std::size_t elements = 0;
    std::size_t failed = 0;
    std::vector<std::string> names;
    std::vector<std::string> empty;  // Gateways
    std::string hint;
    for (const Result& result : results) {
        if (result.sample == nullptr) {
            ++silent;
            continue;
        }
        const std::string gateway = escapeForTerminal(targetText(result.subject.target));
        const std::size_t failedHere = failedElements(*result.sample);
        elements += result.sample->elements.size();
        failed += failedHere;
        for (const Element& element : result.sample->elements) {
            if (element.rc < 0) {
                names.push_back(fmt::format("{} (rc {}{})", escapeForTerminal(element.text), element.rc,
                                            subject.several ? ", " + gateway : ""));
            }
        }
        if (failedHere > 0) {
            hint = hint.empty() ? elementsHint(result) : hint;
        } else if (result.sample->items.empty()) {
            empty.push_back(gateway);
        }
    }
    std::vector<std::string> parts;
    if (silent > 0 && results.size() > 1) {
        parts.push_back(fmt::format("{} of {} Gateways gave no answer", silent, results.size()));
    }
    if (failed > 0) {
        parts.push_back(fmt::format("{} of {} query elements failed: {}", failed, elements, join(names, ", ")));
    }
    if (!empty.empty()) {
        const std::string whose = subject.several ? " of " + join(empty, ", ") : "";
        parts.push_back(subject.filtered   ? fmt::format("nothing{} matches -I and -X", whose)
                        : !subject.several ? "the Gateway's answer is empty"
                                           : fmt::format("there is nothing in the answer{}", whose));
    }
    if (!parts.empty()) {
        note(subject, join(parts, "; "));
    }
    if (!hint.empty()) {
        note(subject, "hint: " + hint);
    }
    return failed > 0 || !empty.empty() ? exitPartly : exitOk;
}

int reportSample(const Sample& sample, const Subject& subject) {
    return reportSamples({{subject, &sample}});
}

}  // namespace zulstat
