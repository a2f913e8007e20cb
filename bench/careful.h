// A client as a careful programmer writes it by hand, in the shape of the library: the same system calls and blocks of
// storage for each exchange, the answer laid out flat in a buffer of its own, and a walk by a call for each statistic
// that checks who calls. Without a trace, a list of connections, or a code for every failure.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdlib>

#include "wire.h"

namespace bench {

class CarefulClient {
public:
    explicit CarefulClient(std::uint16_t port);
    ~CarefulClient();
    CarefulClient(const CarefulClient&) = delete;
    CarefulClient& operator=(const CarefulClient&) = delete;

    // A query for everything and a walk over the answer.
    long fetch();

private:
    struct Entry {
        const char* id;
        const char* value;
        std::uint32_t idLength;
        std::uint32_t valueLength;
    };

    // Sends a request whose body may have the handle of the init reply; returns the reply's body, the caller's, and its
    // size.
    unsigned char* exchange(const Bytes& request, std::uint32_t handle, std::size_t* size);
    bool query();
    bool next(Entry* entry);

    const int socket;
    const pid_t process;
    const pthread_t thread;
    const Bytes init = support::adminInitRequest;
    const Bytes invoke = support::invokeRequest(0, 0, "GET_STATS");
    char* const content = static_cast<char*>(std::malloc(RESULT_SET_BUFFER_SIZE));
    const char* cursor = nullptr;
    std::uint32_t itemsLeft = 0;
};

}  // namespace bench
