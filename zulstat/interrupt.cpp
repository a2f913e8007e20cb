#include "interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <system_error>

namespace zulstat {

namespace {

std::array<int, 2> pipeEnds = {-1, -1};
volatile std::sig_atomic_t caught = 0;

void onSignal(int) {
    const int error = errno;
    caught = 1;
    // A full pipe is readable already.
    [[maybe_unused]] const ssize_t written = write(pipeEnds[1], "", 1);
    errno = error;
}

}  // namespace

void catchInterrupts() {
    if (pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction former {};
        sigaction(signal, nullptr, &former);
        if (former.sa_handler != SIG_IGN) {  // as a shell has it for a program in the background
            sigaction(signal, &action, nullptr);
        }
    }
}

int interruptDescriptor() {
    return pipeEnds[0];
}

bool interrupted() {
    return caught != 0;
}

bool sleepUnlessInterrupted(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (!interrupted()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return true;
        }
        pollfd watched = {interruptDescriptor(), POLLIN, 0};
        poll(&watched, 1, static_cast<int>(left.count()));
    }
    return false;
}

}  // namespace zulstat
