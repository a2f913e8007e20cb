// Descriptors with an owner, and waits that a stop can interrupt.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "simgateway/reply.h"

namespace simgateway {

// Owns one descriptor, -1 for none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : fd(number) {
    }
    ~Descriptor() {
        reset();
    }
    Descriptor(Descriptor&& other) noexcept : fd(other.fd) {
        other.fd = -1;
    }
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const {
        return fd;
    }
    void reset();

private:
    int fd;
};

// Switch that many threads can poll: while it is raised, its descriptor is readable.
class StopSignal {
public:
    StopSignal();
    void raise();
    void lower();
    int descriptor() const {
        return event.get();
    }

private:
    Descriptor event;
};

enum class Wait { ready, timeout, stopped };

// Waits for `events` on `fd` (-1: for nothing but the stop). A negative limit waits without one.
Wait waitFor(int fd, short events, const StopSignal& stop, std::chrono::milliseconds limit);

// Non-blocking socket bound to 127.0.0.1, 0 for any free port. It keeps the port from others while nobody listens.
// Throws std::system_error.
Descriptor bindToLoopback(std::uint16_t port);
// Makes it listen. Throws std::system_error.
void listenOn(const Descriptor& socket);
std::uint16_t localPort(const Descriptor& socket);

// Appends up to `count` bytes to `out`. True when all came; false when the peer closed or failed, or on a stop.
bool receive(const Descriptor& socket, Bytes& out, std::size_t count, const StopSignal& stop);

// True when all bytes were handed to the system; false when the connection failed or on a stop.
bool transmit(const Descriptor& socket, const std::uint8_t* bytes, std::size_t count, const StopSignal& stop);

// Makes the coming close of the socket a reset.
void closeWithReset(const Descriptor& socket);

}  // namespace simgateway
