#include "targets.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace exporter {

using namespace monitor;

namespace {

constexpr std::size_t MOST_TOLD = 20;
constexpr std::chrono::seconds tellingTime(10);

double wallTime() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void addCounts(MappingCounts& to, const MappingCounts& later, const MappingCounts& before) {
    for (const MappingCount& count : mappingCounts()) {
        to.*count.count += later.*count.count - before.*count.count;
    }
}

}  // namespace

Targets::Targets(std::string workerProgram, const TargetLimits& limits, Report use)
    : worker(std::move(workerProgram)), bounds(limits), report(std::move(use)) {
    config.modules.emplace("default", std::make_shared<const Module>());
}

void Targets::configure(const MappingFile& file, Clock::time_point now) {
    config = file;
    allowed = AllowList(config.allow);
    for (auto& [name, target] : known) {
        target->state.configured = false;
    }
    for (const ConfiguredTarget& one : config.targets) {
        const std::optional<Target> target = parseTarget(one.target);
        if (!target) {
            continue;
        }
        const std::string name = targetText(*target);
        auto [place, isNew] = known.try_emplace(name);
        if (isNew) {
            place->second = std::make_unique<Known>();
            place->second->state.name = name;
        }
        place->second->state.configured = true;
        place->second->state.module = one.module;
        if (place->second->gateway) {
            place->second->gateway->setNetworks("", now);
        }
    }
    std::erase_if(known, [](const auto& entry) { return !entry.second->state.configured && !entry.second->gateway; });
    // The others may have become forbidden.
    for (auto& [name, target] : known) {
        if (!target->state.configured && target->gateway) {
            target->gateway->setNetworks(allowed.networksFor(target->gateway->target()).value_or("none"), now);
        }
        if (target->gateway && target->gateway->busy()) {
            activate(*target);
        }
    }
}

std::optional<double> Targets::moduleDeadline(const std::string& module) const {
    const auto found = config.modules.find(module);
    return found == config.modules.end() ? std::nullopt : found->second->deadline;
}

Refusal Targets::refuse(const char* reason, unsigned status, std::string why) {
    ++counters.refused[reason];
    return {status, std::move(why)};
}

std::optional<Refusal> Targets::probe(const Target& target, const std::string& module, Clock::time_point now,
                                      double seconds, ProbeDone done, std::uint64_t client) {
    const auto found = config.modules.find(module);
    if (found == config.modules.end()) {
        return refuse("module", 400, "The configuration has no module of that name.");
    }
    const std::string name = targetText(target);
    const auto place = known.find(name);
    const bool configured = place != known.end() && place->second->state.configured;
    const std::optional<std::string> networks = configured ? std::string() : allowed.networksFor(target);
    if (!networks) {
        return refuse("not_allowed", 403, NOT_ALLOWED);
    }
    if (inProgress() >= bounds.probes) {
        return refuse("probes", 503, "Too many probes at once.");
    }
    if (place != known.end() && place->second->gateway && place->second->gateway->queued() >= bounds.targetProbes) {
        return refuse("target", 503, "Too many probes of this target at once.");
    }
    Known* const one = findOrAdd(target, name, *networks);
    if (one == nullptr) {
        return refuse("targets", 503, "Too many targets.");
    }
    if (!one->gateway->hasWorker() && !roomForWorker(now)) {
        retire(*one);
        return refuse("workers", 503, "Too many workers.");
    }
    one->state.module = module;
    one->gateway->setNetworks(*networks, now);
    const auto deadline = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    one->gateway->probe(
        found->second, now, deadline,
        [this, one, then = std::move(done)](ProbeResult& result, Mapper& mapper) {
            note(*one, result);
            const MappingCounts before = mapper.counts;
            then(result, mapper);
            addCounts(counters.mapping, mapper.counts, before);
        },
        client);
    activate(*one);
    return std::nullopt;
}

bool Targets::forget(std::uint64_t client) {
    if (std::none_of(active.begin(), active.end(), [&](Known* target) { return target->gateway->forget(client); })) {
        return false;
    }
    ++counters.refused["gone"];
    return true;
}

Targets::Known* Targets::findOrAdd(const Target& target, const std::string& name, const std::string& networks) {
    auto place = known.find(name);
    const bool admitted = networks.empty() || parseAddress(target.host);
    if (place == known.end()) {
        if (known.size() >= bounds.targets) {
            const auto going = nextToGo();
            if (going == known.end()) {
                return nullptr;
            }
            if (admitted || !going->second->admitted) {
                known.erase(going);
            }
        }
        place = known.emplace(name, std::make_unique<Known>()).first;
        place->second->state.name = name;
    }
    Known& one = *place->second;
    one.admitted = one.admitted || admitted;
    if (!one.gateway) {
        CollectorOptions options;
        options.target = target;
        options.worker = worker;
        options.networks = networks;
        one.gateway = std::make_unique<Gateway>(std::move(options), bounds.gateway);
    }
    return &one;
}

// Of those that may give way, one that is not admitted, else the one that nobody has asked for for the longest time.
std::map<std::string, std::unique_ptr<Targets::Known>>::iterator Targets::nextToGo() {
    const auto rank = [](const Known& one) {
        return std::pair(one.admitted, one.gateway ? one.gateway->lastUsed() : Clock::time_point::min());
    };
    auto first = known.end();
    for (auto one = known.begin(); one != known.end(); ++one) {
        const Known& candidate = *one->second;
        if (!candidate.state.configured && !candidate.active &&
            (first == known.end() || rank(candidate) < rank(*first->second))) {
            first = one;
        }
    }
    return first;
}

