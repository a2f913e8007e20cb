// The command line of zulstat-sim.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "simgateway/sim_gateway.h"

namespace zulstatsim {

struct Arguments {
    simgateway::Options options;
    std::string portFile;  // empty for none
    bool help = false;
    bool version = false;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Reads the words after the program's name. Throws UsageError.
Arguments parseArguments(const std::vector<std::string>& words);

extern const char* const helpText;
extern const char* const versionText;

}  // namespace zulstatsim
