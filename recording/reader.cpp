#include "reader.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

#include "file_bytes.h"

namespace recording {

using namespace monitor;

namespace {

constexpr std::size_t MARK_DISTANCE = std::size_t{1} << 20;
constexpr std::size_t MOST_TARGET_TEXTS = 4 * MOST_TARGETS;
constexpr std::size_t LONGEST_TARGET_TEXT = 4096;
constexpr double AT_THE_END = std::numeric_limits<double>::infinity();

struct Line {
    std::string_view text;
    bool whole = true;                     // false: a place that is damaged, or where the file is cut
    std::optional<std::uint64_t> place{};  // from which it can be read again
};

// What a line tells without being parsed.
struct Glance {
    double wall = 0;
    bool gap = false;
    std::string_view target;  // JSON
};

// Nothing for a line that is not laid out as the writer does; it may be a sample nevertheless.
std::optional<Glance> glance(std::string_view line) {
    constexpr std::string_view begin = R"({"schema":"zulstat/1","target":)";
    constexpr std::string_view behindTarget = R"(,"protocol":")";
    constexpr std::string_view wallName = R"(,"wall":)";
    constexpr std::string_view elementsName = R"(,"elements":[)";
    constexpr std::string_view gapElement = R"({"element":"","rc":-)";
    constexpr std::string_view gapEnd = R"(,"items":[]}]})";
    constexpr std::size_t longestCode = 12;
    if (!line.starts_with(begin) || !line.ends_with("]}")) {
        return std::nullopt;
    }
    const std::size_t targetEnd = line.find(behindTarget);
    const std::size_t elements = line.find(elementsName);
    if (targetEnd == std::string_view::npos || elements == std::string_view::npos || elements < targetEnd) {
        return std::nullopt;
    }
    const std::string_view head = line.substr(targetEnd, elements - targetEnd);
    const std::size_t wall = head.find(wallName);
    if (wall == std::string_view::npos) {
        return std::nullopt;
    }
    Glance found{.target = line.substr(begin.size(), targetEnd - begin.size())};
    const std::string_view number = head.substr(wall + wallName.size());
    if (std::from_chars(number.data(), number.data() + number.size(), found.wall).ec != std::errc() ||
        !(found.wall >= 0)) {
        return std::nullopt;
    }
    const std::string_view rest = line.substr(elements + elementsName.size());
    found.gap = rest.starts_with(gapElement) && rest.ends_with(gapEnd) &&
                rest.size() < gapElement.size() + longestCode + gapEnd.size();
    return found;
}

bool isBlank(std::string_view line) {
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

bool same(const Target& one, const Target& other) {
    return one.host == other.host && one.port == other.port;
}

}  // namespace

class Reader::Lines {
public:
    explicit Lines(const std::string& file) : name(file), bytes(file) {
    }

    // Holds until the next call; nothing at the end.
    std::optional<Line> next() {
        for (;;) {
            const auto* const found =
                searched < buffer.size()
                    ? static_cast<const char*>(std::memchr(buffer.data() + searched, '\n', buffer.size() - searched))
                    : nullptr;
            if (found != nullptr) {
                const Line line = take(static_cast<std::size_t>(found - buffer.data()) - begin, 1);
                return std::exchange(tooLong, false) ? Line{{}, false} : line;
            }
            searched = buffer.size();
            if (tooLong || searched - begin > LONGEST_LINE) {
                passOver();
            }
            if (ended || !fill()) {
                return ended ? finish() : Line{{}, false};
            }
        }
    }

    void restart(std::uint64_t place) {
        bytes.restart(place);
        buffer.clear();
        begin = searched = 0;
        offset = place;
        framePlace.reset();
        ended = cut = tooLong = false;
    }

    const std::string& damage() const {
        return bytes.damage();
    }

    bool compressed() const {
        return bytes.compressed();
    }

private:
    Line take(std::size_t size, std::size_t lineEnd) {
        Line line{std::string_view(buffer.data() + begin, size)};
        line.place = bytes.compressed() ? std::exchange(framePlace, std::nullopt) : std::optional(offset);
        begin += size + lineEnd;
        searched = begin;
        offset += size + lineEnd;
        return line;
    }

    // What is there of a line that is too long, and what comes of it.
    void passOver() {
        if (bytes.device()) {
            throw std::runtime_error(name + ": a line is longer than " + std::to_string(LONGEST_LINE) + " bytes");
        }
        tooLong = true;
        offset += buffer.size() - begin;
        buffer.clear();
        begin = searched = 0;
    }

