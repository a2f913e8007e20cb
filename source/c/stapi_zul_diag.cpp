#include "stapi_zul_diag.h"

#include "stapi_zul_descriptor.h"
#include "stapi_zul_mutex.h"
#include "stapi_zul_sigpipe.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

constinit std::atomic<int> statAPITrace = 0;
constinit StapiLock traceLock = {};
char* statAPITraceFilename;
const char* const defaultTraceFilename = "stderr";
int traceHeaderWrite;
std::uint32_t* keptPid;

namespace {

constexpr std::size_t FILENAME_SIZE = 1024;
constexpr std::size_t PREFIX_SIZE = 96;  // the longest prefix has 62 characters

// The destination and the last time stamp. outputMutex guards both: the lock wrapper's lines and dumpState's are
// written without traceLock, possibly while another thread switches the destination. It is taken last, and under it
// only the mutex of SIGPIPE's disposition, so it has no place in the lock order; no StapiLock, because that would trace
// itself.
pthread_mutex_t outputMutex = PTHREAD_MUTEX_INITIALIZER;
std::FILE* statAPITraceHandle;
char timeStamp[TIME_STAMP_SIZE];

bool mayBePipe(std::FILE* file) {
    struct stat status {};
    return file != nullptr && fstat(fileno(file), &status) == 0 && !S_ISREG(status.st_mode);
}

// Holds the destination while something is written to it, and keeps errno. A failure to write is nobody's business: a
// pipe whose reader has gone raises no SIGPIPE, and what it did not take is dropped.
class Destination {
public:
    Destination() : hold(outputMutex), maybePipe(mayBePipe(statAPITraceHandle)) {
        if (maybePipe) {
            ignoreSigpipe();
        }
    }
    ~Destination() {
        if (maybePipe) {
            // Nothing is left for the flush at the end of the process. What stands in stderr may be the application's.
            if (std::fflush(statAPITraceHandle) != 0 && statAPITraceHandle != stderr) {
                __fpurge(statAPITraceHandle);
            }
            restoreSigpipe();
        }
        errno = savedErrno;
    }
    Destination(const Destination&) = delete;
    Destination& operator=(const Destination&) = delete;

private:
    const int savedErrno = errno;
    const MutexHold hold;
    const bool maybePipe;
};

// The table's texts are formats that the compiler has checked against the arguments of every call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void printLine(const char* format, std::va_list arguments) {
    std::vfprintf(statAPITraceHandle, format, arguments);
}
#pragma GCC diagnostic pop

// One call of the stream for prefix and message together, so that a line on an unbuffered stream stays whole.
void printPoint(const TraceRow& row, std::va_list arguments) {
    if ((row.flags & STALE_STAMP) == 0) {
        getTimestamp(timeStamp);
    }
    std::uint32_t tracePid = 0;
    std::uint32_t traceTid = 0;
    getPidTid(&tracePid, &traceTid);
    char traceFmtStr[PREFIX_SIZE + trace_text::MESSAGE_MAX];
    const int prefixLength = std::snprintf(traceFmtStr, PREFIX_SIZE, "%s [0x%8.8X,0x%8.8X] [%4.4d] %-6.6s ", timeStamp,
                                           tracePid, traceTid, row.number, traceKindText(row.kind));
    std::strcpy(traceFmtStr + prefixLength, row.text);
    printLine(traceFmtStr, arguments);
}

// What ends a dump: a count of bytes where it is not 0, else a word in memory.
struct DumpEnd {
    int limit;
    std::uint32_t stopWord;
    const unsigned char* bound;  // first byte that belongs to no word; null: none
};

bool reachesBound(const unsigned char* at, const DumpEnd& dumpEnd) {
    return dumpEnd.limit == 0 && dumpEnd.bound != nullptr &&
           dumpEnd.bound - at < static_cast<std::ptrdiff_t>(sizeof dumpEnd.stopWord);
}

bool endsAt(const unsigned char* start, int position, const DumpEnd& dumpEnd) {
    if (dumpEnd.limit != 0) {
        return position == dumpEnd.limit;
    }
    if (reachesBound(start + position, dumpEnd)) {
        return true;
    }
    std::uint32_t word;
    std::memcpy(&word, start + position, sizeof word);
    return word == dumpEnd.stopWord;
}

