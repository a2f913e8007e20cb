#include "svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "monitor/html.h"
#include "page_style.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t HOVER_WIDTH = 4;  // columns with one text under the pointer
constexpr std::size_t Y_STEPS = 3;
constexpr std::size_t TIME_LABELS = 5;

// A coordinate with one decimal at most.
std::string unit(double value) {
    std::string text = fmt::format("{:.1f}", value);
    if (text.ends_with(".0")) {
        text.resize(text.size() - 2);
    }
    return text == "-0" ? "0" : text;
}

double height(const Axis& axis, double value) {
    return static_cast<double>(PLOT_HEIGHT) * (1 - std::clamp(axis.place(value), 0.0, 1.0));
}

// A line through the smallest and the largest of each column, which ends at gaps.
std::string linePath(const std::vector<Column>& columns, const Axis& axis) {
    std::string path;
    std::string former;  // height of the pen
    bool down = false;
    std::size_t flat = 0;  // where a level part ends that is not drawn yet
    const auto drawFlat = [&] {
        if (flat > 0) {
            path += fmt::format("H{}", flat);
            flat = 0;
        }
    };
    for (std::size_t x = 0; x < columns.size(); ++x) {
        const Extent& numbers = columns[x].numbers;
        if (numbers.empty()) {
            continue;
        }
        std::string from = unit(height(axis, numbers.low));
        std::string to = unit(height(axis, numbers.high));
        if (!down || numbers.broken) {
            drawFlat();
            path += fmt::format("M{} {}", x, from);
            path += from == to ? "h0" : "V" + to;
        } else if (from == to && from == former) {
            flat = x;
        } else {
            drawFlat();
            if (std::abs(std::stod(former) - std::stod(to)) < std::abs(std::stod(former) - std::stod(from))) {
                std::swap(from, to);
            }
            path += fmt::format("L{} {}", x, from);
            path += from == to ? "" : "V" + to;
        }
        former = to;
        down = true;
    }
    drawFlat();
    return path;
}

// The wall time at the left side of a column.
double timeAt(const PlotFrame& frame, std::size_t column) {
    return frame.from + (frame.to - frame.from) * static_cast<double>(column) / static_cast<double>(PLOT_WIDTH);
}

std::string momentText(const PlotFrame& frame, double wallTime) {
    const std::string text = localTime(wallTime);
    return frame.to - frame.from > 86400 ? text : text.substr(text.find(' ') + 1);
}

std::string spanText(const PlotFrame& frame, std::size_t first, std::size_t last) {
    const std::string from = momentText(frame, timeAt(frame, first));
    const std::string to = momentText(frame, timeAt(frame, last));
    return from == to ? from : from + " - " + to;
}

// Texts for the pointer, one for a few columns.
std::string hovers(const PlotFrame& frame, std::span<const Timeline* const> lines,
                   const std::vector<std::vector<Column>>& columns, bool rates) {
    std::string text;
    for (std::size_t first = 0; first < PLOT_WIDTH; first += HOVER_WIDTH) {
        const std::size_t last = std::min(first + HOVER_WIDTH, PLOT_WIDTH);
        std::string values;
        for (std::size_t gateway = 0; gateway < lines.size(); ++gateway) {
            Extent all;
            for (std::size_t x = first; x < last && !columns[gateway].empty(); ++x) {
                all.add(columns[gateway][x].numbers);
            }
            if (!all.empty()) {
                values += frame.gateways.size() > 1 ? "\n" + escapeHtml(frame.gateways[gateway]) + ": " : "\n";
                values += rangeText(all, lines[gateway]->unit, rates);
            }
        }
        if (!values.empty()) {
            text += fmt::format("<rect x=\"{}\" width=\"{}\" height=\"{}\"><title>{}{}</title></rect>\n", first,
                                last - first, PLOT_HEIGHT, spanText(frame, first, last), values);
        }
    }
    return text;
}

std::string begin(std::size_t areaHeight) {
    return fmt::format(
        "<svg viewBox=\"0 0 {} {}\"><g transform=\"translate({} {})\">"
        "<use href=\"#gaps\" transform=\"scale(1 {})\"/>",
        PLOT_LEFT + PLOT_WIDTH + PLOT_RIGHT, PLOT_TOP + areaHeight + PLOT_BOTTOM, PLOT_LEFT, PLOT_TOP, areaHeight);
}

std::string end(std::size_t areaHeight) {
    return fmt::format("<use href=\"#times\" y=\"{}\"/></g></svg>\n", areaHeight);
}

struct Run {
    std::size_t first = 0;
    std::size_t last = 0;  // behind it
    std::uint32_t states = 0;
};

// Columns with the same states; a state lasts until the next text, unless a gap lies before that.
std::vector<Run> runsOf(const std::vector<Column>& columns) {
    std::vector<Run> runs;
    std::uint8_t lastState = 0;
    for (std::size_t x = 0; x < columns.size(); ++x) {
        const Texts& texts = columns[x].texts;
        if (texts.empty()) {
            continue;
        }
        if (!runs.empty() && !texts.broken && runs.back().last < x) {
            // What lies between is what the last one ended with.
            const std::uint32_t rest = std::uint32_t{1} << lastState;
            if (runs.back().states != rest) {
                runs.push_back({runs.back().last, x, rest});
            }
            runs.back().last = x;
        }
        if (!runs.empty() && runs.back().states == texts.states && runs.back().last == x && !texts.broken) {
            runs.back().last = x + 1;
        } else {
            runs.push_back({x, x + 1, texts.states});
        }
        lastState = texts.last;
    }
    return runs;
}

}  // namespace

