#include "completion.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "command_line.h"
#include "format.h"

namespace zulstat {
namespace {

constexpr std::size_t LINE_WIDTH = 120;

std::string formats() {
    return fmt::format("{}", fmt::join(formatNames(), " "));
}

// How shells complete a value.
struct ValueKind {
    std::string_view type;
    std::string bash;  // commands, as a branch of `case` has them
    std::string zsh;   // an action of _arguments
};

std::vector<ValueKind> valueKinds() {
    const auto words = [](const std::string& list) {
        return fmt::format("mapfile -t COMPREPLY < <(compgen -W '{}' -- \"$current\")", list);
    };
    const std::string levels = "0 1 2 3 4 5";
    return {
        {FORMAT_TYPE, words(formats()), "(" + formats() + ")"},
        {LEVEL_TYPE, words(levels), "(" + levels + ")"},
        {HOST_TYPE, "mapfile -t COMPREPLY < <(compgen -A hostname -- \"$current\")", "_hosts"},
        {FILE_TYPE, "compopt -o filenames 2>/dev/null\n        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")",
         "_files"}};
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional) {
    return app.get_options([positional](const CLI::Option* option) { return option->get_positional() == positional; });
}

bool takesValue(const CLI::Option* option) {
    return option->get_expected_max() > 0;
}

bool isType(const CLI::Option* option, std::string_view type) {
    return takesValue(option) && option->get_option_text() == type;
}

std::vector<std::string> namesOf(const CLI::Option* option) {
    std::vector<std::string> names;
    for (const std::string& letter : option->get_snames()) {
        names.push_back("-" + letter);
    }
    for (const std::string& word : option->get_lnames()) {
        names.push_back("--" + word);
    }
    return names;
}

// The names of the options that are chosen, in their order.
template <typename Choose>
std::vector<std::string> optionNames(const CLI::App& app, Choose choose) {
    std::vector<std::string> names;
    for (const CLI::Option* option : optionsOf(app, false)) {
        if (choose(option)) {
            const std::vector<std::string> own = namesOf(option);
            names.insert(names.end(), own.begin(), own.end());
        }
    }
    return names;
}

void addNew(std::vector<std::string>& names, const std::vector<std::string>& more) {
    std::copy_if(more.begin(), more.end(), std::back_inserter(names),
                 [&](const std::string& name) { return std::find(names.begin(), names.end(), name) == names.end(); });
}

// Words with a separator between them, on as many lines as they take; all but the last line end with `lineEnd`.
std::string folded(const std::vector<std::string>& words, std::size_t column, std::string_view indent,
                   std::string_view separator = " ", std::string_view lineEnd = "") {
    std::string text;
    for (const std::string& word : words) {
        const std::size_t width = separator.size() + word.size();
        const bool fits = column + width + lineEnd.size() < LINE_WIDTH;
        if (!text.empty()) {
            text += fits || !lineEnd.empty() ? separator : "";
            text += fits ? "" : fmt::format("{}\n{}", lineEnd, indent);
        }
        column = (fits ? column : indent.size()) + width;
        text += word;
    }
    return text;
}

// For an apostrophe the quotes end and begin again.
std::string quotedForZsh(std::string_view text) {
    std::string quoted;
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : c == ']' ? "\\]" : std::string(1, c);
    }
    return quoted;
}

// What zsh shows above the values: the word of the help in small letters.
std::string zshMessage(std::string word) {
    word.erase(std::find(word.begin(), word.end(), '.'), word.end());
    std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
    return word;
}

bool isOnlyOfMain(const CLI::Option* option) {
    return option->check_lname("version");
}

std::string zshOption(const CLI::Option* option) {
    const std::vector<std::string> names = namesOf(option);
    const bool ends = option->check_lname("help") || option->check_lname("version");
    const bool repeats = isType(option, GLOB_TYPE) || isType(option, GROUPS_TYPE) || isType(option, HOST_TYPE);
    std::string exclusion;
    if (ends) {
        exclusion = "(- *)";
    } else if (repeats) {
        exclusion = "*";
    } else if (names.size() > 1) {
        exclusion = fmt::format("({})", fmt::join(names, " "));
    }
    std::string value;
    if (takesValue(option)) {
        const std::vector<ValueKind> KINDS = valueKinds();
        const auto kind =
            std::find_if(KINDS.begin(), KINDS.end(), [&](const ValueKind& each) { return isType(option, each.type); });
        value = fmt::format(":{}:{}", zshMessage(option->get_option_text()), kind == KINDS.end() ? " " : kind->zsh);
    }
    const std::string rest = fmt::format("[{}]{}'", quotedForZsh(option->get_description()), value);
    return names.size() == 1 ? fmt::format("'{}{}{}", exclusion, names[0], rest)
                             : fmt::format("'{}'{{{}}}'{}", exclusion, fmt::join(names, ","), rest);
}

