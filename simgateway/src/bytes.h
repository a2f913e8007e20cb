// Big-endian reading and writing of byte sequences.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "simgateway/reply.h"

namespace simgateway {

// The head of an object stream, and the tag of a string in it.
inline constexpr std::uint32_t STREAM_MAGIC_AND_VERSION = 0xACED0005;
inline constexpr std::uint8_t TC_STRING = 0x74;

inline void put8(Bytes& out, std::uint8_t value) {
    out.push_back(value);
}

inline void put16(Bytes& out, std::uint16_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

inline void put32(Bytes& out, std::uint32_t value) {
    put16(out, static_cast<std::uint16_t>(value >> 16));
    put16(out, static_cast<std::uint16_t>(value & 0xFFFF));
}

inline void put32(Bytes& out, std::int32_t value) {
    put32(out, static_cast<std::uint32_t>(value));
}

inline void put64(Bytes& out, std::uint64_t value) {
    put32(out, static_cast<std::uint32_t>(value >> 32));
    put32(out, static_cast<std::uint32_t>(value & 0xFFFFFFFF));
}

inline void putBytes(Bytes& out, const Bytes& bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

inline void putChars(Bytes& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

inline void checkText(std::string_view text) {
    if (text.size() > 0xFFFF) {
        throw std::length_error("text of " + std::to_string(text.size()) + " bytes has no 2-byte length");
    }
}

// 2-byte length and characters.
inline void putText(Bytes& out, std::string_view text) {
    checkText(text);
    put16(out, static_cast<std::uint16_t>(text.size()));
    putChars(out, text);
}

// Reads from the front of a byte sequence that it does not own. A read beyond the end throws std::out_of_range.
class ByteReader {
public:
    explicit ByteReader(const Bytes& source, std::size_t start = 0) : bytes(source), position(start) {
        if (start > source.size()) {
            throw std::out_of_range("start lies beyond the bytes");
        }
    }

    std::uint8_t get8() {
        need(1);
        return bytes[position++];
    }

    std::uint16_t get16() {
        const unsigned high = get8();
        return static_cast<std::uint16_t>(high << 8 | get8());
    }

    std::uint32_t get32() {
        const std::uint32_t high = get16();
        return high << 16 | get16();
    }

    std::string getChars(std::size_t count) {
        need(count);
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(position);
        position += count;
        return std::string(first, first + static_cast<std::ptrdiff_t>(count));
    }

    std::string getText() {
        return getChars(get16());
    }

    std::size_t left() const {
        return bytes.size() - position;
    }

private:
    void need(std::size_t count) const {
        if (count > left()) {
            throw std::out_of_range("bytes end early");
        }
    }

    const Bytes& bytes;
    std::size_t position;
};

}  // namespace simgateway
