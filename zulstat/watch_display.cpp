#include "watch_display.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "charset.h"
#include "format.h"
#include "monitor/changes.h"
#include "options.h"
#include "output.h"
#include "rate.h"
#include "recording/sample_json.h"
#include "report.h"
#include "terminal.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t WIDEST_ID = 60;
constexpr std::size_t LEAST_VALUE = 10;  // columns

struct Line {
    std::string id;
    std::string value;
    std::string element;
    int rc = 0;
};

// The items and the failed elements, with what -r and -d put in place of values.
std::vector<Line> linesOf(const Sample& sample, Changes& changes, const Options& options) {
    const std::vector<Change> all = changes.next(sample);
    std::vector<Line> lines;
    auto change = all.begin();
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            lines.push_back({"", "", std::string(element.text), element.rc});
        }
        for (const Item& item : sample.itemsOf(element)) {
            const std::string value = derivedText(*change++, options.derived).value_or(std::string(item.value));
            lines.push_back({std::string(item.id), value, std::string(element.text), element.rc});
        }
    }
    return lines;
}

// For people: one column for the identifier or the failed element, one for the value or the failure.
std::vector<Line> readableLines(const Sample& sample, Changes& changes, const Options& options, std::size_t& width) {
    std::vector<Line> lines = linesOf(sample, changes, options);
    for (Line& line : lines) {
        const bool failed = line.rc < 0 && line.id.empty();
        line.id = escapeForTerminal(failed ? line.element : line.id);
        line.value = failed ? fmt::format("failed, rc {}", line.rc) : escapeForTerminal(line.value);
        width = std::min(std::max(width, columnWidth(line.id)), WIDEST_ID);
    }
    return lines;
}

// What the column TARGET has, with the space behind it; empty texts where there is one Gateway only.
class TargetColumn {
public:
    explicit TargetColumn(const Options& options) : cells(options.targets.size()) {
        if (!options.several()) {
            return;
        }
        title = "TARGET";
        for (std::size_t index = 0; index < cells.size(); ++index) {
            cells[index] = escapeForTerminal(targetText(options.targets[index]));
            width = std::max(width, columnWidth(cells[index]));
        }
        for (std::string& cell : cells) {
            cell = padRight(cell, width) + "  ";
        }
        title = padRight(title, width) + "  ";
    }

    std::string title;
    std::vector<std::string> cells;

private:
    std::size_t width = 6;
};

class Redrawn : public WatchDisplay {
public:
    explicit Redrawn(const Options& given) : options(given), targets(given), gateways(given.targets.size()) {
    }
    void show(std::size_t gateway, const Sample& sample) override {
        Gateway& one = gateways[gateway];
        one.lines = readableLines(sample, one.changes, options, width);
        one.time = sample.wallTime;
        one.lost = false;
        one.waits.clear();
        draw();
    }
    void refresh(const std::vector<std::string>& waiting) override {
        const TerminalSize now = terminalSize();
        bool due = drawn && (now.rows != size.rows || now.columns != size.columns);
        for (std::size_t index = 0; index < gateways.size(); ++index) {
            due = due || gateways[index].waits != waiting[index];
            gateways[index].waits = waiting[index];
        }
        if (due) {
            draw();
        }
    }
    void gap(std::size_t gateway, const FeedEvent& event) override {
        const double left = std::chrono::duration<double>(event.retryIn).count();
        lose(gateway, (event.failure ? fmt::format("next attempt in {:.2g} s: ", left) : "") + event.text);
    }
    void end(std::size_t gateway, const FeedEvent& event) override {
        lose(gateway, event.text);
    }
    bool showsState() const override {
        return isatty(STDERR_FILENO) == 1;
    }

private:
    // What is shown of one.
    struct Gateway {
        Changes changes;
        std::vector<Line> lines;
        std::string state;
        std::string waits;
        double time = 0;
        bool lost = false;
    };

