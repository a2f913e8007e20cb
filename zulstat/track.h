// What a series of samples tells about each statistic: its kind, its history, averages, when it changed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "figures.h"
#include "monitor/changes.h"
#include "monitor/mapping.h"
#include "rate.h"

namespace zulstat {

inline constexpr std::size_t HISTORY_LENGTH = 240;                       // samples
inline constexpr std::array<double, 3> AVERAGE_SECONDS = {10, 60, 300};  // decaying, plain means at first
using Averages = std::array<std::optional<double>, AVERAGE_SECONDS.size()>;

enum class Kind : std::uint8_t {
    text,
    state,    // a short text that changes seldom, and has changed
    number,   // nothing tells yet what it is
    counter,  // -r or the map says so, or it rises and never fell on one connection
    gauge,    // the map says so, or it fell
};
std::string_view kindName(Kind kind);

// A statistic, or a failed query element, of one Gateway. Texts called shown are escaped for terminals.
struct Track {
    std::string element;
    std::string id;  // as is element, the Gateway's bytes; empty for a failed element
    std::size_t repeated = 0;
    bool failed = false;
    std::string shownElement;
    std::string shownId;     // of a failed element its text
    std::string group;       // shown: the heading it stands under
    std::size_t prefix = 0;  // bytes of shownId that the heading has already

    std::string value;
    std::string shownValue;
    std::optional<monitor::Number> number;
    Unit unit = Unit::none;
    std::optional<Kind> declared;
    bool showsDifference = false;  // -d

    std::optional<double> perSecond;   // nothing without a former number on this connection
    std::optional<double> difference;  // likewise
    bool reset = false;                // a counter that began anew with this sample
    bool changed = false;              // with this sample
    bool fell = false;                 // ever, on one connection
    long rises = 0;
    long changes = 0;
    long samples = 0;
    double firstSeen = 0;  // monotonic seconds, as are the next two
    double lastSeen = 0;
    double lastChange = 0;  // where there were changes
    double firstWall = 0;   // seconds since 1970
    double changeWall = 0;

    std::array<double, HISTORY_LENGTH> history;  // numbers; NaN for gaps
    std::uint64_t lastSlot = 0;
    Averages averageRate;
    Averages averageValue;
    double observed = 0;  // seconds that the averages have seen

    Kind kind() const;
    bool constant() const {
        return changes == 0 && !failed;
    }
    const Averages& averages() const {
        return kind() == Kind::counter ? averageRate : averageValue;
    }
};

// One for each Gateway, used from one thread at a time.
class Tracks {
public:
    explicit Tracks(DerivedGlobs globs = {}, std::shared_ptr<monitor::Mapper> map = nullptr);

    void take(const monitor::Sample& sample);
    // A gap in all histories.
    void gap();

    // Those of the last sample, in its order. Valid until the next take().
    std::span<const std::unique_ptr<Track>> all() const {
        return tracks;
    }
    // The last `length` points, oldest first, NaN for gaps: rates per second of a counter, numbers of others.
    std::vector<double> points(const Track& track, std::size_t length) const;
    // Monotonic and wall time of the last sample.
    double time() const {
        return now;
    }
    double wallTime() const {
        return wall;
    }

private:
    bool matches(const monitor::Sample& sample) const;
    void arrange(const monitor::Sample& sample);
    void update(Track& track, std::string_view value, bool freshConnection);
    void updateNumber(Track& track, const std::optional<monitor::Number>& former, double seconds, bool freshConnection);
    void nextSlot(double time);

    DerivedGlobs derived;
    std::shared_ptr<monitor::Mapper> mapper;  // or none
    std::vector<std::unique_ptr<Track>> tracks;
    // May come back, for instance when an element fails for a while. The texts of a key are the track's.
    using Key = std::tuple<std::string_view, std::string_view, std::size_t, bool>;
    static Key keyOf(const Track& track);
    std::map<Key, std::unique_ptr<Track>> absent;
    std::array<double, HISTORY_LENGTH> times{};  // of the slots
    std::uint64_t slot = 0;                      // of the last sample or gap; its place is the rest of HISTORY_LENGTH
    double now = 0;
    double wall = 0;
};

}  // namespace zulstat
