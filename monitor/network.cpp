#include "network.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace monitor {

namespace {

constexpr unsigned MAPPED_BITS = 96;

}  // namespace

bool Network::contains(const AddressBytes& other) const {
    const unsigned whole = bits / 8;
    if (!std::equal(address.begin(), address.begin() + whole, other.begin())) {
        return false;
    }
    const unsigned rest = bits % 8;
    return rest == 0 || (address[whole] ^ other[whole]) >> (8 - rest) == 0;
}

std::optional<AddressBytes> parseAddress(std::string_view text) {
    const std::string plain(text.substr(0, text.find('%')));
    AddressBytes bytes{};
    if (inet_pton(AF_INET, plain.c_str(), bytes.data() + 12) == 1) {
        bytes[10] = bytes[11] = 0xFF;
        return bytes;
    }
    return inet_pton(AF_INET6, plain.c_str(), bytes.data()) == 1 ? std::optional(bytes) : std::nullopt;
}

std::optional<Network> parseNetwork(std::string_view text) {
    const std::size_t slash = text.find('/');
    const std::optional<AddressBytes> address = parseAddress(text.substr(0, slash));
    if (!address) {
        return std::nullopt;
    }
    Network network{*address, 128};
    if (slash != std::string_view::npos) {
        const bool four = text.substr(0, slash).find(':') == std::string_view::npos;
        const std::string_view number = text.substr(slash + 1);
        unsigned bits = 0;
        const auto [rest, error] = std::from_chars(number.data(), number.data() + number.size(), bits);
        if (error != std::errc() || rest != number.data() + number.size() || bits > (four ? 32 : 128)) {
            return std::nullopt;
        }
        network.bits = bits + (four ? MAPPED_BITS : 0);
    }
    return network;
}

bool anyContains(std::string_view networks, std::string_view address) {
    const std::optional<AddressBytes> bytes = parseAddress(address);
    while (bytes && !networks.empty()) {
        const std::string_view word = networks.substr(0, networks.find(' '));
        networks.remove_prefix(std::min(word.size() + 1, networks.size()));
        if (const std::optional<Network> network = parseNetwork(word); network && network->contains(*bytes)) {
            return true;
        }
    }
    return false;
}

std::optional<int> parsePort(std::string_view text) {
    int port = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && rest == text.data() + text.size();
    return whole && port >= 1 && port <= 65535 ? std::optional(port) : std::nullopt;
}

std::optional<HostAndPort> splitPort(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    HostAndPort split{text.substr(0, colon), text.substr(colon + 1)};
    split.brackets = split.host.starts_with('[') && split.host.ends_with(']');
    if (split.brackets) {
        split.host = split.host.substr(1, split.host.size() - 2);
    }
    return split;
}

}  // namespace monitor
