#include "top_columns.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "terminal.h"
#include "text.h"

namespace zulstat {

namespace {

enum Place : std::size_t { ID, VALUE, RATE, FIRST_AVERAGE, HISTORY = FIRST_AVERAGE + AVERAGE_SECONDS.size() };

constexpr std::size_t LEAST_VALUE = 5;
constexpr std::size_t WIDEST_VALUE = 24;
constexpr std::size_t RANGE_WIDTH = 12;
constexpr std::size_t LEAST_SPARK = 8;
constexpr std::size_t TARGET_WIDTH = 16;
constexpr double SECONDS_OF_NOTICE = 60;

template <std::size_t Index>
std::optional<double> averageOf(const Track& track) {
    return track.averages()[Index];
}

constexpr std::array<TopColumn, HISTORY + 1> COLUMNS = {{
    {"ID", "the identifier, as the Gateway sends them under headings", nullptr},
    {"VALUE", "bright when it has just changed; e shows exact numbers",
     [](const Track& track) { return track.number ? std::optional(monitor::toDouble(*track.number)) : std::nullopt; }},
    {"RATE", "of a counter per second, R where it began anew; difference with -d",
     [](const Track& track) { return track.kind() == Kind::counter ? track.perSecond : std::nullopt; }},
    {"10 s", "average of ten seconds: of a counter its rate, of others the value", averageOf<0>},
    {"60 s", "average of a minute; older samples count less", averageOf<1>},
    {"300 s", "average of five minutes", averageOf<2>},
    {"HISTORY", "rates of a counter, values of others; range, then newest last",
     [](const Track& track) { return track.changes > 0 ? std::optional(track.lastChange) : std::nullopt; }},
}};

bool changedLately(const Track& track, double now) {
    return track.kind() == Kind::state && now - track.lastChange < SECONDS_OF_NOTICE;
}

// How a value is drawn.
Style styleOf(const Track& track, bool lost, double now) {
    return track.failed                ? Style::bad
           : lost                      ? Style::dim
           : changedLately(track, now) ? Style::notice
           : track.changed             ? Style::bright
                                       : Style::normal;
}

// Where columns stand; those that do not fit have no width.
struct Places {
    std::size_t indent = 0;
    std::size_t target = 0;  // width of the column TARGET, in front
    std::size_t id = 0;
    std::size_t valueAt = 0;
    std::size_t value = 0;
    std::size_t rateAt = 0;
    std::size_t rate = 0;
    std::size_t averageAt = 0;
    std::size_t averages = 0;  // how many
    std::size_t firstAverage = 0;
    std::size_t historyAt = 0;
    std::size_t history = 0;
};

std::string_view nameIn(const Track& track, bool grouped) {
    return std::string_view(track.shownId).substr(grouped ? track.prefix : 0);
}

// The identifier shrinks last: first HISTORY does, then the averages and RATE go, then VALUE shrinks.
Places arrange(std::size_t columns, std::size_t longestId, const TopTable& table, const TopOrder& order) {
    Places places;
    places.indent = order.grouped() ? 2 : 0;
    if (order.together == Together::all) {
        for (const std::string& target : table.targets) {
            places.target = std::max(places.target, std::min(columnWidth(target), TARGET_WIDTH));
        }
        places.target += 2;
    }
    const std::size_t front = places.target + places.indent;
    places.id = std::max<std::size_t>(longestId, 10);
    places.value = table.valueWidth;
    if (front + places.id + 2 + places.value > columns) {
        const std::size_t left = columns > front + 2 ? columns - front - 2 : 0;
        places.value = std::min(places.value, std::max<std::size_t>(left / 3, LEAST_VALUE));
        places.id = left > places.value ? left - places.value : 0;
    }
    places.valueAt = front + places.id + 2;
    std::size_t end = places.valueAt + places.value;
    const auto fits = [&](std::size_t width) { return end + 2 + width <= columns; };
    if (!fits(RATE_WIDTH)) {
        return places;
    }
    places.rateAt = end + 2;
    places.rate = RATE_WIDTH;
    end += 2 + RATE_WIDTH;
    const std::size_t history = 2 + RANGE_WIDTH + 1 + LEAST_SPARK;
    places.averages = AVERAGE_SECONDS.size();
    while (places.averages > 0 && !fits(places.averages * (AVERAGE_WIDTH + 1) + history)) {
        --places.averages;
    }
    places.firstAverage = places.averages == 1 ? 1 : 0;  // one alone is that of a minute
    places.averageAt = end + 1;
    end += places.averages * (AVERAGE_WIDTH + 1);
    if (fits(LEAST_SPARK)) {
        places.historyAt = end + 2;
        places.history = columns - places.historyAt;
    }
    return places;
}

std::string titleOf(std::size_t column, const TopTable& table, const TopOrder& order) {
    const std::string mark = table.unicode ? (order.reverse ? "▲" : "▼") : (order.reverse ? "^" : "v");
    const bool marked = order.column == column && (column != 0 || order.reverse);
    return std::string(COLUMNS[column].title) + (marked ? mark : "");
}

void drawTitles(Frame& frame, const TopTable& table, const TopOrder& order, const Places& places, std::size_t row) {
    frame.put(row, 0, std::string(frame.columns, ' '), Style::header);
    if (places.target > 0) {
        frame.put(row, 0, "TARGET", Style::header);
    }
    frame.put(row, places.target, titleOf(ID, table, order), Style::header);
    frame.put(row, places.valueAt, padLeft(titleOf(VALUE, table, order), places.value), Style::header);
    if (places.rate > 0) {
        // Above the decimal point.
        frame.put(row, places.rateAt, padLeft(titleOf(RATE, table, order), places.rate - 2), Style::header);
    }
    for (std::size_t index = 0; index < places.averages; ++index) {
        frame.put(row, places.averageAt + index * (AVERAGE_WIDTH + 1),
                  padLeft(titleOf(FIRST_AVERAGE + places.firstAverage + index, table, order), AVERAGE_WIDTH - 1),
                  Style::header);
    }
    if (places.history > 0) {
        frame.put(row, places.historyAt, titleOf(HISTORY, table, order), Style::header);
    }
}

void drawHeading(Frame& frame, const TopTable& table, const TopLine& line, std::size_t row, Style style) {
    const char* const mark = table.unicode ? (line.folded ? "▸" : "▾") : (line.folded ? "+" : "-");
    std::string told = fmt::format("{} {}", line.count, line.count == 1 ? "statistic" : "statistics");
    if (line.constants > 0) {
        told += fmt::format(", {} constant", line.constants);
    }
    const std::string name = cutWithMark(line.group, frame.columns - std::min<std::size_t>(frame.columns, 2));
    if (2 + columnWidth(name) + 2 + told.size() > frame.columns) {
        told = fmt::format("{}", line.count);
    }
    if (style == Style::selected) {
        frame.put(row, 0, std::string(frame.columns, ' '), style);
    }
    frame.put(row, 0, fmt::format("{} {}", mark, name), style == Style::selected ? style : Style::bold);
    frame.put(row, 2 + columnWidth(name) + 2, told, style == Style::selected ? style : Style::dim);
}

void drawHistory(Frame& frame, const TopTable& table, const Track& track, std::size_t gateway, const Places& places,
                 std::size_t row, Style style) {
    if (places.history == 0) {
        return;
    }
    if (!track.number) {
        return;
    }
    if (track.constant() && track.kind() != Kind::counter) {
        return;
    }
    const bool ranged = places.history >= RANGE_WIDTH + 1 + LEAST_SPARK;
    const std::size_t width = places.history - (ranged ? RANGE_WIDTH + 1 : 0);
    const std::vector<double> points = table.gateways[gateway]->points(track, width);
    if (ranged) {
        frame.put(row, places.historyAt, cutWithMark(rangeOf(points, track), RANGE_WIDTH),
                  style == Style::normal || style == Style::bright ? Style::dim : style);
    }
    const std::string line = sparkline(points, table.unicode);
    frame.put(row, frame.columns - columnWidth(line), line, style == Style::bright ? Style::normal : style);
}

// A text that is wider than the column of values may take what stands right of it, which it does not use, but for the
// note on its change.
void drawText(Frame& frame, const TopTable& table, const Track& track, const Places& places, std::size_t row,
              Style style) {
    const std::string note = track.kind() == Kind::state ? changedText(track, table.now) : "";
    const std::size_t width = columnWidth(track.shownValue);
    std::size_t noteAt = places.history > 0 ? places.historyAt : places.rate > 0 ? places.rateAt : frame.columns;
    if (note.empty() || noteAt + note.size() > frame.columns) {
        noteAt = frame.columns;
    }
    const std::size_t room = noteAt == frame.columns ? frame.columns - places.valueAt : noteAt - 2 - places.valueAt;
    const std::string text = width <= places.value ? padLeft(track.shownValue, places.value)
                                                   : cutWithMark(track.shownValue, std::max(room, places.value));
    frame.put(row, places.valueAt, text, style);
    if (noteAt < frame.columns) {
        frame.put(row, noteAt, note, style == Style::normal ? Style::dim : style);
    }
}

void drawRow(Frame& frame, const TopTable& table, const TopOrder& order, const TopLine& line, const Places& places,
             std::size_t row, bool selected) {
    const Track& track = *line.track;
    const Style changing = selected ? Style::selected : styleOf(track, table.lost[line.gateway], table.now);
    const Style plain = changing == Style::bright || changing == Style::notice ? Style::normal : changing;
    if (selected) {
        frame.put(row, 0, std::string(frame.columns, ' '), plain);
    }
    if (places.target > 0) {
        frame.put(row, 0, cutWithMark(table.targets[line.gateway], places.target - 2), plain);
    }
    frame.put(row, places.target + places.indent, cutWithMark(nameIn(track, order.grouped()), places.id), plain);
    if (!track.number) {
        drawText(frame, table, track, places, row, changing);
        return;
    }
    frame.put(row, places.valueAt, padLeft(cutWithMark(valueText(track, table.raw), places.value), places.value),
              changing);
    if (places.rate > 0) {
        frame.put(row, places.rateAt, padLeft(rateColumn(track), RATE_WIDTH), changing);
    }
    const Averages& averages = track.averages();
    for (std::size_t index = 0; index < places.averages; ++index) {
        if (averages[places.firstAverage + index] && !(track.constant() && track.kind() != Kind::counter)) {
            const double average = *averages[places.firstAverage + index];
            const std::string text = track.kind() == Kind::counter || track.unit == Unit::none
                                         ? alignedFigure(average)
                                         : padLeft(figure(average, track.unit), AVERAGE_WIDTH);
            frame.put(row, places.averageAt + index * (AVERAGE_WIDTH + 1), text, plain);
        }
    }
    drawHistory(frame, table, track, line.gateway, places, row, changing);
}

// Side by side: the identifier, and of each Gateway the value and, where there is room, the rate.
void drawSideBySide(Frame& frame, const TopTable& table, const TopOrder& order, std::span<const TopLine> lines,
                    std::size_t top, std::size_t bottom, std::size_t selected, std::size_t longestId) {
    const std::size_t count = table.gateways.size();
    const std::size_t indent = order.grouped() ? 2 : 0;
    const std::size_t value = std::max<std::size_t>(table.valueWidth, 10);
    const bool rates = indent + longestId + count * (2 + value + 1 + RATE_WIDTH) <= frame.columns;
    const std::size_t each = 2 + value + (rates ? 1 + RATE_WIDTH : 0);
    const std::size_t least = 16;
    const std::size_t room = frame.columns > count * each + indent ? frame.columns - count * each - indent : 0;
    const std::size_t id = std::max(std::min(longestId, room), std::min(least, frame.columns));
    const auto at = [&](std::size_t gateway) { return indent + id + gateway * each + 2; };
    frame.put(top, 0, std::string(frame.columns, ' '), Style::header);
    frame.put(top, 0, titleOf(ID, table, order), Style::header);
    for (std::size_t gateway = 0; gateway < count; ++gateway) {
        frame.put(top, at(gateway), padLeft(cutWithMark(table.targets[gateway], each - 2), each - 2), Style::header);
    }
    for (std::size_t index = 0; index < lines.size() && top + 1 + index < bottom; ++index) {
        const TopLine& line = lines[index];
        const std::size_t row = top + 1 + index;
        const bool isSelected = index == selected;
        if (line.heading) {
            drawHeading(frame, table, line, row, isSelected ? Style::selected : Style::normal);
            continue;
        }
        const Style idStyle = isSelected ? Style::selected : line.track->failed ? Style::bad : Style::normal;
        if (isSelected) {
            frame.put(row, 0, std::string(frame.columns, ' '), Style::selected);
        }
        frame.put(row, indent, cutWithMark(nameIn(*line.track, order.grouped()), id), idStyle);
        for (std::size_t gateway = 0; gateway < count; ++gateway) {
            const Track* const track = line.beside[gateway];
            const std::string text = track == nullptr ? "-" : valueText(*track, table.raw);
            const Style style = isSelected         ? Style::selected
                                : track == nullptr ? Style::dim
                                                   : styleOf(*track, table.lost[gateway], table.now);
            frame.put(row, at(gateway), padLeft(cutWithMark(text, value), value), style);
            if (rates && track != nullptr) {
                frame.put(row, at(gateway) + value + 1, padLeft(rateColumn(*track), RATE_WIDTH), style);
            }
        }
    }
}

struct Bounds {
    double low;
    double high;
    bool any;
};

// A span of less than this part of the largest is noise: it is not drawn as if it were everything.
constexpr double LEAST_SPAN = 0.02;

Bounds boundsOf(std::span<const double> points) {
    Bounds bounds{0, 0, false};
    for (const double point : points) {
        if (!std::isnan(point)) {
            bounds.low = bounds.any ? std::min(bounds.low, point) : point;
            bounds.high = bounds.any ? std::max(bounds.high, point) : point;
            bounds.any = true;
        }
    }
    return bounds;
}

constexpr std::array<const char*, 9> BLOCKS = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 9> LETTERS = {" ", "_", ".", "-", "~", "=", "+", "*", "#"};

}  // namespace

std::span<const TopColumn> topColumns() {
    return COLUMNS;
}

std::string valueText(const Track& track, bool raw) {
    return track.number && !raw ? figure(*track.number, track.unit) : track.shownValue;
}

std::string rateColumn(const Track& track) {
    if (track.showsDifference && track.number) {
        return track.difference ? shortFigure(*track.difference).insert(0, *track.difference > 0 ? "+" : "") : "-";
    }
    if (track.kind() != Kind::counter) {
        return {};
    }
    return track.perSecond ? alignedRate(*track.perSecond) : track.reset ? "R   " : "-   ";
}

std::string changedText(const Track& track, double now) {
    return "changed " + duration(std::max(now - track.lastChange, 0.0)) + " ago";
}

std::string rangeOf(std::span<const double> points, const Track& track) {
    const Bounds bounds = boundsOf(points);
    const bool rates = track.kind() == Kind::counter;
    const Unit unit = rates ? Unit::none : track.unit == Unit::uptime ? Unit::seconds : track.unit;
    const std::string range = figureRange(bounds.low, bounds.high, unit);
    return bounds.any ? range + (rates ? "/s" : "") : "";
}

std::string averageText(const Track& track, double average) {
    return track.kind() == Kind::counter ? shortFigure(average) + "/s" : figure(average, track.unit);
}

std::vector<std::string> graph(std::span<const double> points, std::size_t rows, bool unicode) {
    const Bounds bounds = boundsOf(points);
    const auto& signs = unicode ? BLOCKS : LETTERS;
    std::vector<std::string> lines(rows);
    for (const double point : points) {
        const double least = std::max(std::abs(bounds.high), std::abs(bounds.low)) * LEAST_SPAN;
        const double span = std::max(bounds.high - bounds.low, least);
        const double share = span > 0 ? (point - bounds.low) / span : 0;
        const std::size_t steps = rows * 8 - 1;
        const std::size_t level =
            std::isnan(point)
                ? 0
                : 1 + static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * static_cast<double>(steps) + 0.5);
        for (std::size_t row = 0; row < rows; ++row) {
            const std::size_t below = (rows - 1 - row) * 8;
            lines[row] += signs[level > below ? std::min<std::size_t>(level - below, 8) : 0];
        }
    }
    return lines;
}

