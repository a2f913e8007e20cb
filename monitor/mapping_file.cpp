#include "mapping_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "glob.h"
#include "yaml_reader.h"

namespace monitor {

namespace {

constexpr double LONGEST_DEADLINE = 3600;

using Texts = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

class Reader : private YamlReader {
public:
    Reader(std::string fileName, const MappingChecks& given) : YamlReader(std::move(fileName)), checks(given) {
    }

    MappingFile read(const YAML::Node& root) const {
        MappingFile file;
        std::vector<YAML::Node> targetNodes;
        forEachKey(root, "the file", {"allow", "targets", "modules"},
                   [&](const std::string& key, const YAML::Node& at) {
                       if (key == "allow") {
                           file.allow = texts(at, "a list of addresses, networks and host names");
                           checkEach(at, checks.allow);
                       } else if (key == "targets") {
                           forEachItem(at, "a list of targets", [&](const YAML::Node& item) {
                               file.targets.push_back(target(item));
                               targetNodes.push_back(item);
                           });
                       } else {
                           forEachName(at, "modules", [&](const std::string& module, const YAML::Node& content) {
                               file.modules[module] = std::make_shared<const Module>(readModule(module, content));
                           });
                       }
                   });
        file.modules.try_emplace("default", std::make_shared<const Module>());
        for (std::size_t index = 0; index < file.targets.size(); ++index) {
            const ConfiguredTarget& one = file.targets[index];
            if (!file.modules.contains(one.module)) {
                complain(targetNodes[index]["module"],
                         fmt::format("the target {} has the module '{}', which is not there", one.target, one.module));
            }
        }
        return file;
    }

private:
    void checkEach(const YAML::Node& list, std::string (*check)(const std::string&)) const {
        for (const YAML::Node& item : list) {
            checkOne(item, check);
        }
    }
    void checkOne(const YAML::Node& at, std::string (*check)(const std::string&)) const {
        if (check != nullptr) {
            if (const std::string expected = check(at.Scalar()); !expected.empty()) {
                complain(at, fmt::format("'{}' is not {}", at.Scalar(), expected));
            }
        }
    }

    Pairs labels(const YAML::Node& at) const {
        Pairs all;
        forEachName(at, "labels", [&](const std::string& label, const YAML::Node& value) {
            if (!isLabelName(label)) {
                complain(value, fmt::format("'{}' is not a label's name: letters, digits and '_'", label));
            }
            all.emplace_back(label, text(value, "the label's value"));
        });
        return all;
    }

    ConfiguredTarget target(const YAML::Node& at) const {
        ConfiguredTarget made;
        if (at.IsScalar()) {
            made.target = at.Scalar();
            checkOne(at, checks.target);
            return made;
        }
        forEachKey(at, "a target", {"target", "module", "labels"},
                   [&](const std::string& key, const YAML::Node& value) {
                       if (key == "target") {
                           made.target = text(value, "host:port");
                           checkOne(value, checks.target);
                       } else if (key == "module") {
                           made.module = text(value, "a module's name");
                       } else {
                           made.labels = labels(value);
                       }
                   });
        if (made.target.empty()) {
            complain(at, "expected the key 'target', with host:port");
        }
        return made;
    }

    Module readModule(const std::string& module, const YAML::Node& at) const {
        Module made;
        made.name = module;
        forEachKey(at, "a module", {"groups", "include", "exclude", "deadline", "rules"},
                   [&](const std::string& key, const YAML::Node& value) {
                       if (key == "groups") {
                           made.groups = texts(value, "a list of resource groups");
                       } else if (key == "include") {
                           made.include = texts(value, "a list of globs");
                       } else if (key == "exclude") {
                           made.exclude = texts(value, "a list of globs");
                       } else if (key == "deadline") {
                           made.deadline = number(value, "a number of seconds");
                           if (*made.deadline <= 0 || *made.deadline > LONGEST_DEADLINE) {
                               complain(value,
                                        fmt::format("the deadline is not from 0 to {} seconds", LONGEST_DEADLINE));
                           }
                       } else {
                           forEachItem(value, "a list of rules",
                                       [&](const YAML::Node& item) { made.rules.push_back(rule(item)); });
                       }
                   });
        for (const std::string& group : made.groups) {
            if (group.empty() || group.find(':') != std::string::npos) {
                complain(at["groups"], fmt::format("'{}' is not the name of a resource group", group));
            }
        }
        return made;
    }

    Rule rule(const YAML::Node& at) const {
        Rule made;
        std::string type;
        forEachKey(at, "a rule", {"match", "name", "help", "type", "labels", "states", "scale", "extract"},
                   [&](const std::string& key, const YAML::Node& value) {
                       if (key == "match") {
                           made.match = text(value, "a glob of identifiers");
                       } else if (key == "name") {
                           made.name = text(value, "a metric's name");
                       } else if (key == "help") {
                           made.help = text(value, "a sentence");
                       } else if (key == "type") {
                           type = text(value, "counter, gauge, stateset, info or drop");
                           made.type = typeOf(value, type);
                       } else if (key == "labels") {
                           made.labels = labels(value);
                       } else if (key == "states") {
                           made.states = texts(value, "a list of states");
                       } else if (key == "scale") {
                           made.scale = number(value, "a factor");
                           if (made.scale <= 0) {
                               complain(value, "the factor is not above 0");
                           }
                       } else {
                           forEachName(value, "units, with a factor each",
                                       [&](const std::string& unit, const YAML::Node& factor) {
                                           made.extract[unit] = number(factor, "the unit's factor");
                                       });
                       }
                   });
        checkRule(at, made, type);
        return made;
    }

