// Why a sample could not be had.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "sample.h"

namespace monitor {

// What a worker is at, in the order of a connection's life.
enum class Phase : std::uint8_t { starting, tracing, resolving, opening, querying, closing };

enum class FailureKind : std::uint8_t {
    deadline,       // no answer in time; `phase` says what stalled
    cannotConnect,  // no connection to the host and port
    lost,           // the connection broke, or the Gateway gave it up
    refused,        // the Gateway refused the request, or its answer cannot be used
    libraryCode,    // any other code of the library
    internal,       // the worker could not be started, died, or says what is not understood
    interrupted,    // the caller's interrupt descriptor became readable
    forbidden,      // the host has addresses in none of the networks allowed; `text` has them
};

struct Failure {
    FailureKind kind = FailureKind::internal;
    Phase phase = Phase::starting;
    int rc = 0;  // the library's code, see codes.h; 0 where none is involved
    // deadline, interrupted: what stalled, as describeWait() has it; for a deadline while tracing the trace file's
    // name. cannotConnect while resolving: the resolver's reason. internal: what failed. Else empty.
    std::string text;
};

// Whether a later attempt may succeed: a Gateway may have been started again, and a worker is a new one.
bool mayPass(const Failure& failure);

// What a query waits for in a phase: "connection open, waiting for group conn". Names are the caller's bytes.
std::string describeWait(Phase phase, const Query& query);

// One line, without a line end of its own: "cannot connect to gw1:7531: ...". It holds bytes of the caller's (host,
// trace file, identifiers) as they are: who shows it escapes it.
std::string describeFailure(const Failure& failure, const Target& target, std::chrono::duration<double> timeout);

}  // namespace monitor
