// What statistics become as metrics: names, types and labels by rules, and limits for texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sample.h"

namespace monitor {

enum class MetricType : std::uint8_t { gauge, counter, stateset, info };

// A rule for the identifiers that a glob matches. "$1" in name, help and labels is what its first star matched.
struct Rule {
    std::string match;
    std::optional<MetricType> type;  // nothing: what matches is dropped
    // Without the ending of its type: "_total" of a counter, "_info" of an info. That of a stateset is a label too.
    std::string name;
    std::string help;  // empty: that of a statistic without a rule
    std::vector<std::pair<std::string, std::string>> labels;
    std::vector<std::string> states;        // of a stateset
    double scale = 1;                       // factor for a number
    std::map<std::string, double> extract;  // units behind the number of a value, with a factor each; or none
};

// What one kind of target is asked for, and what becomes of it.
struct Module {
    std::string name = "default";
    std::vector<std::string> groups;   // none: all statistics
    std::vector<std::string> include;  // globs; none: everything
    std::vector<std::string> exclude;
    std::optional<double> deadline;  // seconds
    std::vector<Rule> rules;         // the first match wins

    Query query() const;
    bool keeps(std::string_view id) const;
};

// A rule for one identifier, with the stars filled in.
struct MappedName {
    const Rule* rule = nullptr;  // nothing: there is none for it
    std::string name;            // without a rule, where OpenMetrics keeps its own
    std::string help;
    std::vector<std::pair<std::string, std::string>> labels;
};

// What did not become what a rule or a person may expect. Counts only grow.
struct MappingCounts {
    std::uint64_t sameNames = 0;      // identifiers that share a name and labels with another
    std::uint64_t otherTypes = 0;     // names that have another type already
    std::uint64_t notNumbers = 0;     // values that are none where a rule wants one
    std::uint64_t unknownStates = 0;  // values that are none of a rule's states
    std::uint64_t manyTexts = 0;      // texts left out because there were too many
    std::uint64_t longTexts = 0;      // texts cut
    std::uint64_t changingTexts = 0;  // texts left out because they change too often
};
struct MappingCount {
    std::string_view name;  // in metrics and messages
    std::uint64_t MappingCounts::*count;
};
std::span<const MappingCount> mappingCounts();

inline constexpr std::size_t MOST_TEXTS = 200;         // of a target
inline constexpr std::size_t LONGEST_TEXT = 128;       // characters
inline constexpr std::uint32_t CHANGES_TO_NOTICE = 3;  // in the last 10 samples

// Applies a module's rules to one target's samples, and remembers how its texts change. Use one from one thread at a
// time.
class Mapper {
public:
    explicit Mapper(std::shared_ptr<const Module> module);

    const Module& module() const {
        return *rules;
    }
    // Before a sample: forgets the texts that the one before did not have.
    void beginSample();
    // Valid until the next call.
    MappedName& find(std::string_view id);
    // The text as it is to be shown; nothing where it is left out.
    std::optional<std::string_view> admit(std::string_view element, std::string_view id, std::string_view text);

    MappingCounts counts;

private:
    struct Text {
        std::size_t hash = 0;
        std::uint32_t changes = 0;  // a bit for each sample, the latest lowest
        std::uint64_t seen = 0;     // number of the sample
    };

    std::shared_ptr<const Module> rules;
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };
    std::unordered_map<std::string, MappedName, TextHash, std::equal_to<>> names;
    std::map<std::pair<std::string, std::string>, Text> texts;
    std::uint64_t sampleNumber = 0;
    std::size_t textsOfSample = 0;
};

// How names begin that are not the Gateway's.
inline constexpr std::string_view OWN_NAMES = "zulstat_";

// The ending that names of the type have, which OpenMetrics families lack: "_total", "_info" or none.
std::string_view endingOf(MetricType type);
// A name that metrics may have, with '_' for other characters.
std::string cleanMetricName(std::string_view text);
bool isMetricName(std::string_view name);
bool isLabelName(std::string_view name);
// Labels that metrics by a rule of the type may have already.
bool isTakenLabel(std::string_view name, MetricType type);

}  // namespace monitor
