#include "sample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <utility>

namespace monitor {

std::string_view Sample::keep(std::string text) {
    return *texts.emplace_back(std::make_shared<const std::string>(std::move(text)));
}

void Sample::addElement(std::string_view text, std::int32_t rc) {
    elements.push_back({text, rc, items.size(), 0});
}

void Sample::addItem(std::string_view id, std::string_view value) {
    items.push_back({id, value});
    ++elements.back().itemCount;
}

std::size_t failedElements(const Sample& sample) {
    return static_cast<std::size_t>(std::count_if(sample.elements.begin(), sample.elements.end(),
                                                  [](const Element& element) { return element.rc < 0; }));
}

void keepItems(Sample& sample, const std::function<bool(const Item&)>& wanted) {
    auto end = sample.items.begin();  // of those that are kept, each at its place or before it
    for (Element& element : sample.elements) {
        const auto first = sample.items.begin() + static_cast<std::ptrdiff_t>(element.firstItem);
        const auto kept = std::copy_if(first, first + static_cast<std::ptrdiff_t>(element.itemCount), end, wanted);
        element.firstItem = static_cast<std::size_t>(end - sample.items.begin());
        element.itemCount = static_cast<std::size_t>(kept - end);
        end = kept;
    }
    sample.items.erase(end, sample.items.end());
    std::erase_if(sample.elements, [](const Element& element) { return element.rc >= 0 && element.itemCount == 0; });
}

bool holdsCounts(const Sample& sample) {
    return sample.query.what == What::groups && sample.hasValues;
}

std::string isoTime(double wallTime) {
    const double milliseconds = std::floor(wallTime * 1000);
    const std::time_t whole = static_cast<std::time_t>(milliseconds / 1000);
    std::tm fields{};
    gmtime_r(&whole, &fields);
    std::array<char, 128> text;
    const int size =
        std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", fields.tm_year + 1900,
                      fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                      static_cast<int>(milliseconds - static_cast<double>(whole) * 1000));
    return std::string(text.data(), static_cast<std::size_t>(size));
}

std::string targetText(const Target& target) {
    const bool address6 = target.host.find(':') != std::string::npos;
    return (address6 ? "[" + target.host + "]:" : target.host + ":") + std::to_string(target.port);
}

std::string_view whatName(What what) {
    constexpr std::array<std::string_view, 6> names = {"stats", "stats-by-id",  "stats-by-group",
                                                       "ids",   "ids-by-group", "groups"};
    return names[static_cast<std::size_t>(what)];
}

}  // namespace monitor
