#include "control_lines.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <thread>
#include <utility>

#include <unistd.h>

#include "output.h"

namespace zulstatsim {

namespace {

constexpr std::size_t LONGEST_LINE = 65536;
constexpr unsigned BACKGROUND_SECONDS = 1;

void report(const std::string& text) {
    complain("zulstat-sim: " + text + "\n");
}

// Collects bytes to lines.
class Lines {
public:
    explicit Lines(std::function<void(const std::string&)> function) : take(std::move(function)) {
    }

    void add(char c) {
        if (c == '\n') {
            end();
        } else if (line.size() <= LONGEST_LINE) {
            line += c;
        }
    }

    void end() {
        if (line.size() > LONGEST_LINE) {
            report("a line on standard input is longer than " + std::to_string(LONGEST_LINE) + " bytes");
        } else if (const std::size_t begin = line.find_first_not_of(" \t\r"); begin != std::string::npos) {
            const std::string words = line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
            try {
                take(words);
            } catch (const std::exception& error) {
                report(words + ": " + error.what());
            }
        }
        line.clear();
    }

private:
    const std::function<void(const std::string&)> take;
    std::string line;
};

void readAll(Lines lines) {
    char chunk[4096];
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (got > 0) {
            std::for_each(chunk, chunk + got, [&](char c) { lines.add(c); });
        } else if (got < 0 && errno == EIO) {
            ::sleep(BACKGROUND_SECONDS);  // the terminal belongs to other processes for now
        } else if (got == 0 || errno != EINTR) {
            lines.end();
            return;
        }
    }
}

}  // namespace

void readControlLines(std::function<void(const std::string&)> take) {
    // A process in the background that reads its terminal would be stopped as a whole; so it gets an error.
    std::signal(SIGTTIN, SIG_IGN);
    std::thread(readAll, Lines(std::move(take))).detach();
}

}  // namespace zulstatsim
