#include "timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "monitor/number.h"
#include "terminal.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t LONGEST_SHOWN = 200;    // terminal columns of a text that is kept
constexpr double LATEST_TIME = 253402300799;  // the end of the year 9999
// Samples are missing where the time between two is that many times the usual one, and so many seconds longer.
constexpr double MISSING_SAMPLES = 4;
constexpr double LONGEST_DELAY = 2;

// Buckets' places are whole numbers, whatever a clock or a file says.
double sane(double wallTime) {
    return wallTime >= 0 ? std::min(wallTime, LATEST_TIME) : 0;
}

void beginGap(GatewayTimeline& gateway, double wallTime, std::string reason) {
    gateway.interrupted = true;
    gateway.endWall = std::max(gateway.endWall, wallTime);
    if (gateway.gapOpen) {
        return;
    }
    gateway.gapOpen = true;
    gateway.gapFrom = gateway.samples > 0 ? gateway.lastWall : wallTime;
    if (gateway.gaps.size() < MOST_GAPS) {
        gateway.gaps.push_back({gateway.gapFrom, std::nullopt, std::move(reason)});
    } else {
        ++gateway.moreGaps;
    }
}

void endGap(GatewayTimeline& gateway, double wallTime) {
    gateway.gapOpen = false;
    gateway.gapSeconds += std::max(wallTime - gateway.gapFrom, 0.0);
    if (gateway.moreGaps == 0) {
        gateway.gaps.back().to = wallTime;
    }
}

// The place of the text among the states.
std::uint8_t stateOf(Timeline& line, const std::string& text) {
    const auto found =
        std::find_if(line.states.begin(), line.states.end(), [&](const State& one) { return one.text == text; });
    if (found == line.states.end() && line.states.size() < MOST_STATES) {
        line.states.push_back({text, 0});
        return static_cast<std::uint8_t>(line.states.size() - 1);
    }
    return static_cast<std::uint8_t>(found - line.states.begin());
}

void noteText(const Track& track, bool behindGap, double wallTime, Bucket& bucket, Timeline& line) {
    const bool first = line.samples == line.numbers + 1;
    const std::uint8_t former = line.state;
    if (first || track.changed) {
        line.state = stateOf(line, line.lastValue);
    }
    if (line.state < line.states.size()) {
        ++line.states[line.state].samples;
    }
    if (!first && line.state != former) {
        if (line.stateChanges.size() < MOST_CHANGES) {
            line.stateChanges.push_back({wallTime, former, line.state});
        } else {
            ++line.moreStateChanges;
        }
    }
    bucket.texts.add(Texts{std::uint32_t{1} << line.state, line.state, behindGap});
}

void noteNumber(const Track& track, bool behindGap, double seconds, Bucket& bucket, Timeline& line) {
    const double value = toDouble(*track.number);
    ++line.numbers;
    line.values.add(value, behindGap);
    bucket.value.add(value, behindGap);
    if (track.perSecond) {
        line.rates.add(*track.perSecond, false);
        bucket.rate.add(*track.perSecond, behindGap || !line.lastHadRate);
        line.grown += track.difference.value_or(0);
        line.seconds += seconds;
    }
}

// What a sample has of a statistic; `missed` tells whether the sample before did not have it.
void note(const Track& track, bool missed, double wallTime, double monotonicTime, Bucket& bucket, Timeline& line) {
    const bool first = line.samples == 0;
    const bool kindChanged = line.lastWasNumber != track.number.has_value();
    const bool behindGap = !first && (missed || kindChanged);
    ++line.samples;
    line.changes += !first && track.changed ? 1 : 0;
    line.resets += track.reset ? 1 : 0;
    if (first || track.changed) {
        line.lastValue = cutWithMark(track.shownValue, LONGEST_SHOWN);
        line.moment = !track.number && parseMoment(track.value).has_value();
    }
    if (track.number) {
        noteNumber(track, behindGap, monotonicTime - line.lastMonotonic, bucket, line);
        line.numberKind = track.kind();
    } else {
        noteText(track, behindGap, wallTime, bucket, line);
        line.textKind = track.kind();
    }
    line.lastWasNumber = track.number.has_value();
    line.lastHadRate = track.perSecond.has_value();
    line.lastMonotonic = monotonicTime;
}

}  // namespace

