#include "collector.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "frames.h"
#include "worker.h"

namespace monitor {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* ownProgram = "/proc/self/exe";

void check(int error, const char* what) {
    if (error != 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(error));
    }
}

struct SpawnSettings {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;

    SpawnSettings() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
};

// The worker blocks the signals of the terminal: they are for this process, and one that the library's waiting meets
// would end the exchange.
pid_t spawnWorker(int channel) {
    SpawnSettings spawn;
    check(posix_spawn_file_actions_adddup2(&spawn.actions, channel, workerChannel), "descriptor");
    check(posix_spawn_file_actions_addopen(&spawn.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0), "descriptor");
    check(posix_spawn_file_actions_addopen(&spawn.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0), "descriptor");
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}) {
        sigaddset(&blocked, signal);
    }
    posix_spawnattr_setsigmask(&spawn.attributes, &blocked);
    posix_spawnattr_setflags(&spawn.attributes, POSIX_SPAWN_SETSIGMASK);

    std::string name = "zulstat";
    std::string argument(workerArgument);
    std::string parent = std::to_string(getpid());
    const std::array<char*, 4> words = {name.data(), argument.data(), parent.data(), nullptr};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, ownProgram, &spawn.actions, &spawn.attributes, words.data(), environ);
    if (error == EAGAIN) {
        throw std::runtime_error("cannot start the worker process: the system allows no more processes (ulimit -u)");
    }
    check(error, "cannot start the worker process");
    return pid;
}

}  // namespace

Collector::Collector(CollectorOptions options) : settings(std::move(options)) {
}

Collector::~Collector() {
    abandon();
}

Outcome Collector::collect(const Query& query, Milliseconds timeout) {
    begin(query, timeout);
    return wait();
}

void Collector::begin(const Query& query, Milliseconds timeout) {
    if (inProgress) {
        abandon();
    }
    current = query;
    deadline = Clock::now() + timeout;
    startFailure.clear();
    inProgress = true;
    currentPhase = Phase::querying;
    const std::string request = FrameWriter(MessageType::query).add(query).finish();
    if (worker > 0 && send(request)) {
        return;
    }
    abandon();
    inProgress = true;
    try {
        start();
    } catch (const std::exception& error) {
        startFailure = error.what();
        return;
    }
    FrameWriter opening(MessageType::open);
    opening.add(std::string_view(settings.target.host)).add(settings.target.port);
    opening.add(settings.traceLevel).add(std::string_view(settings.traceFile));
    // One send: a worker that fails while it opens the connection has gone before a second one.
    if (!send(opening.finish() + request)) {
        startFailure = "the worker process takes no request";
    }
}

void Collector::start() {
    currentPhase = Phase::starting;
    opened = {};
    std::array<int, 2> sockets;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        check(errno, "socketpair");
    }
    channel = sockets[0];
    try {
        worker = spawnWorker(sockets[1]);
    } catch (...) {
        ::close(sockets[1]);
        throw;
    }
    ::close(sockets[1]);
}

