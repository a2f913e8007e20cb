// Text for standard output and standard error, written at once: streams are flushed when the process ends, whatever
// other threads do with them at that moment.
#pragma once

#include <cerrno>
#include <string_view>

#include <unistd.h>

namespace zulstatsim {

// Text that cannot be written is lost.
inline void writeText(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;
        }
    }
}

inline void print(std::string_view text) {
    writeText(STDOUT_FILENO, text);
}

inline void complain(std::string_view text) {
    writeText(STDERR_FILENO, text);
}

}  // namespace zulstatsim
