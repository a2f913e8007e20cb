// The terminal as a full screen with keys.
#pragma once

#include <termios.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "curses_output.h"

namespace zulstat {

enum class Style : std::uint8_t { normal, bold, dim, header, bad };

// Keys that are no ASCII characters.
enum Key : int { keyUp = 0x100, keyDown, keyPageUp, keyPageDown, keyHome, keyEnd, keyResize, keyOther };
inline constexpr int ENTER_KEY = '\r';
inline constexpr int ESCAPE_KEY = 0x1B;
inline constexpr int CLEAR_KEY = 0x15;  // Ctrl-U
inline constexpr int BACKSPACE_KEY = 0x7F;

// One at a time. The destructor restores the terminal.
class Screen {
public:
    // Throws UsageError where standard input and output are no terminal that can do this.
    explicit Screen(bool color);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int rows() const;
    int columns() const;

    void clear();
    // Cut at the right edge. The text has no control characters.
    void put(int row, int column, std::string_view text, Style style = Style::normal);
    // Ends early when a signal comes while the terminal takes no output.
    void update();

    // The next key, an ASCII character or a Key, if one was pressed. Poll standard input for more.
    std::optional<int> key();

private:
    CursesOutput output;
    termios modes{};  // as they were before
    bool color = false;
};

}  // namespace zulstat
