// Texts of a Gateway: any bytes at all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/sample.h"

namespace zulstat {

// For terminals: control characters, bytes that are not UTF-8, the backslash, characters that reorder text or are
// invisible and those that the user's locale lacks become escapes (\n \t \\ \x1b \u202e); the rest stays. The result
// is one line of UTF-8; inUsersCharacters() of charset.h prepares it for output.
std::string escapeForTerminal(std::string_view bytes);

// The number of terminal columns of a text without control characters, such as escapeForTerminal returns.
std::size_t columnWidth(std::string_view text);

// The text, filled with spaces to the width.
std::string padRight(std::string_view text, std::size_t width);
std::string padLeft(std::string_view text, std::size_t width);

// '*' any characters, '?' one, "[a-z]", "[!a]" sets, '\' takes the next character literally; matches the whole text.
bool globMatches(const std::string& glob, std::string_view text);
bool anyGlobMatches(const std::vector<std::string>& globs, std::string_view text);

// -I and -X in the order of the command line. The first rule that matches decides; without a match an identifier is
// kept if the first rule is an exclusion (or there is none).
struct GlobRule {
    bool include = true;
    std::string glob;
};
bool keeps(const std::vector<GlobRule>& rules, std::string_view id);

// Whether the word has characters that stand for others.
bool isGlob(std::string_view word);
// Whether a word is the identifier, or a glob that matches it.
bool meansId(const std::string& word, std::string_view id);

// What is shown of an answer: what one of the words means (anything where there are none) and the rules keep.
struct IdFilter {
    std::vector<std::string> words;
    std::vector<GlobRule> rules;

    bool empty() const {
        return words.empty() && rules.empty();
    }
};
bool keeps(const IdFilter& wanted, std::string_view id);

// Removes the items that it does not keep, and the elements that lose all their items. Failed elements stay.
void filter(monitor::Sample& sample, const IdFilter& wanted);

// Pieces between the separators; empty pieces are dropped.
std::vector<std::string> splitPieces(std::string_view text, char separator);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);

}  // namespace zulstat