// ---- extents and buckets ------------------------------------------------------------------------------------------

bool Extent::empty() const {
    return std::isnan(low);
}

void Extent::add(double number, bool behindGap) {
    if (empty()) {
        *this = {number, number, number, behindGap};
        return;
    }
    low = std::min(low, number);
    high = std::max(high, number);
    last = number;
}

void Extent::add(const Extent& later) {
    if (later.empty()) {
        return;
    }
    if (empty()) {
        *this = later;
        return;
    }
    low = std::min(low, later.low);
    high = std::max(high, later.high);
    last = later.last;
}

void Texts::add(const Texts& later) {
    if (later.empty()) {
        return;
    }
    broken = empty() ? later.broken : broken;
    states |= later.states;
    last = later.last;
}

Bucket& Buckets::at(std::int64_t place) {
    if (all.empty()) {
        first = place;
    }
    for (; place < first; --first) {
        all.emplace_front();
    }
    const auto index = static_cast<std::size_t>(place - first);
    if (index >= all.size()) {
        all.resize(index + 1);
    }
    return all[index];
}

void Buckets::halve() {
    std::deque<Bucket> wider;
    const std::int64_t begin = first >> 1;
    for (std::size_t index = 0; index < all.size(); ++index) {
        const auto place = static_cast<std::size_t>(((first + static_cast<std::int64_t>(index)) >> 1) - begin);
        if (place == wider.size()) {
            wider.push_back(all[index]);
        } else {
            wider[place].value.add(all[index].value);
            wider[place].rate.add(all[index].rate);
            wider[place].texts.add(all[index].texts);
        }
    }
    first = begin;
    all = std::move(wider);
}

// ---- timelines ----------------------------------------------------------------------------------------------------

Kind Timeline::kind() const {
    if (numbers * 2 > samples) {
        return numberKind;
    }
    return moment || states.size() > MOST_STATE_TEXTS ? Kind::text : textKind;
}

bool Timeline::showsRates() const {
    return kind() == Kind::counter && unit != Unit::uptime && !rates.empty();
}

Timelines::Timelines(DerivedGlobs globs, std::shared_ptr<Mapper> map, std::size_t mostBuckets)
    : derived(std::move(globs)), mapper(std::move(map)), most(mostBuckets) {
}

GatewayTimeline* Timelines::gatewayOf(const Target& target) {
    for (GatewayTimeline& one : all) {
        if (one.target.port == target.port && one.target.host == target.host) {
            return &one;
        }
    }
    if (all.size() == MOST_GATEWAYS) {
        return nullptr;
    }
    GatewayTimeline& added = all.emplace_back(derived, mapper);
    added.number = all.size() - 1;
    added.target = target;
    added.name = cutWithMark(escapeForTerminal(targetText(target)), LONGEST_SHOWN);
    return &added;
}

// The place of the bucket for a moment; all buckets become wider until there are not too many.
std::int64_t Timelines::place(double wallTime) {
    auto result = static_cast<std::int64_t>(std::floor(wallTime / grid));
    span = span ? std::pair(std::min(span->first, result), std::max(span->second, result)) : std::pair(result, result);
    const auto limit = static_cast<std::int64_t>(timelines > MANY_TIMELINES ? most / 4 : most);
    while (span->second - span->first >= limit) {
        grid *= 2;
        result >>= 1;
        span = {span->first >> 1, span->second >> 1};
        for (auto& ofGateways : lines) {
            for (const auto& line : ofGateways) {
                if (line) {
                    line->buckets.halve();
                }
            }
        }
    }
    return result;
}

