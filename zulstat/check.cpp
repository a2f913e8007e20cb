// zulstat check: one line and an exit code, as monitoring systems want them from their plugins.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "charset.h"
#include "commands.h"
#include "monitor/mapping.h"
#include "monitor/number.h"
#include "monitor/openmetrics.h"
#include "monitor/sampler.h"
#include "options.h"
#include "output.h"
#include "playback.h"
#include "rate.h"
#include "report.h"
#include "text.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

enum class State { ok, warning, critical, unknown };

// Behind the bar comes the performance data, if there is any.
int conclude(State state, std::string text, const std::string& data = {}) {
    constexpr std::array<std::string_view, 4> names = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    std::replace(text.begin(), text.end(), '|', '/');
    print(inUsersCharacters(fmt::format("ZULSTAT {} - {}{}{}\n", names[static_cast<std::size_t>(state)], text,
                                        data.empty() ? "" : " | ", data)));
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

// What came of one statistic, or of a Gateway that gave no answer.
struct Finding {
    State state = State::ok;
    std::string text;
    std::string data;  // performance data; empty where there is no number
};

// The answers of one Gateway: a sample, or two with an interval between.
class Checking {
public:
    Checking(const Options& given, const Target& gateway, const Query& asked, Clock::time_point until)
        : target(gateway),
          subject(given.subject(gateway)),
          query(asked),
          deadline(until),
          interval(given.intervalMs()),
          twice(given.change != ChangeWanted::none),
          sampler(given.collector(gateway)) {
        if (given.mapper) {
            mapper.emplace(*given.mapper);
        }
        if (given.from.empty()) {
            sampler.begin(query, deadline);
        }
    }

    // Of a recording: what came last, and for a change the sample before.
    void take(const recording::Entry& last, Playback& playback) {
        over = true;
        if (last.gap) {
            away = fmt::format("no sample{} at {}{}",
                               subject.several ? " of " + escapeForTerminal(targetText(target)) : "",
                               isoTime(last.sample.wallTime), last.reason.empty() ? "" : ": ") +
                   escapeForTerminal(last.reason);
            return;
        }
        Sample latter = last.sample;
        const std::optional<Sample> before =
            twice ? playback.before(latter, std::chrono::duration<double>(interval).count()) : std::nullopt;
        for (const Sample& one : before ? std::vector{*before, latter} : std::vector{latter}) {
            sample = one;
            map();
            latest = changes.next(sample);
        }
    }

    void step(Clock::time_point now) {
        if (again && now >= *again) {
            again.reset();
            twice = false;
            sampler.begin(query, deadline);
        }
        while (std::optional<Outcome> outcome = sampler.advance(now)) {
            failure = std::move(outcome->failure);
            if (!failure) {
                sample = std::move(outcome->sample);
                map();
                latest = changes.next(sample);
                if (twice) {
                    again = now + interval;
                    return;
                }
            }
            over = true;
            sampler.abandon();
        }
    }
    void interrupt() {
        if (over) {
            return;
        }
        const std::string at = again ? "waiting for the second sample" : describeWait(sampler.phase(), query);
        failure = Failure{FailureKind::interrupted, sampler.phase(), 0, at};
        over = true;
    }
    int descriptor() const {
        return sampler.busy() ? sampler.descriptor() : -1;
    }
    Clock::time_point nextWake() const {
        return again.value_or(sampler.nextWake());
    }

    const Rule* ruleOf(std::string_view id) {
        return mapper ? mapper->find(id).rule : nullptr;
    }

    const Target target;
    const Subject subject;
    std::optional<Failure> failure;
    std::string away;            // why a recording has no sample then; empty where it has one
    Sample sample;               // the last one, with numbers as the map makes them
    std::vector<Change> latest;  // of its items
    bool over = false;

private:
    void map() {
        for (Item& item : sample.items) {
            const Rule* rule = ruleOf(item.id);
            if (rule != nullptr && (rule->type == MetricType::gauge || rule->type == MetricType::counter)) {
                const std::string number = numberByRule(*rule, item.value);
                item.value = number.empty() ? item.value : sample.keep(number);
            }
        }
    }

    const Query query;
    const Clock::time_point deadline;
    const Milliseconds interval;
    bool twice;
    Sampler sampler;
    std::optional<Mapper> mapper;
    Changes changes;
    std::optional<Clock::time_point> again;  // when the second query begins
};

std::string textOf(const std::vector<std::string>& states) {
    return escapeForTerminal(join(states, " or "));
}

// Performance data has no exponents.
std::string plainNumber(double value) {
    return value == std::floor(value) ? fmt::format("{:.0f}", value) : fmt::format("{:.6f}", value);
}

// Makes the findings of one Gateway.
class Judge {
public:
    Judge(Checking& given, const Options& wanted, std::vector<Finding>& all)
        : answer(given), options(wanted), findings(all) {
    }

    void judge() {
        if (!answer.away.empty()) {
            findings.push_back({State::critical, answer.away, ""});
            return;
        }
        if (answer.failure) {
            findings.push_back({stateOf(*answer.failure), failureText(*answer.failure, answer.subject), ""});
            return;
        }
        for (const std::string& word : options.ids) {
            bool found = false;
            for (std::size_t index = 0; index < answer.sample.items.size(); ++index) {
                const Item& item = answer.sample.items[index];
                if (item.id == word || (meansId(word, item.id) && keptByGlobs(item))) {
                    found = true;
                    addOnce(item, answer.latest[index]);
                }
            }
            if (!found) {
                findings.push_back({State::unknown, missing(word), ""});
            }
        }
    }

private:
    bool keptByGlobs(const Item& item) const {
        const Rule* rule = answer.ruleOf(item.id);
        return keeps(options.globs, item.id) && (rule == nullptr || rule->type);
    }

    // An identifier that several words name, or several elements have, is judged once.
    void addOnce(const Item& item, const Change& change) {
        if (known.insert(std::string(item.id)).second) {
            findings.push_back(find(item, change));
        }
    }

    std::string named(std::string_view id) const {
        return escapeForTerminal(id) + behind();
    }
    std::string behind() const {
        return options.several() ? " of " + escapeForTerminal(targetText(answer.target)) : "";
    }

    std::string missing(const std::string& word) const {
        if (isGlob(word)) {
            return fmt::format("nothing{} matches {}", behind(), escapeForTerminal(word));
        }
        for (const Element& element : answer.sample.elements) {
            if (element.rc < 0 && (element.text == word || answer.sample.elements.size() == 1)) {
                return fmt::format("the query for {} failed, rc {}", named(word), element.rc);
            }
        }
        return fmt::format("the Gateway{} has no statistic {}",
                           options.several() ? " " + escapeForTerminal(targetText(answer.target)) : "",
                           escapeForTerminal(word));
    }

    Finding find(const Item& item, const Change& change) {
        const std::string text = fmt::format("{} is {}", named(item.id), escapeForTerminal(item.value));
        const Rule* rule = answer.ruleOf(item.id);
        if (!options.expected.empty()) {
            const bool fits =
                std::find(options.expected.begin(), options.expected.end(), item.value) != options.expected.end();
            return {fits ? State::ok : State::critical,
                    fits ? text : fmt::format("{}, expected {}", text, textOf(options.expected)), ""};
        }
        if (!change.number) {
            if (rule != nullptr && rule->type == MetricType::stateset &&
                std::find(rule->states.begin(), rule->states.end(), item.value) == rule->states.end()) {
                return {State::unknown, text + ", which is none of its states", ""};
            }
            const bool limited = options.warning || options.critical || options.change != ChangeWanted::none;
            return {limited ? State::unknown : State::ok, text + (limited ? ", which is not a number" : ""), ""};
        }
        if (options.change != ChangeWanted::none) {
            return findChange(item, change);
        }
        const bool counter = rule != nullptr && rule->type == MetricType::counter;
        const std::string_view value = item.value.substr(item.value.starts_with('+') ? 1 : 0);
        return {judged(toDouble(*change.number)), text,
                performanceData(item.id, std::string(value) + (counter ? "c" : ""))};
    }

    Finding findChange(const Item& item, const Change& change) {
        if (!change.difference) {
            return {State::unknown, named(item.id) + " has no former value", ""};
        }
        if (options.change == ChangeWanted::difference) {
            return {judged(*change.difference), fmt::format("{} is {}", named(item.id), differenceText(change)),
                    performanceData(item.id, plainNumber(*change.difference))};
        }
        const std::optional<double> rate = change.perSecond();
        if (!rate) {
            return {State::unknown, named(item.id) + " fell, as a counter does that started anew", ""};
        }
        return {judged(*rate), fmt::format("{} is {}", named(item.id), rateText(change)),
                performanceData(item.id, plainNumber(*rate))};
    }

    State judged(double value) const {
        if (options.critical && options.critical->alerts(value)) {
            return State::critical;
        }
        return options.warning && options.warning->alerts(value) ? State::warning : State::ok;
    }

    std::string performanceData(std::string_view id, const std::string& value) const {
        std::string label;
        const std::string lead = options.several() ? escapeForTerminal(targetText(answer.target)) + " " : "";
        for (const char c : lead + escapeForTerminal(id)) {
            label += c == '\'' ? "''" : std::string(1, c == '=' ? '_' : c);
        }
        const auto text = [](const std::optional<Range>& range) { return range ? range->text : std::string(); };
        return fmt::format("'{}'={};{};{}", label, value, text(options.warning), text(options.critical));
    }

    Checking& answer;
    const Options& options;
    std::vector<Finding>& findings;
    std::set<std::string> known;  // identifiers that are judged
};

// The worst has the largest number.
int badness(State state) {
    constexpr std::array<int, 4> numbers = {0, 1, 3, 2};  // of ok, warning, critical, unknown
    return numbers[static_cast<std::size_t>(state)];
}

// What is not well, the worst first, or else all of it, as far as people read.
int concludeAll(std::vector<Finding> findings) {
    constexpr std::size_t mostShown = 5;
    constexpr std::array<std::string_view, 4> words = {"", " (warning)", " (critical)", " (unknown)"};
    std::vector<std::string> data;
    for (const Finding& one : findings) {
        if (!one.data.empty()) {
            data.push_back(one.data);
        }
    }
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& one, const Finding& other) {
        return badness(one.state) > badness(other.state);
    });
    const State worst = findings.front().state;
    if (findings.size() == 1) {
        return conclude(worst, findings.front().text, join(data, " "));
    }
    const std::size_t count = findings.size();
    if (worst != State::ok) {
        std::erase_if(findings, [](const Finding& one) { return one.state == State::ok; });
    }
    std::vector<std::string> texts;
    for (const Finding& one : findings) {
        if (texts.size() == mostShown) {
            texts.push_back(fmt::format("and {} more", findings.size() - mostShown));
            break;
        }
        texts.push_back(one.text + std::string(words[static_cast<std::size_t>(one.state)]));
    }
    const std::string head =
        worst == State::ok ? fmt::format("{} ok: ", count) : fmt::format("{} of {} not ok: ", findings.size(), count);
    return conclude(worst, head + join(texts, "; "), join(data, " "));
}

