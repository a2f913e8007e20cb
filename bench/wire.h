// What travels between the benchmark's Gateway and its clients, and the hand-written code that sets the yardsticks:
// walking a reply in place, laying it into a result set buffer, walking such a buffer. None of it traces or can fail in
// more than one way.
#pragma once

#include <simgateway/reply.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "bytes.h"
#include "stapi_zul_resultsetbuffer.h"

namespace bench {

using simgateway::Bytes;

inline constexpr std::size_t HEADER_SIZE = 29;        // without the request name
inline constexpr std::size_t ADMIN_HEADER_SIZE = 34;  // with "Admin"
inline constexpr std::size_t CALL_REPLY_HEAD = 9;     // of a reply body, before the payload

// Not inlined: the compiler would take the growing of a vector whose size it knows for an overflow.
[[gnu::noinline]] inline void append(Bytes* out, const void* from, std::size_t count) {
    const auto* bytes = static_cast<const std::uint8_t*>(from);
    out->insert(out->end(), bytes, bytes + count);
}

inline void appendWord(Bytes* out, std::uint32_t value) {
    unsigned char word[4];
    putU32(word, value);
    append(out, word, sizeof word);
}

inline void appendText(Bytes* out, std::string_view text) {
    unsigned char length[2];
    putU16(length, static_cast<std::uint16_t>(text.size()));
    append(out, length, sizeof length);
    append(out, text.data(), text.size());
}

inline Bytes words(std::initializer_list<std::uint32_t> values) {
    Bytes out;
    for (const std::uint32_t value : values) {
        appendWord(&out, value);
    }
    return out;
}

// A request or a reply.
inline Bytes message(std::string_view name, std::uint32_t flowType, const Bytes& body) {
    const auto nameLength = static_cast<std::uint32_t>(name.size());
    Bytes out = words({0x47617465, 0x00700000, flowType, 0, 0, nameLength});
    append(&out, name.data(), nameLength);
    append(&out, "", 1);
    appendWord(&out, static_cast<std::uint32_t>(body.size()));
    append(&out, body.data(), body.size());
    return out;
}

inline Bytes initRequest() {
    return message("Admin", 1, words({0}));
}

// The call that getStats makes.
inline Bytes invokeRequest() {
    Bytes call;
    for (const char* text :
         {"US", "en", "", "DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats", "GET_STATS"}) {
        appendText(&call, text);
    }
    appendWord(&call, 1);
    append(&call, "\xAC\xED\0\5t", 5);
    appendText(&call, "");
    appendWord(&call, 1);
    appendText(&call, "java.lang.String");
    Bytes body = words({5, 0, static_cast<std::uint32_t>(call.size())});
    append(&body, call.data(), call.size());
    return message("Admin", 1, body);
}

inline Bytes callReply(const Bytes& payload) {
    Bytes body = words({1, 0});
    append(&body, "", 1);
    append(&body, payload.data(), payload.size());
    return message("Admin", 1, body);
}

// ---- content --------------------------------------------------------------------------------------------------------

inline std::string statId(int i) {
    return "group.element." + std::to_string(i);
}
inline std::string statValue(int i) {
    return std::to_string(i * 7919L);
}

inline simgateway::Reply statsReply(int count) {
    simgateway::Reply reply;
    reply.element("");
    for (int i = 0; i < count; ++i) {
        reply.stat(statId(i), statValue(i));
    }
    return reply;
}

// The most statistics that a result set holds.
inline int statsLimit() {
    int count = 0;
    for (int step = 1024; step > 0; step /= 2) {
        count += statsReply(count + step).contentSize() <= RESULT_SET_BUFFER_SIZE ? step : 0;
    }
    return count;
}

// What an entry adds to the sum that every subject has to come to: lengths, and characters found by them.
template <typename Char>
long entrySum(const Char* id, std::size_t idLength, const Char* value, std::size_t valueLength) {
    return static_cast<long>(idLength + valueLength) + id[idLength - 1] + value[valueLength - 1];
}

inline long expectedSum(int count) {
    long sum = 0;
    for (int i = 0; i < count; ++i) {
        const std::string id = statId(i);
        const std::string value = statValue(i);
        sum += entrySum(id.data(), id.size(), value.data(), value.size());
    }
    return sum;
}

// ---- yardsticks -----------------------------------------------------------------------------------------------------

struct WireText {
    const unsigned char* chars;
    std::size_t length;
};

// Goes through the payload of a statistics reply: onElement(text, rc, count) and onItem(id, value), each false to end.
// False when the payload ends early.
template <typename OnElement, typename OnItem>
[[gnu::always_inline]] inline bool scanReply(const unsigned char* at, const unsigned char* end, OnElement onElement,
                                             OnItem onItem) {
    const auto skip = [&](std::ptrdiff_t count) { return end - at >= count && (at += count, true); };
    const auto text = [&](WireText* found) {
        if (end - at < 2) {
            return false;
        }
        const auto length = static_cast<std::int16_t>(getU16(at));
        *found = {at + 2, static_cast<std::size_t>(length)};
        return length >= 0 && skip(2 + length);
    };
    const auto word = [&](std::int32_t* value) {
        if (end - at < 4) {
            return false;
        }
        *value = getI32(at);
        at += 4;
        return true;
    };
    if (end - at < 1) {
        return false;
    }
    std::int32_t elements = 1;
    if (*at++ == 1 && !word(&elements)) {
        return false;
    }
    for (std::int32_t element = 0; element < elements; ++element) {
        WireText found;
        WireText value;
        std::int32_t rc = 0;
        std::int32_t items = 0;
        if (!skip(6) || !text(&found) || !skip(13) || !text(&found) || !skip(14) || !skip(at[-1] == 0x77 ? 1 : 4) ||
            !text(&found) || !word(&rc) || (rc >= 0 && !word(&items)) || !onElement(found, rc, items)) {
            return false;
        }
        if (rc < 0) {
            at += 1;
            continue;
        }
        if (!skip(2) || !text(&value) || !skip(8)) {
            return false;
        }
        for (std::int32_t item = 0; item < items; ++item) {
            if (!skip(7) || !text(&found) || !text(&value) || !onItem(found, value)) {
                return false;
            }
            at += 2;
        }
    }
    return true;
}

// Walks a reply where it was received.
[[gnu::noinline]] inline long walkReply(const unsigned char* payload, std::size_t size) {
    long sum = 0;
    const bool whole = scanReply(
        payload, payload + size, [](const WireText&, std::int32_t, std::int32_t) { return true; },
        [&](const WireText& id, const WireText& value) {
            sum += entrySum(id.chars, id.length, value.chars, value.length);
            return true;
        });
    return whole ? sum : -1;
}

// Lays a reply into a result set buffer; the size of the content, or -1.
[[gnu::noinline]] inline long layOut(const unsigned char* payload, std::size_t size, char* buffer,
                                     std::size_t capacity) {
    char* out = buffer + EYECATCHER_SIZE + 4;
    char* const limit = buffer + capacity - sizeof RESULT_SET_TERMINATOR;
    std::uint32_t elements = 0;
    const auto word = [&](std::uint32_t value) {
        std::memcpy(out, &value, sizeof value);
        out += sizeof value;
    };
    const auto text = [&](const WireText& from) {
        if (limit - out < static_cast<std::ptrdiff_t>(4 + from.length)) {
            return false;
        }
        word(static_cast<std::uint32_t>(from.length));
        std::memcpy(out, from.chars, from.length);
        out += from.length;
        return true;
    };
    const bool whole = scanReply(
        payload, payload + size,
        [&](const WireText& query, std::int32_t rc, std::int32_t items) {
            ++elements;
            if (!text(query) || limit - out < 8) {
                return false;
            }
            word(static_cast<std::uint32_t>(rc));
            if (rc >= 0) {
                word(static_cast<std::uint32_t>(items));
            }
            return true;
        },
        [&](const WireText& id, const WireText& value) { return text(id) && text(value); });
    word(RESULT_SET_TERMINATOR);
    std::memcpy(buffer, STATS_CONTENT_MARKER, EYECATCHER_SIZE);
    std::memcpy(buffer + EYECATCHER_SIZE, &elements, sizeof elements);
    return whole ? out - buffer : -1;
}

// Walks a result set buffer, trusting it.
[[gnu::noinline]] inline long walkContent(const char* content) {
    long sum = 0;
    const char* at = content + EYECATCHER_SIZE + 4;
    while (loadWord(at) != RESULT_SET_TERMINATOR) {
        at += 4 + loadWord(at);
        const auto rc = static_cast<std::int32_t>(loadWord(at));
        at += 4;
        if (rc < 0) {
            continue;
        }
        const std::uint32_t items = loadWord(at);
        at += 4;
        for (std::uint32_t item = 0; item < items; ++item) {
            const char* id = at + 4;
            const std::uint32_t idLength = loadWord(at);
            const char* value = id + idLength + 4;
            const std::uint32_t valueLength = loadWord(id + idLength);
            at = value + valueLength;
            sum += entrySum(id, idLength, value, valueLength);
        }
    }
    return sum;
}

// Walks a result set with the library's calls; `first` and `next` are getFirstStat and getNextStat of some build of it.
template <typename First, typename Next>
long walkStats(First first, Next next, ResultSetToken* statistics) {
    long sum = 0;
    StatData stat;
    int rc = first(statistics, &stat);
    for (; rc == 0; rc = next(statistics, &stat)) {
        sum += entrySum(stat.statIdPtr, static_cast<std::size_t>(stat.statIdLen), stat.statValuePtr,
                        static_cast<std::size_t>(stat.statValueLen));
    }
    return rc == STAPI_RC_END_OF_RESULT_SET ? sum : -1;
}

}  // namespace bench
