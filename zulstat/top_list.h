// The lines of top: headings and statistics of one Gateway or several, sorted, filtered and folded.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "track.h"

namespace zulstat {

// How the statistics of several Gateways stand in one list.
enum class Together : std::uint8_t { one, all, sideBySide };

struct TopLine {
    bool heading = false;
    std::string_view group;            // of a heading and of what stands under it
    const Track* track = nullptr;      // of a statistic: that of the first Gateway that has it
    std::size_t gateway = 0;           // that one
    std::vector<const Track*> beside;  // side by side: by Gateway, null where one has none; else empty
    std::size_t count = 0;             // of a heading: statistics under it
    std::size_t constants = 0;         // those that never changed
    bool folded = false;

    bool hasTrack(const Track* wanted) const {
        return track == wanted || std::find(beside.begin(), beside.end(), wanted) != beside.end();
    }
};

struct TopOrder {
    std::size_t column = 0;  // of topColumns(); the first one keeps the Gateway's order, under headings
    bool reverse = false;
    std::string filter;     // a part of the identifier or a glob; empty for everything
    bool constants = true;  // whether those that never changed are shown
    std::set<std::string, std::less<>> folded;
    Together together = Together::one;
    std::size_t gateway = 0;  // for Together::one

    bool grouped() const {
        return column == 0 && filter.empty();
    }
};

// Valid as long as no Tracks takes a sample.
std::vector<TopLine> topLines(std::span<const Tracks* const> gateways, const TopOrder& order);

}  // namespace zulstat
