#include "terminal_plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "axis.h"
#include "terminal.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t LEAST_AREA = 8;  // columns and, a quarter of it, rows of a plot
constexpr std::size_t ROWS_FOR_A_TICK = 4;
constexpr std::size_t COLUMNS_FOR_A_TIME = 10;

// Dots of a plot, several in each character.
class Canvas {
public:
    Canvas(std::size_t columns, std::size_t rows, bool withBraille)
        : braille(withBraille),
          across(braille ? 2 : 1),
          down(braille ? 4 : 1),
          cells(rows, std::vector<unsigned>(columns)) {
    }
    std::size_t width() const {
        return cells.front().size() * across;
    }
    std::size_t height() const {
        return cells.size() * down;
    }
    // `y` from the top.
    void set(std::size_t x, std::size_t y) {
        constexpr std::array<std::array<unsigned, 2>, 4> dots = {
            {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}}};
        cells[y / down][x / across] |= braille ? dots[y % 4][x % 2] : 1U;
    }
    void setColumn(std::size_t x, std::size_t from, std::size_t to) {
        for (std::size_t y = std::min(from, to); y <= std::max(from, to); ++y) {
            set(x, y);
        }
    }
    std::string row(std::size_t number) const {
        std::string text;
        for (const unsigned dots : cells[number]) {
            if (!braille || dots == 0) {
                text += dots == 0 ? ' ' : '*';
            } else {  // U+2800 and more
                text += {static_cast<char>(0xE2), static_cast<char>(0xA0 | (dots >> 6)),
                         static_cast<char>(0x80 | (dots & 0x3F))};
            }
        }
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }

private:
    const bool braille;
    const std::size_t across;
    const std::size_t down;
    std::vector<std::vector<unsigned>> cells;
};

// Smallest to largest of each column; straight lines where none has anything between two, and no gap lies there.
void drawLine(const std::vector<Column>& columns, const Axis& axis, Canvas& canvas) {
    const auto most = static_cast<double>(canvas.height() - 1);
    const auto height = [&](double value) {
        return static_cast<std::size_t>(std::lround(most * (1 - std::clamp(axis.place(value), 0.0, 1.0))));
    };
    std::size_t formerX = columns.size();
    std::size_t formerY = 0;
    for (std::size_t x = 0; x < columns.size(); ++x) {
        const Extent& numbers = columns[x].numbers;
        if (numbers.empty()) {
            continue;
        }
        const std::size_t low = height(numbers.low);
        const std::size_t high = height(numbers.high);
        if (formerX < x && !numbers.broken) {
            const std::size_t near = std::clamp(formerY, high, low);
            std::size_t begin = formerY;
            for (std::size_t between = formerX + 1; between <= x; ++between) {
                const double part = static_cast<double>(between - formerX) / static_cast<double>(x - formerX);
                const auto end = static_cast<std::size_t>(std::lround(
                    static_cast<double>(formerY) + part * (static_cast<double>(near) - static_cast<double>(formerY))));
                // A step of one does not become a corner.
                const std::size_t first = end > begin ? begin + 1 : end < begin ? begin - 1 : end;
                canvas.setColumn(between, first, end);
                begin = end;
            }
        }
        canvas.setColumn(x, high, low);
        formerX = x;
        formerY = height(numbers.last);
    }
}

// The line below the plot, and the times below that.
std::vector<std::string> timeLines(double from, double to, std::size_t left, std::size_t columns, bool braille) {
    const Axis axis = timeAxis(from, to, std::max<std::size_t>(columns / COLUMNS_FOR_A_TIME, 1));
    std::vector<bool> marks(columns);
    std::string labels;
    for (const Tick& tick : axis.ticks) {
        const auto x =
            static_cast<std::size_t>(std::clamp(axis.place(tick.at), 0.0, 1.0) * static_cast<double>(columns - 1));
        const std::size_t half = tick.label.size() / 2;
        const std::size_t at =
            std::min(left + x - std::min(left + x, half), left + columns - std::min(left + columns, tick.label.size()));
        if (at >= labels.size() + (labels.empty() ? 0 : 1)) {
            marks[x] = true;
            labels = padRight(labels, at) + tick.label;
        }
    }
    std::string rule = std::string(left - 1, ' ') + (braille ? "└" : "+");
    for (const bool mark : marks) {
        rule += braille ? (mark ? "┬" : "─") : (mark ? "+" : "-");
    }
    return {rule, labels};
}

std::string title(const Timeline& line, bool rates, const std::string& gateway, std::size_t columns) {
    std::string text = line.shownId + (gateway.empty() ? "" : " of " + gateway) + "  ";
    text += rangeText(rates ? line.rates : line.values, line.unit, rates);
    if (rates && line.seconds > 0) {
        const double mean = line.grown / line.seconds;
        text += ", mean " + rangeText({mean, mean, mean}, line.unit, true);
    }
    if (line.resets > 0) {
        text += fmt::format(", began anew {}", line.resets == 1 ? "once" : fmt::format("{} times", line.resets));
    }
    return cutWithMark(text, columns);
}

