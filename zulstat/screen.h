// The terminal as a full screen with keys.
#pragma once

#include <termios.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "curses_output.h"
#include "frame.h"

namespace zulstat {

// One at a time. The destructor restores the terminal.
class Screen {
public:
    // Throws UsageError where standard input and output are no terminal that can do this.
    explicit Screen(bool color);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    std::size_t rows() const;
    std::size_t columns() const;

    // Ends early when a signal comes while the terminal takes no output.
    void show(const Frame& frame);

    // The next key, an ASCII character or one of keys.h, if one was pressed. Poll standard input for more.
    std::optional<int> key();

private:
    void drawPieces(const std::vector<Piece>& pieces) const;

    CursesOutput output;
    termios modes{};  // as they were before
    bool color = false;
    std::vector<std::vector<Piece>> shown;  // by row
    std::size_t shownColumns = 0;
};

}  // namespace zulstat
