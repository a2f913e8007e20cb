#include "control.h"

#include <stdexcept>
#include <utility>

namespace simgateway {

namespace {

std::size_t indexOf(Exchange exchange) {
    if (exchange == Exchange::unknown) {
        throw std::invalid_argument("no reply belongs to an unknown exchange");
    }
    return static_cast<std::size_t>(exchange);
}

void check(const Fault& fault) {
    if (fault.eyecatcher && fault.eyecatcher->size() != 4) {
        throw std::invalid_argument("an eyecatcher has 4 characters");
    }
}

}  // namespace

void Control::inject(Exchange exchange, Fault fault, std::size_t times) {
    const std::size_t index = indexOf(exchange);
    check(fault);
    const std::lock_guard guard(lock);
    if (times > 0) {
        faults[index].push_back({std::move(fault), times});
    }
}

void Control::setFault(Exchange exchange, Fault fault) {
    const std::size_t index = indexOf(exchange);
    check(fault);
    const std::lock_guard guard(lock);
    faults[index].clear();
    standing[index] = std::move(fault);
}

std::size_t Control::pendingFaults(Exchange exchange) const {
    const std::size_t index = indexOf(exchange);
    const std::lock_guard guard(lock);
    std::size_t sum = 0;
    for (const Waiting& waiting : faults[index]) {
        sum += waiting.times;
    }
    return sum;
}

Fault Control::takeFault(Exchange exchange) {
    const std::size_t index = indexOf(exchange);
    const std::lock_guard guard(lock);
    std::deque<Waiting>& waiting = faults[index];
    if (waiting.empty()) {
        return standing[index];
    }
    if (--waiting.front().times > 0) {
        return waiting.front().fault;
    }
    Fault fault = std::move(waiting.front().fault);
    waiting.pop_front();
    return fault;
}

void Control::setPayload(Exchange exchange, std::optional<Bytes> payload) {
    const std::size_t index = indexOf(exchange);
    const std::lock_guard guard(lock);
    payloads[index] = std::move(payload);
}

std::optional<Bytes> Control::payload(Exchange exchange) const {
    const std::size_t index = indexOf(exchange);
    const std::lock_guard guard(lock);
    return payloads[index];
}

void Control::record(Request request) {
    if (!keepRequests) {
        return;
    }
    {
        const std::lock_guard guard(lock);
        received.push_back(std::move(request));
    }
    changed.notify_all();
}

std::vector<Request> Control::requests() const {
    const std::lock_guard guard(lock);
    return received;
}

bool Control::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, limit, [&] { return received.size() >= count; });
}

void Control::connectionOpened() {
    {
        const std::lock_guard guard(lock);
        ++open;
    }
    changed.notify_all();
}

void Control::connectionClosed() {
    {
        const std::lock_guard guard(lock);
        --open;
    }
    changed.notify_all();
}

std::size_t Control::connections() const {
    const std::lock_guard guard(lock);
    return open;
}

bool Control::waitForConnections(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, limit, [&] { return open == count; });
}

}  // namespace simgateway
