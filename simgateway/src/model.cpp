#include "simgateway/model.h"

#include <stdexcept>
#include <utility>

#include "catalogue.h"

namespace simgateway {

namespace {

std::vector<std::string_view> split(std::string_view query) {
    std::vector<std::string_view> pieces;
    while (!query.empty()) {
        const std::size_t end = query.find(':');
        if (end != 0) {
            pieces.push_back(query.substr(0, end));
        }
        query.remove_prefix(end == std::string_view::npos ? query.size() : end + 1);
    }
    return pieces;
}

int checked(int statistics) {
    if (statistics < 0 || statistics > Model::MAX_STATISTICS) {
        throw std::invalid_argument("number of statistics must be 0 to " + std::to_string(Model::MAX_STATISTICS));
    }
    return statistics;
}

template <typename Map>
auto lookUp(const Map& map, std::string_view id) -> typename Map::mapped_type {
    const auto found = map.find(id);
    return found == map.end() ? nullptr : found->second;
}

}  // namespace

Model::Model(std::uint64_t seed, int statistics) : Model(makeCatalogue(seed, checked(statistics))) {
}

Model::Model(std::vector<ResourceGroup> groups) : groupList(std::move(groups)) {
    for (const ResourceGroup& group : groupList) {
        groupsById.emplace(group.id, &group);
        for (const Statistic& statistic : group.statistics) {
            statisticsById.emplace(statistic.id, &statistic);
        }
    }
}

const std::vector<ResourceGroup>& Model::groups() const {
    return groupList;
}

Reply Model::stats(std::string_view query, std::uint64_t seconds) const {
    return select(query, Reply(Reply::Content::statistics), [seconds](Reply& reply, const Statistic& statistic) {
        reply.stat(statistic.id, statistic.value(seconds));
    });
}

Reply Model::statIds(std::string_view query) const {
    return select(query, Reply(Reply::Content::identifiers),
                  [](Reply& reply, const Statistic& statistic) { reply.id(statistic.id); });
}

Reply Model::select(std::string_view query, Reply reply,
                    const std::function<void(Reply&, const Statistic&)>& addItem) const {
    const auto addGroup = [&](const ResourceGroup& group) {
        reply.element(group.id, group.rc);
        for (const Statistic& statistic : group.statistics) {
            addItem(reply, statistic);
        }
    };
    if (query.empty()) {
        for (const ResourceGroup& group : groupList) {
            addGroup(group);
        }
    }
    for (const std::string_view piece : split(query)) {
        if (const ResourceGroup* group = lookUp(groupsById, piece)) {
            addGroup(*group);
        } else if (const Statistic* statistic = lookUp(statisticsById, piece)) {
            addItem(reply.element(piece), *statistic);
        } else {
            reply.element(piece, UNKNOWN_ELEMENT_RC);
        }
    }
    return reply;
}

Reply Model::resourceGroups(std::string_view query) const {
    Reply reply(Reply::Content::identifiers);
    if (query.empty()) {
        reply.element("*");
        for (const ResourceGroup& group : groupList) {
            if (group.isListed) {
                reply.id(group.id);
            }
        }
    }
    for (const std::string_view piece : split(query)) {
        const ResourceGroup* group = lookUp(groupsById, piece);
        if (group != nullptr && group->isListed) {
            reply.element(piece).id(piece);
        } else {
            reply.element(piece, UNKNOWN_ELEMENT_RC);
        }
    }
    return reply;
}

}  // namespace simgateway
