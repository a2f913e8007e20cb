// From reply data, an object stream of the Gateway, to the layout of a result set buffer. The stream is not decoded in
// general: fixed distances and length fields lead from one field to the next.
//
// Reads are checked against the end of the reply data, skips are not: an element is complete as soon as its last field
// is stored, whatever the stream still owes behind it.
//
// There are two of each parser: one that traces every field it stores, and holds contentMutex for each, and one for a
// trace that shows none, which keeps its positions in registers and contentMutex throughout.
#include "stapi_zul_statcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_mutex.h"
#include "stapi_zul_resultsetbuffer.h"

#include <cstring>

#include "stapi_zul_statcomms_trace.h"

namespace {

constexpr unsigned char ARRAY_FLAG = 0x01;
constexpr unsigned char SHORT_BLOCK_TAG = 0x77;
constexpr std::ptrdiff_t CONTENT_HEAD_SIZE = EYECATCHER_SIZE + 4;
constexpr std::size_t TERMINATOR_SIZE = sizeof RESULT_SET_TERMINATOR;

enum class Outcome { COMPLETE, CUT_SHORT, TOO_LARGE };

// What sets the two parsers apart.
struct ParserKind {
    const char (&marker)[EYECATCHER_SIZE + 1];
    bool statistics;
    const TracePoint<const void*, const void*>& entry;
    const TracePoint<int>& received;
    const TracePoint<int, int>& reading;
    const TracePoint<const void*, const void*>& exit;
};

constexpr ParserKind STATS = {.marker = STATS_CONTENT_MARKER,
                              .statistics = true,
                              .entry = parseStatsData_entry,
                              .received = parseStatsData_received,
                              .reading = parseStatsData_reading,
                              .exit = parseStatsData_exit};
constexpr ParserKind IDS = {.marker = IDS_CONTENT_MARKER,
                            .statistics = false,
                            .entry = parseIdsData_entry,
                            .received = parseIdsData_received,
                            .reading = parseIdsData_reading,
                            .exit = parseIdsData_exit};

// Reply data and the position in it, which a skip may leave behind its end.
struct Reader {
    const unsigned char* data;
    std::ptrdiff_t size;
    std::ptrdiff_t at;

    bool has(std::ptrdiff_t count) const {
        return size - at >= count;
    }
    void skip(std::ptrdiff_t count) {
        at += count;
    }
    // Nothing more can be read.
    void end() {
        size = 0;
    }
    const unsigned char* take(std::ptrdiff_t count) {
        const unsigned char* taken = data + at;
        at += count;
        return taken;
    }
};

// The content written so far. Everything before `complete` stays when the reply data ends early.
struct Writer {
    char* cursor;
    char* limit;  // the last place for the terminator
    char* complete;

    bool hasRoom(std::ptrdiff_t count) const {
        return limit - cursor >= count;
    }
    void keep() {
        complete = cursor;
    }
};

bool readInteger(Reader* in, std::int32_t* value) {
    if (!in->has(4)) {
        return false;
    }
    *value = getI32(in->take(4));
    return true;
}

// Lengths are signed on this side: one of 0x8000 and up is no length.
bool readLength(Reader* in, std::int16_t* length) {
    if (!in->has(2)) {
        return false;
    }
    *length = static_cast<std::int16_t>(getU16(in->take(2)));
    return *length >= 0;
}

// Skips a length and as many bytes.
bool skipText(Reader* in) {
    std::int16_t length = 0;
    if (!readLength(in, &length)) {
        return false;
    }
    in->skip(length);
    return true;
}

template <typename Word>
[[gnu::always_inline]] inline void copyEnds(char* to, const unsigned char* from, std::ptrdiff_t count) {
    Word first;
    Word last;
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + count - sizeof last, sizeof last);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + count - sizeof last, &last, sizeof last);
}

struct Words {
    std::uint64_t words[2];
};

// Identifiers and values are short: two words that overlap are copied sooner than memcpy is called.
[[gnu::always_inline]] inline void copyShort(char* to, const unsigned char* from, std::ptrdiff_t count) {
    if (count > 32) {
        std::memcpy(to, from, static_cast<std::size_t>(count));
    } else if (count >= 16) {
        copyEnds<Words>(to, from, count);
    } else if (count >= 8) {
        copyEnds<std::uint64_t>(to, from, count);
    } else if (count >= 4) {
        copyEnds<std::uint32_t>(to, from, count);
    } else if (count >= 2) {
        copyEnds<std::uint16_t>(to, from, count);
    } else if (count == 1) {
        *to = static_cast<char>(*from);
    }
}

