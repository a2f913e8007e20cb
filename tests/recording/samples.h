// Samples for recordings, and what a recording has of them.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "recording/reader.h"

namespace recording {

inline constexpr double START = 1795231920;  // 2026-11-21T03:32:00Z
inline const monitor::Target FIRST{"gw1", 7531};
inline const monitor::Target SECOND{"2001:db8::1", 7532};

// Texts that are odd in JSON, on terminals, or in a search for a line's fields.
inline const std::vector<std::string> ODD_TEXTS = {
    "",
    "up",
    "a\nb\t\"c\"\\",
    "\x1b[31mred",
    std::string("\0\x01", 2),
    "gr\xC3\xBC\xC3\x9F",
    "\xF0\x9F\x98\x80",
    ",\"wall\":1,\"elements\":[{\"element\":\"\",\"rc\":-",
    std::string(300, 'v'),
};

inline monitor::Sample makeSample(double wallTime, std::size_t number, const monitor::Target& target = FIRST,
                                  std::size_t items = 4) {
    monitor::Sample sample;
    sample.target = target;
    sample.protocol = "1_0_0_0";
    sample.wallTime = wallTime;
    sample.monotonicTime = wallTime - 1795000000;
    sample.openSeconds = 0.25;
    sample.querySeconds = 0.001;
    sample.freshConnection = number == 0;
    sample.contentSize = 1000 + number;
    sample.addElement("group \"a\"", 0);
    for (std::size_t item = 0; item < items; ++item) {
        const bool odd = item % 7 == 3;
        sample.addItem(sample.keep("group.item" + std::to_string(item)),
                       sample.keep(odd ? ODD_TEXTS[number % ODD_TEXTS.size()] : std::to_string(number * (item + 1))));
    }
    sample.addElement("nosuch", -7);
    return sample;
}

// Everything that a sample is, for comparisons.
inline std::string described(const monitor::Sample& sample) {
    return sampleLine(sample);
}

inline std::string contentOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void setContent(const std::string& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

// What a recording has: samples as they were written, gaps with their reasons.
struct Content {
    std::vector<std::string> samples;
    std::vector<std::string> gaps;
    Counts counts;
    std::string complaint;
};

inline Content readAll(const std::string& file) {
    Reader reader(file);
    Content content;
    while (const std::optional<Entry> entry = reader.next()) {
        if (entry->gap) {
            content.gaps.push_back(entry->reason);
        } else {
            content.samples.push_back(described(entry->sample));
        }
    }
    content.counts = reader.counts();
    content.complaint = reader.complaint();
    return content;
}

}  // namespace recording
