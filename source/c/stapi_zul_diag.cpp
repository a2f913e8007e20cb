#include "stapi_zul_diag.h"

#include "stapi_zul_descriptor.h"
#include "stapi_zul_identity.h"
#include "stapi_zul_mutex.h"
#include "stapi_zul_sigpipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

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

// Holds the destination while something is written to it, and keeps errno. A failure to write has no effect: a pipe
// whose reader has gone raises no SIGPIPE, and what it did not take is dropped.
class Destination {
public:
    Destination() : hold(outputMutex), maybePipe(mayBePipe(statAPITraceHandle)) {
        if (maybePipe) {
            ignoreSigpipe();
        }
    }
    ~Destination() {
        if (maybePipe) {
            std::fflush(statAPITraceHandle);  // drops what the pipe does not take: nothing is left for exit()
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

constexpr std::size_t FORMAT_SIZE = PREFIX_SIZE + trace_text::MESSAGE_MAX;

// Prefix and message as one format, so that a line takes one call of the stream and stays whole on an unbuffered one.
void makeFormat(const TraceRow& row, char (*traceFmtStr)[FORMAT_SIZE]) {
    if ((row.flags & STALE_STAMP) == 0) {
        getTimestamp(timeStamp);
    }
    std::uint32_t tracePid = 0;
    std::uint32_t traceTid = 0;
    getPidTid(&tracePid, &traceTid);
    const int prefixLength = std::snprintf(*traceFmtStr, PREFIX_SIZE, "%s [0x%8.8X,0x%8.8X] [%4.4d] %-6.6s ", timeStamp,
                                           tracePid, traceTid, row.number, traceKindText(row.kind));
    std::strcpy(*traceFmtStr + prefixLength, row.text);
}

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

}  // namespace

// The formats are the table's texts, which the compiler has checked against the arguments of every call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

void writeTraceLine(const TraceRow* row, const StorageDump* dump, ...) {
    const Line line(*row);
    const Destination destination;
    char traceFmtStr[FORMAT_SIZE];
    makeFormat(*row, &traceFmtStr);
    std::va_list arguments;
    va_start(arguments, dump);
    std::vfprintf(statAPITraceHandle, traceFmtStr, arguments);
    va_end(arguments);
    if (dump != nullptr) {
        writeStorage(statAPITraceHandle, *dump);
    }
    std::fflush(statAPITraceHandle);
}

void writeTraceText(const char* format, ...) {
    const Destination destination;
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(statAPITraceHandle, format, arguments);
    va_end(arguments);
}

#pragma GCC diagnostic pop

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
    return writeStorage(statAPITraceHandle, {.start = static_cast<const unsigned char*>(start),
                                             .length = length,
                                             .stopWord = stopWord,
                                             .bytesPerLine = bytesPerLine,
                                             .end = static_cast<const unsigned char*>(end),
                                             .shownStart = static_cast<const unsigned char*>(shownStart)});
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
