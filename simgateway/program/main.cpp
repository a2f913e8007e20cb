// zulstat-sim: the simulated Gateway as a program.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "arguments.h"
#include "control_lines.h"
#include "gateways.h"
#include "output.h"

namespace {

constexpr int EXIT_USAGE = 2;

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The file appears whole or not at all: whoever finds it can read the ports from it, one a line. Its draft is a new
// file, whatever others have put into a directory that they can write.
void writePortFile(const std::string& name, const std::vector<std::uint16_t>& ports) {
    const std::string draft = name + "." + std::to_string(getpid()) + ".tmp";
    const int descriptor = open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
    if (file == nullptr) {
        throwErrno(draft);
    }
    bool written = true;
    for (const unsigned port : ports) {
        written = std::fprintf(file, "%u\n", port) > 0 && written;
    }
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(draft.c_str(), name.c_str()) != 0) {
        const int error = errno;
        std::remove(draft.c_str());
        errno = error;
        throwErrno(name);
    }
}

// Descriptors 0 to 2 are nobody else's, even where the program was started without them.
void keepStandardDescriptors() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
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

    // The thread that reads control lines may outlive this function.
    const auto gateways = std::make_shared<zulstatsim::Gateways>(arguments);
    const std::vector<std::uint16_t> ports = gateways->ports();
    if (!arguments.portFile.empty()) {
        writePortFile(arguments.portFile, ports);
    }
    std::string lines;
    for (const std::uint16_t port : ports) {
        lines += "listening on 127.0.0.1:" + std::to_string(port) + "\n";
    }
    zulstatsim::print(lines);
    zulstatsim::readControlLines([gateways](const std::string& line) {
        gateways->give(zulstatsim::parseFaultOrder(line));
        zulstatsim::print("fault " + line + "\n");
    });
    int signal = 0;
    while (sigwait(&ending, &signal) != 0) {
    }
    gateways->stop();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    keepStandardDescriptors();
    try {
        const zulstatsim::Arguments arguments =
            zulstatsim::parseArguments(std::vector<std::string>(argv + 1, argv + argc));
        if (arguments.help || arguments.version) {
            zulstatsim::print(arguments.help ? zulstatsim::helpText() : zulstatsim::versionText);
            return EXIT_SUCCESS;
        }
        return serve(arguments);
    } catch (const zulstatsim::UsageError& error) {
        zulstatsim::complain("zulstat-sim: " + std::string(error.what()) + "\nTry 'zulstat-sim --help'.\n");
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        zulstatsim::complain("zulstat-sim: " + std::string(error.what()) + "\n");
        return EXIT_FAILURE;
    }
}
