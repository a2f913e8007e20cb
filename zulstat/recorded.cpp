#include "recorded.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "interrupt.h"
#include "output.h"
#include "playback.h"
#include "recording/reader.h"
#include "recording/time.h"
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
    std::vector<PageFile> read;
    for (const std::string& file : files) {
        lines.nextRecording();
        read.push_back(reading([&] { return readFile(file, options, lines); }));
    }
    return read;
}

std::vector<Sample> readMoment(const std::string& file, const std::optional<recording::TimeWord>& time,
                               const Options& options) {
    std::vector<Sample> samples = reading([&] {
        recording::Reader reader(file);
        return reader.moment(time ? moment(reader, *time) : NEVER);
    });
    for (Sample& sample : samples) {
        choose(sample, options);
    }
    return samples;
}

}  // namespace zulstat
