#include "recorded.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "axis.h"
#include "interrupt.h"
#include "output.h"
#include "playback.h"
#include "recording/reader.h"
#include "recording/time.h"
#include "report.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr double NEVER = std::numeric_limits<double>::infinity();

// Calls what reads a file.
template <typename Read>
auto reading(Read read) {
    try {
        return read();
    } catch (const std::runtime_error& error) {
        throw UsageError{error.what()};
    }
}

// The end of a file is looked for only where a word counts from it.
double moment(recording::Reader& reader, const recording::TimeWord& time) {
    if (time.kind == recording::TimeWord::Kind::moment) {
        return time.seconds;
    }
    return recording::resolveTime(time, reader.span().last);
}

// The time of a file's first entry. What is no file, as a pipe, can be read but once: its time is not known.
double firstTime(const std::string& file) {
    struct stat there {};
    if (stat(file.c_str(), &there) != 0 || !S_ISREG(there.st_mode)) {
        return NEVER;
    }
    const std::optional<recording::Entry> entry = recording::Reader(file).next();
    return entry ? entry->sample.wallTime : NEVER;
}

PageFile readFile(const std::string& file, const Options& options, Timelines& lines) {
    recording::Reader reader(file);
    const double from = options.at ? moment(reader, *options.at) : -NEVER;
    const double to = options.to ? moment(reader, *options.to) : NEVER;
    if (options.at || options.to) {
        reader.seek(from);
        reader.seek(from - reader.disorder());
    }
    PageFile result{escapeForTerminal(file), 0, 0};
    while (std::optional<recording::Entry> entry = reader.next()) {
        if (interrupted()) {
            throw Interrupted();
        }
        Sample& sample = entry->sample;
        if (sample.wallTime > to + reader.disorder()) {
            break;
        }
        if (sample.wallTime < from || sample.wallTime > to) {
            continue;
        }
        if (entry->gap) {
            lines.gap(sample.target, sample.wallTime, entry->reason);
        } else if (sample.hasValues) {
            ++result.samples;
            choose(sample, options);
            lines.take(std::move(sample));
        }
    }
    result.torn = reader.counts().torn;
    notePassedOver(options, file, result.torn);
    return result;
}

// What each Gateway had then, chosen from.
std::vector<Sample> momentOf(recording::Reader& reader, const std::string& file, double wallTime,
                             const Options& options) {
    std::vector<Sample> samples = reader.moment(wallTime);
    if (samples.empty()) {
        const recording::Span span = reader.span();
        if (!span.targets.empty() && wallTime < span.first) {
            throw UsageError{fmt::format("{} begins at {} only", file, isoTime(span.first))};
        }
    }
    for (Sample& sample : samples) {
        choose(sample, options);
    }
    return samples;
}

}  // namespace

void choose(Sample& sample, const Options& options) {
    if (std::any_of(options.ids.begin(), options.ids.end(), isGlob)) {
        keepItems(sample, [&](const Item& item) {
            return std::any_of(options.ids.begin(), options.ids.end(),
                               [&](const std::string& word) { return meansId(word, item.id); });
        });
    } else {
        keepAsked(sample, options);
    }
    filter(sample, options.globs);
}

std::vector<PageFile> readTimelines(const std::vector<std::string>& files, const Options& options, Timelines& lines) {
    std::vector<std::pair<double, std::string>> inOrder;
    for (const std::string& file : files) {
        inOrder.emplace_back(files.size() > 1 ? reading([&] { return firstTime(file); }) : NEVER, file);
    }
    std::stable_sort(inOrder.begin(), inOrder.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    std::vector<PageFile> read;
    for (const auto& [time, file] : inOrder) {
        lines.nextRecording();
        read.push_back(reading([&, &name = file] { return readFile(name, options, lines); }));
    }
    return read;
}

std::vector<Sample> readMoment(const std::string& file, const std::optional<recording::TimeWord>& time,
                               const Options& options) {
    return reading([&] {
        recording::Reader reader(file);
        return momentOf(reader, file, time ? moment(reader, *time) : NEVER, options);
    });
}

std::pair<std::vector<Sample>, std::vector<Sample>> readMoments(const Options& options) {
    return reading([&] {
        recording::Reader reader(options.from);
        const double former = options.at ? moment(reader, *options.at) : NEVER;
        const double later = moment(reader, *options.to);
        if (options.at && later < former) {
            throw UsageError{fmt::format("--to {} lies before --at {}", isoTime(later), isoTime(former))};
        }
        std::vector<Sample> samples = momentOf(reader, options.from, former, options);
        return std::pair(std::move(samples), momentOf(reader, options.from, later, options));
    });
}

void complainOfNothing(const Timelines& lines) {
    const auto& gateways = lines.gateways();
    if (gateways.empty()) {
        complain("there is no sample in that time");
    } else if (std::any_of(gateways.begin(), gateways.end(), [](const auto& one) { return one.samples > 0; })) {
        complain(NOTHING_MATCHES);
    } else {
        for (const GatewayTimeline& one : gateways) {
            const Gap& gap = one.gaps.front();  // without a sample there is one
            complain(fmt::format("{}: no sample since {}{}{}", one.name, localTime(gap.from),
                                 gap.reason.empty() ? "" : ": ", gap.reason));
        }
    }
}

void noteLeft(const Timelines& lines, const Options& options) {
    for (const std::string& text : leftTexts(lines)) {
        note(options.subject(), text);
    }
}

}  // namespace zulstat