    void lose(std::size_t gateway, const std::string& state) {
        Gateway& one = gateways[gateway];
        one.state = state;
        one.lost = true;
        draw();
    }
    // Each line is cut to the width, and its rest cleared rather than the screen, so that nothing flickers.
    void add(const std::string& text, const char* style) {
        if (room == 0) {
            return;
        }
        --room;
        const std::string cut = cutWithMark(text, size.columns);
        frame += (options.color && *style != '\0' ? style + cut + "\x1b[m" : cut) + "\x1b[K\r\n";
    }
    void addHead(const Target& target, const Gateway& one) {
        const std::string name = escapeForTerminal(targetText(target));
        add(one.time == 0 ? fmt::format("{}  {}", name, one.waits)
                          : fmt::format("{}  {}  {}", name, clockTime(one.time),
                                        one.lost             ? "no connection, last values"
                                        : !one.waits.empty() ? one.waits
                                                             : fmt::format("every {} s", options.interval)),
            one.lost ? "\x1b[1;31m" : "\x1b[1m");
        if (one.lost) {
            for (const std::string& line : wrapToWidth(one.waits.empty() ? one.state : one.waits, size.columns)) {
                add(line, "\x1b[31m");
            }
        }
    }
    void draw() {
        size = terminalSize();
        // What the terminal showed before moves up into its history.
        frame = drawn ? "\x1b[H" : std::string(size.rows, '\n') + "\x1b[H";
        drawn = true;
        room = size.rows > 1 ? size.rows - 1 : 1;  // the cursor stays in the last line
        std::size_t count = 0;
        bool any = false;
        for (std::size_t index = 0; index < gateways.size(); ++index) {
            addHead(options.targets[index], gateways[index]);
            count += gateways[index].lines.size();
            any = any || gateways[index].time != 0;
        }
        // Where the screen is narrow, identifiers leave room for some of the value.
        const std::size_t others = columnWidth(targets.title) + 2 + LEAST_VALUE;
        const std::size_t ids = std::min(width, std::max(size.columns, others + LEAST_VALUE) - others);
        if (options.header && any) {
            add(targets.title + padRight("ID", ids) + "  VALUE", "\x1b[1m");
        }
        const std::size_t most = count <= room ? count : room > 0 ? room - 1 : 0;
        std::size_t shown = 0;
        for (std::size_t index = 0; index < gateways.size(); ++index) {
            const Gateway& one = gateways[index];
            for (const Line& line : one.lines) {
                if (shown < most) {
                    ++shown;
                    add(targets.cells[index] + padRight(cutWithMark(line.id, ids), ids) + "  " + line.value,
                        line.rc < 0 ? "\x1b[31m"
                        : one.lost  ? "\x1b[2m"
                                    : "");
                }
            }
        }
        if (shown < count) {
            add(fmt::format("... {} more: 'zulstat top' scrolls, -I and -g choose", count - shown), "");
        }
        print(inUsersCharacters(frame + "\x1b[J"));
    }

    const Options& options;
    const TargetColumn targets;
    std::vector<Gateway> gateways;
    std::string frame;
    std::size_t width = 2;  // of the identifiers
    std::size_t room = 0;   // lines that are left
    TerminalSize size;
    bool drawn = false;
};

class Rows : public WatchDisplay {
public:
    explicit Rows(const Options& given) : options(given), targets(given), changes(given.targets.size()) {
    }
    void show(std::size_t gateway, const Sample& sample) override {
        const std::string time = isoTime(sample.wallTime);
        const std::vector<Line> lines = readableLines(sample, changes[gateway], options, width);
        std::string text;
        const bool due = options.headerEvery > 0 && rowsSinceHeader >= options.headerEvery;
        if (options.header && !lines.empty() && (!headerShown || due)) {
            text = padRight("TIME", time.size()) + "  " + targets.title + padRight("ID", width) + "  VALUE\n";
            headerShown = true;
            rowsSinceHeader = 0;
        }
        for (const Line& line : lines) {
            text += time + "  " + targets.cells[gateway] + padRight(line.id, width) + "  " + line.value + "\n";
        }
        rowsSinceHeader += static_cast<long>(lines.size());
        print(inUsersCharacters(text));
    }
    void gap(std::size_t gateway, const FeedEvent& event) override {
        if (event.firstGap) {
            print(inUsersCharacters(isoTime(event.wallTime) + "  " + targets.cells[gateway] + "-- no connection --\n"));
        }
    }

private:
    const Options& options;
    const TargetColumn targets;
    std::vector<Changes> changes;  // one for each Gateway
    std::size_t width = 2;
    long rowsSinceHeader = 0;
    bool headerShown = false;
};

// Columns separated by tabs, bytes as they came: time, id, value, element, rc, and of several Gateways the one.
class PlainRows : public WatchDisplay {
public:
    explicit PlainRows(const Options& given) : options(given), changes(given.targets.size()) {
    }
    void show(std::size_t gateway, const Sample& sample) override {
        std::string text;
        for (const Line& line : linesOf(sample, changes[gateway], options)) {
            text += row(gateway, isoTime(sample.wallTime), line);
        }
        print(text);
    }
    void gap(std::size_t gateway, const FeedEvent& event) override {
        if (event.firstGap) {
            print(row(gateway, isoTime(event.wallTime), {"", "", "", event.rc}));
        }
    }

private:
    std::string row(std::size_t gateway, const std::string& time, const Line& line) const {
        const std::string behind = options.several() ? '\t' + targetText(options.targets[gateway]) : "";
        return time + '\t' + line.id + '\t' + line.value + '\t' + line.element + '\t' + std::to_string(line.rc) +
               behind + '\n';
    }

    const Options& options;
    std::vector<Changes> changes;  // one for each Gateway
};

