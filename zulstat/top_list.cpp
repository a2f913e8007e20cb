#include "top_list.h"

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "text.h"
#include "top_columns.h"

namespace zulstat {

namespace {

// A filter without glob characters matches anywhere in the identifier.
class Filter {
public:
    explicit Filter(const std::string& text)
        : glob(text.find_first_of("*?[") != std::string::npos ? text : "*" + text + "*"), all(text.empty()) {
    }
    bool keeps(const Track& track) const {
        return all || globMatches(glob, track.shownId);
    }

private:
    std::string glob;
    bool all;
};

// Numbers from the largest on, or from the least; what is none comes last both ways.
bool before(const std::optional<double>& left, const std::optional<double>& right, bool reverse) {
    return left && (!right || (reverse ? *left < *right : *left > *right));
}

// Those of several Gateways that are the same statistic come to stand side by side, or one below the other.
void join(std::vector<TopLine>& lines, std::size_t gateways, bool sideBySide) {
    using Key = std::tuple<std::string_view, std::string_view, std::size_t, bool>;
    std::map<Key, std::size_t> places;
    std::vector<std::vector<TopLine>> joined;
    for (TopLine& line : lines) {
        const Track& track = *line.track;
        const auto [place, isNew] =
            places.emplace(Key(track.element, track.id, track.repeated, track.failed), joined.size());
        if (isNew) {
            joined.emplace_back();
        }
        joined[place->second].push_back(std::move(line));
    }
    lines.clear();
    for (std::vector<TopLine>& same : joined) {
        if (!sideBySide) {
            std::move(same.begin(), same.end(), std::back_inserter(lines));
            continue;
        }
        TopLine line = same.front();
        line.beside.resize(gateways);
        for (const TopLine& one : same) {
            line.beside[one.gateway] = one.track;
        }
        lines.push_back(std::move(line));
    }
}

bool isConstant(const TopLine& line) {
    return line.track->constant() && std::all_of(line.beside.begin(), line.beside.end(), [](const Track* track) {
               return track == nullptr || track->constant();
           });
}

std::vector<TopLine> underHeadings(std::vector<TopLine> lines, const TopOrder& order) {
    std::unordered_map<std::string_view, std::size_t> places;
    std::vector<std::pair<TopLine, std::vector<TopLine>>> groups;
    std::vector<TopLine> result;
    std::size_t current = 0;  // of the groups: neighbours are mostly of one
    for (TopLine& line : lines) {
        if (line.track->failed) {
            result.push_back(std::move(line));  // above everything
            continue;
        }
        if (groups.empty() || groups[current].first.group != line.group) {
            const auto [place, isNew] = places.emplace(line.group, groups.size());
            if (isNew) {
                TopLine heading;
                heading.heading = true;
                heading.group = line.group;
                groups.emplace_back(std::move(heading), std::vector<TopLine>());
            }
            current = place->second;
        }
        auto& [heading, members] = groups[current];
        ++heading.count;
        heading.constants += isConstant(line) ? 1 : 0;
        if (order.constants || !isConstant(line)) {
            members.push_back(std::move(line));
        }
    }
    if (order.reverse) {
        std::reverse(groups.begin(), groups.end());
    }
    for (auto& [heading, members] : groups) {
        heading.folded = order.folded.contains(heading.group);
        const bool shown = !heading.folded;
        if (!heading.group.empty()) {
            result.push_back(std::move(heading));
        }
        if (shown) {
            if (order.reverse) {
                std::reverse(members.begin(), members.end());
            }
            std::move(members.begin(), members.end(), std::back_inserter(result));
        }
    }
    return result;
}

}  // namespace

std::vector<TopLine> topLines(std::span<const Tracks* const> gateways, const TopOrder& order) {
    const Filter filter(order.filter);
    std::vector<TopLine> lines;
    for (std::size_t gateway = 0; gateway < gateways.size(); ++gateway) {
        if (order.together == Together::one && gateway != order.gateway) {
            continue;
        }
        for (const std::unique_ptr<Track>& track : gateways[gateway]->all()) {
            if (filter.keeps(*track)) {
                TopLine line;
                line.group = track->group;
                line.track = track.get();
                line.gateway = gateway;
                lines.push_back(std::move(line));
            }
        }
    }
    if (order.together != Together::one) {
        join(lines, gateways.size(), order.together == Together::sideBySide);
    }
    if (order.grouped()) {
        return underHeadings(std::move(lines), order);
    }
    if (!order.constants && order.filter.empty()) {
        std::erase_if(lines, isConstant);
    }
    if (const auto number = topColumns()[order.column].number; number != nullptr) {
        std::vector<std::pair<std::optional<double>, std::size_t>> sortKeys;
        sortKeys.reserve(lines.size());
        for (std::size_t index = 0; index < lines.size(); ++index) {
            const Track& track = *lines[index].track;
            sortKeys.emplace_back(track.failed ? std::nullopt : number(track), index);
        }
        std::stable_sort(sortKeys.begin(), sortKeys.end(), [&](const auto& left, const auto& right) {
            return before(left.first, right.first, order.reverse);
        });
        std::vector<TopLine> sorted;
        sorted.reserve(lines.size());
        for (const auto& [key, index] : sortKeys) {
            sorted.push_back(std::move(lines[index]));
        }
        return sorted;
    }
    if (order.reverse) {
        std::reverse(lines.begin(), lines.end());
    }
    return lines;
}

}  // namespace zulstat