// Returns how many bytes of the line belong to the dump.
int writeStorageLineHex(const unsigned char* start, int bytesPerLine, const DumpEnd& dumpEnd) {
    int result = bytesPerLine;
    bool hidden = false;
    for (int i = 0; i < bytesPerLine; ++i) {
        if (result == bytesPerLine && endsAt(start, i, dumpEnd)) {
            result = i;
            // Kept: a line that starts with the stop word is shown whole in hex.
            hidden = i != 0 || reachesBound(start, dumpEnd);
        }
        if (hidden) {
            std::fputs("  ", statAPITraceHandle);
        } else {
            std::fprintf(statAPITraceHandle, "%2.2X", start[i]);
        }
        std::fflush(statAPITraceHandle);  // what could be read of bad storage is on file when the next byte faults
        const int count = i + 1;
        if (count % bytesPerLine == 0) {
            break;
        }
        if (count % 4 == 0) {
            std::fputc(' ', statAPITraceHandle);
        }
        if (count % 16 == 0) {
            std::fputc(' ', statAPITraceHandle);
        }
    }
    return result;
}

// Returns the end position found, or 0 if the line ran full.
int writeStorageLineChar(const unsigned char* start, int bytesPerLine, const DumpEnd& dumpEnd) {
    for (int i = 0; i < bytesPerLine; ++i) {
        if (endsAt(start, i, dumpEnd)) {
            return i;
        }
        std::fputc(std::isprint(start[i]) != 0 ? start[i] : '.', statAPITraceHandle);
        if ((i + 1) % 16 == 0) {
            std::fputc(' ', statAPITraceHandle);
        }
    }
    return 0;
}

int writeStorageLineDual(const unsigned char* start, int bytesPerLine, const DumpEnd& dumpEnd) {
    const int dumped = writeStorageLineHex(start, bytesPerLine, dumpEnd);
    std::fputs(" : ", statAPITraceHandle);
    writeStorageLineChar(start, bytesPerLine, dumpEnd);
    std::fputc('\n', statAPITraceHandle);
    return dumped;
}

// The caller holds outputMutex.
int dumpStorage(const unsigned char* start, int length, std::uint32_t stopWord, int bytesPerLine,
                const unsigned char* bound, const unsigned char* shown) {
    if (length == 0 && stopWord == 0) {
        return 0;
    }
    const unsigned char* current = start;
    int remaining = length;
    int total = 0;
    for (;;) {
        std::fprintf(statAPITraceHandle, "0x%8.8X: ", low32(shown + (current - start)));
        const int dumped = writeStorageLineDual(current, bytesPerLine, {remaining, stopWord, bound});
        total += dumped;
        if (length != 0) {
            current += dumped;
            remaining -= dumped;
            if (remaining < 1) {
                break;
            }
        } else {
            current += bytesPerLine;
            if (dumped != bytesPerLine) {
                break;
            }
        }
    }
    std::fflush(statAPITraceHandle);
    return total;
}

constexpr int BYTES_PER_LINE = 16;

// Holds traceLock around one line (and its dump), but for the lock wrapper's own lines, and keeps errno.
class Line {
public:
    explicit Line(const TraceRow& row) : locked((row.flags & NOT_UNDER_TRACE_LOCK) == 0) {
        if (locked) {
            requestLock(&traceLock);
        }
    }
    ~Line() {
        if (locked) {
            releaseLock(&traceLock);
        }
        errno = savedErrno;
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

private:
    const int savedErrno = errno;
    const bool locked;
};

void printPointWith(const TraceRow* row, ...) {
    std::va_list arguments;
    va_start(arguments, row);
    printPoint(*row, arguments);
    va_end(arguments);
}

}  // namespace

void writeTraceLine(const TraceRow* row, ...) {
    const Line line(*row);
    const Destination destination;
    std::va_list arguments;
    va_start(arguments, row);
    printPoint(*row, arguments);
    va_end(arguments);
    std::fflush(statAPITraceHandle);
}

