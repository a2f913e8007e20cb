// Keys of the terminal.
#pragma once

namespace zulstat {

// Those that are no ASCII characters.
enum Key : int {
    keyUp = 0x100,
    keyDown,
    keyLeft,
    keyRight,
    keyPageUp,
    keyPageDown,
    keyHome,
    keyEnd,
    keyResize,
    keyOther
};
inline constexpr int ENTER_KEY = '\r';
inline constexpr int ESCAPE_KEY = 0x1B;
inline constexpr int CLEAR_KEY = 0x15;  // Ctrl-U
inline constexpr int BACKSPACE_KEY = 0x7F;

}  // namespace zulstat
