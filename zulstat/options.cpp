#include "options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "command_line.h"
#include "config_file.h"
#include "given_words.h"
#include "interrupt.h"
#include "map_file.h"
#include "nearest.h"
#include "targets.h"

namespace zulstat {

using namespace monitor;

namespace {

// CLI11 takes "-122" for options. For `explain` such words are numbers; they travel as "~122".
constexpr char MINUS_MARK = '~';

std::vector<std::string> splitIds(const std::vector<std::string>& words, const char* what) {
    std::vector<std::string> ids;
    for (const std::string& word : words) {
        const std::vector<std::string> pieces = splitPieces(word, ':');
        ids.insert(ids.end(), pieces.begin(), pieces.end());
    }
    // An empty query string asks for everything; a longer one than this the library replaces by another.
    if (ids.empty() && !words.empty()) {
        throw UsageError{fmt::format("'{}' names no {}", words.front(), what)};
    }
    if (const std::size_t size = join(ids, ":").size(); size > QUERY_STRING_LIMIT) {
        throw UsageError{
            fmt::format("the {}s take {} characters together, {} at most", what, size, QUERY_STRING_LIMIT)};
    }
    return ids;
}

bool isNumber(const std::string& word) {
    return parseSeconds(word).has_value();
}

// Moves numbers from the end of the words to the end of others, as long as one word is left and these are not too many.
void takeLastNumbers(std::vector<std::string>& words, std::vector<std::string>& numbers, std::size_t most) {
    const std::size_t room = most - numbers.size();
    auto begin = words.end();
    while (words.end() - begin < std::min(std::ssize(words) - 1, static_cast<std::ptrdiff_t>(room)) &&
           isNumber(*(begin - 1))) {
        --begin;
    }
    numbers.insert(numbers.end(), begin, words.end());
    words.erase(begin, words.end());
}

// The interval and the count: numbers before the identifiers, behind them, or behind the groups, as -g takes all words
// that follow.
std::vector<std::string> takeNumbers(Words& words, std::size_t most) {
    std::vector<std::string> numbers;
    std::vector<std::string>& ids = words.ids;
    while (numbers.size() < most && !ids.empty() && isNumber(ids.front())) {
        numbers.push_back(ids.front());
        ids.erase(ids.begin());
    }
    takeLastNumbers(ids, numbers, most);
    takeLastNumbers(words.groups, numbers, most);
    return numbers;
}

void setInterval(const std::string& word, Options& options, bool intervalGiven) {
    if (intervalGiven) {
        throw UsageError{fmt::format("the interval is given twice: -i and '{}'", word)};
    }
    options.interval = *parseSeconds(word);
    if (options.interval < SHORTEST_INTERVAL || options.interval > LONGEST_TIME) {
        throw UsageError{
            fmt::format("the interval {} is not from {} to {} seconds", word, SHORTEST_INTERVAL, LONGEST_TIME)};
    }
}

void setCount(const std::string& word, Options& options) {
    const double count = *parseSeconds(word);
    if (options.count || count < 1 || count > 999999999 || count != std::floor(count)) {
        throw UsageError{options.count ? fmt::format("the count is given twice: -c and '{}'", word)
                                       : fmt::format("'{}' is not a count", word)};
    }
    options.count = static_cast<long>(count);
}

bool colorWanted() {
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string_view(value == nullptr ? "" : value);
    };
    return variable("NO_COLOR").empty() && variable("TERM") != "dumb" && isatty(STDOUT_FILENO) == 1;
}

void finishCheck(Options& options, const Words& words) {
    if (options.ids.empty()) {
        throw UsageError{"check needs an identifier"};
    }
    if (words.rate && words.delta) {
        throw UsageError{"--rate and --delta exclude each other"};
    }
    options.change = words.rate ? ChangeWanted::perSecond : words.delta ? ChangeWanted::difference : ChangeWanted::none;
    const bool twice = options.change != ChangeWanted::none;
    options.expected = splitPieces(words.expected, ',');
    if (!words.expected.empty() && options.expected.empty()) {
        throw UsageError{fmt::format("'{}' names no state", words.expected)};
    }
    if (!options.expected.empty() && (twice || options.warning || options.critical)) {
        throw UsageError{"--expect is for states; -w, -c, --rate and --delta are for numbers"};
    }
    if (twice && options.from.empty() && options.interval >= options.timeout) {
        throw UsageError{fmt::format("two samples with {} s between do not fit into {} s: a longer time (-T) is needed",
                                     options.interval, options.timeout)};
    }
}

template <typename Named>
std::vector<std::string> namesOf(const std::map<std::string, Named>& named) {
    std::vector<std::string> names;
    for (const auto& [name, content] : named) {
        names.push_back(name);
    }
    return names;
}

void finishTargets(Options& options, const Words& words, const Config& config, const GivenWords& given,
                   bool hostGiven) {
    for (const std::string& name : given.targets) {
        const auto found = config.targets.find(name);
        if (found == config.targets.end()) {
            throw UsageError{
                fmt::format("there is no target '@{}'{}", name, didYouMean(name, namesOf(config.targets)))};
        }
        for (const std::string& word : found->second.words) {
            addTargets(word, words.port, options.targets);
        }
    }
    if (given.targets.empty() || hostGiven) {
        for (const std::string& host : words.hosts) {
            addTargets(host, words.port, options.targets);
        }
    }
    refuseTwins(options.targets);
    options.target = options.targets.front();
    if (options.several() && options.command == Command::map) {
        throw UsageError{fmt::format("{} Gateways are named, and this command takes one", options.targets.size())};
    }
}

// Puts what selections have in their places.
void expandSelections(Words& words, const Config& config, Options& options) {
    std::vector<std::string> ids;
    bool globs = false;
    for (const std::string& word : words.ids) {
        if (word.size() < 2 || word[0] != '@') {
            ids.push_back(word);
            continue;
        }
        const auto found = config.selections.find(word.substr(1));
        if (found == config.selections.end()) {
            const bool target = config.targets.contains(word.substr(1));
            throw UsageError{fmt::format("there is no selection '{}'{}", word,
                                         target ? "; a target stands before the command"
                                                : didYouMean(word.substr(1), namesOf(config.selections)))};
        }
        const Selection& selection = found->second;
        ids.insert(ids.end(), selection.ids.begin(), selection.ids.end());
        words.groups.insert(words.groups.end(), selection.groups.begin(), selection.groups.end());
        globs = globs || std::any_of(selection.ids.begin(), selection.ids.end(),
                                     [](const std::string& id) { return isGlob(id); });
    }
    words.ids = ids;
    // These take globs as they are.
    if (globs && options.command != Command::check && options.command != Command::plot) {
        options.globs.words = splitIds(ids, "identifier");
        words.ids.clear();
    }
}

// What the commands that read recordings need.
void finishRecordings(Options& options) {
    if (options.command == Command::diff) {
        if (!options.from.empty() == !options.files.empty() || options.files.size() == 1 || options.files.size() > 2) {
            throw UsageError{"diff takes two recordings, or one with --from"};
        }
        if (!options.from.empty() && options.at == std::nullopt && options.to) {
            throw UsageError{"--to needs --at"};
        }
    }
    if (options.command == Command::plot) {
        if (options.ids.empty() && options.groups.empty() && options.globs.empty()) {
            throw UsageError{"plot needs an identifier, -g or -I"};
        }
        constexpr long samplesForAPipe = 60;
        if (!options.count && isatty(STDOUT_FILENO) != 1) {
            options.count = samplesForAPipe;
        }
    }
}

// What goes with a recording, and what does not.
void finishFrom(Options& options, const Words& words, const CLI::App& app, const GivenWords& given) {
    if (!words.at.empty()) {
        options.at = recording::parseTime(words.at);
    }
    if (!words.to.empty()) {
        options.to = recording::parseTime(words.to);
    }
    if (options.from.empty()) {
        if (!options.files.empty()) {
            return;
        }
        for (const auto& [name, isGiven] : {std::pair("--at", !words.at.empty()), std::pair("--to", !words.to.empty()),
                                            std::pair("--speed", options.speed.has_value())}) {
            if (isGiven) {
                throw UsageError{fmt::format("{} goes with --from", name)};
            }
        }
        return;
    }
    if (options.command == Command::diff && !options.to) {
        return;  // with what a Gateway says now
    }
    for (const char* name : {"--host", "--port", "--timeout", "--trace", "--trace-file"}) {
        if (given.global.contains(app.get_option(name))) {
            throw UsageError{fmt::format("{} is about Gateways; --from reads a recording", name)};
        }
    }
    if (!given.targets.empty() || words.noReconnect) {
        throw UsageError{fmt::format("{} is about Gateways; --from reads a recording",
                                     words.noReconnect ? "--no-reconnect" : "@" + given.targets.front())};
    }
}

void finish(Options& options, Words& words, const Config& config) {
    const Command command = options.command;
    options.header = !words.noHeader;
    options.color = !words.noColor && colorWanted();
    options.reconnect = !words.noReconnect;
    if (words.json && !words.format.empty()) {
        throw UsageError{"-j and -o exclude each other"};
    }
    if (words.json) {
        options.format = command == Command::watch ? Format::jsonl : Format::json;
    } else if (!words.format.empty()) {
        options.format = formatByName(words.format);
    }
    const bool samples = command == Command::stats || command == Command::ids || command == Command::groups ||
                         command == Command::watch || command == Command::diff || command == Command::demo;
    if (options.format && !samples) {
        throw UsageError{"-o and -j are for stats, ids, groups, watch, diff and demo"};
    }
    if (command == Command::diff && options.format == Format::openmetrics) {
        throw UsageError{"diff has no -o openmetrics"};
    }
    if (!words.rotation.empty()) {
        options.rotation = *recording::parseRotation(words.rotation);
    } else if (options.keep > 0) {
        throw UsageError{"--keep goes with --rotate"};
    }
    if (command == Command::watch || command == Command::top) {
        const std::vector<std::string> numbers = takeNumbers(words, command == Command::watch ? 2 : 1);
        if (!numbers.empty()) {
            setInterval(numbers[0], options, words.intervalGiven);
            words.intervalGiven = true;
        }
        if (numbers.size() > 1) {
            setCount(numbers[1], options);
        }
    }
    options.intervalGiven = words.intervalGiven;
    expandSelections(words, config, options);
    if (!(words.ids.empty() && options.globs.words.empty()) && !words.groups.empty()) {
        throw UsageError{"identifiers and -g exclude each other"};
    }
    options.ids = splitIds(words.ids, "identifier");
    options.groups = splitIds(words.groups, "group");
    if (!words.map.empty()) {
        if (options.format != Format::openmetrics && command != Command::check && command != Command::top &&
            command != Command::plot && command != Command::report) {
            throw UsageError{"--map goes with -o openmetrics, with check, top, plot and report"};
        }
        options.mapper = readMapper(words.map, words.module.empty() ? "default" : words.module);
    } else if (!words.module.empty()) {
        throw UsageError{"--module goes with --map"};
    }
    if (!options.traceFile.empty() && options.traceLevel == 0) {
        throw UsageError{"--trace-file needs --trace with a level from 1 to 5"};
    }
    for (std::string& code : options.codes) {
        std::replace(code.begin(), code.end(), MINUS_MARK, '-');
    }
    options.warning = words.warning.empty() ? std::nullopt : parseRange(words.warning);
    options.critical = words.critical.empty() ? std::nullopt : parseRange(words.critical);
    finishRecordings(options);
    if (command == Command::check) {
        finishCheck(options, words);
    }
}

// CLI11 begins its text with the option's name, and ends it with the type of a value that is missing.
std::string wrongNumberOfValues(const std::string& text) {
    const std::string name = text.substr(0, text.find(':'));
    return fmt::format(fmt::runtime(text.ends_with("missing") ? "{} needs a value" : "{} has too many values"), name);
}

// A value of the environment that is not taken is blamed on the variable, not on an option that nobody gave.
std::string blame(const std::string& text, int argc, const char* const* argv) {
    struct Variable {
        std::string_view option;
        std::string_view letter;
        const char* name;
    };
    for (const Variable& variable :
         {Variable{"--port", "-p", "ZULSTAT_PORT"}, {"--timeout", "-T", "ZULSTAT_TIMEOUT"}}) {
        const bool given = std::any_of(argv + 1, argv + argc, [&](std::string_view word) {
            return word.starts_with(variable.option) || word.starts_with(variable.letter);
        });
        if (text.starts_with(variable.option) && !given && std::getenv(variable.name) != nullptr) {
            return variable.name + text.substr(variable.option.size());
        }
    }
    return text;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

// Where there is no command yet, what may have been meant is one of them.
std::string missingCommand(const CLI::App& app, const std::vector<std::string>& words) {
    if (words.empty()) {
        return "a command is missing";
    }
    std::vector<std::string> names = optionNames(app);
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return fmt::format("there is no command or option '{}'{}", words.front(), didYouMean(words.front(), names));
}

std::string unexpected(const CLI::App& app, const std::string& word) {
    std::vector<std::string> names = optionNames(app);
    for (const CLI::App* command : app.get_subcommands()) {
        const std::vector<std::string> own = optionNames(*command);
        if (std::find(own.begin(), own.end(), word.substr(0, word.find('='))) != own.end()) {
            return fmt::format("'{}' is an option of {}, and stands behind it", word, command->get_name());
        }
        names.insert(names.end(), own.begin(), own.end());
    }
    return fmt::format("'{}' is not expected here{}", word,
                       word.starts_with("--") ? didYouMean(word.substr(0, word.find('=')), names) : "");
}

// What the files say of options, as their defaults.
void applyConfig(CLI::App& app, const Config& config) {
    for (const auto& [name, setting] : config.options) {
        CLI::Option* option = app.get_option("--" + name);
        const bool flag = option->get_expected_max() == 0;
        if (flag && setting.value != "true" && setting.value != "false") {
            throw UsageError{fmt::format("{}: '{}' is not true or false, for {}", setting.place, setting.value, name)};
        }
        if (flag && setting.value == "false") {
            continue;
        }
        try {
            option->run_callback_for_default()->default_val(setting.value);
        } catch (const CLI::Error& error) {
            throw UsageError{fmt::format("{}: {}", setting.place, error.what())};
        }
    }
}

// For the command config: every option of all commands, then the names.
std::vector<InForce> inForce(const CLI::App& app, const Options& options, const Config& config,
                             const GivenWords& given) {
    std::vector<InForce> all;
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_lnames().empty() ? "" : option->get_lnames().front();
        if (name.empty() || name == "help" || name == "version") {
            continue;
        }
        const auto set = config.options.find(name);
        InForce one = {"option", name, option->count() > 0 ? join(option->results(), ",") : option->get_default_str(),
                       given.global.contains(option) ? "command line"
                       : option->count() > 0         ? option->get_envname()
                       : set != config.options.end() ? set->second.place
                                                     : "default"};
        if (name == "host") {
            std::vector<std::string> targets;
            for (const Target& target : options.targets) {
                targets.push_back(targetText(target));
            }
            one.value = join(targets, ",");
            one.from = given.targets.empty() ? one.from : "command line";
        } else if (name == "include" || name == "exclude") {
            std::vector<std::string> globs;
            for (const GlobRule& rule : options.globs.rules) {
                if (rule.include == (name == "include")) {
                    globs.push_back(rule.glob);
                }
            }
            one.value = join(globs, ",");
        } else if (option->get_expected_max() == 0) {
            one.value =
                option->count() > 0 || (set != config.options.end() && set->second.value == "true") ? "true" : "false";
        }
        all.push_back(one);
    }
    for (const auto& [name, target] : config.targets) {
        all.push_back({"target", "@" + name, join(target.words, ","), target.place});
    }
    for (const auto& [name, selection] : config.selections) {
        const std::string groups = selection.groups.empty() ? "" : "-g " + join(selection.groups, " ");
        all.push_back({"selection", "@" + name, groups.empty() ? join(selection.ids, " ") : groups, selection.place});
    }
    return all;
}

std::vector<std::string> commandLine(int argc, const char* const* argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    if (std::find(words.begin(), words.end(), "explain") != words.end()) {
        for (std::string& word : words) {
            if (word.size() > 1 && word[0] == '-' && word.find_first_not_of("0123456789", 1) == std::string::npos) {
                word[0] = MINUS_MARK;
            }
        }
    }
    return words;
}

}  // namespace

