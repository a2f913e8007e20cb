#include "file_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "zst.h"

#ifdef RECORDING_ZST
#include <zstd.h>
#endif

namespace recording {

#ifdef RECORDING_ZST

struct FileBytes::Decompressor {
    Decompressor() : context(ZSTD_createDCtx()) {
        if (context == nullptr) {
            throw std::bad_alloc();
        }
        constexpr int mostWindowLog = 26;  // of the storage that a file may ask for
        ZSTD_DCtx_setParameter(context, ZSTD_d_windowLogMax, mostWindowLog);
    }
    ~Decompressor() {
        ZSTD_freeDCtx(context);
    }
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;

    void reset() {
        ZSTD_DCtx_reset(context, ZSTD_reset_session_only);
        used = filled = wanted = 0;
        inFrame = begun = full = false;
    }

    ZSTD_DCtx* context;
    std::array<char, CHUNK> input{};
    std::size_t used = 0;
    std::size_t filled = 0;
    std::size_t wanted = 0;  // of the input that comes next, as the library has it
    bool inFrame = false;
    bool begun = false;  // some of the frame's content was there
    bool full = false;   // the library may have more without further input
};

FileBytes::Got FileBytes::readCompressed(std::vector<char>& to) {
    Decompressor& zst = *decompressor;
    constexpr std::size_t blockHeader = 3;
    for (;;) {
        if (zst.used == zst.filled && !zst.full) {
            zst.used = 0;
            zst.filled = readFile(zst.input.data(), zst.input.size());
            if (zst.filled == 0) {
                const bool whole = !zst.inFrame || zst.wanted == blockHeader;
                zst.inFrame = false;
                return whole ? Got::end : Got::cut;
            }
        }
        const bool begins = !zst.inFrame;
        if (begins) {
            began = offset - (zst.filled - zst.used);
        }
        const std::size_t size = to.size();
        to.resize(size + CHUNK);
        ZSTD_inBuffer in{zst.input.data(), zst.filled, zst.used};
        ZSTD_outBuffer out{to.data() + size, CHUNK, 0};
        zst.wanted = ZSTD_decompressStream(zst.context, &out, &in);
        to.resize(size + out.pos);
        if (ZSTD_isError(zst.wanted) != 0) {
            return goOn(ZSTD_getErrorName(zst.wanted));
        }
        zst.used = in.pos;
        zst.full = out.pos == CHUNK && zst.wanted != 0;
        const bool hadBegun = zst.begun;
        zst.inFrame = zst.wanted != 0;
        zst.begun = zst.inFrame && (hadBegun || out.pos > 0);
        if (out.pos > 0) {
            return hadBegun ? Got::bytes : Got::begin;
        }
    }
}

// After damage: with the next frame.
FileBytes::Got FileBytes::goOn(const char* why) {
    if (!regular) {
        throw std::runtime_error(name + ": no compressed file, or damaged");
    }
    firstDamage = firstDamage.empty() ? why : firstDamage;
    decompressor->reset();
    const std::optional<std::uint64_t> next = findFrame(descriptor, began + 1);
    const off_t end = lseek(descriptor, 0, SEEK_END);
    offset = next ? *next : static_cast<std::uint64_t>(std::max<off_t>(end, 0));
    return Got::damaged;
}

#else

struct FileBytes::Decompressor {
    void reset() {
    }
};

FileBytes::Got FileBytes::readCompressed(std::vector<char>&) {
    return Got::end;
}

#endif

FileBytes::FileBytes(const std::string& file)
    : name(file), descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    regular = S_ISREG(status.st_mode);
    isDevice = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
    try {
        std::array<char, ZST_MAGIC.size()> first{};
        std::size_t size = 0;
        for (std::size_t got = 1; got > 0 && size < first.size(); size += got) {
            got = readFile(first.data() + size, first.size() - size);
        }
        head.assign(first.data(), size);
        isCompressed = head == ZST_MAGIC || (namedCompressed(name) && regular && !head.empty());
        if (isCompressed) {
            refuseWithoutZst(name);
            decompressor = std::make_unique<Decompressor>();
        }
    } catch (...) {
        close(descriptor);
        throw;
    }
    if (regular) {
        head.clear();
    }
    offset = 0;
}

FileBytes::~FileBytes() {
    close(descriptor);
}

std::size_t FileBytes::readFile(char* to, std::size_t size) {
    if (!head.empty()) {
        const std::size_t count = std::min(size, head.size());
        std::memcpy(to, head.data(), count);
        head.erase(0, count);
        offset += count;
        return count;
    }
    for (;;) {
        const ssize_t got =
            regular ? pread(descriptor, to, size, static_cast<off_t>(offset)) : ::read(descriptor, to, size);
        if (got >= 0) {
            offset += static_cast<std::uint64_t>(got);
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), name);
        }
    }
}

FileBytes::Got FileBytes::read(std::vector<char>& to) {
    if (isCompressed) {
        return readCompressed(to);
    }
    const std::size_t size = to.size();
    to.resize(size + CHUNK);
    const std::size_t got = readFile(to.data() + size, CHUNK);
    to.resize(size + got);
    return got > 0 ? Got::bytes : Got::end;
}

void FileBytes::restart(std::uint64_t place) {
    if (!regular) {
        throw std::runtime_error(name + ": no file that can be read from another place");
    }
    offset = place;
    began = place;
    if (decompressor) {
        decompressor->reset();
    }
}

}  // namespace recording
