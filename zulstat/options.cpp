#include "options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "interrupt.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr double longestTime = 86400;
constexpr double shortestInterval = 0.05;

// CLI11 takes "-122" for options. For `explain` such words are numbers; they travel as "~122".
constexpr char minusMark = '~';

// What the command line has before it becomes Options.
struct Words {
    std::string format;
    bool json = false;
    bool noHeader = false;
    bool noColor = false;
    bool noReconnect = false;
    std::vector<std::string> ids;
    std::vector<std::string> groups;
    std::string warning;
    std::string critical;
    bool intervalGiven = false;
};

std::optional<double> parseSeconds(std::string_view text) {
    double value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && rest == text.data() + text.size();
    return whole && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

CLI::Validator secondsFrom(double low) {
    return CLI::Validator(
        [low](const std::string& text) {
            const std::optional<double> value = parseSeconds(text);
            return value && *value >= low && *value <= longestTime
                       ? std::string()
                       : fmt::format("'{}' is not a number of seconds from {} to {}", text, low, longestTime);
        },
        "SECONDS");
}

// `type` is what the help shows behind the option's name.
template <typename Value>
CLI::Option* addOption(CLI::App& app, const std::string& name, Value& value, const std::string& help,
                       const std::string& type) {
    CLI::Option* option = app.add_option(name, value, help)->option_text(type);
    if constexpr (!std::is_same_v<Value, std::vector<std::string>>) {
        option->take_last();
    }
    return option;
}

void addGlobalOptions(CLI::App& app, Options& options, Words& words) {
    addOption(app, "-H,--host", options.target.host, "the Gateway's host (ZULSTAT_HOST, 127.0.0.1)", "HOST")
        ->envname("ZULSTAT_HOST");
    addOption(app, "-p,--port", options.target.port, "its port (ZULSTAT_PORT, 7531)", "PORT")
        ->check(CLI::Range(1, 65535))
        ->envname("ZULSTAT_PORT");
    addOption(app, "-T,--timeout", options.timeout, "longest wait for an answer (ZULSTAT_TIMEOUT, 5)", "SECONDS")
        ->check(secondsFrom(0.001))
        ->envname("ZULSTAT_TIMEOUT");
    addOption(app, "-o,--output", words.format, "table, plain, json, jsonl, csv or openmetrics", "FORMAT")
        ->check([](const std::string& name) {
            return formatByName(name) ? std::string() : "there is no format '" + name + "'";
        });
    app.add_flag("-j", words.json, "the same as -o json; jsonl for watch");
    const auto addGlobs = [&](const std::string& name, bool include, const std::string& help) {
        app.add_option_function<std::string>(
               name,
               [&options, include](const std::string& glob) {
                   options.globs.push_back({include, glob});
               },
               help)
            ->option_text("GLOB")
            ->trigger_on_parse()
            ->take_last();
    };
    addGlobs("-I,--include", true, "show identifiers that match; the first match of -I and -X wins");
    addGlobs("-X,--exclude", false, "do not show identifiers that match");
    app.add_flag("--no-header", words.noHeader, "no header row");
    app.add_flag("--lf", options.lineFeeds, "lines of csv end in LF alone");
    app.add_flag("--no-color", words.noColor, "no colours (also NO_COLOR, TERM=dumb)");
    app.add_flag("-q,--quiet", options.quiet, "no notes and hints on standard error");
    app.add_flag("-v,--verbose", options.verbose, "times and sizes on standard error");
    addOption(app, "--trace", options.traceLevel, "the library's trace, 0 to 5, on standard error", "LEVEL")
        ->check(CLI::Range(0, 5));
    addOption(app, "--trace-file", options.traceFile, "append the trace to this file", "FILE");
}

CLI::Option* addGroups(CLI::App& command, Words& words) {
    return addOption(command, "-g,--group", words.groups, "resource groups; GROUP:GROUP is the same as two",
                     "GROUP...");
}

void addIdsAndGroups(CLI::App& command, Words& words, const char* help) {
    addGroups(command, words);
    command.add_option("ID", words.ids, help)->option_text("...");
}

void addSeries(CLI::App& command, Options& options, Words& words) {
    command
        .add_option_function<double>(
            "-i,--interval",
            [&](const double& value) {
                options.interval = value;
                words.intervalGiven = true;
            },
            "time between samples (1)")
        ->option_text("SECONDS")
        ->check(secondsFrom(shortestInterval))
        ->take_last();
    addOption(command, "-r,--rate", options.derived.rates, "show values that match per second", "GLOB")
        ->allow_extra_args(false);
    addOption(command, "-d,--delta", options.derived.deltas, "show values that match as differences", "GLOB")
        ->allow_extra_args(false);
    command.add_flag("--no-reconnect", words.noReconnect, "end when the connection is lost");
}

void addCount(CLI::App& command, Options& options, const std::string& help) {
    addOption(command, "-c,--count", options.count, help, "N")->check([](const std::string& text) {
        return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos &&
                       text.find_first_not_of('0') != std::string::npos
                   ? std::string()
                   : "'" + text + "' is not a count from 1 to 999999999";
    });
}

CLI::Validator rangeValidator() {
    return CLI::Validator(
        [](const std::string& text) {
            return parseRange(text) ? std::string()
                                    : "'" + text + "' is not a range such as 10, 10:, ~:10, 10:20 or @10:20";
        },
        "RANGE");
}

CLI::App* addCommand(CLI::App& app, Options& options, const std::string& name, Command command,
                     const std::string& help) {
    CLI::App* added = app.add_subcommand(name, help);
    added->fallthrough();
    added->group("Commands");
    added->parse_complete_callback([&options, command] { options.command = command; });
    added->footer("Options of all commands: zulstat --help");
    return added;
}

void addCommands(CLI::App& app, Options& options, Words& words) {
    CLI::App* stats = addCommand(app, options, "stats", Command::stats, "Show values: all, by identifier or by group");
    addIdsAndGroups(*stats, words, "identifiers; ID:ID is the same as two");
    CLI::App* ids = addCommand(app, options, "ids", Command::ids, "List the identifiers of statistics");
    addGroups(*ids, words);
    CLI::App* groups = addCommand(app, options, "groups", Command::groups, "List the resource groups");
    groups->add_flag("-l,--long", options.counts, "with the number of statistics of each");

    CLI::App* watch = addCommand(app, options, "watch", Command::watch, "Show values again and again");
    addIdsAndGroups(*watch, words, "[INTERVAL [COUNT]] [ID]...");
    addSeries(*watch, options, words);
    addCount(*watch, options, "end after N samples");
    addOption(*watch, "--header-every", options.headerEvery, "repeat the header after N rows, 0 for never (20)", "N")
        ->check(CLI::Range(0, 1000000));
    CLI::App* top = addCommand(app, options, "top", Command::top, "Full screen: sort, filter, history");
    addIdsAndGroups(*top, words, "[INTERVAL] [ID]...");
    addSeries(*top, options, words);

    CLI::App* ping = addCommand(app, options, "ping", Command::ping, "Connect, and measure queries for everything");
    addCount(*ping, options, "number of queries (4)");
    ping->add_option("-i,--interval", options.interval, "time between queries (1)")
        ->option_text("SECONDS")
        ->check(secondsFrom(0))
        ->take_last();
    CLI::App* explain = addCommand(app, options, "explain", Command::explain, "What a return code means");
    explain->add_option("CODE", options.codes, "numbers or names; without one all")->option_text("...");

    CLI::App* check = addCommand(app, options, "check", Command::check, "Check a value, as a monitoring plugin");
    check->add_option("ID", words.ids, "the statistic")->expected(1)->option_text("(one)");
    addOption(*check, "-w,--warning", words.warning, "warn when the value is outside", "RANGE")
        ->check(rangeValidator());
    addOption(*check, "-c,--critical", words.critical, "critical when the value is outside", "RANGE")
        ->check(rangeValidator());
    addCommand(app, options, "demo", Command::demo, "Try it all on a simulated Gateway");
}

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
    if (const std::size_t size = join(ids, ":").size(); size > queryStringLimit) {
        throw UsageError{fmt::format("the {}s take {} characters together, {} at most", what, size, queryStringLimit)};
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
    if (options.interval < shortestInterval || options.interval > longestTime) {
        throw UsageError{
            fmt::format("the interval {} is not from {} to {} seconds", word, shortestInterval, longestTime)};
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
    if (!options.traceFile.empty() && options.traceLevel == 0) {
        throw UsageError{"--trace-file needs --trace with a level from 1 to 5"};
    }
    if (options.target.host.empty()) {
        throw UsageError{"the host name is empty"};
    }
    for (std::string& code : options.codes) {
        std::replace(code.begin(), code.end(), minusMark, '-');
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
                word[0] = minusMark;
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
    return {header, isatty(STDOUT_FILENO) == 1, lineFeeds};
}

CollectorOptions Options::collector() const {
    return {target, findWorker(), traceLevel, traceFile, interruptDescriptor()};
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

FollowerOptions Options::follower() const {
    return {.collector = collector(),
            .query = query(),
            .interval = intervalMs(),
            .timeout = timeoutMs(),
            .count = count,
            .reconnect = reconnect};
}

Subject Options::subject() const {
    return {.target = target,
            .timeout = timeout,
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
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "print this text");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Positionals", "Arguments");
    app.set_version_flag("-V,--version", std::string("zulstat ") + ZULSTAT_VERSION, "print the version");
    app.footer(
        "Exit status: 0 ok, 1 some query elements failed or nothing matched, 2 bad usage,\n"
        "3 cannot connect, 4 no answer in time, 5 connection lost or request refused,\n"
        "6 internal error, 130 interrupted. check: 0 ok, 1 warning, 2 critical, 3 unknown.");
    addGlobalOptions(app, options, words);
    addCommands(app, options, words);
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
