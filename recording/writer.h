// Writes a recording, so that a kill at any moment loses no sample that was written before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "monitor/sample.h"

namespace recording {

// When a file is put aside and another begins. Neither: never.
struct Rotation {
    std::optional<std::int64_t> seconds{};  // at multiples of them since 1970
    std::optional<std::uint64_t> bytes{};   // before the file grows larger
};

// Reads 1d, 12h, 30m, 90s (at least 1 minute) and 100M, 1G, 500K (at least 1K). Nothing for other words.
std::optional<Rotation> parseRotation(std::string_view word);

// The name under which a file is put aside: that of its first sample's time in UTC, before its extensions:
// gw.20261121T000000Z.jsonl.zst.
std::string rotatedName(const std::string& file, double wallTime);

struct WriterOptions {
    std::string file;
    Rotation rotation{};
    std::size_t keep = 0;  // so many files that were put aside stay, the last ones; 0: all
    // Told what goes wrong and right again, a line each; nothing is where all is well.
    std::function<void(const std::string&)> tell = [](const std::string&) {};
};

// Appends to a file, or to several by rotation. A line is one write; where the name ends in .zst it is one or more
// blocks, and a frame ends after 60 lines or 1 MiB. What a former writer left unfinished is put in order first. No two
// writers have one file. Where another program removes or moves the file, the next sample begins it anew. Where the
// file takes no more, samples are lost until it does, which is told, and a gap is written before the first one that it
// takes again. Use it from one thread at a time.
class Writer {
public:
    // Throws std::system_error or std::runtime_error with the file's name.
    explicit Writer(WriterOptions given);
    ~Writer();  // in order, where the file takes it
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Whether there were samples in the file already.
    bool continues() const {
        return firstTime.has_value();
    }

    void add(const monitor::Sample& sample);
    // There is no sample of this target from that moment on.
    void addGap(const monitor::Target& target, double wallTime, double monotonicTime, std::int32_t rc,
                const std::string& reason);

private:
    class Frame;
    struct Gap {
        monitor::Target target;
        double wallTime;
        double monotonicTime;
    };

    void openFile();
    void mend();
    void rotate(double wallTime, std::size_t size);
    bool openNamed();
    void followName();
    void removeOldest(const std::string& newest) const;
    void put(const monitor::Target& target, double wallTime, double monotonicTime, const std::string& line);
    int write(const std::string& lines);
    bool endFrame();
    int writeBytes(std::string_view bytes);

    const WriterOptions options;
    const bool compressed;
    int descriptor = -1;
    std::uint64_t size = 0;           // of the file, up to the last whole line
    std::optional<double> firstTime;  // of the file's first entry
    std::unique_ptr<Frame> frame;     // where it is compressed
    std::vector<Gap> lost;            // targets whose samples could not be written, since when
    bool failing = false;
    bool rotationFailed = false;  // which was told
    bool openingFailed = false;   // so was this
};

}  // namespace recording
