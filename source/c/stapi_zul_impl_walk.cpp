// The exported calls that walk a result set. Nothing is copied: the caller's record receives pointers into the content.
// A call works on a walk of its own and writes it back to the token only when it returns an entry.
#include "stapi_zul_impl.h"

#include "stapi_zul_diag.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_shown.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "stapi_zul_impl_trace.h"

static_assert(sizeof(void*) != 8 || (sizeof(StatData) == 56 && sizeof(IdData) == 40),
              "the records are part of the ABI");

namespace {

constexpr std::size_t WORD_SIZE = 4;

// The content of one result set and the bound of its buffer.
struct Content {
    const char* head;

    const char* end() const {
        return head + RESULT_SET_BUFFER_SIZE;
    }
    bool has(const char* at, std::size_t count) const {
        return static_cast<std::size_t>(end() - at) >= count;
    }
    const char* firstElement() const {
        return head + EYECATCHER_SIZE + WORD_SIZE;
    }
    std::uint32_t queryCount() const {
        return loadWord(head + EYECATCHER_SIZE);
    }
    // No further entry at this position.
    bool endsAt(const char* at) const {
        return !has(at, WORD_SIZE) || loadWord(at) == RESULT_SET_TERMINATOR;
    }
};

struct Text {
    const char* chars;
    std::int32_t length;
};

struct QueryElement {
    Text text;
    std::int32_t rc;
};

// The position fields of a token.
struct Walk {
    const char* cursor;
    std::uint32_t queryHeaderCount;
    std::uint32_t queryIndex;
    std::uint32_t elementCount;
    std::uint32_t elementResultIndex;
    QueryElement element;
};

// Reads a length and its text; false when they reach beyond the buffer, the cursor is then unchanged.
bool readText(const Content& content, const char** cursor, Text* text) {
    if (!content.has(*cursor, WORD_SIZE)) {
        return false;
    }
    const std::uint32_t length = loadWord(*cursor);
    const char* chars = *cursor + WORD_SIZE;
    if (!content.has(chars, length)) {
        return false;
    }
    *text = {chars, static_cast<std::int32_t>(length)};
    *cursor = chars + length;
    return true;
}

bool readWord(const Content& content, const char** cursor, std::uint32_t* value) {
    if (!content.has(*cursor, WORD_SIZE)) {
        return false;
    }
    *value = loadWord(*cursor);
    *cursor += WORD_SIZE;
    return true;
}

Walk loadWalk(const ResultSetToken& rs) {
    return {rs.next,
            rs.queryHeaderCount,
            rs.queryIndex,
            rs.elementCount,
            rs.elementResultIndex,
            {{rs.queryElementPtr, static_cast<std::int32_t>(rs.queryElementLen)}, rs.queryElementRC}};
}

// What a step inside a query element changes.
void storeStep(const Walk& walk, ResultSetToken* rs) {
    storeShown(&rs->next, const_cast<char*>(walk.cursor));
    rs->queryIndex = walk.queryIndex;
    rs->elementResultIndex = walk.elementResultIndex;
}

void storeWalk(const Walk& walk, ResultSetToken* rs) {
    storeStep(walk, rs);
    rs->queryHeaderCount = walk.queryHeaderCount;
    rs->elementCount = walk.elementCount;
    rs->queryElementPtr = walk.element.text.chars;
    rs->queryElementLen = static_cast<std::uint32_t>(walk.element.text.length);
    rs->queryElementRC = walk.element.rc;
}

Walk newWalk(const Content& content) {
    return {content.firstElement(), content.queryCount(), 1, 0, 0, {}};
}

using QueryHeaderPoint = TracePoint<int, int, const void*, const void*, int, const void*, int>;

void traceQueryHeader(const QueryHeaderPoint& point, const ResultSetToken* rs, const Walk& walk, const char* cursor,
                      const QueryElement& shown) {
    TRACE(point, static_cast<int>(walk.queryIndex), static_cast<int>(walk.queryHeaderCount), rs, cursor,
          shown.text.length, shown.text.chars, shown.rc);
}

// The two kinds of content. `First` and `Next` are the trace lines of the two calls; an absent line is null.
struct CallTrace {
    const TracePoint<>& wrongContent;
    const TracePoint<const void*, const void*, int>* negativeRc;
    const TracePoint<int, int, const void*, const void*, int>* item;
    const TracePoint<int, const void*>& endOfSubset;
    const TracePoint<const void*>& retrieved;
};

struct StatWalk {
    using Record = StatData;
    struct Item {
        Text id;
        Text value;
    };
    static constexpr const char* MARKER = STATS_CONTENT_MARKER;
    static constexpr int NULL_RECORD = STAPI_RC_NULL_STAT_DATA;
    static constexpr CallTrace FIRST = {getFirstStat_wrongContent, nullptr, nullptr, getFirstStat_endOfSubset,
                                        getFirstStat_retrieved};
    static constexpr CallTrace NEXT = {getNextStat_wrongContent, &getNextStat_negativeRc, &getNextStat_item,
                                       getNextStat_endOfSubset, getNextStat_retrieved};
    static constexpr const auto& NOT_STARTED = getNextStat_notStarted;

