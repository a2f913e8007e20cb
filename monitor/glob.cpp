#include "glob.h"

#include <algorithm>
#include <cstddef>

#include "number.h"

namespace monitor {

// A star that cannot go on hands back to the last one only: as each takes as little as it can, those before it are
// settled once the characters between them have matched.
std::optional<std::vector<std::string_view>> matchGlob(std::string_view glob, std::string_view text) {
    struct Star {
        std::size_t glob;  // behind it
        std::size_t begin;
        std::size_t end;
    };
    std::vector<Star> stars;
    std::size_t inGlob = 0;
    std::size_t inText = 0;
    while (inText < text.size() || inGlob < glob.size()) {
        if (inGlob < glob.size() && glob[inGlob] == '*') {
            stars.push_back({++inGlob, inText, inText});
        } else if (inGlob < glob.size() && inText < text.size() &&
                   (glob[inGlob] == '?' || glob[inGlob] == text[inText])) {
            ++inGlob;
            ++inText;
        } else if (!stars.empty() && stars.back().end < text.size()) {
            inText = ++stars.back().end;
            inGlob = stars.back().glob;
        } else {
            return std::nullopt;
        }
    }
    std::vector<std::string_view> matched;
    for (const Star& star : stars) {
        matched.push_back(text.substr(star.begin, star.end - star.begin));
    }
    return matched;
}

std::string fillIn(std::string_view text, const std::vector<std::string_view>& stars,
                   std::string (*clean)(std::string_view)) {
    std::string filled;
    while (!text.empty()) {
        const std::size_t dollar = std::min(text.find('$'), text.size());
        filled += text.substr(0, dollar);
        text.remove_prefix(dollar);
        if (text.size() > 1 && isDigit(text[1])) {
            const auto number = static_cast<std::size_t>(text[1] - '0');
            if (number >= 1 && number <= stars.size()) {
                filled += clean == nullptr ? std::string(stars[number - 1]) : clean(stars[number - 1]);
            }
            text.remove_prefix(2);
        } else if (!text.empty()) {
            filled += '$';
            text.remove_prefix(text.starts_with("$$") ? 2 : 1);
        }
    }
    return filled;
}

std::size_t starsNamed(std::string_view text) {
    std::size_t most = 0;
    for (std::size_t place = 0; place + 1 < text.size(); ++place) {
        if (text[place] == '$') {
            ++place;
            most = std::max(most, isDigit(text[place]) ? static_cast<std::size_t>(text[place] - '0') : 0);
        }
    }
    return most;
}

}  // namespace monitor
