#include "allow.h"

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
    const bool isGlob = !split->brackets && std::all_of(split->host.begin(), split->host.end(), [](char c) {
        return isHostCharacter(c) || c == '*' || c == '?';
    });
    return network || isGlob ? std::optional(Word{std::string(split->host), network, *port}) : std::nullopt;
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
    for (const Word& word : allowed) {
        if (word.port != 0 && word.port != target.port) {
            continue;
        }
        if (word.network) {
            networks += " " + word.host;
        } else if (matchGlob(word.host, target.host)) {
            return std::string();
        }
    }
    const bool address = parseAddress(target.host).has_value();
    return !address || anyContains(networks, target.host) ? std::optional(networks) : std::nullopt;
}

std::string wordExpected(const std::string& text) {
    return AllowList::parse(text)
               ? ""
               : "an address, a network such as 10.0.0.0/8, or a host name or glob with a port, such "
                 "as gw*.example.org:7531";
}

std::string targetExpected(const std::string& text) {
    return parseTarget(text) ? "" : "a host and a port, such as gw1:7531 or [2001:db8::1]:7531";
}

}  // namespace exporter
