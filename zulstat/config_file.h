// What users and administrators keep in zulstat.yaml: options, targets and selections with names.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zulstat {

struct Setting {
    std::string value;  // as an option takes it
    std::string place;  // "FILE:LINE"
};

struct NamedTargets {
    std::vector<std::string> words;  // each as -H takes it
    std::string place;
};

struct Selection {
    std::vector<std::string> ids;  // identifiers and globs
    std::vector<std::string> groups;
    std::string place;
};

// All files together: what a file has wins over the same name in a later one.
struct Config {
    std::map<std::string, Setting> options;  // by long name
    std::map<std::string, NamedTargets> targets;
    std::map<std::string, Selection> selections;
};

// Where the files may be, the one that wins first: of the user, of the directories of XDG_CONFIG_DIRS, of the system.
std::vector<std::string> configPaths();

// The options that a file may have: those that fit every command.
const std::vector<std::string>& configOptions();

// Reads the files that are there. Throws UsageError, with file, line and column, for one that cannot be read or is not
// right.
Config readConfig();

}  // namespace zulstat
