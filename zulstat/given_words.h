// The words of a command line, before they are parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <set>
#include <string>
#include <vector>

namespace zulstat {

struct GivenWords {
    std::vector<std::string> targets;     // names that stand before the command, each behind an '@'
    std::set<const CLI::Option*> global;  // the options of all commands that are there
};

// Takes the names of targets out of the words. `app` knows which options have a value.
GivenWords takeTargets(const CLI::App& app, std::vector<std::string>& words);

}  // namespace zulstat
