// The commands and options: the one table from which the command line is read and its help and completions are made.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace zulstat {

inline constexpr double LONGEST_TIME = 86400;  // seconds
inline constexpr double SHORTEST_INTERVAL = 0.05;

// What the command line has before it becomes Options.
struct Words {
    std::vector<std::string> hosts = {monitor::Target{}.host};
    int port = monitor::Target{}.port;
    std::string format;
    bool json = false;
    bool noHeader = false;
    bool noColor = false;
    bool noReconnect = false;
    std::vector<std::string> ids;
    std::vector<std::string> groups;
    std::string warning;
    std::string critical;
    std::string expected;
    bool rate = false;  // check
    bool delta = false;
    bool intervalGiven = false;
    std::string at;
    std::string to;
    std::string rotation;
    std::string map;
    std::string module;
};

// What the values of options are; the help shows these words behind their names, completions offer what fits.
inline constexpr const char* HOST_TYPE = "HOST";
inline constexpr const char* FILE_TYPE = "FILE";
inline constexpr const char* FORMAT_TYPE = "FORMAT";
inline constexpr const char* LEVEL_TYPE = "LEVEL";
inline constexpr const char* GLOB_TYPE = "GLOB";
inline constexpr const char* TIME_TYPE = "TIME";
inline constexpr const char* GROUPS_TYPE = "GROUP...";

// What stands behind the name of a positional argument that can be given more than once.
inline constexpr const char* SEVERAL_ARGUMENTS = "...";

std::optional<double> parseSeconds(std::string_view text);

// Fills an app made as CLI::App(description, "zulstat"); what is parsed goes to `options` and `words`, which must
// outlive it.
void declareCommandLine(CLI::App& app, Options& options, Words& words);

}  // namespace zulstat
