#include "raw_client.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace simtest {

RawClient::RawClient(std::uint16_t port) : fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        throw std::system_error(ECONNREFUSED, std::generic_category(), "connect");
    }
}

RawClient::~RawClient() {
    ::close(fd);
}

void RawClient::send(const Bytes& bytes) {
    ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

Bytes RawClient::receive(std::size_t count, std::chrono::milliseconds limit) {
    setLimit(limit);
    Bytes bytes(count);
    const ssize_t got = count == 0 ? 0 : ::recv(fd, bytes.data(), count, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

Bytes RawClient::exchange(const Bytes& bytes) {
    send(bytes);
    Bytes message = receive(24);
    message = message + receive(wordAt(message, 20) + 5);
    return message + receive(wordAt(message, message.size() - 4));
}

Bytes RawClient::requestFor(simgateway::Exchange kind) {
    using enum simgateway::Exchange;
    if (kind == authSecond) {
        const Bytes first = exchange(authFirstRequest);
        return authSecondRequest(wordAt(first, 12), slice(first, 41, 53));
    }
    if (kind == getAttribute || kind == invoke) {
        const Bytes init = exchange(adminInitRequest);
        return kind == invoke ? invokeRequest(wordAt(init, 12), wordAt(init, 42), "GET_STATS", "host.name:conn")
                              : getAttributeRequest(wordAt(init, 12), wordAt(init, 42));
    }
    return kind == handshake ? handshakeRequest
           : kind == close   ? closeRequest
                             : request(1, 0, kind == authFirst ? "Auth" : "Admin", word(0));
}

Bytes RawClient::query(std::string_view operation, std::string_view query) {
    const Bytes init = exchange(adminInitRequest);
    return slice(exchange(invokeRequest(wordAt(init, 12), wordAt(init, 42), operation, query)), 43);
}

End RawClient::awaitEnd() {
    setLimit(patience);
    ssize_t got = 1;
    for (Bytes dropped(4096); got > 0;) {
        got = ::recv(fd, dropped.data(), dropped.size(), 0);
    }
    return got == 0 ? End::closed : errno == ECONNRESET ? End::reset : End::open;
}

void RawClient::setLimit(std::chrono::milliseconds limit) {
    const timeval wait{limit.count() / 1000, limit.count() % 1000 * 1000};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

}  // namespace simtest