Timeline* Timelines::timelineOf(std::size_t gateway, const Track& track) {
    const auto [found, fresh] = known.try_emplace({track.element, track.id, track.repeated}, lines.size());
    if (fresh) {
        if (timelines == MOST_TIMELINES) {
            known.erase(found);
            return nullptr;
        }
        lines.emplace_back();
    }
    auto& ofGateways = lines[found->second];
    if (ofGateways.size() <= gateway) {
        ofGateways.resize(gateway + 1);
    }
    std::unique_ptr<Timeline>& line = ofGateways[gateway];
    if (!line && timelines < MOST_TIMELINES) {
        ++timelines;
        line = std::make_unique<Timeline>();
        line->element = track.element;
        line->id = track.id;
        line->repeated = track.repeated;
        line->group = cutWithMark(track.group, LONGEST_SHOWN);
        line->shownId = cutWithMark(track.shownId, LONGEST_SHOWN);
        line->shortId = cutWithMark(track.shownId.substr(track.prefix), LONGEST_SHOWN);
        line->unit = track.unit;
    }
    return line.get();
}

void Timelines::gap(const Target& target, double wallTime, std::string_view reason) {
    if (GatewayTimeline* gateway = gatewayOf(target)) {
        beginGap(*gateway, sane(wallTime), cutWithMark(escapeForTerminal(reason), LONGEST_SHOWN));
    }
}

void Timelines::nextRecording() {
    for (GatewayTimeline& one : all) {
        one.otherFile = true;
    }
}

void Timelines::take(Sample sample) {
    GatewayTimeline* const found = gatewayOf(sample.target);
    if (found == nullptr) {
        ++leftSamples;
        return;
    }
    GatewayTimeline& gateway = *found;
    sample.wallTime = sane(sample.wallTime);
    const bool first = gateway.samples == 0;
    // Two recordings are of one boot where their clocks agree, as those that follow each other do.
    const bool clocksAgree =
        std::abs((sample.wallTime - gateway.lastWall) - (sample.monotonicTime - gateway.lastMonotonic)) < LONGEST_DELAY;
    const bool anotherBoot =
        !first && (!(sample.monotonicTime >= gateway.lastMonotonic) || (gateway.otherFile && !clocksAgree));
    // Across a boot counters may have started anew, and a difference of the clock says nothing.
    sample.freshConnection = sample.freshConnection || anotherBoot;
    gateway.interrupted = gateway.interrupted || anotherBoot;
    gateway.otherFile = false;
    const double passed =
        anotherBoot ? sample.wallTime - gateway.lastWall : sample.monotonicTime - gateway.lastMonotonic;
    if (!first && passed > std::max(MISSING_SAMPLES * gateway.usual, gateway.usual + LONGEST_DELAY)) {
        beginGap(gateway, gateway.lastWall, {});
    } else if (!first && !gateway.interrupted && !anotherBoot) {
        gateway.usual = gateway.usual > 0 ? gateway.usual + (passed - gateway.usual) / 8 : passed;
    }
    if (gateway.gapOpen) {
        endGap(gateway, sample.wallTime);
    }
    ++gateway.samples;
    gateway.firstWall = first ? sample.wallTime : std::min(gateway.firstWall, sample.wallTime);
    gateway.connections += !first && sample.freshConnection ? 1 : 0;
    gateway.failedElements += failedElements(sample) > 0 ? 1 : 0;
    takeTracks(gateway, sample);
    gateway.lastWall = sample.wallTime;
    gateway.endWall = std::max(gateway.endWall, sample.wallTime);
    gateway.lastMonotonic = sample.monotonicTime;
    gateway.interrupted = false;
}

