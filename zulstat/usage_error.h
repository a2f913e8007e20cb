// What is wrong with a command line.
#pragma once

#include <string>

namespace zulstat {

// main() prints it and ends with exitUsage, or the plugin's "unknown" for check.
struct UsageError {
    std::string text;
    std::string command = {};  // its name, where it is known
};

}  // namespace zulstat
