// zulstat report: recordings as one page.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

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

// A file that appears under its name once it is whole. What is there already and is no file, as a pipe, is written to.
class NewFile {
public:
    explicit NewFile(const std::string& file) : name(file) {
        struct stat there {};
        const bool special = stat(name.c_str(), &there) == 0 && !S_ISREG(there.st_mode);
        temporary = special ? "" : fmt::format("{}.{}.part", name, getpid());
        descriptor = open((special ? name : temporary).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
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
        if (!whole || (!temporary.empty() && std::rename(temporary.c_str(), name.c_str()) != 0)) {
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
    std::string temporary;  // empty: it is written to as it is
    int descriptor = -1;
};

}  // namespace

int runReport(const Options& options) {
    if (options.outputFile.empty() && isatty(STDOUT_FILENO) == 1) {
        throw UsageError{"name the page with -o", "report"};
    }
    Timelines lines({}, options.mapper);
    const std::vector<PageFile> files = readTimelines(options.files, options, lines);
    if (lines.rows().empty()) {
        complain(lines.gateways().empty() ? "there is no sample in that time" : "nothing matches what is asked for");
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
