#include "port.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace support {

TakenPort::TakenPort(bool listens, std::uint16_t wanted) : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{
        .sin_family = AF_INET, .sin_port = htons(wanted), .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    socklen_t size = sizeof address;
    auto* at = reinterpret_cast<sockaddr*>(&address);
    if (bind(descriptor, at, size) != 0 || getsockname(descriptor, at, &size) != 0 ||
        (listens && listen(descriptor, 8) != 0)) {
        const int error = errno;
        close(descriptor);
        throw std::system_error(error, std::generic_category(), "port");
    }
    number = ntohs(address.sin_port);
}

TakenPort::~TakenPort() {
    close(descriptor);
}

}  // namespace support
