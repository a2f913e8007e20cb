// Which targets may be probed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "monitor/network.h"
#include "monitor/sample.h"

namespace exporter {

// "host:port" with a host name or an address, "[address]:port" for an IPv6 one; nothing for another text.
std::optional<monitor::Target> parseTarget(std::string_view text);

// Where to listen: as a target, but with port 0 for any free one, and an empty host for every address.
std::optional<monitor::Target> parseListenAddress(std::string_view text);

// What a target may be that nobody configured: loopback addresses, and what the words say. A word is an address or a
// network, with a port or without, or a glob of host names with a port: "10.0.0.0/8", "[2001:db8::/32]:7531",
// "gw*.example.org:7531", "gw1:*". Globs are for names in any case, and for no address in whatever spelling.
class AllowList {
public:
    AllowList() = default;
    // Words that wordExpected() objects to allow nothing.
    explicit AllowList(const std::vector<std::string>& words);

    // The networks in which an address of the target is to be, with blanks between, empty where any may be dialled.
    // Nothing for a target that is an address and in none of them.
    std::optional<std::string> networksFor(const monitor::Target& target) const;

private:
    struct Word {
        std::string host;  // glob, in small letters, or network
        std::optional<monitor::Network> network;
        int port = 0;  // 0: any
    };
    static std::optional<Word> parse(const std::string& text);
    friend std::string wordExpected(const std::string& text);

    std::vector<Word> allowed;
};

// What was expected in place of a text that is no word of an allow list; empty where it is one.
std::string wordExpected(const std::string& text);
// The same for a target.
std::string targetExpected(const std::string& text);

}  // namespace exporter
