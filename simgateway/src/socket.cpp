#include "socket.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace simgateway {

namespace {

constexpr std::size_t RECEIVE_CHUNK = 16384;

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string cannotListen(std::uint16_t port) {
    return "cannot listen on port " + std::to_string(port);
}

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        reset();
        fd = std::exchange(other.fd, -1);
    }
    return *this;
}

void Descriptor::reset() {
    if (fd >= 0) {
        ::close(std::exchange(fd, -1));
    }
}

StopSignal::StopSignal() {
    event = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (event.get() < 0) {
        throwErrno("eventfd");
    }
}

void StopSignal::raise() {
    ::eventfd_write(event.get(), 1);
}

void StopSignal::lower() {
    eventfd_t count = 0;
    ::eventfd_read(event.get(), &count);
}

Wait waitFor(int fd, short events, const StopSignal& stop, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const bool unlimited = limit.count() < 0;
    const std::chrono::milliseconds largest(std::numeric_limits<int>::max());
    const auto deadline = Clock::now() + std::min(limit, largest);
    for (;;) {
        int timeout = -1;
        if (!unlimited) {
            const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            timeout = static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, largest.count()));
        }
        pollfd entries[2] = {{stop.descriptor(), POLLIN, 0}, {fd, events, 0}};
        const int count = ::poll(entries, 2, timeout);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwErrno("poll");
        }
        if (entries[0].revents != 0) {
            return Wait::stopped;
        }
        if (entries[1].revents != 0) {
            return Wait::ready;
        }
        if (!unlimited && Clock::now() >= deadline) {
            return Wait::timeout;
        }
    }
}

Descriptor bindToLoopback(std::uint16_t port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.get() < 0) {
        throwErrno("socket");
    }
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        throwErrno("setsockopt");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throwErrno(cannotListen(port).c_str());
    }
    return socket;
}

void listenOn(const Descriptor& socket) {
    if (::listen(socket.get(), SOMAXCONN) != 0) {
        throwErrno(cannotListen(localPort(socket)).c_str());
    }
}

std::uint16_t localPort(const Descriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throwErrno("getsockname");
    }
    return ntohs(address.sin_port);
}

bool receive(const Descriptor& socket, Bytes& out, std::size_t count, const StopSignal& stop) {
    std::uint8_t chunk[RECEIVE_CHUNK];
    while (count > 0) {
        if (waitFor(socket.get(), POLLIN, stop, std::chrono::milliseconds(-1)) != Wait::ready) {
            return false;
        }
        const ssize_t got = ::recv(socket.get(), chunk, std::min(count, sizeof chunk), 0);
        if (got > 0) {
            out.insert(out.end(), chunk, chunk + got);
            count -= static_cast<std::size_t>(got);
        } else if (got == 0 || (errno != EINTR && !wouldBlock(errno))) {
            return false;
        }
    }
    return true;
}

bool transmit(const Descriptor& socket, const std::uint8_t* bytes, std::size_t count, const StopSignal& stop) {
    while (count > 0) {
        const ssize_t sent = ::send(socket.get(), bytes, count, MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes += sent;
            count -= static_cast<std::size_t>(sent);
        } else if (wouldBlock(errno)) {
            if (waitFor(socket.get(), POLLOUT, stop, std::chrono::milliseconds(-1)) != Wait::ready) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void closeWithReset(const Descriptor& socket) {
    const linger now{1, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace simgateway
