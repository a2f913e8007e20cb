// Characters of a text that should be UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace monitor {

struct Character {
    char32_t code = 0;
    std::size_t size = 1;
    bool valid = false;
};

// The character at the beginning of a text that is not empty. Overlong forms, surrogates and codes beyond U+10FFFF are
// not valid, as a look at the second byte shows; what could still have become a character is one invalid piece.
Character decode(std::string_view text);

// Calls use(character, bytes) for each character, valid or not.
void forEachCharacter(std::string_view text, auto use) {
    while (!text.empty()) {
        const Character character = decode(text);
        use(character, text.substr(0, character.size));
        text.remove_prefix(character.size);
    }
}

// What is not valid UTF-8 becomes U+FFFD, an incomplete character as a whole, other bytes each; the rest stays.
std::string repairUtf8(std::string_view text);

}  // namespace monitor