std::chrono::milliseconds Options::timeoutMs() const {
    return std::chrono::milliseconds(std::lround(std::ceil(timeout * 1000)));
}

std::chrono::milliseconds Options::intervalMs() const {
    return std::chrono::milliseconds(std::lround(interval * 1000));
}

Layout Options::layout() const {
    return {.header = header,
            .asciiJson = isatty(STDOUT_FILENO) == 1,
            .lineFeeds = lineFeeds,
            .targets = several(),
            .mapper = mapper.get()};
}

CollectorOptions Options::collector(const Target& gateway) const {
    return {gateway, findWorker(), traceLevel, traceFile, interruptDescriptor()};
}

Query Options::query() const {
    if (command == Command::groups) {
        return {What::groups, {}};
    }
    if (command == Command::ids) {
        return groups.empty() ? Query{What::ids, {}} : Query{What::idsByGroup, groups};
    }
    if (!groups.empty()) {
        return {What::statsByGroup, groups};
    }
    if (command == Command::plot && std::any_of(ids.begin(), ids.end(), isGlob)) {
        return {What::stats, {}};
    }
    return ids.empty() ? Query{What::stats, {}} : Query{What::statsById, ids};
}

FollowerOptions Options::follower(const Target& gateway) const {
    return {.collector = collector(gateway),
            .query = query(),
            .interval = intervalMs(),
            .timeout = timeoutMs(),
            .count = count,
            .reconnect = reconnect};
}

