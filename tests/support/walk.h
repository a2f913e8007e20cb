// Result sets as lists of entries, walked with the exported calls or told from the model.
#pragma once

#include "simgateway/model.h"
#include "zulstats.h"

#include <iosfwd>

namespace support {

// One entry of either kind; an identifier has no value, a failed query element neither.
struct Entry {
    std::string element;
    std::int32_t rc = 0;
    std::string id{};
    std::string value{};

    bool operator==(const Entry&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Entry& entry);

using Entries = std::vector<Entry>;

// What a record says. Fields that a failed query element leaves alone are left out.
[[nodiscard]] Entry entryOf(const StatData& record);
[[nodiscard]] Entry entryOf(const IdData& record);

// A whole walk: First, then Next until the end, which a second Next confirms.
[[nodiscard]] Entries walkStats(ResultSetToken* result);
[[nodiscard]] Entries walkIds(ResultSetToken* result);
[[nodiscard]] Entries walk(ResultSetToken* result, bool statistics);

// Entries that an answer of the model has.
[[nodiscard]] Entries allStats(const simgateway::Model& model, std::uint64_t seconds = 0);
[[nodiscard]] Entries idsOnly(Entries entries);
[[nodiscard]] Entries allGroupIds(const simgateway::Model& model);
[[nodiscard]] Entries statsOfGroup(const simgateway::Model& model, const std::string& group, std::uint64_t seconds = 0);

// What a query answers that asks for everything, by its place in QUERY_CALLS.
[[nodiscard]] Entries answerOf(const simgateway::Model& model, int query);

}  // namespace support
