// Probes of one Gateway: one worker, one probe after the other, each under its own deadline.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "monitor/mapping.h"
#include "monitor/sampler.h"

namespace exporter {

using monitor::Clock;

struct PhaseTime {
    monitor::Phase phase;
    double seconds;
};

// What came of a probe: for the metrics, for debug output and for the history.
struct ProbeResult {
    monitor::Target target;
    std::shared_ptr<const monitor::Module> module;
    monitor::Sample sample;
    std::optional<monitor::Failure> failure;
    double limit = 0;               // seconds that it had
    double waited = 0;              // of them for other probes of the target
    double seconds = 0;             // that it took, waiting included
    std::vector<PhaseTime> phases;  // as far as they were seen

    bool succeeded() const {
        return !failure;
    }
    // "cannot connect to gw1:7531: ...", and what to do about it; empty where it succeeded.
    std::string failureText() const;
    std::string hint() const;
};

// Why a worker was started.
enum class StartReason : std::uint8_t { first, idle, renewed, failure, tooLarge };
inline constexpr std::size_t START_REASONS = 5;
using StartCounts = std::array<std::uint64_t, START_REASONS>;

// Valid during the call.
using ProbeDone = std::function<void(ProbeResult& result, monitor::Mapper& mapper)>;

struct GatewayLimits {
    Clock::duration idle = std::chrono::minutes(5);  // until the connection is closed
    long scrapes = 10000;                            // until the worker is renewed
};

// One Gateway. Its connection stays open between probes. Everything is called from one thread, which outlives it, and
// nothing waits; step() calls what probe() was given.
class Gateway {
public:
    Gateway(monitor::CollectorOptions options, const GatewayLimits& limits);

    // `done` is called once. The client's number is for forget().
    void probe(std::shared_ptr<const monitor::Module> module, Clock::time_point now, Clock::time_point deadline,
               ProbeDone done, std::uint64_t client);
    // Drops the client's probe without a word, unless it is in progress. Returns whether there was one.
    bool forget(std::uint64_t client);
    // Goes on as far as it can without waiting. Call it when descriptor() is readable or nextWake() has come.
    void step(Clock::time_point now);
    int descriptor() const;
    Clock::time_point nextWake() const;
    bool busy() const;  // a probe or a close is in progress
    // Drops all probes without a word; one in progress takes the connection along.
    void cancel();
    // Once in a while: closes a connection that nobody has used for long.
    void tidy(Clock::time_point now);
    // After the probe in progress, where there is one.
    void close(Clock::time_point now, StartReason next);

    const monitor::Target& target() const {
        return settings.target;
    }
    // Of the addresses that may be dialled; what is open is closed where they change. A probe in progress goes on.
    void setNetworks(const std::string& networks, Clock::time_point now);
    bool hasWorker() const;
    std::size_t queued() const {
        return waiting.size();
    }
    Clock::time_point lastUsed() const {
        return used;
    }
    // Since the last call, by reason.
    StartCounts takeStarts();

private:
    struct Waiting {
        std::shared_ptr<const monitor::Module> module;
        Clock::time_point since;
        Clock::time_point deadline;
        ProbeDone done;
        std::uint64_t client;
    };

    void begin(Clock::time_point now);
    void notePhase(Clock::time_point now);
    void noteWorker();
    void finish(Clock::time_point now, monitor::Outcome outcome);
    void answer(Waiting probe, Clock::time_point now, Clock::time_point began, monitor::Outcome outcome);
    void dropLate(Clock::time_point now);
    monitor::Mapper& mapperFor(const std::shared_ptr<const monitor::Module>& module);

    monitor::CollectorOptions settings;
    GatewayLimits limits;
    monitor::Sampler sampler;
    std::deque<Waiting> waiting;  // the first one is in progress where `probing`
    bool probing = false;
    bool closing = false;
    bool outdated = false;  // the connection is to be closed after the probe in progress
    Clock::time_point began;
    Clock::time_point used;
    std::vector<PhaseTime> phases;
    Clock::time_point phaseBegan;
    long scrapes = 0;  // of the worker
    pid_t worker = -1;
    StartReason reason = StartReason::first;
    StartCounts starts{};
    // By module; one that is gone after a reload goes with it.
    std::map<std::shared_ptr<const monitor::Module>, monitor::Mapper> mappers;
};

}  // namespace exporter
