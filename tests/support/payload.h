// The payload of a query's reply, read by distances alone, the way a client without a decoder of object streams does.
// Nothing of the library's own reading is used.
#pragma once

#include <cstddef>
#include <cstdint>

namespace support {

struct PayloadText {
    const std::uint8_t* chars;
    std::size_t length;
};

enum class Field {
    COUNT,    // number: of elements, 1 where the payload does not say
    ELEMENT,  // text; number: 1 where its block's tag is that of a short one
    CODE,     // number
    ITEMS,    // number: of an element whose code is not negative
    ID,       // text
    VALUE     // text: of a statistic
};

// Tells the sink each field, as bool sink(Field, PayloadText text, std::int32_t number); false ends the reading.
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
    PayloadText found{};
    if (!skip(1) || (at[-1] == 1 && !word(&elements)) || !sink(Field::COUNT, found, elements)) {
        return nullptr;
    }
    for (; elements > 0; --elements) {
        std::int32_t rc = 0;
        std::int32_t items = 0;
        if (!skip(6) || !text(&found) || !skip(13) || !text(&found) || !skip(14)) {
            return nullptr;
        }
        const bool isShort = at[-1] == 0x77;
        if (!skip(isShort ? 1 : 4) || !text(&found) || !sink(Field::ELEMENT, found, isShort) || !word(&rc) ||
            !sink(Field::CODE, found, rc)) {
            return nullptr;
        }
        if (rc >= 0 && (!word(&items) || !sink(Field::ITEMS, found, items))) {
            return nullptr;
        }
        if (statistics && rc >= 0 && (!skip(2) || !text(&found) || !skip(8))) {
            return nullptr;
        }
        for (; items > 0; --items) {
            if (!skip(statistics ? 7 : 0) || !text(&found) || !sink(Field::ID, found, 0)) {
                return nullptr;
            }
            if (statistics && (!text(&found) || !sink(Field::VALUE, found, 0))) {
                return nullptr;
            }
            skipLast(statistics ? 2 : 0);
        }
        skipLast(statistics && rc >= 0 ? 0 : 1);
    }
    return at;
}

}  // namespace support