std::vector<std::string> numberPlot(const Timeline& line, double width, double from, double to,
                                    const std::string& gateway, const PlotSize& size) {
    const bool rates = line.showsRates();
    const Extent& all = rates ? line.rates : line.values;
    std::vector<std::string> lines = {title(line, rates, gateway, size.columns)};
    const std::size_t rows = std::max(size.rows, LEAST_AREA / 4 + 3) - 3;
    const Axis axis = valueAxis(all.low, all.high, rates && line.unit == Unit::uptime ? Unit::seconds : line.unit,
                                std::max<std::size_t>(rows / ROWS_FOR_A_TICK, 1));
    std::size_t labelWidth = 0;
    for (const Tick& tick : axis.ticks) {
        labelWidth = std::max(labelWidth, columnWidth(tick.label));
    }
    const std::size_t left = labelWidth + 2;
    const std::size_t columns = std::max(size.columns, left + LEAST_AREA) - left;
    Canvas canvas(columns, rows, size.braille);
    drawLine(columnsOf(line, width, rates, from, to, canvas.width()), axis, canvas);
    std::vector<std::string> labels(rows);
    for (const Tick& tick : axis.ticks) {
        labels[static_cast<std::size_t>(std::lround((1 - axis.place(tick.at)) * static_cast<double>(rows - 1)))] =
            tick.label;
    }
    for (std::size_t row = 0; row < rows; ++row) {
        const char* const mark = size.braille ? labels[row].empty() ? "│" : "┤" : labels[row].empty() ? "|" : "+";
        lines.push_back(padLeft(labels[row], labelWidth) + " " + mark + canvas.row(row));
    }
    const std::vector<std::string> below = timeLines(from, to, left, columns, size.braille);
    lines.insert(lines.end(), below.begin(), below.end());
    return lines;
}

// A letter for each state; where a column has several, that which is there least of all.
std::vector<std::string> statePlot(const Timeline& line, double width, double from, double to,
                                   const std::string& gateway, const PlotSize& size) {
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz";
    static_assert(letters.size() > MOST_STATES);
    const std::size_t left = 2;
    const std::size_t columns = std::max(size.columns, left + LEAST_AREA) - left;
    const auto rarity = [&](std::size_t state) { return state < line.states.size() ? line.states[state].samples : 0; };
    std::string band;
    std::size_t empty = 0;  // columns behind it
    char rest = ' ';        // what they have, unless a gap lies there
    for (const Column& column : columnsOf(line, width, false, from, to, columns)) {
        if (column.texts.empty()) {
            ++empty;
            continue;
        }
        band.append(empty, column.texts.broken ? ' ' : rest);
        empty = 0;
        std::size_t rarest = column.texts.last;
        for (std::size_t state = 0; state <= MOST_STATES; ++state) {
            if ((column.texts.states >> state & 1U) != 0 && rarity(state) < rarity(rarest)) {
                rarest = state;
            }
        }
        band += letters[rarest];
        rest = letters[column.texts.last];
    }
    std::vector<std::string> lines = {
        cutWithMark(fmt::format("{}{}  {} change{}", line.shownId, gateway.empty() ? "" : " of " + gateway,
                                line.changes, line.changes == 1 ? "" : "s"),
                    size.columns),
        " " + std::string(size.braille ? "│" : "|") + band};
    const std::vector<std::string> below = timeLines(from, to, left, columns, size.braille);
    lines.insert(lines.end(), below.begin(), below.end());
    std::string legend;
    for (std::size_t state = 0; state < line.states.size(); ++state) {
        legend += fmt::format("  {} {}", letters[state], line.states[state].text);
    }
    for (const std::string& part :
         wrapToWidth(legend.substr(std::min<std::size_t>(legend.size(), 2)), size.columns - 2)) {
        lines.push_back("  " + part);
    }
    return lines;
}

}  // namespace

std::vector<std::string> plotLines(const Timeline& line, double width, double from, double to,
                                   const std::string& gateway, const PlotSize& size) {
    if (line.numbers > 0 && line.kind() != Kind::state && line.kind() != Kind::text) {
        return numberPlot(line, width, from, to, gateway, size);
    }
    if (line.kind() == Kind::state) {
        return statePlot(line, width, from, to, gateway, size);
    }
    return {cutWithMark(fmt::format("{}{}  {}", line.shownId, gateway.empty() ? "" : " of " + gateway,
                                    line.constant() ? line.lastValue : line.lastValue + ", a text that changes often"),
                        size.columns)};
}

}  // namespace zulstat
