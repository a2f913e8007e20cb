// What travels between the benchmark's Gateway and its clients, and the hand-written code that sets the yardsticks:
// walking a reply in place, laying it into a result set buffer, walking such a buffer. None of it traces or can fail in
// more than one way.
#pragma once

#include <simgateway/reply.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "bytes.h"
#include "stapi_zul_resultsetbuffer.h"
#include "support/message.h"
#include "support/payload.h"

namespace bench {

using simgateway::Bytes;

inline constexpr std::size_t HEADER_SIZE = 29;        // without the request name
inline constexpr std::size_t ADMIN_HEADER_SIZE = 34;  // with "Admin"
inline constexpr std::size_t CALL_REPLY_HEAD = 9;     // of a reply body, before the payload

inline Bytes callReply(const Bytes& payload) {
    return support::message({}, support::callBody(payload));
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

// Walks a reply where it was received.
[[gnu::noinline]] inline long walkReply(const unsigned char* payload, std::size_t size) {
    long sum = 0;
    support::PayloadText id{};
    const auto add = [&](support::Field field, const support::PayloadText& text, std::int32_t) {
        sum += field == support::Field::VALUE ? entrySum(id.chars, id.length, text.chars, text.length) : 0;
        id = text;
        return true;
    };
    return support::readPayload(payload, payload + size, true, add) != nullptr ? sum : -1;
}

// Lays a reply into a result set buffer; the size of the content, or -1.
[[gnu::noinline]] inline long layOut(const unsigned char* payload, std::size_t size, char* buffer,
                                     std::size_t capacity) {
    using enum support::Field;
    char* out = buffer + EYECATCHER_SIZE + 4;
    char* const limit = buffer + capacity - sizeof RESULT_SET_TERMINATOR;
    std::uint32_t elements = 0;
    const auto put = [&](std::uint32_t value) {
        std::memcpy(out, &value, sizeof value);
        out += sizeof value;
    };
    const auto lay = [&](support::Field field, const support::PayloadText& text, std::int32_t number) {
        if (field == CODE || field == ITEMS) {
            if (limit - out < (field == CODE ? 8 : 4)) {
                return false;
            }
            put(static_cast<std::uint32_t>(number));
            return true;
        }
        if (field == COUNT || limit - out < static_cast<std::ptrdiff_t>(4 + text.length)) {
            return field == COUNT;
        }
        elements += field == ELEMENT ? 1 : 0;
        put(static_cast<std::uint32_t>(text.length));
        std::memcpy(out, text.chars, text.length);
        out += text.length;
        return true;
    };
    const bool whole = support::readPayload(payload, payload + size, true, lay) != nullptr;
    put(RESULT_SET_TERMINATOR);
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
