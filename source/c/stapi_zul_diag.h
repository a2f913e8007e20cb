// Diagnostic trace: numbered trace points, gated by a level, written as single lines to one destination, and a dump of
// storage that some of them append.
//
// A module lists its trace points in stapi_zul_<module>_trace.h, one TRACE_POINT row each, and writes one with
// TRACE(name, arguments...), or with TRACE_DUMP where a dump of storage follows. A closed gate costs a load and a
// branch and evaluates no argument. Writing a line leaves errno as it was.
#pragma once

#include "stapi_zul_lock.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

inline constexpr char STAPI_VERSION[] = "1_1_0_0";
inline constexpr char STAPI_BUILD[] = "b410-20090429";

// ---- trace points -------------------------------------------------------------------------------------------------

enum class TraceKind { ENTRY, EXIT, EXC, DEBUG, EVENT, DATA };

[[nodiscard]] constexpr const char* traceKindText(TraceKind kind) {
    constexpr const char* TEXTS[] = {"ENTRY", "EXIT", "*EXC*", "DEBUG", "EVENT", "DATA"};
    return TEXTS[static_cast<int>(kind)];
}

// Row flags.
inline constexpr unsigned STALE_STAMP = 1;           // prints the time stamp of the line before it
inline constexpr unsigned NOT_UNDER_TRACE_LOCK = 2;  // the lock wrapper's own lines: traceLock is made of that module

struct TraceRow {
    const char* text;  // printf format of the message, with its line end
    int number;
    TraceKind kind;
    int level;  // lowest trace level that writes the line
    unsigned flags;
};

// A row together with the types of the arguments that its text takes, so that a call with other arguments does not
// compile and code shared by several rows can take one as a parameter.
template <typename... Arguments>
struct TracePoint {
    TraceRow row;
};

namespace trace_text {

inline constexpr std::size_t MESSAGE_MAX = 256;  // room for a message's text with its NUL

template <std::size_t Size>
struct Text {
    static_assert(Size <= MESSAGE_MAX, "the text does not fit the message area");
    char chars[Size];
    consteval Text(const char (&text)[Size]) : chars{} {
        for (std::size_t i = 0; i < Size; ++i) {
            chars[i] = text[i];
        }
    }
};

// Position of the next conversion character at or after `from`, or the text's size.
template <std::size_t Size>
consteval std::size_t nextConversion(const Text<Size>& text, std::size_t from) {
    for (std::size_t i = from; i < Size; ++i) {
        if (text.chars[i] != '%') {
            continue;
        }
        do {
            ++i;
        } while (text.chars[i] == '.' || text.chars[i] == '-' || (text.chars[i] >= '0' && text.chars[i] <= '9'));
        if (text.chars[i] != '%') {
            return i;
        }
    }
    return Size;
}

template <char Conversion>
struct ArgumentOf;  // a conversion that is not listed does not compile
template <>
struct ArgumentOf<'d'> {
    using type = int;
};
template <>
struct ArgumentOf<'c'> {
    using type = int;
};
template <>
struct ArgumentOf<'u'> {
    using type = unsigned;
};
template <>
struct ArgumentOf<'x'> {
    using type = unsigned;
};
template <>
struct ArgumentOf<'X'> {
    using type = unsigned;
};
template <>
struct ArgumentOf<'p'> {
    using type = const void*;
};
template <>
struct ArgumentOf<'s'> {
    using type = const char*;
};

template <Text Format, std::size_t From = 0, typename... Found>
consteval auto typedPoint() {
    constexpr std::size_t at = nextConversion(Format, From);
    if constexpr (at == sizeof Format.chars) {
        return TracePoint<Found...>{};
    } else {
        return typedPoint<Format, at + 1, Found..., typename ArgumentOf<Format.chars[at]>::type>();
    }
}

}  // namespace trace_text

#define TRACE_POINT(name, number, kind, level, text, ...)              \
    inline constexpr decltype(trace_text::typedPoint<text>()) name = { \
        {text, number, TraceKind::kind, level, 0u __VA_OPT__(|) __VA_ARGS__}};

#define TRACE(point, ...)                                 \
    do {                                                  \
        if (traceIsOpen((point).row.level)) {             \
            traceLine((point)__VA_OPT__(, ) __VA_ARGS__); \
        }                                                 \
    } while (false)

// Writes the line and the dump that it announces as one: TRACE_DUMP(point, start, length) or
// TRACE_DUMP(point, start, 0, stopWord, end).
#define TRACE_DUMP(point, ...)                \
    do {                                      \
        if (traceIsOpen((point).row.level)) { \
            traceDump((point), __VA_ARGS__);  \
        }                                     \
    } while (false)

