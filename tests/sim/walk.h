// Reads query reply payloads by distances alone, the way a client without an object stream decoder does.
#pragma once

#include <string>

#include "support/hex.h"

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
    std::size_t position = 0;
    const auto number = [&](int width) {
        std::uint32_t value = 0;
        for (; width > 0; --width) {
            value = value << 8 | bytes.at(position++);
        }
        return value;
    };
    const auto text = [&] {
        std::string chars(number(2), ' ');
        for (char& c : chars) {
            c = static_cast<char>(bytes.at(position++));
        }
        return chars;
    };
    for (std::uint32_t elements = number(1) == 0x01 ? number(4) : 1; elements > 0; --elements) {
        position += 6;
        text();
        position += 13;
        text();
        position += 13;
        const bool isShort = number(1) == 0x77;
        position += isShort ? 1 : 4;
        out.summary += text() + (isShort || !statistics ? "" : "+");
        const auto rc = static_cast<std::int32_t>(number(4));
        const std::uint32_t items = rc < 0 ? 0 : number(4);
        out.summary += (rc == 0 ? "/" : "(" + std::to_string(rc) + ")/") + std::to_string(items) + " ";
        if (statistics && rc >= 0) {
            position += 2;
            text();
            position += 8;
        }
        for (std::uint32_t i = 0; i < items; ++i) {
            position += statistics ? 7 : 0;
            text();
            out.lastValue = statistics ? text() : "";
            position += statistics ? 2 : 0;
        }
        position += statistics && rc >= 0 ? 0 : 1;
    }
    out.summary += position < bytes.size() ? "..." : "";
    return out;
}

}  // namespace simtest
