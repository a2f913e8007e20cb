#include "playback.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "interrupt.h"
#include "monitor/codes.h"
#include "recording/time.h"
#include "text.h"
#include "usage_error.h"

namespace zulstat {

using namespace monitor;
using recording::Entry;

namespace {

constexpr double WARM_UP = 60;       // seconds of history that a move brings along
constexpr double TICK_SLACK = 0.05;  // of an interval: a sample that comes so early is that of the tick

bool among(const std::vector<std::string>& words, std::string_view text) {
    return std::find(words.begin(), words.end(), text) != words.end();
}

Clock::duration seconds(double count) {
    constexpr double most = 1e9;
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::min(count, most)));
}

}  // namespace

void keepAsked(Sample& sample, const Options& options) {
    if (!options.groups.empty()) {
        std::vector<Element> elements;
        for (const Element& element : sample.elements) {
            if (among(options.groups, element.text)) {
                elements.push_back(element);
            }
        }
        sample.elements = elements;
    }
    if (!options.ids.empty()) {
        std::erase_if(sample.elements,
                      [&](const Element& element) { return element.rc < 0 && !among(options.ids, element.text); });
        keepItems(sample, [&](const Item& item) { return among(options.ids, item.id); });
    }
    if (!options.groups.empty()) {
        // Items that no element has any more.
        std::vector<Item> items;
        for (Element& element : sample.elements) {
            const auto own = sample.itemsOf(element);
            element.firstItem = items.size();
            items.insert(items.end(), own.begin(), own.end());
        }
        sample.items = items;
    }
}

void notePassedOver(const Options& options, const std::string& file, std::uint64_t lines) {
    if (lines > 0) {
        note(options.subject(),
             fmt::format("{}: passed over what is no whole sample, lines: {}", escapeForTerminal(file), lines));
    }
}

// What one Gateway's series is of the playback.
class Playback::Part : public Feed {
public:
    Part(Playback& whole, std::size_t number) : playback(whole), target(number) {
    }
    std::optional<FeedEvent> step(Clock::time_point now) override {
        return interrupted() ? std::nullopt : playback.step(target, now);
    }
    Clock::time_point nextWake() const override {
        return playback.due();
    }
    int descriptor() const override {
        return -1;
    }
    void pause(bool) override {
    }
    void setInterval(Milliseconds, Clock::time_point) override {
    }
    std::string waiting(Clock::time_point, double) const override {
        return {};
    }
    std::string hope(Clock::time_point) const override {
        return {};
    }

private:
    Playback& playback;
    const std::size_t target;
};

Playback::Playback(const Options& given, std::optional<double> pace) : wanted(given), paced(pace) {
    try {
        reader = std::make_unique<recording::Reader>(given.from);
        span = reader->span();
    } catch (const std::runtime_error& error) {
        throw UsageError{error.what()};
    }
    notePassedOver(wanted, given.from, span.torn);
    if (span.targets.empty()) {
        const std::string& why = reader->damage();
        throw UsageError{fmt::format("{} has no sample{}{}", given.from, why.empty() ? "" : ": it is damaged: ", why)};
    }
    wanted.targets = span.targets;
    wanted.target = wanted.targets.front();
    from = given.at ? recording::resolveTime(*given.at, span.last) : 0;
    to = given.to ? recording::resolveTime(*given.to, span.last) : std::numeric_limits<double>::infinity();
    if (given.at && given.to && to < from) {
        throw UsageError{fmt::format("--to {} lies before --at {}", isoTime(to), isoTime(from))};
    }
    if ((given.at && from < span.first) || to < span.first) {
        throw UsageError{fmt::format("{} begins at {} only", given.from, isoTime(span.first))};
    }
    const std::size_t count = wanted.targets.size();
    told.resize(count);
    lost.resize(count);
    taken.resize(count);
    dueSample.resize(count);
    begin(from, from);
}

Playback::~Playback() = default;

std::vector<std::unique_ptr<Feed>> Playback::feeds() {
    std::vector<std::unique_ptr<Feed>> parts;
    for (std::size_t target = 0; target < wanted.targets.size(); ++target) {
        parts.push_back(std::make_unique<Part>(*this, target));
    }
    return parts;
}

double Playback::at() const {
    return wanted.at ? from : std::numeric_limits<double>::infinity();
}

std::vector<Sample> Playback::samples() {
    return reader->moment(at());
}

std::vector<Entry> Playback::states() {
    return reader->lastEntries(at());
}

std::optional<Sample> Playback::before(Sample& sample, double least) {
    // From that target's own sample on: before another one's there may be none that is early enough.
    double start = sample.wallTime - least;
    for (const Sample& last : reader->moment(start)) {
        if (targetText(last.target) == targetText(sample.target)) {
            start = std::nextafter(last.wallTime, 0);
        }
    }
    reader->seek(start);
    std::optional<Sample> found;
    bool fresh = false;
    bool gap = false;
    while (std::optional<Entry> entry = reader->next()) {
        if (targetText(entry->sample.target) != targetText(sample.target)) {
            continue;
        }
        if (!entry->gap && entry->sample.monotonicTime == sample.monotonicTime) {
            break;
        }
        gap = gap || entry->gap;
        if (!entry->gap &&
            recording::elapsed(entry->sample, sample, gap) >= (found ? least : least * (1 - TICK_SLACK))) {
            found = std::move(entry->sample);
            fresh = gap = false;
        } else {
            fresh = fresh || entry->gap || entry->sample.freshConnection;
        }
    }
    sample.freshConnection = sample.freshConnection || fresh;
    return found;
}

