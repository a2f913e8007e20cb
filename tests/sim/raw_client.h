// A client made of a bare socket and hand-written requests. Every wait ends after a few seconds.
#pragma once

#include "simgateway/sim_gateway.h"
#include "support/message.h"

namespace simtest {

using namespace support;

inline constexpr std::chrono::milliseconds patience(10000);

enum class End { open, closed, reset };

class RawClient {
public:
    explicit RawClient(std::uint16_t port);  // throws std::system_error when it cannot connect
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void send(const Bytes& bytes);
    // Up to `count` bytes: fewer when the connection ends or nothing more comes within `limit`.
    Bytes receive(std::size_t count, std::chrono::milliseconds limit = patience);
    // Sends the bytes and reads one message by its length words; throws std::out_of_range when no header comes.
    Bytes exchange(const Bytes& bytes);
    // The request of this kind, after the exchanges that must come before it.
    Bytes requestFor(simgateway::Exchange kind);
    // Payload of the reply to a call, after the exchange that must come before it.
    Bytes query(std::string_view operation, std::string_view query = "");
    // Waits for the connection to end and drops the bytes that come meanwhile.
    End awaitEnd();

private:
    void setLimit(std::chrono::milliseconds limit);

    int fd;
};

}  // namespace simtest
