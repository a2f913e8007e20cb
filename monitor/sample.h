// What a Gateway answered, as every command and every format sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace monitor {

// What the library stores of one answer at most, and the longest query string that it takes.
inline constexpr std::size_t resultSetLimit = 32767;
inline constexpr std::size_t queryStringLimit = 32765;

struct Target {
    std::string host = "127.0.0.1";
    int port = 7531;
};

// The six queries of the library. `ids` of a Query holds identifiers of statistics or groups, as the name says; it is
// not looked at where everything is asked for.
enum class What : std::uint8_t { stats, statsById, statsByGroup, ids, idsByGroup, groups };

struct Query {
    What what = What::stats;
    std::vector<std::string> ids;
};

struct Item {
    std::string id;
    std::string value;  // the Gateway's bytes; empty where the sample has no values
};

// One query element. A negative rc is the Gateway's code for a failed one, which has no items. The library passes over
// elements without items that did not fail; they are not here either.
struct Element {
    std::string text;
    std::int32_t rc = 0;
    std::vector<Item> items;
};

struct Sample {
    Target target;
    std::string protocol;  // the Gateway's protocol version text
    Query query;
    bool hasValues = true;     // false: items have identifiers only
    double wallTime = 0;       // seconds since 1970, when the answer was complete
    double monotonicTime = 0;  // the same moment on a clock that is never set; for differences
    std::vector<Element> elements;
    std::size_t contentSize = 0;  // bytes of the library's result set that these elements take, of resultSetLimit
    double openSeconds = 0;       // how long opening the connection took, name resolution included
    double querySeconds = 0;
    // Whether the connection was opened for this sample. In a series, counters may have started anew where it is true.
    bool freshConnection = false;
};

std::size_t itemCount(const Sample& sample);
std::size_t failedElements(const Sample& sample);
// Whether the values are numbers of statistics, which a program counted for the groups of the answer.
bool holdsCounts(const Sample& sample);

// 2026-11-21T12:34:01.123Z
std::string isoTime(double wallTime);
// host:port, [host]:port for an IPv6 address
std::string targetText(const Target& target);
// "stats", "stats-by-id", ...: the query's name in documents and messages.
std::string_view whatName(What what);

}  // namespace monitor
