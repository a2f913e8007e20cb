#include "own_metrics.h"

#include <dirent.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>

#include "monitor/codes.h"
#include "monitor/utf8.h"

namespace exporter {

using namespace monitor;

namespace {

constexpr std::array<std::string_view, START_REASONS> START_WORDS = {"first", "idle", "renewed", "failure",
                                                                     "too_large"};

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Adds metrics of the same kind in short lines.
class Writer {
public:
    explicit Writer(MetricsFormat format) : metrics(format) {
    }
    void gauge(std::string_view name, std::string_view help, auto value, const Labels& labels = {}) {
        metrics.add(name, MetricType::gauge, help, labels, fmt::format("{}", value));
    }
    void counter(std::string_view name, std::string_view help, auto value, const Labels& labels = {}) {
        metrics.add(name, MetricType::counter, help, labels, fmt::format("{}", value));
    }
    OpenMetrics metrics;
};

void addProcess(Writer& to, const OwnState& state) {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    to.counter("process_cpu_seconds", "Processor time of the exporter, without its workers.",
               seconds(used.ru_utime) + seconds(used.ru_stime));
    unsigned long pages = 0;
    unsigned long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    const auto pageSize = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
    to.gauge("process_virtual_memory_bytes", "Virtual memory.", pages * pageSize);
    to.gauge("process_resident_memory_bytes", "Resident memory.", resident * pageSize);
    long descriptors = -3;  // . and .. and the one for looking
    if (DIR* const directory = opendir("/proc/self/fd")) {
        while (readdir(directory) != nullptr) {
            ++descriptors;
        }
        closedir(directory);
    }
    to.gauge("process_open_fds", "Open file descriptors.", descriptors);
    rlimit most{};
    getrlimit(RLIMIT_NOFILE, &most);
    to.gauge("process_max_fds", "Most file descriptors that may be open.", most.rlim_cur);
    to.gauge("process_start_time_seconds", "When the exporter was started, in seconds since 1970.", state.startTime);
}

void addProbeState(OpenMetrics& to, const ProbeResult& result, const Labels& labels) {
    to.add("zulstat_up", MetricType::gauge, "Whether the Gateway's statistics could be had.", labels,
           result.succeeded() ? "1" : "0");
    to.add("zulstat_probe_seconds", MetricType::gauge, "How long the probe took.", labels,
           fmt::format("{}", result.seconds));
    if (result.failure) {
        const Failure& failure = *result.failure;
        const Code* const code = findCode(failure.rc);
        Labels why = labels;
        why.emplace_back("phase", phaseWord(failure.phase));
        why.emplace_back("kind", kindWord(failure.kind));
        why.emplace_back("code", std::to_string(failure.rc));
        why.emplace_back("name", code == nullptr ? "" : std::string(code->name));
        to.add("zulstat_failure", MetricType::info, "Why they could not.", why, "1");
        return;
    }
    to.add("zulstat_answers", MetricType::gauge, "In how many answers of the Gateway the statistics came.", labels,
           std::to_string(result.sample.parts));
}

}  // namespace

std::string_view phaseWord(Phase phase) {
    constexpr std::array<std::string_view, 6> words = {"starting", "tracing",  "resolving",
                                                       "opening",  "querying", "closing"};
    return words[static_cast<std::size_t>(phase)];
}

std::string_view kindWord(FailureKind kind) {
    constexpr std::array<std::string_view, 8> words = {"deadline",     "cannot_connect", "lost",        "refused",
                                                       "library_code", "internal",       "interrupted", "forbidden"};
    return words[static_cast<std::size_t>(kind)];
}

std::string ownMetrics(MetricsFormat format, const Targets& targets, const HttpServer& server, const HttpLimits& limits,
                       const OwnState& state) {
    Writer to(format);
    const ProbeCounts& probes = targets.counts();
    to.metrics.add("zulstat_exporter_build", MetricType::info, "The exporter's version.",
                   {{"version", ZULSTAT_EXPORTER_VERSION}}, "1");
    to.counter("zulstat_exporter_probes", "Probes that ended.", probes.succeeded, {{"result", "success"}});
    std::uint64_t failures = 0;
    for (const auto& [what, count] : probes.failed) {
        failures += count;
    }
    to.counter("zulstat_exporter_probes", "", failures, {{"result", "failure"}});
    for (const auto& [what, count] : probes.failed) {
        to.counter("zulstat_exporter_failures", "Probes that failed, by phase and kind.", count,
                   {{"phase", std::string(phaseWord(what.first))}, {"kind", std::string(kindWord(what.second))}});
    }
    for (const char* const reason : {"module", "not_allowed", "probes", "target", "gone", "targets", "workers"}) {
        const auto count = probes.refused.find(reason);
        to.counter("zulstat_exporter_refused", "Probes that were not made, by reason.",
                   count == probes.refused.end() ? 0 : count->second, {{"reason", reason}});
    }
    to.counter("zulstat_exporter_probe_seconds", "Time that probes took, together.", probes.seconds);
    to.counter("zulstat_exporter_split", "Probes whose statistics were too many for one answer.", probes.split);
    for (std::size_t reason = 0; reason < START_REASONS; ++reason) {
        to.counter("zulstat_exporter_worker_starts", "Workers started, by reason.", probes.starts[reason],
                   {{"reason", std::string(START_WORDS[reason])}});
    }
    for (const MappingCount& count : mappingCounts()) {
        to.counter("zulstat_exporter_mapping", "Values that did not become what rules and limits say, by reason.",
                   probes.mapping.*count.count, {{"reason", std::string(count.name)}});
    }
    to.gauge("zulstat_exporter_targets", "Targets that are known.", targets.size());
    to.gauge("zulstat_exporter_workers", "Workers that run.", targets.workers());
    to.gauge("zulstat_exporter_queue", "Probes in progress and waiting.", targets.inProgress());
    const HttpCounts http = server.counts();
    to.gauge("zulstat_exporter_connections", "Open HTTP connections.", server.connections());
    to.counter("zulstat_exporter_connections_accepted", "HTTP connections accepted.", http.connections);
    const char* const refused = "HTTP connections refused or ended, by reason.";
    to.counter("zulstat_exporter_connections_ended", refused, http.refusedTotal, {{"reason", "connections"}});
    to.counter("zulstat_exporter_connections_ended", refused, http.refusedPerClient, {{"reason", "client"}});
    to.counter("zulstat_exporter_connections_ended", refused, http.closedLate, {{"reason", "time"}});
    to.counter("zulstat_exporter_unauthorized", "Requests without a right user and password.", http.unauthorized);
    const auto limit = [&](const char* name, auto value) {
        to.gauge("zulstat_exporter_limit", "The limits set, by option.", value, {{"limit", name}});
    };
    limit("targets", targets.limits().targets);
    limit("workers", targets.limits().workers);
    limit("probes", targets.limits().probes);
    limit("target-probes", targets.limits().targetProbes);
    limit("connections", limits.connections);
    limit("client-connections", limits.connectionsPerClient);
    limit("header-size", limits.headerSize);
    limit("request-time", limits.requestSeconds);
    limit("idle-time", limits.idleSeconds);
    limit("worker-idle-time", std::chrono::duration<double>(targets.limits().gateway.idle).count());
    limit("worker-scrapes", targets.limits().gateway.scrapes);
    to.gauge("zulstat_exporter_reload_successful", "Whether the last reload of the configuration succeeded.",
             state.reloadSucceeded ? 1 : 0);
    to.gauge("zulstat_exporter_reload_success_timestamp_seconds",
             "When the configuration in force was loaded, in seconds since 1970.", state.reloadTime);
    to.counter("zulstat_exporter_log_lines_dropped", "Lines of the log that could not be written.",
               state.logLinesDropped);
    addProcess(to, state);
    return to.metrics.text();
}

std::string probeMetrics(MetricsFormat format, ProbeResult& result, Mapper& mapper) {
    OpenMetrics metrics(format);
    const Labels labels = {{"target", targetText(result.target)}};
    addProbeState(metrics, result, labels);
    if (result.succeeded()) {
        metrics.add(result.sample, labels, &mapper);
    }
    return metrics.text();
}

std::string probeDebug(ProbeResult& result, Mapper& mapper) {
    std::string text = fmt::format("Target:     {}\nModule:     {}\nAsked for:  {}", targetText(result.target),
                                   result.module->name, whatName(result.module->query().what));
    for (const std::string& group : result.module->groups) {
        text += " " + group;
    }
    text += fmt::format("\nDeadline:   {:.3f} s\nTook:       {:.6f} s, of them {:.6f} s behind other probes\n",
                        result.limit, result.seconds, result.waited);
    for (const PhaseTime& phase : result.phases) {
        text += fmt::format("  {:<10} {:.6f} s\n", phaseWord(phase.phase), phase.seconds);
    }
    const Sample& sample = result.sample;
    if (result.failure) {
        text += fmt::format("Failure:    {}\nHint:       {}\n", result.failureText(), result.hint());
    } else {
        text += fmt::format(
            "Connection: {}, protocol {}, opened in {:.6f} s\nAnswer:     {} statistics of {} elements, {} failed, in "
            "{:.6f} s; {} of {} bytes, {} answers\n",
            sample.freshConnection ? "new" : "kept", sample.protocol, sample.openSeconds, sample.items.size(),
            sample.elements.size(), failedElements(sample), sample.querySeconds, sample.contentSize, RESULT_SET_LIMIT,
            sample.parts);
    }
    return repairUtf8(text) + "\nMetrics:\n" + probeMetrics(MetricsFormat::text, result, mapper);
}

}  // namespace exporter
