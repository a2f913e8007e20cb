// Samples of any size.
//
// The library stores an answer of resultSetLimit bytes at most, and a larger one ends the connection. A Sampler asks
// for all statistics, or those of some groups, at once and, where that is refused, by group; a group that is refused it
// asks for by chunks of identifiers. Identifiers it asks for at once and then by group; those of a group have to fit.
// The answers become one sample, whose elements are those of the whole.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "collector.h"
#include "failure.h"
#include "sample.h"
#include "schedule.h"

namespace monitor {

// A Collector whose queries for statistics, all or by group, have no limit, and those for identifiers that of a group;
// other queries, and everything else, are as there. The deadline holds for all answers together. What was refused is
// remembered: it is asked for in parts from then on, and tried again after 10 minutes, unless the parts show that it is
// larger than the limit still.
class Sampler {
public:
    explicit Sampler(CollectorOptions options);

    void begin(Query query, Clock::time_point deadline);
    bool beginClose(Clock::time_point deadline);
    std::optional<Outcome> advance(Clock::time_point now);
    void abandon();
    void reapEnded();

    bool busy() const;
    bool connected() const;
    int descriptor() const;
    Clock::time_point nextWake() const;
    Phase phase() const;
    pid_t process() const;

    void setNetworks(std::string networks);

    // These wait.
    Outcome collect(Query query, Milliseconds timeout);
    Outcome wait();
    std::optional<Failure> close(Milliseconds timeout);

private:
    // What the query in progress is for.
    enum class Step {
        other,   // one that is never split
        whole,   // all that is wanted
        groups,  // which groups there are
        pack,    // some groups, or one
        ids,     // which identifiers a group has
        chunk,   // some of them
    };
    // A group of the Gateway, as far as it is known.
    struct Group {
        std::size_t size = 0;       // what it takes of an answer; 0: not known
        std::size_t valueSize = 0;  // of its values on average, where it is asked for by identifiers
        std::optional<Clock::time_point> refused;
    };

    // A query that was refused as a whole.
    struct Whole {
        std::optional<Clock::time_point> refused;
        std::size_t size = 0;  // of its answer; 0: not known
    };

    Whole& whole();
    bool ofStatistics() const;  // the query in progress, not of identifiers
    std::optional<Outcome> take(Outcome outcome);
    std::optional<Outcome> refuse(Outcome outcome);
    std::optional<Outcome> next();
    void ask(Step nextStep, Query query);
    std::optional<Outcome> askForParts();
    void forgetAllBut(const std::vector<Item>& listed);
    void refuseGroup(const std::string& name);
    void learnGroup();
    void askForChunk();
    std::size_t reckonedSize(const std::string& id) const;
    bool refuses(const std::optional<Clock::time_point>& since, std::size_t size) const;
    void add(const Sample& part);
    void addChunk(const Sample& part);
    Outcome finish();

    Collector collector;

    // What is remembered of the Gateway. Moments are deadlines of the queries, the one clock that is at hand.
    std::map<std::pair<What, std::vector<std::string>>, Whole> wholes;  // by groups; without any it is all
    std::map<std::string, Group, std::less<>> known;
    std::size_t chunkSize;  // of an answer by identifiers, as it is reckoned beforehand
    Clock::time_point chunkRefused;

    // The query in progress.
    Query wanted;
    Clock::time_point deadline;
    Step step = Step::other;
    std::optional<Failure> firstRefusal;  // of all at once
    Sample sample;                        // what has come so far
    std::deque<std::string> groups;       // to be asked for
    std::vector<std::string> pack;        // asked for
    std::vector<std::string> ids;         // of the group pack[0], to be asked for from chunkBegin on
    std::size_t chunkBegin = 0;
    std::size_t chunkEnd = 0;
    std::vector<Element> failedIds;
};

}  // namespace monitor
