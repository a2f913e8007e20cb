// What a test looks up of processes, and waits for.
#pragma once

#include "monitor/collector.h"

namespace monitor {

inline constexpr std::chrono::seconds patience(20);  // more than anything here takes

// Waits until it holds; false when patience ends before.
bool eventually(const std::function<bool()>& holds);

std::vector<pid_t> children();  // of this process, those that nobody waited for included
bool alive(pid_t process);      // defunct ones are not
// The value of a line of /proc/PID/status, "NoNewPrivs" for example.
std::string statusOf(pid_t process, const std::string& name);

// Sets a variable of the environment, and at its end what was there before.
class Variable {
public:
    Variable(const char* name, const std::string& value);
    ~Variable();
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name;
    std::string former;
    bool wasSet;
};

CollectorOptions to(int port);  // 127.0.0.1, with the real worker

// Lets the worker go on until it is at the phase; false where the query ended before.
bool reaches(Collector& collector, Phase phase);

}  // namespace monitor
