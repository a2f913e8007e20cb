// The statistics of a busy daemon: what they are called, how they are grouped and which values they have when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "simgateway/reply.h"

namespace simgateway {

// Return code of a query element that names neither a statistic nor a resource group.
inline constexpr std::int32_t UNKNOWN_ELEMENT_RC = -1;

struct Statistic {
    std::string id;
    std::function<std::string(std::uint64_t)> value;  // by model time in seconds, or a Scene's moment
};

struct ResourceGroup {
    std::string id;
    std::vector<Statistic> statistics;
    std::int32_t rc = 0;   // of its query elements; a negative one leaves the statistics out
    bool isListed = true;  // false: a name that statistics can be asked for by, and no resource group
};

// A value of the busy daemon depends on the seed, the statistic's identifier and the model time alone, so equal seeds
// give equal values at equal times whatever was asked before and however many statistics there are. Never changes after
// construction.
class Model {
public:
    static constexpr int MAX_STATISTICS = 100000;

    // Throws std::invalid_argument unless 0 <= statistics <= maxStatistics.
    explicit Model(std::uint64_t seed = 1, int statistics = 150);
    // Of groups made elsewhere. Where an identifier comes twice, queries by it find the first.
    explicit Model(std::vector<ResourceGroup> groups);
    // The index points into the groups.
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    const std::vector<ResourceGroup>& groups() const;

    // Replies to the three operations. A query string is a list of identifiers separated by colons; empty pieces count
    // for nothing. The empty query string asks for everything: one element for each resource group (stats, statIds),
    // or one element "*" with all groups (resourceGroups). An unknown identifier gives an element with
    // unknownElementRc.
    Reply stats(std::string_view query, std::uint64_t seconds) const;
    Reply statIds(std::string_view query) const;
    Reply resourceGroups(std::string_view query) const;

private:
    Reply select(std::string_view query, Reply reply,
                 const std::function<void(Reply&, const Statistic&)>& addItem) const;

    std::vector<ResourceGroup> groupList;
    std::unordered_map<std::string_view, const ResourceGroup*> groupsById;
    std::unordered_map<std::string_view, const Statistic*> statisticsById;
};

}  // namespace simgateway
