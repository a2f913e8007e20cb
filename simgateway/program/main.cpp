// zulstat-sim: the simulated Gateway as a program.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "arguments.h"
#include "simgateway/sim_gateway.h"

namespace {

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The file appears whole or not at all: whoever finds it can read the port from it. Its draft is a new file, whatever
// others have put into a directory that they can write.
void writePortFile(const std::string& name, std::uint16_t port) {
    const std::string draft = name + "." + std::to_string(getpid()) + ".tmp";
    const int descriptor = open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
    if (file == nullptr) {
        throwErrno(draft);
    }
    const bool written = std::fprintf(file, "%u\n", static_cast<unsigned>(port)) > 0;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(draft.c_str(), name.c_str()) != 0) {
        const int error = errno;
        std::remove(draft.c_str());
        errno = error;
        throwErrno(name);
    }
}

void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

simgateway::Server listening(const simgateway::Options& options) {
    try {
        return simgateway::Server(options);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::address_in_use && error.code() != std::errc::permission_denied) {
            throw;
        }
        throw std::runtime_error(std::string(error.what()) + "; --port 0 takes any free one");
    }
}

int serve(const zulstatsim::Arguments& arguments) {
    // Blocked before the first thread starts, so that every thread inherits the mask and only sigwait sees them.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    simgateway::Server server = listening(arguments.options);
    if (!arguments.portFile.empty()) {
        writePortFile(arguments.portFile, server.port());
    }
    print("listening on 127.0.0.1:" + std::to_string(server.port()) + "\n");
    int signal = 0;
    while (sigwait(&ending, &signal) != 0) {
    }
    server.stop();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const zulstatsim::Arguments arguments =
            zulstatsim::parseArguments(std::vector<std::string>(argv + 1, argv + argc));
        if (arguments.help || arguments.version) {
            print(arguments.help ? zulstatsim::helpText : zulstatsim::versionText);
            return EXIT_SUCCESS;
        }
        return serve(arguments);
    } catch (const zulstatsim::UsageError& error) {
        std::fprintf(stderr, "zulstat-sim: %s\nTry 'zulstat-sim --help'.\n", error.what());
        return exitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zulstat-sim: %s\n", error.what());
        return exitFailure;
    }
}
