#include "writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "file_bytes.h"
#include "reader.h"
#include "sample_json.h"
#include "zst.h"

#ifdef RECORDING_ZST
#include <zstd.h>
#endif

namespace recording {

using namespace monitor;

namespace {

// The library's, for a gap whose cause is none of its codes.
constexpr std::int32_t RC_CONNECTION_LOST = -102;

constexpr const char* NO_ROOM = "the recording could not be written";

std::string errorText(int error) {
    return std::generic_category().message(error);
}

// Directory and stem, and the extensions: one, and .zst behind it.
std::pair<std::string, std::string> splitExtensions(const std::string& file) {
    const std::size_t name = file.rfind('/') + 1;
    std::size_t end = file.size() - (namedCompressed(file) ? std::strlen(".zst") : 0);
    const std::size_t dot = file.substr(0, end).rfind('.');
    end = dot != std::string::npos && dot > name ? dot : end;
    return {file.substr(0, end), file.substr(end)};
}

bool isStamp(std::string_view text) {
    constexpr std::string_view pattern = "00000000T000000Z";
    if (text.size() != pattern.size()) {
        return false;
    }
    for (std::size_t index = 0; index < pattern.size(); ++index) {
        const bool digit = text[index] >= '0' && text[index] <= '9';
        if (pattern[index] == '0' ? !digit : text[index] != pattern[index]) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<Rotation> parseRotation(std::string_view word) {
    std::uint64_t count = 0;
    const auto [rest, error] = std::from_chars(word.data(), word.data() + word.size(), count);
    constexpr std::uint64_t most = 1000000;
    if (error != std::errc() || rest != word.data() + word.size() - 1 || count < 1 || count > most) {
        return std::nullopt;
    }
    constexpr std::int64_t least = 60;
    const auto ofTime = [&](std::int64_t seconds) -> std::optional<Rotation> {
        seconds *= static_cast<std::int64_t>(count);
        return seconds < least ? std::nullopt : std::optional(Rotation{.seconds = seconds});
    };
    const auto ofSize = [&](unsigned shift) { return Rotation{.bytes = count << shift}; };
    switch (*rest) {
    case 's':
        return ofTime(1);
    case 'm':
        return ofTime(60);
    case 'h':
        return ofTime(3600);
    case 'd':
        return ofTime(86400);
    case 'K':
        return ofSize(10);
    case 'M':
        return ofSize(20);
    case 'G':
        return ofSize(30);
    default:
        return std::nullopt;
    }
}

std::string rotatedName(const std::string& file, double wallTime) {
    const auto whole = static_cast<std::time_t>(wallTime);
    std::tm fields{};
    gmtime_r(&whole, &fields);
    std::array<char, 64> stamp{};
    std::strftime(stamp.data(), stamp.size(), ".%Y%m%dT%H%M%SZ", &fields);
    const auto [stem, extensions] = splitExtensions(file);
    return stem + stamp.data() + extensions;
}

#ifdef RECORDING_ZST

// The frame that is being written. It becomes bytes of the file only when the caller has written them.
class Writer::Frame {
public:
    Frame() : context(ZSTD_createCCtx()), output(ZSTD_CStreamOutSize()) {
        if (context == nullptr) {
            throw std::bad_alloc();
        }
        constexpr int windowLog = 20;
        ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, ZSTD_CLEVEL_DEFAULT);
        ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, windowLog);
    }
    ~Frame() {
        ZSTD_freeCCtx(context);
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    // The bytes that make the lines readable, with the frame's end where it has enough.
    std::string bytesOf(std::string_view text) {
        std::string bytes;
        bytes.swap(before);
        lines += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        content += text.size();
        constexpr std::size_t mostLines = 60;
        constexpr std::size_t mostContent = std::size_t{1} << 20;
        const bool last = lines >= mostLines || content >= mostContent;
        ZSTD_inBuffer in{text.data(), text.size(), 0};
        std::size_t left = 1;
        while (left > 0) {
            ZSTD_outBuffer out{output.data(), output.size(), 0};
            left = ZSTD_compressStream2(context, &out, &in, last ? ZSTD_e_end : ZSTD_e_flush);
            if (ZSTD_isError(left) != 0) {
                throw std::runtime_error(std::string("compressing a recording: ") + ZSTD_getErrorName(left));
            }
            bytes.append(output.data(), out.pos);
        }
        open = !last;
        lines = last ? 0 : lines;
        content = last ? 0 : content;
        return bytes;
    }

    // Whether the file has some of a frame, and not its end.
    bool unfinished() const {
        return open || !before.empty();
    }

    // What bytesOf() gave last is not in the file, which has a frame unfinished or not.
    void drop(bool leftUnfinished) {
        ZSTD_CCtx_reset(context, ZSTD_reset_session_only);
        before = leftUnfinished ? ZST_LAST_BLOCK : "";
        lines = content = 0;
        open = false;
    }

private:
    ZSTD_CCtx* const context;
    std::vector<char> output;
    std::string before;  // ends the former frame
    bool open = false;
    std::size_t lines = 0;
    std::size_t content = 0;
};

#else

class Writer::Frame {
public:
    std::string bytesOf(std::string_view text) {
        return std::string(text);
    }
    bool unfinished() const {
        return false;
    }
    void drop(bool) {
    }
};

#endif

Writer::Writer(WriterOptions given) : options(std::move(given)), compressed(namedCompressed(options.file)) {
    if (compressed) {
        refuseWithoutZst(options.file);
        frame = std::make_unique<Frame>();
    }
    openFile();
}

Writer::~Writer() {
    endFrame();
    close(descriptor);
}

void Writer::openFile() {
    const std::string& name = options.file;
    descriptor = open(name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    const auto fail = [&](const std::string& what) {
        close(descriptor);
        descriptor = -1;
        throw std::runtime_error(name + ": " + what);
    };
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    if (!S_ISREG(status.st_mode)) {
        fail("no regular file");
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        fail(errno == EWOULDBLOCK ? "another program records into it" : "cannot be locked: " + errorText(errno));
    }
    try {
        size = static_cast<std::uint64_t>(status.st_size);
        firstTime.reset();
        if (size > 0) {
            mend();
        }
    } catch (...) {
        close(descriptor);
        descriptor = -1;
        throw;
    }
}

// Ends what a former writer could not, so that what follows is readable.
void Writer::mend() {
    const std::string& name = options.file;
    const auto truncateTo = [&](std::uint64_t end) {
        if (end != size && ftruncate(descriptor, static_cast<off_t>(end)) != 0) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        size = end;
    };
    const auto append = [&](std::string_view bytes) {
        if (const int error = writeBytes(bytes); error != 0) {
            throw std::system_error(error, std::generic_category(), name);
        }
    };
    FileBytes bytes(name);
    if (bytes.compressed() && !compressed) {
        throw std::runtime_error(name + ": compressed, as its name does not say with .zst at its end");
    }
    std::uint64_t lastPart = size - 1;
    if (compressed) {
        const std::optional<Frames> frames = walkFrames(descriptor);
        if (!frames) {
            // The first frame may have been cut within its header.
            if (size >= ZST_MAGIC.size()) {
                throw std::runtime_error(name + ": no compressed recording");
            }
            truncateTo(0);
            return;
        }
        truncateTo(frames->wholeEnd);
        if (frames->open && frames->plain) {
            append(ZST_LAST_BLOCK);
        }
        lastPart = frames->lastFrame;
    }
    Reader reader(name);
    if (const std::optional<Entry> first = reader.next()) {
        firstTime = first->sample.wallTime;
    }
    std::vector<char> end;
    bytes.restart(lastPart);
    char lastByte = '\n';
    for (;;) {
        const FileBytes::Got got = bytes.read(end);
        lastByte = end.empty() ? lastByte : end.back();
        end.clear();
        if (got == FileBytes::Got::end || got == FileBytes::Got::cut) {
            break;
        }
    }
    if (lastByte != '\n') {
        append(compressed ? frame->bytesOf("\n") : "\n");
    }
}

void Writer::rotate(double wallTime, std::size_t added) {
    if (!firstTime || size == 0 || openingFailed) {
        return;
    }
    const auto period = [&](double time) { return std::floor(time / static_cast<double>(*options.rotation.seconds)); };
    const bool due = (options.rotation.seconds && period(wallTime) != period(*firstTime)) ||
                     (options.rotation.bytes && size + added > *options.rotation.bytes);
    if (!due) {
        return;
    }
    if (!endFrame()) {
        return;
    }
    // Where two begin within a second, the later one's name is a second late.
    std::string aside = rotatedName(options.file, *firstTime);
    for (double later = *firstTime + 1; access(aside.c_str(), F_OK) == 0; ++later) {
        aside = rotatedName(options.file, later);
    }
    if (rename(options.file.c_str(), aside.c_str()) != 0) {
        if (!std::exchange(rotationFailed, true)) {
            options.tell(options.file + " cannot be put aside as " + aside + ": " + errorText(errno));
        }
        return;
    }
    rotationFailed = false;
    openNamed();
    removeOldest(std::filesystem::path(aside).filename().string());
}

// Goes on in the file that has the name now. Where that fails the former one goes on, whatever its name is.
bool Writer::openNamed() {
    const auto former = std::tuple(descriptor, size, firstTime);
    std::unique_ptr<Frame> formerFrame = std::exchange(frame, compressed ? std::make_unique<Frame>() : nullptr);
    try {
        openFile();
    } catch (const std::exception& error) {
        std::tie(descriptor, size, firstTime) = former;
        frame = std::move(formerFrame);
        if (!std::exchange(openingFailed, true)) {
            options.tell(std::string(error.what()) + "; samples go on in the former file");
        }
        return false;
    }
    openingFailed = false;
    if (formerFrame != nullptr && formerFrame->unfinished()) {
        [[maybe_unused]] const ssize_t ended =
            ::write(std::get<0>(former), ZST_LAST_BLOCK.data(), ZST_LAST_BLOCK.size());
    }
    close(std::get<0>(former));
    return true;
}

// Where the name has no file any more, or another one than is written, that is begun.
void Writer::followName() {
    struct stat named {};
    struct stat own {};
    if (stat(options.file.c_str(), &named) != 0) {
        if (errno != ENOENT) {
            return;  // whether it is there nobody knows
        }
    } else if (fstat(descriptor, &own) != 0 || (named.st_dev == own.st_dev && named.st_ino == own.st_ino)) {
        return;
    }
    const bool told = openingFailed;
    if (openNamed()) {
        options.tell(options.file + (told ? " takes samples again" : " was removed or moved; it begins anew"));
    }
}

// `newest` was put aside last.
void Writer::removeOldest(const std::string& newest) const {
    if (options.keep == 0) {
        return;
    }
    const auto [stem, extensions] = splitExtensions(options.file);
    const std::filesystem::path path(stem);
    const std::string begin = path.filename().string() + ".";
    std::vector<std::string> aside;
    std::error_code error;
    const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
    for (auto entry = std::filesystem::directory_iterator(directory, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.size() > begin.size() + extensions.size() && name.starts_with(begin) && name.ends_with(extensions) &&
            isStamp(std::string_view(name).substr(begin.size(), name.size() - begin.size() - extensions.size()))) {
            aside.push_back(name);
        }
    }
    // A name with a later time than the newest one's is of a clock that was ahead, or was set back since: it is older.
    std::sort(aside.begin(), aside.end());
    std::rotate(aside.begin(), std::upper_bound(aside.begin(), aside.end(), newest), aside.end());
    for (std::size_t index = 0; index + options.keep < aside.size(); ++index) {
        const std::filesystem::path old = directory / aside[index];
        if (!std::filesystem::remove(old, error) && error) {
            options.tell(old.string() + " cannot be removed: " + error.message());
        }
    }
}

void Writer::add(const Sample& sample) {
    put(sample.target, sample.wallTime, sample.monotonicTime, sampleLine(sample));
}

void Writer::addGap(const Target& target, double wallTime, double monotonicTime, std::int32_t rc,
                    const std::string& reason) {
    put(target, wallTime, monotonicTime, sampleLine(gapSample(target, wallTime, monotonicTime, rc), {.gap = reason}));
}

void Writer::put(const Target& target, double wallTime, double monotonicTime, const std::string& line) {
    followName();
    rotate(wallTime, line.size());
    std::string lines;
    for (const Gap& gap : lost) {
        lines +=
            sampleLine(gapSample(gap.target, gap.wallTime, gap.monotonicTime, RC_CONNECTION_LOST), {.gap = NO_ROOM});
    }
    const int error = write(lines + line);
    if (error == 0) {
        firstTime = firstTime.value_or(wallTime);
        lost.clear();
        if (std::exchange(failing, false)) {
            options.tell(options.file + " takes samples again");
        }
        return;
    }
    if (!std::exchange(failing, true)) {
        options.tell(options.file + " takes no more samples, which are lost until it does: " + errorText(error));
    }
    const bool known = std::any_of(lost.begin(), lost.end(), [&](const Gap& gap) {
        return gap.target.host == target.host && gap.target.port == target.port;
    });
    if (!known) {
        lost.push_back({target, wallTime, monotonicTime});
    }
}

int Writer::write(const std::string& lines) {
    if (frame == nullptr) {
        return writeBytes(lines);
    }
    const bool unfinished = frame->unfinished();
    const int error = writeBytes(frame->bytesOf(lines));
    if (error != 0) {
        frame->drop(unfinished);
    }
    return error;
}

// Returns false where the file does not take it.
bool Writer::endFrame() {
    const bool unfinished = frame != nullptr && frame->unfinished();
    const bool ended = !unfinished || writeBytes(ZST_LAST_BLOCK) == 0;
    if (frame != nullptr) {
        frame->drop(!ended);
    }
    return ended;
}

// All of them or none. Returns an error number.
int Writer::writeBytes(std::string_view bytes) {
    std::string_view left = bytes;
    while (!left.empty()) {
        const ssize_t written = ::write(descriptor, left.data(), left.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int error = written < 0 ? errno : ENOSPC;
            // What is left of the line where this fails too is one that readers pass over.
            [[maybe_unused]] const int cut = ftruncate(descriptor, static_cast<off_t>(size));
            return error;
        }
        left.remove_prefix(static_cast<std::size_t>(written));
    }
    size += bytes.size();
    return 0;
}

}  // namespace recording
