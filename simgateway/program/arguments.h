// The command line of zulstat-sim.
#pragma once

#include <string>
#include <vector>

#include "fault_words.h"
#include "simgateway/sim_gateway.h"
#include "usage_error.h"

namespace zulstatsim {

struct Arguments {
    simgateway::Options options;  // of the first Gateway
    std::size_t gateways = 1;
    std::vector<FaultOrder> faults;
    std::string replay;    // name of a recording; empty for none
    bool loop = false;     // start the recording again at its end
    std::string portFile;  // empty for none
    bool help = false;
    bool version = false;
    std::string ownFigures;  // an option for the made-up figures that was given
};

// Reads the words after the program's name. Throws UsageError; for a file of a fault that cannot be read,
// std::runtime_error.
Arguments parseArguments(const std::vector<std::string>& words);

// Throws UsageError for an order to a Gateway that is not there.
void checkGateway(const FaultOrder& order, std::size_t gateways);

std::string helpText();
extern const char* const versionText;

}  // namespace zulstatsim
