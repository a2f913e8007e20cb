#include "track.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "monitor/number.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr double GAP = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t MOST_ABSENT = 10000;
constexpr std::size_t LONGEST_STATE = 32;
constexpr long RISES_OF_A_COUNTER = 3;
// What has decimals is more often a measurement, which falls in the end.
constexpr long RISES_WITH_DECIMALS = 60;
constexpr std::string_view SEPARATORS = "._-/:";

// What all these begin with, up to and with a separator.
std::size_t commonPrefix(std::span<const Item> items) {
    std::string_view common = items.front().id;
    for (const Item& item : items) {
        const auto [left, right] = std::mismatch(common.begin(), common.end(), item.id.begin(), item.id.end());
        common = common.substr(0, static_cast<std::size_t>(left - common.begin()));
    }
    const std::size_t end = common.find_last_of(SEPARATORS);
    return end == std::string_view::npos ? 0 : end + 1;
}

// The headings of an element's items, and how much of their identifiers the headings have already: the element, or what
// all of them begin with.
void place(std::span<const std::unique_ptr<Track>> tracks, const Element& element, std::span<const Item> items) {
    std::string heading = escapeForTerminal(element.text);
    std::size_t prefix = 0;
    if (items.size() > 1) {
        prefix = commonPrefix(items);
        const std::string_view common = items.front().id.substr(0, prefix - std::min<std::size_t>(prefix, 1));
        heading = common.starts_with(element.text) ? escapeForTerminal(common)
                  : prefix > 0                     ? heading + ": " + escapeForTerminal(common)
                                                   : heading;
    } else if (element.text == items.front().id) {  // asked for by its identifier
        const std::size_t first = items.front().id.find_first_of(SEPARATORS);
        prefix = first == std::string::npos ? 0 : first + 1;
        heading = escapeForTerminal(items.front().id.substr(0, prefix == 0 ? 0 : first));
    }
    for (const std::unique_ptr<Track>& track : tracks) {
        track->group = heading;
        const std::size_t hidden = escapeForTerminal(std::string_view(track->id).substr(0, prefix)).size();
        track->prefix = hidden < track->shownId.size() ? hidden : 0;
    }
}

void average(Averages& averages, double value, double seconds, double observed) {
    for (std::size_t index = 0; index < averages.size(); ++index) {
        const double span = std::min(observed, AVERAGE_SECONDS[index]);
        const double weight = span > 0 ? std::min(seconds / span, 1.0) : 1;
        averages[index] = averages[index] ? *averages[index] + (value - *averages[index]) * weight : value;
    }
}

}  // namespace

std::string_view kindName(Kind kind) {
    switch (kind) {
    case Kind::text:
        return "text";
    case Kind::state:
        return "state";
    case Kind::number:
        return "number";
    case Kind::counter:
        return "counter";
    case Kind::gauge:
        break;
    }
    return "gauge";
}

Kind Track::kind() const {
    if (!number) {
        const bool seldom = changes > 0 && changes * 5 <= samples && shownValue.size() <= LONGEST_STATE;
        return seldom ? Kind::state : Kind::text;
    }
    const long wanted = std::holds_alternative<double>(*number) ? RISES_WITH_DECIMALS : RISES_OF_A_COUNTER;
    return declared ? *declared : fell ? Kind::gauge : rises >= wanted ? Kind::counter : Kind::number;
}

Tracks::Tracks(DerivedGlobs globs, std::shared_ptr<Mapper> map) : derived(std::move(globs)), mapper(std::move(map)) {
}

void Tracks::nextSlot(double time) {
    ++slot;
    times[slot % HISTORY_LENGTH] = time;
}

bool Tracks::matches(const Sample& sample) const {
    auto track = tracks.begin();
    for (const Element& element : sample.elements) {
        const auto same = [&](std::string_view id, bool failed) {
            const bool result = track != tracks.end() && (*track)->failed == failed && (*track)->id == id &&
                                (*track)->element == element.text;
            track += track != tracks.end() ? 1 : 0;
            return result;
        };
        if (element.rc < 0 && !same({}, true)) {
            return false;
        }
        for (const Item& item : sample.itemsOf(element)) {
            if (!same(item.id, false)) {
                return false;
            }
        }
    }
    return track == tracks.end();
}

Tracks::Key Tracks::keyOf(const Track& track) {
    return {track.element, track.id, track.repeated, track.failed};
}

