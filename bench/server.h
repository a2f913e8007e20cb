// The Gateway's side: a process of its own, on a core of its own, that answers every request with a ready reply.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "wire.h"

namespace bench {

// First and last core that this process may use.
struct Cores {
    int server;
    int client;
};
Cores availableCores();

void pinTo(int core);

// Says what failed and exits.
[[noreturn]] void fail(const char* what);

// Starts a server that ends with this process, one loopback port for each payload with which to answer an operation;
// to be called while there is one thread. Returns the ports.
std::vector<std::uint16_t> startServer(const std::vector<Bytes>& payloads, int core);

// A connected socket, without any socket option set.
int connectTo(std::uint16_t port);

// Forks a process on that core, which ends with this one; true in the new process.
bool forkChild(int core);

}  // namespace bench
