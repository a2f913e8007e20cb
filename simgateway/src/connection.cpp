#include "connection.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "bytes.h"
#include "message.h"

namespace simgateway {

Connection::Connection(Descriptor accepted, std::uint32_t connection, Session protocol, Control& serverControl,
                       const StopSignal& serverStop, std::function<Scene()> serverScene)
    : socket(std::move(accepted)),
      number(connection),
      session(std::move(protocol)),
      control(serverControl),
      stop(serverStop),
      scene(std::move(serverScene)) {
}

void Connection::run() noexcept {
    try {
        serve();
    } catch (const std::exception&) {
        // A request that cannot be read or answered costs its peer this connection and nobody else anything.
    }
    socket.reset();
    control.connectionClosed();
}

void Connection::serve() {
    for (;;) {
        Bytes message;
        const bool whole = readRequest(message);
        if (message.empty()) {
            return;
        }
        const Exchange exchange = whole ? classify(decodeHeader(message), message) : Exchange::unknown;
        const bool accepted = exchange != Exchange::unknown && session.accepts(exchange, message);
        // In this order: the fault of a request that can be seen is taken.
        const Fault fault = accepted ? control.takeFault(exchange) : Fault{};
        control.record({exchange, message, number});
        if (!accepted) {
            return;
        }
        const Scene now = scene();
        if (now.model == nullptr) {
            return;
        }
        const Bytes reply = session.answer(exchange, message, fault, control.payload(exchange), now);
        if (fault.silent) {
            awaitPeerClose();
            return;
        }
        if (!sendReply(reply, fault) || exchange == Exchange::close) {
            return;
        }
    }
}

// Appends the bytes of one request as far as they come. False when they are not a whole request of sane lengths.
bool Connection::readRequest(Bytes& message) {
    if (!receive(socket, message, FIXED_HEADER_SIZE, stop)) {
        return false;
    }
    const std::uint32_t nameLength = ByteReader(message, FIXED_HEADER_SIZE - 4).get32();
    if (nameLength > LONGEST_NAME || !receive(socket, message, nameLength + HEADER_TAIL_SIZE, stop)) {
        return false;
    }
    const auto dataLength = static_cast<std::int32_t>(ByteReader(message, message.size() - 4).get32());
    if (dataLength < 0 || dataLength > LARGEST_BODY) {
        return false;
    }
    return receive(socket, message, static_cast<std::size_t>(dataLength), stop);
}

bool Connection::sendReply(const Bytes& reply, const Fault& fault) {
    const std::chrono::milliseconds none{0};
    if (fault.delay > none && waitFor(-1, 0, stop, fault.delay) == Wait::stopped) {
        return false;
    }
    const std::size_t end = std::min(reply.size(), fault.closeAfter.value_or(reply.size()));
    const std::size_t step = fault.writeSize > 0 ? fault.writeSize : end;
    for (std::size_t sent = 0; sent < end;) {
        if (sent > 0 && fault.writePause > none && waitFor(-1, 0, stop, fault.writePause) == Wait::stopped) {
            return false;
        }
        const std::size_t size = std::min(step, end - sent);
        if (!transmit(socket, reply.data() + sent, size, stop)) {
            return false;
        }
        sent += size;
    }
    if (fault.closeAfter && fault.reset) {
        closeWithReset(socket);
    }
    return !fault.closeAfter;
}

void Connection::awaitPeerClose() {
    Bytes ignored;
    while (receive(socket, ignored, 1, stop)) {
        ignored.clear();
    }
}

}  // namespace simgateway