// Forgets a target that is not active and of which there is nothing to know, and what is above the limit.
void Targets::retire(Known& target) {
    if (!target.active && !target.state.configured && !target.state.probed) {
        known.erase(known.find(target.state.name));
    }
    while (known.size() > bounds.targets) {
        const auto going = nextToGo();
        if (going == known.end()) {
            return;
        }
        known.erase(going);
    }
}

// Whether there may be another worker; the one that was idle longest gives way.
bool Targets::roomForWorker(Clock::time_point now) {
    if (workers() < bounds.workers) {
        return true;
    }
    Known* oldest = nullptr;
    for (auto& [name, target] : known) {
        if (target->gateway && target->gateway->hasWorker() && !target->gateway->busy() &&
            (oldest == nullptr || target->gateway->lastUsed() < oldest->gateway->lastUsed())) {
            oldest = target.get();
        }
    }
    if (oldest == nullptr) {
        return false;
    }
    oldest->gateway->close(now, StartReason::idle);
    activate(*oldest);
    return true;
}

void Targets::activate(Known& target) {
    if (!target.active) {
        target.active = true;
        active.push_back(&target);
    }
}

void Targets::note(Known& target, ProbeResult& result) {
    TargetState& state = target.state;
    const bool forbidden = result.failure && result.failure->kind == FailureKind::forbidden;
    const bool begun = result.waited < result.limit;  // and did not wait for others until its deadline
    target.admitted = target.admitted || result.succeeded() || (begun && result.failure->phase > Phase::resolving);
    if (forbidden) {
        ++counters.refused["not_allowed"];
        if (!target.admitted) {
            tell(result.failureText());
            return;
        }
    }
    if (state.probed ? state.up != result.succeeded() : !result.succeeded()) {
        tell(result.succeeded() ? state.name + " is up again"
                                : fmt::format("{} is down: {}", state.name, result.failureText()));
    }
    state.probed = true;
    state.up = result.succeeded();
    state.lastTime = wallTime();
    state.seconds = result.seconds;
    state.past.push_back({result.seconds, result.succeeded()});
    if (state.past.size() > PAST_PROBES) {
        state.past.pop_front();
    }
    counters.seconds += result.seconds;
    if (forbidden) {
        state.failure = NOT_ALLOWED;
        state.hint.clear();
        state.failureTime = state.lastTime;
    } else if (result.succeeded()) {
        ++counters.succeeded;
        counters.split += result.sample.parts > 1 ? 1 : 0;
        state.statistics = result.sample.items.size();
        state.contentBytes = result.sample.contentSize;
        state.parts = result.sample.parts;
    } else {
        ++counters.failed[{result.failure->phase, result.failure->kind}];
        state.failure = result.failureText();
        state.hint = result.hint();
        state.failureTime = state.lastTime;
    }
}

void Targets::tell(const std::string& line) {
    if (!report) {
        return;
    }
    if (told == MOST_TOLD) {
        ++untold;
        return;
    }
    ++told;
    report(line);
}

void Targets::forEachDescriptor(const std::function<void(int)>& use) const {
    for (const Known* target : active) {
        if (const int descriptor = target->gateway->descriptor(); descriptor >= 0) {
            use(descriptor);
        }
    }
}

Clock::time_point Targets::nextWake() const {
    Clock::time_point wake = Clock::time_point::max();
    for (const Known* target : active) {
        wake = std::min(wake, target->gateway->nextWake());
    }
    return wake;
}

void Targets::step(Clock::time_point now) {
    for (std::size_t index = 0; index < active.size();) {
        Known& target = *active[index];
        target.gateway->step(now);
        const StartCounts starts = target.gateway->takeStarts();
        for (std::size_t reason = 0; reason < starts.size(); ++reason) {
            counters.starts[reason] += starts[reason];
        }
        if (target.gateway->busy()) {
            ++index;
        } else {
            target.active = false;
            active[index] = active.back();
            active.pop_back();
            retire(target);
        }
    }
}

void Targets::tidy(Clock::time_point now) {
    if (now - toldSince >= tellingTime) {
        if (untold > 0) {
            report(fmt::format("{} more changes of targets in {} s", untold,
                               std::chrono::duration_cast<std::chrono::seconds>(now - toldSince).count()));
        }
        toldSince = now;
        told = untold = 0;
    }
    for (auto& [name, target] : known) {
        if (target->gateway && !target->active) {
            target->gateway->tidy(now);
            if (target->gateway->busy()) {
                activate(*target);
            }
        }
    }
}

void Targets::cancelAll() {
    for (Known* target : active) {
        target->gateway->cancel();
        target->active = false;
    }
    active.clear();
}

void Targets::closeAll(Clock::time_point now) {
    for (auto& [name, target] : known) {
        if (target->gateway && !target->active) {
            target->gateway->close(now, StartReason::idle);
            if (target->gateway->busy()) {
                activate(*target);
            }
        }
    }
}

std::vector<TargetState> Targets::states() const {
    std::vector<TargetState> all;
    for (const auto& [name, target] : known) {
        if (target->state.configured || target->state.probed) {
            all.push_back(target->state);
        }
    }
    return all;
}

std::size_t Targets::workers() const {
    return static_cast<std::size_t>(std::count_if(known.begin(), known.end(), [](const auto& entry) {
        return entry.second->gateway && entry.second->gateway->hasWorker();
    }));
}

std::size_t Targets::inProgress() const {
    std::size_t probes = 0;
    for (const Known* target : active) {
        probes += target->gateway->queued();
    }
    return probes;
}

}  // namespace exporter