    std::optional<MetricType> typeOf(const YAML::Node& at, const std::string& word) const {
        for (const auto& [known, type] : std::initializer_list<std::pair<const char*, std::optional<MetricType>>>{
                 {"counter", MetricType::counter},
                 {"gauge", MetricType::gauge},
                 {"stateset", MetricType::stateset},
                 {"info", MetricType::info},
                 {"drop", std::nullopt}}) {
            if (word == known) {
                return type;
            }
        }
        complain(at, fmt::format("'{}' is no type, expected counter, gauge, stateset, info or drop", word));
    }

    // What the keys of a rule have to do with each other.
    void checkRule(const YAML::Node& at, const Rule& made, const std::string& type) const {
        if (made.match.empty()) {
            complain(at, "expected the key 'match', with a glob of identifiers");
        }
        if (type.empty()) {
            complain(at, "expected the key 'type': counter, gauge, stateset, info or drop");
        }
        const auto refuse = [&](const char* key, bool fits, const char* why) {
            if (at[key] && !fits) {
                complain(at[key], fmt::format("'{}' goes with {} only", key, why));
            }
        };
        const bool number = made.type == MetricType::counter || made.type == MetricType::gauge;
        refuse("name", type != "drop", "a rule that does not drop");
        refuse("help", type != "drop", "a rule that does not drop");
        refuse("labels", type != "drop", "a rule that does not drop");
        refuse("states", made.type == MetricType::stateset, "the type stateset");
        refuse("scale", number, "the types counter and gauge");
        refuse("extract", number, "the types counter and gauge");
        if (type == "drop") {
            return;
        }
        if (made.name.empty()) {
            complain(at, "expected the key 'name', with a metric's name");
        }
        const auto stars = static_cast<std::size_t>(std::count(made.match.begin(), made.match.end(), '*'));
        checkStars(at["name"], made.name, stars);
        checkStars(at["help"], made.help, stars);
        for (const auto& [label, value] : made.labels) {
            checkStars(at["labels"][label], value, stars);
            if (isTakenLabel(label, *made.type)) {
                complain(at["labels"][label], fmt::format("the label '{}' is there already", label));
            }
        }
        if (!isMetricName(fillIn(made.name, anyStars(stars)))) {
            complain(at["name"], fmt::format("'{}' is not a metric's name: letters, digits, '_' and ':'", made.name));
        }
        if (made.name.starts_with(OWN_NAMES)) {
            complain(at["name"], "names that begin with 'zulstat_' are taken");
        }
        if (made.type == MetricType::stateset) {
            checkStateset(at, made, stars);
        }
        for (auto state = made.states.begin(); state != made.states.end(); ++state) {
            if (std::find(made.states.begin(), state, *state) != state) {
                complain(at["states"], fmt::format("the state '{}' is there twice", *state));
            }
        }
    }
    // Its name is a label too.
    void checkStateset(const YAML::Node& at, const Rule& made, std::size_t stars) const {
        if (!isLabelName(fillIn(made.name, anyStars(stars)))) {
            complain(at["name"],
                     fmt::format("'{}' is not the name of a stateset, which is a label too: letters, digits "
                                 "and '_'",
                                 made.name));
        }
        const bool labelled = std::any_of(made.labels.begin(), made.labels.end(),
                                          [&](const auto& label) { return label.first == made.name; });
        if (labelled || isTakenLabel(made.name, *made.type)) {
            complain(at["name"], fmt::format("the label '{}' of that stateset is there already", made.name));
        }
        if (made.states.empty()) {
            complain(at, "expected the key 'states', with a list of states");
        }
    }
    // What stars may match, for a look at a name.
    static std::vector<std::string_view> anyStars(std::size_t stars) {
        return std::vector<std::string_view>(stars, "x");
    }
    void checkStars(const YAML::Node& at, const std::string& words, std::size_t stars) const {
        if (const std::size_t named = starsNamed(words); named > stars) {
            complain(at, fmt::format("'${}' stands for a '*' of 'match', which has {}", named, stars));
        }
    }

    const MappingChecks& checks;
};

}  // namespace

MappingFile parseMapping(const std::string& text, const std::string& name, const MappingChecks& checks) {
    try {
        return Reader(name, checks).read(parseYaml(text, name));
    } catch (const YamlError& error) {
        throw MappingFileError(error.what());
    } catch (const YAML::Exception& error) {
        throw MappingFileError(
            fmt::format("{}:{}:{}: {}", name, error.mark.line + 1, error.mark.column + 1, error.msg));
    }
}

std::string contentOf(const std::string& path) {
    try {
        return readYamlText(path);
    } catch (const YamlError& error) {
        throw MappingFileError(error.what());
    }
}

MappingFile readMappingFile(const std::string& path, const MappingChecks& checks) {
    return parseMapping(contentOf(path), path, checks);
}

}  // namespace monitor
