// What the payload of a query's reply says, in a few words.
#pragma once

#include <stdexcept>
#include <string>

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
    struct Sink : Walked {
        explicit Sink(bool hasTags) : tags(hasTags) {
        }
        bool count(std::int32_t) {
            return true;
        }
        bool element(PayloadText text, bool isShort) {
            summary.append(text.chars, text.chars + text.length).append(isShort || !tags ? "" : "+");
            return true;
        }
        bool code(std::int32_t rc) {
            summary += (rc == 0 ? "/" : "(" + std::to_string(rc) + ")/") + (rc < 0 ? "0 " : "");
            return true;
        }
        bool items(std::int32_t number) {
            summary += std::to_string(number) + " ";
            return true;
        }
        bool id(PayloadText) {
            return true;
        }
        bool value(PayloadText text) {
            lastValue.assign(text.chars, text.chars + text.length);
            return true;
        }
        const bool tags;
    } sink(statistics);
    const std::uint8_t* const end = bytes.data() + bytes.size();
    const std::uint8_t* const at = readPayload(bytes.data(), end, statistics, sink);
    if (at == nullptr) {
        throw std::out_of_range("payload");
    }
    sink.summary += at < end ? "..." : "";
    return sink;
}

}  // namespace simtest
