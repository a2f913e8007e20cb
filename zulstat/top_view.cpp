#include "top_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "keys.h"
#include "terminal.h"
#include "text.h"
#include "top_pane.h"

namespace zulstat {

namespace {

constexpr std::array<double, 10> INTERVALS = {0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30, 60};
// After so long what never changed is folded away.
constexpr std::array<double, 13> SPEEDS = {0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50, 100, 200, 500, 1000};
constexpr double SHORT_MOVE = 10;
constexpr double LONG_MOVE = 300;
constexpr double SECONDS_TO_WARM_UP = 10;
constexpr long SAMPLES_TO_WARM_UP = 5;
constexpr std::size_t LEAST_ROWS_BESIDE_PANE = 8;

// The next larger or smaller one, where there is one.
template <typename Steps>
double nextStep(double value, const Steps& steps, bool up) {
    return up ? std::max(value, *std::upper_bound(steps.begin(), steps.end() - 1, value))
              : std::min(value, *std::upper_bound(steps.rbegin(), steps.rend() - 1, value, std::greater()));
}

}  // namespace

std::span<const TopKey> TopView::keys() {
    static const std::array<TopKey, 18> table = {{
        {"q", "leave", "q leave", {'q', 'Q'}, &TopView::leave},
        {"h, ?", "this help; any key leaves it", "h help", {'h', '?'}, &TopView::showHelp},
        {"arrows, Page",
         "move; Home and End to the ends",
         "",
         {keyUp, keyDown, keyPageUp, keyPageDown, keyHome, keyEnd},
         &TopView::move},
        {"Enter",
         "all of the statistic under the cursor; on a heading: fold",
         "Enter more",
         {ENTER_KEY},
         &TopView::open},
        {"left, right", "fold, unfold the group under the cursor", "", {keyLeft, keyRight}, &TopView::fold},
        {"a", "fold or unfold all groups", "", {'a'}, &TopView::foldAll},
        {"c", "show or hide what never changed", "c constants", {'c'}, &TopView::showConstants},
        {"s", "sort by the next column; large numbers first", "s sort", {'s'}, &TopView::sort},
        {"r", "reverse the order", "", {'r'}, &TopView::turn},
        {"/", "filter by a part of the identifier or a glob", "/ filter", {'/'}, &TopView::filter},
        {"Esc", "clear the filter", "", {ESCAPE_KEY}, &TopView::clearFilter},
        {"p, space", "pause and go on", "p pause", {'p', ' '}, &TopView::pause},
        {"+ -", "longer and shorter interval; a recording: faster, slower", "", {'+', '=', '-'}, &TopView::pace},
        {"e", "numbers as the Gateway sends them, or shortened", "", {'e'}, &TopView::exact},
        {"t", "the next Gateway, all of them, all side by side", "", {'t'}, &TopView::nextGateway},
        {"n", "a recording: the next sample, and pause", "n next", {'n'}, &TopView::step, true},
        {", .", "a recording: 10 seconds back and forth", "", {',', '.'}, &TopView::seek, true},
        {"< >", "a recording: 5 minutes back and forth", "", {'<', '>'}, &TopView::seek, true},
    }};
    return table;
}

TopView::TopView(TopSettings given) : interval(given.interval), speed(given.speed), settings(std::move(given)) {
    table.raw = settings.raw;
    table.unicode = settings.unicode;
}

void TopView::press(int key, Gateways gateways) {
    if (key == keyResize) {
        return;
    }
    if (help) {
        help = false;
        return;
    }
    if (typing) {
        type(key);
        return;
    }
    for (const TopKey& row : keys()) {
        if (key != 0 && std::find(row.codes.begin(), row.codes.end(), key) != row.codes.end()) {
            (this->*row.action)(key, gateways);
            return;
        }
    }
}

void TopView::leave(int, Gateways) {
    leaving = true;
}

void TopView::showHelp(int, Gateways) {
    help = true;
}

void TopView::move(int key, Gateways gateways) {
    const std::vector<TopLine> shown = lines(gateways);
    follow(shown);
    if (shown.empty()) {
        return;
    }
    const std::size_t last = shown.size() - 1;
    const std::size_t at = cursor.index;
    cursor.index = key == keyUp         ? at - std::min<std::size_t>(at, 1)
                   : key == keyDown     ? std::min(at + 1, last)
                   : key == keyPageUp   ? at - std::min(at, page)
                   : key == keyPageDown ? std::min(at + page, last)
                   : key == keyHome     ? 0
                                        : last;
    cursor.track = shown[cursor.index].heading ? nullptr : shown[cursor.index].track;
    cursor.group = shown[cursor.index].group;
}

void TopView::open(int, Gateways gateways) {
    const std::vector<TopLine> shown = lines(gateways);
    follow(shown);
    if (shown.empty()) {
        return;
    }
    const TopLine& line = shown[cursor.index];
    if (line.heading) {
        setFolded(std::string(line.group), !line.folded);
    } else {
        pane = !pane;
    }
}

void TopView::setFolded(const std::string& group, bool folded) {
    if (folded) {
        order.folded.insert(group);
    } else {
        order.folded.erase(group);
    }
}

void TopView::fold(int key, Gateways gateways) {
    const std::vector<TopLine> shown = lines(gateways);
    follow(shown);
    if (shown.empty() || !order.grouped() || shown[cursor.index].group.empty()) {
        return;
    }
    const std::string group(shown[cursor.index].group);
    setFolded(group, key == keyLeft);
    if (key == keyLeft) {
        cursor.track = nullptr;
        cursor.group = group;
    }
}

void TopView::foldAll(int, Gateways gateways) {
    const bool unfold = !order.folded.empty();
    order.folded.clear();
    const std::vector<TopLine> shown = lines(gateways);
    follow(shown);
    if (!unfold) {
        cursor.track = nullptr;  // on the heading
    }
    for (const TopLine& line : shown) {
        if (!unfold && line.heading) {
            order.folded.emplace(line.group);
        }
    }
}

void TopView::showConstants(int, Gateways gateways) {
    constants = !constantsShown(gateways);
}

void TopView::sort(int, Gateways) {
    order.column = (order.column + 1) % topColumns().size();
    order.reverse = false;
    cursor = {};
    first = 0;
}

void TopView::turn(int, Gateways) {
    order.reverse = !order.reverse;
}

void TopView::filter(int, Gateways) {
    typing = true;
}

void TopView::clearFilter(int, Gateways) {
    order.filter.clear();
}

void TopView::pause(int, Gateways) {
    paused = !paused;
}

void TopView::pace(int key, Gateways) {
    if (speed) {
        speed = nextStep(*speed, SPEEDS, key != '-');
    } else {
        interval = nextStep(interval, INTERVALS, key != '-');
    }
}

void TopView::step(int, Gateways) {
    stepped = speed.has_value();
    paused = paused || stepped;
}

void TopView::seek(int key, Gateways) {
    if (speed) {
        moved += key == ',' ? -SHORT_MOVE : key == '.' ? SHORT_MOVE : key == '<' ? -LONG_MOVE : LONG_MOVE;
    }
}

void TopView::exact(int, Gateways) {
    table.raw = !table.raw;
    table.valueWidth = TopTable().valueWidth;
}

// One after the other, then all, then all side by side.
void TopView::nextGateway(int, Gateways gateways) {
    if (gateways.size() < 2) {
        return;
    }
    if (order.together == Together::one && order.gateway + 1 < gateways.size()) {
        ++order.gateway;
    } else {
        order.gateway = 0;
        order.together = order.together == Together::one   ? Together::all
                         : order.together == Together::all ? Together::sideBySide
                                                           : Together::one;
    }
    cursor = {};
    first = 0;
}

void TopView::type(int key) {
    if (key == ENTER_KEY || key == ESCAPE_KEY) {
        typing = false;
        order.filter = key == ESCAPE_KEY ? "" : order.filter;
    } else if (key == CLEAR_KEY) {
        order.filter.clear();
    } else if (key == BACKSPACE_KEY && !order.filter.empty()) {
        order.filter.pop_back();
    } else if (key >= ' ' && key < BACKSPACE_KEY) {
        order.filter += static_cast<char>(key);
    }
    first = 0;
}

bool TopView::constantsShown(Gateways gateways) const {
    if (constants || settings.named) {
        return constants.value_or(true);
    }
    bool changes = false;
    for (const TopGateway& gateway : gateways) {
        for (const std::unique_ptr<Track>& track : gateway.tracks.all()) {
            changes = changes || track->changes > 0;
            // A Gateway that has just come is shown whole.
            if (!track->failed && track->samples >= SAMPLES_TO_WARM_UP &&
                gateway.tracks.time() - track->firstSeen >= SECONDS_TO_WARM_UP && changes) {
                return false;
            }
        }
    }
    return true;
}

std::vector<TopLine> TopView::lines(Gateways gateways) {
    order.constants = constantsShown(gateways);
    table.gateways.clear();
    table.targets.clear();
    table.lost.clear();
    for (const TopGateway& gateway : gateways) {
        table.gateways.push_back(&gateway.tracks);
        table.targets.push_back(gateway.target);
        table.lost.push_back(!gateway.lost.empty());
    }
    return topLines(table.gateways, order);
}

// Finds the cursor's line again; where it is gone, the cursor stays at its place.
void TopView::follow(std::span<const TopLine> shown) {
    const auto same = [&](const TopLine& line) {
        return cursor.track != nullptr ? line.hasTrack(cursor.track) : line.heading && line.group == cursor.group;
    };
    const auto place = std::find_if(shown.begin(), shown.end(), same);
    if (place != shown.end()) {
        cursor.index = static_cast<std::size_t>(place - shown.begin());
    } else if (!shown.empty()) {
        cursor.index = std::min(cursor.index, shown.size() - 1);
        cursor.track = shown[cursor.index].heading ? nullptr : shown[cursor.index].track;
        cursor.group = shown[cursor.index].group;
    } else {
        cursor = {};
    }
}

Frame TopView::draw(std::size_t rows, std::size_t columns, Gateways gateways, double now, double wallTime) {
    Frame frame{.rows = rows, .columns = columns, .pieces = {}};
    table.now = now;
    const std::size_t head = drawTitle(frame, gateways, wallTime);
    if (help) {
        drawHelp(frame, head);
        return frame;
    }
    const std::vector<TopLine> shown = lines(gateways);
    follow(shown);
    const std::size_t footer = rows > head + 2 ? rows - 1 : rows;
    const bool paneFits = pane && !shown.empty() && !shown[cursor.index].heading;
    const bool besides = rows >= head + LEAST_ROWS_BESIDE_PANE + PANE_ROWS;
    const std::size_t bottom = !paneFits ? footer : besides ? footer - PANE_ROWS : head;
    page = bottom > head + 1 ? bottom - head - 1 : 1;
    first = std::min(first, cursor.index);
    first = std::max(first, cursor.index - std::min(cursor.index, page - 1));
    first = std::min(first, shown.size() - std::min(shown.size(), page));
    if (bottom > head) {
        drawTable(frame, table, order, shown, head, bottom, first, cursor.index);
    }
    if (shown.empty() && std::any_of(gateways.begin(), gateways.end(), [](const auto& one) { return one.sampled; })) {
        frame.put(head + 1, 2,
                  order.filter.empty()
                      ? "nothing matches what was asked for"
                      : fmt::format("no identifier matches '{}' (Esc clears the filter)", order.filter),
                  Style::notice);
    }
    if (paneFits) {
        const TopLine& line = shown[cursor.index];
        drawPane(frame, table, *line.track, line.gateway, bottom);
    }
    if (footer < rows) {
        drawFooter(frame, shown.size(), page);
    }
    return frame;
}

std::string TopView::pacing() const {
    return speed ? fmt::format("recorded, x{}", *speed) : fmt::format("every {} s", interval);
}

// Returns the row below.
std::size_t TopView::drawTitle(Frame& frame, Gateways gateways, double wallTime) const {
    const bool one = gateways.size() == 1 || order.together == Together::one;
    const TopGateway& gateway = gateways[std::min(order.gateway, gateways.size() - 1)];
    std::string name = one ? gateway.target : fmt::format("{} Gateways", gateways.size());
    if (one && gateways.size() > 1) {
        name += fmt::format(" ({} of {})", order.gateway + 1, gateways.size());
    }
    const std::string_view halt = atEnd ? "the end" : paused ? "paused" : "";
    const std::string protocol = one && !gateway.protocol.empty() ? "  protocol " + gateway.protocol : "";
    const std::string clock = wallTime > 0 ? "  " + clockTime(wallTime) : "";
    const std::string moment = wallTime > 0 && speed ? "  " + dateAndTime(wallTime) : clock;
    const std::string pace = "  " + pacing();
    // What says least gives way first; the time and the halt stay.
    const std::size_t haltWidth = halt.empty() ? 0 : columnWidth(halt) + 2;
    const std::size_t room = frame.columns - std::min(frame.columns, haltWidth);
    const std::size_t clockWidth = columnWidth(clock);
    std::string title;
    for (const std::string& form :
         {"zulstat " + name + protocol + moment + pace, "zulstat " + name + moment + pace, "zulstat " + name + moment,
          "zulstat " + name + clock, name + clock, cutWithMark(name, room - std::min(room, clockWidth)) + clock}) {
        title = form;
        if (columnWidth(form) <= room) {
            break;
        }
    }
    frame.put(0, 0, title, Style::bold);
    std::size_t row = 1;
    if (!halt.empty()) {
        frame.put(0, columnWidth(title) + 2, std::string(halt), Style::notice);
    }
    for (const TopGateway& each : gateways) {
        if (each.state.empty() || (one && &each != &gateway)) {
            continue;
        }
        const std::string text = one ? each.state : each.target + ": " + each.state;
        for (const std::string& line : wrapToWidth(text, std::max<std::size_t>(frame.columns, 1))) {
            frame.put(row++, 0, line, each.lost.empty() ? Style::notice : Style::bad);
        }
    }
    return row;
}

void TopView::drawHelp(Frame& frame, std::size_t row) const {
    constexpr std::size_t left = 13;
    const auto add = [&](std::string_view name, std::string_view text) {
        if (columnWidth(name) + 2 > left) {
            frame.put(row++, 1, std::string(name) + "  " + std::string(text));
            return;
        }
        frame.put(row, 1, std::string(name), Style::bold);
        frame.put(row++, left, std::string(text));
    };
    for (const TopKey& key : keys()) {
        if (speed || !key.ofRecordings) {
            add(key.keys, key.help);
        }
    }
    for (const TopColumn& column : topColumns()) {
        add(column.title, column.help);
    }
}

void TopView::drawFooter(Frame& frame, std::size_t shown, std::size_t room) const {
    const std::size_t row = frame.rows - 1;
    if (typing) {
        frame.put(row, 0, "filter: " + order.filter + "_  (Enter keeps it, Esc clears it)", Style::bold);
        return;
    }
    std::string text;
    if (!order.filter.empty()) {
        text = fmt::format("filter {} (Esc clears it)  ", order.filter);
    }
    if (shown > room) {
        text += fmt::format("{}-{} of {}  ", first + 1, std::min(first + room, shown), shown);
    }
    for (const TopKey& key : keys()) {
        if (!key.hint.empty() && (speed || !key.ofRecordings) && columnWidth(text) + key.hint.size() <= frame.columns) {
            text += std::string(key.hint) + "  ";
        }
    }
    frame.put(row, 0, text, Style::dim);
}

}  // namespace zulstat
