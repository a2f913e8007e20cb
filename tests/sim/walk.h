// What the payload of a query's reply says, in a few words.
#pragma once

#include <stdexcept>

#include "support/hex.h"
#include "support/payload.h"

namespace simtest {

using namespace support;

struct Walked {
    // Text, rc when not 0, and number of items of each element: "conn/16 nothing(-1)/0 "; a "+" where the block tag of
    // statistics is not that of a short block, and three dots at the end when bytes follow the last element.
    std::string summary;
    std::string lastValue;
};

// Throws std::out_of_range when it needs a byte beyond the payload's end.
inline Walked walked(const Bytes& bytes, bool statistics = true) {
    Walked out;
    const auto sink = [&](Field field, PayloadText text, std::int32_t number) {
        const std::string chars(text.chars, text.chars + text.length);
        if (field == Field::ELEMENT) {
            out.summary += chars + (number != 0 || !statistics ? "" : "+");
        } else if (field == Field::CODE) {
            out.summary += (number == 0 ? "/" : "(" + std::to_string(number) + ")/") + (number < 0 ? "0 " : "");
        } else if (field == Field::ITEMS) {
            out.summary += std::to_string(number) + " ";
        } else if (field == Field::VALUE) {
            out.lastValue = chars;
        }
        return true;
    };
    const std::uint8_t* const end = bytes.data() + bytes.size();
    const std::uint8_t* const at = readPayload(bytes.data(), end, statistics, sink);
    if (at == nullptr) {
        throw std::out_of_range("payload");
    }
    out.summary += at < end ? "..." : "";
    return out;
}

}  // namespace simtest
