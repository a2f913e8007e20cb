#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <list>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "connection.h"
#include "control.h"
#include "session.h"
#include "simgateway/model.h"
#include "simgateway/sim_gateway.h"
#include "socket.h"

namespace simgateway {

namespace {

using Clock = std::chrono::steady_clock;

// Model time stays below this, so that no statistic overflows.
constexpr double LAST_SECOND = 1e10;
constexpr std::uint64_t LARGEST_ADVANCE = 10'000'000'000;

// The acceptor looks at the scene after this many seconds at the latest.
constexpr double LONGEST_REST = 1e6;

// Rest for the acceptor when the system has no descriptor or thread left.
constexpr std::chrono::milliseconds shortage(20);

void checkOptions(const Options& options) {
    if (!std::isfinite(options.speed) || options.speed < 0) {
        throw std::invalid_argument("speed must be a number of at least 0");
    }
    if (options.protocolVersion.size() > 0xFFFF) {
        throw std::invalid_argument("protocol version longer than 65535 bytes");
    }
}

}  // namespace

class Server::Impl {
public:
    explicit Impl(Options wanted)
        : options((checkOptions(wanted), std::move(wanted))),
          model(options.seed, options.scenes ? 0 : options.stats),
          control(options.keepRequests),
          holder(bindToLoopback(options.port)),
          boundPort(localPort(holder)),
          start(Clock::now()) {
        if (scene().model != nullptr) {
            listen();
        }
        acceptor = std::thread([this] { acceptAll(); });
    }

    ~Impl() {
        stop();
    }

    void stop() {
        const std::lock_guard guard(stopLock);
        if (!acceptor.joinable()) {
            return;
        }
        stopSignal.raise();
        acceptor.join();
        endConnections();
        listener.reset();
        holder.reset();
    }

    Scene scene() const {
        if (options.scenes) {
            return options.scenes(elapsed());
        }
        const auto seconds = static_cast<std::uint64_t>(std::floor(elapsed()));
        return {.model = &model, .moment = seconds + advanced.load(), .protocolVersion = options.protocolVersion};
    }

    void advance(std::uint64_t count) {
        if (options.scenes) {
            throw std::logic_error("the time of scenes runs by itself");
        }
        std::uint64_t now = advanced.load();
        while (
            !advanced.compare_exchange_weak(now, std::min(LARGEST_ADVANCE, now + std::min(LARGEST_ADVANCE, count)))) {
        }
    }

    const Options options;
    const Model model;
    Control control;

private:
    struct Worker {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    double elapsed() const {
        const std::chrono::duration<double> real = Clock::now() - start;
        return std::min(real.count() * options.speed, LAST_SECOND);
    }

    // How long the scene keeps its model, or its lack of one; negative: for good.
    std::chrono::milliseconds untilChange(const Scene& now) const {
        const double left = (now.until - elapsed()) / options.speed;
        if (!std::isfinite(left)) {
            return std::chrono::milliseconds(-1);
        }
        const std::chrono::duration<double> rest(std::clamp(left, 0.0, LONGEST_REST));
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(rest), std::chrono::milliseconds(1));
    }

    void listen() {
        Descriptor socket = bindToLoopback(boundPort);
        listenOn(socket);
        listener = std::move(socket);
    }

    void acceptAll() {
        for (;;) {
            const Scene now = scene();
            std::chrono::milliseconds limit = untilChange(now);
            if (now.model == nullptr && listener.get() >= 0) {
                listener.reset();
                endConnections();
                connectionStop.lower();
            } else if (now.model != nullptr && listener.get() < 0) {
                try {
                    listen();
                } catch (const std::system_error&) {
                    limit = shortage;
                }
            }
            const Wait wait = waitFor(listener.get(), POLLIN, stopSignal, limit);
            if (wait == Wait::stopped) {
                return;
            }
            if (wait == Wait::ready) {
                acceptOne();
            }
        }
    }

    void acceptOne() {
        Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0) {
            if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED) {
                waitFor(-1, 0, stopSignal, shortage);
            }
            return;
        }
        workers.remove_if([](Worker& worker) {
            if (!worker.done) {
                return false;
            }
            worker.thread.join();
            return true;
        });
        const int on = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        startWorker(std::move(socket), ++accepted);
    }

    void endConnections() {
        connectionStop.raise();
        for (Worker& worker : workers) {
            worker.thread.join();
        }
        workers.clear();
    }

    void startWorker(Descriptor socket, std::uint32_t number) {
        Worker& worker = workers.emplace_back();
        control.connectionOpened();
        try {
            auto connection = std::make_unique<Connection>(std::move(socket), number, Session(number), control,
                                                           connectionStop, [this] { return scene(); });
            worker.thread = std::thread([&worker, owned = std::move(connection)]() mutable {
                owned->run();
                owned.reset();
                worker.done = true;
            });
        } catch (const std::exception&) {
            // No thread to be had: the peer sees its connection closed.
            workers.pop_back();
            control.connectionClosed();
        }
    }

    StopSignal stopSignal;      // for the acceptor
    StopSignal connectionStop;  // for the connections
    Descriptor holder;          // bound and silent: the port stays this server's while it does not listen
    Descriptor listener;        // used by the acceptor's thread; closed by stop() after its end

public:
    const std::uint16_t boundPort;

private:
    const Clock::time_point start;
    std::atomic<std::uint64_t> advanced{0};  // seconds added by advance()
    std::uint32_t accepted = 0;              // connections so far; belongs to the acceptor's thread
    std::list<Worker> workers;               // belongs to the acceptor's thread, after its end to stop()
    std::mutex stopLock;                     // held through stop()
    std::thread acceptor;
};

Server::Server(Options options) : impl(std::make_unique<Impl>(std::move(options))) {
}

Server::~Server() = default;

std::uint16_t Server::port() const {
    return impl->boundPort;
}

void Server::inject(Exchange exchange, Fault fault, std::size_t times) {
    impl->control.inject(exchange, std::move(fault), times);
}

void Server::setFault(Exchange exchange, Fault fault) {
    impl->control.setFault(exchange, std::move(fault));
}

std::size_t Server::pendingFaults(Exchange exchange) const {
    return impl->control.pendingFaults(exchange);
}

void Server::setPayload(Exchange exchange, Bytes payload) {
    impl->control.setPayload(exchange, std::move(payload));
}

void Server::clearPayload(Exchange exchange) {
    impl->control.setPayload(exchange, std::nullopt);
}

void Server::advance(std::uint64_t seconds) {
    impl->advance(seconds);
}

std::vector<Request> Server::requests() const {
    return impl->control.requests();
}

std::size_t Server::connections() const {
    return impl->control.connections();
}

bool Server::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    return impl->control.waitForRequests(count, limit);
}

bool Server::waitForConnections(std::size_t count, std::chrono::milliseconds limit) const {
    return impl->control.waitForConnections(count, limit);
}

void Server::stop() {
    impl->stop();
}

}  // namespace simgateway
