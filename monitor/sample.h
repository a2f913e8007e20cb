// What a Gateway is asked and what it answers. Plain records; nothing here blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace monitor {

// What the library stores of one answer at most, and the longest query string that it takes.
inline constexpr std::size_t RESULT_SET_LIMIT = 32767;
inline constexpr std::size_t QUERY_STRING_LIMIT = 32765;

struct Target {
    std::string host = "127.0.0.1";
    int port = 7531;
};

// The six queries of the library. `ids` of a Query holds identifiers of statistics or groups, as the name says; it is
// not looked at where everything is asked for.
enum class What : std::uint8_t { stats, statsById, statsByGroup, ids, idsByGroup, groups };

constexpr bool asksForValues(What what) {
    return what == What::stats || what == What::statsById || what == What::statsByGroup;
}

struct Query {
    What what = What::stats;
    std::vector<std::string> ids;
};

// The texts of items and elements are views of their sample's, the Gateway's bytes, any at all.
struct Item {
    std::string_view id;
    std::string_view value;  // empty where the sample has no values
};

// One query element. A negative rc is the Gateway's code for a failed one, which has no items. The library passes over
// elements without items that did not fail; they are not here either.
struct Element {
    std::string_view text;
    std::int32_t rc = 0;
    std::size_t firstItem = 0;  // in Sample::items
    std::size_t itemCount = 0;
};

// A value like any other: copies share the texts, which never change and live as long as one of them. So do views of
// them; use a sample from one thread at a time.
struct Sample {
    Target target;
    std::string protocol;  // the Gateway's protocol version text
    Query query;
    bool hasValues = true;     // false: items have identifiers only
    double wallTime = 0;       // seconds since 1970, when the answer was complete
    double monotonicTime = 0;  // the same moment on a clock that is never set; for differences
    std::vector<Element> elements;
    std::vector<Item> items;      // of all elements, in their order
    std::size_t contentSize = 0;  // bytes of the library's result set that the answer takes, of resultSetLimit
    // A sample may be put together from several answers (sampler.h); the content size is then that of the largest.
    std::size_t parts = 1;
    std::size_t splitGroups = 0;  // groups that took several of them
    double openSeconds = 0;       // how long opening the connection took, name resolution included
    double querySeconds = 0;
    // Whether the connection was opened for this sample. In a series, counters may have started anew where it is true.
    bool freshConnection = false;

    std::span<const Item> itemsOf(const Element& element) const {
        return std::span(items).subspan(element.firstItem, element.itemCount);
    }

    // Keeps a text as long as the sample and its copies, for views of it.
    std::string_view keep(std::string text);
    // Adds an element, and items to it. The texts are kept ones, or of the program's own that last.
    void addElement(std::string_view text, std::int32_t rc);
    void addItem(std::string_view id, std::string_view value);

    std::vector<std::shared_ptr<const std::string>> texts;  // what keep() was given
};

std::size_t failedElements(const Sample& sample);
// Removes the items that are not wanted, and the elements that lose all of theirs. Failed elements stay.
void keepItems(Sample& sample, const std::function<bool(const Item&)>& wanted);
// Whether the values are numbers of statistics, which a program counted for the groups of the answer.
bool holdsCounts(const Sample& sample);

// 2026-11-21T12:34:01.123Z
std::string isoTime(double wallTime);
// host:port, [host]:port for an IPv6 address
std::string targetText(const Target& target);
// "stats", "stats-by-id", ...: the query's name in documents and messages.
std::string_view whatName(What what);

}  // namespace monitor
