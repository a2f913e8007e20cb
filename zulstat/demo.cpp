// zulstat demo.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

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
#include <vector>

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
constexpr const char* EXPORTER = "zulstat-exporter";
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
std::string findProgram(const char* name) {
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / name;
    return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : name;
}

// A program that ends with this record, and with this process if that is killed. It has a process group of its own:
// Ctrl-C ends it in order, after the display.
class Child {
public:
    Child(const char* name, const std::vector<std::string>& arguments) {
        const std::string program = findProgram(name);
        std::vector<const char*> words = {name};
        for (const std::string& argument : arguments) {
            words.push_back(argument.c_str());
        }
        words.push_back(nullptr);
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
    ~Child() {
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
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

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

// The file appears once the program listens.
std::optional<int> waitForPort(Child& program, const std::string& portFile) {
    const auto end = std::chrono::steady_clock::now() + START_LIMIT;
    while (program.running() && std::chrono::steady_clock::now() < end) {
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

int complainOf(Child& program, const std::string& name) {
    complain(name + (program.missing() ? " is neither beside zulstat nor in PATH" : " does not start"));
    return exitInternal;
}

// An exporter for the Gateway at the port, until a signal comes.
int serveWeb(const TemporaryDirectory& directory, int gatewayPort) {
    const std::string config = directory.path + "/exporter.yml";
    const std::string portFile = directory.path + "/web";
    const std::string target = "127.0.0.1:" + std::to_string(gatewayPort);
    std::ofstream(config) << "targets: [\"" << target << "\"]\n";
    Child server(EXPORTER,
                 {"-q", "--web.listen-address", "127.0.0.1:0", "--web.port-file", portFile, "--config.file", config});
    const std::optional<int> port = waitForPort(server, portFile);
    if (!port) {
        return complainOf(server, EXPORTER);
    }
    const std::string address = "http://127.0.0.1:" + std::to_string(*port);
    print("The page:   " + address + "/\nA scrape:   " + address + "/probe?target=" + target + "\nCtrl-C ends both.\n");
    while (server.running()) {
        if (!sleepUnlessInterrupted(std::chrono::milliseconds(200))) {
            return exitOk;
        }
    }
    return complainOf(server, EXPORTER);
}

}  // namespace

int runDemo(const Options& options) {
    auto directory = std::make_unique<TemporaryDirectory>();
    const std::string portFile = directory->path + "/port";
    Child gateway(SIMULATOR, {"--port", "0", "--port-file", portFile, "--speed", SPEED});
    const std::optional<int> port = waitForPort(gateway, portFile);
    if (!port) {
        return complainOf(gateway, SIMULATOR);
    }
    if (options.web) {
        return serveWeb(*directory, *port);
    }
    directory.reset();
    Options shown = options;
    shown.target = {"127.0.0.1", *port};
    shown.targets = {shown.target};
    const bool fullScreen = !options.format && canRedraw() && isatty(STDIN_FILENO) == 1;
    shown.command = fullScreen ? Command::top : Command::watch;
    return fullScreen ? runTop(shown) : runWatch(shown);
}

}  // namespace zulstat
