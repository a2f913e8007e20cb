// Diagnostic trace: numbered trace points, gated by a level, written as single lines to one destination, and a dump of
// storage that some of them append.
//
// A module lists its trace points in stapi_zul_<module>_trace.h, one TRACE_POINT row each, and writes one with
// TRACE(name, arguments...), or with TRACE_DUMP where a dump of storage follows. A closed gate costs a load and a
// branch and evaluates no argument. Writing a line leaves errno as it was.
#ifndef STAPI_ZUL_DIAG_H
#define STAPI_ZUL_DIAG_H

#include "stapi_zul_lock.h"

#include <pthread.h>

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

// Writes one line for the row with its text's arguments.
void writeTraceLine(const TraceRow* row, ...);

// Writes one line whose text announces a dump, then the dump (traceOutStorage).
void writeTraceDump(const TraceRow* row, const void* start, int length, std::uint32_t stopWord, const void* end);

template <typename... Arguments>
void traceLine(const TracePoint<Arguments...>& point, std::type_identity_t<Arguments>... arguments) {
    writeTraceLine(&point.row, arguments...);
}

inline void traceDump(const TracePoint<const void*, int, unsigned>& point, const void* start, int length,
                      std::uint32_t stopWord = 0, const void* end = nullptr) {
    writeTraceDump(&point.row, start, length, stopWord, end);
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

// Dumps storage to the destination in lines of bytesPerLine bytes: `length` bytes, or, where length is 0, up to the
// first position at which the 32-bit word equals stopWord; a line that starts with that word is shown whole in hex.
// No position at or past `end` is taken for part of a word (null: no bound). `mode` has no effect. The lines show the
// addresses of the storage, or, of a copy, those from `shownStart` on. Returns the number of bytes dumped; with neither
// length nor stop word that is 0 and nothing is written.
int traceOutStorage(const void* start, int length, std::uint32_t stopWord, int bytesPerLine, int mode,
                    const void* end = nullptr, const void* shownStart = nullptr);

// ---- time and identity --------------------------------------------------------------------------------------------

inline constexpr std::size_t TIME_STAMP_SIZE = 24;

// Writes the local time into dst (at least TIME_STAMP_SIZE bytes) as 14/11/26 23:31:00:042 and returns dst.
char* getTimestamp(char* dst);

// 1 if the two threads are the same, else 0.
[[nodiscard]] inline int compareTids(pthread_t t1, pthread_t t2) {
    return pthread_equal(t1, t2) != 0 ? 1 : 0;
}

// From then on asking for the process id costs no system call: it is kept where the kernel clears it in a forked child.
// Where there is no such storage nothing changes. To be called before there is a second thread in the library.
void keepProcessId();

// The process id, 0 until somebody asks, in a page that the kernel clears in a child process. Null without such a page.
extern std::uint32_t* keptPid;

// The process id from the system, which is then kept.
[[nodiscard]] std::uint32_t askForPid();

// Stores the calling process's and thread's ids, 32 bits each; either pointer may be null.
inline void getPidTid(std::uint32_t* pid, std::uint32_t* tid) {
    if (pid != nullptr) {
        const std::uint32_t kept = keptPid == nullptr ? 0 : __atomic_load_n(keptPid, __ATOMIC_RELAXED);
        *pid = kept != 0 ? kept : askForPid();
    }
    if (tid != nullptr) {
        *tid = static_cast<std::uint32_t>(pthread_self());
    }
}

#endif
