#include "given_words.h"

#include <cstddef>

namespace zulstat {

namespace {

bool takesValue(const CLI::Option* option) {
    return option->get_expected_max() > 0;
}

// The option of a word, and whether its value is the next one.
const CLI::Option* findLong(const CLI::App& app, const std::string& word, bool& valueFollows) {
    const std::size_t equals = word.find('=');
    const CLI::Option* option = app.get_option_no_throw(word.substr(0, equals));
    valueFollows = option != nullptr && takesValue(option) && equals == std::string::npos;
    return option;
}

}  // namespace

GivenWords takeTargets(const CLI::App& app, std::vector<std::string>& words) {
    GivenWords given;
    std::vector<std::string> rest;
    bool command = false;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        bool valueFollows = false;
        if (word == "--") {
            rest.insert(rest.end(), words.begin() + static_cast<std::ptrdiff_t>(index), words.end());
            break;
        }
        if (word.starts_with("--")) {
            if (const CLI::Option* option = findLong(app, word, valueFollows)) {
                given.global.insert(option);
            }
        } else if (word.starts_with('-')) {
            for (std::size_t letter = 1; letter < word.size(); ++letter) {
                const CLI::Option* option = app.get_option_no_throw(std::string("-") + word[letter]);
                if (option == nullptr) {
                    break;
                }
                given.global.insert(option);
                if (takesValue(option)) {
                    valueFollows = letter + 1 == word.size();
                    break;
                }
            }
        } else if (!command && word.size() > 1 && word[0] == '@') {
            given.targets.push_back(word.substr(1));
            continue;
        } else {
            command = true;
        }
        rest.push_back(word);
        if (valueFollows && index + 1 < words.size()) {
            rest.push_back(words[++index]);
        }
    }
    words = rest;
    return given;
}

}  // namespace zulstat
