#include "terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "charset.h"
#include "text.h"

namespace zulstat {

TerminalSize terminalSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

bool canRedraw() {
    const char* const type = std::getenv("TERM");
    const std::string_view name = type == nullptr ? "" : type;
    return isatty(STDOUT_FILENO) == 1 && !name.empty() && name != "dumb";
}

std::string cutToWidth(std::string_view text, std::size_t columns) {
    std::size_t end = 0;
    std::size_t width = 0;
    while (end < text.size()) {
        std::size_t next = end + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0) == 0x80) {
            ++next;
        }
        width += columnWidth(text.substr(end, next - end));
        if (width > columns) {
            break;
        }
        end = next;
    }
    return std::string(text.substr(0, end));
}

std::string cutWithMark(std::string_view text, std::size_t columns) {
    std::string cut = cutToWidth(text, columns);
    if (cut.size() == text.size() || columns == 0) {
        return cut;
    }
    return cutToWidth(cut, columns - 1) + (userHas(U'…') ? "…" : "~");
}

std::vector<std::string> wrapToWidth(std::string_view text, std::size_t columns) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        std::string line = cutToWidth(text, std::max<std::size_t>(columns, 1));
        if (line.empty()) {
            line = text;  // a wide character in a narrow window
        }
        const std::size_t blank = line.size() < text.size() ? line.rfind(' ') : std::string::npos;
        if (blank != std::string::npos && blank > 0) {
            line.resize(blank);
        }
        text.remove_prefix(line.size());
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        lines.push_back(std::move(line));
    }
    return lines;
}

std::string clockTime(double wallTime) {
    const std::time_t whole = static_cast<std::time_t>(wallTime);
    std::tm fields{};
    localtime_r(&whole, &fields);
    return fmt::format("{:02}:{:02}:{:02}", fields.tm_hour, fields.tm_min, fields.tm_sec);
}

std::string dateAndTime(double wallTime) {
    const std::time_t whole = static_cast<std::time_t>(wallTime);
    std::tm fields{};
    localtime_r(&whole, &fields);
    return fmt::format("{:04}-{:02}-{:02} ", fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday) +
           clockTime(wallTime);
}

}  // namespace zulstat
