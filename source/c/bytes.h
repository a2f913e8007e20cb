// Big-endian integers of the wire, at any address.
#pragma once

#include <cstdint>

inline unsigned char* putU8(unsigned char* at, std::uint8_t value) {
    *at = value;
    return at + 1;
}

inline unsigned char* putU16(unsigned char* at, std::uint16_t value) {
    at[0] = static_cast<unsigned char>(value >> 8);
    at[1] = static_cast<unsigned char>(value);
    return at + 2;
}

inline unsigned char* putU32(unsigned char* at, std::uint32_t value) {
    at[0] = static_cast<unsigned char>(value >> 24);
    at[1] = static_cast<unsigned char>(value >> 16);
    at[2] = static_cast<unsigned char>(value >> 8);
    at[3] = static_cast<unsigned char>(value);
    return at + 4;
}

inline unsigned char* putI32(unsigned char* at, std::int32_t value) {
    return putU32(at, static_cast<std::uint32_t>(value));
}

[[nodiscard]] inline std::uint16_t getU16(const unsigned char* at) {
    return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
}

[[nodiscard]] inline std::uint32_t getU32(const unsigned char* at) {
    return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16 |
           static_cast<std::uint32_t>(at[2]) << 8 | static_cast<std::uint32_t>(at[3]);
}

[[nodiscard]] inline std::int32_t getI32(const unsigned char* at) {
    return static_cast<std::int32_t>(getU32(at));
}
