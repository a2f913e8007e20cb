// All targets that were probed or are configured, and what is known of them.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "allow.h"
#include "monitor/mapping_file.h"
#include "probe.h"

namespace exporter {

struct TargetLimits {
    GatewayLimits gateway;
    std::size_t targets = 1000;  // names whose probe has to tell whether they are allowed come on top until it ends
    std::size_t workers = 1000;
    std::size_t probes = 1000;      // in progress and waiting, of all targets
    std::size_t targetProbes = 10;  // of them of one target
};

struct PastProbe {
    double seconds = 0;
    bool succeeded = false;
};

// One row of the page.
struct TargetState {
    std::string name;  // host:port
    std::string module;
    bool configured = false;
    bool probed = false;
    bool up = false;
    double lastTime = 0;  // of the last probe, seconds since 1970
    double seconds = 0;
    std::size_t statistics = 0;
    std::size_t contentBytes = 0;
    std::size_t parts = 0;
    std::string failure;  // the last one, and when
    std::string hint;
    double failureTime = 0;
    std::deque<PastProbe> past;  // the last ones, oldest first
};

inline constexpr std::size_t PAST_PROBES = 60;

// Numbers of the exporter itself. All of them only grow.
struct ProbeCounts {
    std::uint64_t succeeded = 0;
    std::map<std::pair<monitor::Phase, monitor::FailureKind>, std::uint64_t> failed;
    std::map<std::string, std::uint64_t> refused;  // by reason
    StartCounts starts{};
    monitor::MappingCounts mapping;
    double seconds = 0;       // of all probes together
    std::uint64_t split = 0;  // probes whose answer was too large for one
};

// What a client is told of a target that is not allowed.
inline constexpr const char* NOT_ALLOWED = "The target is not allowed: see 'allow' in the configuration.";

// Why a probe is not made.
struct Refusal {
    unsigned status = 0;  // of HTTP
    std::string why;
};

// Takes a line for the log.
using Report = std::function<void(const std::string& line)>;

// Use it from one thread. Probes go on in step(), which calls what probe() was given.
class Targets {
public:
    // `report` has a line for each target that goes down or comes up again, with a limit.
    Targets(std::string workerProgram, const TargetLimits& limits, Report report = {});

    // The configuration's targets, modules and allow list. Probes in progress keep their module.
    void configure(const monitor::MappingFile& file, Clock::time_point now);

    // Nothing where a probe was begun: `done` is called once, unless forget() or cancelAll() come before.
    std::optional<Refusal> probe(const monitor::Target& target, const std::string& module, Clock::time_point now,
                                 double seconds, ProbeDone done, std::uint64_t client = 0);
    // Drops the probe of a client that has gone, where it waits still. Returns whether it did.
    bool forget(std::uint64_t client);
    // The seconds that the module allows; nothing where it says nothing, or is not there.
    std::optional<double> moduleDeadline(const std::string& module) const;

    // Calls use(descriptor) for each that is to be polled for POLLIN.
    void forEachDescriptor(const std::function<void(int)>& use) const;
    Clock::time_point nextWake() const;
    void step(Clock::time_point now);
    // Once in a while: closes idle connections, and reports how many lines the limit left out.
    void tidy(Clock::time_point now);
    // Ends the probes that wait, and forgets those in progress: nothing is called any more.
    void cancelAll();
    // Asks every Gateway to close; step() until idle() or nobody wants to wait longer.
    void closeAll(Clock::time_point now);
    bool idle() const {
        return active.empty();
    }

    std::vector<TargetState> states() const;
    const ProbeCounts& counts() const {
        return counters;
    }
    std::size_t size() const {
        return known.size();
    }
    std::size_t workers() const;
    std::size_t inProgress() const;  // probes, those that wait included
    const TargetLimits& limits() const {
        return bounds;
    }

private:
    struct Known {
        std::unique_ptr<Gateway> gateway;  // from the first probe on; only configured targets are there without
        TargetState state;
        bool active = false;
        // Whether an address of it may be dialled, as far as is known: one that was configured, is an address or fits a
        // glob may, and another one once a probe of it has come so far.
        bool admitted = false;
    };

    Known* findOrAdd(const monitor::Target& target, const std::string& name, const std::string& networks);
    std::map<std::string, std::unique_ptr<Known>>::iterator nextToGo();
    void retire(Known& target);
    bool roomForWorker(Clock::time_point now);
    void note(Known& target, ProbeResult& result);
    void tell(const std::string& line);
    Refusal refuse(const char* reason, unsigned status, std::string why);
    void activate(Known& target);

    std::string worker;
    TargetLimits bounds;
    monitor::MappingFile config;
    AllowList allowed;
    std::map<std::string, std::unique_ptr<Known>> known;  // by name
    std::vector<Known*> active;                           // with something in progress
    ProbeCounts counters;
    Report report;
    // Lines since toldSince that were reported, and those above the limit.
    Clock::time_point toldSince;
    std::size_t told = 0;
    std::size_t untold = 0;
};

}  // namespace exporter
