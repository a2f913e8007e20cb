#include "config_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "targets.h"
#include "text.h"
#include "usage_error.h"
#ifdef ZULSTAT_MAPPING
#include "monitor/yaml_reader.h"
#endif

namespace zulstat {

using namespace monitor;

namespace {

constexpr const char* FILE_NAME = "/zulstat.yaml";

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

#ifdef ZULSTAT_MAPPING

class Reader : private YamlReader {
public:
    Reader(std::string file, Config& filled) : YamlReader(std::move(file)), config(filled) {
    }

    void read(const YAML::Node& root) const {
        forEachKey(
            root, "the file", {"options", "targets", "selections"}, [&](const std::string& key, const YAML::Node& at) {
                if (key == "options") {
                    forEachKey(at, "options", configOptions(), [&](const std::string& option, const YAML::Node& value) {
                        config.options.try_emplace(option, Setting{setting(value), place(value)});
                    });
                } else if (key == "targets") {
                    forEachName(at, "targets", [&](const std::string& target, const YAML::Node& value) {
                        checkName(target, value);
                        config.targets.try_emplace(target, NamedTargets{hosts(value), place(value)});
                    });
                } else {
                    forEachName(at, "selections", [&](const std::string& selection, const YAML::Node& value) {
                        checkName(selection, value);
                        config.selections.try_emplace(selection, readSelection(value));
                    });
                }
            });
    }

private:
    std::string place(const YAML::Node& at) const {
        return fmt::format("{}:{}", name, at.Mark().line + 1);
    }
    void checkName(const std::string& word, const YAML::Node& at) const {
        if (word.empty() || word.find_first_of(" :@") != std::string::npos) {
            complain(at, fmt::format("'{}' is not a name: no blanks, ':' and '@'", word));
        }
    }
    // One text, or several with commas between.
    std::string setting(const YAML::Node& at) const {
        return at.IsSequence() ? join(texts(at, "a list"), ",") : text(at, "a value");
    }
    std::vector<std::string> textOrTexts(const YAML::Node& at, const std::string& expected) const {
        return at.IsScalar() ? std::vector<std::string>{at.Scalar()} : texts(at, expected);
    }
    std::vector<std::string> hosts(const YAML::Node& at) const {
        std::vector<std::string> words = textOrTexts(at, "HOST:PORT, or a list of them");
        if (words.empty()) {
            complain(at, "expected HOST:PORT, or a list of them");
        }
        std::vector<Target> ignored;
        for (const std::string& word : words) {
            try {
                addTargets(word, Target{}.port, ignored);
            } catch (const UsageError& error) {
                complain(at, error.text);
            }
        }
        return words;
    }
    Selection readSelection(const YAML::Node& at) const {
        Selection selection;
        selection.place = place(at);
        if (at.IsMap()) {
            forEachKey(at, "a selection", {"ids", "groups"}, [&](const std::string& key, const YAML::Node& value) {
                (key == "ids" ? selection.ids : selection.groups) = textOrTexts(value, "a list of " + key);
            });
        } else {
            selection.ids = textOrTexts(at, "identifiers and globs");
        }
        if (selection.ids.empty() == selection.groups.empty()) {
            complain(at, "expected identifiers and globs, or groups");
        }
        return selection;
    }

    Config& config;
};

void readFile(const std::string& path, Config& config) {
    try {
        Reader(path, config).read(parseYaml(readYamlText(path), path));
    } catch (const YamlError& error) {
        throw UsageError{error.what()};
    } catch (const YAML::Exception& error) {
        throw UsageError{fmt::format("{}:{}:{}: {}", path, error.mark.line + 1, error.mark.column + 1, error.msg)};
    }
}

#else

void readFile(const std::string& path, Config&) {
    throw UsageError{path + " cannot be read: this program was built without yaml-cpp"};
}

#endif

}  // namespace

std::vector<std::string> configPaths() {
    std::vector<std::string> paths;
    if (const std::string home = variable("XDG_CONFIG_HOME"); home.starts_with('/')) {
        paths.push_back(home + FILE_NAME);
    } else if (const std::string user = variable("HOME"); user.starts_with('/')) {
        paths.push_back(user + "/.config" + FILE_NAME);
    }
    for (const std::string& directory : splitPieces(variable("XDG_CONFIG_DIRS"), ':')) {
        if (directory.starts_with('/')) {
            paths.push_back(directory + FILE_NAME);
        }
    }
    paths.push_back(std::string("/etc") + FILE_NAME);
    return paths;
}

const std::vector<std::string>& configOptions() {
    static const std::vector<std::string> names = {"host", "port",     "timeout", "no-header",
                                                   "lf",   "no-color", "quiet",   "verbose"};
    return names;
}

Config readConfig() {
    Config config;
    for (const std::string& path : configPaths()) {
        if (access(path.c_str(), F_OK) == 0) {
            readFile(path, config);
        }
    }
    return config;
}

}  // namespace zulstat