void Timelines::takeTracks(GatewayTimeline& gateway, const Sample& sample) {
    gateway.tracks.take(sample);
    const std::int64_t bucket = place(sample.wallTime);
    const std::span<const std::unique_ptr<Track>> tracks = gateway.tracks.all();
    gateway.order.resize(tracks.size());
    std::size_t resets = 0;
    for (std::size_t index = 0; index < tracks.size(); ++index) {
        const Track& track = *tracks[index];
        Timeline*& line = gateway.order[index];
        if (track.failed) {
            line = nullptr;
            continue;
        }
        if (line == nullptr || line->id != track.id || line->element != track.element ||
            line->repeated != track.repeated) {
            line = timelineOf(gateway.number, track);
        }
        if (line == nullptr) {
            ++leftOut;
            continue;
        }
        const bool missed = gateway.interrupted || line->lastSample + 1 != gateway.samples;
        note(track, missed, sample.wallTime, sample.monotonicTime, line->buckets.at(bucket), *line);
        line->lastSample = gateway.samples;
        resets += track.reset ? 1 : 0;
    }
    if (resets > 0 && gateway.resets.size() < MOST_GAPS) {
        gateway.resets.push_back({sample.wallTime, resets});
    } else {
        gateway.moreResets += resets > 0 ? 1 : 0;
    }
}

std::vector<Timelines::Row> Timelines::rows() const {
    std::vector<Row> result;
    for (const auto& ofGateways : lines) {
        Row row;
        for (const auto& line : ofGateways) {
            row.ofGateways.push_back(line.get());
        }
        row.ofGateways.resize(all.size());
        result.push_back(std::move(row));
    }
    return result;
}

const Timeline& Timelines::Row::first() const {
    return **std::find_if(ofGateways.begin(), ofGateways.end(), [](const Timeline* one) { return one != nullptr; });
}

double Timelines::from() const {
    double result = LATEST_TIME;
    for (const GatewayTimeline& one : all) {
        result = one.samples > 0 ? std::min(result, one.firstWall) : result;
    }
    return result;
}

double Timelines::to() const {
    double result = 0;
    for (const GatewayTimeline& one : all) {
        result = std::max(result, one.endWall);
    }
    return result;
}

std::vector<std::string> leftTexts(const Timelines& lines) {
    std::vector<std::string> texts;
    if (lines.leftOfGateways() > 0) {
        texts.push_back(fmt::format("Only {} Gateways are shown: {} more samples had no room.", MOST_GATEWAYS,
                                    lines.leftOfGateways()));
    }
    if (lines.left() > 0) {
        texts.push_back(fmt::format("Only {} statistics are shown: {} more values had no room. -I and -X choose.",
                                    MOST_TIMELINES, lines.left()));
    }
    return texts;
}

std::string rangeText(const Extent& extent, Unit unit, bool rates) {
    if (extent.empty()) {
        return "";
    }
    const Unit shown = unit == Unit::uptime ? Unit::seconds : unit;
    return (extent.low == 0 && extent.high > 0 ? "0-" + figureRange(extent.high, extent.high, shown)
                                               : figureRange(extent.low, extent.high, shown)) +
           (rates ? "/s" : "");
}

std::vector<Column> columnsOf(const Timeline& line, double width, bool rates, double from, double to,
                              std::size_t count) {
    std::vector<Column> columns(count);
    const double scale = to > from ? static_cast<double>(count) / (to - from) : 0;
    for (std::size_t index = 0; index < line.buckets.all.size(); ++index) {
        const Bucket& bucket = line.buckets.all[index];
        const double middle =
            (static_cast<double>(line.buckets.first + static_cast<std::int64_t>(index)) + 0.5) * width;
        if (middle < from - width || middle > to + width) {
            continue;
        }
        const double column = std::clamp((middle - from) * scale, 0.0, static_cast<double>(count) - 1);
        Column& taker = columns[static_cast<std::size_t>(column)];
        taker.numbers.add(rates ? bucket.rate : bucket.value);
        taker.texts.add(bucket.texts);
    }
    return columns;
}

}  // namespace zulstat
