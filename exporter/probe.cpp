#include "probe.h"

#include <algorithm>
#include <utility>

#include "monitor/codes.h"

namespace exporter {

using namespace monitor;

namespace {

constexpr std::chrono::seconds closeTime(5);
constexpr long USES_BY_MAPPER = 2;  // of a module, as the key and by the mapper itself

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

std::string ProbeResult::failureText() const {
    return failure ? describeFailure(*failure, target, std::chrono::duration<double>(limit)) : "";
}

std::string ProbeResult::hint() const {
    if (!failure) {
        return {};
    }
    switch (failure->kind) {
    case FailureKind::deadline:
        return failure->phase == Phase::resolving ? "Is the name server reachable? An address does without it."
               : failure->phase == Phase::opening
                   ? "Is it a Gateway that listens there, and does a firewall let the connection through?"
               : failure->phase == Phase::starting
                   ? "The exporter's machine may be busy."
                   : "The Gateway may be busy: a longer scrape_timeout, or a module with fewer groups.";
    case FailureKind::cannotConnect:
        return failure->phase == Phase::resolving
                   ? "Check the name: 'getent hosts NAME' shows what the system makes of it."
                   : "Is the Gateway running, and is it that port?";
    case FailureKind::lost:
        return "The Gateway may have been restarted; the next scrape connects again.";
    case FailureKind::refused:
        return failure->phase == Phase::querying
                   ? "Its log may say why. Groups of a module whose answer takes over 32767 bytes fail like this."
                   : "Is it a Gateway that listens there? Its log may say why.";
    case FailureKind::forbidden:
        return "'allow' in the configuration has the addresses that may be probed.";
    case FailureKind::libraryCode:
        return "'zulstat explain' has more on each code.";
    case FailureKind::internal:
        return "Is the worker program in its place, and are there memory, processes and descriptors to be had?";
    case FailureKind::interrupted:
        break;
    }
    return {};
}

Gateway::Gateway(CollectorOptions options, const GatewayLimits& given)
    : settings(std::move(options)), limits(given), sampler(settings) {
}

void Gateway::probe(std::shared_ptr<const Module> module, Clock::time_point now, Clock::time_point deadline,
                    ProbeDone done, std::uint64_t client) {
    used = now;
    waiting.push_back({std::move(module), now, deadline, std::move(done), client});
}

bool Gateway::forget(std::uint64_t client) {
    const auto found = std::find_if(waiting.begin() + (probing ? 1 : 0), waiting.end(),
                                    [&](const Waiting& probe) { return probe.client == client; });
    if (found == waiting.end()) {
        return false;
    }
    waiting.erase(found);
    return true;
}

void Gateway::begin(Clock::time_point now) {
    closing = false;
    probing = true;
    began = now;
    phases.clear();
    phaseBegan = now;
    sampler.begin(waiting.front().module->query(), waiting.front().deadline);
    phases.push_back({sampler.phase(), 0});
    noteWorker();
}

// Phases that pass between two looks have no time of their own.
void Gateway::notePhase(Clock::time_point now) {
    if (probing && !phases.empty()) {
        phases.back().seconds = seconds(now - phaseBegan);
        if (phases.back().phase != sampler.phase()) {
            phases.push_back({sampler.phase(), 0});
            phaseBegan = now;
        }
    }
}

void Gateway::noteWorker() {
    const pid_t current = sampler.process();
    if (current > 0 && current != worker) {
        // Within one probe, all statistics were too many for one answer.
        ++starts[static_cast<std::size_t>(worker > 0 && probing ? StartReason::tooLarge : reason)];
        scrapes = 0;
    }
    worker = current;
}

void Gateway::step(Clock::time_point now) {
    for (;;) {
        dropLate(now);
        if (!probing && !waiting.empty()) {
            begin(now);
        }
        if (!sampler.busy()) {
            return;
        }
        std::optional<Outcome> outcome = sampler.advance(now);
        notePhase(now);
        noteWorker();
        if (!outcome) {
            return;
        }
        if (std::exchange(closing, false)) {
            continue;
        }
        finish(now, *std::move(outcome));
    }
}

void Gateway::finish(Clock::time_point now, Outcome outcome) {
    probing = false;
    const bool failed = outcome.failure.has_value();
    const bool renew = std::exchange(outdated, false);
    Waiting probe = std::move(waiting.front());
    waiting.pop_front();
    answer(std::move(probe), now, began, std::move(outcome));
    if (failed) {
        reason = StartReason::failure;
        worker = -1;
    } else if (++scrapes >= limits.scrapes || renew) {
        close(now, renew ? reason : StartReason::renewed);
    }
}

void Gateway::answer(Waiting probe, Clock::time_point now, Clock::time_point start, Outcome outcome) {
    ProbeResult result;
    result.target = settings.target;
    result.module = probe.module;
    result.failure = std::move(outcome.failure);
    result.sample = std::move(outcome.sample);
    result.limit = seconds(probe.deadline - probe.since);
    result.waited = seconds(start - probe.since);
    result.seconds = seconds(Clock::now() - probe.since);  // `now` may be as old as the probe
    result.phases = phases;
    const Module& module = *probe.module;
    if (!result.failure && (!module.include.empty() || !module.exclude.empty())) {
        keepItems(result.sample, [&](const Item& item) { return module.keeps(item.id); });
    }
    used = now;
    probe.done(result, mapperFor(probe.module));
}

// Those behind the one in progress.
void Gateway::dropLate(Clock::time_point now) {
    for (std::size_t index = probing ? 1 : 0; index < waiting.size();) {
        if (now < waiting[index].deadline) {
            ++index;
            continue;
        }
        Waiting late = std::move(waiting[index]);
        waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(index));
        const std::string text = "behind another probe of it: " + describeWait(sampler.phase(), late.module->query());
        Outcome outcome;
        outcome.failure = Failure{FailureKind::deadline, Phase::querying, 0, text};
        answer(std::move(late), now, now, std::move(outcome));
    }
}

Mapper& Gateway::mapperFor(const std::shared_ptr<const Module>& module) {
    const auto known = mappers.find(module);
    if (known != mappers.end()) {
        return known->second;
    }
    std::erase_if(mappers, [](const auto& entry) { return entry.first.use_count() <= USES_BY_MAPPER; });
    return mappers.emplace(module, Mapper(module)).first->second;
}

int Gateway::descriptor() const {
    return sampler.busy() ? sampler.descriptor() : -1;
}

Clock::time_point Gateway::nextWake() const {
    if (!probing && !waiting.empty()) {
        return Clock::time_point::min();
    }
    Clock::time_point wake = sampler.nextWake();
    for (const Waiting& probe : waiting) {
        wake = std::min(wake, probe.deadline);
    }
    return wake;
}

bool Gateway::busy() const {
    return sampler.busy() || !waiting.empty();
}

void Gateway::cancel() {
    waiting.clear();
    outdated = false;
    if (std::exchange(probing, false)) {
        sampler.abandon();
    }
}

void Gateway::tidy(Clock::time_point now) {
    sampler.reapEnded();
    if (!busy() && sampler.process() > 0 && now - used >= limits.idle) {
        close(now, StartReason::idle);
    }
}

void Gateway::close(Clock::time_point now, StartReason next) {
    reason = next;
    if (probing) {
        outdated = true;
        return;
    }
    closing = sampler.beginClose(now + closeTime);
    noteWorker();
}

void Gateway::setNetworks(const std::string& networks, Clock::time_point now) {
    if (settings.networks == networks) {
        return;
    }
    settings.networks = networks;
    sampler.setNetworks(networks);
    close(now, StartReason::renewed);
}

bool Gateway::hasWorker() const {
    return sampler.process() > 0;
}

StartCounts Gateway::takeStarts() {
    return std::exchange(starts, {});
}

}  // namespace exporter
