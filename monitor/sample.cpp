#include "sample.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

namespace monitor {

std::size_t itemCount(const Sample& sample) {
    std::size_t count = 0;
    for (const Element& element : sample.elements) {
        count += element.items.size();
    }
    return count;
}

std::size_t failedElements(const Sample& sample) {
    return static_cast<std::size_t>(std::count_if(sample.elements.begin(), sample.elements.end(),
                                                  [](const Element& element) { return element.rc < 0; }));
}

bool holdsCounts(const Sample& sample) {
    return sample.query.what == What::groups && sample.hasValues;
}

std::string isoTime(double wallTime) {
    const double milliseconds = std::floor(wallTime * 1000);
    const std::time_t whole = static_cast<std::time_t>(milliseconds / 1000);
    std::tm fields{};
    gmtime_r(&whole, &fields);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.tm_year + 1900, fields.tm_mon + 1,
                       fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                       static_cast<int>(milliseconds - static_cast<double>(whole) * 1000));
}

std::string targetText(const Target& target) {
    const bool address6 = target.host.find(':') != std::string::npos;
    return fmt::format(fmt::runtime(address6 ? "[{}]:{}" : "{}:{}"), target.host, target.port);
}

std::string_view whatName(What what) {
    constexpr std::array<std::string_view, 6> names = {"stats", "stats-by-id",  "stats-by-group",
                                                       "ids",   "ids-by-group", "groups"};
    return names[static_cast<std::size_t>(what)];
}

}  // namespace monitor