// A line for each sample, a column for each identifier: in columns for people, or as csv.
class Wide : public WatchDisplay {
public:
    explicit Wide(const Options& given)
        : options(given),
          targets(given),
          csv(given.format == Format::csv),
          changes(given.targets.size()),
          ids(given.ids) {
    }
    void show(std::size_t gateway, const Sample& sample) override {
        std::map<std::string, std::string> values;
        const bool choose = ids.empty();
        for (const Line& line : linesOf(sample, changes[gateway], options)) {
            const bool first = line.rc >= 0 && values.try_emplace(line.id, line.value).second;
            if (choose && first) {
                ids.push_back(line.id);
            }
        }
        std::vector<std::string> cells;
        for (const std::string& id : ids) {
            const auto found = values.find(id);
            cells.push_back(found != values.end() ? found->second : csv ? "" : "-");
        }
        const std::string time = isoTime(sample.wallTime);
        print(csv ? csvLine(time, gateway, cells) : tableLine(time, gateway, cells));
    }
    void gap(std::size_t gateway, const FeedEvent& event) override {
        if (event.firstGap) {
            const std::string time = isoTime(event.wallTime);
            print(csv ? csvLine(time, gateway, std::vector<std::string>(ids.size()))
                      : inUsersCharacters(time + "  " + targets.cells[gateway] + "-- no connection --\n"));
        }
    }

private:
    std::string csvLine(const std::string& time, std::size_t gateway, const std::vector<std::string>& cells) {
        const auto line = [&](std::string text, const std::vector<std::string>& fields) {
            for (const std::string& field : fields) {
                text += "," + csvField(field);
            }
            return text + (options.lineFeeds ? "\n" : "\r\n");
        };
        const bool due = options.header && !headerShown;
        headerShown = true;
        return (due ? line("time,target", ids) : "") +
               line(time + "," + csvField(targetText(options.targets[gateway])), cells);
    }

    // Columns grow with what they show.
    std::string tableLine(const std::string& time, std::size_t gateway, std::vector<std::string> cells) {
        constexpr std::size_t least = 6;
        widths.resize(ids.size(), least);
        std::string titles = padRight("TIME", time.size()) + "  " + targets.title;
        std::string line = time + "  " + targets.cells[gateway];
        for (std::size_t column = 0; column < ids.size(); ++column) {
            const std::string title = escapeForTerminal(ids[column]);
            const std::string cell = escapeForTerminal(cells[column]);
            widths[column] = std::max({widths[column], columnWidth(title), columnWidth(cell)});
            const std::string between = column == 0 ? "" : "  ";
            titles += between + padLeft(title, widths[column]);
            line += between + padLeft(cell, widths[column]);
        }
        const bool due = options.headerEvery > 0 && rowsSinceHeader >= options.headerEvery;
        const bool withHeader = options.header && (!headerShown || due);
        headerShown = true;
        rowsSinceHeader = withHeader ? 1 : rowsSinceHeader + 1;
        return inUsersCharacters((withHeader ? titles + "\n" : "") + line + "\n");
    }

    const Options& options;
    const TargetColumn targets;
    const bool csv;
    std::vector<Changes> changes;  // one for each Gateway
    std::vector<std::string> ids;  // as asked for, or those of the first sample
    std::vector<std::size_t> widths;
    long rowsSinceHeader = 0;
    bool headerShown = false;
};

// The formats for other programs. A gap is a sample of its own, with an element without a name that failed with the
// library's code.
class Documents : public WatchDisplay {
public:
    explicit Documents(const Options& given) : options(given), format(*given.format) {
        if (options.mapper) {
            mappers.assign(options.targets.size(), *options.mapper);
        }
    }
    void show(std::size_t gateway, const Sample& sample) override {
        layout.mapper = mappers.empty() ? nullptr : &mappers[gateway];
        print(formatSample(format, sample, layout));
        layout.header = false;
    }
    void gap(std::size_t gateway, const FeedEvent& event) override {
        if (event.firstGap) {
            Sample sample =
                recording::gapSample(options.targets[gateway], event.wallTime, event.monotonicTime, event.rc);
            sample.query = options.query();
            layout.gap = event.failure ? "" : event.reason;
            show(gateway, sample);
            layout.gap.clear();
        }
    }

private:
    const Options& options;
    Format format;
    Layout layout = options.layout();
    std::vector<Mapper> mappers;  // one for each Gateway
};

}  // namespace

std::unique_ptr<WatchDisplay> makeWatchDisplay(const Options& options) {
    const Format format = options.format.value_or(Format::table);
    if (!options.derived.empty() && format != Format::table && format != Format::plain) {
        throw UsageError{"-r and -d are for tables and plain rows; other formats have times to compute them from"};
    }
    if (options.wide) {
        if (format != Format::table && format != Format::csv) {
            throw UsageError{"--wide is for table and csv"};
        }
        return std::make_unique<Wide>(options);
    }
    switch (format) {
    case Format::table:
        if (canRedraw()) {
            options.refuseTraceOnScreen();
            return std::make_unique<Redrawn>(options);
        }
        return std::make_unique<Rows>(options);
    case Format::plain:
        return std::make_unique<PlainRows>(options);
    default:
        return std::make_unique<Documents>(options);
    }
}

}  // namespace zulstat