std::string sparkline(std::span<const double> points, bool unicode) {
    return graph(points, 1, unicode).front();
}

void drawTable(Frame& frame, TopTable& table, const TopOrder& order, std::span<const TopLine> lines, std::size_t top,
               std::size_t bottom, std::size_t first, std::size_t selected) {
    std::size_t longestId = 2;
    for (const TopLine& line : lines) {
        if (!line.heading) {
            // Most are ASCII, whose width is their size.
            longestId = std::max(longestId, nameIn(*line.track, order.grouped()).size());
        }
    }
    const std::span<const TopLine> shown = lines.subspan(std::min(first, lines.size()));
    for (const TopLine& line : shown.first(std::min(bottom > top ? bottom - top : 0, shown.size()))) {
        const auto widen = [&](const Track* track) {
            const std::size_t width = track == nullptr ? 0 : columnWidth(valueText(*track, table.raw));
            if (width <= (track != nullptr && track->number ? WIDEST_VALUE : WIDEST_VALUE / 2)) {
                table.valueWidth = std::max(table.valueWidth, width);
            }
        };
        widen(line.track);
        std::for_each(line.beside.begin(), line.beside.end(), widen);
    }
    const std::size_t cursor = selected >= first ? selected - first : shown.size();
    if (order.together == Together::sideBySide) {
        drawSideBySide(frame, table, order, shown, top, bottom, cursor, longestId);
        return;
    }
    const Places places = arrange(frame.columns, longestId, table, order);
    drawTitles(frame, table, order, places, top);
    for (std::size_t index = 0; index < shown.size() && top + 1 + index < bottom; ++index) {
        const TopLine& line = shown[index];
        const bool isSelected = index == cursor;
        if (line.heading) {
            drawHeading(frame, table, line, top + 1 + index, isSelected ? Style::selected : Style::normal);
        } else {
            drawRow(frame, table, order, line, places, top + 1 + index, isSelected);
        }
    }
}

}  // namespace zulstat
