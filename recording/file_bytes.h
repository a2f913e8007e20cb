// The bytes of a recording's file, uncompressed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace recording {

// Reads a file from its begin, and again from places at which it may begin. A compressed one is told by its first bytes
// or its name. Where it is damaged, it goes on with the next frame that can be read.
class FileBytes {
public:
    // Throws std::system_error, or std::runtime_error, with the file's name; so do the others.
    explicit FileBytes(const std::string& file);
    ~FileBytes();
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;

    enum class Got : std::uint8_t {
        bytes,    // some more
        begin,    // some more, which begin at a place for restart()
        damaged,  // what came last goes on no further, and what comes next is another part of the file
        cut,      // the end, within a block
        end,
    };
    // Appends up to CHUNK bytes.
    Got read(std::vector<char>& to);

    // The place of the last Got::begin. In a file that is not compressed each byte is such a place, and this is where
    // the file begins.
    std::uint64_t place() const {
        return began;
    }
    void restart(std::uint64_t place);

    bool compressed() const {
        return isCompressed;
    }
    // Whether it is a device, which may have no end.
    bool device() const {
        return isDevice;
    }
    // Why the first damaged place is one, as the library of compression has it; empty: there was none.
    const std::string& damage() const {
        return firstDamage;
    }

    static constexpr std::size_t CHUNK = 131072;

private:
    struct Decompressor;

    std::size_t readFile(char* to, std::size_t size);
    Got readCompressed(std::vector<char>& to);
    Got goOn(const char* why);

    const std::string name;
    int descriptor = -1;
    bool regular = false;
    bool isDevice = false;
    bool isCompressed = false;
    std::string firstDamage;
    std::uint64_t offset = 0;  // of what is read next
    std::uint64_t began = 0;
    std::string head;  // the first bytes, which were looked at
    std::unique_ptr<Decompressor> decompressor;
};

}  // namespace recording