int conclude(std::deque<Checking>& all, const Options& options) {
    std::vector<Finding> findings;
    for (Checking& one : all) {
        const std::size_t before = findings.size();
        Judge(one, options, findings).judge();
        const auto numbers = std::any_of(findings.begin() + static_cast<std::ptrdiff_t>(before), findings.end(),
                                         [](const Finding& finding) { return !finding.data.empty(); });
        if (numbers) {
            detail(one.subject, sampleDetails(one.sample));
        }
    }
    return concludeAll(std::move(findings));
}

int checkRecorded(const Options& given) {
    Playback playback(given, std::nullopt);
    const Options& options = playback.options();
    std::deque<Checking> all;
    for (const recording::Entry& last : playback.states()) {
        all.emplace_back(options, last.sample.target, Query(), Clock::time_point()).take(last, playback);
    }
    return conclude(all, options);
}

int check(const Options& options) {
    const bool everything =
        std::any_of(options.ids.begin(), options.ids.end(), [](const std::string& word) { return isGlob(word); });
    const Query query = everything ? Query{What::stats, {}} : Query{What::statsById, options.ids};
    const Clock::time_point deadline = Clock::now() + options.timeoutMs();
    std::deque<Checking> all;
    for (const Target& target : options.targets) {
        all.emplace_back(options, target, query, deadline);
    }
    if (!stepUntil(all, [](const Checking& one) { return one.over; })) {
        for (Checking& one : all) {
            one.interrupt();
        }
    }
    return conclude(all, options);
}

// Whatever happens, the exit code is one of a plugin's.
int withPluginCodes(const std::function<int()>& work) {
    try {
        return work();
    } catch (const std::exception& error) {
        complain(error.what());
    } catch (const UsageError& error) {
        return concludeUnknown(error.text);
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
    return withPluginCodes([&] { return options.from.empty() ? check(options) : checkRecorded(options); });
}

}  // namespace zulstat
