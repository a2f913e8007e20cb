#include "options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>

#include "allow.h"

namespace exporter {

namespace {

template <typename Value>
CLI::Option* addOption(CLI::App& app, const std::string& name, Value& value, const std::string& help,
                       const std::string& type) {
    return app.add_option(name, value, help)->option_text(type)->take_last();
}

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string listenAddress = targetText(options.listenAddress);
    double idle = std::chrono::duration<double>(options.targets.gateway.idle).count();
    CLI::App app("Statistics of Gateways, for Prometheus: /probe?target=HOST:PORT.", "zulstat-exporter");
    app.set_help_flag("-h,--help", "print this text");
    app.set_version_flag("-V,--version", std::string("zulstat-exporter ") + ZULSTAT_EXPORTER_VERSION,
                         "print the version");
    app.footer("Exit status: 0 ended by SIGTERM or SIGINT, 1 cannot listen or read a file, 2 bad usage.");
    addOption(app, "--web.listen-address", listenAddress, "where to listen (127.0.0.1:9753); port 0: any free one",
              "HOST:PORT");
    addOption(app, "--web.config.file", options.webConfigFile, "TLS and users", "FILE");
    app.add_flag("--web.enable-lifecycle", options.lifecycle,
                 "POST /-/reload reloads the configuration, as SIGHUP does");
    addOption(app, "--web.port-file", options.portFile, "write the port to this file once listening", "FILE");
    addOption(app, "--config.file", options.configFile, "targets, allowed addresses and modules", "FILE");
    app.add_flag("--dry-run", options.dryRun, "check the files and end; with --target, print what it would give");
    addOption(app, "--target", options.dryRunTarget, "for --dry-run", "HOST:PORT");
    addOption(app, "--timeout-offset", options.timeoutOffset, "seconds that a scrape's time-out is shortened by (0.5)",
              "SECONDS")
        ->check(CLI::Range(0.0, 60.0));
    const auto addLimit = [&](const std::string& name, auto& value, const std::string& help, double low, double high) {
        addOption(app, "--limit." + name, value, fmt::format("{} ({})", help, value), "N")
            ->check(CLI::Range(low, high));
    };
    addLimit("connections", options.http.connections, "HTTP connections", 1, 100000);
    addLimit("client-connections", options.http.connectionsPerClient, "of them from one address", 1, 100000);
    addLimit("header-size", options.http.headerSize, "bytes of a request's line and headers", 1024, 1048576);
    addLimit("request-time", options.http.requestSeconds, "seconds for a request and its answer", 1, 3600);
    addLimit("idle-time", options.http.idleSeconds, "seconds between requests of a connection", 1, 86400);
    addLimit("targets", options.targets.targets, "targets that are known", 1, 100000);
    addLimit("workers", options.targets.workers, "workers, one for each connection to a Gateway", 1, 100000);
    addLimit("probes", options.targets.probes, "probes in progress and waiting", 1, 100000);
    addLimit("target-probes", options.targets.targetProbes, "of them of one target", 1, 100000);
    addLimit("worker-idle-time", idle, "seconds until an unused connection to a Gateway is closed", 1, 86400);
    addLimit("worker-scrapes", options.targets.gateway.scrapes, "scrapes until a worker is renewed", 1, 1000000000);
    app.add_flag("-q,--quiet", options.quiet, "no messages but errors");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        throw TextWanted{app.help()};
    } catch (const CLI::CallForVersion& version) {
        throw TextWanted{std::string(version.what()) + "\n"};
    } catch (const CLI::ParseError& error) {
        throw UsageError{error.what()};
    }
    if (const std::optional<monitor::Target> parsed = parseListenAddress(listenAddress)) {
        options.listenAddress = *parsed;
    } else {
        throw UsageError{fmt::format("'{}' is not a host and a port, such as 127.0.0.1:9753", listenAddress)};
    }
    if (!options.dryRunTarget.empty() && (!options.dryRun || !parseTarget(options.dryRunTarget))) {
        throw UsageError{options.dryRun
                             ? fmt::format("'{}' is not {}", options.dryRunTarget, targetExpected(options.dryRunTarget))
                             : "--target goes with --dry-run"};
    }
    options.targets.gateway.idle = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(idle));
    return options;
}

}  // namespace exporter
