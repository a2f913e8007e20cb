#include "command_line.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <cmath>
#include <string_view>

#include "format.h"
#include "range.h"
#include "recording/time.h"
#include "recording/writer.h"

namespace zulstat {

using namespace monitor;

namespace {

CLI::Validator secondsFrom(double low) {
    return CLI::Validator(
        [low](const std::string& text) {
            const std::optional<double> value = parseSeconds(text);
            return value && *value >= low && *value <= LONGEST_TIME
                       ? std::string()
                       : fmt::format("'{}' is not a number of seconds from {} to {}", text, low, LONGEST_TIME);
        },
        "SECONDS");
}

// The names of the formats, as a sentence has them.
std::string formatList() {
    const std::vector<std::string_view> names = formatNames();
    return fmt::format("{} or {}", fmt::join(names.begin(), names.end() - 1, ", "), names.back());
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
    addOption(app, "-H,--host", words.hosts, "a Gateway's host, or HOST:PORT (ZULSTAT_HOST, 127.0.0.1)", HOST_TYPE)
        ->allow_extra_args(false)
        ->default_str(monitor::Target{}.host)
        ->envname("ZULSTAT_HOST");
    addOption(app, "-p,--port", words.port, "the port of hosts without one (ZULSTAT_PORT, 7531)", "PORT")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str()
        ->envname("ZULSTAT_PORT");
    addOption(app, "-T,--timeout", options.timeout, "longest wait for an answer (ZULSTAT_TIMEOUT, 5)", "SECONDS")
        ->check(secondsFrom(0.001))
        ->capture_default_str()
        ->envname("ZULSTAT_TIMEOUT");
    addOption(app, "-o,--output", words.format, formatList(), FORMAT_TYPE)->check([](const std::string& name) {
        return formatByName(name) ? std::string() : "there is no format '" + name + "'";
    });
    app.add_flag("-j", words.json, "the same as -o json; jsonl for watch");
    const auto addGlobs = [&](const std::string& name, bool include, const std::string& help) {
        app.add_option_function<std::string>(
               name,
               [&options, include](const std::string& glob) {
                   options.globs.rules.push_back({include, glob});
               },
               help)
            ->option_text(GLOB_TYPE)
            ->trigger_on_parse()
            ->take_last();
    };
    addGlobs("-I,--include", true, "show identifiers that match; the first match of -I and -X wins");
    addGlobs("-X,--exclude", false, "do not show identifiers that match");
    addOption(app, "--map", words.map, "rules for openmetrics, see zulstat-map(5)", FILE_TYPE);
    addOption(app, "--module", words.module, "the module of --map (default)", "NAME");
    app.add_flag("--no-header", words.noHeader, "no header row");
    app.add_flag("--lf", options.lineFeeds, "lines of csv end in LF alone");
    app.add_flag("--no-color", words.noColor, "no colours (also NO_COLOR, TERM=dumb)");
    app.add_flag("-q,--quiet", options.quiet, "no notes and hints on standard error");
    app.add_flag("-v,--verbose", options.verbose, "times and sizes on standard error");
    addOption(app, "--trace", options.traceLevel, "the library's trace, 0 to 5, on standard error", LEVEL_TYPE)
        ->check(CLI::Range(0, 5));
    addOption(app, "--trace-file", options.traceFile, "append the trace to this file", FILE_TYPE);
}

CLI::Option* addGroups(CLI::App& command, Words& words) {
    return addOption(command, "-g,--group", words.groups, "resource groups; GROUP:GROUP is the same as two",
                     GROUPS_TYPE);
}

void addIdsAndGroups(CLI::App& command, Words& words, const char* help) {
    addGroups(command, words);
    command.add_option("ID", words.ids, help)->option_text(SEVERAL_ARGUMENTS);
}

void addInterval(CLI::App& command, Options& options, Words& words) {
    command
        .add_option_function<double>(
            "-i,--interval",
            [&](const double& value) {
                options.interval = value;
                words.intervalGiven = true;
            },
            "time between samples (1)")
        ->option_text("SECONDS")
        ->check(secondsFrom(SHORTEST_INTERVAL))
        ->take_last();
}

void addSeries(CLI::App& command, Options& options, Words& words) {
    addInterval(command, options, words);
    addOption(command, "-r,--rate", options.derived.rates, "show values that match per second", GLOB_TYPE)
        ->allow_extra_args(false);
    addOption(command, "-d,--delta", options.derived.deltas, "show values that match as differences", GLOB_TYPE)
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

CLI::Option* addTime(CLI::App& command, const std::string& name, std::string& word, const std::string& help) {
    return addOption(command, name, word, help, TIME_TYPE)->check([](const std::string& text) {
        try {
            recording::parseTime(text);
        } catch (const recording::BadTime& error) {
            return std::string(error.what());
        }
        return std::string();
    });
}

CLI::Option* addFrom(CLI::App& command, Options& options) {
    return addOption(command, "--from", options.from, "a recording in place of Gateways", FILE_TYPE);
}

void addFromAt(CLI::App& command, Options& options, Words& words) {
    addFrom(command, options);
    addTime(command, "--at", words.at, "the recording's moment: the last sample then (its end)");
}

void addPlayback(CLI::App& command, Options& options, Words& words, const std::string& speed) {
    addFrom(command, options);
    addTime(command, "--at", words.at, "where in the recording to begin (its begin)");
    addTime(command, "--to", words.to, "where in the recording to end (its end)");
    addOption(command, "--speed", options.speed, speed, "N")->check([](const std::string& text) {
        const std::optional<double> value = parseSeconds(text);
        return value && *value >= 0.01 && *value <= 100000 ? std::string()
                                                           : "'" + text + "' is not a number from 0.01 to 100000";
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
    addFromAt(*stats, options, words);
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
    watch->add_flag("--wide", options.wide, "a line for each sample, a column for each identifier");
    addPlayback(*watch, options, words, "the recording's seconds in each second; without it no waits");
    CLI::App* record = addCommand(app, options, "record", Command::record, "Write samples to a file, for --from");
    record->add_option("FILE", options.file, "the recording; compressed where it ends in .zst")
        ->required()
        ->option_text("(one)");
    addIdsAndGroups(*record, words, "identifiers; ID:ID is the same as two");
    addInterval(*record, options, words);
    addCount(*record, options, "end after N samples");
    addOption(*record, "--rotate", words.rotation, "another file after a time or a size: 1d, 12h, 100M", "WHEN")
        ->check([](const std::string& text) {
            return recording::parseRotation(text)
                       ? std::string()
                       : "'" + text + "' is not a time such as 1d, 12h or 30m, or a size such as 100M or 1G";
        });
    addOption(*record, "--keep", options.keep, "of the files put aside keep the last N (all)", "N")
        ->check(CLI::Range(1, 1000000));
    CLI::App* top = addCommand(app, options, "top", Command::top, "Full screen: sort, filter, history");
    addIdsAndGroups(*top, words, "[INTERVAL] [ID]...");
    addSeries(*top, options, words);
    addPlayback(*top, options, words, "the recording's seconds in each second (1)");
    top->add_flag("--raw", options.raw, "numbers as the Gateway sends them");

    CLI::App* plot = addCommand(app, options, "plot", Command::plot, "Draw values over time");
    addIdsAndGroups(*plot, words, "identifiers, and globs over all of them");
    addInterval(*plot, options, words);
    addCount(*plot, options, "end after N samples (60, on a terminal without end)");
    addOption(*plot, "-r,--rate", options.derived.rates, "draw values that match per second", GLOB_TYPE)
        ->allow_extra_args(false);
    addFrom(*plot, options);
    addTime(*plot, "--at", words.at, "where in the recording to begin (its begin)");
    addTime(*plot, "--to", words.to, "where in the recording to end (its end)");

    CLI::App* diff = addCommand(app, options, "diff", Command::diff, "What two moments have that differs");
    diff->add_option("FILE", options.files, "two recordings, whose ends are compared")->option_text(SEVERAL_ARGUMENTS);
    addGroups(*diff, words);
    addFrom(*diff, options);
    addTime(*diff, "--at", words.at, "the former moment (the end of the recording)");
    addTime(*diff, "--to", words.to, "the later moment of the same recording (now, live)");
    CLI::App* report = addCommand(app, options, "report", Command::report, "A page of plots from recordings");
    report->add_option("FILE", options.files, "recordings")->required()->option_text(SEVERAL_ARGUMENTS);
    addGroups(*report, words);
    addOption(*report, "-o,--output", options.outputFile, "the page (standard output)", FILE_TYPE);
    addTime(*report, "--at", words.at, "where in the recordings to begin (their begin)");
    addTime(*report, "--to", words.to, "where in the recordings to end (their end)");

    CLI::App* ping = addCommand(app, options, "ping", Command::ping, "Connect, and measure queries for everything");
    addCount(*ping, options, "number of queries (4)");
    ping->add_option("-i,--interval", options.interval, "time between queries (1)")
        ->option_text("SECONDS")
        ->check(secondsFrom(0))
        ->take_last();
    CLI::App* explain = addCommand(app, options, "explain", Command::explain, "What a return code means");
    explain->add_option("CODE", options.codes, "numbers or names; without one all")->option_text(SEVERAL_ARGUMENTS);

    CLI::App* check = addCommand(app, options, "check", Command::check, "Check values, as a monitoring plugin");
    check->add_option("ID", words.ids, "identifiers, and globs over all of them")->option_text(SEVERAL_ARGUMENTS);
    addOption(*check, "-w,--warning", words.warning, "warn when the value is outside", "RANGE")
        ->check(rangeValidator());
    addOption(*check, "-c,--critical", words.critical, "critical when the value is outside", "RANGE")
        ->check(rangeValidator());
    addOption(*check, "--expect", words.expected, "critical when the value is none of these", "STATE[,STATE]...");
    check->add_flag("--rate", words.rate, "look at the change per second between two samples");
    check->add_flag("--delta", words.delta, "look at the difference between two samples");
    check->add_option("-i,--interval", options.interval, "time between the two (1)")
        ->option_text("SECONDS")
        ->check(secondsFrom(SHORTEST_INTERVAL))
        ->take_last();
    addFromAt(*check, options, words);
    CLI::App* map = addCommand(app, options, "map", Command::map, "Propose a file for --map from live samples");
    map->add_option("--observe", options.observe, "how long to take samples (10)")
        ->option_text("SECONDS")
        ->check(secondsFrom(1))
        ->take_last();
    addCommand(app, options, "config", Command::config, "Show what is in force, and where it comes from");
    CLI::App* complete = addCommand(app, options, "complete", Command::complete, "Print words for completions");
    complete->add_option("KIND", options.completed, "ids, groups, targets or selections")
        ->required()
        ->option_text("(one)")
        ->check(CLI::IsMember({"ids", "groups", "targets", "selections"}));
    CLI::App* demo = addCommand(app, options, "demo", Command::demo, "Try it all on a simulated Gateway");
    demo->add_flag("--web", options.web, "under zulstat-exporter, and print its address");
}

}  // namespace

std::optional<double> parseSeconds(std::string_view text) {
    double value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && rest == text.data() + text.size();
    return whole && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

void declareCommandLine(CLI::App& app, Options& options, Words& words) {
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "print this text");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Positionals", "Arguments");
    app.set_version_flag("-V,--version", std::string("zulstat ") + ZULSTAT_VERSION, "print the version");
    app.footer(
        "Exit status: 0 ok, 1 some query elements failed, nothing matched or diff found something, 2 bad usage,\n"
        "3 cannot connect, 4 no answer in time, 5 connection lost or request refused,\n"
        "6 internal error, 130 interrupted. check: 0 ok, 1 warning, 2 critical, 3 unknown.");
    addGlobalOptions(app, options, words);
    addCommands(app, options, words);
}

}  // namespace zulstat