std::string sharedParts(const PlotFrame& frame, std::span<const Gap> gaps) {
    const Axis axis = timeAxis(frame.from, frame.to, TIME_LABELS);
    const auto width = static_cast<double>(PLOT_WIDTH);
    std::string text = "<g id=\"times\">";
    for (const Tick& tick : axis.ticks) {
        const double x = axis.place(tick.at) * width;
        const char* const anchor = x > width - 12 ? " end" : x < 12 ? " begin" : "";
        text += fmt::format("<path class=\"mark\" d=\"M{0} 0v4\"/><text class=\"x{1}\" x=\"{0}\" y=\"14\">{2}</text>",
                            unit(x), anchor, escapeHtml(tick.label));
    }
    // Each is one column wide at least; what they have in common is drawn once.
    text += "</g><path id=\"gaps\" class=\"gap\" d=\"";
    std::array<bool, PLOT_WIDTH> missing{};
    for (const Gap& gap : gaps) {
        const auto column = [&](double wallTime) { return std::clamp(axis.place(wallTime), 0.0, 1.0) * (width - 1); };
        for (auto x = static_cast<std::size_t>(std::ceil(column(gap.from)));
             x <= static_cast<std::size_t>(column(gap.to.value_or(frame.to))); ++x) {
            missing[x] = true;
        }
    }
    for (std::size_t x = 0; x < PLOT_WIDTH; ++x) {
        if (missing[x]) {
            const std::size_t first = x;
            while (x < PLOT_WIDTH && missing[x]) {
                ++x;
            }
            text += fmt::format("M{} 0h{}v1h-{}z", first, x - first, x - first);
        }
    }
    return text + "\"/>";
}

std::string linePlot(const PlotFrame& frame, std::span<const Timeline* const> lines, bool rates) {
    std::vector<std::vector<Column>> columns;
    Extent all;
    Unit what = Unit::none;
    for (const Timeline* line : lines) {
        columns.emplace_back();
        if (line == nullptr) {
            continue;
        }
        what = line->unit;
        columns.back() = columnsOf(*line, frame.width, rates, frame.from, frame.to, PLOT_WIDTH);
        for (const Column& column : columns.back()) {
            all.add(column.numbers);
        }
    }
    const Axis axis = valueAxis(all.low, all.high, rates && what == Unit::uptime ? Unit::seconds : what, Y_STEPS);
    std::string text = begin(PLOT_HEIGHT);
    std::string grid;
    for (const Tick& tick : axis.ticks) {
        const std::string y = unit(height(axis, tick.at));
        grid += fmt::format("M0 {}h{}", y, PLOT_WIDTH);
        if (!tick.label.empty()) {
            text += fmt::format("<text class=\"y\" x=\"-5\" y=\"{}\">{}</text>", unit(height(axis, tick.at) + 3.5),
                                escapeHtml(tick.label));
        }
    }
    text += fmt::format("<path class=\"grid\" d=\"{}\"/>\n", grid);
    for (std::size_t gateway = 0; gateway < lines.size(); ++gateway) {
        if (!columns[gateway].empty()) {
            text += fmt::format("<path class=\"line g{}\" d=\"{}\"/>\n", gateway % GATEWAY_COLORS,
                                linePath(columns[gateway], axis));
        }
    }
    text += "<g class=\"hover\">\n" + hovers(frame, lines, columns, rates) + "</g>";
    return text + end(PLOT_HEIGHT);
}

std::string bandPlot(const PlotFrame& frame, std::span<const Band> bands) {
    const std::size_t areaHeight = BAND_STEP * (bands.size() - 1) + BAND_HEIGHT;
    std::string text = begin(areaHeight);
    for (std::size_t gateway = 0; gateway < bands.size(); ++gateway) {
        const std::size_t top = gateway * BAND_STEP;
        if (bands.size() > 1) {
            text += fmt::format("<path class=\"line wide g{0}\" d=\"M-10 {1}v{2}\"/>", gateway % GATEWAY_COLORS,
                                top + 2, BAND_HEIGHT - 4);
        }
        const Timeline* const line = bands[gateway].line;
        if (line == nullptr) {
            continue;
        }
        for (const Run& run : runsOf(columnsOf(*line, frame.width, false, frame.from, frame.to, PLOT_WIDTH))) {
            std::vector<std::size_t> states;
            std::string names;
            for (std::size_t state = 0; state <= MOST_STATES; ++state) {
                if ((run.states >> state & 1U) != 0) {
                    states.push_back(state);
                    names += "\n" + escapeHtml(state < line->states.size() ? line->states[state].text : "others");
                }
            }
            // States that share a column share its height.
            text += "<g>";
            for (std::size_t part = 0; part < states.size(); ++part) {
                const std::size_t y = BAND_HEIGHT * part / states.size();
                text += fmt::format("<rect class=\"s{}\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"/>",
                                    bands[gateway].colors[states[part]], run.first, top + y, run.last - run.first,
                                    BAND_HEIGHT * (part + 1) / states.size() - y);
            }
            text += fmt::format("<title>{}{}{}{}</title></g>\n", spanText(frame, run.first, run.last),
                                frame.gateways.size() > 1 ? "\n" : "",
                                frame.gateways.size() > 1 ? escapeHtml(frame.gateways[gateway]) : "", names);
        }
    }
    return text + end(areaHeight);
}

}  // namespace zulstat
