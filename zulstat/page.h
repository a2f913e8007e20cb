// The page of zulstat report: HTML of its own that needs no script and no other resource. Every text of a recording
// passes escapeHtml().
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "timeline.h"

namespace zulstat {

// A recording that the page is made of.
struct PageFile {
    std::string name;  // shown
    std::uint64_t samples = 0;
    std::uint64_t torn = 0;  // lines that are no whole sample
};

// Hands the page over in pieces.
void writePage(const Timelines& lines, const std::vector<PageFile>& files,
               const std::function<void(std::string_view)>& write);

}  // namespace zulstat
