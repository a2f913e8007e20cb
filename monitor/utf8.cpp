#include "utf8.h"

namespace monitor {

Character decode(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return {};
    }
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    char32_t code = lead & (0xFFu >> (size + 1));
    for (std::size_t index = 1; index < size; ++index) {
        const bool second = index == 1;
        const int low = second && lead == 0xE0 ? 0xA0 : second && lead == 0xF0 ? 0x90 : 0x80;
        const int high = second && lead == 0xED ? 0x9F : second && lead == 0xF4 ? 0x8F : 0xBF;
        if (index == text.size() || byte(index) < low || byte(index) > high) {
            return {0, index, false};
        }
        code = code << 6 | (byte(index) & 0x3Fu);
    }
    return {code, size, true};
}

std::string repairUtf8(std::string_view text) {
    std::string result;
    forEachCharacter(text, [&](const Character& character, std::string_view bytes) {
        result += character.valid ? bytes : "\xEF\xBF\xBD";
    });
    return result;
}

}  // namespace monitor
