// The Gateways of the program.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "arguments.h"
#include "fault_words.h"
#include "simgateway/sim_gateway.h"

namespace zulstatsim {

// Every member but the constructor may be called from any thread.
class Gateways {
public:
    // Opens them, with the faults of the arguments. Throws std::runtime_error when one cannot listen.
    explicit Gateways(const Arguments& arguments);

    std::vector<std::uint16_t> ports() const;
    // Throws UsageError for a Gateway that is not there.
    void give(const FaultOrder& order);
    void stop();

private:
    std::vector<std::unique_ptr<simgateway::Server>> servers;
};

}  // namespace zulstatsim
