// A recording: a file of lines, a sample or a gap each (sample_json.h), compressed or not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "monitor/sample.h"
#include "sample_json.h"

namespace recording {

inline constexpr std::size_t LONGEST_LINE = std::size_t{64} << 20;
inline constexpr std::size_t MOST_TARGETS = 256;

// What next() has come by; what it comes by again after a seek counts again.
struct Counts {
    std::uint64_t samples = 0;
    std::uint64_t gaps = 0;
    std::uint64_t torn = 0;  // lines that are no whole sample, and damaged places
};

// What a whole file has.
struct Span {
    double first = 0;                        // the smallest wall time
    double last = 0;                         // that of the last entry, which is the recording's end
    double latest = 0;                       // the largest one
    std::vector<monitor::Target> targets{};  // in the order in which they come first; none: the file has no entry
    std::uint64_t torn = 0;                  // as in Counts, as far as a look at each line tells
};

// One recording, front to back; its storage is bounded, but for a word or two for each MiB of the file. Lines that are
// no whole sample, as a recorder that was killed leaves, or longer than LONGEST_LINE bytes, are passed over and
// counted. Order is the file's, whatever its times say. Calls throw std::runtime_error or std::system_error with the
// file's name: for a file that cannot be read, a device's line over LONGEST_LINE bytes, or more than MOST_TARGETS
// targets. A file that is none but a pipe can be read with next() alone. Use it from one thread at a time.
class Reader {
public:
    explicit Reader(const std::string& file);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    std::optional<Entry> next();  // nothing at the end

    // The next entry is the latest sample by wall at or before the time, wherever in the file it is, else the file's
    // first entry; for infinity the last sample of the file. Quick: hardly any JSON is parsed on the way, the whole
    // file is looked at once, and nothing is read again that lies far behind, unless clocks went back.
    void seek(double wallTime);
    // Of each target that sample, in the targets' order; none of those without one. A seek is to follow.
    std::vector<monitor::Sample> moment(double wallTime);
    // Of each target the latest entry before then. A seek is to follow.
    std::vector<Entry> lastEntries(double wallTime);
    // Reads on to the end, as quickly. A seek is to follow.
    Span span();

    // So many seconds at most an entry's wall time lies before that of one above it, as far as entries were looked at;
    // a seek looks at all. What comes behind an entry that is later by more than that is later too.
    double disorder() const {
        return mostBack;
    }

    const Counts& counts() const {
        return counted;
    }
    // "FILE:LINE: what" of the first line that next() came by that is neither a sample nor the begin of one.
    const std::string& complaint() const {
        return firstBad;
    }

    // Why a compressed file's first damaged place is one, of those that were come by; empty: none.
    const std::string& damage() const;

    // The number of the line that next() gave, before any seek.
    std::size_t line() const {
        return lineNumber;
    }

private:
    class Lines;
    // Where a line is: so many lines behind a mark.
    struct Place {
        std::size_t mark = 0;
        std::size_t line = 0;
        double wall = 0;
    };
    // Of each target a sample and an entry.
    struct Places {
        std::vector<std::optional<Place>> sample{};
        std::vector<std::optional<Place>> entry{};
    };
    // A place from which the file can be read, with what is known of what lies before it.
    struct Mark {
        std::uint64_t place = 0;
        double latest = 0;       // the latest time of an entry
        double newest = 0;       // the time of the last entry
        std::uint64_t torn = 0;  // lines that are no whole sample
        Places last{};           // in the file's order
        Places byTime{};         // the latest ones
    };
    struct Seen {
        double wall = 0;
        bool gap = false;
        std::size_t target = 0;
    };

    void come(std::optional<std::uint64_t> place);
    void note(const Seen& seen);
    void goTo(const Place& place);
    void goToMark(std::size_t mark);
    void scan(double wallTime);
    std::optional<Seen> look(std::string_view line, bool whole);
    std::size_t targetNumber(const monitor::Target& target);
    std::optional<Place> lastPlace(bool atTheEnd) const;
    void keepLater(Places& places, const Seen& seen, bool always) const;
    std::optional<Entry> entryAt(const Place& place);
    std::vector<Entry> entriesAt(double wallTime, std::vector<std::optional<Place>> Places::*which);

    const std::string name;
    const std::unique_ptr<Lines> lines;
    LineParser parser;
    Counts counted;
    std::string firstBad;
    std::size_t lineNumber = 0;  // of the file, until a seek
    bool sought = false;

    std::vector<Mark> marks;
    Mark now;                     // what is known before the next line; `place` is not used
    Place here;                   // of the next line
    Places atMoment;              // by the last scan()
    std::optional<double> first;  // the smallest time of an entry
    double mostBack = 0;
    bool seenAll = false;  // mostBack is of the whole file
    bool careful = false;  // lines are parsed in place of being looked at
    std::vector<monitor::Target> targets;
    std::vector<std::pair<std::string, std::size_t>> targetTexts;  // as lines have them
};

}  // namespace recording