    static bool readItem(const Content& content, const char** cursor, Item* item, const char** behindLength) {
        *behindLength = *cursor + WORD_SIZE;
        return readText(content, cursor, &item->id) && readText(content, cursor, &item->value);
    }
    static void store(const Item& item, StatData* record) {
        record->statIdLen = item.id.length;
        record->statIdPtr = item.id.chars;
        record->statValueLen = item.value.length;
        record->statValuePtr = item.value.chars;
    }
    static void traceFirstElement(const ResultSetToken* rs, const Walk& walk, const char* lengthWord,
                                  const StatData& record) {
        // Kept: pointer and code are shown as the record still holds them.
        traceQueryHeader(getFirstStat_queryHeader, rs, walk, lengthWord,
                         {{record.queryElementPtr, walk.element.text.length}, record.queryElementRC});
        TRACE(getFirstStat_caching, rs, walk.cursor, walk.element.text.length, walk.element.text.chars,
              walk.element.rc);
    }
    static void traceNextElement(const ResultSetToken* rs, const Walk& walk) {
        traceQueryHeader(getNextStat_queryHeader, rs, walk, walk.cursor, walk.element);
    }
};

struct IdWalk {
    using Record = IdData;
    struct Item {
        Text id;
    };
    static constexpr const char* MARKER = IDS_CONTENT_MARKER;
    static constexpr int NULL_RECORD = STAPI_RC_NULL_ID_DATA;
    static constexpr CallTrace FIRST = {getFirstId_wrongContent, &getFirstId_negativeRc, &getFirstId_item,
                                        getFirstId_endOfSubset, getFirstId_retrieved};
    static constexpr CallTrace NEXT = {getNextId_wrongContent, &getNextId_negativeRc, &getNextId_item,
                                       getNextId_endOfSubset, getNextId_retrieved};
    static constexpr const auto& NOT_STARTED = getNextId_notStarted;