template <bool Traced>
void store(Writer* out, std::int32_t value) {
    if constexpr (Traced) {
        addInteger(&out->cursor, static_cast<std::uint32_t>(value));
    } else {
        std::memcpy(out->cursor, &value, sizeof value);
        out->cursor += sizeof value;
    }
}

template <bool Traced>
void store(Writer* out, const unsigned char* text, std::int16_t length) {
    if constexpr (Traced) {
        addChars(&out->cursor, reinterpret_cast<const char*>(text), length);
    } else {
        copyShort(out->cursor, text, length);
        out->cursor += length;
    }
}

// Copies a length and its text. Inlined so that reader and writer have no address and stay in registers.
template <bool Traced>
[[gnu::always_inline]] inline Outcome copyText(Reader* in, Writer* out) {
    std::int16_t length = 0;
    if (!readLength(in, &length) || !in->has(length)) {
        return Outcome::CUT_SHORT;
    }
    if (!out->hasRoom(4 + length)) {
        return Outcome::TOO_LARGE;
    }
    store<Traced>(out, length);
    store<Traced>(out, in->take(length), length);
    return Outcome::COMPLETE;
}

// Copies a 32-bit integer and tells its value.
template <bool Traced>
Outcome copyInteger(Reader* in, Writer* out, std::int32_t* value) {
    if (!readInteger(in, value)) {
        return Outcome::CUT_SHORT;
    }
    if (!out->hasRoom(4)) {
        return Outcome::TOO_LARGE;
    }
    store<Traced>(out, *value);
    return Outcome::COMPLETE;
}

// The class description before a query element's text.
bool skipElementHead(Reader* in) {
    in->skip(6);
    if (!skipText(in)) {
        return false;
    }
    in->skip(13);
    if (!skipText(in)) {
        return false;
    }
    in->skip(13);
    if (!in->has(1)) {
        return false;
    }
    in->skip(*in->take(1) == SHORT_BLOCK_TAG ? 1 : 4);
    return true;
}

// The class description before the first statistic. Nothing behind it needs to be there when there is no statistic.
bool skipItemsHead(Reader* in, std::int32_t itemCount) {
    in->skip(2);
    if (!skipText(in)) {
        if (itemCount > 0) {
            return false;
        }
        in->end();
    }
    in->skip(8);
    return true;
}

template <const ParserKind& Kind, bool Traced>
Outcome copyItem(Reader* in, Writer* out) {
    if constexpr (!Kind.statistics) {
        return copyText<Traced>(in, out);
    }
    in->skip(7);
    Outcome outcome = copyText<Traced>(in, out);
    if (outcome == Outcome::COMPLETE) {
        outcome = copyText<Traced>(in, out);
    }
    if (outcome == Outcome::COMPLETE) {
        in->skip(2);
    }
    return outcome;
}

template <const ParserKind& Kind, bool Traced>
Outcome copyElement(Reader* in, Writer* out, std::int32_t index) {
    if (!skipElementHead(in)) {
        return Outcome::CUT_SHORT;
    }
    Outcome outcome = copyText<Traced>(in, out);
    std::int32_t elementRc = 0;
    if (outcome == Outcome::COMPLETE) {
        outcome = copyInteger<Traced>(in, out, &elementRc);
    }
    if (outcome != Outcome::COMPLETE) {
        return outcome;
    }
    if constexpr (Traced && !Kind.statistics) {
        TRACE(parseIdsData_elementRc, elementRc, static_cast<unsigned>(elementRc));
    }
    if (elementRc < 0) {
        if constexpr (Traced && !Kind.statistics) {
            TRACE(parseIdsData_badElement, index);
        }
        out->keep();
        in->skip(1);
        return Outcome::COMPLETE;
    }
    std::int32_t itemCount = 0;
    outcome = copyInteger<Traced>(in, out, &itemCount);
    if (outcome != Outcome::COMPLETE) {
        return outcome;
    }
    if constexpr (Traced) {
        TRACE(Kind.reading, itemCount, index);
    }
    if (itemCount <= 0) {
        out->keep();
    }
    if constexpr (Kind.statistics) {
        if (!skipItemsHead(in, itemCount)) {
            return Outcome::CUT_SHORT;
        }
    }
    for (std::int32_t item = 0; item < itemCount; ++item) {
        outcome = copyItem<Kind, Traced>(in, out);
        if (outcome != Outcome::COMPLETE) {
            return outcome;
        }
        out->keep();
    }
    if constexpr (!Kind.statistics) {
        in->skip(1);
    }
    return Outcome::COMPLETE;
}

