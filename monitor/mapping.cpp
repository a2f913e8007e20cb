#include "mapping.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>

#include "glob.h"
#include "number.h"
#include "utf8.h"

namespace monitor {

namespace {

constexpr std::uint32_t REMEMBERED_SAMPLES = 10;
constexpr std::size_t MOST_NAMES = 100000;  // that are kept with their rules

bool anyMatches(const std::vector<std::string>& globs, std::string_view id) {
    return std::any_of(globs.begin(), globs.end(),
                       [&](const std::string& glob) { return matchGlob(glob, id).has_value(); });
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Endings that belong to other types than the one at hand.
std::string withoutOddEnding(std::string name, MetricType type) {
    const std::string_view own = endingOf(type);
    while (!own.empty() && name.size() > own.size() && name.ends_with(own)) {
        name.resize(name.size() - own.size());
    }
    for (const std::string_view ending :
         {"_total", "_count", "_sum", "_bucket", "_created", "_info", "_gcount", "_gsum"}) {
        if (name.ends_with(ending)) {
            return name + "_value";
        }
    }
    return name;
}

std::string cleanPiece(std::string_view text) {
    std::string clean(text);
    std::replace_if(
        clean.begin(), clean.end(), [](char c) { return !isLetter(c) && !isDigit(c); }, '_');
    return clean;
}

}  // namespace

Query Module::query() const {
    return groups.empty() ? Query{What::stats, {}} : Query{What::statsByGroup, groups};
}

bool Module::keeps(std::string_view id) const {
    return (include.empty() || anyMatches(include, id)) && !anyMatches(exclude, id);
}

std::span<const MappingCount> mappingCounts() {
    static constexpr std::array<MappingCount, 7> ALL = {{
        {"same_name", &MappingCounts::sameNames},
        {"other_type", &MappingCounts::otherTypes},
        {"not_a_number", &MappingCounts::notNumbers},
        {"unknown_state", &MappingCounts::unknownStates},
        {"too_many_texts", &MappingCounts::manyTexts},
        {"long_text", &MappingCounts::longTexts},
        {"changing_text", &MappingCounts::changingTexts},
    }};
    return ALL;
}

std::string_view endingOf(MetricType type) {
    return type == MetricType::counter ? "_total" : type == MetricType::info ? "_info" : "";
}

bool isMetricName(std::string_view name) {
    return !name.empty() && !isDigit(name[0]) &&
           std::all_of(name.begin(), name.end(), [](char c) { return isLetter(c) || isDigit(c) || c == ':'; });
}

bool isLabelName(std::string_view name) {
    return isMetricName(name) && name.find(':') == std::string_view::npos && !name.starts_with("__");
}

bool isTakenLabel(std::string_view name, MetricType type) {
    return name == "target" || name == "element" || name == "id" || name == "repeated" ||
           (name == "value" && type == MetricType::info);
}

std::string cleanMetricName(std::string_view text) {
    std::string clean = cleanPiece(text);
    return clean.empty() || isDigit(clean[0]) ? "_" + clean : clean;
}

namespace {

// The name that a rule gives, with what the stars matched: one that metrics may have, whatever that is.
std::string nameByRule(const Rule& rule, const std::vector<std::string_view>& stars) {
    std::string name = fillIn(rule.name, stars, cleanPiece);
    if (!isMetricName(name) || name.starts_with(OWN_NAMES)) {
        name = "_" + name;
    }
    name = withoutOddEnding(name, *rule.type);
    const auto isTaken = [&] {
        return !isLabelName(name) || isTakenLabel(name, *rule.type) ||
               std::any_of(rule.labels.begin(), rule.labels.end(),
                           [&](const auto& label) { return label.first == name; });
    };
    while (rule.type == MetricType::stateset && isTaken()) {
        name = "state_" + name;
    }
    return name;
}

}  // namespace

Mapper::Mapper(std::shared_ptr<const Module> module) : rules(std::move(module)) {
}

void Mapper::beginSample() {
    std::erase_if(texts, [&](const auto& entry) { return entry.second.seen != sampleNumber; });
    ++sampleNumber;
    textsOfSample = 0;
}

MappedName& Mapper::find(std::string_view id) {
    const auto known = names.find(id);
    if (known != names.end()) {
        return known->second;
    }
    MappedName mapped;
    for (const Rule& rule : rules->rules) {
        const auto stars = matchGlob(rule.match, id);
        if (!stars) {
            continue;
        }
        mapped.rule = &rule;
        if (rule.type) {
            mapped.name = nameByRule(rule, *stars);
            mapped.help = fillIn(rule.help, *stars);
            for (const auto& [name, value] : rule.labels) {
                mapped.labels.emplace_back(name, fillIn(value, *stars));
            }
        }
        break;
    }
    if (names.size() >= MOST_NAMES) {
        names.clear();
    }
    return names.emplace(id, std::move(mapped)).first->second;
}

std::optional<std::string_view> Mapper::admit(std::string_view element, std::string_view id, std::string_view text) {
    const std::size_t hash = std::hash<std::string_view>()(text);
    auto [place, isNew] = texts.try_emplace({std::string(element), std::string(id)});
    Text& known = place->second;
    if (known.seen != sampleNumber) {  // an identifier may come twice
        const bool changed = !isNew && known.hash != hash;
        known.changes = ((known.changes << 1) | (changed ? 1 : 0)) & ((1U << REMEMBERED_SAMPLES) - 1);
        known.seen = sampleNumber;
    }
    known.hash = hash;
    if (static_cast<std::uint32_t>(std::popcount(known.changes)) >= CHANGES_TO_NOTICE) {
        ++counts.changingTexts;
        return std::nullopt;
    }
    if (textsOfSample == MOST_TEXTS) {
        ++counts.manyTexts;
        return std::nullopt;
    }
    ++textsOfSample;
    std::size_t size = 0;
    std::size_t characters = 0;
    while (size < text.size() && characters < LONGEST_TEXT) {
        size += decode(text.substr(size)).size;
        ++characters;
    }
    counts.longTexts += size < text.size() ? 1 : 0;
    return text.substr(0, size);
}

}  // namespace monitor
