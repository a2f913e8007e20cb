#include "curses_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

#include "output.h"

namespace zulstat {

CursesOutput::CursesOutput() : memory(memfd_create("zulstat-screen", MFD_CLOEXEC)) {
    const int terminal = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    file = terminal < 0 ? nullptr : fdopen(terminal, "w");
    if (memory < 0 || file == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot prepare the screen");
    }
}

CursesOutput::~CursesOutput() {
    std::fclose(file);
    close(memory);
}

void CursesOutput::write(const std::function<void()>& work) {
    // The handler of curses for Ctrl-Z needs the terminal.
    sigset_t stop;
    sigset_t former;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    sigprocmask(SIG_BLOCK, &stop, &former);
    dup3(memory, fileno(file), O_CLOEXEC);
    work();
    dup3(STDOUT_FILENO, fileno(file), O_CLOEXEC);
    sigprocmask(SIG_SETMASK, &former, nullptr);

    const off_t size = lseek(memory, 0, SEEK_CUR);
    std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    const ssize_t caught = pread(memory, text.data(), text.size(), 0);
    text.resize(caught > 0 ? static_cast<std::size_t>(caught) : 0);
    lseek(memory, 0, SEEK_SET);
    writeAll(STDOUT_FILENO, text);
}

}  // namespace zulstat
