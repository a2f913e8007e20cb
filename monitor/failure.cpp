#include "failure.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "codes.h"

namespace monitor {

namespace {

// The first names tell enough.
std::string named(const Query& query, std::string_view one, std::string_view many) {
    constexpr std::size_t most = 3;
    std::vector<std::string> shown = query.ids;
    if (shown.size() > most) {
        shown.resize(most - 1);
        shown.back() += " and " + std::to_string(query.ids.size() - shown.size()) + " more";
    }
    return fmt::format("{} {}", shown.size() == 1 ? one : many, fmt::join(shown, ", "));
}

std::string describeQuery(const Query& query) {
    switch (query.what) {
    case What::stats:
        return "all statistics";
    case What::statsById:
        return named(query, "statistic", "statistics");
    case What::statsByGroup:
        return named(query, "group", "groups");
    case What::ids:
        return "all identifiers";
    case What::idsByGroup:
        return "the identifiers of " + named(query, "group", "groups");
    case What::groups:
        return "the resource groups";
    }
    return {};
}

// The meaning of a code, the reason for it where there is one, the code.
std::string meaningOf(int rc, const std::string& reason = {}) {
    const Code* code = findCode(rc);
    return code == nullptr
               ? codeText(rc)
               : fmt::format("{}{}, {}", code->meaning, reason.empty() ? "" : " (" + reason + ")", codeText(rc));
}

}  // namespace

bool mayPass(const Failure& failure) {
    return failure.kind != FailureKind::libraryCode && failure.kind != FailureKind::interrupted &&
           failure.kind != FailureKind::forbidden;
}

std::string describeWait(Phase phase, const Query& query) {
    switch (phase) {
    case Phase::starting:
        return "starting the worker process";
    case Phase::tracing:
        return "opening the trace file";
    case Phase::resolving:
        return "resolving the host name";
    case Phase::opening:
        return "opening the connection";
    case Phase::querying:
        return "connection open, waiting for " + describeQuery(query);
    case Phase::closing:
        return "connection open, waiting for the answer to the close request";
    }
    return {};
}

std::string describeFailure(const Failure& failure, const Target& target, std::chrono::duration<double> timeout) {
    const std::string gateway = targetText(target);
    switch (failure.kind) {
    case FailureKind::deadline:
        if (failure.phase == Phase::starting) {
            return fmt::format("the worker process did not start within {} s", timeout.count());
        }
        if (failure.phase == Phase::tracing) {
            return fmt::format("the trace file {} could not be opened within {} s", failure.text, timeout.count());
        }
        return fmt::format("no answer from {} within {} s ({})", gateway, timeout.count(), failure.text);
    case FailureKind::cannotConnect:
        return fmt::format("cannot connect to {}: {}", gateway, meaningOf(failure.rc, failure.text));
    case FailureKind::lost:
        return fmt::format("lost the connection to {} {}: {}", gateway,
                           failure.phase == Phase::opening ? "while opening it" : "during a query",
                           codeText(failure.rc));
    case FailureKind::refused:
        return fmt::format("no usable answer from {} {}: {}", gateway,
                           failure.phase == Phase::opening ? "while opening the connection" : "to the query",
                           meaningOf(failure.rc));
    case FailureKind::libraryCode:
        return meaningOf(failure.rc);
    case FailureKind::interrupted:
        return fmt::format("interrupted ({})", failure.text);
    case FailureKind::forbidden:
        return fmt::format("{} is not allowed: its addresses are {}", gateway, failure.text);
    case FailureKind::internal:
        break;
    }
    return fmt::format("internal error: {}", failure.text);
}

}  // namespace monitor
