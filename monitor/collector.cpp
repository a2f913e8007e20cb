#include "collector.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace monitor {

namespace {

constexpr const char* WORKER_NAME = "zulstats-worker";
constexpr int MOST_BLOCKS = 64;  // taken at once from a worker that never stops talking

void check(int error, const std::string& what) {
    if (error != 0) {
        throw std::runtime_error(what + ": " + std::strerror(error));
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
pid_t spawnWorker(const std::string& program, int channel) {
    SpawnSettings spawn;
    check(posix_spawn_file_actions_adddup2(&spawn.actions, channel, STDIN_FILENO), "descriptor");
    check(posix_spawn_file_actions_adddup2(&spawn.actions, channel, STDOUT_FILENO), "descriptor");
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}) {
        sigaddset(&blocked, signal);
    }
    posix_spawnattr_setsigmask(&spawn.attributes, &blocked);
    posix_spawnattr_setflags(&spawn.attributes, POSIX_SPAWN_SETSIGMASK);

    std::string name = WORKER_NAME;
    const std::array<char*, 2> words = {name.data(), nullptr};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, program.c_str(), &spawn.actions, &spawn.attributes, words.data(), environ);
    if (error == EAGAIN) {
        throw std::runtime_error("cannot start the worker process: the system allows no more processes (ulimit -u)");
    }
    check(error, "cannot start the worker process " + program);
    return pid;
}

}  // namespace

std::string findWorker() {
    namespace fs = std::filesystem;
    if (const char* const given = std::getenv("ZULSTATS_WORKER"); given != nullptr && *given != '\0') {
        return given;
    }
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error) {
        return {};
    }
    const fs::path beside = own / WORKER_NAME;
    return access(beside.c_str(), X_OK) == 0 ? beside.string() : (own / ZULSTATS_WORKER_DIR / WORKER_NAME).string();
}

Collector::Collector(CollectorOptions options) : settings(std::move(options)) {
}

Collector::~Collector() {
    abandon();
    reap(0);
}

void Collector::begin(Query query, Clock::time_point until) {
    if (inProgress) {
        abandon();
    }
    reap(WNOHANG);
    current = std::move(query);
    deadline = until;
    startFailure.clear();
    inProgress = true;
    currentPhase = Phase::querying;
    const std::string request = writeQuery(current);
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
    const OpenRequest opening = {settings.target.host, settings.target.port, settings.traceLevel, settings.traceFile,
                                 settings.networks};
    // One send: a worker that fails while it opens the connection has gone before a second one.
    // One that has gone already shows where it is heard.
    if (!send(writeHello() + writeOpen(opening) + request) && errno != EPIPE && errno != ECONNRESET) {
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
        worker = spawnWorker(settings.worker, sockets[1]);
    } catch (...) {
        ::close(sockets[1]);
        throw;
    }
    ::close(sockets[1]);
}

bool Collector::send(const std::string& bytes) {
    // Requests are smaller than the socket's buffer: one that does not fit meets a worker that reads nothing.
    const ssize_t size = ::send(channel, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return size == static_cast<ssize_t>(bytes.size());
}

// Returns whether the worker may have more to say.
bool Collector::receive() {
    FrameBuffer::Received last = FrameBuffer::Received::bytes;
    for (int blocks = 0; blocks < MOST_BLOCKS && last == FrameBuffer::Received::bytes; ++blocks) {
        last = received.receive(channel, MSG_DONTWAIT);
    }
    return last != FrameBuffer::Received::end;
}

std::optional<Outcome> Collector::nextOutcome() {
    while (std::optional<FrameReader> frame = received.next()) {
        if (std::optional<Outcome> outcome = take(*frame)) {
            return outcome;
        }
    }
    return std::nullopt;
}

std::optional<Outcome> Collector::take(FrameReader& frame) {
    if (greeted == (frame.type() == MessageType::hello)) {
        throw FrameError();
    }
    switch (frame.type()) {
    case MessageType::hello: {
        const std::uint32_t version = readHello(frame);
        greeted = version == FRAME_VERSION;
        if (!greeted) {
            throw std::runtime_error("the worker program " + settings.worker + " is of another version (" +
                                     std::to_string(version) + ", not " + std::to_string(FRAME_VERSION) + ")");
        }
        return std::nullopt;
    }
    case MessageType::phase:
        currentPhase = readPhase(frame);
        return std::nullopt;
    case MessageType::opened: {
        Opened said = readOpened(frame);
        opened.protocol = std::move(said.protocol);
        opened.openSeconds = said.seconds;
        opened.freshConnection = true;
        return std::nullopt;
    }
    case MessageType::sample: {
        Outcome outcome{readSample(frame), std::nullopt};
        outcome.sample.target = settings.target;
        outcome.sample.query = std::move(current);
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
        return ended(readFailed(frame));
    default:
        throw FrameError();
    }
}

Outcome Collector::ended(Failure failure) {
    abandon();
    return {std::exchange(opened, {}), std::move(failure)};
}

std::optional<Outcome> Collector::advance(Clock::time_point now) {
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
    if (now >= deadline) {
        const bool tracing = currentPhase == Phase::tracing;
        return ended({FailureKind::deadline, currentPhase, 0,
                      tracing ? settings.traceFile : describeWait(currentPhase, current)});
    }
    return std::nullopt;
}

bool Collector::beginClose(Clock::time_point until) {
    if (!open || inProgress || !send(writeClose())) {
        abandon();
        return false;
    }
    inProgress = true;
    currentPhase = Phase::closing;
    deadline = until;
    return true;
}

void Collector::abandon() {
    if (channel >= 0) {
        ::close(std::exchange(channel, -1));
    }
    if (worker > 0) {
        kill(worker, SIGKILL);
        leaving.push_back(std::exchange(worker, -1));
    }
    reap(WNOHANG);
    received.clear();
    inProgress = false;
    greeted = false;
    open = false;
}

void Collector::reapEnded() {
    reap(WNOHANG);
}

void Collector::reap(int flags) {
    std::erase_if(leaving, [&](pid_t process) {
        pid_t rc = -1;
        do {
            rc = waitpid(process, nullptr, flags);
        } while (rc < 0 && errno == EINTR);
        return rc != 0;
    });
}

void Collector::setNetworks(std::string networks) {
    settings.networks = std::move(networks);
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

Clock::time_point Collector::nextWake() const {
    return !inProgress ? Clock::time_point::max() : !startFailure.empty() ? Clock::time_point::min() : deadline;
}

Phase Collector::phase() const {
    return currentPhase;
}

pid_t Collector::process() const {
    return worker;
}

Outcome Collector::collect(Query query, Milliseconds timeout) {
    begin(std::move(query), Clock::now() + timeout);
    return wait();
}

Outcome Collector::wait() {
    for (;;) {
        const Clock::time_point now = Clock::now();
        if (std::optional<Outcome> outcome = advance(now)) {
            return *std::move(outcome);
        }
        if (!inProgress) {
            return ended({FailureKind::internal, Phase::starting, 0, "there is no query to wait for"});
        }
        std::array<pollfd, 2> watched = {{{channel, POLLIN, 0}, {settings.interruptFd, POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), pollTime(nextWake(), now));
        if (ready > 0 && watched[1].revents != 0) {
            return ended({FailureKind::interrupted, currentPhase, 0, describeWait(currentPhase, current)});
        }
    }
}

std::optional<Failure> Collector::close(Milliseconds timeout) {
    return beginClose(Clock::now() + timeout) ? wait().failure : std::nullopt;
}

}  // namespace monitor
