// Words of hosts and ports; networks: an address and how many of its bits count.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace monitor {

// An IPv4 address stands as ::ffff:a.b.c.d.
using AddressBytes = std::array<std::uint8_t, 16>;

struct Network {
    AddressBytes address{};
    unsigned bits = 128;

    bool contains(const AddressBytes& other) const;
};

// "10.1.2.3", "::1", "fe80::1%eth0"; names are none.
std::optional<AddressBytes> parseAddress(std::string_view text);
// "10.0.0.0/8", "2001:db8::/32", or an address, which is a network by itself.
std::optional<Network> parseNetwork(std::string_view text);
// Whether one of the networks, with blanks between, contains the address. No network contains what is no address.
bool anyContains(std::string_view networks, std::string_view address);

// From 1 to 65535.
std::optional<int> parsePort(std::string_view text);

// What stands before and behind the last colon, as views of the text; brackets around the host are taken off. Neither
// is looked at. Nothing without a colon.
struct HostAndPort {
    std::string_view host;
    std::string_view port;
    bool brackets = false;
};
std::optional<HostAndPort> splitPort(std::string_view text);

}  // namespace monitor
