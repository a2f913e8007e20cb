// A program on the C++ header: nobody listens on the port that it asks.
#include <zulstats.hpp>

int main() {
    std::error_code code;
    const zul::Connection gateway = zul::Connection::open("127.0.0.1", 1, code);
    return code == zul::errc::connection_refused && !gateway.is_open() ? 0 : 1;
}
