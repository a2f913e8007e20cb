// What a test sets on a running server and what it sees of it.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "simgateway/sim_gateway.h"

namespace simgateway {

// Shared by the connection threads and the callers of the server; every member takes the lock itself.
class Control {
public:
    explicit Control(bool keepRequestsToo) : keepRequests(keepRequestsToo) {
    }

    void inject(Exchange exchange, Fault fault, std::size_t times);
    void setFault(Exchange exchange, Fault fault);
    std::size_t pendingFaults(Exchange exchange) const;
    // The fault for the exchange at hand: the one that waits longest, else the one that was set, else a healthy one.
    Fault takeFault(Exchange exchange);

    void setPayload(Exchange exchange, std::optional<Bytes> payload);
    std::optional<Bytes> payload(Exchange exchange) const;

    void record(Request request);
    std::vector<Request> requests() const;
    bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

    void connectionOpened();
    void connectionClosed();
    std::size_t connections() const;
    bool waitForConnections(std::size_t count, std::chrono::milliseconds limit) const;

private:
    struct Waiting {
        Fault fault;
        std::size_t times;  // at least 1
    };

    static constexpr std::size_t KINDS = static_cast<std::size_t>(Exchange::unknown);

    const bool keepRequests;
    mutable std::mutex lock;                  // guards all that follows
    mutable std::condition_variable changed;  // a request recorded, a connection opened or closed
    std::array<std::deque<Waiting>, KINDS> faults;
    std::array<Fault, KINDS> standing;  // where no fault waits
    std::array<std::optional<Bytes>, KINDS> payloads;
    std::vector<Request> received;
    std::size_t open = 0;
};

}  // namespace simgateway
