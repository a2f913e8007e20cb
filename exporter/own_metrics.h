// The metrics of the exporter itself, and those of one probe.
#pragma once

#include <string>
#include <string_view>

#include "http.h"
#include "monitor/openmetrics.h"
#include "targets.h"

namespace exporter {

// Words of labels.
std::string_view phaseWord(monitor::Phase phase);
std::string_view kindWord(monitor::FailureKind kind);

// What the exporter knows of itself besides its targets and connections.
struct OwnState {
    double startTime = 0;  // seconds since 1970
    bool reloadSucceeded = true;
    double reloadTime = 0;              // of the last one that succeeded
    std::uint64_t logLinesDropped = 0;  // that nobody took
};

std::string ownMetrics(monitor::MetricsFormat format, const Targets& targets, const HttpServer& server,
                       const HttpLimits& limits, const OwnState& state);

// What a probe gives: its success, and either the statistics or the failure.
std::string probeMetrics(monitor::MetricsFormat format, ProbeResult& result, monitor::Mapper& mapper);
// The same with phases and times before it, for people.
std::string probeDebug(ProbeResult& result, monitor::Mapper& mapper);

}  // namespace exporter
