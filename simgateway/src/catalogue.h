// The resource groups of the simulated daemon and the statistics in them.
#pragma once

#include <cstdint>
#include <vector>

#include "simgateway/model.h"

namespace simgateway {

// Exactly `statistics` of them, in a fixed order: a smaller number cuts the last groups, one above 150 adds servers.
std::vector<ResourceGroup> makeCatalogue(std::uint64_t seed, int statistics);

}  // namespace simgateway
