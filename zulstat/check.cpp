// zulstat check: one line and an exit code, as monitoring systems want them from their plugins.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "charset.h"
#include "monitor/collector.h"
#include "commands.h"
#include "monitor/number.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

enum class State { ok, warning, critical, unknown };

int conclude(State state, std::string text) {
    constexpr std::array<std::string_view, 4> names = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    // Behind the first bar comes the performance data.
    const std::size_t data = text.find(" | ");
    std::replace(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(std::min(data, text.size())), '|', '/');
    print(inUsersCharacters(fmt::format("ZULSTAT {} - {}\n", names[static_cast<std::size_t>(state)], text)));
    return static_cast<int>(state);
}

// Troubles of the network and the Gateway are what a check is to find; those of the check itself are not. A worker that
// dies while it deals with the Gateway is a lost connection.
State stateOf(const Failure& failure) {
    if (failure.phase == Phase::starting || failure.phase == Phase::tracing) {
        return State::unknown;
    }
    switch (failure.kind) {
    case FailureKind::deadline:
    case FailureKind::cannotConnect:
    case FailureKind::lost:
    case FailureKind::internal:
        return State::critical;
    default:
        return State::unknown;
    }
}

State judge(double value, const Options& options) {
    if (options.critical && options.critical->alerts(value)) {
        return State::critical;
    }
    return options.warning && options.warning->alerts(value) ? State::warning : State::ok;
}

std::string performanceData(const Item& item, const Options& options) {
    std::string label;
    for (const char c : escapeForTerminal(item.id)) {
        label += c == '\'' ? "''" : std::string(1, c == '=' ? '_' : c);
    }
    const auto text = [](const std::optional<Range>& range) { return range ? range->text : std::string(); };
    const std::string_view value = item.value.substr(item.value.starts_with('+') ? 1 : 0);
    return fmt::format("'{}'={};{};{}", label, value, text(options.warning), text(options.critical));
}

int check(const Options& options) {
    const std::string& id = options.ids.front();
    const std::string shownId = escapeForTerminal(id);
    const Query query{What::statsById, {id}};
    Collector collector(options.collector());
    const Outcome outcome = collector.collect(query, options.timeoutMs());
    if (outcome.failure) {
        return conclude(stateOf(*outcome.failure), failureText(*outcome.failure, options.subject()));
    }
    collector.abandon();
    const auto& items = outcome.sample.items;
    const auto item = std::find_if(items.begin(), items.end(), [&](const Item& one) { return one.id == id; });
    if (item == items.end()) {
        const auto& elements = outcome.sample.elements;
        return conclude(State::unknown, elements.empty() || elements[0].rc >= 0
                                            ? fmt::format("the Gateway has no statistic {}", shownId)
                                            : fmt::format("the query for {} failed, rc {}", shownId, elements[0].rc));
    }
    const std::string text = fmt::format("{} is {}", shownId, escapeForTerminal(item->value));
    const std::optional<Number> number = parseNumber(item->value);
    if (!number) {
        const bool limited = options.warning || options.critical;
        return conclude(limited ? State::unknown : State::ok, text + (limited ? ", which is not a number" : ""));
    }
    detail(options.subject(), sampleDetails(outcome.sample));
    return conclude(judge(toDouble(*number), options), text + " | " + performanceData(*item, options));
}

// Whatever happens, the exit code is one of a plugin's.
int withPluginCodes(const std::function<int()>& work) {
    try {
        return work();
    } catch (const std::exception& error) {
        complain(error.what());
    } catch (const OutputClosed&) {
    } catch (const Interrupted&) {
    }
    return static_cast<int>(State::unknown);
}

}  // namespace

int concludeUnknown(const std::string& why) {
    return withPluginCodes([&] { return conclude(State::unknown, escapeForTerminal(why)); });
}

int runCheck(const Options& options) {
    return withPluginCodes([&] { return check(options); });
}

}  // namespace zulstat