    // Returns false at the end and where the file is damaged.
    bool fill() {
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(begin));
        begin = 0;
        searched = buffer.size();
        switch (bytes.read(buffer)) {
        case FileBytes::Got::bytes:
            return true;
        case FileBytes::Got::begin:
            framePlace = searched == 0 ? std::optional(bytes.place()) : framePlace;
            return true;
        case FileBytes::Got::damaged:
            buffer.clear();
            searched = 0;
            framePlace.reset();
            tooLong = false;
            return false;
        case FileBytes::Got::cut:
            cut = true;
            break;
        case FileBytes::Got::end:
            break;
        }
        ended = true;
        return false;
    }

    // What has no line end.
    std::optional<Line> finish() {
        const bool torn = std::exchange(cut, false) || tooLong;
        if (std::exchange(tooLong, false)) {
            begin = buffer.size();
        }
        if (begin < buffer.size()) {
            return take(buffer.size() - begin, 0);
        }
        return torn ? std::optional(Line{{}, false}) : std::nullopt;
    }

    const std::string name;
    FileBytes bytes;
    std::vector<char> buffer;                 // the lines not yet given, behind the one given last
    std::size_t begin = 0;                    // of the next line
    std::size_t searched = 0;                 // no line ends before it
    std::uint64_t offset = 0;                 // of the next line in a file that is not compressed
    std::optional<std::uint64_t> framePlace;  // the next line begins with a frame
    bool ended = false;
    bool cut = false;
    bool tooLong = false;  // the next line, some of which is gone
};

Reader::Reader(const std::string& file) : name(file), lines(std::make_unique<Lines>(file)) {
}

Reader::~Reader() = default;

const std::string& Reader::damage() const {
    return lines->damage();
}

std::optional<Entry> Reader::next() {
    while (const std::optional<Line> line = lines->next()) {
        ++lineNumber;
        come(line->place);
        if (line->whole && isBlank(line->text)) {
            ++here.line;
            continue;
        }
        try {
            if (!line->whole) {
                throw BadLine("damaged", true);
            }
            Entry entry = parser.parse(line->text);
            note({entry.sample.wallTime, entry.gap, targetNumber(entry.sample.target)});
            ++here.line;
            ++(entry.gap ? counted.gaps : counted.samples);
            return entry;
        } catch (const BadLine& error) {
            ++here.line;
            ++now.torn;
            ++counted.torn;
            if (!error.cut && firstBad.empty()) {
                firstBad = name + (sought ? "" : ":" + std::to_string(lineNumber)) + ": " + error.what();
            }
        }
    }
    return std::nullopt;
}

// The next line has this place. Makes a mark of it, where the last one is far.
void Reader::come(std::optional<std::uint64_t> place) {
    const bool known = here.mark + 1 < marks.size();
    const auto mark = [&] {
        marks.push_back(now);
        marks.back().place = place.value_or(0);
        here = {marks.size() - 1, 0};
    };
    if (marks.empty()) {
        mark();
    } else if (!place) {
        return;
    } else if (known && *place == marks[here.mark + 1].place) {
        here = {here.mark + 1, 0};
    } else if (!known && *place >= marks.back().place + (lines->compressed() ? 1 : MARK_DISTANCE)) {
        mark();
    }
}

// Where the line at `here` is later than what is there, or always.
void Reader::keepLater(Places& places, const Seen& seen, bool always) const {
    const std::size_t known = std::max(places.sample.size(), seen.target + 1);
    places.sample.resize(known);
    places.entry.resize(known);
    const auto keep = [&](std::optional<Place>& place) {
        if (always || !place || place->wall <= seen.wall) {
            place = Place{here.mark, here.line, seen.wall};
        }
    };
    keep(places.entry[seen.target]);
    if (!seen.gap) {
        keep(places.sample[seen.target]);
    }
}

// What the line at `here` is.
void Reader::note(const Seen& seen) {
    first = std::min(first.value_or(seen.wall), seen.wall);
    mostBack = std::max(mostBack, now.latest - seen.wall);
    now.newest = seen.wall;
    now.latest = std::max(now.latest, seen.wall);
    keepLater(now.last, seen, true);
    keepLater(now.byTime, seen, false);
}

std::size_t Reader::targetNumber(const Target& target) {
    const auto found =
        std::find_if(targets.begin(), targets.end(), [&](const Target& known) { return same(known, target); });
    if (found == targets.end() && targets.size() == MOST_TARGETS) {
        throw std::runtime_error(name + ": samples of more than " + std::to_string(MOST_TARGETS) + " Gateways");
    }
    const auto number = static_cast<std::size_t>(found - targets.begin());
    if (found == targets.end()) {
        targets.push_back(target);
    }
    return number;
}

