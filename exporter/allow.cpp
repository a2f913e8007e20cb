#include "allow.h"

#include <arpa/inet.h>

#include <algorithm>

#include "monitor/glob.h"

namespace exporter {

using namespace monitor;

namespace {

constexpr std::string_view LOOPBACK = "127.0.0.0/8 ::1";
constexpr std::size_t LONGEST_HOST = 255;

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
}

// Digits, dots and stars: an address in part.
bool looksLikeAddresses(std::string_view glob) {
    return glob.find_first_not_of("0123456789.*?") == std::string_view::npos &&
           glob.find_first_of("0123456789") != std::string_view::npos;
}

// An address, or what the resolver takes for one without looking it up: "127.1", "0x7f000001".
bool standsForAddress(const std::string& host) {
    in_addr address{};
    return parseAddress(host) || inet_aton(host.c_str(), &address) != 0;
}

std::string lower(std::string_view text) {
    std::string small(text);
    std::transform(small.begin(), small.end(), small.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return small;
}

}  // namespace

std::optional<Target> parseTarget(std::string_view text) {
    const std::optional<HostAndPort> split = splitPort(text);
    if (!split || split->host.empty() || split->host.size() > LONGEST_HOST) {
        return std::nullopt;
    }
    const std::optional<int> port = parsePort(split->port);
    const bool fits =
        split->brackets ? split->host.find(':') != std::string_view::npos && parseAddress(split->host) &&
                              std::all_of(split->host.begin(), split->host.end(),
                                          [](char c) { return isHostCharacter(c) || c == ':' || c == '%'; })
                        : split->host[0] != '-' && std::all_of(split->host.begin(), split->host.end(), isHostCharacter);
    return port && fits ? std::optional(Target{std::string(split->host), *port}) : std::nullopt;
}

std::optional<Target> parseListenAddress(std::string_view text) {
    const std::optional<HostAndPort> split = splitPort(text);
    const std::optional<int> port = split ? parsePort(split->port, 0) : std::nullopt;
    return port ? std::optional(Target{std::string(split->host), *port}) : std::nullopt;
}

std::optional<AllowList::Word> AllowList::parse(const std::string& text) {
    if (const std::optional<Network> network = parseNetwork(text)) {
        return Word{text, network, 0};
    }
    const std::optional<HostAndPort> split = splitPort(text);
    if (!split || split->host.empty()) {
        return std::nullopt;
    }
    const std::optional<int> port = split->port == "*" ? std::optional(0) : parsePort(split->port);
    if (!port) {
        return std::nullopt;
    }
    const std::optional<Network> network = parseNetwork(split->host);
    const bool isGlob = !split->brackets && !looksLikeAddresses(split->host) &&
                        std::all_of(split->host.begin(), split->host.end(),
                                    [](char c) { return isHostCharacter(c) || c == '*' || c == '?'; });
    return network || isGlob ? std::optional(Word{lower(split->host), network, *port}) : std::nullopt;
}

AllowList::AllowList(const std::vector<std::string>& words) {
    for (const std::string& text : words) {
        if (std::optional<Word> word = parse(text)) {
            allowed.push_back(*std::move(word));
        }
    }
}

std::optional<std::string> AllowList::networksFor(const Target& target) const {
    std::string networks(LOOPBACK);
    const std::string host = lower(target.host);
    const bool isName = !standsForAddress(target.host);
    for (const Word& word : allowed) {
        if (word.port != 0 && word.port != target.port) {
            continue;
        }
        if (word.network) {
            networks += " " + word.host;
        } else if (isName && matchGlob(word.host, host)) {
            return std::string();
        }
    }
    const bool address = parseAddress(target.host).has_value();
    return !address || anyContains(networks, target.host) ? std::optional(networks) : std::nullopt;
}

std::string wordExpected(const std::string& text) {
    if (const std::optional<HostAndPort> split = splitPort(text);
        split && looksLikeAddresses(split->host) && split->host.find_first_of("*?") != std::string::npos) {
        return "a glob of host names: for addresses write a network, such as 10.0.0.0/8:7531";
    }
    return AllowList::parse(text)
               ? ""
               : "an address, a network such as 10.0.0.0/8, or a host name or glob with a port, such "
                 "as gw*.example.org:7531";
}

std::string targetExpected(const std::string& text) {
    return parseTarget(text) ? "" : "a host and a port, such as gw1:7531 or [2001:db8::1]:7531";
}

}  // namespace exporter
