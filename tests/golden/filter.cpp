#include "filter.h"

#include <cstddef>
#include <regex>

namespace golden {

namespace {

// Up to the trace point: an optional time stamp and the two ids.
const std::regex PREFIX(R"(^(\d\d/\d\d/\d\d \d\d:\d\d:\d\d:\d{3})? \[0x[0-9A-F]{8},0x[0-9A-F]{8}\] (?=\[\d{4}\] ))");

const std::regex DUMP_ADDRESS("^0x[0-9A-F]{8}: ");

struct Rule {
    std::regex pattern;
    const char* replacement;
};

const Rule RULES[] = {
    {std::regex("0x0x[0-9a-f]+"), "0x<ptr>"},  // some texts write the 0x themselves
    {std::regex("0x[0-9a-f]+"), "<ptr>"},
    {std::regex(R"((socketDesc(?:riptor)?[=(]|socket[(]|socket: |socket |socketdescriptor )\d+)"), "$1<fd>"},
    {std::regex(R"(((?:owning|current)[PT]id[=(])-?[0-9A-Fa-f]+)"), "$1<id>"},
    {std::regex(R"((getHostInfoUnable to resolve host \(.*\): ).*)"), "$1<reason>"},
};

std::string replaceAll(std::string text, const std::string& part, const std::string& by) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size())) {
        text.replace(at, part.size(), by);
    }
    return text;
}

}  // namespace

int numberOf(const std::string& line) {
    std::smatch prefix;
    return std::regex_search(line, prefix, PREFIX) ? std::stoi(prefix.suffix().str().substr(1, 4)) : 0;
}

std::string filtered(const std::string& line, const std::string& directory, int port) {
    if (std::regex_search(line, DUMP_ADDRESS)) {
        return std::regex_replace(line, DUMP_ADDRESS, "");
    }
    std::string text = std::regex_replace(line, PREFIX, "");
    for (const Rule& rule : RULES) {
        text = std::regex_replace(text, rule.pattern, rule.replacement);
    }
    text = std::regex_replace(text, std::regex("\\b" + std::to_string(port) + "\\b"), "<port>");
    return replaceAll(text, directory, "<directory>/");
}

}  // namespace golden
