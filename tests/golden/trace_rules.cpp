#include "trace_rules.h"

#include "stapi_zul_diag.h"

#include <cctype>
#include <map>
#include <regex>
#include <string_view>
#include <vector>

namespace golden {

namespace {

struct Point {
    int number;
    std::string kind;
    int level;
    std::string text;
};

#undef TRACE_POINT
#define TRACE_POINT(name, number, kind, level, text, ...) {number, #kind, level, text},
const Point POINTS[] = {
#include "stapi_zul_gwycon_trace.h"
#include "stapi_zul_gwytok_trace.h"
#include "stapi_zul_impl_trace.h"
#include "stapi_zul_lock_trace.h"
#include "stapi_zul_resultsetbuffer_trace.h"
#include "stapi_zul_socketcomms_trace.h"
#include "stapi_zul_statcomms_trace.h"
#include "stapi_zul_statquery_trace.h"
};

// The regular expression of a text that a conversion writes.
std::string conversion(char kind) {
    switch (kind) {
    case 'd':
        return "-?[0-9]+";
    case 'u':
        return "[0-9]+";
    case 'x':
        return "[0-9a-f]+";
    case 'X':
        return "[0-9A-F]+";
    case 'p':
        return "(0x[0-9a-f]+|\\(nil\\))";
    case 'c':
        return ".?";
    default:
        return ".*";
    }
}

// The regular expression of the lines that a format writes.
std::regex lineOf(std::string_view format) {
    std::string pattern;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%') {
            do {
                ++i;
            } while (format[i] == '.' || format[i] == '-' || std::isdigit(static_cast<unsigned char>(format[i])) != 0);
            pattern += conversion(format[i]);
        } else if (format[i] != '\n') {
            if (std::isalnum(static_cast<unsigned char>(format[i])) == 0) {
                pattern += '\\';
            }
            pattern += format[i];
        }
    }
    return std::regex(pattern, std::regex::optimize);
}

struct Row {
    std::string kind;
    int level;
    std::regex line;
};

const std::multimap<int, Row>& rows() {
    static const std::multimap<int, Row> instance = [] {
        std::multimap<int, Row> made;
        for (const Point& point : POINTS) {
            const std::string shown = point.kind == "EXC" ? "*EXC*" : point.kind;
            made.insert({point.number, {shown + std::string(6 - shown.size(), ' '), point.level, lineOf(point.text)}});
        }
        return made;
    }();
    return instance;
}

const std::regex PREFIX(
    R"((?:\d\d/\d\d/\d\d \d\d:\d\d:\d\d:\d{3})? \[0x[0-9A-F]{8},0x[0-9A-F]{8}\] \[(\d{4})\] (.{6}) (.*))");

const std::regex PLAIN[] = {
    std::regex(
        R"(\*\*\*\* QAL Velatra ZULSTATS DLL Version 1_1_0_0 Diagnostic trace - build\(b410-20090429\) \*\*\*\*)"),
    std::regex(R"(zulstats state dump: API Version=1_1_0_0 Trace Level=\d statAPITraceFile=.*)"),
    std::regex("Gateway Token List dump"),
    std::regex("The Gateway Token List is EMPTY"),
    std::regex(R"(Gateway Token List entry -\d{4}- : GatwayToken\(.*\))"),
    std::regex(R"(Total number of Gateway Token List entries=\d+)"),
    std::regex(
        R"(Dump of ResultSet\(0x[0-9a-f]+\) owner\((8888|9999)\) head\(0x[0-9a-f]+\) next\((0x[0-9a-f]+|\(nil\))\))"),
    std::regex("-{80}"),
    std::regex("0x[0-9A-F]{8}: [0-9A-F ]{35} : .{0,16} ?"),
    std::regex(R"(API\.stapiInit\(\) Initialization of zulstats API trace has failed\. rc=-?\d+)"),
};

}  // namespace

std::string faultOf(const std::string& line, int level) {
    std::smatch match;
    if (!std::regex_match(line, match, PREFIX)) {
        for (const std::regex& plain : PLAIN) {
            if (std::regex_match(line, plain)) {
                return "";
            }
        }
        return "a line of no known kind";
    }
    const auto [begin, end] = rows().equal_range(std::stoi(match[1]));
    for (auto row = begin; row != end; ++row) {
        if (row->second.kind == match[2] && std::regex_match(match[3].str(), row->second.line)) {
            return row->second.level <= level ? "" : "a trace point that is not open";
        }
    }
    return "not the kind and text of the trace point";
}

}  // namespace golden
