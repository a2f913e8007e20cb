// Lines on standard input while the program runs.
#pragma once

#include <functional>
#include <string>

namespace zulstatsim {

// Reads standard input to its end, in a thread of its own, and hands over each line that is not blank. What the
// function throws, and a line too long to be one, is told on standard error. The thread ends with the input or the
// process.
void readControlLines(std::function<void(const std::string&)> take);

}  // namespace zulstatsim
