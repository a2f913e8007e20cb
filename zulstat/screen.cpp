#include "screen.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <string>

#include "charset.h"
#include "terminal.h"
#include "usage_error.h"

#define NCURSES_NOMACROS
#include <curses.h>

namespace zulstat {

namespace {

constexpr short RED_PAIR = 1;

SCREEN* terminal = nullptr;
WINDOW* keys = nullptr;  // a pad, as reading a key from a window draws that first

// Signals that would end the program with the terminal as it is become one that ends it in order.
void endInOrder(int) {
    raise(SIGTERM);
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

int Screen::rows() const {
    return getmaxy(stdscr);
}

int Screen::columns() const {
    return getmaxx(stdscr);
}

void Screen::clear() {
    ::werase(stdscr);
}

void Screen::put(int row, int column, std::string_view text, Style style) {
    if (row < 0 || row >= rows() || column >= columns()) {
        return;
    }
    const std::string cut = inUsersCharacters(cutToWidth(text, static_cast<std::size_t>(columns() - column)));
    const UsersLocale locale;
    const attr_t red = color ? static_cast<attr_t>(COLOR_PAIR(RED_PAIR)) : A_BOLD;
    const attr_t attributes = style == Style::bold     ? A_BOLD
                              : style == Style::dim    ? A_DIM
                              : style == Style::header ? A_REVERSE
                              : style == Style::bad    ? red
                                                       : A_NORMAL;
    wattron(stdscr, static_cast<int>(attributes));
    mvwaddstr(stdscr, row, column, cut.c_str());
    wattroff(stdscr, static_cast<int>(attributes));
}

void Screen::update() {
    const UsersLocale locale;
    output.write([] { wrefresh(stdscr); });
}

std::optional<int> Screen::key() {
    static const std::map<int, int> known = {
        {KEY_UP, keyUp},     {KEY_DOWN, keyDown},   {KEY_PPAGE, keyPageUp},         {KEY_NPAGE, keyPageDown},
        {KEY_HOME, keyHome}, {KEY_END, keyEnd},     {KEY_RESIZE, keyResize},        {KEY_ENTER, ENTER_KEY},
        {'\n', ENTER_KEY},   {'\b', BACKSPACE_KEY}, {KEY_BACKSPACE, BACKSPACE_KEY},
    };
    const int code = wgetch(keys);
    if (code == ERR) {
        return std::nullopt;
    }
    const auto place = known.find(code);
    return place != known.end() ? place->second : code < 0x80 ? code : keyOther;
}

}  // namespace zulstat
