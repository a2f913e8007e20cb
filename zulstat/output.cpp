#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "interrupt.h"

namespace zulstat {

namespace {

// A pipe that is ready takes this much without a wait.
constexpr std::size_t pieceSize = PIPE_BUF;

void waitForReader() {
    std::array<pollfd, 2> watched = {{{STDOUT_FILENO, POLLOUT, 0}, {interruptDescriptor(), POLLIN, 0}}};
    while (watched[0].revents == 0) {
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents == 0 && interrupted()) {
            throw Interrupted();
        }
    }
}

}  // namespace

void print(std::string_view text) {
    while (!text.empty()) {
        waitForReader();
        const ssize_t size = write(STDOUT_FILENO, text.data(), std::min(text.size(), pieceSize));
        if (size >= 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno == EPIPE) {
            throw OutputClosed();
        } else if (errno != EAGAIN && errno != EINTR) {
            throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
        }
    }
}

}  // namespace zulstat