    static bool readItem(const Content& content, const char** cursor, Item* item, const char** behindLength) {
        *behindLength = *cursor + WORD_SIZE;
        return readText(content, cursor, &item->id);
    }
    static void store(const Item& item, IdData* record) {
        record->idLen = item.id.length;
        record->idPtr = item.id.chars;
    }
    static void traceFirstElement(const ResultSetToken* rs, const Walk& walk, const char* /*lengthWord*/,
                                  const IdData& /*record*/) {
        traceQueryHeader(getFirstId_queryHeader, rs, walk, walk.cursor, walk.element);
    }
    static void traceNextElement(const ResultSetToken* rs, const Walk& walk) {
        traceQueryHeader(getNextId_queryHeader, rs, walk, walk.cursor, walk.element);
    }
};

// Reads text and rc of the query element at the cursor.
bool readElement(const Content& content, Walk* walk) {
    std::uint32_t rc = 0;
    if (!readText(content, &walk->cursor, &walk->element.text) || !readWord(content, &walk->cursor, &rc)) {
        return false;
    }
    walk->element.rc = static_cast<std::int32_t>(rc);
    return true;
}

template <typename Kind>
void storeElement(const QueryElement& element, typename Kind::Record* record) {
    record->queryElementPtr = element.text.chars;
    record->queryElementLen = element.text.length;
    record->queryElementRC = element.rc;
}

// How a call comes to an item: it goes on inside a query element, or has just read one.
enum class ItemOf { CURRENT_ELEMENT, NEW_ELEMENT };

// Reads the item at the cursor into the record and steps over it.
template <typename Kind, const CallTrace& Call, ItemOf Element>
int takeItem(const Content& content, Walk* walk, ResultSetToken* rs, typename Kind::Record* record) {
    typename Kind::Item item;
    const char* behindLength = nullptr;
    if (!Kind::readItem(content, &walk->cursor, &item, &behindLength)) {
        return STAPI_RC_END_OF_RESULT_SET;
    }
    if (Call.item != nullptr) {
        TRACE(*Call.item, static_cast<int>(walk->queryIndex), static_cast<int>(walk->elementResultIndex), rs,
              behindLength, item.id.length);
    }
    storeElement<Kind>(walk->element, record);
    Kind::store(item, record);
    if (walk->elementResultIndex + 1 > walk->elementCount) {
        walk->elementResultIndex = 0;
        TRACE(Call.endOfSubset, static_cast<int>(walk->queryIndex), rs);
        ++walk->queryIndex;
    } else {
        ++walk->elementResultIndex;
    }
    if constexpr (Element == ItemOf::NEW_ELEMENT) {
        storeWalk(*walk, rs);
    } else {
        storeStep(*walk, rs);
    }
    TRACE(Call.retrieved, rs);
    return 0;
}

// Takes the next entry from the start of a query element on: the failed element, or the first item of the first element
// that has one. traceElement shows each element read.
template <typename Kind, const CallTrace& Call, typename TraceElement>
int takeFromElement(const Content& content, Walk* walk, ResultSetToken* rs, typename Kind::Record* record,
                    TraceElement traceElement) {
    while (!content.endsAt(walk->cursor)) {
        const char* lengthWord = walk->cursor;
        if (!readElement(content, walk)) {
            break;
        }
        traceElement(lengthWord);
        if (walk->element.rc < 0) {
            if (Call.negativeRc != nullptr) {
                TRACE(*Call.negativeRc, rs, record, walk->element.rc);
            }
            storeElement<Kind>(walk->element, record);
            walk->elementResultIndex = 0;
            ++walk->queryIndex;
            storeWalk(*walk, rs);
            return 0;
        }
        if (!readWord(content, &walk->cursor, &walk->elementCount)) {
            break;
        }
        if (static_cast<std::int32_t>(walk->elementCount) > 0) {
            walk->elementResultIndex = 1;
            return takeItem<Kind, Call, ItemOf::NEW_ELEMENT>(content, walk, rs, record);
        }
        ++walk->queryIndex;  // an element without items has no entry
    }
    return STAPI_RC_END_OF_RESULT_SET;
}

template <typename Kind, const CallTrace& Call>
int checkWalk(const ResultSetToken* rs, const typename Kind::Record* record) {
    if (rs == nullptr) {
        return STAPI_RC_NULL_RESULT_SET;
    }
    if (record == nullptr) {
        return Kind::NULL_RECORD;
    }
    if (rs->head == nullptr) {
        return STAPI_RC_NO_RESULT_SET_BUFFER;
    }
    if (!hasContent(rs->head, Kind::MARKER)) {
        TRACE(Call.wrongContent);
        return STAPI_RC_WRONG_RESULT_SET_CONTENT;
    }
    return checkOwner(rs);
}

template <typename Kind>
int takeFirst(ResultSetToken* rs, typename Kind::Record* record) {
    const int rc = checkWalk<Kind, Kind::FIRST>(rs, record);
    if (rc != 0) {
        return rc;
    }
    const Content content = {rs->head};
    std::memcpy(record->eyecatcher, content.head, sizeof record->eyecatcher);
    // Kept: the count word is tested for the terminator.
    if (content.queryCount() == RESULT_SET_TERMINATOR || content.queryCount() == 0) {
        return STAPI_RC_END_OF_RESULT_SET;
    }
    Walk walk = newWalk(content);
    return takeFromElement<Kind, Kind::FIRST>(content, &walk, rs, record, [&](const char* lengthWord) {
        Kind::traceFirstElement(rs, walk, lengthWord, *record);
    });
}

// What the exit lines of the First calls show as "last".
int isLast(int rc) {
    return rc == STAPI_RC_END_OF_RESULT_SET ? 1 : 0;
}

template <typename Kind>
int takeNext(ResultSetToken* rs, typename Kind::Record* record) {
    const int rc = checkWalk<Kind, Kind::NEXT>(rs, record);
    if (rc != 0) {
        return rc;
    }
    const Content content = {rs->head};
    Walk walk = loadWalk(*rs);
    if (walk.queryIndex == 0) {
        std::memcpy(record->eyecatcher, content.head, sizeof record->eyecatcher);
        walk = newWalk(content);
        TRACE(Kind::NOT_STARTED, rs, walk.cursor);
    }
    if (walk.elementResultIndex != 0) {
        return content.endsAt(walk.cursor)
                   ? STAPI_RC_END_OF_RESULT_SET
                   : takeItem<Kind, Kind::NEXT, ItemOf::CURRENT_ELEMENT>(content, &walk, rs, record);
    }
    return takeFromElement<Kind, Kind::NEXT>(content, &walk, rs, record,
                                             [&](const char*) { Kind::traceNextElement(rs, walk); });
}

// The common step of a walk: nothing is traced, the caller owns the result set, the position is inside a query element
// and the item is whole. False, with nothing changed, where any of that is not so. It does what takeItem does, in fewer
// instructions.
template <typename Kind>
[[gnu::always_inline]] inline bool stepQuietly(ResultSetToken* rs, typename Kind::Record* record) {
    if (stapiState.load(std::memory_order_acquire) == 0 || traceIsOpen(Kind::NEXT.retrieved.row.level) ||
        rs == nullptr || record == nullptr || rs->head == nullptr || rs->queryIndex == 0 ||
        rs->elementResultIndex == 0 || !hasContent(rs->head, Kind::MARKER) ||
        (rs->owner == CONNECTION_OWNED && !isSurelyCaller(rs->pid, rs->owningThread))) {
        return false;
    }
    const Content content = {rs->head};
    const char* cursor = rs->next;
    typename Kind::Item item;
    const char* behindLength = nullptr;
    if (content.endsAt(cursor) || !Kind::readItem(content, &cursor, &item, &behindLength)) {
        return false;
    }
    storeElement<Kind>({{rs->queryElementPtr, static_cast<std::int32_t>(rs->queryElementLen)}, rs->queryElementRC},
                       record);
    Kind::store(item, record);
    if (rs->elementResultIndex + 1 > rs->elementCount) {
        rs->elementResultIndex = 0;
        ++rs->queryIndex;
    } else {
        ++rs->elementResultIndex;
    }
    storeShown(&rs->next, const_cast<char*>(cursor));
    return true;
}

// A Next call in full. Not inlined: the common step then needs no room for what this one does.
template <typename Kind, const auto& Entry, const auto& Exit>
[[gnu::noinline]] int traceNext(ResultSetToken* rs, typename Kind::Record* record) {
    int rc = stapiInit();
    TRACE(Entry, rs, record);
    if (rc == 0) {
        rc = takeNext<Kind>(rs, record);
    }
    TRACE(Exit, rc);
    return rc;
}

}  // namespace

