// A recording of samples that a Gateway gave, as scenes of a simulated one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "simgateway/sim_gateway.h"

namespace zulstatsim {

// Whether the program was built with what reads recordings; without it readRecording() is not there.
inline constexpr bool CAN_REPLAY = ZULSTAT_SIM_REPLAY != 0;

// Reads a file of JSON lines, a sample each. The scenes begin with the first sample, and a failed one has no model; the
// last one stays, or with `loop` the first follows it after as long a time as lies between the last two. Throws
// std::runtime_error, which names the file and the line.
//
// `passedOver` becomes the number of lines that are no whole sample, as a recorder leaves them that was killed.
std::function<simgateway::Scene(double)> readRecording(const std::string& file, bool loop,
                                                       std::uint64_t* passedOver = nullptr);

}  // namespace zulstatsim
