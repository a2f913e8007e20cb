#include "hex.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace support {

Bytes hex(std::string_view text) {
    Bytes out;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
        } else if (text[i] == '\'') {
            const std::size_t end = text.find('\'', i + 1);
            if (end == std::string_view::npos) {
                throw std::invalid_argument("open quote");
            }
            out.insert(out.end(), text.begin() + static_cast<std::ptrdiff_t>(i + 1),
                       text.begin() + static_cast<std::ptrdiff_t>(end));
            i = end + 1;
        } else {
            out.push_back(static_cast<std::uint8_t>(std::stoul(std::string(text.substr(i, 2)), nullptr, 16)));
            i += 2;
        }
    }
    return out;
}

std::string toHex(const Bytes& bytes) {
    std::string out;
    for (const std::uint8_t byte : bytes) {
        char pair[8];
        std::snprintf(pair, sizeof pair, "%02X ", static_cast<unsigned>(byte));
        out += pair;
    }
    return out;
}

Bytes word(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16 & 0xFF),
            static_cast<std::uint8_t>(value >> 8 & 0xFF), static_cast<std::uint8_t>(value & 0xFF)};
}

std::uint32_t wordAt(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes.at(offset)) << 24 | static_cast<std::uint32_t>(bytes.at(offset + 1)) << 16 |
           static_cast<std::uint32_t>(bytes.at(offset + 2)) << 8 | bytes.at(offset + 3);
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    const auto at = [&](std::size_t offset) {
        return bytes.begin() + static_cast<std::ptrdiff_t>(std::min(offset, bytes.size()));
    };
    return from < to ? Bytes(at(from), at(to)) : Bytes();
}

}  // namespace support
