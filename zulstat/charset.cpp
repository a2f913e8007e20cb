#include "charset.h"

#include <langinfo.h>
#include <wchar.h>

#include <array>
#include <climits>
#include <clocale>

#include "monitor/utf8.h"

namespace zulstat {

using namespace monitor;

namespace {

bool knowsWide = false;  // written by setLocale() alone

locale_t usersLocale() {
    static const locale_t users = [] {
        const locale_t wanted = newlocale(LC_CTYPE_MASK, "", nullptr);
        return wanted != nullptr ? wanted : newlocale(LC_CTYPE_MASK, "C", nullptr);
    }();
    return users;
}

// Empty for a character that the locale lacks.
std::string encode(char32_t character) {
    std::array<char, MB_LEN_MAX> bytes;
    mbstate_t state{};
    const locale_t own = uselocale(usersLocale());
    const std::size_t size = wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
    uselocale(own);
    return size == static_cast<std::size_t>(-1) ? std::string() : std::string(bytes.data(), size);
}

}  // namespace

void setLocale() {
    std::setlocale(LC_CTYPE, "");
    knowsWide = std::string_view(nl_langinfo(CODESET)) == "UTF-8" || std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
}

bool wideCharactersKnown() {
    return knowsWide;
}

bool userHasUtf8() {
    static const bool utf8 = std::string_view(nl_langinfo_l(CODESET, usersLocale())) == "UTF-8";
    return utf8;
}

bool userHas(char32_t character) {
    return userHasUtf8() || !encode(character).empty();
}

std::string inUsersCharacters(std::string_view utf8) {
    if (userHasUtf8()) {
        return std::string(utf8);
    }
    std::string result;
    forEachCharacter(utf8, [&](const Character& character, std::string_view) {
        const std::string bytes = character.valid ? encode(character.code) : std::string();
        result += bytes.empty() ? "?" : bytes;
    });
    return result;
}

UsersLocale::UsersLocale() {
    if (wideCharactersKnown() && !userHasUtf8()) {
        former = std::setlocale(LC_CTYPE, nullptr);
        if (std::setlocale(LC_CTYPE, "") == nullptr) {
            std::setlocale(LC_CTYPE, "C");
        }
    }
}

UsersLocale::~UsersLocale() {
    if (!former.empty()) {
        std::setlocale(LC_CTYPE, former.c_str());
    }
}

}  // namespace zulstat
