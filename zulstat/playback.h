// A recording in place of Gateways: --from, --at, --to and --speed.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "feed.h"
#include "options.h"
#include "recording/reader.h"

namespace zulstat {

// Removes what was not asked for by identifier or group. The Gateways' answer is the recording's.
void keepAsked(monitor::Sample& sample, const Options& options);
// A note of lines that are no whole sample; none of no lines.
void notePassedOver(const Options& options, const std::string& file, std::uint64_t lines);

// Of a recording's samples those that the options ask for; its Gateways are the options' targets. Throws what a Reader
// does, and UsageError for a time at which there is nothing.
class Playback {
public:
    // Paced: so many of its seconds in each second; nothing: as fast as they are taken.
    Playback(const Options& given, std::optional<double> pace);
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    // With the recording's targets.
    const Options& options() const {
        return wanted;
    }
    // One for each target. They end with the playback unless it stays, and must not outlive it.
    std::vector<std::unique_ptr<Feed>> feeds();

    // The last sample of each target at --at or before, or of all; and what came last.
    std::vector<monitor::Sample> samples();
    std::vector<recording::Entry> states();
    // The sample of the same target before that one, at least so many seconds. A later connection shows in `sample`.
    std::optional<monitor::Sample> before(monitor::Sample& sample, double seconds);

    // For a screen, which stays at the end, and goes where keys want it.
    void stay() {
        stays = true;
    }
    void setPace(double seconds);
    double pace() const {
        return paced.value_or(0);
    }
    bool atEnd() const {
        return ended;
    }
    void pause(bool wanted);
    // One more entry at once.
    void stepOnce();
    // So many seconds from the last entry that was taken; those of the minute before the new place come at once.
    void move(double seconds);

    const recording::Counts& counts() const {
        return reader->counts();
    }

private:
    class Part;
    friend class Part;
    struct Next {
        recording::Entry entry;
        std::size_t target = 0;
        double clock = 0;
    };

    double at() const;
    void begin(double wallTime, double instantTo);
    void load();
    std::optional<FeedEvent> step(std::size_t target, monitor::Clock::time_point now);
    monitor::Clock::time_point due() const;
    bool tooSoon(const Next& next);
    bool complete(std::size_t target) const;

    Options wanted;
    std::optional<double> paced;
    std::unique_ptr<recording::Reader> reader;
    recording::Span span;
    double from = 0;
    double to = 0;

    std::optional<Next> next;
    std::optional<monitor::Sample> former;  // of the file, for its times
    bool gapBefore = false;
    double clock = 0;    // of the recording, which never goes back
    double instant = 0;  // entries up to this wall time come at once
    bool inInstant = false;
    double position = 0;     // wall time of the entry that was taken last
    double anchorClock = 0;  // what the clock showed at `anchor`
    monitor::Clock::time_point anchor;
    bool anchored = false;
    bool paused = false;
    bool once = false;
    bool stays = false;
    bool ended = false;
    std::vector<bool> told;                        // targets whose end was told
    std::vector<bool> lost;                        // targets in a gap
    std::vector<long> taken;                       // samples of each
    std::vector<std::optional<double>> dueSample;  // -i: when each target's next sample is wanted
};

}  // namespace zulstat
