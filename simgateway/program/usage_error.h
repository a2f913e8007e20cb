// Words that the program does not take.
#pragma once

#include <stdexcept>

namespace zulstatsim {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace zulstatsim
