#include "follower.h"

#include <utility>

namespace monitor {

Follower::Follower(FollowerOptions options)
    : settings(std::move(options)), sampler(settings.collector), backoff(settings.interval) {
}

std::optional<Event> Follower::step(Clock::time_point now) {
    if (ended) {
        return std::nullopt;
    }
    if (!cadence) {
        cadence.emplace(now, settings.interval);
    }
    if (std::exchange(tickWanted, false)) {
        due = cadence->after(now);
    }
    if (complete() && !closing) {
        closing = true;
        if (!sampler.beginClose(now + settings.timeout)) {
            return end(std::nullopt);
        }
    }
    if (!sampler.busy() && !paused && now >= due) {
        sampler.begin(settings.query, now + settings.timeout);
        queryBegan = now;
    }
    std::optional<Outcome> outcome = sampler.advance(now);
    if (!outcome) {
        return std::nullopt;
    }
    return closing            ? end(std::nullopt)
           : outcome->failure ? failed(*std::move(outcome->failure), now)
                              : taken(std::move(outcome->sample), now);
}

Event Follower::taken(Sample sample, Clock::time_point now) {
    Event event;
    event.kind = Event::Kind::sample;
    event.sample = std::move(sample);
    if (lostSince) {
        event.lost = now - *lostSince;
    }
    lostSince.reset();
    backoff.reset();
    ++samples;
    tickWanted = true;
    return event;
}

Event Follower::failed(Failure failure, Clock::time_point now) {
    const bool last = samples == 0 || !settings.reconnect || !mayPass(failure);
    if (failure.kind == FailureKind::interrupted || (last && !settings.persists)) {
        return end(std::move(failure));
    }
    Event event;
    event.kind = Event::Kind::gap;
    event.failure = std::move(failure);
    event.firstGap = !lostSince;
    event.retryIn = backoff.next();
    lostSince = lostSince.value_or(now);
    due = now + event.retryIn;
    return event;
}

Event Follower::end(std::optional<Failure> failure) {
    ended = true;
    Event event;
    event.failure = std::move(failure);
    return event;
}

bool Follower::complete() const {
    return settings.count && samples >= *settings.count;
}

Clock::time_point Follower::nextWake() const {
    return ended            ? Clock::time_point::max()
           : tickWanted     ? Clock::time_point::min()
           : sampler.busy() ? sampler.nextWake()
           : paused         ? Clock::time_point::max()
                            : due;
}

int Follower::descriptor() const {
    return sampler.busy() ? sampler.descriptor() : -1;
}

void Follower::pause(bool wanted) {
    paused = wanted;
}

void Follower::setInterval(Milliseconds interval, Clock::time_point now) {
    settings.interval = interval;
    backoff = Backoff(interval);
    cadence.emplace(now, interval);
    if (samples > 0 && !lostSince) {
        due = cadence->after(now);
    }
}

bool Follower::busy() const {
    return sampler.busy();
}

Phase Follower::phase() const {
    return sampler.phase();
}

Clock::time_point Follower::began() const {
    return queryBegan;
}

Clock::time_point Follower::nextAttempt() const {
    return due;
}

}  // namespace monitor
