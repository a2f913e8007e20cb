#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "interrupt.h"

namespace zulstat {

void print(std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(STDOUT_FILENO, text.data(), text.size());
        if (size >= 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
            continue;
        }
        if (errno == EPIPE) {
            throw OutputClosed();
        } else if (errno == EAGAIN) {
            pollfd watched = {STDOUT_FILENO, POLLOUT, 0};
            poll(&watched, 1, -1);
        } else if (errno != EINTR) {
            throw OutputError(std::string("cannot write the output: ") + std::strerror(errno));
        }
        if (interrupted()) {
            throw Interrupted();
        }
    }
}

}  // namespace zulstat
