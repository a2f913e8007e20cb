#include "openmetrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "number.h"
#include "utf8.h"

namespace monitor {

namespace {

void appendEscaped(std::string& to, std::string_view text) {
    while (!text.empty()) {
        // Mostly there is nothing to escape or to repair.
        const auto plain = std::find_if(text.begin(), text.end(), [](char c) {
            return c == '\\' || c == '"' || c == '\n' || static_cast<unsigned char>(c) >= 0x80;
        });
        to.append(text.begin(), plain);
        text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
        if (text.empty()) {
            return;
        }
        const Character character = decode(text);
        to += !character.valid       ? "\xEF\xBF\xBD"
              : text.front() == '\\' ? "\\\\"
              : text.front() == '"'  ? "\\\""
              : text.front() == '\n' ? "\\n"
                                     : text.substr(0, character.size);
        text.remove_prefix(character.size);
    }
}

// name="value", behind what is there already.
void appendLabel(std::string& labels, std::string_view name, std::string_view value) {
    labels += labels.empty() ? "" : ",";
    labels += name;
    labels += "=\"";
    appendEscaped(labels, value);
    labels += '"';
}

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// In any case; `lower` is in small letters.
bool equalsAnyCase(std::string_view word, std::string_view lower) {
    return std::equal(word.begin(), word.end(), lower.begin(), lower.end(),
                      [](char c, char small) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == small; });
}

// Words for units other than the base units that checkers of metrics insist on.
bool isOddUnit(std::string_view word) {
    constexpr std::array<std::string_view, 19> units = {"s",       "ms",    "us",   "ns",    "sec", "b", "kb",
                                                        "mb",      "gb",    "tb",   "pb",    "m",   "h", "d",
                                                        "minutes", "hours", "days", "weeks", "bits"};
    for (const std::string_view base : {"seconds", "bytes"}) {
        if (word.size() > base.size() && equalsAnyCase(word.substr(word.size() - base.size()), base)) {
            return true;
        }
    }
    return std::any_of(units.begin(), units.end(), [&](std::string_view unit) { return equalsAnyCase(word, unit); });
}

void appendHelp(std::string& to, std::string_view text, MetricsFormat format) {
    if (format == MetricsFormat::openMetrics) {
        appendEscaped(to, text);
        return;
    }
    // There a quotation mark stands for itself.
    std::string escaped;
    appendEscaped(escaped, text);
    for (std::size_t place = 0; place < escaped.size(); ++place) {
        place += escaped.compare(place, 2, "\\\"") == 0 ? 1 : 0;
        to += escaped[place];
        if (escaped[place] == '\\') {
            to += escaped[++place];
        }
    }
}

}  // namespace

// A value stays in the Gateway's unit, so that the word for an odd one is no
// word of the name: gateway_host_memory_freekb.
std::string metricName(std::string_view id) {
    constexpr std::string_view first = "gateway";
    std::string name(first);
    name.reserve(first.size() + id.size() + 1);
    while (!id.empty()) {
        const auto end = std::find_if_not(id.begin(), id.end(), isWordCharacter);
        const std::string_view word = id.substr(0, static_cast<std::size_t>(end - id.begin()));
        name += word.empty() || isOddUnit(word) ? "" : "_";
        name += word;
        id.remove_prefix(std::min(word.size() + 1, id.size()));
    }
    // Endings that belong to metric types. What is a counter and what not the Gateway does not tell.
    for (const std::string_view ending :
         {"_total", "_count", "_sum", "_bucket", "_created", "_info", "_gcount", "_gsum"}) {
        if (name.ends_with(ending)) {
            return name + "_value";
        }
    }
    return name;
}

namespace {

// For a moment, gateway_host_boot_time_seconds.
std::string secondsName(std::string_view id) {
    const std::string name = metricName(id);
    return name.ends_with("_seconds") ? name : name + "_seconds";
}

// A number with a unit behind it that the rule knows, in what the rule's factor makes of it.
std::optional<double> extractNumber(std::string_view text, const std::map<std::string, double>& units) {
    const std::size_t numberEnd = std::min(text.find_first_not_of("+-.0123456789"), text.size());
    std::string_view unit = text.substr(numberEnd);
    unit.remove_prefix(std::min(unit.find_first_not_of(' '), unit.size()));
    unit = unit.substr(0, unit.find(' '));
    const std::optional<Number> number = parseNumber(text.substr(0, numberEnd));
    const auto factor = units.find(std::string(unit));
    return number && factor != units.end() ? std::optional(toDouble(*number) * factor->second) : std::nullopt;
}

constexpr std::array<std::string_view, 4> TYPE_WORDS = {"gauge", "counter", "stateset", "info"};

}  // namespace

