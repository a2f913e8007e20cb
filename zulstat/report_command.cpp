// zulstat report: recordings as one page.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "commands.h"
#include "options.h"
#include "output.h"
#include "page.h"
#include "recorded.h"
#include "report.h"
#include "text.h"
#include "timeline.h"

namespace zulstat {

namespace {

// What a name means behind all links, whether it is there or not; nothing for a link to an open descriptor.
std::optional<std::string> linkedFile(const std::string& name) {
    constexpr int mostLinks = 40;  // as the system follows
    std::filesystem::path path = name;
    for (int links = 0; links < mostLinks; ++links) {
        std::error_code error;
        const std::filesystem::path to = std::filesystem::read_symlink(path, error);
        if (error) {
            break;
        }
        const std::filesystem::path folder =
            std::filesystem::canonical(path.has_parent_path() ? path.parent_path() : std::filesystem::path("."), error);
        if (error) {
            break;
        }
        if (folder.native().starts_with("/proc/")) {
            return std::nullopt;
        }
        path = folder / to;
    }
    return path.native();
}

// Whether the page would take the place of the recording.
bool isSameFile(const std::string& page, const std::string& recording) {
    struct stat one {};
    struct stat other {};
    return stat(page.c_str(), &one) == 0 && stat(recording.c_str(), &other) == 0 && S_ISREG(one.st_mode) &&
           one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// A file that appears under its name once it is whole. What is there already and is no file, as a pipe, is written to.
class NewFile {
public:
    explicit NewFile(const std::string& file) : name(file) {
        struct stat there {};
        const std::optional<std::string> named = linkedFile(name);
        const bool special = !named || (stat(name.c_str(), &there) == 0 && !S_ISREG(there.st_mode));
        place = special ? name : *named;
        temporary = special ? "" : fmt::format("{}.{}.part", place, getpid());
        // What lies behind a descriptor may have other text already.
        const int mode = special ? O_APPEND : O_CREAT | O_TRUNC;
        descriptor = open((special ? place : temporary).c_str(), O_WRONLY | O_CLOEXEC | mode, 0666);
        if (descriptor < 0) {
            fail();
        }
    }
    ~NewFile() {
        if (descriptor >= 0) {
            close(descriptor);
            remove();
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(std::string_view text) {
        switch (writeAll(descriptor, text)) {
        case Written::all:
            return;
        case Written::interrupted:
            throw Interrupted();
        case Written::closed:
        case Written::failed:
            fail();
        }
    }
    void finish() {
        const bool whole = close(descriptor) == 0;
        descriptor = -1;
        if (!whole || (!temporary.empty() && std::rename(temporary.c_str(), place.c_str()) != 0)) {
            const int error = errno;
            remove();
            errno = error;
            fail();
        }
    }

private:
    [[noreturn]] void fail() const {
        throw OutputError(fmt::format("cannot write {}: {}", escapeForTerminal(name), std::strerror(errno)));
    }
    void remove() const {
        if (!temporary.empty()) {
            unlink(temporary.c_str());
        }
    }

    const std::string name;
    std::string place;      // where it is, behind all links
    std::string temporary;  // empty: it is written to as it is
    int descriptor = -1;
};

}  // namespace

int runReport(const Options& options) {
    if (options.outputFile.empty() && isatty(STDOUT_FILENO) == 1) {
        throw UsageError{"name the page with -o", "report"};
    }
    for (const std::string& file : options.files) {
        if (isSameFile(options.outputFile, file)) {
            throw UsageError{fmt::format("the page {} is the recording {}", options.outputFile, file), "report"};
        }
    }
    Timelines lines({}, options.mapper);
    const std::vector<PageFile> files = readTimelines(options.files, options, lines);
    if (lines.rows().empty()) {
        complainOfNothing(lines);
        return exitPartly;
    }
    if (options.outputFile.empty()) {
        writePage(lines, files, print);
        return exitOk;
    }
    NewFile page(options.outputFile);
    writePage(lines, files, [&](std::string_view text) { page.write(text); });
    page.finish();
    return exitOk;
}

}  // namespace zulstat
