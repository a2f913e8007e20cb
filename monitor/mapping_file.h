// The mapping file: which targets there are and may be, and what their statistics become. YAML.
#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "mapping.h"

namespace monitor {

struct ConfiguredTarget {
    std::string target;  // host:port
    std::string module = "default";
    std::vector<std::pair<std::string, std::string>> labels;
};

struct MappingFile {
    std::vector<std::string> allow;  // as the file has them
    std::vector<ConfiguredTarget> targets;
    std::map<std::string, std::shared_ptr<const Module>> modules;  // "default" is always there
};

// "FILE:LINE:COLUMN: what is wrong there, and what was expected", or "FILE: ...".
struct MappingFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Whether a word of `allow`, a host and port of `targets` is one; given by the program, which knows them. Each returns
// what was expected where it is not, and else nothing.
struct MappingChecks {
    std::string (*allow)(const std::string& text) = nullptr;
    std::string (*target)(const std::string& text) = nullptr;
};

// What a file holds, at most 4 MiB. Throws MappingFileError.
std::string contentOf(const std::string& path);

// Both throw MappingFileError. `name` is the file's, for messages.
MappingFile parseMapping(const std::string& text, const std::string& name, const MappingChecks& checks = {});
MappingFile readMappingFile(const std::string& path, const MappingChecks& checks = {});

}  // namespace monitor
