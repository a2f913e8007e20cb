// A day's recording, with restarts, silent minutes and odd texts, cut at random bytes: every whole sample is read back,
// and nothing else.
//
//     killed_recordings FOLDER SAMPLES CUTS [ITEMS [SEED]]
//
// Samples are a second apart, of 150 statistics unless ITEMS says otherwise. Prints sizes and times; exits with 1 where
// something was lost or invented.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "recording/writer.h"
#include "recording/zst.h"
#include "samples.h"

namespace {

using namespace recording;

constexpr double MIDNIGHT = 1795219200;  // 2026-11-21T00:00:00Z
std::size_t items = 150;                 // of a sample

double seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The day's event at a sample.
bool isRestart(std::size_t number) {
    return number % 7201 == 7200;
}
bool isSilent(std::size_t number) {
    return number % 3607 >= 3540 && number % 3607 < 3600;
}

monitor::Sample sampleOf(std::size_t number) {
    return makeSample(MIDNIGHT + static_cast<double>(number) + 0.25, number, FIRST, items);
}

// Which samples are written, and the file's size behind each. Restarts are of the writer; in silent minutes the Gateway
// is away.
struct Day {
    std::vector<std::size_t> numbers;
    std::vector<std::uint64_t> ends;
};

Day write(const std::string& file, std::size_t samples) {
    Day day;
    auto writer = std::make_unique<Writer>(WriterOptions{.file = file});
    for (std::size_t number = 0; number < samples; ++number) {
        const double time = MIDNIGHT + static_cast<double>(number);
        if (isRestart(number)) {
            writer.reset();
            writer = std::make_unique<Writer>(WriterOptions{.file = file});
            writer->addGap(FIRST, time, time, -102, "the recording was not running");
        }
        if (isSilent(number)) {
            if (!isSilent(number - 1)) {
                writer->addGap(FIRST, time, time, -102, "no answer");
            }
            continue;
        }
        writer->add(sampleOf(number));
        day.numbers.push_back(number);
        day.ends.push_back(std::filesystem::file_size(file));
    }
    return day;
}

// Of the samples before the cut each is there as it was written, and no other.
bool isReadBack(const std::string& file, const Day& day, std::uint64_t size) {
    std::size_t expected =
        static_cast<std::size_t>(std::upper_bound(day.ends.begin(), day.ends.end(), size) - day.ends.begin());
    // A line is whole without its end.
    const bool lacksEnd = !namedCompressed(file) && expected < day.ends.size() && day.ends[expected] == size + 1;
    expected += lacksEnd ? 1 : 0;
    Reader reader(file);
    std::size_t found = 0;
    while (const std::optional<Entry> entry = reader.next()) {
        if (entry->gap) {
            continue;
        }
        // All of the last ones; of those before them what differs in each.
        const bool same =
            found < expected && entry->sample.contentSize == 1000 + day.numbers[found] &&
            entry->sample.items.size() == items &&
            (found + 70 < expected || described(entry->sample) == described(sampleOf(day.numbers[found])));
        if (!same) {
            std::printf("%s cut at %llu: sample %zu is not as it was written\n", file.c_str(),
                        static_cast<unsigned long long>(size), found);
            return false;
        }
        ++found;
    }
    if (found != expected || reader.counts().torn > 1 || !reader.complaint().empty()) {
        std::printf("%s cut at %llu: %zu samples of %zu, %llu torn %s\n", file.c_str(),
                    static_cast<unsigned long long>(size), found, expected,
                    static_cast<unsigned long long>(reader.counts().torn), reader.complaint().c_str());
        return false;
    }
    return true;
}

bool run(const std::string& file, std::size_t samples, std::size_t cuts, std::mt19937_64& random) {
    std::filesystem::remove(file);
    double begin = seconds();
    const Day day = write(file, samples);
    const double written = seconds() - begin;
    const std::uint64_t size = std::filesystem::file_size(file);
    begin = seconds();
    Reader reader(file);
    while (reader.next()) {
    }
    const double read = seconds() - begin;
    begin = seconds();
    Reader other(file);
    other.seek(MIDNIGHT + static_cast<double>(samples) / 2);
    const double sought = seconds() - begin;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto count = static_cast<double>(day.numbers.size());
    std::printf(
        "%s: %zu samples and %llu gaps, %.1f MB, %.0f bytes a sample; written in %.1f s, read in %.1f s "
        "(%.0f samples/s, %.0f MB/s of the file), a moment found in %.2f s; %ld MB of memory at most\n",
        std::filesystem::path(file).filename().c_str(), day.numbers.size(),
        static_cast<unsigned long long>(reader.counts().gaps), static_cast<double>(size) / 1e6,
        static_cast<double>(size) / count, written, read, count / read, static_cast<double>(size) / 1e6 / read, sought,
        usage.ru_maxrss / 1024);
    std::fflush(stdout);
    // From the end on, so that one file does for all.
    std::vector<std::uint64_t> places(cuts);
    for (std::uint64_t& place : places) {
        place = std::uniform_int_distribution<std::uint64_t>(0, size)(random);
    }
    std::sort(places.rbegin(), places.rend());
    begin = seconds();
    bool good = reader.counts().samples == day.numbers.size();
    for (const std::uint64_t place : places) {
        std::filesystem::resize_file(file, place);
        good = isReadBack(file, day, place) && good;
    }
    std::printf("%s: cut at %zu random bytes, %s (%.0f s)\n", std::filesystem::path(file).filename().c_str(), cuts,
                good ? "every whole sample was read back, and nothing else" : "which FAILED", seconds() - begin);
    std::fflush(stdout);
    std::filesystem::remove(file);
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s FOLDER SAMPLES CUTS [ITEMS [SEED]]\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    const std::size_t samples = std::strtoul(argv[2], nullptr, 10);
    const std::size_t cuts = std::strtoul(argv[3], nullptr, 10);
    items = argc > 4 ? std::strtoul(argv[4], nullptr, 10) : items;
    const unsigned long seed = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : std::random_device()();
    std::printf("seed %lu\n", seed);
    std::mt19937_64 random(seed);
    bool good = run(folder + "/day.jsonl", samples, cuts, random);
    if (CAN_COMPRESS) {
        good = run(folder + "/day.jsonl.zst", samples, cuts, random) && good;
    }
    return good ? 0 : 1;
}
