// The storage dump: lines of an address, a hex column and a character column.
#include "stapi_zul_diag.h"

#include <cctype>
#include <cstring>

namespace {

bool reachesBound(const unsigned char* at, const StorageDump& dump) {
    return dump.length == 0 && dump.end != nullptr && dump.end - at < static_cast<std::ptrdiff_t>(sizeof dump.stopWord);
}

// Whether the dump ends before the byte at `position` of a line, with `remaining` bytes left where it has a length.
bool endsAt(const unsigned char* start, int position, int remaining, const StorageDump& dump) {
    if (dump.length != 0) {
        return position == remaining;
    }
    if (reachesBound(start + position, dump)) {
        return true;
    }
    std::uint32_t word;
    std::memcpy(&word, start + position, sizeof word);
    return word == dump.stopWord;
}

// Returns how many bytes of the line belong to the dump.
int writeStorageLineHex(std::FILE* out, const unsigned char* start, int remaining, const StorageDump& dump) {
    int result = dump.bytesPerLine;
    bool hidden = false;
    for (int i = 0; i < dump.bytesPerLine; ++i) {
        if (result == dump.bytesPerLine && endsAt(start, i, remaining, dump)) {
            result = i;
            // Kept: a line that starts with the stop word is shown whole in hex.
            hidden = i != 0 || reachesBound(start, dump);
        }
        if (hidden) {
            std::fputs("  ", out);
        } else {
            std::fprintf(out, "%2.2X", start[i]);
        }
        std::fflush(out);  // what could be read of bad storage is on file when the next byte faults
        const int count = i + 1;
        if (count % dump.bytesPerLine == 0) {
            break;
        }
        if (count % 4 == 0) {
            std::fputc(' ', out);
        }
        if (count % 16 == 0) {
            std::fputc(' ', out);
        }
    }
    return result;
}

void writeStorageLineChar(std::FILE* out, const unsigned char* start, int dumped) {
    for (int i = 0; i < dumped; ++i) {
        std::fputc(std::isprint(start[i]) != 0 ? start[i] : '.', out);
        if ((i + 1) % 16 == 0) {
            std::fputc(' ', out);
        }
    }
}

int writeStorageLineDual(std::FILE* out, const unsigned char* start, int remaining, const StorageDump& dump) {
    const int dumped = writeStorageLineHex(out, start, remaining, dump);
    std::fputs(" : ", out);
    writeStorageLineChar(out, start, dumped);
    std::fputc('\n', out);
    return dumped;
}

}  // namespace

int writeStorage(std::FILE* out, const StorageDump& dump) {
    if (dump.length == 0 && dump.stopWord == 0) {
        return 0;
    }
    const unsigned char* shown = dump.shownStart != nullptr ? dump.shownStart : dump.start;
    int total = 0;
    int dumped = 0;
    do {
        std::fprintf(out, "0x%8.8X: ", low32(shown + total));
        dumped = writeStorageLineDual(out, dump.start + total, dump.length - total, dump);
        total += dumped;
    } while (dump.length != 0 ? total < dump.length : dumped == dump.bytesPerLine);
    std::fflush(out);
    return total;
}