void writeTraceDump(const TraceRow* row, const void* start, int length, std::uint32_t stopWord, const void* end) {
    const Line line(*row);
    const Destination destination;
    printPointWith(row, start, length, stopWord);
    dumpStorage(static_cast<const unsigned char*>(start), length, stopWord, BYTES_PER_LINE,
                static_cast<const unsigned char*>(end), static_cast<const unsigned char*>(start));
    std::fflush(statAPITraceHandle);
}

int initTrace() {
    {
        const MutexHold hold(outputMutex);
        statAPITraceHandle = stderr;
    }
    if (initializeLock(&traceLock) != 0) {
        return STAPI_RC_TRACE_INIT_FAILED;
    }
    statAPITraceFilename = static_cast<char*>(std::calloc(FILENAME_SIZE, 1));
    if (statAPITraceFilename == nullptr) {
        return STAPI_RC_NO_MEMORY;
    }
    std::strcpy(statAPITraceFilename, defaultTraceFilename);
    return 0;
}

std::FILE* openTraceFile(const char* name) {
    constexpr mode_t READ_AND_WRITE = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    const int descriptor = aboveStandardStreams(open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, READ_AND_WRITE));
    if (descriptor < 0) {
        return nullptr;
    }
    std::FILE* file = fdopen(descriptor, "a");
    if (file == nullptr) {
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    return file;
}

void setTraceDestination(std::FILE* file, const char* name) {
    {
        const Destination destination;
        if (statAPITraceHandle != nullptr && statAPITraceHandle != stderr) {
            std::fclose(statAPITraceHandle);
        }
        statAPITraceHandle = file;
        std::snprintf(statAPITraceFilename, FILENAME_SIZE, "%s", name);
    }
    traceHeaderWrite = 0;
}

bool traceGoesToStderr() {
    const MutexHold hold(outputMutex);
    return statAPITraceHandle == stderr;
}

void writeTraceBanner() {
    writeTraceText("**** QAL Velatra ZULSTATS DLL Version %s Diagnostic trace - build(%s) ****\n", STAPI_VERSION,
                   STAPI_BUILD);
}

void writeTraceState() {
    writeTraceText("zulstats state dump: API Version=%s Trace Level=%d statAPITraceFile=%s\n", STAPI_VERSION,
                   statAPITrace.load(std::memory_order_relaxed), statAPITraceFilename);
    flushTrace();
}

void writeTraceText(const char* format, ...) {
    const Destination destination;
    std::va_list arguments;
    va_start(arguments, format);
    printLine(format, arguments);
    va_end(arguments);
}

void flushTrace() {
    const Destination destination;
    std::fflush(statAPITraceHandle);
}

void writeTraceRule() {
    char rule[81];
    std::memset(rule, '-', sizeof rule - 1);
    rule[sizeof rule - 1] = '\0';
    writeTraceText("%s\n", rule);
}

int traceOutStorage(const void* start, int length, std::uint32_t stopWord, int bytesPerLine, int /*mode*/,
                    const void* end, const void* shownStart) {
    const Destination destination;
    return dumpStorage(static_cast<const unsigned char*>(start), length, stopWord, bytesPerLine,
                       static_cast<const unsigned char*>(end),
                       static_cast<const unsigned char*>(shownStart == nullptr ? start : shownStart));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"  // lines show two digits of the year
char* getTimestamp(char* dst) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tzset();
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[TIME_STAMP_SIZE] = "";
    const std::size_t length = std::strftime(stamp, sizeof stamp - 1, "%d/%m/%y %H:%M:%S:", &local);
    std::snprintf(stamp + length, sizeof stamp - length, "%.3d", static_cast<int>(now.tv_usec / 1000));
    return std::strcpy(dst, stamp);
}
#pragma GCC diagnostic pop

void keepProcessId() {
    if (keptPid != nullptr) {
        return;
    }
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return;
    }
    if (madvise(page, size, MADV_WIPEONFORK) != 0) {
        munmap(page, size);
        return;
    }
    keptPid = static_cast<std::uint32_t*>(page);
}

std::uint32_t askForPid() {
    const auto pid = static_cast<std::uint32_t>(getpid());
    if (keptPid != nullptr) {
        __atomic_store_n(keptPid, pid, __ATOMIC_RELAXED);
    }
    return pid;
}
