// Series of samples in bounded memory, however long they are: for each statistic of each Gateway buckets of time with
// smallest, largest and last number, and what happened when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "monitor/mapping.h"
#include "monitor/sample.h"
#include "rate.h"
#include "track.h"

namespace zulstat {

inline constexpr std::size_t MOST_BUCKETS = 1024;  // of a timeline
inline constexpr std::size_t MOST_TIMELINES = 5000;
inline constexpr std::size_t MANY_TIMELINES = 1000;  // more of them have a quarter of the buckets
inline constexpr std::size_t MOST_STATES = 24;       // texts that one timeline tells apart
inline constexpr std::size_t MOST_STATE_TEXTS = 8;   // what has more of them is no state
inline constexpr std::size_t MOST_CHANGES = 100;     // of the states of one timeline
inline constexpr std::size_t MOST_GAPS = 1000;       // of a Gateway, and as many moments of resets
inline constexpr std::size_t MOST_GATEWAYS = 64;

// Smallest, largest and last of some numbers, in their order.
struct Extent {
    double low = std::numeric_limits<double>::quiet_NaN();
    double high = low;
    double last = low;
    bool broken = false;  // a gap lies before the first of them

    bool empty() const;
    void add(double number, bool behindGap);
    void add(const Extent& later);
};

// The texts of a span of time.
struct Texts {
    std::uint32_t states = 0;  // a bit for each place among Timeline::states; MOST_STATES stands for all others
    std::uint8_t last = 0;
    bool broken = false;  // a gap lies before the first of them

    bool empty() const {
        return states == 0;
    }
    void add(const Texts& later);
};

// What a span of time has of one statistic.
struct Bucket {
    Extent value;  // numbers
    Extent rate;   // per second, since the sample before
    Texts texts;
};

// Buckets behind one another; places count from the epoch in widths of the grid.
class Buckets {
public:
    Bucket& at(std::int64_t place);
    // Makes one of each two that are one where the grid is twice as wide.
    void halve();

    std::int64_t first = 0;
    std::deque<Bucket> all;
};

struct State {
    std::string text;  // shown
    std::uint64_t samples = 0;
};

struct StateChange {
    double wallTime = 0;
    std::uint8_t from = 0;  // places among Timeline::states
    std::uint8_t to = 0;
};

// One statistic of one Gateway. Texts are escaped for terminals.
struct Timeline {
    std::string element;  // as is id, the Gateway's bytes
    std::string id;
    std::size_t repeated = 0;
    std::string group;  // the heading it stands under, and what of its name that leaves
    std::string shownId;
    std::string shortId;
    Unit unit = Unit::none;

    Buckets buckets;
    Extent values;  // of all samples
    Extent rates;
    double grown = 0;  // the sum of differences, and the seconds they took
    double seconds = 0;
    std::uint64_t samples = 0;
    std::uint64_t numbers = 0;  // samples whose value was one
    std::uint64_t changes = 0;
    std::uint64_t resets = 0;
    std::string lastValue;
    std::vector<State> states;  // the first MOST_STATES texts
    std::vector<StateChange> stateChanges;
    std::uint64_t moreStateChanges = 0;
    Kind numberKind = Kind::number;
    Kind textKind = Kind::text;
    bool moment = false;  // its last text was one, which is no state either

    std::uint64_t lastSample = 0;  // the Gateway's samples, with the last that has it
    double lastMonotonic = 0;
    std::uint8_t state = 0;      // of the last sample, where that is a text
    bool lastWasNumber = false;  // that of the last sample
    bool lastHadRate = false;

    Kind kind() const;
    // Whether rates are what is to be seen of it. An uptime is a counter whose values say more: when it began anew.
    bool showsRates() const;
    const Extent& extent() const {
        return showsRates() ? rates : values;
    }
    // Whether there is anything to see that moves.
    bool constant() const {
        return changes == 0;
    }
};

struct Gap {
    double from = 0;  // wall time of the last sample before it
    std::optional<double> to;
    std::string reason;  // shown; empty where nobody knows
};

// Counters that began anew with one sample.
struct Reset {
    double wallTime = 0;
    std::size_t counters = 0;
};

struct GatewayTimeline {
    explicit GatewayTimeline(DerivedGlobs derived, std::shared_ptr<monitor::Mapper> mapper)
        : tracks(std::move(derived), std::move(mapper)) {
    }

