// From reply data, an object stream of the Gateway, to the layout of a result set buffer. The stream is not decoded in
// general: fixed distances and length fields lead from one field to the next.
//
// Reads are checked against the end of the reply data, skips are not: an element is complete as soon as its last field
// is stored, whatever the stream still owes behind it.
#include "stapi_zul_statcomms.h"

#include "bytes.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_resultsetbuffer.h"

#include "stapi_zul_statcomms_trace.h"

namespace {

constexpr unsigned char ARRAY_FLAG = 0x01;
constexpr unsigned char SHORT_BLOCK_TAG = 0x77;
constexpr std::size_t CONTENT_HEAD_SIZE = EYECATCHER_SIZE + 4;
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

constexpr ParserKind STATS = {STATS_CONTENT_MARKER,   true,
                              parseStatsData_entry,   parseStatsData_received,
                              parseStatsData_reading, parseStatsData_exit};
constexpr ParserKind IDS = {IDS_CONTENT_MARKER, false, parseIdsData_entry, parseIdsData_received, parseIdsData_reading,
                            parseIdsData_exit};

// Reply data and the position in it, which a skip may leave behind its end.
struct Reader {
    const unsigned char* data;
    std::size_t size;
    std::size_t at;

    bool has(std::size_t count) const {
        return at <= size && size - at >= count;
    }
    void skip(std::size_t count) {
        at += count;
    }
    // Nothing more can be read.
    void end() {
        size = 0;
    }
    const unsigned char* take(std::size_t count) {
        const unsigned char* taken = data + at;
        at += count;
        return taken;
    }
};

// The content written so far. Everything before `complete` stays when the reply data ends early.
struct Writer {
    char* start;
    std::size_t capacity;
    char* cursor;
    char* complete;

    bool hasRoom(std::size_t count) const {
        const auto used = static_cast<std::size_t>(cursor - start);
        return capacity - used >= count + TERMINATOR_SIZE;
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
    in->skip(static_cast<std::size_t>(length));
    return true;
}

Outcome storeInteger(Writer* out, std::int32_t value) {
    if (!out->hasRoom(4)) {
        return Outcome::TOO_LARGE;
    }
    addInteger(&out->cursor, static_cast<std::uint32_t>(value));
    return Outcome::COMPLETE;
}

// Copies a length and its text.
Outcome copyText(Reader* in, Writer* out) {
    std::int16_t length = 0;
    if (!readLength(in, &length) || !in->has(static_cast<std::size_t>(length))) {
        return Outcome::CUT_SHORT;
    }
    if (!out->hasRoom(4 + static_cast<std::size_t>(length))) {
        return Outcome::TOO_LARGE;
    }
    addInteger(&out->cursor, static_cast<std::uint32_t>(length));
    addChars(&out->cursor, reinterpret_cast<const char*>(in->take(static_cast<std::size_t>(length))), length);
    return Outcome::COMPLETE;
}

// Copies a 32-bit integer and tells its value.
Outcome copyInteger(Reader* in, Writer* out, std::int32_t* value) {
    return readInteger(in, value) ? storeInteger(out, *value) : Outcome::CUT_SHORT;
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

template <const ParserKind& Kind>
Outcome copyItem(Reader* in, Writer* out) {
    if constexpr (!Kind.statistics) {
        return copyText(in, out);
    }
    in->skip(7);
    Outcome outcome = copyText(in, out);
    if (outcome == Outcome::COMPLETE) {
        outcome = copyText(in, out);
    }
    if (outcome == Outcome::COMPLETE) {
        in->skip(2);
    }
    return outcome;
}

template <const ParserKind& Kind>
Outcome copyElement(Reader* in, Writer* out, std::int32_t index) {
    if (!skipElementHead(in)) {
        return Outcome::CUT_SHORT;
    }
    Outcome outcome = copyText(in, out);
    std::int32_t elementRc = 0;
    if (outcome == Outcome::COMPLETE) {
        outcome = copyInteger(in, out, &elementRc);
    }
    if (outcome != Outcome::COMPLETE) {
        return outcome;
    }
    if constexpr (!Kind.statistics) {
        TRACE(parseIdsData_elementRc, elementRc, static_cast<unsigned>(elementRc));
    }
    if (elementRc < 0) {
        if constexpr (!Kind.statistics) {
            TRACE(parseIdsData_badElement, index);
        }
        out->keep();
        in->skip(1);
        return Outcome::COMPLETE;
    }
    std::int32_t itemCount = 0;
    outcome = copyInteger(in, out, &itemCount);
    if (outcome != Outcome::COMPLETE) {
        return outcome;
    }
    TRACE(Kind.reading, itemCount, index);
    if (itemCount <= 0) {
        out->keep();
    }
    if constexpr (Kind.statistics) {
        if (!skipItemsHead(in, itemCount)) {
            return Outcome::CUT_SHORT;
        }
    }
    for (std::int32_t item = 0; item < itemCount; ++item) {
        outcome = copyItem<Kind>(in, out);
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

template <const ParserKind& Kind>
Outcome copyElements(Reader* in, Writer* out) {
    std::int32_t elementCount = 0;
    const bool headRead = readHead(in, &elementCount);
    TRACE(Kind.received, elementCount);
    addTerminator(out->start);
    addPlatformChars(&out->cursor, Kind.marker, static_cast<std::int32_t>(EYECATCHER_SIZE));
    addInteger(&out->cursor, static_cast<std::uint32_t>(elementCount));
    out->keep();
    Outcome outcome = headRead ? Outcome::COMPLETE : Outcome::CUT_SHORT;
    for (std::int32_t index = 0; index < elementCount && outcome == Outcome::COMPLETE; ++index) {
        outcome = copyElement<Kind>(in, out, index);
    }
    return outcome;
}

template <const ParserKind& Kind>
int parse(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    Reader in = {rawData, rawSize, 0};
    Writer out = {buffer, capacity, buffer, buffer};
    const bool hasRoomForHead = capacity >= CONTENT_HEAD_SIZE + TERMINATOR_SIZE;
    const Outcome outcome = hasRoomForHead ? copyElements<Kind>(&in, &out) : Outcome::TOO_LARGE;
    if (outcome == Outcome::CUT_SHORT) {
        TRACE(parseData_cutShort, static_cast<int>(in.at < rawSize ? in.at : rawSize), static_cast<int>(rawSize),
              static_cast<int>(out.complete - buffer));
    } else if (outcome == Outcome::TOO_LARGE) {
        TRACE(parseData_tooLarge, static_cast<int>(capacity));
    }
    const int rc = addTerminator(outcome == Outcome::COMPLETE ? out.cursor : out.complete);
    return outcome == Outcome::TOO_LARGE ? STAPI_RC_FLOW_CONTENT_TOO_LARGE : rc;
}

template <const ParserKind& Kind>
int tracedParse(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity) {
    TRACE(Kind.entry, rawData, buffer);
    const int rc = parse<Kind>(rawData, buffer, rawSize, capacity);
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
