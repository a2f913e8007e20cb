// The payload of a query's reply, read by distances alone, the way a client without a decoder of object streams does.
// Nothing of the library's own reading is used.
#ifndef PAYLOAD_H
#define PAYLOAD_H

#include <cstddef>
#include <cstdint>

namespace support {

struct PayloadText {
    const std::uint8_t* chars;
    std::size_t length;
};

// Tells the sink each field; one that returns false ends the reading.
//
//     bool count(std::int32_t elements)              1 where the payload has no count
//     bool element(PayloadText text, bool isShort)   whether its block's tag is that of a short one
//     bool code(std::int32_t rc)
//     bool items(std::int32_t count)                 of an element whose code is not negative
//     bool id(PayloadText text)
//     bool value(PayloadText text)                   of a statistic
//
// Returns where it ends; null where the payload ends inside a field, or a sink has said so.
template <typename Sink>
[[gnu::always_inline]] inline const std::uint8_t* readPayload(const std::uint8_t* at, const std::uint8_t* const end,
                                                              bool statistics, Sink&& sink) {
    const auto skip = [&](std::ptrdiff_t count) { return end - at >= count && (at += count, true); };
    const auto text = [&](PayloadText* found) {
        if (end - at < 2) {
            return false;
        }
        *found = {at + 2, static_cast<std::size_t>(at[0] << 8 | at[1])};
        return at[0] < 0x80 && skip(2 + static_cast<std::ptrdiff_t>(found->length));
    };
    const auto word = [&](std::int32_t* value) {
        if (end - at < 4) {
            return false;
        }
        *value = static_cast<std::int32_t>(static_cast<std::uint32_t>(at[0]) << 24 |
                                           static_cast<std::uint32_t>(at[1] << 16 | at[2] << 8 | at[3]));
        at += 4;
        return true;
    };
    const auto skipLast = [&](std::ptrdiff_t count) { at = skip(count) ? at : end; };  // nothing may follow
    std::int32_t elements = 1;
    if (!skip(1) || (at[-1] == 1 && !word(&elements)) || !sink.count(elements)) {
        return nullptr;
    }
    for (; elements > 0; --elements) {
        PayloadText found{};
        std::int32_t rc = 0;
        std::int32_t items = 0;
        if (!skip(6) || !text(&found) || !skip(13) || !text(&found) || !skip(14)) {
            return nullptr;
        }
        const bool isShort = at[-1] == 0x77;
        if (!skip(isShort ? 1 : 4) || !text(&found) || !sink.element(found, isShort) || !word(&rc) || !sink.code(rc)) {
            return nullptr;
        }
        if (rc >= 0 && (!word(&items) || !sink.items(items))) {
            return nullptr;
        }
        if (statistics && rc >= 0 && (!skip(2) || !text(&found) || !skip(8))) {
            return nullptr;
        }
        for (; items > 0; --items) {
            if (!skip(statistics ? 7 : 0) || !text(&found) || !sink.id(found)) {
                return nullptr;
            }
            if (statistics && (!text(&found) || !sink.value(found))) {
                return nullptr;
            }
            skipLast(statistics ? 2 : 0);
        }
        skipLast(statistics && rc >= 0 ? 0 : 1);
    }
    return at;
}

}  // namespace support

#endif