std::string zshArgument(const CLI::Option* option) {
    return fmt::format("'{}:{}: '", option->get_option_text() == SEVERAL_ARGUMENTS ? "*" : "",
                       zshMessage(option->get_name()));
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::vector<std::string> commands;
    std::vector<std::string> withValue = optionNames(app, takesValue);
    std::string branches;
    for (const CLI::App* command : commandsOf(app)) {
        commands.push_back(command->get_name());
        addNew(withValue, optionNames(*command, takesValue));
        std::vector<std::string> own =
            optionNames(*command, [](const CLI::Option* option) { return !option->check_lname("help"); });
        if (!own.empty()) {
            branches +=
                fmt::format("        {}) options+=' {}' ;;\n", command->get_name(), folded(own, 32, "            "));
        }
    }
    std::string values;
    for (const ValueKind& kind : valueKinds()) {
        std::vector<std::string> names =
            optionNames(app, [&](const CLI::Option* each) { return isType(each, kind.type); });
        for (const CLI::App* command : commandsOf(app)) {
            addNew(names, optionNames(*command, [&](const CLI::Option* each) { return isType(each, kind.type); }));
        }
        values += fmt::format("    {})\n        {}\n        ;;\n", fmt::join(names, " | "), kind.bash);
    }
    return fmt::format(
        R"(# bash completion of zulstat(1)

_zulstat_takes_value() {{
    case $1 in
    {}) return 0 ;;
    esac
    return 1
}}

_zulstat() {{
    local commands='{}'
    local options='{}'
    local before_commands='{}'
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} command='' index word
    # Readline takes --option=value for three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${{COMP_WORDS[index]}}
        if [[ $word != -* ]]; then
            command=$word
            break
        elif _zulstat_takes_value "$word"; then
            ((++index))
            [[ ${{COMP_WORDS[index]}} != '=' ]] || ((++index))
        fi
    done

    COMPREPLY=()
    case $before in
{}    *)
        ! _zulstat_takes_value "$before" || return 0
        case $command in
{}        '') options+=" $before_commands" ;;
        esac
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        elif [[ -z $command ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        fi
        ;;
    esac
}}
complete -F _zulstat zulstat
)",
        folded(withValue, 4, "        ", " | ", "\\"), fmt::join(commands, " "),
        folded(optionNames(app, [](const CLI::Option* option) { return !isOnlyOfMain(option); }), 19, "        "),
        fmt::join(optionNames(app, isOnlyOfMain), " "), values, branches);
}

std::string zshCompletion(const CLI::App& app) {
    std::string general;
    std::string version;
    for (const CLI::Option* option : optionsOf(app, false)) {
        (isOnlyOfMain(option) ? version : general) += "    " + zshOption(option) + "\n";
    }
    std::string commands;
    std::string branches;
    for (const CLI::App* command : commandsOf(app)) {
        commands += fmt::format("    '{}:{}'\n", command->get_name(), quotedForZsh(command->get_description()));
        branches += fmt::format("    {})\n        _arguments $general", command->get_name());
        for (const CLI::Option* option : optionsOf(*command, false)) {
            branches += option->check_lname("help") ? "" : " \\\n            " + zshOption(option);
        }
        for (const CLI::Option* argument : optionsOf(*command, true)) {
            branches += " \\\n            " + zshArgument(argument);
        }
        branches += "\n        ;;\n";
    }
    return fmt::format(R"(#compdef zulstat

local curcontext=$curcontext state line
local -a general version commands
general=(
{})
version=(
{})
commands=(
{})

_arguments -C $general $version '(-): :->command' '(-)*:: :->rest' && return
case $state in
command)
    _describe -t commands command commands
    ;;
rest)
    case $words[1] in
{}    esac
    ;;
esac
)",
                       general, version, commands, branches);
}

}  // namespace zulstat
