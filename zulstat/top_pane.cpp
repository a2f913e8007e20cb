#include "top_pane.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "terminal.h"
#include "text.h"

namespace zulstat {

namespace {

constexpr std::size_t MARGIN = 12;  // left of the facts, for their names

std::string why(const Track& track) {
    switch (track.kind()) {
    case Kind::counter:
        return track.declared ? "counter, as -r or the map says" : "counter: it rises and never fell";
    case Kind::gauge:
        return track.declared ? "gauge, as the map says" : "gauge: it fell";
    case Kind::number:
        return track.constant() ? "number that never changed" : "number that rose so far";
    case Kind::state:
        return "state";
    case Kind::text:
        break;
    }
    return track.constant() ? "text that never changed" : "text";
}

std::string valueLine(const Track& track) {
    std::string line = track.shownValue;
    if (track.number) {
        if (const std::string shown = figure(*track.number, track.unit); shown != track.shownValue) {
            line += "   " + shown;
        }
    }
    return line;
}

std::string rateLine(const Track& track) {
    std::string line;
    if (track.kind() == Kind::counter) {
        line = track.perSecond ? shortFigure(*track.perSecond) + "/s" : track.reset ? "it began anew" : "-";
        line += "   ";
    }
    constexpr std::array<const char*, AVERAGE_SECONDS.size()> names = {"10 s", "60 s", "300 s"};
    line += track.kind() == Kind::counter ? "average" : "";
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (const auto average = track.averages()[index]) {
            line += fmt::format("{}{} over {}", line.empty() ? "" : "   ", averageText(track, *average), names[index]);
        }
    }
    return line;
}

}  // namespace

void drawPane(Frame& frame, const TopTable& table, const Track& track, std::size_t gateway, std::size_t top) {
    const std::size_t bottom = frame.rows > 1 ? frame.rows - 1 : 0;  // the footer
    std::size_t row = top;
    frame.put(row, 0, std::string(frame.columns, ' '), Style::header);
    frame.put(row++, 0, cutWithMark(track.shownId, frame.columns), Style::header);
    const auto fact = [&](const char* name, const std::string& text, Style style = Style::normal) {
        const char* title = name;
        for (const std::string& line : wrapToWidth(text, std::max<std::size_t>(frame.columns, MARGIN + 1) - MARGIN)) {
            if (row < bottom) {
                frame.put(row, 0, title, Style::dim);
                frame.put(row++, MARGIN, line, style);
                title = "";
            }
        }
    };
    if (columnWidth(track.shownId) > frame.columns) {
        fact("identifier", track.shownId);
    }
    fact("element", track.shownElement.empty() ? "-" : track.shownElement);
    fact("value", valueLine(track), track.changed ? Style::bright : Style::normal);
    fact("kind", why(track) + (unitName(track.unit).empty() ? "" : fmt::format(", in {}", unitName(track.unit))));
    if (track.number) {
        fact(track.kind() == Kind::counter ? "rate" : "average", rateLine(track));
    }
    std::string seen = "first seen " + clockTime(track.firstWall);
    seen += track.changes == 0 ? ", never changed"
                               : fmt::format(", {} {}, the last at {}, {} ago", track.changes,
                                             track.changes == 1 ? "change" : "changes", clockTime(track.changeWall),
                                             duration(std::max(table.now - track.lastChange, 0.0)));
    fact("times", seen);
    if (!track.number || row + 2 > bottom) {
        return;
    }
    const std::vector<double> points =
        table.gateways[gateway]->points(track, frame.columns - std::min(MARGIN, frame.columns));
    const std::vector<std::string> lines = graph(points, bottom - row, table.unicode);
    frame.put(row, 0, cutToWidth(rangeOf(points, track), MARGIN - 1), Style::dim);
    for (const std::string& line : lines) {
        frame.put(row++, frame.columns - columnWidth(line), line);
    }
}

}  // namespace zulstat
