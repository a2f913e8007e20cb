// zulstat: shows the statistics of a Gateway.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <string>
#include <string_view>

#include "charset.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "text.h"

namespace {

using namespace zulstat;

// A standard descriptor that was closed before the start would become the next socket, and messages would go to it.
// A write to standard output, which is opened for reading, fails as on a closed one.
void fillStandardDescriptors() {
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

int run(const Options& options) {
    switch (options.command) {
    case Command::stats:
    case Command::ids:
    case Command::groups:
        return runQuery(options);
    case Command::watch:
        return runWatch(options);
    case Command::record:
        return runRecord(options);
    case Command::top:
        return runTop(options);
    case Command::plot:
        return runPlot(options);
    case Command::diff:
        return runDiff(options);
    case Command::report:
        return runReport(options);
    case Command::ping:
        return runPing(options);
    case Command::explain:
        return runExplain(options);
    case Command::check:
        return runCheck(options);
    case Command::map:
        return runMap(options);
    case Command::config:
        return runConfig(options);
    case Command::complete:
        return runComplete(options);
    case Command::demo:
        return runDemo(options);
    }
    return exitInternal;
}

int parseAndRun(int argc, char** argv) {
    try {
        return run(parseOptions(argc, argv));
    } catch (const TextWanted& wanted) {
        print(wanted.text);
        return exitOk;
    } catch (const UsageError& error) {
        complain(escapeForTerminal(error.text));
        complain(error.command.empty() ? "try 'zulstat --help'" : "try 'zulstat " + error.command + " --help'");
        return error.command == "check" ? concludeUnknown(error.text) : exitUsage;
    }
}

}  // namespace

int main(int argc, char** argv) {
    fillStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);  // where it is ignored, a worker's process number is free before it is killed by it
    setLocale();
    try {
        catchInterrupts();
        return parseAndRun(argc, argv);
    } catch (const OutputClosed&) {
        return exitOk;
    } catch (const Interrupted&) {
        return exitInterrupted;
    } catch (const std::exception& error) {
        complain(error.what());
        return exitInternal;
    }
}