Subject Options::subject(const Target& gateway) const {
    return {.target = gateway,
            .timeout = timeout,
            .several = several(),
            .series = command == Command::watch || command == Command::top || command == Command::plot ||
                      command == Command::record,
            .ping = command == Command::ping,
            .filtered = !globs.empty(),
            .quiet = quiet,
            .verbose = verbose};
}

void Options::refuseTraceOnScreen() const {
    if (traceLevel > 0 && traceFile.empty() && isatty(STDERR_FILENO) == 1) {
        throw UsageError{"the trace would fall into the screen: name a file with --trace-file"};
    }
}

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    Words words;
    CLI::App app("Shows the statistics of a Gateway.", "zulstat");
    declareCommandLine(app, options, words);
    const auto usageError = [&](const std::string& text) {
        const auto commands = app.get_subcommands();
        return UsageError{text, commands.empty() ? "" : commands.front()->get_name()};
    };
    std::vector<std::string> line = commandLine(argc, argv);
    const GivenWords given = takeTargets(app, line);
    std::reverse(line.begin(), line.end());  // as CLI11 takes them
    Config config;
    std::optional<UsageError> wrongConfig;
    try {
        config = readConfig();
        applyConfig(app, config);
    } catch (const UsageError& error) {
        wrongConfig = error;  // help needs none
    }
    try {
        app.parse(line);
        if (wrongConfig) {
            throw UsageError(*wrongConfig);
        }
        finishTargets(options, words, config, given, given.global.contains(app.get_option("--host")));
        finishFrom(options, words, app, given);
        finish(options, words, config);
        if (options.command == Command::config || options.command == Command::complete) {
            options.inForce = inForce(app, options, config, given);
        }
    } catch (const CLI::CallForHelp&) {
        // 'help nosuch' too
        if (const auto rest = app.remaining(); !rest.empty() && !rest.front().starts_with('-')) {
            throw usageError(missingCommand(app, rest));
        }
        throw TextWanted{app.help()};
    } catch (const CLI::CallForVersion& version) {
        throw TextWanted{std::string(version.what()) + "\n"};
    } catch (const CLI::RequiredError& error) {
        throw usageError(app.get_subcommands().empty() ? missingCommand(app, app.remaining()) : error.what());
    } catch (const CLI::ArgumentMismatch& error) {
        throw usageError(wrongNumberOfValues(error.what()));
    } catch (const CLI::ExtrasError&) {
        throw usageError(unexpected(app, app.remaining(true).front()));
    } catch (const CLI::ParseError& error) {
        throw usageError(blame(error.what(), argc, argv));
    } catch (const UsageError& error) {
        throw usageError(error.text);
    }
    return options;
}

}  // namespace zulstat
