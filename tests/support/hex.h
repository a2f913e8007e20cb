// Byte sequences as text: pairs of hexadecimal digits, and characters between single quotes; and their parts.
#pragma once

#include "simgateway/reply.h"

namespace support {

using simgateway::Bytes;

// hex("00 02 'en'") is 00 02 65 6E. Throws std::invalid_argument for a quote that stays open.
[[nodiscard]] Bytes hex(std::string_view text);
[[nodiscard]] std::string toHex(const Bytes& bytes);

// Big-endian words.
[[nodiscard]] Bytes word(std::uint32_t value);
[[nodiscard]] std::uint32_t wordAt(const Bytes& bytes, std::size_t offset);

[[nodiscard]] Bytes operator+(Bytes left, const Bytes& right);
// The bytes that are there of those from `from` up to `to`.
[[nodiscard]] Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to = static_cast<std::size_t>(-1));

}  // namespace support
