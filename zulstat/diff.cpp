// zulstat diff: what two moments have that differs.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "asking.h"
#include "axis.h"
#include "charset.h"
#include "commands.h"
#include "compare.h"
#include "figures.h"
#include "format.h"
#include "options.h"
#include "output.h"
#include "recorded.h"
#include "report.h"
#include "text.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

using Json = nlohmann::ordered_json;

std::string_view kindName(DifferenceKind kind) {
    constexpr std::array<std::string_view, 3> names = {"appeared", "went", "changed"};
    return names[static_cast<std::size_t>(kind)];
}

const Sample& present(const Comparison& one) {
    return one.later ? *one.later : *one.former;
}

// "+12", "-0.25".
std::string signedNumber(double value) {
    return value == std::floor(value) ? fmt::format("{:+.0f}", value) : fmt::format("{:+.9g}", value);
}

std::string rate(double perSecond) {
    return fmt::format("{}/s", shortFigure(perSecond));
}

// ---- table --------------------------------------------------------------------------------------------------------

std::string heading(const Comparison& one) {
    const auto name = [](const Sample& sample) {
        return fmt::format("{} {}", escapeForTerminal(targetText(sample.target)), localTime(sample.wallTime));
    };
    if (!one.former || !one.later) {
        return fmt::format("{}: {}\n", name(present(one)), one.later ? "not there before" : "not there any more");
    }
    const bool same = targetText(one.former->target) == targetText(one.later->target);
    return fmt::format("{} to {}, {}\n", name(*one.former), same ? localTime(one.later->wallTime) : name(*one.later),
                       duration(one.seconds));
}

void addTable(const Comparison& one, const Options& options, std::string& text) {
    constexpr std::size_t widest = 60;
    constexpr std::array<std::string_view, 3> titles = {"APPEARED", "WENT", "CHANGED"};
    if (options.header) {
        text += heading(one);
    }
    if (one.differences.empty()) {
        text += "nothing differs\n";
    }
    std::vector<std::array<std::string, 5>> rows;
    std::array<std::size_t, 5> widths{};
    for (const Difference& each : one.differences) {
        const bool failed = each.id.empty();
        const auto value = [&](const std::string& shown) {
            return shown.empty() || !failed ? escapeForTerminal(shown) : "failed, rc " + shown;
        };
        rows.push_back({escapeForTerminal(failed ? each.element : each.id), value(each.former), value(each.value),
                        each.difference ? signedNumber(*each.difference) : "",
                        each.perSecond ? rate(*each.perSecond) : ""});
        if (each.kind != DifferenceKind::changed) {
            rows.back()[1] += rows.back()[2];  // the one that is there
            rows.back()[2].clear();
        }
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::min(std::max(widths[column], columnWidth(rows.back()[column])), widest);
        }
    }
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const DifferenceKind kind = one.differences[index].kind;
        if (options.header && (index == 0 || one.differences[index - 1].kind != kind)) {
            text += fmt::format("{}\n", titles[static_cast<std::size_t>(kind)]);
        }
        std::string line;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            const std::string& cell = rows[index][column];
            line += (column > 2 ? padLeft(cell, widths[column]) : padRight(cell, widths[column])) + "  ";
        }
        text += "  " + line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
}

// ---- documents ----------------------------------------------------------------------------------------------------

std::string plain(const std::vector<Comparison>& all) {
    std::string text;
    for (const Comparison& one : all) {
        for (const Difference& each : one.differences) {
            text += fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n", kindName(each.kind), each.id, each.former,
                                each.value, each.difference ? fmt::format("{}", *each.difference) : "",
                                each.perSecond ? fmt::format("{}", *each.perSecond) : "", each.element,
                                targetText(present(one).target));
        }
    }
    return text;
}

std::string csv(const std::vector<Comparison>& all, const Options& options) {
    const std::string_view end = options.lineFeeds ? "\n" : "\r\n";
    std::string text =
        options.header ? fmt::format("change,target,element,id,former,value,difference,per_second{}", end) : "";
    for (const Comparison& one : all) {
        for (const Difference& each : one.differences) {
            text +=
                fmt::format("{},{},{},{},{},{},{},{}{}", kindName(each.kind), csvField(targetText(present(one).target)),
                            csvField(each.element), csvField(each.id), csvField(each.former), csvField(each.value),
                            each.difference ? fmt::format("{}", *each.difference) : "",
                            each.perSecond ? fmt::format("{}", *each.perSecond) : "", end);
        }
    }
    return text;
}

