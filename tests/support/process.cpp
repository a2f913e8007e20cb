#include "process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>

namespace support {

namespace {

constexpr int THREW = 254;

int entriesOf(const char* directory) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

}  // namespace

int runInChild(const std::function<int()>& work, unsigned seconds) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        alarm(seconds);
        try {
            _exit(work());
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
            _exit(THREW);
        }
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "waitpid");
        }
    }
    if (WIFSIGNALED(status)) {
        return -100 - WTERMSIG(status);
    }
    return WEXITSTATUS(status) == THREW ? -1 : WEXITSTATUS(status);
}

void expectInChild(const std::function<int()>& work) {
    EXPECT_EQ(runInChild(work), 0);
}

int openDescriptors() {
    return entriesOf("/proc/self/fd") - 1;  // the one that reads the directory is always among them
}

int runningThreads() {
    return entriesOf("/proc/self/task");
}

int fallenTo(int count, int (*current)()) {
    constexpr int ATTEMPTS = 5000;
    int now = current();
    for (int i = 0; i < ATTEMPTS && now > count; ++i) {
        usleep(2000);
        now = current();
    }
    return now;
}

}  // namespace support
