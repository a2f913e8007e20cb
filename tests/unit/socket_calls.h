// System calls with the results a test prescribes. Every socket, connect, select, getsockopt, ioctl, time and madvise
// of this program's own objects goes through here; without a script each does its work.
#ifndef SOCKET_CALLS_H
#define SOCKET_CALLS_H

#include <ctime>
#include <optional>
#include <vector>

namespace support {

enum class Ready { NONE, WRITABLE, EXCEPTION };

// The result of one select: `result` with `error`, or the set in which its descriptor is found ready.
struct SelectResult {
    int result = 0;
    int error = 0;
    Ready ready = Ready::NONE;
};

// While it lives, the library's calls on the calling thread follow the script. One at a time.
struct SocketCalls {
    SocketCalls();
    ~SocketCalls();
    SocketCalls(const SocketCalls&) = delete;
    SocketCalls& operator=(const SocketCalls&) = delete;

    void (*beforeSocket)() = nullptr;           // called before socket does its work
    void (*beforeMadvise)() = nullptr;          // called before madvise does its work
    std::optional<int> socketError{};           // errno with which socket fails
    std::optional<int> connectError{};          // errno with which connect fails
    std::optional<int> pendingError{};          // SO_ERROR of every socket
    std::optional<int> madviseError{};          // errno with which madvise fails
    std::vector<SelectResult> selectResults{};  // one a call; after the last select does its work
    std::vector<std::time_t> times{};           // one a call; after the last time does its work

    std::vector<long> timeouts{};    // of select, -1 where it was not asked for writable or exception alone
    std::vector<int> modeOptions{};  // what ioctl(FIONBIO) was given
};

}  // namespace support

#endif
