// The characters that the user's locale (LC_CTYPE) has. Texts inside the program are UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace zulstat {

// Sets the program's own LC_CTYPE to a locale with UTF-8, the user's if it is one. main() calls it once, before any
// text is looked at.
void setLocale();
// Whether the system has a locale with UTF-8. Without one the C library knows neither widths nor what is printable.
bool wideCharactersKnown();

bool userHasUtf8();
bool userHas(char32_t character);
// The text in the user's characters; those that the locale lacks become '?'. Not for raw bytes of a Gateway.
std::string inUsersCharacters(std::string_view utf8);

// Within its lifetime the program's LC_CTYPE is the user's, as curses wants it. For one thread.
class UsersLocale {
public:
    UsersLocale();
    ~UsersLocale();
    UsersLocale(const UsersLocale&) = delete;
    UsersLocale& operator=(const UsersLocale&) = delete;

private:
    std::string former;  // the program's own; empty where it is the same
};

}  // namespace zulstat
