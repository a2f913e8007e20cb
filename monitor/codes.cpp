#include "codes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include <zulstats_codes.h>

namespace monitor {

namespace {

constexpr std::string_view PREFIX = "STAPI_RC_";

constexpr std::array CODES = {
#define ROW(name, meaning, hint) Code{STAPI_RC_##name, "STAPI_RC_" #name, meaning},
    ZULSTATS_CODES(ROW)
#undef ROW
};

}  // namespace

std::span<const Code> allCodes() {
    return CODES;
}

const Code* findCode(int number) {
    const auto found =
        std::find_if(CODES.begin(), CODES.end(), [&](const Code& code) { return code.number == number; });
    return found == CODES.end() ? nullptr : &*found;
}

const Code* findCode(std::string_view text) {
    int number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && rest == text.data() + text.size()) {
        return findCode(number);
    }
    std::string name(text);
    std::transform(name.begin(), name.end(), name.begin(), [](char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    if (!name.starts_with(PREFIX)) {
        name.insert(0, PREFIX);
    }
    const auto found = std::find_if(CODES.begin(), CODES.end(), [&](const Code& code) { return code.name == name; });
    return found == CODES.end() ? nullptr : &*found;
}

std::string codeText(int number) {
    const Code* code = findCode(number);
    return code == nullptr ? "code " + std::to_string(number)
                           : std::string(code->name) + " (" + std::to_string(number) + ")";
}

}  // namespace monitor
