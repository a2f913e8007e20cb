// A dump of storage shows what a plain reading of its rules shows.
#include "peer.h"

#include "stapi_zul_diag.h"

#include <cctype>
#include <cstring>

namespace {

char expected[1 << 20];
std::size_t expectedLength;

#define PUT(...)                                 \
    (expectedLength += static_cast<std::size_t>( \
         std::snprintf(expected + expectedLength, sizeof expected - expectedLength, __VA_ARGS__)))

// `end` is the first byte that is not shown; a line that begins with the stop word is shown whole in hex.
void putLine(const std::uint8_t* line, const std::uint8_t* end, int width, bool whole) {
    PUT("0x%8.8X: ", low32(line));
    for (int i = 0; i < width; ++i) {
        PUT("%s", i == 0 || i % 4 != 0 ? "" : i % 16 != 0 ? " " : "  ");
        whole || line + i < end ? PUT("%2.2X", line[i]) : PUT("  ");
    }
    PUT(" : ");
    for (int i = 0; i < width && line + i < end; ++i) {
        PUT("%c%s", std::isprint(line[i]) != 0 ? line[i] : '.', i % 16 == 15 ? " " : "");
    }
    PUT("\n");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in = {data, size < 4096 ? size : 4096};
    const int width = static_cast<int>(in.byte() % 40) + 1;
    const unsigned choice = in.byte();
    const std::uint32_t stopWord = choice % 4 == 0 ? 0 : in.word(choice % 4 + 1);
    const std::size_t from = in.word();
    const std::size_t to = in.word();
    // The stop word and a line stand behind the storage.
    auto* block =
        static_cast<std::uint8_t*>(std::calloc(in.size + sizeof stopWord + static_cast<std::size_t>(width), 1));
    std::memcpy(block, in.data, in.size);
    std::memcpy(block + in.size, &stopWord, sizeof stopWord);
    const std::uint8_t* start = block + from % (in.size + 1);
    const std::uint8_t* bound = choice % 8 < 4 ? nullptr : block + to % (in.size + 5);
    const int length = choice % 16 < 8 ? 0 : static_cast<int>(to % (in.size - from % (in.size + 1) + 1));

    const std::uint8_t* end = start + length;
    const auto inBound = [&] { return bound == nullptr || bound - end >= 4; };
    while (length == 0 && inBound() && std::memcmp(end, &stopWord, sizeof stopWord) != 0) {
        ++end;
    }
    expectedLength = 0;
    const bool shown = length != 0 || stopWord != 0;
    for (const std::uint8_t* line = start; shown && (line < end || (length == 0 && line == end)); line += width) {
        putLine(line, end, width, line == end && inBound());
    }
    char* text = nullptr;
    std::size_t textLength = 0;
    setTraceDestination(open_memstream(&text, &textLength), "memory");
    const int dumped = traceOutStorage(start, length, stopWord, width, 0, bound);
    setTraceDestination(stderr, defaultTraceFilename);
    REQUIRE(dumped == (shown ? end - start : 0));
    REQUIRE(textLength == expectedLength && std::memcmp(text, expected, textLength) == 0);
    std::free(text);
    std::free(block);
    return 0;
}
