#include "yaml_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>

namespace monitor {

namespace {

constexpr std::size_t LONGEST_FILE = 4 << 20;

using Texts = std::vector<std::string>;

}  // namespace

std::string readYamlText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(LONGEST_FILE + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.is_open() || file.bad()) {
        throw YamlError(path + ": cannot be read");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > LONGEST_FILE) {
        throw YamlError(path + ": is larger than 4 MiB");
    }
    return text;
}

YAML::Node parseYaml(const std::string& text, const std::string& name) {
    try {
        return YAML::Load(text);
    } catch (const YAML::Exception& error) {
        throw YamlError(fmt::format("{}:{}:{}: {}", name, error.mark.line + 1, error.mark.column + 1, error.msg));
    }
}

void YamlReader::complain(const YAML::Node& at, const std::string& text) const {
    const YAML::Mark mark = at.Mark();
    throw YamlError(mark.is_null() ? fmt::format("{}: {}", name, text)
                                   : fmt::format("{}:{}:{}: {}", name, mark.line + 1, mark.column + 1, text));
}

std::string YamlReader::text(const YAML::Node& at, const std::string& expected) const {
    if (!at.IsScalar()) {
        complain(at, "expected " + expected);
    }
    return at.Scalar();
}

double YamlReader::number(const YAML::Node& at, const std::string& expected) const {
    const std::string words = text(at, expected);
    std::size_t used = 0;
    double value = NAN;
    try {
        value = std::stod(words, &used);
    } catch (const std::exception&) {
    }
    if (used != words.size() || !std::isfinite(value)) {
        complain(at, fmt::format("'{}' is not {}", words, expected));
    }
    return value;
}

void YamlReader::forEachItem(const YAML::Node& at, const std::string& expected,
                             const std::function<void(const YAML::Node&)>& use) const {
    if (at.IsNull()) {
        return;
    }
    if (!at.IsSequence()) {
        complain(at, "expected " + expected);
    }
    for (const YAML::Node& item : at) {
        use(item);
    }
}

Texts YamlReader::texts(const YAML::Node& at, const std::string& expected) const {
    Texts all;
    forEachItem(at, expected, [&](const YAML::Node& item) { all.push_back(text(item, "a text")); });
    return all;
}

void YamlReader::forEachName(const YAML::Node& at, const std::string& what,
                             const std::function<void(const std::string&, const YAML::Node&)>& use) const {
    if (at.IsNull()) {
        return;
    }
    if (!at.IsMap()) {
        complain(at, fmt::format("expected {}: names, a colon behind each", what));
    }
    Texts seen;
    for (const auto& entry : at) {
        const std::string key = text(entry.first, "a name");
        if (std::find(seen.begin(), seen.end(), key) != seen.end()) {
            complain(entry.first, fmt::format("'{}' is there twice", key));
        }
        seen.push_back(key);
        use(key, entry.second);
    }
}

void YamlReader::forEachKey(const YAML::Node& at, const std::string& what, const Texts& keys,
                            const std::function<void(const std::string&, const YAML::Node&)>& use) const {
    if (!at.IsNull() && !at.IsMap()) {
        complain(at, fmt::format("expected {}: {}, a colon behind each", what, fmt::join(keys, ", ")));
    }
    for (const auto& entry : at) {
        const std::string key = text(entry.first, "a key");
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
            complain(entry.first, fmt::format("unknown key '{}', expected {}", key, fmt::join(keys, ", ")));
        }
    }
    forEachName(at, what, use);
}

}  // namespace monitor
