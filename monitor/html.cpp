#include "html.h"

#include "utf8.h"

namespace monitor {

std::string escapeHtml(std::string_view text) {
    std::string escaped;
    forEachCharacter(text, [&](const Character& character, std::string_view bytes) {
        const bool reorders = (character.code >= 0x200E && character.code <= 0x200F) ||
                              (character.code >= 0x202A && character.code <= 0x202E) ||
                              (character.code >= 0x2066 && character.code <= 0x2069);
        const bool shown =
            character.valid && !reorders && character.code >= 0x20 && (character.code < 0x7F || character.code > 0x9F);
        switch (shown ? character.code : 0) {
        case 0:
            escaped += "\xEF\xBF\xBD";
            break;
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += bytes;
        }
    });
    return escaped;
}

}  // namespace monitor
