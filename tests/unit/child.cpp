#include "child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

namespace unittest {

namespace {

constexpr int THREW = 254;

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

}  // namespace unittest
