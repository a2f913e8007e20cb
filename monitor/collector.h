// Samples of a Gateway, with a deadline that holds for everything.
//
// The library waits without limit, so its calls are made in a child process, the worker (worker.h). A Collector starts
// it, asks it, and ends it when the deadline passes.
//
// The program does not ignore SIGCHLD, nor wait for processes that are not its own (waitpid() with -1): a worker that
// died keeps its process number until the Collector has waited for it. A Collector prints nothing, handles no signals
// and owns no loop: it has a descriptor, a moment by which it wants to be called, and a step. Every ending is a Failure
// record. What blocks says so.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "failure.h"
#include "frames.h"
#include "sample.h"
#include "schedule.h"

namespace monitor {

// The path of the worker program: the environment variable ZULSTATS_WORKER, else zulstats-worker beside the own program
// or, installed, in ../libexec/zulstats. Where it is nowhere, the last of these, so that a Failure can name it. Empty
// where the system does not tell where the own program lies.
std::string findWorker();

struct CollectorOptions {
    Target target;
    std::string worker;     // the path of the worker program, see findWorker()
    int traceLevel = 0;     // of the library, 0..5
    std::string traceFile;  // empty: standard error
    int interruptFd = -1;   // the calls that wait end when it is readable; -1: nothing does. The caller's.
    // Only addresses in these networks are dialled, whatever the host resolves to: "10.0.0.0/8 ::1". Empty: any.
    std::string networks{};
};

struct Outcome {
    // With a failure only what concerns the connection is there, once it was open: protocol, openSeconds,
    // freshConnection.
    Sample sample;
    std::optional<Failure> failure;
};

// One connection to one Gateway, opened by the first query and kept between queries. After any failure the connection
// and the worker are gone; the next begin() starts new ones. Use it from one thread, which must outlive it: the kernel
// ends the worker with the thread that started it. Calls throw nothing but std::bad_alloc.
//
//     Outcome outcome = collector.collect({What::stats, {}}, std::chrono::seconds(5));
//
// or, where something else has to be watched meanwhile:
//
//     collector.begin(query, Clock::now() + std::chrono::seconds(5));
//     while (!(outcome = collector.advance(Clock::now()))) {
//         poll({..., {collector.descriptor(), POLLIN}}, pollTime(collector.nextWake(), Clock::now()));
//     }
class Collector {
public:
    explicit Collector(CollectorOptions options);
    // Ends the worker as abandon() does, and waits until the kernel has done so: at once, but for a worker that hangs
    // in the system itself.
    ~Collector();
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    // Sends a query to the worker, starting one if there is none. The deadline covers starting, resolving and opening.
    // A former query still in progress is abandoned. Never waits; failures come from advance().
    void begin(Query query, Clock::time_point deadline);
    // Asks the Gateway to close the connection; the worker ends with its answer. advance() then has an outcome without
    // a sample. Without a connection, or with a query in progress, this is abandon(), and returns false. Never waits.
    bool beginClose(Clock::time_point deadline);
    // The outcome once the query or the close has ended, which is then over; nothing before that, or without either.
    // Call it when descriptor() is readable or nextWake() has come. Never waits.
    std::optional<Outcome> advance(Clock::time_point now);
    // Ends the worker, whatever it is doing, and the connection with it. Never waits: until a later call of any of
    // these the system may show the worker as defunct.
    void abandon();
    // Lets the system forget workers that have ended, as the calls above do. Never waits.
    void reapEnded();

    bool busy() const;       // a query or a close is in progress
    bool connected() const;  // the worker holds a connection
    int descriptor()
        const;  // poll this for POLLIN while busy; changes from one query to the next; -1 where there is none
    Clock::time_point nextWake() const;  // the deadline while busy, or at once; else never
    Phase phase() const;                 // what the worker is at, for a display
    pid_t process() const;               // the worker's; -1 where there is none

    // For connections that are opened from now on.
    void setNetworks(std::string networks);

    // These wait.

    // begin() and wait().
    Outcome collect(Query query, Milliseconds timeout);
    // Waits for the query or the close to end, until its deadline or the interrupt descriptor.
    Outcome wait();
    // beginClose() and wait(). Nothing happens without a connection.
    std::optional<Failure> close(Milliseconds timeout);

private:
    void start();
    bool send(const std::string& bytes);
    bool receive();
    std::optional<Outcome> nextOutcome();
    std::optional<Outcome> take(FrameReader& frame);
    Outcome ended(Failure failure);
    void reap(int flags);

    CollectorOptions settings;
    pid_t worker = -1;
    std::vector<pid_t> leaving;  // workers that were ended and not waited for yet
    int channel = -1;
    FrameBuffer received;
    Query current;
    bool inProgress = false;
    bool greeted = false;  // the worker's hello was one of this version
    bool open = false;
    Sample opened;  // what is known of the connection
    Phase currentPhase = Phase::starting;
    std::string startFailure;  // why there is no worker, or none that takes requests
    Clock::time_point deadline;
};

}  // namespace monitor
