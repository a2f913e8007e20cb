#include "interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <initializer_list>
#include <system_error>

namespace zulstat {

namespace {

std::array<int, 2> pipeEnds = {-1, -1};
volatile std::sig_atomic_t caught = 0;
timespec firstTime{};  // written once, by the handler

constexpr long MILLISECONDS_OF_ONE = 200;  // signals this close together are one

long millisecondsSince(const timespec& former) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (now.tv_sec - former.tv_sec) * 1000 + (now.tv_nsec - former.tv_nsec) / 1000000;
}

// A system call that began to wait just before or after the first signal is interrupted too.
void onAlarm(int) {
    alarm(1);
}

void onSignal(int number) {
    const int error = errno;
    if (caught == 0) {
        clock_gettime(CLOCK_MONOTONIC, &firstTime);
    } else if (millisecondsSince(firstTime) > MILLISECONDS_OF_ONE) {
        std::signal(number, SIG_DFL);
        raise(number);  // it comes when this handler ends
    }
    caught = 1;
    alarm(1);
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
    action.sa_handler = onAlarm;
    sigaction(SIGALRM, &action, nullptr);
    action.sa_handler = onSignal;
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
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
