#include "asking.h"

#include <utility>

namespace zulstat {

using namespace monitor;

Asking::Asking(const Options& given, const Target& gateway, Clock::time_point until)
    : Asking(given, gateway, until, given.query()) {
}

Asking::Asking(const Options& given, const Target& gateway, Clock::time_point until, const Query& query)
    : target(gateway), options(given), deadline(until), sampler(given.collector(gateway)) {
    sampler.begin(query, deadline);
}

void Asking::step(Clock::time_point now) {
    while (std::optional<Outcome> outcome = sampler.advance(now)) {
        take(*std::move(outcome));
    }
}

void Asking::take(Outcome outcome) {
    switch (stage) {
    case Stage::querying:
        failure = std::move(outcome.failure);
        if (failure) {
            stage = Stage::over;
            return;
        }
        sample = std::move(outcome.sample);
        filter(sample, options.globs);
        stage = options.counts ? Stage::counting : stage;
        countNext();
        break;
    case Stage::counting:
        // One group at a time, so that no answer grows too large.
        failure = std::move(outcome.failure);
        if (failure) {
            stage = Stage::over;
            return;
        }
        sample.items[counted++].value = sample.keep(std::to_string(outcome.sample.items.size()));
        countNext();
        break;
    case Stage::looking:
        for (const Item& item : outcome.sample.items) {
            known.emplace_back(item.id);
        }
        finish();
        break;
    case Stage::closing:
        closing = std::move(outcome.failure);
        stage = Stage::over;
        break;
    case Stage::over:
        break;
    }
}

// The next group to count, or else what comes behind.
void Asking::countNext() {
    if (options.counts && counted < sample.items.size()) {
        sampler.begin({What::idsByGroup, {std::string(sample.items[counted].id)}}, deadline);
        return;
    }
    sample.hasValues = sample.hasValues || options.counts;
    const bool byGroup = sample.query.what == What::statsByGroup || sample.query.what == What::idsByGroup;
    if (!options.quiet && failedElements(sample) > 0 && !sample.query.ids.empty()) {
        stage = Stage::looking;
        sampler.begin({byGroup ? What::groups : What::ids, {}}, deadline);
        return;
    }
    finish();
}

void Asking::finish() {
    stage = sampler.beginClose(deadline) ? Stage::closing : Stage::over;
}

int Asking::descriptor() const {
    return sampler.busy() ? sampler.descriptor() : -1;
}

Clock::time_point Asking::nextWake() const {
    return sampler.nextWake();
}

}  // namespace zulstat
