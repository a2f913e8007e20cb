#include "walk.h"

#include "fixture.h"

namespace support {

namespace {

std::string text(const char* chars, std::int32_t length) {
    return {chars, static_cast<std::size_t>(length)};
}

template <typename Record>
Entries walkAll(ResultSetToken* result, int (*first)(ResultSetToken*, Record*), int (*next)(ResultSetToken*, Record*),
                std::string_view eyecatcher) {
    Entries entries;
    Record record{};
    int rc = first(result, &record);
    EXPECT_EQ(std::string_view(record.eyecatcher, sizeof record.eyecatcher), eyecatcher);
    while (rc == 0) {
        entries.push_back(entryOf(record));
        rc = next(result, &record);
    }
    EXPECT_EQ(rc, STAPI_RC_END_OF_RESULT_SET);
    if (!entries.empty()) {
        EXPECT_EQ(next(result, &record), STAPI_RC_END_OF_RESULT_SET) << "the end does not last";
        EXPECT_EQ(entryOf(record), entries.back()) << "the record was changed at the end";
    }
    return entries;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Entry& entry) {
    return out << "{" << entry.element << ", " << entry.rc << ", " << entry.id << ", " << entry.value << "}";
}

Entry entryOf(const StatData& record) {
    Entry entry{text(record.queryElementPtr, record.queryElementLen), record.queryElementRC};
    if (record.queryElementRC >= 0) {
        entry.id = text(record.statIdPtr, record.statIdLen);
        entry.value = text(record.statValuePtr, record.statValueLen);
    }
    return entry;
}

Entry entryOf(const IdData& record) {
    Entry entry{text(record.queryElementPtr, record.queryElementLen), record.queryElementRC};
    if (record.queryElementRC >= 0) {
        entry.id = text(record.idPtr, record.idLen);
    }
    return entry;
}

Entries walkStats(ResultSetToken* result) {
    return walkAll<StatData>(result, getFirstStat, getNextStat, "ZULSTSET");
}

Entries walkIds(ResultSetToken* result) {
    return walkAll<IdData>(result, getFirstId, getNextId, "ZULIDSET");
}

Entries walk(ResultSetToken* result, bool statistics) {
    return statistics ? walkStats(result) : walkIds(result);
}

Entries allStats(const simgateway::Model& model, std::uint64_t seconds) {
    Entries entries;
    for (const simgateway::ResourceGroup& group : model.groups()) {
        for (const simgateway::Statistic& statistic : group.statistics) {
            entries.push_back({group.id, 0, statistic.id, statistic.value(seconds)});
        }
    }
    return entries;
}

Entries idsOnly(Entries entries) {
    for (Entry& entry : entries) {
        entry.value.clear();
    }
    return entries;
}

Entries allGroupIds(const simgateway::Model& model) {
    Entries entries;
    for (const simgateway::ResourceGroup& group : model.groups()) {
        entries.push_back({"*", 0, group.id});
    }
    return entries;
}

Entries answerOf(const simgateway::Model& model, int query) {
    const Entries entries = query == 2 ? allGroupIds(model) : allStats(model);
    return QUERY_CALLS[query].statistics ? entries : idsOnly(entries);
}

Entries statsOfGroup(const simgateway::Model& model, const std::string& group, std::uint64_t seconds) {
    Entries entries = allStats(model, seconds);
    std::erase_if(entries, [&](const Entry& entry) { return entry.element != group; });
    return entries;
}

}  // namespace support