class OpenMetrics::SampleWriter {
public:
    SampleWriter(OpenMetrics& to, const Labels& labels) : metrics(to), number(++to.samples) {
        for (const auto& [name, value] : labels) {
            appendLabel(lead, name, value);
        }
    }
    // `labels` come behind those of the sample. Returns false where the name has another type.
    bool add(std::string_view name, MetricType type, Help help, std::string_view labels, std::string_view value) {
        Family* const family = metrics.family(name, type, help);
        if (family == nullptr) {
            return false;
        }
        std::string& text = family->text;
        const std::size_t begin = text.size();
        text += name;
        text += endingOf(type);
        text += '{';
        text += lead;
        text += lead.empty() || labels.empty() ? "" : ",";
        text += labels;
        // An identifier may come twice in one query element.
        if (const int repeated = count(*family, begin); repeated > 1) {
            text += ",repeated=\"" + std::to_string(repeated) + "\"";
        }
        text += "} ";
        text += value;
        text += '\n';
        return true;
    }
    // One whose name no rule gives: a name that has another type by a rule is left to that.
    void addGauge(std::string_view name, Help help, std::string_view labels, std::string_view value) {
        if (!add(name, MetricType::gauge, help, labels, value)) {
            add(std::string(name) + "_unmapped", MetricType::gauge, help, labels, value);
        }
    }

private:
    // How many metrics of the sample have the name and labels that stand in the family from `begin` on.
    int count(Family& family, std::size_t begin) {
        const std::size_t size = family.text.size() - begin;
        if (family.sample != number) {
            family.sample = number;
            family.metrics = 1;
            family.firstBegin = begin;
            family.firstSize = size;
            return 1;
        }
        if (++family.metrics == 2) {
            seen.emplace(family.text.substr(family.firstBegin, family.firstSize), 1);
        }
        return ++seen[family.text.substr(begin)];
    }

    OpenMetrics& metrics;
    const unsigned number;
    std::string lead;
    std::unordered_map<std::string, int> seen;  // of families with several metrics
};

OpenMetrics::OpenMetrics(MetricsFormat format) : metricsFormat(format) {
}

OpenMetrics::Family* OpenMetrics::family(std::string_view name, MetricType type, Help help) {
    const auto place = indices.find(name);
    if (place != indices.end()) {
        Family& known = families[place->second];
        return known.type == type ? &known : nullptr;
    }
    indices.emplace(name, families.size());
    Family& added = families.emplace_back();
    added.type = type;
    std::string& family = added.text;
    family.reserve(384);  // its comments and a sample or two
    const bool older = metricsFormat == MetricsFormat::text;
    const std::string_view ending = older ? endingOf(type) : "";
    const std::string_view word =
        older && type != MetricType::counter ? "gauge" : TYPE_WORDS[static_cast<std::size_t>(type)];
    family.append("# TYPE ").append(name).append(ending).append(" ").append(word);
    family.append("\n# HELP ").append(name).append(ending) += ' ';
    family += help.before;
    appendHelp(family, help.id, metricsFormat);
    family += help.behind;
    family += '\n';
    return &added;
}

void OpenMetrics::add(std::string_view name, MetricType type, std::string_view help, const Labels& labels,
                      std::string_view value) {
    SampleWriter writer(*this, labels);
    writer.add(name, type, {"", help}, "", value);
}

namespace {

// The items of a sample by the rules of its target.
class MappedItems {
public:
    MappedItems(const Sample& from, Mapper& by) : sample(from), mapper(by) {
        mapper.beginSample();
        if (mapper.module().rules.empty()) {
            return;
        }
        places.reserve(sample.items.size());
        for (const Element& element : sample.elements) {
            for (const Item& item : sample.itemsOf(element)) {
                const MappedName& mapped = mapper.find(item.id);
                if (mapped.rule != nullptr && mapped.rule->type) {
                    ++places[place(element, mapped)];
                }
            }
        }
    }
    // The labels of an item; one that shares its name and labels with another has its identifier too.
    std::string labelsOf(const Element& element, const Item& item, const MappedName& mapped) {
        std::string labels;
        appendLabel(labels, "element", element.text);
        if (places[place(element, mapped)] > 1) {
            appendLabel(labels, "id", item.id);
            ++mapper.counts.sameNames;
        }
        for (const auto& [name, value] : mapped.labels) {
            appendLabel(labels, name, value);
        }
        return labels;
    }

private:
    std::string place(const Element& element, const MappedName& mapped) const {
        std::string text = mapped.name;
        text += endingOf(*mapped.rule->type);
        appendLabel(text, "element", element.text);
        for (const auto& [name, value] : mapped.labels) {
            appendLabel(text, name, value);
        }
        return text;
    }

    const Sample& sample;
    Mapper& mapper;
    std::unordered_map<std::string, int> places;
};

}  // namespace

std::string numberByRule(const Rule& rule, std::string_view value) {
    std::optional<double> number;
    if (!rule.extract.empty()) {
        number = extractNumber(value, rule.extract);
    } else if (const std::optional<Number> whole = parseNumber(value)) {
        const double plain = toDouble(*whole);
        if (rule.type == MetricType::counter && plain < 0) {
            return {};
        }
        if (rule.scale == 1) {
            return std::string(value);
        }
        number = plain;
    } else {
        number = parseMoment(value);
    }
    if (!number || (rule.type == MetricType::counter && *number < 0) || !std::isfinite(*number * rule.scale)) {
        return {};
    }
    return fmt::format("{}", *number * rule.scale);
}

