#include "server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace bench {
namespace {

using support::message;

constexpr unsigned LIFE_SECONDS = 900;

struct Replies {
    Bytes handshake = message({.name = "BASE", .flowType = 5}, Bytes(4));
    Bytes close = message({.name = "BASE", .flowType = 10}, Bytes(4));
    Bytes firstAuth = message({.name = "Auth"}, support::hex("00000001 00000000 0000000B 0000000C 0000000D"));
    Bytes secondAuth = message({.name = "Auth"}, support::hex("00000001 00000000 00000015 00000016"));
    Bytes init = message({}, support::initBody(31));
    Bytes version = callReply(simgateway::attributePayload("1_0_0_0"));
    Bytes invoke;
};

const Bytes& choose(const Replies& replies, const unsigned char* request, std::size_t nameLength) {
    const std::uint32_t callType = getU32(request + HEADER_SIZE + nameLength);
    switch (request[24]) {
    case 'B':
        return getU32(request + 8) == 10 ? replies.close : replies.handshake;
    case 'A':
        if (nameLength == 4) {
            return callType == 0 ? replies.firstAuth : replies.secondAuth;
        }
        return callType == 0 ? replies.init : callType == 1 ? replies.version : replies.invoke;
    default:
        fail("a request that the server does not know");
    }
}

void serve(int socket, const Replies& replies) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    unsigned char buffer[65536];
    std::size_t have = 0;
    for (;;) {
        const ssize_t got = recv(socket, buffer + have, sizeof buffer - have, 0);
        if (got <= 0) {
            break;
        }
        have += static_cast<std::size_t>(got);
        if (have < HEADER_SIZE) {
            continue;
        }
        const std::size_t nameLength = getU32(buffer + 20);
        const std::size_t header = HEADER_SIZE + nameLength;
        if (have < header || have < header + getU32(buffer + header - 4)) {
            continue;
        }
        const Bytes& reply = choose(replies, buffer, nameLength);
        if (send(socket, reply.data(), reply.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(reply.size())) {
            break;
        }
        have = 0;
    }
    close(socket);
}

void acceptAll(int listener, const Replies& replies) {
    for (;;) {
        const int socket = accept(listener, nullptr, nullptr);
        if (socket < 0) {
            fail("accept");
        }
        std::thread(serve, socket, std::cref(replies)).detach();
    }
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

}  // namespace

void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

Cores availableCores() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) {
        fail("sched_getaffinity");
    }
    Cores cores = {-1, -1};
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &set)) {
            cores = {cores.server < 0 ? core : cores.server, core};
        }
    }
    return cores;
}

void pinTo(int core) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        fail("sched_setaffinity");
    }
}

bool forkChild(int core) {
    static std::vector<pid_t> children;
    const pid_t child = fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(LIFE_SECONDS);
        pinTo(core);
        return true;
    }
    if (children.empty()) {
        std::atexit([] {
            for (const pid_t each : children) {
                kill(each, SIGKILL);
                waitpid(each, nullptr, 0);
            }
        });
    }
    children.push_back(child);
    return false;
}

std::vector<std::uint16_t> startServer(const std::vector<Bytes>& payloads, int core) {
    std::vector<int> listeners;
    std::vector<std::uint16_t> ports;
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 || listen(listener, 512) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            fail("listening on loopback");
        }
        listeners.push_back(listener);
        ports.push_back(ntohs(address.sin_port));
    }
    if (forkChild(core)) {
        std::vector<Replies> replies(payloads.size());
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < payloads.size(); ++i) {
            replies[i].invoke = callReply(payloads[i]);
            threads.emplace_back(acceptAll, listeners[i], std::cref(replies[i]));
        }
        threads.front().join();  // until the process is ended
    }
    for (const int listener : listeners) {
        close(listener);
    }
    return ports;
}

int connectTo(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (descriptor < 0 || connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("connecting to the benchmark's server");
    }
    return descriptor;
}

}  // namespace bench
