#include "report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "charset.h"
#include "codes.h"
#include "monitor/number.h"
#include "options.h"
#include "output.h"
#include "text.h"
#include "zulstats.h"

namespace zulstat {

using namespace monitor;

namespace {

// The meaning of a code, the reason for it where there is one, the code.
std::string meaningOf(int rc, const std::string& reason = {}) {
    const Code* code = findCode(rc);
    return code == nullptr
               ? codeText(rc)
               : fmt::format("{}{}, {}", code->meaning, reason.empty() ? "" : " (" + reason + ")", codeText(rc));
}

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
    return less.empty() ? "" : fmt::format("An answer over {} bytes fails like this: {}.", resultSetLimit, less);
}

// What the failed elements look like.
std::string elementsHint(const Sample& sample, const Options& options) {
    const auto anyFailed = [&](auto looksSo) {
        return std::any_of(sample.elements.begin(), sample.elements.end(),
                           [&](const Element& element) { return element.rc < 0 && looksSo(element.text); });
    };
    const auto has = [](const char* characters) {
        return [=](const std::string& text) { return text.find_first_of(characters) != std::string::npos; };
    };
    const bool series = options.command == Command::watch || options.command == Command::top;
    return series && anyFailed(parseNumber) ? "Interval and count go before or behind the identifiers, or to -i and -c."
           : anyFailed(has("*?["))          ? "-I chooses identifiers by a pattern."
           : anyFailed(has(","))            ? "Identifiers and groups are separated by blanks or ':'."
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
        break;
    }
    return exitInternal;
}

std::string describeFailure(const Failure& failure, const Options& options) {
    const std::string target = escapeForTerminal(targetText(options.target));
    const std::string text = escapeForTerminal(failure.text);
    switch (failure.kind) {
    case FailureKind::deadline:
        if (failure.phase == Phase::starting) {
            return fmt::format("the worker process did not start within {} s", options.timeout);
        }
        if (failure.phase == Phase::tracing) {
            return fmt::format("the trace file {} could not be opened within {} s",
                               escapeForTerminal(options.traceFile), options.timeout);
        }
        return fmt::format("no answer from {} within {} s ({})", target, options.timeout, text);
    case FailureKind::cannotConnect:
        return fmt::format("cannot connect to {}: {}", target, meaningOf(failure.rc, text));
    case FailureKind::lost:
        return fmt::format("lost the connection to {} {}: {}", target,
                           failure.phase == Phase::opening ? "while opening it" : "during a query",
                           codeText(failure.rc));
    case FailureKind::refused:
        return fmt::format("no usable answer from {} {}: {}", target,
                           failure.phase == Phase::opening ? "while opening the connection" : "to the query",
                           meaningOf(failure.rc));
    case FailureKind::libraryCode:
        return meaningOf(failure.rc);
    case FailureKind::interrupted:
        return fmt::format("interrupted ({})", text);
    case FailureKind::internal:
        break;
    }
    return fmt::format("internal error: {}", text);
}

std::string hintFor(const Failure& failure, const Query& query, const Options& options) {
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
    const std::string tooLarge = failure.rc == STAPI_RC_GATEWAY_REQUEST_FAILED ? tooLargeHint(query) : "";
    if (!tooLarge.empty()) {
        return tooLarge;
    }
    const std::string& host = options.target.host;
    if (failure.rc == STAPI_RC_HOST_NOT_RESOLVED && std::count(host.begin(), host.end(), ':') == 1) {
        return "The port is an option of its own: -p PORT.";
    }
    const Code* code = findCode(failure.rc);
    std::string_view advice = code == nullptr || failure.rc == 0 ? "" : code->advice;
    if (options.command == Command::ping && advice.ends_with(pingAdvice)) {
        advice.remove_suffix(pingAdvice.size());
    }
    return std::string(advice);
}

void complain(std::string_view text) {
    // Where nobody reads it, nothing is lost.
    writeAll(STDERR_FILENO, inUsersCharacters(fmt::format("zulstat: {}\n", text)));
}

void note(const Options& options, std::string_view text) {
    if (!options.quiet) {
        complain(text);
    }
}

void detail(const Options& options, std::string_view text) {
    if (options.verbose) {
        complain(text);
    }
}

int reportFailure(const Failure& failure, const Query& query, const Options& options) {
    if (failure.kind != FailureKind::interrupted) {
        complain(describeFailure(failure, options));
        if (const std::string hint = hintFor(failure, query, options); !hint.empty()) {
            note(options, "hint: " + hint);
        }
    }
    return exitCodeFor(failure);
}

double milliseconds(double seconds) {
    return seconds * 1000;
}

std::string sizeText(const Sample& sample) {
    return fmt::format("{} of {} bytes ({} %)", sample.contentSize, resultSetLimit,
                       sample.contentSize * 100 / resultSetLimit);
}

std::string sampleDetails(const Sample& sample) {
    return fmt::format("protocol {}, opened in {:.1f} ms, answered in {:.1f} ms, {}",
                       escapeForTerminal(sample.protocol), milliseconds(sample.openSeconds),
                       milliseconds(sample.querySeconds), sizeText(sample));
}

int reportSample(const Sample& sample, const Options& options) {
    const std::size_t failed = failedElements(sample);
    if (failed > 0) {
        std::string names;
        for (const Element& element : sample.elements) {
            if (element.rc < 0) {
                names +=
                    fmt::format("{}{} (rc {})", names.empty() ? "" : ", ", escapeForTerminal(element.text), element.rc);
            }
        }
        note(options, fmt::format("{} of {} query elements failed: {}", failed, sample.elements.size(), names));
        note(options, "hint: " + elementsHint(sample, options));
        return exitPartly;
    }
    if (itemCount(sample) == 0) {
        note(options, options.globs.empty() ? "the Gateway's answer is empty" : "nothing matches -I and -X");
        return exitPartly;
    }
    return exitOk;
}

}  // namespace zulstat
