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
    const std::string groups = "mapfile -t COMPREPLY < <(compgen -W \"$(_zulstat_known groups)\" -- \"$current\")";
    return {
        {FORMAT_TYPE, words(formats()), "(" + formats() + ")"},
        {LEVEL_TYPE, words(levels), "(" + levels + ")"},
        {HOST_TYPE, "mapfile -t COMPREPLY < <(compgen -A hostname -- \"$current\")", "_hosts"},
        {FILE_TYPE, "compopt -o filenames 2>/dev/null\n        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")",
         "_files"},
        {GROUPS_TYPE, groups, "_zulstat_known groups"}};
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

// Whether such arguments stand behind the command: "ID" or "FILE".
bool takes(const CLI::App* command, std::string_view name) {
    const std::vector<const CLI::Option*> arguments = command->get_options(
        [name](const CLI::Option* option) { return option->get_positional() && option->get_name() == name; });
    return !arguments.empty();
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

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

void addNew(std::vector<std::string>& names, const std::vector<std::string>& more) {
    std::copy_if(more.begin(), more.end(), std::back_inserter(names),
                 [&](const std::string& name) { return !contains(names, name); });
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
    const std::string name = option->get_name();
    return fmt::format("'{}:{}:{}'", option->get_option_text() == SEVERAL_ARGUMENTS ? "*" : "", zshMessage(name),
                       name == "ID"     ? "_zulstat_known ids selections"
                       : name == "FILE" ? "_files"
                       : name == "KIND" ? "(ids groups targets selections)"
                                        : " ");
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::vector<std::string> commands;
    std::vector<std::string> withValue = optionNames(app, takesValue);
    std::string branches;
    std::vector<std::string> withIds;
    std::vector<std::string> withFiles;
    for (const CLI::App* command : commandsOf(app)) {
        commands.push_back(command->get_name());
        if (takes(command, "ID")) {
            withIds.push_back(command->get_name());
        }
        if (takes(command, "FILE")) {
            withFiles.push_back(command->get_name());
        }
        addNew(withValue, optionNames(*command, takesValue));
        std::vector<std::string> own =
            optionNames(*command, [](const CLI::Option* option) { return !option->check_lname("help"); });
        if (!own.empty()) {
            branches +=
                fmt::format("        {}) options+=' {}' ;;\n", command->get_name(), folded(own, 32, "            "));
        }
    }
    const std::vector<std::string> general = optionNames(app, takesValue);
    std::string values;
    std::string ownValues;  // of options that only one command has so
    for (const ValueKind& kind : valueKinds()) {
        std::vector<std::string> names =
            optionNames(app, [&](const CLI::Option* each) { return isType(each, kind.type); });
        for (const CLI::App* command : commandsOf(app)) {
            std::vector<std::string> own =
                optionNames(*command, [&](const CLI::Option* each) { return isType(each, kind.type); });
            std::vector<std::string> others;  // that mean something else without the command
            std::erase_if(own, [&](const std::string& name) {
                const bool other = !contains(names, name) && contains(general, name);
                if (other) {
                    others.push_back(fmt::format("{}:{}", command->get_name(), name));
                }
                return other;
            });
            addNew(names, own);
            if (!others.empty()) {
                ownValues += fmt::format("    {})\n        {}\n        return\n        ;;\n", fmt::join(others, " | "),
                                         kind.bash);
            }
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

# Words of a kind, of the Gateways that the line names; readline takes host:port and @name for several words.
_zulstat_known() {{
    local line gateway=() index command=''
    read -ra line <<<"${{COMP_LINE-}}"
    [[ ${{COMP_LINE-}} == *[[:blank:]] ]] || unset 'line[-1]'  # not complete yet
    for ((index = 1; index < ${{#line[@]}}; ++index)); do
        case ${{line[index]}} in
        -H | --host | -p | --port) gateway+=("${{line[index]}}" "${{line[++index]-}}") ;;
        --host=* | --port=*) gateway+=("${{line[index]}}") ;;
        -*) ! _zulstat_takes_value "${{line[index]}}" || ((++index)) ;;
        @*) [[ -n $command ]] || gateway+=("${{line[index]}}") ;;
        *) command=1 ;;
        esac
    done
    zulstat "${{gateway[@]}}" complete "$1" 2>/dev/null
}}

_zulstat() {{
    local commands='{}'
    local options='{}'
    local before_commands='{}'
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} command='' index word names
    # Readline takes --option=value for three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    # The '@' of a name is a word here, and a part of the word that is completed.
    if [[ $before == '@' ]]; then
        current=@$current before=''
    fi
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${{COMP_WORDS[index]}}
        if [[ $word == '@' ]]; then
            ((++index))
        elif [[ $word == @* ]]; then
            continue
        elif [[ $word != -* ]]; then
            command=$word
            break
        elif _zulstat_takes_value "$word"; then
            ((++index))
            [[ ${{COMP_WORDS[index]}} != '=' ]] || ((++index))
            # host:port
            while [[ ${{COMP_WORDS[index + 1]-}} == :* ]]; do
                ((index += 2))
            done
        fi
    done

    COMPREPLY=()
    case $command:$before in
{}    esac
    case $before in
{}    *)
        ! _zulstat_takes_value "$before" || return 0
        case $command in
{}        '') options+=" $before_commands" ;;
        esac
        if [[ $current == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        elif [[ -z $command && $current != @* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
        elif [[ $before == "$command" && ' {} ' == *" $command "* ]]; then
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        elif [[ -z $command || ' {} ' == *" $command "* ]]; then
            if [[ -z $command ]]; then
                names=$(_zulstat_known targets)
            elif [[ $current == @* ]]; then
                names=$(_zulstat_known selections)
            else
                names=$(_zulstat_known ids)
            fi
            mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
        fi
        ;;
    esac
}}
complete -F _zulstat zulstat
)",
        folded(withValue, 4, "        ", " | ", "\\"), fmt::join(commands, " "),
        folded(optionNames(app, [](const CLI::Option* option) { return !isOnlyOfMain(option); }), 19, "        "),
        fmt::join(optionNames(app, isOnlyOfMain), " "), ownValues, values, branches, fmt::join(withFiles, " "),
        fmt::join(withIds, " "));
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
    return fmt::format(R"zsh(#compdef zulstat

# Words of these kinds, of the Gateways that the line names.
_zulstat_known() {{
    local kind
    local -a found
    for kind in "$@"; do
        found+=(${{(f)"$(_call_program words zulstat ${{(q)zulstat_gateway}} complete $kind 2>/dev/null)"}})
    done
    compadd -a found
}}

local curcontext=$curcontext state line index
local -a zulstat_gateway
for ((index = 2; index < CURRENT; ++index)); do
    case $words[index] in
    -H | --host | -p | --port) zulstat_gateway+=($words[index] $words[index+1]) ;;
    --host=* | --port=*) zulstat_gateway+=($words[index]) ;;
    esac
done
if [[ CURRENT -eq 2 && $words[2] == @* ]]; then
    _zulstat_known targets
    return
fi
while [[ CURRENT -gt 2 && $words[2] == @* ]]; do
    zulstat_gateway+=($words[2])
    words[2]=()
    ((CURRENT--))
done
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
)zsh",
                       general, version, commands, branches);
}

}  // namespace zulstat
