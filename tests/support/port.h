// A port of 127.0.0.1 that is taken: connections are refused, or, where it listens, come and are not accepted.
#pragma once

#include <cstdint>

namespace support {

class TakenPort {
public:
    // Throws std::system_error where the one wanted is not free.
    explicit TakenPort(bool listens = false, std::uint16_t wanted = 0);
    ~TakenPort();
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;

    int number = 0;

private:
    const int descriptor;
};

}  // namespace support
