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
constexpr std::size_t PIECE_SIZE = PIPE_BUF;

// Returns false when a signal came first.
bool waitForReader(int descriptor) {
    std::array<pollfd, 2> watched = {{{descriptor, POLLOUT, 0}, {interruptDescriptor(), POLLIN, 0}}};
    while (watched[0].revents == 0) {
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents == 0 && interrupted()) {
            return false;
        }
    }
    return true;
}

}  // namespace

Written writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        if (!waitForReader(descriptor)) {
            return Written::interrupted;
        }
        // A terminal that is ready may take a part of the piece only and keep the program waiting with the rest.
        const ssize_t size = write(descriptor, text.data(), std::min(text.size(), PIECE_SIZE));
        if (size >= 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno == EINTR && interrupted()) {
            return Written::interrupted;
        } else if (errno != EAGAIN && errno != EINTR) {
            return errno == EPIPE ? Written::closed : Written::failed;
        }
    }
    return Written::all;
}

void print(std::string_view text) {
    switch (writeAll(STDOUT_FILENO, text)) {
    case Written::all:
        return;
    case Written::closed:
        throw OutputClosed();
    case Written::interrupted:
        throw Interrupted();
    case Written::failed:
        break;
    }
    throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
}

}  // namespace zulstat
