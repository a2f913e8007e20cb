// YAML files, with complaints that name file, line and column.
#pragma once

#include <yaml-cpp/yaml.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace monitor {

// "FILE:LINE:COLUMN: what is wrong there, and what was expected", or "FILE: ...".
struct YamlError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// All of these throw YamlError.

// The content of a file, of 4 MiB at most.
std::string readYamlText(const std::string& path);
YAML::Node parseYaml(const std::string& text, const std::string& name);

// Reads the nodes of a file; every complaint names the node's place.
class YamlReader {
public:
    explicit YamlReader(std::string fileName) : name(std::move(fileName)) {
    }

    [[noreturn]] void complain(const YAML::Node& at, const std::string& text) const;

    std::string text(const YAML::Node& at, const std::string& expected) const;
    double number(const YAML::Node& at, const std::string& expected) const;
    void forEachItem(const YAML::Node& at, const std::string& expected,
                     const std::function<void(const YAML::Node&)>& use) const;
    std::vector<std::string> texts(const YAML::Node& at, const std::string& expected) const;
    // Names with something each; none twice.
    void forEachName(const YAML::Node& at, const std::string& what,
                     const std::function<void(const std::string&, const YAML::Node&)>& use) const;
    // The same where only these names may stand.
    void forEachKey(const YAML::Node& at, const std::string& what, const std::vector<std::string>& keys,
                    const std::function<void(const std::string&, const YAML::Node&)>& use) const;

    const std::string name;  // the file's, for messages
};

}  // namespace monitor
