// zulstat top.
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "charset.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "monitor/follower.h"
#include "report.h"
#include "screen.h"
#include "terminal.h"
#include "text.h"
#include "top_rows.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::array<double, 10> INTERVALS = {0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30, 60};
constexpr std::size_t SPARK_WIDTH = 20;
constexpr std::size_t RATE_WIDTH = 12;

constexpr std::array<const char*, 13> HELP_LINES = {
    "q          leave",
    "s          sort by the next column: id, value, rate",
    "r          reverse the order",
    "/          filter by a part of the identifier or a glob; Esc clears it",
    "p, space   pause and go on",
    "+ -        longer and shorter interval",
    "arrows, PgUp, PgDn, Home, End   scroll",
    "h, ?       this help; any key leaves it",
    "",
    "RATE is the change per second since the former sample (with -d its difference):",
    "R a counter that fell, - no former sample on this connection, empty where a value",
    "goes up and down. HISTORY shows the last 20 values from their least to their largest;",
    "a space is a gap.",
};

class Top {
public:
    explicit Top(const Options& given)
        : options(given),
          subject(given.subject()),
          query(given.query()),
          interval(given.interval),
          rows(given.derived),
          follower(given.follower()),
          screen(std::make_unique<Screen>(given.color)) {
    }

    int run() {
        std::optional<Failure> end;
        while (!leaving && !interrupted() && !end) {
            end = sample();
            draw();
            wait();
            while (const std::optional<int> pressed = screen->key()) {
                press(*pressed);
            }
        }
        screen.reset();
        return end ? reportFailure(*end, query, subject) : exitOk;
    }

private:
    // Returns the failure that ends it all.
    std::optional<Failure> sample() {
        while (std::optional<Event> event = follower.step(Clock::now())) {
            switch (event->kind) {
            case Event::Kind::sample:
                filter(event->sample, options.globs);
                rows.take(event->sample);
                last = std::move(event->sample);
                lost.clear();
                break;
            case Event::Kind::gap:
                if (event->firstGap) {
                    rows.gap();
                }
                lost = failureText(*event->failure, subject);
                break;
            case Event::Kind::end:
                return event->failure;
            }
        }
        return std::nullopt;
    }

