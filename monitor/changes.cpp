#include "changes.h"

#include <string_view>
#include <utility>

namespace monitor {

std::optional<double> Change::perSecond() const {
    return difference && !fell && seconds > 0 ? std::optional(*difference / seconds) : std::nullopt;
}

std::vector<Change> Changes::next(const Sample& sample) {
    const double seconds = sample.monotonicTime - formerTime;
    std::vector<Change> changes;
    changes.reserve(sample.items.size());
    std::map<ItemKey, Number> current;
    std::map<std::pair<std::string_view, std::string_view>, std::size_t> seen;
    for (const Element& element : sample.elements) {
        for (const Item& item : sample.itemsOf(element)) {
            const std::size_t repeated = seen[{element.text, item.id}]++;
            Change change{{std::string(element.text), std::string(item.id), repeated},
                          parseNumber(item.value),
                          std::nullopt,
                          false,
                          seconds};
            if (change.number) {
                const auto place = former.find(change.key);
                if (place != former.end()) {
                    const double grown = difference(*change.number, place->second);
                    change.fell = grown < 0;
                    change.difference = sample.freshConnection ? std::nullopt : std::optional(grown);
                }
                current.emplace(change.key, *change.number);
            }
            changes.push_back(std::move(change));
        }
    }
    former = std::move(current);
    formerTime = sample.monotonicTime;
    return changes;
}

}  // namespace monitor
