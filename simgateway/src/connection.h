// One accepted connection: reads requests, answers them and lets faults shape how the answers travel.
#pragma once

#include <cstdint>
#include <functional>

#include "control.h"
#include "session.h"
#include "socket.h"

namespace simgateway {

// Belongs to one thread, which runs it. The references outlive it.
class Connection {
public:
    Connection(Descriptor accepted, std::uint32_t connection, Session protocol, Control& serverControl,
               const StopSignal& serverStop, std::function<Scene()> serverScene);

    // Serves requests until the connection ends; the socket is closed when it returns. Never throws.
    void run() noexcept;

private:
    void serve();
    bool readRequest(Bytes& message);
    // False when the connection has to end.
    bool sendReply(const Bytes& reply, const Fault& fault);
    void awaitPeerClose();

    Descriptor socket;
    const std::uint32_t number;
    Session session;
    Control& control;
    const StopSignal& stop;
    const std::function<Scene()> scene;
};

}  // namespace simgateway