bool Collector::send(const std::string& frame) {
    // Requests are smaller than the socket's buffer: one that does not fit meets a worker that reads nothing.
    const ssize_t size = ::send(channel, frame.data(), frame.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return size == static_cast<ssize_t>(frame.size());
}

bool Collector::receive() {
    std::array<char, 16384> block;
    for (;;) {
        const ssize_t size = recv(channel, block.data(), block.size(), MSG_DONTWAIT);
        if (size > 0) {
            received.append(block.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return size < 0 && errno == EAGAIN;
        }
    }
}

std::optional<Outcome> Collector::nextOutcome() {
    while (std::optional<FrameReader> frame = takeFrame(received)) {
        switch (frame->type()) {
        case MessageType::phase:
            currentPhase = frame->take<Phase>();
            break;
        case MessageType::opened:
            opened.protocol = frame->takeText();
            opened.openSeconds = frame->take<double>();
            opened.freshConnection = true;
            break;
        case MessageType::sample: {
            Outcome outcome{frame->takeSample(), std::nullopt};
            outcome.sample.target = settings.target;
            outcome.sample.query = current;
            outcome.sample.protocol = opened.protocol;
            outcome.sample.openSeconds = opened.openSeconds;
            outcome.sample.freshConnection = std::exchange(opened.freshConnection, false);
            open = true;
            inProgress = false;
            return outcome;
        }
        case MessageType::closed:
            abandon();
            return Outcome{};
        case MessageType::failed:
            return ended(frame->takeFailure());
        default:
            return ended({FailureKind::internal, currentPhase, 0, "a message of the worker is not understood"});
        }
    }
    return std::nullopt;
}

Outcome Collector::ended(Failure failure) {
    abandon();
    return {std::exchange(opened, {}), std::move(failure)};
}

std::optional<Outcome> Collector::advance() {
    if (!inProgress) {
        return std::nullopt;
    }
    // What the worker said comes first, also where it took no request.
    const bool alive = receive();
    try {
        if (std::optional<Outcome> outcome = nextOutcome()) {
            return outcome;
        }
    } catch (const std::exception& error) {
        return ended({FailureKind::internal, currentPhase, 0, error.what()});
    }
    if (!startFailure.empty()) {
        return ended({FailureKind::internal, Phase::starting, 0, startFailure});
    }
    if (!alive) {
        return ended({FailureKind::internal, currentPhase, 0, "the worker process ended unexpectedly"});
    }
    if (Clock::now() >= deadline) {
        const bool tracing = currentPhase == Phase::tracing;
        return ended({FailureKind::deadline, currentPhase, 0,
                      tracing ? settings.traceFile : describeWait(currentPhase, current)});
    }
    return std::nullopt;
}

Outcome Collector::wait() {
    std::optional<Outcome> outcome;
    while (!outcome) {
        outcome = waitFor(remaining());
    }
    return *std::move(outcome);
}

std::optional<Outcome> Collector::waitFor(Milliseconds limit) {
    if (std::optional<Outcome> outcome = advance()) {
        return outcome;
    }
    if (!inProgress) {
        return ended({FailureKind::internal, Phase::starting, 0, "there is no query to wait for"});
    }
    std::array<pollfd, 2> watched = {{{channel, POLLIN, 0}, {settings.interruptFd, POLLIN, 0}}};
    const int ready = poll(watched.data(), watched.size(), static_cast<int>(std::min(limit, remaining()).count()));
    if (ready > 0 && watched[1].revents != 0) {
        return ended({FailureKind::interrupted, currentPhase, 0, describeWait(currentPhase, current)});
    }
    return advance();
}

bool Collector::busy() const {
    return inProgress;
}

bool Collector::connected() const {
    return open;
}

int Collector::descriptor() const {
    return channel;
}

Collector::Milliseconds Collector::remaining() const {
    constexpr Milliseconds most = std::chrono::hours(24);
    const Milliseconds left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
    return std::clamp(startFailure.empty() ? left : Milliseconds(0), Milliseconds(0), most);
}

Phase Collector::phase() const {
    return currentPhase;
}

std::optional<Failure> Collector::close(Milliseconds timeout) {
    if (!open || inProgress || !send(FrameWriter(MessageType::close).finish())) {
        abandon();
        return std::nullopt;
    }
    inProgress = true;
    currentPhase = Phase::closing;
    deadline = Clock::now() + timeout;
    return wait().failure;
}

void Collector::abandon() {
    if (channel >= 0) {
        ::close(std::exchange(channel, -1));
    }
    if (worker > 0) {
        kill(worker, SIGKILL);
        while (waitpid(worker, nullptr, 0) < 0 && errno == EINTR) {
        }
        worker = -1;
    }
    received.clear();
    inProgress = false;
    open = false;
}

}  // namespace monitor