// Puts the tracks into the order of the sample, and makes those that it has for the first time.
void Tracks::arrange(const Sample& sample) {
    std::map<Key, std::unique_ptr<Track>> known;
    for (std::unique_ptr<Track>& track : tracks) {
        const Key key = keyOf(*track);
        known.emplace(key, std::move(track));
    }
    tracks.clear();
    std::map<std::pair<std::string_view, std::string_view>, std::size_t> seen;
    const auto add = [&](const Element& element, std::string_view id, bool failed) {
        const std::size_t repeated = seen[{element.text, id}]++;
        for (auto* const place : {&known, &absent}) {
            if (auto node = place->extract(Key(element.text, id, repeated, failed)); !node.empty()) {
                tracks.push_back(std::move(node.mapped()));
                return;
            }
        }
        auto track = std::make_unique<Track>();
        track->element = element.text;
        track->id = id;
        track->repeated = repeated;
        track->failed = failed;
        track->shownElement = escapeForTerminal(element.text);
        track->shownId = failed ? track->shownElement : escapeForTerminal(id);
        track->history.fill(GAP);
        track->firstSeen = sample.monotonicTime;
        track->firstWall = sample.wallTime;
        if (!failed) {
            track->unit = unitOf(id);
            const MappedName* const mapped = mapper ? &mapper->find(id) : nullptr;
            if (anyGlobMatches(derived.rates, id)) {
                track->declared = Kind::counter;
            } else if (mapped != nullptr && mapped->rule != nullptr && mapped->rule->type == MetricType::counter) {
                track->declared = Kind::counter;
            } else if (mapped != nullptr && mapped->rule != nullptr && mapped->rule->type == MetricType::gauge) {
                track->declared = Kind::gauge;
            }
            track->showsDifference = anyGlobMatches(derived.deltas, id);
        }
        tracks.push_back(std::move(track));
    };
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            add(element, {}, true);
        }
        const std::size_t before = tracks.size();
        for (const Item& item : sample.itemsOf(element)) {
            add(element, item.id, false);
        }
        if (tracks.size() > before) {
            place(std::span(tracks).subspan(before), element, sample.itemsOf(element));
        }
    }
    for (auto& [key, track] : known) {
        if (absent.size() < MOST_ABSENT && !track->failed) {
            absent.emplace(key, std::move(track));
        }
    }
}

void Tracks::take(const Sample& sample) {
    if (!matches(sample)) {
        arrange(sample);
    }
    now = sample.monotonicTime;
    wall = sample.wallTime;
    nextSlot(now);
    auto track = tracks.begin();
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            (*track++)->shownValue = fmt::format("failed, rc {}", element.rc);
        }
        for (const Item& item : sample.itemsOf(element)) {
            update(**track++, item.value, sample.freshConnection);
        }
    }
}

void Tracks::update(Track& track, std::string_view value, bool freshConnection) {
    const bool first = track.samples == 0;
    const double seconds = first ? 0 : now - track.lastSeen;
    const std::optional<Number> former = track.number;
    track.changed = !first && track.value != value;
    if (first || track.changed) {
        track.value = value;
        track.shownValue = escapeForTerminal(value);
        track.number = parseNumber(value);
    }
    if (track.changed) {
        ++track.changes;
        track.lastChange = now;
        track.changeWall = wall;
    }
    for (std::uint64_t missed = std::max(track.lastSlot + 1, slot - std::min<std::uint64_t>(slot, HISTORY_LENGTH - 1));
         missed < slot; ++missed) {
        track.history[missed % HISTORY_LENGTH] = GAP;
    }
    track.history[slot % HISTORY_LENGTH] = track.number ? toDouble(*track.number) : GAP;
    updateNumber(track, former, seconds, freshConnection);
    ++track.samples;
    track.lastSeen = now;
    track.lastSlot = slot;
}

void Tracks::updateNumber(Track& track, const std::optional<Number>& former, double seconds, bool freshConnection) {
    track.perSecond.reset();
    track.difference.reset();
    track.reset = false;
    if (!track.number) {
        return;
    }
    const double value = toDouble(*track.number);
    track.observed += seconds;
    average(track.averageValue, value, seconds, track.observed);
    if (!former) {
        return;
    }
    const double grown = track.changed ? difference(*track.number, *former) : 0;
    if (grown < 0) {
        track.reset = track.declared == Kind::counter || (freshConnection && track.kind() == Kind::counter);
        track.fell = track.fell || !freshConnection;
    }
    track.rises += grown > 0 && !freshConnection ? 1 : 0;
    if (freshConnection) {
        return;
    }
    track.difference = grown;
    if (grown >= 0 && seconds > 0 && std::isfinite(grown / seconds)) {
        track.perSecond = grown / seconds;
        average(track.averageRate, *track.perSecond, seconds, track.observed);
    }
}

void Tracks::gap() {
    nextSlot(now);
}

std::vector<double> Tracks::points(const Track& track, std::size_t length) const {
    std::vector<double> result;
    length = std::min<std::size_t>(length, HISTORY_LENGTH - 1);
    result.reserve(length);
    const bool rates = track.kind() == Kind::counter;
    // What came after the last sample of this statistic is a gap.
    const auto at = [&](std::uint64_t index) {
        return index > track.lastSlot ? GAP : track.history[index % HISTORY_LENGTH];
    };
    for (std::uint64_t index = slot >= length ? slot - length + 1 : 1; index <= slot; ++index) {
        double point = at(index);
        if (rates) {
            const double seconds = times[index % HISTORY_LENGTH] - times[(index - 1) % HISTORY_LENGTH];
            const double grown = index > 1 ? point - at(index - 1) : GAP;
            point = grown >= 0 && seconds > 0 ? grown / seconds : GAP;
        }
        result.push_back(point);
    }
    return result;
}

}  // namespace zulstat
