// Prints the reference page of all trace points, made from the modules' own tables.
#include "stapi_zul_diag.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>

namespace {

// A name that stands twice does not compile.
#undef TRACE_POINT
#define TRACE_POINT(name, number, kind, level, text, ...) name,
enum class Name {
#include "stapi_zul_gwycon_trace.h"
#include "stapi_zul_gwytok_trace.h"
#include "stapi_zul_impl_trace.h"
#include "stapi_zul_lock_trace.h"
#include "stapi_zul_resultsetbuffer_trace.h"
#include "stapi_zul_socketcomms_trace.h"
#include "stapi_zul_statcomms_trace.h"
#include "stapi_zul_statquery_trace.h"
};

struct Point {
    std::string_view module;
    Name name;
    int number;
    TraceKind kind;
    int level;
    std::string_view text;
    unsigned flags;
};

#undef TRACE_POINT
#define TRACE_POINT(name, number, kind, level, text, ...) \
    Point{MODULE, Name::name, number, TraceKind::kind, level, text, 0u __VA_OPT__(|) __VA_ARGS__},
constexpr Point ROWS[] = {
#define MODULE "gwycon"
#include "stapi_zul_gwycon_trace.h"
#undef MODULE
#define MODULE "gwytok"
#include "stapi_zul_gwytok_trace.h"
#undef MODULE
#define MODULE "impl"
#include "stapi_zul_impl_trace.h"
#undef MODULE
#define MODULE "lock"
#include "stapi_zul_lock_trace.h"
#undef MODULE
#define MODULE "resultsetbuffer"
#include "stapi_zul_resultsetbuffer_trace.h"
#undef MODULE
#define MODULE "socketcomms"
#include "stapi_zul_socketcomms_trace.h"
#undef MODULE
#define MODULE "statcomms"
#include "stapi_zul_statcomms_trace.h"
#undef MODULE
#define MODULE "statquery"
#include "stapi_zul_statquery_trace.h"
#undef MODULE
};

constexpr auto SORTED = [] {
    auto points = std::to_array(ROWS);
    std::sort(points.begin(), points.end(), [](const Point& a, const Point& b) {
        return a.number != b.number ? a.number < b.number : a.name < b.name;
    });
    return points;
}();

// Each of these numbers belongs to two lines.
constexpr int SHARED_NUMBERS[] = {1003, 1130, 2033};

constexpr bool numbersAreUniqueButForTheShared() {
    auto shared = std::begin(SHARED_NUMBERS);
    for (std::size_t i = 1; i < SORTED.size(); ++i) {
        if (SORTED[i].number == SORTED[i - 1].number &&
            (shared == std::end(SHARED_NUMBERS) || SORTED[i].number != *shared++)) {
            return false;
        }
    }
    return shared == std::end(SHARED_NUMBERS);
}
static_assert(numbersAreUniqueButForTheShared(), "a number stands twice, or a shared one does not");

constexpr bool rowsAreWellFormed() {
    return std::all_of(SORTED.begin(), SORTED.end(), [](const Point& point) {
        return point.level >= 1 && point.level <= 5 && point.text.ends_with('\n') &&
               point.text.find('\n') == point.text.size() - 1 && point.text.find('`') == point.text.npos;
    });
}
static_assert(rowsAreWellFormed(), "a level is not 1 to 5, or a text is not one line");

// The message without its line end, as a table cell shows it.
std::string cell(std::string_view text) {
    std::string result;
    for (const char c : text.substr(0, text.size() - 1)) {
        if (c == '|') {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::string remark(const Point& point) {
    std::string result;
    if (point.kind == TraceKind::DATA) {
        result = "followed by a dump";
    }
    if ((point.flags & STALE_STAMP) != 0) {
        result += result.empty() ? "" : ", ";
        result += "time stamp of the line before";
    }
    if ((point.flags & NOT_UNDER_TRACE_LOCK) != 0) {
        result += result.empty() ? "" : ", ";
        result += "without the trace lock";
    }
    return result;
}

constexpr char HEAD[] =
    "# Trace points\n"
    "\n"
    "Every line that the trace can show, by number. [trace.md](trace.md) says how to read one. This page is made by\n"
    "`scripts/update-docs` from the tables in `source/c/stapi_zul_*_trace.h`.\n"
    "\n"
    "A line is written when the trace level is at least the level given here; the message is a printf format. A line\n"
    "marked \"without the trace lock\" can stand inside another thread's result set dump.\n"
    "\n"
    "| number | kind | level | message | module | remark |\n"
    "|---|---|---|---|---|---|\n";

}  // namespace

int main() {
    std::fputs(HEAD, stdout);
    for (const Point& point : SORTED) {
        std::printf("| %d | `%s` | %d | `%s` | %.*s | %s |\n", point.number, traceKindText(point.kind), point.level,
                    cell(point.text).c_str(), static_cast<int>(point.module.size()), point.module.data(),
                    remark(point).c_str());
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
