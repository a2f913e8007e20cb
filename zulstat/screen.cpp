#include "screen.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <string>

#include "charset.h"
#include "keys.h"
#include "terminal.h"
#include "usage_error.h"

#define NCURSES_NOMACROS
#include <curses.h>

namespace zulstat {

namespace {

constexpr short RED_PAIR = 1;
constexpr short YELLOW_PAIR = 2;

SCREEN* terminal = nullptr;
WINDOW* keys = nullptr;  // a pad, as reading a key from a window draws that first

// Signals that would end the program with the terminal as it is become one that ends it in order.
void endInOrder(int) {
    raise(SIGTERM);
}

attr_t attributesOf(Style style, bool color) {
    const auto inColor = [&](short pair) { return color ? static_cast<attr_t>(COLOR_PAIR(pair)) | A_BOLD : A_BOLD; };
    switch (style) {
    case Style::bold:
    case Style::bright:
        return A_BOLD;
    case Style::dim:
        return A_DIM;
    case Style::header:
    case Style::selected:
        return A_REVERSE;
    case Style::bad:
        return inColor(RED_PAIR);
    case Style::notice:
        return inColor(YELLOW_PAIR);
    case Style::normal:
        break;
    }
    return A_NORMAL;
}

void catchOtherSignals() {
    for (const int number : {SIGHUP, SIGQUIT}) {
        if (std::signal(number, endInOrder) == SIG_IGN) {
            std::signal(number, SIG_IGN);
        }
    }
}

}  // namespace

Screen::Screen(bool useColor) {
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
        throw UsageError{"top needs a terminal; 'zulstat watch' works without"};
    }
    const UsersLocale locale;
    tcgetattr(STDOUT_FILENO, &modes);
    terminal = canRedraw() ? newterm(nullptr, output.stream(), stdin) : nullptr;
    if (terminal == nullptr) {
        throw UsageError{"top cannot use this terminal (TERM); 'zulstat watch' does not need it"};
    }
    catchOtherSignals();
    cbreak();
    noecho();
    set_escdelay(25);
    keys = newpad(1, 1);
    color = useColor && has_colors();
    output.write([this] {
        if (color) {
            start_color();
            use_default_colors();
            init_pair(RED_PAIR, COLOR_RED, -1);
            init_pair(YELLOW_PAIR, COLOR_YELLOW, -1);
        }
        keypad(keys, TRUE);
        nodelay(keys, TRUE);
        curs_set(0);
    });
}

Screen::~Screen() {
    // A slow terminal has some time to become ready, also after a signal.
    constexpr int patience = 200;
    pollfd ready = {STDOUT_FILENO, POLLOUT, 0};
    poll(&ready, 1, patience);
    const UsersLocale locale;
    output.write([] { endwin(); });
    tcsetattr(STDOUT_FILENO, TCSANOW, &modes);
    delwin(keys);
    delscreen(terminal);
    terminal = nullptr;
}

std::size_t Screen::rows() const {
    return static_cast<std::size_t>(std::max(getmaxy(stdscr), 0));
}

std::size_t Screen::columns() const {
    return static_cast<std::size_t>(std::max(getmaxx(stdscr), 0));
}

void Screen::show(const Frame& frame) {
    std::vector<std::vector<Piece>> pieces(rows());
    for (const Piece& piece : frame.pieces) {
        if (piece.row < pieces.size() && piece.column < columns()) {
            pieces[piece.row].push_back(piece);
        }
    }
    if (shown.size() != pieces.size() || shownColumns != columns()) {
        ::werase(stdscr);
        shown.assign(pieces.size(), {});
        shownColumns = columns();
    }
    for (std::size_t row = 0; row < pieces.size(); ++row) {
        if (pieces[row] != shown[row]) {
            wmove(stdscr, static_cast<int>(row), 0);
            wclrtoeol(stdscr);
            drawPieces(pieces[row]);
        }
    }
    shown = std::move(pieces);
    const UsersLocale locale;
    output.write([] { wrefresh(stdscr); });
}

void Screen::drawPieces(const std::vector<Piece>& pieces) const {
    for (const Piece& piece : pieces) {
        const std::string cut = inUsersCharacters(cutToWidth(piece.text, columns() - piece.column));
        const UsersLocale locale;
        const int attributes = static_cast<int>(attributesOf(piece.style, color));
        wattron(stdscr, attributes);
        mvwaddstr(stdscr, static_cast<int>(piece.row), static_cast<int>(piece.column), cut.c_str());
        wattroff(stdscr, attributes);
    }
}

std::optional<int> Screen::key() {
    static const std::map<int, int> known = {
        {KEY_UP, keyUp},
        {KEY_DOWN, keyDown},
        {KEY_LEFT, keyLeft},
        {KEY_RIGHT, keyRight},
        {KEY_PPAGE, keyPageUp},
        {KEY_NPAGE, keyPageDown},
        {KEY_HOME, keyHome},
        {KEY_END, keyEnd},
        {KEY_RESIZE, keyResize},
        {KEY_ENTER, ENTER_KEY},
        {'\n', ENTER_KEY},
        {'\b', BACKSPACE_KEY},
        {KEY_BACKSPACE, BACKSPACE_KEY},
    };
    const int code = wgetch(keys);
    if (code == ERR) {
        return std::nullopt;
    }
    const auto place = known.find(code);
    return place != known.end() ? place->second : code < 0x80 ? code : keyOther;
}

}  // namespace zulstat