void OpenMetrics::add(const Sample& sample, const Labels& sampleLabels, Mapper* mapper) {
    constexpr std::string_view statistic = "The Gateway's statistic ";
    SampleWriter writer(*this, sampleLabels);
    families.reserve(families.size() + sample.items.size());
    std::optional<MappedItems> mappedItems;
    if (mapper != nullptr) {
        mappedItems.emplace(sample, *mapper);
    }
    // Returns whether a rule took the item.
    const auto addByRule = [&](const Element& element, const Item& item) {
        const MappedName& mapped = mapper->find(item.id);
        if (mapped.rule == nullptr) {
            return false;
        }
        if (!mapped.rule->type) {
            return true;
        }
        const Rule& rule = *mapped.rule;
        const Help help = mapped.help.empty() ? Help{statistic, item.id, "."} : Help{"", mapped.help};
        const std::string labels = mappedItems->labelsOf(element, item, mapped);
        bool added = false;
        switch (*rule.type) {
        case MetricType::gauge:
        case MetricType::counter: {
            const std::string number = numberByRule(rule, item.value);
            if (number.empty()) {
                ++mapper->counts.notNumbers;
                return false;
            }
            added = writer.add(mapped.name, *rule.type, help, labels, number);
            break;
        }
        case MetricType::stateset: {
            bool known = false;
            for (const std::string& state : rule.states) {
                std::string own = labels;
                appendLabel(own, mapped.name, state);
                known = known || state == item.value;
                added = writer.add(mapped.name, *rule.type, help, own, state == item.value ? "1" : "0");
            }
            if (!known) {
                ++mapper->counts.unknownStates;
                return false;  // the text itself says which
            }
            break;
        }
        case MetricType::info:
            if (const auto text = mapper->admit(element.text, item.id, item.value)) {
                std::string own = labels;
                appendLabel(own, "value", *text);
                added = writer.add(mapped.name, *rule.type, help, own, "1");
            } else {
                return true;
            }
            break;
        }
        mapper->counts.otherTypes += added ? 0 : 1;
        return added;
    };
    // A mapper keeps names that it has no rule for.
    std::string unkept;
    const auto nameOf = [&](const Item& item) -> std::string_view {
        if (mapper != nullptr) {
            MappedName& known = mapper->find(item.id);
            if (known.rule == nullptr) {
                if (known.name.empty()) {
                    known.name = metricName(item.id);
                }
                return known.name;
            }
        }
        return unkept = metricName(item.id);
    };
    std::string labels;
    for (const Element& element : sample.elements) {
        labels.clear();
        appendLabel(labels, "element", element.text);
        writer.addGauge("zulstat_element_rc", {"The Gateway's return code of each query element."}, labels,
                        std::to_string(element.rc));
        const std::size_t ownLabels = labels.size();
        for (const Item& item : sample.itemsOf(element)) {
            labels.resize(ownLabels);
            appendLabel(labels, "id", item.id);
            if (holdsCounts(sample)) {
                writer.addGauge("zulstat_group_statistics", {"How many statistics each resource group has."}, labels,
                                item.value);
            } else if (!sample.hasValues) {
                writer.addGauge("zulstat_identifier", {"The Gateway's identifiers."}, labels, "1");
            } else if (mapper != nullptr && addByRule(element, item)) {
                continue;
            } else if (parseNumber(item.value)) {
                writer.addGauge(nameOf(item), {statistic, item.id, "."}, labels, item.value);
            } else if (const std::optional<double> moment = parseMoment(item.value)) {
                writer.addGauge(secondsName(item.id), {statistic, item.id, ", in seconds since 1970."}, labels,
                                fmt::format("{}", *moment));
            } else {
                const std::optional<std::string_view> text =
                    mapper == nullptr ? std::optional(item.value) : mapper->admit(element.text, item.id, item.value);
                if (text) {
                    appendLabel(labels, "value", *text);
                    writer.addGauge("zulstat_text", {"The Gateway's statistics that are not numbers."}, labels, "1");
                }
            }
        }
    }
    writer.addGauge("zulstat_open_seconds", {"How long opening the connection took."}, "",
                    fmt::format("{}", sample.openSeconds));
    writer.addGauge("zulstat_query_seconds", {"How long the query took."}, "", fmt::format("{}", sample.querySeconds));
    writer.addGauge("zulstat_content_bytes", {"The part of the library's result set that the answer takes."}, "",
                    std::to_string(sample.contentSize));
}

std::string OpenMetrics::text() const {
    std::string whole;
    std::size_t size = 8;
    for (const Family& family : families) {
        size += family.text.size();
    }
    whole.reserve(size);
    for (const Family& family : families) {
        whole += family.text;
    }
    return metricsFormat == MetricsFormat::openMetrics ? whole + "# EOF\n" : whole;
}

}  // namespace monitor