// From the last sample at or before the time on; those up to `instantTo` come at once.
void Playback::begin(double wallTime, double instantTo) {
    reader->seek(wallTime);
    next.reset();
    former.reset();
    ended = false;
    gapBefore = false;
    anchored = false;
    once = false;
    instant = instantTo;
    inInstant = true;
    for (std::size_t target = 0; target < wanted.targets.size(); ++target) {
        told[target] = lost[target] = false;
        dueSample[target].reset();
    }
}

// The next entry, and when it comes on the recording's clock.
void Playback::load() {
    while (!next && !ended) {
        std::optional<Entry> entry = reader->next();
        bool all = true;
        for (std::size_t target = 0; target < taken.size(); ++target) {
            all = all && complete(target);
        }
        if (!entry || entry->sample.wallTime > to + reader->disorder() || all) {
            ended = true;
            return;
        }
        if (entry->sample.wallTime > to) {
            continue;
        }
        const bool gap = entry->gap || gapBefore;
        if (former) {
            clock += recording::elapsed(*former, entry->sample, gap);
        }
        gapBefore = entry->gap;
        former.emplace();
        former->wallTime = entry->sample.wallTime;
        former->monotonicTime = entry->sample.monotonicTime;
        const auto same = [&](const Target& one) { return targetText(one) == targetText(entry->sample.target); };
        const auto found = std::find_if(wanted.targets.begin(), wanted.targets.end(), same);
        if (found == wanted.targets.end()) {
            continue;  // of a file that has grown
        }
        next = Next{*std::move(entry), static_cast<std::size_t>(found - wanted.targets.begin()), clock};
        if (complete(next->target) || tooSoon(*next)) {
            next.reset();
        }
    }
}

// Whether there is to be no more of it.
bool Playback::complete(std::size_t target) const {
    return wanted.count && taken[target] >= *wanted.count;
}

// Whether -i passes over it.
bool Playback::tooSoon(const Next& one) {
    if (!wanted.intervalGiven || one.entry.gap) {
        return false;
    }
    std::optional<double>& wantedAt = dueSample[one.target];
    const double interval = wanted.interval;
    if (wantedAt && one.clock < *wantedAt - TICK_SLACK * interval) {
        return true;
    }
    const double tick = wantedAt.value_or(one.clock);
    wantedAt = tick + interval * (1 + std::floor(std::max(one.clock - tick, 0.0) / interval));
    return false;
}

Clock::time_point Playback::due() const {
    if (!next) {
        return ended && stays ? Clock::time_point::max() : Clock::time_point::min();
    }
    if (once || !paced || (inInstant && next->entry.sample.wallTime <= instant)) {
        return Clock::time_point::min();
    }
    if (paused) {
        return Clock::time_point::max();
    }
    return anchored ? anchor + seconds((next->clock - anchorClock) / *paced) : Clock::time_point::min();
}

std::optional<FeedEvent> Playback::step(std::size_t target, Clock::time_point now) {
    load();
    if (!next) {
        if (stays || told[target]) {
            return std::nullopt;
        }
        told[target] = true;
        return FeedEvent();
    }
    if (next->target != target || due() > now) {
        return std::nullopt;
    }
    const bool atOnce = inInstant && next->entry.sample.wallTime <= instant;
    inInstant = atOnce;
    if (!anchored || atOnce || once) {
        anchor = now;
        anchorClock = next->clock;
        anchored = true;
    }
    once = once && atOnce;
    Entry entry = std::move(next->entry);
    FeedEvent event;
    event.clock = next->clock;
    next.reset();
    event.wallTime = position = entry.sample.wallTime;
    event.monotonicTime = entry.sample.monotonicTime;
    if (entry.gap) {
        event.kind = Event::Kind::gap;
        event.firstGap = !lost[target];
        event.rc = entry.rc;
        event.reason = entry.reason;
        event.text = entry.reason.empty() ? codeText(entry.rc) : escapeForTerminal(entry.reason);
        lost[target] = true;
        return event;
    }
    event.kind = Event::Kind::sample;
    event.sample = std::move(entry.sample);
    ++taken[target];
    keepAsked(event.sample, wanted);
    lost[target] = false;
    return event;
}

void Playback::setPace(double pace) {
    paced = pace;
    anchored = false;
}

void Playback::pause(bool wantedNow) {
    paused = wantedNow;
    anchored = false;
}

void Playback::stepOnce() {
    once = true;
}

void Playback::move(double count) {
    const double place = std::clamp(position + count, span.first, span.latest);
    begin(std::max(place - WARM_UP, span.first), place);
    position = place;
}

}  // namespace zulstat