    // Until a key, an answer, a signal or the next moment at which something is to be done.
    void wait() {
        const Clock::time_point now = Clock::now();
        const Clock::time_point wake =
            std::min(follower.nextWake(), now + std::chrono::seconds(1));  // the state counts
        std::array<pollfd, 3> watched = {
            {{STDIN_FILENO, POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}, {follower.descriptor(), POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), pollTime(wake, now));
        leaving = leaving || (ready > 0 && (watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0);
    }

    void press(int key) {
        const int page = std::max(screen->rows() - head - 2, 1);
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
        switch (key) {
        case keyUp:
            --scroll;
            break;
        case keyDown:
            ++scroll;
            break;
        case keyPageUp:
            scroll -= page;
            break;
        case keyPageDown:
            scroll += page;
            break;
        case keyHome:
            scroll = 0;
            break;
        case keyEnd:
            scroll = static_cast<int>(rows.count());
            break;
        case ESCAPE_KEY:
            filterText.clear();
            break;
        case 'q':
        case 'Q':
            leaving = true;
            break;
        case 's':
            sort = sort == SortBy::id ? SortBy::value : sort == SortBy::value ? SortBy::rate : SortBy::id;
            scroll = 0;
            break;
        case 'r':
            reverse = !reverse;
            break;
        case '/':
            typing = true;
            break;
        case 'p':
        case ' ':
            paused = !paused;
            follower.pause(paused);
            break;
        case '+':
        case '=':
            setInterval(std::max(interval, *std::upper_bound(INTERVALS.begin(), INTERVALS.end() - 1, interval)));
            break;
        case '-':
            setInterval(std::min(
                interval, *std::upper_bound(INTERVALS.rbegin(), INTERVALS.rend() - 1, interval, std::greater())));
            break;
        case 'h':
        case '?':
            help = true;
            break;
        default:
            break;
        }
    }

    void type(int key) {
        if (key == ENTER_KEY || key == ESCAPE_KEY) {
            typing = false;
            filterText = key == ESCAPE_KEY ? "" : filterText;
        } else if (key == CLEAR_KEY) {
            filterText.clear();
        } else if (key == BACKSPACE_KEY && !filterText.empty()) {
            filterText.pop_back();
        } else if (key >= ' ' && key < BACKSPACE_KEY) {
            filterText += static_cast<char>(key);
        }
        scroll = 0;
    }

    void setInterval(double seconds) {
        interval = seconds;
        follower.setInterval(Milliseconds(static_cast<long>(seconds * 1000)), Clock::now());
    }

    std::string state() const {
        const double waited = std::chrono::duration<double>(Clock::now() - follower.began()).count();
        if (paused) {
            return lost.empty() ? "paused" : "paused, no connection, last values: " + lost;
        }
        if (!lost.empty()) {
            const double left = std::chrono::duration<double>(follower.nextAttempt() - Clock::now()).count();
            return follower.busy() ? "trying again: " + lost
                                   : fmt::format("next attempt in {:.0f} s: {}", std::max(left, 0.0), lost);
        }
        if (follower.busy() && (waited >= 1 || !last)) {
            return fmt::format("waiting {:.0f} s: {}", waited,
                               escapeForTerminal(describeWait(follower.phase(), query)));
        }
        return last && rows.count() == 0 ? "connected; nothing matches what was asked for" : "connected";
    }

    void draw() {
        screen->clear();
        const std::string protocol = last ? "  protocol " + escapeForTerminal(last->protocol) : "";
        const std::string time = last ? "  " + clockTime(last->wallTime) : "";
        screen->put(0, 0,
                    fmt::format("zulstat {}{}{}  every {} s", escapeForTerminal(targetText(options.target)), protocol,
                                time, interval),
                    Style::bold);
        head = 1;
        for (const std::string& line : wrapToWidth(state(), static_cast<std::size_t>(std::max(screen->columns(), 1)))) {
            screen->put(head++, 0, line, lost.empty() ? Style::normal : Style::bad);
        }
        if (help) {
            for (std::size_t line = 0; line < HELP_LINES.size(); ++line) {
                screen->put(head + 1 + static_cast<int>(line), 2, HELP_LINES[line]);
            }
        } else {
            drawRows();
        }
        screen->update();
    }

    void drawRows() {
        const std::vector<const TopRow*> shown = rows.select(sort, reverse, filterText);
        const int room = std::max(screen->rows() - head - 2, 0);
        const int count = static_cast<int>(shown.size());
        scroll = std::clamp(scroll, 0, std::max(count - room, 0));

        const auto columns = static_cast<std::size_t>(std::max(screen->columns(), 0));
        std::size_t idWidth = 10;
        std::size_t valueWidth = 10;
        for (const TopRow* row : shown) {
            idWidth = std::max(idWidth, columnWidth(row->id));
            valueWidth = std::max(valueWidth, columnWidth(row->value));
        }
        const std::size_t fixed = idWidth + RATE_WIDTH + SPARK_WIDTH + 6;
        valueWidth = std::min(valueWidth, std::max<std::size_t>(columns > fixed ? columns - fixed : 0, 24));
        const std::size_t others = valueWidth + RATE_WIDTH + SPARK_WIDTH + 6;
        idWidth = std::min(idWidth, std::max<std::size_t>(columns > others ? columns - others : 0, 16));
        const int valueColumn = static_cast<int>(idWidth) + 2;
        const int rateColumn = valueColumn + static_cast<int>(valueWidth) + 2;
        const int sparkColumn = rateColumn + static_cast<int>(RATE_WIDTH) + 2;
        const auto mark = [&](SortBy column, const char* name) {
            return std::string(name) + (sort != column ? "" : reverse ? " ^" : " v");
        };
        screen->put(head, 0, std::string(columns, ' '), Style::header);
        screen->put(head, 0, mark(SortBy::id, "ID"), Style::header);
        screen->put(head, valueColumn, padLeft(mark(SortBy::value, "VALUE"), valueWidth), Style::header);
        screen->put(head, rateColumn, padLeft(mark(SortBy::rate, "RATE"), RATE_WIDTH), Style::header);
        screen->put(head, sparkColumn, "HISTORY", Style::header);
        for (int line = 0; line < room && scroll + line < count; ++line) {
            const TopRow& row = *shown[static_cast<std::size_t>(scroll + line)];
            const Style style = row.failed ? Style::bad : lost.empty() ? Style::normal : Style::dim;
            screen->put(head + 1 + line, 0, cutToWidth(row.id, idWidth), style);
            screen->put(head + 1 + line, valueColumn, padLeft(cutToWidth(row.value, valueWidth), valueWidth), style);
            screen->put(head + 1 + line, rateColumn, padLeft(row.rate, RATE_WIDTH), style);
            if (row.number) {
                screen->put(head + 1 + line, sparkColumn, sparkline(row.history, SPARK_WIDTH, userHasUtf8()), style);
            }
        }
        drawFooter(shown.size(), room);
    }

    void drawFooter(std::size_t shown, int room) {
        const int row = screen->rows() - 1;
        if (typing) {
            screen->put(row, 0, "filter: " + filterText + "_  (Enter keeps it, Esc clears it)", Style::bold);
            return;
        }
        std::string text = "q leave  s sort  r reverse  / filter  p pause  + - interval  h help";
        if (static_cast<int>(shown) > room) {
            text += fmt::format("  {}-{} of {}", scroll + 1, scroll + room, shown);
        }
        if (!filterText.empty()) {
            text = fmt::format("filter {}: {} of {} (Esc clears it)  ", filterText, shown, rows.count()) + text;
        }
        screen->put(row, 0, text, Style::dim);
    }

    const Options& options;
    const Subject subject;
    const Query query;
    double interval;
    TopRows rows;
    Follower follower;
    std::unique_ptr<Screen> screen;

    std::optional<Sample> last;
    std::string lost;  // why there is no connection; empty while there is one
    std::string filterText;
    SortBy sort = SortBy::id;
    int scroll = 0;
    int head = 2;  // the row of the column titles, below title and state
    bool reverse = false;
    bool paused = false;
    bool typing = false;
    bool help = false;
    bool leaving = false;
};

}  // namespace

int runTop(const Options& options) {
    options.refuseTraceOnScreen();
    return Top(options).run();
}

}  // namespace zulstat
