// zulstat demo.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "terminal.h"

namespace zulstat {

namespace {

namespace fs = std::filesystem;

constexpr const char* SIMULATOR = "zulstat-sim";
constexpr const char* SPEED = "20";  // model seconds per second
constexpr auto START_LIMIT = std::chrono::seconds(10);

class TemporaryDirectory {
public:
    TemporaryDirectory() : path((fs::temp_directory_path() / "zulstat-demo-XXXXXX").string()) {
        if (mkdtemp(path.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path;
};

// Beside this program, or else a name for PATH. In the build tree a link lies beside it.
std::string findSimulator() {
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / SIMULATOR;
    return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : SIMULATOR;
}

// A simulator that ends with this record, and with this process if that is killed. It has a process group of its own:
// Ctrl-C ends it in order, after the display.
class Simulator {
public:
    explicit Simulator(const std::string& portFile) {
        const std::string program = findSimulator();
        const std::array<const char*, 8> words = {SIMULATOR,        "--port",  "0",   "--port-file",
                                                  portFile.c_str(), "--speed", SPEED, nullptr};
        const pid_t parent = getpid();
        process = fork();
        if (process < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (process == 0) {
            setpgid(0, 0);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDIN_FILENO);
            dup2(null, STDOUT_FILENO);
            if (getppid() == parent) {
                execvp(program.c_str(), const_cast<char* const*>(words.data()));
            }
            _exit(errno == ENOENT ? NOT_FOUND : exitInternal);
        }
    }
    ~Simulator() {
        if (running()) {
            kill(process, SIGTERM);
            for (int tries = 0; tries < 100 && running(); ++tries) {
                usleep(10000);
            }
        }
        if (running()) {
            kill(process, SIGKILL);
            while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool running() {
        if (process > 0 && waitpid(process, &status, WNOHANG) == process) {
            process = -1;
        }
        return process > 0;
    }
    bool missing() const {
        return process < 0 && WIFEXITED(status) && WEXITSTATUS(status) == NOT_FOUND;
    }

private:
    static constexpr int NOT_FOUND = 127;
    pid_t process = -1;
    int status = 0;
};

// The file appears once the simulator listens.
std::optional<int> waitForPort(Simulator& gateway, const std::string& portFile) {
    const auto end = std::chrono::steady_clock::now() + START_LIMIT;
    while (gateway.running() && std::chrono::steady_clock::now() < end) {
        int port = 0;
        if (std::ifstream(portFile) >> port) {
            return port;
        }
        if (!sleepUnlessInterrupted(std::chrono::milliseconds(10))) {
            throw Interrupted();
        }
    }
    return std::nullopt;
}

}  // namespace

int runDemo(const Options& options) {
    auto directory = std::make_unique<TemporaryDirectory>();
    const std::string portFile = directory->path + "/port";
    Simulator gateway(portFile);
    const std::optional<int> port = waitForPort(gateway, portFile);
    directory.reset();
    if (!port) {
        complain(gateway.missing() ? "zulstat-sim is neither beside zulstat nor in PATH"
                                   : "zulstat-sim does not start");
        return exitInternal;
    }
    Options shown = options;
    shown.target = {"127.0.0.1", *port};
    const bool fullScreen = !options.format && canRedraw() && isatty(STDIN_FILENO) == 1;
    shown.command = fullScreen ? Command::top : Command::watch;
    return fullScreen ? runTop(shown) : runWatch(shown);
}

}  // namespace zulstat
