// zulstat-exporter: statistics of Gateways, for Prometheus.
#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "allow.h"
#include "handler.h"
#include "http.h"
#include "log.h"
#include "monitor/mapping_file.h"
#include "options.h"
#include "own_metrics.h"
#include "targets.h"
#include "web_config.h"

namespace {

using namespace exporter;
using namespace monitor;

constexpr std::chrono::milliseconds tidyEvery(1000);
constexpr std::chrono::seconds endLimit(2);
constexpr int KEPT_MEMORY = 8 << 20;  // bytes, for the next answers

enum ExitCode { exitOk = 0, exitFailed = 1, exitUsage = 2 };

double wallTime() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

constexpr MappingChecks CHECKS = {wordExpected, targetExpected};

// The descriptors of many connections and workers.
void raiseLimits() {
    rlimit most{};
    if (getrlimit(RLIMIT_NOFILE, &most) == 0) {
        most.rlim_cur = most.rlim_max;
        setrlimit(RLIMIT_NOFILE, &most);
    }
}

void fillStandardDescriptors() {
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

// Everything in one loop and one thread: requests, probes and signals.
class Program {
public:
    explicit Program(const Options& given)
        : options(given),
          targets(
              findWorker(), given.targets, given.dryRun ? Report() : [this](const std::string& line) { say(line); }) {
        sigset_t wanted;
        sigemptyset(&wanted);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            sigaddset(&wanted, signal);
        }
        sigprocmask(SIG_BLOCK, &wanted, nullptr);
        signals = signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
        load();
        state.startTime = wallTime();
    }
    ~Program() {
        close(signals);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    int run() {
        context.reload = [this](std::string& why) { return reload(why); };
        server = std::make_unique<HttpServer>(options.listenAddress, options.http, web.tls, users,
                                              [this](const HttpRequest& request) { return handle(context, request); });
        server->setHeaders(web.headers);
        context.server = server.get();
        announce();
        Clock::time_point nextTidy = Clock::now() + tidyEvery;
        while (!ending) {
            wait(nextTidy);
            const Clock::time_point now = Clock::now();
            if (ready(signals)) {
                takeSignals();
            }
            state.logLinesDropped = logLinesDropped();
            if (ready(users.descriptor())) {
                server->takePasswords();
            }
            server->step();
            targets.step(Clock::now());
            if (now >= nextTidy) {
                nextTidy = now + tidyEvery;
                for (const std::uint64_t id : server->tidy(now)) {
                    if (targets.forget(id)) {
                        server->answer(id, {503, "text/plain; charset=utf-8", "The client has gone.\n", {}});
                    }
                }
                targets.tidy(now);
            }
        }
        return end();
    }

    int dryRun() {
        if (options.dryRunTarget.empty()) {
            std::cout << "The configuration is right.\n";
            return exitOk;
        }
        std::string text;
        bool succeeded = false;
        const std::optional<Refusal> refusal =
            targets.probe(*parseTarget(options.dryRunTarget), moduleOf(options.dryRunTarget), Clock::now(),
                          probeSeconds(std::nullopt, 0, std::nullopt), [&](ProbeResult& result, Mapper& mapper) {
                              text = probeDebug(result, mapper);
                              succeeded = result.succeeded();
                              for (const MappingCount& count : mappingCounts()) {
                                  if (mapper.counts.*count.count > 0) {
                                      text += fmt::format("# {}: {}\n", count.name, mapper.counts.*count.count);
                                  }
                              }
                          });
        if (refusal) {
            log(refusal->why);
            return exitFailed;
        }
        targets.step(Clock::now());
        while (!targets.idle() && text.empty()) {
            descriptors();
            poll(watched.data(), watched.size(), pollTime(targets.nextWake(), Clock::now()));
            targets.step(Clock::now());
        }
        std::cout << text;
        return succeeded ? exitOk : exitFailed;
    }

private:
    void load() {
        std::string text = options.configFile.empty() ? "" : contentOf(options.configFile);
        MappingFile file = parseMapping(text, options.configFile, CHECKS);
        WebConfig read;
        if (!options.webConfigFile.empty()) {
            read = readWebConfig(options.webConfigFile);
        }
        if (server && (read.tls == nullptr) != (web.tls == nullptr)) {
            throw std::runtime_error(options.webConfigFile + ": TLS is turned on and off by a new start only");
        }
        config = std::move(file);
        configText = std::move(text);
        web = std::move(read);
        users.setUsers(web.users);
        if (server) {
            server->setTls(web.tls);
            server->setHeaders(web.headers);
        }
        targets.configure(config, Clock::now());
        state.reloadTime = wallTime();
    }

    // Where a file is bad, everything stays as it is.
    bool reload(std::string& why) {
        notifyManager(fmt::format(
            "RELOADING=1\nMONOTONIC_USEC={}",
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
                .count()));
        try {
            load();
            state.reloadSucceeded = true;
            say("configuration loaded");
        } catch (const std::exception& error) {
            why = error.what();
            state.reloadSucceeded = false;
            log("the former configuration stays in force: " + why);
        }
        notifyManager("READY=1");
        return state.reloadSucceeded;
    }

    void announce() {
        if (!options.portFile.empty()) {
            const std::string part = options.portFile + ".new";
            std::ofstream file(part);
            file << server->port() << '\n';
            file.close();
            if (!file || std::rename(part.c_str(), options.portFile.c_str()) != 0) {
                throw std::runtime_error("cannot write " + options.portFile);
            }
        }
        say(fmt::format("listening at {} (port {})", targetText(options.listenAddress), server->port()));
        notifyManager("READY=1");
    }

    void say(const std::string& text) const {
        if (!options.quiet) {
            log(text);
        }
    }

    void descriptors() {
        watched.clear();
        targets.forEachDescriptor([&](int descriptor) { watched.push_back({descriptor, POLLIN, 0}); });
    }

    void wait(Clock::time_point nextTidy) {
        descriptors();
        watched.push_back({signals, POLLIN, 0});
        watched.push_back({server->descriptor(), POLLIN, 0});
        watched.push_back({users.descriptor(), POLLIN, 0});
        const Clock::time_point now = Clock::now();
        const Clock::time_point wake = std::min({nextTidy, targets.nextWake(), server->nextWake(now)});
        poll(watched.data(), watched.size(), pollTime(wake, now));
    }

    // As the last poll() told.
    bool ready(int descriptor) const {
        return std::any_of(watched.begin(), watched.end(),
                           [&](const pollfd& one) { return one.fd == descriptor && one.revents != 0; });
    }

    void takeSignals() {
        signalfd_siginfo info{};
        while (read(signals, &info, sizeof info) == sizeof info) {
            if (info.ssi_signo == SIGHUP) {
                std::string why;
                reload(why);
            } else {
                ending = true;
            }
        }
    }

    // Gateways are told, as far as they answer soon.
    int end() {
        notifyManager("STOPPING=1");
        say("ending");
        const Clock::time_point limit = Clock::now() + endLimit;
        targets.cancelAll();
        server->end();
        targets.closeAll(Clock::now());
        while (!targets.idle() && Clock::now() < limit) {
            server->step();
            descriptors();
            watched.push_back({server->descriptor(), POLLIN, 0});
            const Clock::time_point now = Clock::now();
            poll(watched.data(), watched.size(),
                 pollTime(std::min({limit, targets.nextWake(), server->nextWake(now)}), now));
            targets.step(Clock::now());
        }
        server.reset();
        return exitOk;
    }

    std::string moduleOf(const std::string& target) const {
        for (const ConfiguredTarget& one : config.targets) {
            if (one.target == target) {
                return one.module;
            }
        }
        return "default";
    }

    const Options& options;
    Targets targets;
    Authenticator users;
    MappingFile config;
    std::string configText;
    WebConfig web;
    OwnState state;
    int signals = -1;
    bool ending = false;
    std::unique_ptr<HttpServer> server;
    std::vector<pollfd> watched;
    HandlerContext context{targets,           options.http, state,  configText, config, options.timeoutOffset,
                           options.lifecycle, {},           nullptr};
};

}  // namespace

int main(int argc, char** argv) {
    fillStandardDescriptors();
    mallopt(M_TRIM_THRESHOLD, KEPT_MEMORY);
    mallopt(M_MMAP_THRESHOLD, KEPT_MEMORY);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        const Options options = parseOptions(argc, argv);
        raiseLimits();
        Program program(options);
        return options.dryRun ? program.dryRun() : program.run();
    } catch (const TextWanted& wanted) {
        std::cout << wanted.text;
        return exitOk;
    } catch (const UsageError& error) {
        log(error.text);
        log("try 'zulstat-exporter --help'");
        return exitUsage;
    } catch (const std::exception& error) {
        log(error.what());
        return exitFailed;
    }
}
