// zulstat map.
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "commands.h"
#include "interrupt.h"
#include "monitor/follower.h"
#include "monitor/number.h"
#include "monitor/openmetrics.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t MOST_STATES = 8;
constexpr std::size_t LONGEST_STATE = 32;

// What was seen of one statistic.
struct Seen {
    bool numbers = true;
    bool moments = true;
    bool whole = true;
    bool fell = false;
    bool rose = false;
    std::optional<double> last;
    std::vector<std::string> texts;  // different ones, no more than are states

    void take(std::string_view value) {
        const std::optional<Number> number = parseNumber(value);
        moments = moments && parseMoment(value);
        numbers = numbers && number;
        if (number) {
            const double now = toDouble(*number);
            whole = whole && !std::holds_alternative<double>(*number) && now >= 0;
            fell = fell || (last && now < *last);
            rose = rose || (last && now > *last);
            last = now;
        }
        if (texts.size() <= MOST_STATES && std::find(texts.begin(), texts.end(), value) == texts.end()) {
            texts.emplace_back(value);
        }
    }
    bool isCounter() const {
        return numbers && whole && rose && !fell;
    }
    // Words in capitals: there may be more than were seen.
    bool isState() const {
        return !texts.empty() && texts.size() <= MOST_STATES &&
               std::all_of(texts.begin(), texts.end(), [](const std::string& text) {
                   return !text.empty() && text.size() <= LONGEST_STATE &&
                          text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_-") == std::string::npos;
               });
    }
};

// In quotation marks, as YAML reads it back. What is no UTF-8 cannot be written there.
std::string inQuotes(std::string_view text) {
    std::string yaml = "\"";
    for (const char c : text) {
        const bool plain = c >= ' ' && c <= '~' && c != '"' && c != '\\';
        yaml += plain                   ? std::string(1, c)
                : c == '"' || c == '\\' ? std::string("\\") + c
                                        : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return yaml + "\"";
}

// What only grew for a while may be no counter: a memory's size, a time since the start.
bool isCalledTotal(std::string_view id) {
    return id.ends_with("total") || id.ends_with("totals") || id.ends_with("counter");
}

std::string rule(const std::string& id, const Seen& seen) {
    std::string name = metricName(id);
    std::string type = "gauge";
    std::string more;
    if (seen.isCounter() && isCalledTotal(id)) {
        type = "counter";
        constexpr std::string_view behind = "_value";
        if (name.ends_with("_total_value")) {
            name.resize(name.size() - behind.size());
        }
    } else if (!seen.numbers && seen.moments) {
        name += name.ends_with("_seconds") ? "" : "_seconds";
    } else if (!seen.numbers && seen.isState()) {
        type = "stateset";
        for (const std::string& state : seen.texts) {
            more += (more.empty() ? ", states: [" : ", ") + inQuotes(state);
        }
        more += "]";
    } else if (!seen.numbers) {
        type = "info";
    }
    return fmt::format("      - {{match: {}, type: {}, name: {}{}}}\n", inQuotes(id), type, name, more);
}

bool canBeMatched(const std::string& id) {
    return std::all_of(id.begin(), id.end(), [](char c) { return c >= ' ' && c <= '~' && c != '*' && c != '?'; });
}

}  // namespace

int runMap(const Options& options) {
    FollowerOptions wanted = options.follower();
    wanted.query = {What::stats, {}};
    wanted.interval = std::chrono::seconds(1);
    Follower follower(wanted);
    std::map<std::string, Seen> all;
    long samples = 0;
    const Clock::time_point end =
        Clock::now() + std::chrono::milliseconds(static_cast<std::int64_t>(options.observe * 1000));
    while (!interrupted() && (Clock::now() < end || samples == 0)) {
        while (const std::optional<Event> event = follower.step(Clock::now())) {
            if (event->kind == Event::Kind::end) {
                return event->failure ? reportFailure(*event->failure, wanted.query, options.subject()) : exitInternal;
            }
            for (const Item& item : event->sample.items) {
                if (keeps(options.globs, item.id)) {
                    all[std::string(item.id)].take(item.value);
                }
            }
            samples += event->kind == Event::Kind::sample ? 1 : 0;
        }
        const Clock::time_point now = Clock::now();
        std::array<pollfd, 2> watched = {{{interruptDescriptor(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}}};
        poll(watched.data(), watched.size(),
             pollTime(samples == 0 ? follower.nextWake() : std::min(follower.nextWake(), end), now));
    }
    std::string text = fmt::format(
        "# Proposed from {} samples of {}. States and types are what was seen: look at them.\n"
        "modules:\n  default:\n    rules:\n",
        samples, escapeForTerminal(targetText(options.target)));
    for (const auto& [id, seen] : all) {
        text += canBeMatched(id) ? rule(id, seen) : "";
    }
    print(text);
    return interrupted() ? exitInterrupted : all.empty() ? exitPartly : exitOk;
}

}  // namespace zulstat
