// Samples of a Gateway, with a deadline that holds for everything.
//
// The library waits without limit, so its calls are made in a child process, the worker (worker.h). A Collector starts
// it, asks it, and ends it when the deadline passes. The worker is the same program again: main() of a program that
// uses a Collector begins with
//
//     if (argc > 1 && argv[1] == monitor::workerArgument) {
//         _exit(monitor::runWorker(argc, argv));
//     }
//
// The program does not ignore SIGCHLD: a worker that died keeps its process number until the Collector has ended it.
//
// A Collector prints nothing and knows nothing of signals: every ending is a Failure record, and a descriptor of the
// caller's choice ends a wait early.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>

#include "failure.h"
#include "sample.h"

namespace monitor {

struct Outcome {
    // With a failure only what concerns the connection is there, once it was open: protocol, openSeconds,
    // freshConnection.
    Sample sample;
    std::optional<Failure> failure;
};

struct CollectorOptions {
    Target target;
    int traceLevel = 0;     // of the library, 0..5
    std::string traceFile;  // empty: standard error
    int interruptFd = -1;   // wait() and close() end when it is readable; -1: nothing does
};

// One connection to one Gateway, opened by the first query and kept between queries. After any failure the connection
// and the worker are gone; the next begin() starts new ones. Use it from one thread, which must outlive it: the kernel
// ends the worker with the thread that started it.
//
//     Outcome outcome = collector.collect({What::stats, {}}, std::chrono::seconds(5));
//
// or, where something else has to be watched meanwhile (keys, a terminal's size):
//
//     collector.begin(query, timeout);
//     while (!(outcome = collector.advance())) {
//         poll({..., {collector.descriptor(), POLLIN}}, collector.remaining());
//     }
class Collector {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit Collector(CollectorOptions options);
    ~Collector();  // abandon()
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    // begin() and wait().
    Outcome collect(const Query& query, Milliseconds timeout);

    // Sends a query to the worker, starting one if there is none. The deadline covers starting, resolving and opening.
    // A former query still in progress is abandoned. Never waits; failures come from advance().
    void begin(const Query& query, Milliseconds timeout);
    // Never waits. The outcome once the query has ended, which is then over; nothing before that, or without a query.
    // The deadline is looked at here: call it when descriptor() is readable or remaining() has passed.
    std::optional<Outcome> advance();
    // Waits for advance() to have an outcome, the deadline or the interrupt descriptor.
    Outcome wait();
    // The same, for `limit` at most: nothing when the query still goes on.
    std::optional<Outcome> waitFor(Milliseconds limit);

    bool busy() const;               // a query is in progress
    bool connected() const;          // the worker holds a connection
    int descriptor() const;          // poll this for POLLIN while busy; changes from one query to the next
    Milliseconds remaining() const;  // until the deadline, at least 0, rounded up
    Phase phase() const;             // what the worker is at, for a display

    // Closes the connection, waiting for the Gateway's answer until `timeout`, and ends the worker. Nothing happens
    // without a connection.
    std::optional<Failure> close(Milliseconds timeout);
    // Ends the worker at once, whatever it is doing, and the connection with it.
    void abandon();

private:
    void start();
    bool send(const std::string& frame);
    bool receive();
    std::optional<Outcome> nextOutcome();
    Outcome ended(Failure failure);

    CollectorOptions settings;
    pid_t worker = -1;
    int channel = -1;
    std::string received;
    Query current;
    bool inProgress = false;
    bool open = false;
    Sample opened;  // what is known of the connection
    Phase currentPhase = Phase::starting;
    std::string startFailure;  // why there is no worker, or none that takes requests
    std::chrono::steady_clock::time_point deadline;
};

}  // namespace monitor
