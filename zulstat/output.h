// Standard output, with its errors, and writes that a signal ends.
#pragma once

#include <cstdint>
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

enum class Written : std::uint8_t { all, closed, failed, interrupted };

// Writes all of the text. `interrupted` when a signal of interrupt.h came and the descriptor takes nothing more; one
// that does not wait takes the text also after a signal. `closed` without a reader, `failed` with errno.
Written writeAll(int descriptor, std::string_view text);

// Writes to standard output, unbuffered, all of it. Throws OutputClosed, OutputError, or Interrupted when a signal
// came while the reader kept it waiting.
void print(std::string_view text);

}  // namespace zulstat
