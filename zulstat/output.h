// Standard output, with its errors.
#pragma once

#include <stdexcept>
#include <string_view>

namespace zulstat {

// Standard output has no reader any more: end quietly. main() turns it into exit code 0.
struct OutputClosed {};

// main() turns these into a message and exit code 6, or 130.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct Interrupted {};

// Writes to standard output, unbuffered, all of it. Throws OutputClosed, OutputError, or Interrupted when a signal
// came while the reader kept it waiting.
void print(std::string_view text);

}  // namespace zulstat
