#include "options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "command_line.h"
#include "interrupt.h"
#include "map_file.h"
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

void finish(Options& options, Words& words) {
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
                         command == Command::watch || command == Command::demo;
    if (options.format && !samples) {
        throw UsageError{"-o and -j are for stats, ids, groups, watch and demo"};
    }
    if (command == Command::watch || command == Command::top) {
        const std::vector<std::string> numbers = takeNumbers(words, command == Command::watch ? 2 : 1);
        if (!numbers.empty()) {
            setInterval(numbers[0], options, words.intervalGiven);
        }
        if (numbers.size() > 1) {
            setCount(numbers[1], options);
        }
    }
    if (!words.ids.empty() && !words.groups.empty()) {
        throw UsageError{"identifiers and -g exclude each other"};
    }
    options.ids = command == Command::check ? words.ids : splitIds(words.ids, "identifier");
    options.groups = splitIds(words.groups, "group");
    if (!words.map.empty()) {
        if (options.format != Format::openmetrics && command != Command::top) {
            throw UsageError{"--map goes with -o openmetrics, and with top"};
        }
        options.mapper = readMapper(words.map, words.module.empty() ? "default" : words.module);
    } else if (!words.module.empty()) {
        throw UsageError{"--module goes with --map"};
    }
    if (!options.traceFile.empty() && options.traceLevel == 0) {
        throw UsageError{"--trace-file needs --trace with a level from 1 to 5"};
    }
    for (const std::string& host : words.hosts) {
        addTargets(host, words.port, options.targets);
    }
    refuseTwins(options.targets);
    options.target = options.targets.front();
    if (options.several() && (command == Command::map || command == Command::check)) {
        throw UsageError{fmt::format("{} Gateways are named, and this command takes one", options.targets.size())};
    }
    for (std::string& code : options.codes) {
        std::replace(code.begin(), code.end(), MINUS_MARK, '-');
    }
    options.warning = words.warning.empty() ? std::nullopt : parseRange(words.warning);
    options.critical = words.critical.empty() ? std::nullopt : parseRange(words.critical);
    if (command == Command::check &&
        (options.ids.empty() || options.ids[0].empty() || options.ids[0].find(':') != std::string::npos)) {
        throw UsageError{"check takes one identifier"};
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

std::string missingCommand(const std::vector<std::string>& words) {
    return words.empty() ? "a command is missing" : fmt::format("there is no command or option '{}'", words.front());
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
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
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
    return {header, isatty(STDOUT_FILENO) == 1, lineFeeds, several(), mapper.get()};
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
            .series = command == Command::watch || command == Command::top,
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
    try {
        app.parse(commandLine(argc, argv));
        finish(options, words);
    } catch (const CLI::CallForHelp&) {
        // 'help nosuch' too
        if (const auto rest = app.remaining(); !rest.empty() && !rest.front().starts_with('-')) {
            throw usageError(missingCommand(rest));
        }
        throw TextWanted{app.help()};
    } catch (const CLI::CallForVersion& version) {
        throw TextWanted{std::string(version.what()) + "\n"};
    } catch (const CLI::RequiredError& error) {
        throw usageError(app.get_subcommands().empty() ? missingCommand(app.remaining()) : error.what());
    } catch (const CLI::ArgumentMismatch& error) {
        throw usageError(wrongNumberOfValues(error.what()));
    } catch (const CLI::ExtrasError&) {
        throw usageError(fmt::format("'{}' is not expected here", app.remaining(true).front()));
    } catch (const CLI::ParseError& error) {
        throw usageError(blame(error.what(), argc, argv));
    } catch (const UsageError& error) {
        throw usageError(error.text);
    }
    return options;
}

}  // namespace zulstat
