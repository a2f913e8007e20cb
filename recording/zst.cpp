#include "zst.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace recording {

namespace {

constexpr std::size_t CHUNK = 65536;

// A file read here and there.
class Window {
public:
    explicit Window(int file) : descriptor(file), bytes(CHUNK) {
    }

    // The bytes from `offset` on, `least` of them where the file has so many.
    std::string_view at(std::uint64_t offset, std::size_t least) {
        if (offset < begin || offset + least > begin + size) {
            begin = offset;
            size = 0;
            while (size < least) {
                const ssize_t got =
                    pread(descriptor, bytes.data() + size, bytes.size() - size, static_cast<off_t>(begin + size));
                if (got < 0 && errno != EINTR) {
                    throw std::system_error(errno, std::generic_category(), "reading a recording");
                }
                if (got == 0) {
                    break;
                }
                size += got < 0 ? 0 : static_cast<std::size_t>(got);
            }
        }
        return std::string_view(bytes.data(), size).substr(static_cast<std::size_t>(offset - begin));
    }

private:
    const int descriptor;
    std::vector<char> bytes;
    std::uint64_t begin = 0;
    std::size_t size = 0;
};

std::uint32_t littleEndian(std::string_view bytes) {
    std::uint32_t value = 0;
    for (std::size_t index = bytes.size(); index-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(bytes[index]);
    }
    return value;
}

constexpr std::size_t LONGEST_HEADER = 18;
constexpr std::size_t BLOCK_HEADER = 3;
constexpr std::uint32_t SKIPPABLE = 0x184D2A50;  // and the 15 that follow

struct Header {
    std::size_t size = 0;
    bool checksum = false;
    bool contentSize = false;
};

std::optional<Header> frameHeader(std::string_view bytes) {
    if (bytes.size() < ZST_MAGIC.size() + 1 || !bytes.starts_with(ZST_MAGIC)) {
        return std::nullopt;
    }
    constexpr std::array<std::size_t, 4> dictionarySizes = {0, 1, 2, 4};
    constexpr std::array<std::size_t, 4> contentSizes = {0, 2, 4, 8};
    const auto descriptor = static_cast<unsigned char>(bytes[ZST_MAGIC.size()]);
    const bool singleSegment = (descriptor & 0x20) != 0;
    const std::size_t sizeField = singleSegment && descriptor >> 6 == 0 ? 1 : contentSizes[descriptor >> 6];
    Header header;
    header.checksum = (descriptor & 0x04) != 0;
    header.contentSize = sizeField > 0;
    header.size = ZST_MAGIC.size() + 1 + (singleSegment ? 0 : 1) + dictionarySizes[descriptor & 0x03] + sizeField;
    return bytes.size() < header.size ? std::nullopt : std::optional(header);
}

// Passes over the blocks of a frame from `offset` on. Returns whether it has an end; `offset` is behind it, or behind
// the last whole block.
bool walkBlocks(Window& file, std::uint64_t& offset, std::uint64_t fileSize, bool checksum) {
    for (;;) {
        const std::string_view header = file.at(offset, BLOCK_HEADER);
        if (header.size() < BLOCK_HEADER) {
            return false;
        }
        const std::uint32_t word = littleEndian(header.substr(0, BLOCK_HEADER));
        constexpr std::uint32_t repeatedByte = 1;
        constexpr std::uint32_t reserved = 3;
        const std::uint32_t type = word >> 1 & 3;
        const bool last = (word & 1) != 0;
        const std::uint64_t size = BLOCK_HEADER + (type == repeatedByte ? 1 : word >> 3) + (last && checksum ? 4 : 0);
        if (type == reserved || offset + size > fileSize) {
            return false;
        }
        offset += size;
        if (last) {
            return true;
        }
    }
}

}  // namespace

bool namedCompressed(std::string_view file) {
    return file.ends_with(".zst");
}

void refuseWithoutZst(const std::string& file) {
    if (!CAN_COMPRESS) {
        throw std::runtime_error(file + ": compressed files are not for this program: it was built without libzstd");
    }
}

std::optional<std::uint64_t> findFrame(int descriptor, std::uint64_t offset) {
    Window file(descriptor);
    for (;;) {
        const std::string_view bytes = file.at(offset, ZST_MAGIC.size());
        if (bytes.size() < ZST_MAGIC.size()) {
            return std::nullopt;
        }
        if (const std::size_t place = bytes.find(ZST_MAGIC); place != std::string_view::npos) {
            return offset + place;
        }
        offset += bytes.size() - (ZST_MAGIC.size() - 1);
    }
}

std::optional<Frames> walkFrames(int descriptor) {
    const off_t end = lseek(descriptor, 0, SEEK_END);
    if (end < 0) {
        throw std::system_error(errno, std::generic_category(), "reading a recording");
    }
    const auto fileSize = static_cast<std::uint64_t>(end);
    Window file(descriptor);
    std::optional<Frames> found;
    std::uint64_t offset = 0;
    while (offset < fileSize) {
        const std::string_view bytes = file.at(offset, LONGEST_HEADER);
        constexpr std::size_t skippableHeader = 8;
        if (bytes.size() >= skippableHeader && (littleEndian(bytes.substr(0, 4)) & ~15U) == SKIPPABLE) {
            offset += skippableHeader + littleEndian(bytes.substr(4, 4));
            continue;
        }
        const std::uint64_t begin = offset;
        if (const std::optional<Header> header = frameHeader(bytes)) {
            offset += header->size;
            const bool whole = walkBlocks(file, offset, fileSize, header->checksum);
            found = Frames{begin, offset, !whole, !header->checksum && !header->contentSize};
            if (whole) {
                continue;
            }
        }
        // Damaged, or the last one: where another frame begins further on it was not the last.
        const std::optional<std::uint64_t> next = findFrame(descriptor, begin + 1);
        if (!next) {
            break;
        }
        offset = *next;
    }
    return found;
}

}  // namespace recording