    monitor::Target target;
    std::size_t number = 0;  // its place among them
    std::string name;        // shown
    double firstWall = 0;
    double lastWall = 0;  // of samples
    double endWall = 0;   // of gaps too
    std::uint64_t samples = 0;
    std::uint64_t connections = 0;     // samples for which one was opened, but for the first
    std::uint64_t failedElements = 0;  // samples with some
    std::vector<Gap> gaps;
    std::uint64_t moreGaps = 0;  // that only count
    double gapSeconds = 0;
    std::vector<Reset> resets;
    std::uint64_t moreResets = 0;

    Tracks tracks;
    std::vector<Timeline*> order;  // of the tracks of the last sample; nothing for those that there is no room for
    double lastMonotonic = 0;
    double usual = 0;         // seconds between samples
    bool interrupted = true;  // the next sample does not go on where the last one ended
    bool otherFile = false;   // the next sample is of another recording than the last one
    bool gapOpen = false;     // the last gap has no end yet
    double gapFrom = 0;       // of it
};

class Timelines {
public:
    explicit Timelines(DerivedGlobs globs = {}, std::shared_ptr<monitor::Mapper> map = nullptr,
                       std::size_t mostBuckets = MOST_BUCKETS);

    // A sample with values. Gateways are told apart by their targets.
    void take(monitor::Sample sample);
    // There was none of this Gateway at this time, and before it since its last sample.
    void gap(const monitor::Target& target, double wallTime, std::string_view reason);
    // What follows is of another recording.
    void nextRecording();

    // Those whose numbers, rates or states are one plot: the same statistic of all Gateways, nothing where one lacks
    // it.
    struct Row {
        std::vector<const Timeline*> ofGateways;
        const Timeline& first() const;
    };
    // In the order of the samples.
    std::vector<Row> rows() const;

    const std::deque<GatewayTimeline>& gateways() const {
        return all;
    }
    double width() const {  // seconds of a bucket
        return grid;
    }
    std::uint64_t left() const {  // values of statistics that there was no room for
        return leftOut;
    }
    std::uint64_t leftOfGateways() const {  // samples of Gateways that there was no room for
        return leftSamples;
    }
    double from() const;  // wall times of the first and the last sample
    double to() const;

private:
    using Key = std::tuple<std::string, std::string, std::size_t>;  // element, identifier, which of several

    GatewayTimeline* gatewayOf(const monitor::Target& target);
    Timeline* timelineOf(std::size_t gateway, const Track& track);
    std::int64_t place(double wallTime);
    void takeTracks(GatewayTimeline& gateway, const monitor::Sample& sample);

    DerivedGlobs derived;
    std::shared_ptr<monitor::Mapper> mapper;
    std::size_t most;
    std::deque<GatewayTimeline> all;
    std::map<Key, std::size_t> known;                           // places among lines
    std::vector<std::vector<std::unique_ptr<Timeline>>> lines;  // one of each Gateway, or nothing
    std::size_t timelines = 0;
    std::uint64_t leftOut = 0;
    std::uint64_t leftSamples = 0;
    double grid = 1.0 / 16;
    std::optional<std::pair<std::int64_t, std::int64_t>> span;  // the first and the last place of all
};

// What there was no room for, a sentence each.
std::vector<std::string> leftTexts(const Timelines& lines);

// Numbers of a statistic, or of its rates, in words: "8-41 MiB", "1.2k-3.4k/s".
std::string rangeText(const Extent& extent, Unit unit, bool rates);

// A piece of a plot's width.
struct Column {
    Extent numbers;
    Texts texts;
};

// What the buckets have between two wall times, in so many columns of the same width: each has all that falls into it,
// so that no peak is lost.
std::vector<Column> columnsOf(const Timeline& line, double width, bool rates, double from, double to,
                              std::size_t count);

}  // namespace zulstat