// The number of query elements. Reply data that ends before it has none.
bool readHead(Reader* in, std::int32_t* elementCount) {
    *elementCount = 0;
    if (!in->has(1)) {
        return false;
    }
    if (*in->take(1) == ARRAY_FLAG) {
        return readInteger(in, elementCount);
    }
    *elementCount = 1;
    return true;
}

template <bool Traced>
void storeHead(Writer* out, const char* marker, std::int32_t elementCount) {
    if constexpr (Traced) {
        addTerminator(out->cursor);
        addPlatformChars(&out->cursor, marker, static_cast<std::int32_t>(EYECATCHER_SIZE));
    } else {
        std::memcpy(out->cursor, marker, EYECATCHER_SIZE);
        out->cursor += EYECATCHER_SIZE;
    }
    store<Traced>(out, elementCount);
    out->keep();
}

template <const ParserKind& Kind, bool Traced>
Outcome copyElements(Reader* in, Writer* out) {
    if (!out->hasRoom(CONTENT_HEAD_SIZE)) {
        return Outcome::TOO_LARGE;
    }
    std::int32_t elementCount = 0;
    const bool headRead = readHead(in, &elementCount);
    if constexpr (Traced) {
        TRACE(Kind.received, elementCount);
    }
    storeHead<Traced>(out, Kind.marker, elementCount);
    Outcome outcome = headRead ? Outcome::COMPLETE : Outcome::CUT_SHORT;
    for (std::int32_t index = 0; index < elementCount && outcome == Outcome::COMPLETE; ++index) {
        outcome = copyElement<Kind, Traced>(in, out, index);
    }
    return outcome;
}

// Where the content ends.
char* contentEnd(const Writer& out, Outcome outcome) {
    return outcome == Outcome::COMPLETE ? out.cursor : out.complete;
}

void traceOutcome(Outcome outcome, const Reader& in, std::size_t rawSize, std::ptrdiff_t kept, std::size_t capacity) {
    if (outcome == Outcome::CUT_SHORT) {
        const auto at = static_cast<std::size_t>(in.at);
        TRACE(parseData_cutShort, static_cast<int>(at < rawSize ? at : rawSize), static_cast<int>(rawSize),
              static_cast<int>(kept));
    } else if (outcome == Outcome::TOO_LARGE) {
        TRACE(parseData_tooLarge, static_cast<int>(capacity));
    }
}

template <const ParserKind& Kind, bool Traced>
int parse(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    constexpr auto SIZE_LIMIT = static_cast<std::size_t>(PTRDIFF_MAX);
    Reader in = {rawData, static_cast<std::ptrdiff_t>(rawSize < SIZE_LIMIT ? rawSize : SIZE_LIMIT), 0};
    Writer out = {buffer, buffer + capacity - TERMINATOR_SIZE, buffer};
    Outcome outcome;
    if constexpr (Traced) {
        outcome = copyElements<Kind, true>(&in, &out);
    } else {
        const MutexHold hold(contentMutex);
        outcome = copyElements<Kind, false>(&in, &out);
        std::memcpy(contentEnd(out, outcome), &RESULT_SET_TERMINATOR, TERMINATOR_SIZE);
    }
    traceOutcome(outcome, in, rawSize, out.complete - buffer, capacity);
    if constexpr (Traced) {
        addTerminator(contentEnd(out, outcome));
    }
    return outcome == Outcome::TOO_LARGE ? STAPI_RC_FLOW_CONTENT_TOO_LARGE : 0;
}

template <const ParserKind& Kind>
int tracedParse(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    TRACE(Kind.entry, rawData, buffer);
    const bool traced = traceIsOpen(Kind.entry.row.level);  // that of the lines of each field, too
    const int rc = (traced ? parse<Kind, true> : parse<Kind, false>)(rawData, buffer, rawSize, capacity);
    TRACE(Kind.exit, rawData, buffer);
    return rc;
}

}  // namespace

int parseStatsData(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    return tracedParse<STATS>(rawData, buffer, rawSize, capacity);
}

int parseIdsData(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    return tracedParse<IDS>(rawData, buffer, rawSize, capacity);
}
