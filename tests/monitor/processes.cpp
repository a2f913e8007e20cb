#include "processes.h"

#include <poll.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace monitor {

bool eventually(const std::function<bool()>& holds) {
    const Clock::time_point end = Clock::now() + patience;
    bool held = holds();
    for (; !held && Clock::now() < end; held = holds()) {
        std::this_thread::sleep_for(Milliseconds(5));
    }
    return held;
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
