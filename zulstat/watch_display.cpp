#include "watch_display.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "charset.h"
#include "format.h"
#include "monitor/changes.h"
#include "monitor/codes.h"
#include "options.h"
#include "output.h"
#include "rate.h"
#include "report.h"
#include "terminal.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t WIDEST_ID = 60;

double clockSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

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

class Redrawn : public WatchDisplay {
public:
    explicit Redrawn(const Options& given) : options(given) {
    }
    void show(const Sample& sample) override {
        lines = readableLines(sample, changes, options, width);
        time = sample.wallTime;
        lost = false;
        waits.clear();
        draw();
    }
    void refresh(const std::string& waiting) override {
        const TerminalSize now = terminalSize();
        if (waits != waiting || (drawn && (now.rows != size.rows || now.columns != size.columns))) {
            waits = waiting;
            draw();
        }
    }
    void gap(const Failure& failure, bool, std::chrono::milliseconds retryIn) override {
        state = fmt::format("next attempt in {:.2g} s: {}", std::chrono::duration<double>(retryIn).count(),
                            failureText(failure, options.subject()));
        lost = true;
        draw();
    }
    bool showsState() const override {
        return isatty(STDERR_FILENO) == 1;
    }

private:
    // Each line is cut to the width, and its rest cleared rather than the screen, so that nothing flickers.
    void add(const std::string& text, const char* style) {
        const std::string cut = cutToWidth(text, size.columns);
        frame += (options.color && *style != '\0' ? style + cut + "\x1b[m" : cut) + "\x1b[K\r\n";
    }
    void draw() {
        size = terminalSize();
        // What the terminal showed before moves up into its history.
        frame = drawn ? "\x1b[H" : std::string(size.rows, '\n') + "\x1b[H";
        drawn = true;
        std::size_t room = size.rows > 1 ? size.rows - 1 : 1;  // the cursor stays in the last line
        const auto addLine = [&](const std::string& text, const char* style) {
            if (room > 0) {
                --room;
                add(text, style);
            }
        };
        const std::string target = escapeForTerminal(targetText(options.target));
        addLine(time == 0 ? fmt::format("{}  {}", target, waits)
                          : fmt::format("{}  {}  {}", target, clockTime(time),
                                        lost             ? "no connection, last values"
                                        : !waits.empty() ? waits
                                                         : fmt::format("every {} s", options.interval)),
                lost ? "\x1b[1;31m" : "\x1b[1m");
        if (lost) {
            for (const std::string& line : wrapToWidth(waits.empty() ? state : waits, size.columns)) {
                addLine(line, "\x1b[31m");
            }
        }
        if (options.header && time != 0) {
            addLine(padRight("ID", width) + "  VALUE", "\x1b[1m");
        }
        const bool fits = lines.size() <= room;
        const std::size_t shown = fits ? lines.size() : room > 0 ? room - 1 : 0;
        for (std::size_t index = 0; index < shown; ++index) {
            const Line& line = lines[index];
            addLine(padRight(line.id, width) + "  " + line.value, line.rc < 0 ? "\x1b[31m" : lost ? "\x1b[2m" : "");
        }
        if (!fits) {
            addLine(fmt::format("... {} more: 'zulstat top' scrolls, -I and -g choose", lines.size() - shown), "");
        }
        print(inUsersCharacters(frame + "\x1b[J"));
    }

    const Options& options;
    Changes changes;
    std::vector<Line> lines;
    std::string state;
    std::string waits;
    std::string frame;
    std::size_t width = 2;
    TerminalSize size;
    double time = 0;
    bool lost = false;
    bool drawn = false;
};

class Rows : public WatchDisplay {
public:
    explicit Rows(const Options& given) : options(given) {
    }
    void show(const Sample& sample) override {
        const std::string time = isoTime(sample.wallTime);
        const std::vector<Line> lines = readableLines(sample, changes, options, width);
        std::string text;
        const bool due = options.headerEvery > 0 && rowsSinceHeader >= options.headerEvery;
        if (options.header && !lines.empty() && (!headerShown || due)) {
            text = padRight("TIME", time.size()) + "  " + padRight("ID", width) + "  VALUE\n";
            headerShown = true;
            rowsSinceHeader = 0;
        }
        for (const Line& line : lines) {
            text += time + "  " + padRight(line.id, width) + "  " + line.value + "\n";
        }
        rowsSinceHeader += static_cast<long>(lines.size());
        print(inUsersCharacters(text));
    }
    void gap(const Failure&, bool first, std::chrono::milliseconds) override {
        if (first) {
            print(isoTime(clockSeconds(CLOCK_REALTIME)) + "  -- no connection --\n");
        }
    }

private:
    const Options& options;
    Changes changes;
    std::size_t width = 2;
    long rowsSinceHeader = 0;
    bool headerShown = false;
};

// Columns separated by tabs, bytes as they came: time, id, value, element, rc.
class PlainRows : public WatchDisplay {
public:
    explicit PlainRows(const Options& given) : options(given) {
    }
    void show(const Sample& sample) override {
        std::string text;
        for (const Line& line : linesOf(sample, changes, options)) {
            text += row(isoTime(sample.wallTime), line);
        }
        print(text);
    }
    void gap(const Failure& failure, bool first, std::chrono::milliseconds) override {
        if (first) {
            print(row(isoTime(clockSeconds(CLOCK_REALTIME)),
                      {"", "", "", failure.rc < 0 ? failure.rc : RC_CONNECTION_LOST}));
        }
    }

private:
    static std::string row(const std::string& time, const Line& line) {
        return time + '\t' + line.id + '\t' + line.value + '\t' + line.element + '\t' + std::to_string(line.rc) + '\n';
    }

    const Options& options;
    Changes changes;
};

// The formats for other programs. A gap is a sample of its own, with an element without a name that failed with the
// library's code.
class Documents : public WatchDisplay {
public:
    explicit Documents(const Options& given) : options(given), format(*given.format) {
    }
    void show(const Sample& sample) override {
        print(formatSample(format, sample, layout));
        layout.header = false;
    }
    void gap(const Failure& failure, bool first, std::chrono::milliseconds) override {
        if (first) {
            Sample sample;
            sample.target = options.target;
            sample.query = options.query();
            sample.wallTime = clockSeconds(CLOCK_REALTIME);
            sample.monotonicTime = clockSeconds(CLOCK_MONOTONIC);
            sample.addElement("", failure.rc < 0 ? failure.rc : RC_CONNECTION_LOST);
            show(sample);
        }
    }

private:
    const Options& options;
    Format format;
    Layout layout = options.layout();
};

}  // namespace

std::unique_ptr<WatchDisplay> makeWatchDisplay(const Options& options) {
    switch (options.format.value_or(Format::table)) {
    case Format::table:
        if (canRedraw()) {
            options.refuseTraceOnScreen();
            return std::make_unique<Redrawn>(options);
        }
        return std::make_unique<Rows>(options);
    case Format::plain:
        return std::make_unique<PlainRows>(options);
    default:
        if (!options.derived.empty()) {
            throw UsageError{"-r and -d are for tables and plain rows; other formats have times to compute them from"};
        }
        return std::make_unique<Documents>(options);
    }
}

}  // namespace zulstat