// ---- state --------------------------------------------------------------------------------------------------------

// Current level, 0 to 5. Written under traceLock, read without it before every gate.
extern std::atomic<int> statAPITrace;

// Serialises every line (with its dump) but the lock wrapper's own.
extern StapiLock traceLock;

// ---- lines --------------------------------------------------------------------------------------------------------

#ifdef ZULSTATS_WITHOUT_TRACE
// For a benchmark that shows what closed gates cost: there are none.
[[nodiscard]] constexpr bool traceIsOpen(int /*level*/) {
    return false;
}
#else
[[nodiscard]] inline bool traceIsOpen(int level) {
    return statAPITrace.load(std::memory_order_relaxed) >= level;
}
#endif

// Storage to be dumped in lines of bytesPerLine bytes.
struct StorageDump {
    const unsigned char* start;
    int length;              // 0: up to the first position at which the 32-bit word equals stopWord
    std::uint32_t stopWord;  // a line that starts with it is shown whole in hex
    int bytesPerLine;
    const unsigned char* end;         // no position at or past it is taken for part of a word; null: no bound
    const unsigned char* shownStart;  // the address that lines show for a copy's first byte; null: start
};

// Writes one line for the row with its text's arguments, and the dump that it announces, if any, as one.
void writeTraceLine(const TraceRow* row, const StorageDump* dump, ...);

template <typename... Arguments>
void traceLine(const TracePoint<Arguments...>& point, std::type_identity_t<Arguments>... arguments) {
    writeTraceLine(&point.row, nullptr, arguments...);
}

inline void traceDump(const TracePoint<const void*, int, unsigned>& point, const void* start, int length,
                      std::uint32_t stopWord = 0, const void* end = nullptr) {
    const StorageDump dump = {.start = static_cast<const unsigned char*>(start),
                              .length = length,
                              .stopWord = stopWord,
                              .bytesPerLine = 16,
                              .end = static_cast<const unsigned char*>(end),
                              .shownStart = nullptr};
    writeTraceLine(&point.row, &dump, start, length, stopWord);
}

// Low 32 bits of an address, as lines and dumps with 8 hex digits show it.
[[nodiscard]] inline std::uint32_t low32(const void* address) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

// The address of storage that is about to be released, for the line that reports it released: to the compiler no
// longer a pointer into it.
[[nodiscard]] inline const void* addressOnly(const void* storage) {
    asm("" : "+r"(storage));
    return storage;
}

// ---- destination --------------------------------------------------------------------------------------------------

// Sets the destination to stderr and initialises traceLock. 0, STAPI_RC_TRACE_INIT_FAILED (traceLock could not be
// initialised, or was already) or STAPI_RC_NO_MEMORY.
[[nodiscard]] int initTrace();

// Name of the current destination, at most 1023 characters: "stderr" or the path given to setAPITraceFile. One heap
// block that lives as long as the process. Written under traceLock; a trace line may show it without.
extern char* statAPITraceFilename;
extern const char* const defaultTraceFilename;

// 1 once a file switch has written the banner to the current destination. Guarded by traceLock.
extern int traceHeaderWrite;

// Opens a file to append the trace to; null with errno set when that fails. Needs no lock.
[[nodiscard]] std::FILE* openTraceFile(const char* name);

// Makes `file` the destination and `name`, cut at 1023 characters, its shown name; closes the destination so far unless
// it is stderr. The new destination counts as one without a banner. The caller holds traceLock.
void setTraceDestination(std::FILE* file, const char* name);

[[nodiscard]] bool traceGoesToStderr();

void writeTraceBanner();

// Writes the line with version, level and destination, whatever the level, and flushes. Takes no StapiLock.
void writeTraceState();

// Writes text without prefix to the destination, whatever the level. Takes no StapiLock.
void writeTraceText(const char* format, ...) __attribute__((format(printf, 1, 2)));
void flushTrace();

// Writes a line of 80 "-" characters.
void writeTraceRule();

// Writes a dump and returns the number of bytes dumped; with neither length nor stop word that is 0 and nothing is
// written.
int writeStorage(std::FILE* out, const StorageDump& dump);

// The same to the destination. `mode` has no effect.
int traceOutStorage(const void* start, int length, std::uint32_t stopWord, int bytesPerLine, int mode,
                    const void* end = nullptr, const void* shownStart = nullptr);

// ---- time ---------------------------------------------------------------------------------------------------------

inline constexpr std::size_t TIME_STAMP_SIZE = 24;

// Writes the local time into dst (at least TIME_STAMP_SIZE bytes) as 14/11/26 23:31:00:042 and returns dst.
char* getTimestamp(char* dst);
