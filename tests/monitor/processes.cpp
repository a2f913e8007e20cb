#include "processes.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace monitor {

bool eventually(const std::function<bool()>& holds) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all))) - 1;  // without the one for looking
}

std::vector<pid_t> children() {
    std::vector<pid_t> all;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "children");
        all.insert(all.end(), std::istream_iterator<pid_t>(file), {});
    }
    return all;
}

std::string statusOf(pid_t process, const std::string& name) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (file >> word) {
        std::string rest;
        std::getline(file >> std::ws, rest);
        if (word == name + ":") {
            return rest;
        }
    }
    return {};
}

bool alive(pid_t process) {
    const std::string state = statusOf(process, "State");
    return !state.empty() && state[0] != 'Z' && state[0] != 'X';
}

int unusedPort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(probe, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
    close(probe);
    return ntohs(address.sin_port);
}

Variable::Variable(const char* variable, const std::string& value)
    : name(variable), wasSet(std::getenv(variable) != nullptr) {
    former = wasSet ? std::getenv(variable) : "";
    setenv(name, value.c_str(), 1);
}

Variable::~Variable() {
    if (wasSet) {
        setenv(name, former.c_str(), 1);
    } else {
        unsetenv(name);
    }
}

CollectorOptions to(int port) {
    CollectorOptions options;
    options.target.port = port;
    options.worker = WORKER_PROGRAM;
    return options;
}

bool reaches(Collector& collector, Phase phase) {
    const Clock::time_point end = Clock::now() + patience;
    while (collector.phase() != phase && Clock::now() < end) {
        pollfd watched = {collector.descriptor(), POLLIN, 0};
        poll(&watched, 1, 100);
        if (collector.advance(Clock::now())) {
            return false;
        }
    }
    return collector.phase() == phase;
}

}  // namespace monitor
