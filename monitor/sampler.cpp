#include "sampler.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

namespace monitor {

namespace {

constexpr std::chrono::minutes tryAgain(10);

// The library's result set: what it has besides entries, and what an element, an item has besides its texts.
constexpr std::size_t BESIDES = 20;
constexpr std::size_t ELEMENT_SIZE = 12;
constexpr std::size_t ITEM_SIZE = 8;
constexpr std::size_t PACK_SIZE = RESULT_SET_LIMIT * 3 / 4;  // values grow
constexpr std::size_t LIKELY_VALUE = 28;
constexpr std::size_t FIRST_CHUNK_SIZE = RESULT_SET_LIMIT * 3 / 4;

std::size_t sizeOf(const Sample& sample, const Element& element) {
    std::size_t size = ELEMENT_SIZE + element.text.size();
    for (const Item& item : sample.itemsOf(element)) {
        size += ITEM_SIZE + item.id.size() + item.value.size();
    }
    return size;
}

bool isRefusal(const Failure& failure) {
    return failure.kind == FailureKind::refused && failure.phase == Phase::querying;
}

}  // namespace

Sampler::Sampler(CollectorOptions options) : collector(std::move(options)), chunkSize(FIRST_CHUNK_SIZE) {
}

void Sampler::begin(Query query, Clock::time_point until) {
    wanted = std::move(query);
    deadline = until;
    firstRefusal.reset();
    sample = {};
    sample.parts = 0;
    groups.clear();
    pack.clear();
    failedIds.clear();
    const bool byGroup = (wanted.what == What::statsByGroup || wanted.what == What::idsByGroup) && !wanted.ids.empty();
    if (wanted.what != What::stats && wanted.what != What::ids && !byGroup) {
        ask(Step::other, wanted);
    } else if (refuses(whole().refused, whole().size)) {
        askForParts();
    } else {
        ask(Step::whole, wanted);
    }
}

Sampler::Whole& Sampler::whole() {
    return wholes[{wanted.what, wanted.ids}];
}

bool Sampler::ofStatistics() const {
    return wanted.what == What::stats || wanted.what == What::statsByGroup;
}

bool Sampler::refuses(const std::optional<Clock::time_point>& since, std::size_t size) const {
    return since && (size > RESULT_SET_LIMIT || deadline < *since + tryAgain);
}

void Sampler::ask(Step nextStep, Query query) {
    step = nextStep;
    collector.begin(std::move(query), deadline);
}

// Groups that are gone.
void Sampler::forgetAllBut(const std::vector<Item>& listed) {
    std::set<std::string_view> names;
    for (const Item& group : listed) {
        names.insert(group.id);
    }
    std::erase_if(known, [&](const auto& entry) { return !names.contains(entry.first); });
}

std::optional<Outcome> Sampler::askForParts() {
    if (!wanted.ids.empty()) {
        groups.assign(wanted.ids.begin(), wanted.ids.end());
        return next();
    }
    ask(Step::groups, {What::groups, {}});
    return std::nullopt;
}

std::optional<Outcome> Sampler::advance(Clock::time_point now) {
    std::optional<Outcome> outcome = collector.advance(now);
    return outcome ? take(*std::move(outcome)) : std::nullopt;
}

// Nothing where another query follows.
std::optional<Outcome> Sampler::take(Outcome outcome) {
    if (step == Step::other) {
        return outcome;
    }
    if (outcome.failure) {
        return isRefusal(*outcome.failure) ? refuse(std::move(outcome)) : std::move(outcome);
    }
    Sample& part = outcome.sample;
    switch (step) {
    case Step::other:
        break;
    case Step::whole:
        wholes.erase({wanted.what, wanted.ids});
        if (wanted.what == What::stats) {
            known.clear();
        }
        return outcome;
    case Step::groups:
        for (const Item& group : part.items) {
            // An empty name would ask for everything.
            if (!group.id.empty()) {
                groups.emplace_back(group.id);
            }
        }
        forgetAllBut(part.items);
        std::erase_if(part.elements, [](const Element& element) { return element.rc >= 0; });
        part.items.clear();
        add(part);
        break;
    case Step::pack:
        if (ofStatistics()) {
            for (const Element& element : part.elements) {
                known[std::string(element.text)] = {sizeOf(part, element), 0, std::nullopt};
            }
        }
        ++sample.parts;
        add(part);
        pack.clear();
        break;
    case Step::ids: {
        ids.clear();
        chunkBegin = 0;
        std::string_view name = pack[0];
        for (const Element& element : part.elements) {
            name = element.rc >= 0 ? element.text : name;
        }
        for (const Item& item : part.items) {
            if (!item.id.empty()) {
                ids.emplace_back(item.id);
            }
        }
        name = sample.keep(std::string(name));
        std::erase_if(part.elements, [](const Element& element) { return element.rc >= 0; });
        part.items.clear();
        add(part);
        sample.addElement(name, 0);
        ++sample.splitGroups;
        break;
    }
    case Step::chunk:
        ++sample.parts;
        addChunk(part);
        chunkBegin = chunkEnd;
        break;
    }
    return next();
}

// Nothing where it is asked for in smaller parts.
std::optional<Outcome> Sampler::refuse(Outcome outcome) {
    switch (step) {
    case Step::whole:
        if (wanted.what == What::idsByGroup && wanted.ids.size() == 1) {
            return outcome;  // there is nothing smaller
        }
        whole() = {deadline, 0};
        if (wanted.ids.size() == 1) {
            refuseGroup(wanted.ids[0]);
        }
        firstRefusal = std::move(outcome.failure);
        return askForParts();
    case Step::groups:
        // One that refuses whatever it is asked for.
        wholes.erase({wanted.what, wanted.ids});
        if (firstRefusal) {
            outcome.failure = std::move(firstRefusal);
        }
        return outcome;
    case Step::pack:
        if (!ofStatistics()) {
            return outcome;
        }
        if (pack.size() == 1) {
            refuseGroup(pack[0]);
        } else {
            for (const std::string& group : pack) {
                known[group].size = 0;  // each by itself
            }
        }
        groups.insert(groups.begin(), pack.begin(), pack.end());
        pack.clear();
        return next();
    case Step::chunk:
        if (chunkEnd - chunkBegin > 1) {
            std::size_t size = 0;
            for (std::size_t index = chunkBegin; index < chunkEnd; ++index) {
                size += reckonedSize(ids[index]);
            }
            chunkSize = size / 2;
            chunkRefused = deadline;
            askForChunk();
            return std::nullopt;
        }
        return outcome;
    default:
        return outcome;
    }
}

void Sampler::refuseGroup(const std::string& name) {
    Group& group = known[name];
    group.size = 0;
    group.refused = deadline;
}

// Of the group that has come by chunks.
void Sampler::learnGroup() {
    const Element& element = sample.elements.back();
    Group& group = known[pack[0]];
    group.size = sizeOf(sample, element);
    std::size_t values = 0;
    for (const Item& item : sample.itemsOf(element)) {
        values += item.value.size();
    }
    group.valueSize = values / std::max<std::size_t>(element.itemCount, 1);
    if (element.itemCount == 0) {
        sample.elements.pop_back();
    }
}

std::optional<Outcome> Sampler::next() {
    if (!pack.empty()) {  // a group by chunks
        if (chunkBegin < ids.size()) {
            askForChunk();
            return std::nullopt;
        }
        learnGroup();
        for (const Element& failed : std::exchange(failedIds, {})) {
            sample.addElement(failed.text, failed.rc);
        }
        pack.clear();
    }
    if (groups.empty()) {
        return finish();
    }
    if (!ofStatistics()) {
        pack = {std::move(groups.front())};
        groups.pop_front();
        ask(Step::pack, {What::idsByGroup, pack});
        return std::nullopt;
    }
    std::size_t size = BESIDES;
    while (!groups.empty()) {
        const Group& group = known[groups.front()];
        const bool byIds = refuses(group.refused, group.size);
        const bool alone = byIds || group.size == 0;
        if (!pack.empty() && (alone || size + group.size > PACK_SIZE)) {
            break;
        }
        size += group.size;
        pack.push_back(std::move(groups.front()));
        groups.pop_front();
        if (byIds) {
            ask(Step::ids, {What::idsByGroup, pack});
            return std::nullopt;
        }
        if (alone) {
            break;
        }
    }
    ask(Step::pack, {What::statsByGroup, pack});
    return std::nullopt;
}

// One that is asked for by itself is an element with its own name.
std::size_t Sampler::reckonedSize(const std::string& id) const {
    const std::size_t valueSize = known.find(pack[0])->second.valueSize;
    return ELEMENT_SIZE + ITEM_SIZE + 2 * id.size() + std::max(LIKELY_VALUE, valueSize + valueSize / 4);
}

void Sampler::askForChunk() {
    if (deadline >= chunkRefused + tryAgain) {
        chunkSize = FIRST_CHUNK_SIZE;
    }
    std::size_t size = BESIDES;
    chunkEnd = chunkBegin;
    do {
        size += reckonedSize(ids[chunkEnd]);
        ++chunkEnd;
    } while (chunkEnd < ids.size() && size + reckonedSize(ids[chunkEnd]) <= chunkSize);
    const auto at = [&](std::size_t index) { return ids.begin() + static_cast<std::ptrdiff_t>(index); };
    ask(Step::chunk, {What::statsById, {at(chunkBegin), at(chunkEnd)}});
}

// Takes over the entries and what is known of the answers.
void Sampler::add(const Sample& part) {
    const std::size_t firstItem = sample.items.size();
    for (Element element : part.elements) {
        element.firstItem += firstItem;
        sample.elements.push_back(element);
    }
    sample.items.insert(sample.items.end(), part.items.begin(), part.items.end());
    sample.texts.insert(sample.texts.end(), part.texts.begin(), part.texts.end());
    sample.target = part.target;
    sample.protocol = part.protocol;
    sample.wallTime = part.wallTime;
    sample.monotonicTime = part.monotonicTime;
    sample.openSeconds = part.openSeconds;
    sample.querySeconds += part.querySeconds;
    sample.contentSize = std::max(sample.contentSize, part.contentSize);
    sample.freshConnection = sample.freshConnection || part.freshConnection;
}

// Its items belong to the group's element; an identifier that failed is an element of its own behind it.
void Sampler::addChunk(const Sample& part) {
    std::copy_if(part.elements.begin(), part.elements.end(), std::back_inserter(failedIds),
                 [](const Element& element) { return element.rc < 0; });
    Sample entries = part;
    entries.elements.clear();
    sample.elements.back().itemCount += entries.items.size();
    add(entries);
}

Outcome Sampler::finish() {
    whole().size = BESIDES;
    for (const Element& element : sample.elements) {
        whole().size += sizeOf(sample, element);
    }
    sample.query = std::move(wanted);
    return {std::exchange(sample, {}), std::nullopt};
}

bool Sampler::beginClose(Clock::time_point until) {
    step = Step::other;
    return collector.beginClose(until);
}

void Sampler::abandon() {
    collector.abandon();
}

void Sampler::setNetworks(std::string networks) {
    collector.setNetworks(std::move(networks));
}

void Sampler::reapEnded() {
    collector.reapEnded();
}

bool Sampler::busy() const {
    return collector.busy();
}

bool Sampler::connected() const {
    return collector.connected();
}

int Sampler::descriptor() const {
    return collector.descriptor();
}

Clock::time_point Sampler::nextWake() const {
    return collector.nextWake();
}

Phase Sampler::phase() const {
    return collector.phase();
}

pid_t Sampler::process() const {
    return collector.process();
}

Outcome Sampler::collect(Query query, Milliseconds timeout) {
    begin(std::move(query), Clock::now() + timeout);
    return wait();
}

Outcome Sampler::wait() {
    for (;;) {
        if (std::optional<Outcome> outcome = take(collector.wait())) {
            return *std::move(outcome);
        }
    }
}

std::optional<Failure> Sampler::close(Milliseconds timeout) {
    step = Step::other;
    return collector.close(timeout);
}

}  // namespace monitor