// Nothing for what is no whole sample.
std::optional<Reader::Seen> Reader::look(std::string_view line, bool whole) {
    const std::optional<Glance> seen = !whole || careful ? std::nullopt : glance(line);
    if (seen) {
        for (const auto& [text, number] : targetTexts) {
            if (text == seen->target) {
                return Seen{seen->wall, seen->gap, number};
            }
        }
    }
    if (!whole) {
        return std::nullopt;
    }
    try {
        const Entry entry = parser.parse(line);
        const std::size_t number = targetNumber(entry.sample.target);
        if (seen && targetTexts.size() < MOST_TARGET_TEXTS && seen->target.size() < LONGEST_TARGET_TEXT) {
            targetTexts.emplace_back(seen->target, number);
        }
        return Seen{entry.sample.wallTime, entry.gap, number};
    } catch (const BadLine&) {
        return std::nullopt;
    }
}

void Reader::goToMark(std::size_t mark) {
    sought = true;
    lines->restart(marks.empty() ? 0 : marks[mark].place);
    now = marks.empty() ? Mark() : marks[mark];
    here = {mark, 0};
}

// Finds what is latest at or before the time, or what is last. The first time it reads to the end, later on as far as
// there may be some.
void Reader::scan(double wallTime) {
    const auto later = std::upper_bound(marks.begin(), marks.end(), wallTime,
                                        [](double time, const Mark& mark) { return time < mark.latest; });
    goToMark(later == marks.begin() ? 0 : static_cast<std::size_t>(later - marks.begin()) - 1);
    atMoment = now.byTime;
    while (const std::optional<Line> line = lines->next()) {
        come(line->place);
        if (const std::optional<Seen> seen = look(line->text, line->whole)) {
            if (seenAll && seen->wall > wallTime + mostBack) {
                return;
            }
            note(*seen);
            if (seen->wall <= wallTime) {
                keepLater(atMoment, *seen, false);
            }
        } else if (!line->whole || !isBlank(line->text)) {
            ++now.torn;
        }
        ++here.line;
    }
    seenAll = true;
    if (wallTime == AT_THE_END) {
        atMoment = now.last;
    }
}

void Reader::goTo(const Place& place) {
    goToMark(place.mark);
    while (here.line < place.line) {
        const std::optional<Line> line = lines->next();
        if (!line) {
            return;
        }
        if (const std::optional<Seen> seen = look(line->text, line->whole)) {
            note(*seen);
        } else if (!line->whole || !isBlank(line->text)) {
            ++now.torn;
        }
        ++here.line;
    }
}

// Of the samples that were found the latest one. Of those at the same time, and at the end, it is the last in the file.
std::optional<Reader::Place> Reader::lastPlace(bool atTheEnd) const {
    const auto rank = [&](const Place& place) { return std::tuple(atTheEnd ? 0 : place.wall, place.mark, place.line); };
    std::optional<Place> last;
    for (const std::optional<Place>& place : atMoment.sample) {
        if (place && (!last || rank(*last) < rank(*place))) {
            last = place;
        }
    }
    return last;
}

// Nothing where the line only looks like a sample.
std::optional<Entry> Reader::entryAt(const Place& place) {
    goTo(place);
    const std::optional<Line> line = lines->next();
    try {
        return line && line->whole ? std::optional(parser.parse(line->text)) : std::nullopt;
    } catch (const BadLine&) {
        return std::nullopt;
    }
}

void Reader::seek(double wallTime) {
    scan(wallTime);
    std::optional<Place> place = lastPlace(wallTime == AT_THE_END);
    if (place && !careful && !entryAt(*place)) {
        careful = true;
        marks.clear();
        scan(wallTime);
        place = lastPlace(wallTime == AT_THE_END);
    }
    place ? goTo(*place) : goToMark(0);
}

std::vector<Entry> Reader::entriesAt(double wallTime, std::vector<std::optional<Place>> Places::*which) {
    for (;;) {
        scan(wallTime);
        std::vector<Entry> entries;
        bool all = true;
        for (const std::optional<Place>& place : std::vector(atMoment.*which)) {
            std::optional<Entry> entry = place ? entryAt(*place) : std::nullopt;
            all = all && (!place || entry);
            if (entry) {
                entries.push_back(*std::move(entry));
            }
        }
        if (all || careful) {
            return entries;
        }
        careful = true;
        marks.clear();
    }
}

std::vector<Sample> Reader::moment(double wallTime) {
    std::vector<Sample> samples;
    for (Entry& entry : entriesAt(wallTime, &Places::sample)) {
        samples.push_back(std::move(entry.sample));
    }
    return samples;
}

std::vector<Entry> Reader::lastEntries(double wallTime) {
    return entriesAt(wallTime, &Places::entry);
}

Span Reader::span() {
    scan(AT_THE_END);
    return {first.value_or(0), now.newest, now.latest, first ? targets : std::vector<Target>(), now.torn};
}

}  // namespace recording
