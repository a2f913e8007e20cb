// What curses writes.
#pragma once

#include <cstdio>
#include <functional>

namespace zulstat {

// Curses waits for a terminal that takes no output, and goes on waiting after a signal. So it gets a stream whose
// descriptor is the terminal, for sizes and modes, but a file in memory while it draws; from there the bytes go to
// standard output, with a wait that a signal ends.
class CursesOutput {
public:
    // Throws std::system_error.
    CursesOutput();
    ~CursesOutput();
    CursesOutput(const CursesOutput&) = delete;
    CursesOutput& operator=(const CursesOutput&) = delete;

    // For newterm(). Call delscreen() before this record ends.
    std::FILE* stream() const {
        return file;
    }
    // Calls `work`, and writes what curses wrote meanwhile. What cannot be written is lost: a terminal that has gone
    // shows at standard input, a signal at interrupted().
    void write(const std::function<void()>& work);

private:
    int memory = -1;
    std::FILE* file = nullptr;
};

}  // namespace zulstat