Json side(const std::optional<Sample>& sample) {
    if (!sample) {
        return nullptr;
    }
    return {{"target", {{"host", sample->target.host}, {"port", sample->target.port}}},
            {"time", isoTime(sample->wallTime)},
            {"wall", sample->wallTime}};
}

std::string json(const std::vector<Comparison>& all, bool indented, bool ascii) {
    Json comparisons = Json::array();
    for (const Comparison& one : all) {
        Json differences = Json::array();
        for (const Difference& each : one.differences) {
            Json entry = {{"change", kindName(each.kind)}, {"element", each.element}, {"id", each.id}};
            if (each.kind != DifferenceKind::appeared) {
                entry["former"] = each.former;
            }
            if (each.kind != DifferenceKind::went) {
                entry["value"] = each.value;
            }
            if (each.difference) {
                entry["difference"] = *each.difference;
            }
            if (each.perSecond) {
                entry["per_second"] = *each.perSecond;
            }
            differences.push_back(std::move(entry));
        }
        comparisons.push_back({{"former", side(one.former)},
                               {"later", side(one.later)},
                               {"seconds", one.seconds},
                               {"differences", std::move(differences)}});
    }
    const Json document = {{"schema", "zulstat-diff/1"}, {"comparisons", std::move(comparisons)}};
    return document.dump(indented ? 2 : -1, ' ', ascii, Json::error_handler_t::replace) + "\n";
}

void show(const std::vector<Comparison>& all, const Options& options) {
    const Format format = options.format.value_or(Format::table);
    if (format == Format::plain) {
        print(plain(all));
    } else if (format == Format::csv) {
        print(csv(all, options));
    } else if (format != Format::table) {
        print(json(all, format == Format::json, options.layout().asciiJson));
    } else {
        std::string text;
        for (const Comparison& one : all) {
            text += text.empty() ? "" : "\n";
            addTable(one, options, text);
        }
        print(inUsersCharacters(text));
    }
}

// ---- what is compared ---------------------------------------------------------------------------------------------

// What the Gateways say now to what the recorder asked. Returns the exit code of the worst trouble.
int ask(const Options& options, const std::vector<Sample>& recorded, std::vector<Sample>& samples) {
    const Clock::time_point deadline = Clock::now() + options.timeoutMs();
    std::deque<Asking> all;
    for (const Target& target : options.targets) {
        const auto same = std::find_if(recorded.begin(), recorded.end(), [&](const Sample& sample) {
            return recorded.size() == 1 || targetText(sample.target) == targetText(target);
        });
        all.emplace_back(options, target, deadline, same != recorded.end() ? same->query : options.query());
    }
    if (!stepUntil(all, [](const Asking& one) { return one.over(); })) {
        return exitInterrupted;
    }
    int exitCode = exitOk;
    for (Asking& one : all) {
        if (one.failure) {
            exitCode = std::max(exitCode, reportFailure(*one.failure, {}, options.subject(one.target)));
            continue;
        }
        choose(one.sample, options);
        samples.push_back(std::move(one.sample));
    }
    return exitCode;
}

}  // namespace

int runDiff(const Options& options) {
    std::vector<Sample> former;
    std::vector<Sample> later;
    // The ends of two recordings, or what they had at two times.
    if (options.files.size() == 2) {
        former = readMoment(options.files[0], options.at, options);
        later = readMoment(options.files[1], options.to, options);
    } else if (options.to) {
        std::tie(former, later) = readMoments(options);
    } else {
        former = readMoment(options.from, options.at, options);
        if (const int exitCode = ask(options, former, later); exitCode != exitOk) {
            return exitCode;
        }
    }
    if (former.empty() && later.empty()) {
        complain("there is no sample to compare");
        return exitUsage;
    }
    const auto nothing = [](const Sample& sample) { return sample.items.empty() && failedElements(sample) == 0; };
    if ((!options.globs.empty() || !options.groups.empty()) && std::all_of(former.begin(), former.end(), nothing) &&
        std::all_of(later.begin(), later.end(), nothing)) {
        complain(NOTHING_MATCHES);
        return exitPartly;
    }
    const std::vector<Comparison> all = compareSamples(std::move(former), std::move(later));
    show(all, options);
    const bool equal = std::all_of(all.begin(), all.end(), [](const Comparison& one) {
        return one.differences.empty() && one.former && one.later;
    });
    return equal ? exitOk : exitPartly;
}

}  // namespace zulstat