int getFirstStat(ResultSetToken* rsPtr, StatData* statDataPtr) {
    int rc = stapiInit();
    TRACE(getFirstStat_entry, rsPtr, statDataPtr);
    if (rc == 0) {
        rc = takeFirst<StatWalk>(rsPtr, statDataPtr);
    }
    TRACE(getFirstStat_exit, isLast(rc), rc);
    return rc;
}

int getNextStat(ResultSetToken* rsPtr, StatData* statDataPtr) {
    return stepQuietly<StatWalk>(rsPtr, statDataPtr)
               ? 0
               : traceNext<StatWalk, getNextStat_entry, getNextStat_exit>(rsPtr, statDataPtr);
}

int getFirstId(ResultSetToken* rsPtr, IdData* idDataPtr) {
    int rc = stapiInit();
    TRACE(getFirstId_entry, rsPtr, idDataPtr);
    if (rc == 0) {
        rc = takeFirst<IdWalk>(rsPtr, idDataPtr);
    }
    TRACE(getFirstId_exit, isLast(rc), rc);
    return rc;
}

int getNextId(ResultSetToken* rsPtr, IdData* idDataPtr) {
    return stepQuietly<IdWalk>(rsPtr, idDataPtr) ? 0
                                                 : traceNext<IdWalk, getNextId_entry, getNextId_exit>(rsPtr, idDataPtr);
}
