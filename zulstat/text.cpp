#include "text.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "charset.h"
#include "monitor/utf8.h"

namespace zulstat {

using namespace monitor;

namespace {

// Characters without a shape of their own: format characters, and others that are shown as nothing.
bool isInvisible(char32_t code) {
    constexpr std::pair<char32_t, char32_t> ranges[] = {
        {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},
        {0x070F, 0x070F},   {0x0890, 0x0891},   {0x08E2, 0x08E2},   {0x115F, 0x1160},   {0x17B4, 0x17B5},
        {0x180B, 0x180F},   {0x200B, 0x200F},   {0x202A, 0x202E},   {0x2060, 0x206F},   {0x3164, 0x3164},
        {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},   {0x110BD, 0x110BD},
        {0x110CD, 0x110CD}, {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
    };
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [&](const auto& range) { return code >= range.first && code <= range.second; });
}

bool shownAsItIs(const Character& character) {
    if (!character.valid || character.code == '\\') {
        return false;
    }
    if (character.code < 0x80) {
        return character.code >= ' ' && character.code != 0x7F;
    }
    return wideCharactersKnown() && iswprint(static_cast<wint_t>(character.code)) != 0 &&
           !isInvisible(character.code) && userHas(character.code);
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

bool globMatches(const std::string& glob, std::string_view text) {
    static_cast<void>(wideCharactersKnown());  // so that '?' is a character, not a byte
    std::string whole(text);
    std::replace(whole.begin(), whole.end(), '\0', '\1');  // a NUL would be the end
    return fnmatch(glob.c_str(), whole.c_str(), 0) == 0;
}

bool anyGlobMatches(const std::vector<std::string>& globs, std::string_view text) {
    return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) { return globMatches(glob, text); });
}

bool keeps(const std::vector<GlobRule>& rules, std::string_view id) {
    for (const GlobRule& rule : rules) {
        if (globMatches(rule.glob, id)) {
            return rule.include;
        }
    }
    return rules.empty() || !rules.front().include;
}

bool isGlob(std::string_view word) {
    return word.find_first_of("*?[") != std::string_view::npos;
}

bool meansId(const std::string& word, std::string_view id) {
    return id == word || (isGlob(word) && globMatches(word, id));
}

bool keeps(const IdFilter& wanted, std::string_view id) {
    const bool meant = wanted.words.empty() || std::any_of(wanted.words.begin(), wanted.words.end(),
                                                           [&](const std::string& word) { return meansId(word, id); });
    return meant && keeps(wanted.rules, id);
}

void filter(Sample& sample, const IdFilter& wanted) {
    if (wanted.empty()) {
        return;
    }
    keepItems(sample, [&](const Item& item) { return keeps(wanted, item.id); });
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
