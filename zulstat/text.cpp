#include "text.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <langinfo.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <clocale>

namespace zulstat {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t size = 1;
    bool valid = false;
};

// The character at the beginning of a text that is not empty. Overlong forms, surrogates and codes beyond U+10FFFF are
// not valid, as a look at the second byte shows; what could still have become a character is one invalid piece.
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

// Calls use(character, bytes) for each character, valid or not.
void forEachCharacter(std::string_view text, auto use) {
    while (!text.empty()) {
        const Character character = decode(text);
        use(character, text.substr(0, character.size));
        text.remove_prefix(character.size);
    }
}

// The C library knows widths and control characters in a UTF-8 locale only.
bool wideCharactersKnown() {
    static const bool known = [] {
        std::setlocale(LC_CTYPE, "");
        return std::string_view(nl_langinfo(CODESET)) == "UTF-8" || std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    }();
    return known;
}

bool reordersText(char32_t code) {
    return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

bool shownAsItIs(const Character& character) {
    if (!character.valid || character.code == '\\') {
        return false;
    }
    if (character.code < 0x80) {
        return character.code >= ' ' && character.code != 0x7F;
    }
    return wideCharactersKnown() && iswprint(static_cast<wint_t>(character.code)) != 0 && !reordersText(character.code);
}

}  // namespace

std::string escapeForTerminal(std::string_view bytes) {
    std::string result;
    forEachCharacter(bytes, [&](const Character& character, std::string_view raw) {
        if (shownAsItIs(character)) {
            result += raw;
        } else if (!character.valid) {
            for (const char c : raw) {
                result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
            }
        } else if (character.code == '\\') {
            result += "\\\\";
        } else if (character.code == '\n') {
            result += "\\n";
        } else if (character.code == '\t') {
            result += "\\t";
        } else if (character.code == '\r') {
            result += "\\r";
        } else if (character.code < 0x80) {
            result += fmt::format("\\x{:02x}", static_cast<unsigned>(character.code));
        } else {
            result += fmt::format("\\u{:04x}", static_cast<unsigned>(character.code));
        }
    });
    return result;
}

std::string repairUtf8(std::string_view bytes) {
    std::string result;
    forEachCharacter(bytes, [&](const Character& character, std::string_view raw) {
        result += character.valid ? raw : "\xEF\xBF\xBD";
    });
    return result;
}

std::size_t columnWidth(std::string_view text) {
    std::size_t width = 0;
    forEachCharacter(text, [&](const Character& character, std::string_view) {
        const int columns = wideCharactersKnown() ? wcwidth(static_cast<wchar_t>(character.code)) : 1;
        width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
    });
    return width;
}

std::string padRight(std::string_view text, std::size_t width) {
    const std::size_t own = columnWidth(text);
    return std::string(text) + std::string(width > own ? width - own : 0, ' ');
}

std::string padLeft(std::string_view text, std::size_t width) {
    const std::size_t own = columnWidth(text);
    return std::string(width > own ? width - own : 0, ' ') + std::string(text);
}

bool globMatches(const std::string& glob, const std::string& text) {
    static_cast<void>(wideCharactersKnown());  // so that '?' is a character, not a byte
    return fnmatch(glob.c_str(), text.c_str(), 0) == 0;
}

bool anyGlobMatches(const std::vector<std::string>& globs, const std::string& text) {
    return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) { return globMatches(glob, text); });
}

bool keeps(const std::vector<GlobRule>& rules, const std::string& id) {
    for (const GlobRule& rule : rules) {
        if (globMatches(rule.glob, id)) {
            return rule.include;
        }
    }
    return rules.empty() || !rules.front().include;
}

void filter(Sample& sample, const std::vector<GlobRule>& rules) {
    if (rules.empty()) {
        return;
    }
    for (Element& element : sample.elements) {
        std::erase_if(element.items, [&](const Item& item) { return !keeps(rules, item.id); });
    }
    std::erase_if(sample.elements, [](const Element& element) { return element.rc >= 0 && element.items.empty(); });
}

std::size_t itemCount(const Sample& sample) {
    std::size_t count = 0;
    for (const Element& element : sample.elements) {
        count += element.items.size();
    }
    return count;
}

std::size_t failedElements(const Sample& sample) {
    return static_cast<std::size_t>(std::count_if(sample.elements.begin(), sample.elements.end(),
                                                  [](const Element& element) { return element.rc < 0; }));
}

std::vector<std::string> splitPieces(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0) {
            pieces.emplace_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string result;
    for (const std::string& piece : pieces) {
        result += (&piece == &pieces.front() ? std::string_view() : separator);
        result += piece;
    }
    return result;
}

}  // namespace zulstat
