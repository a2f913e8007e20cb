#include "targets.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "monitor/network.h"
#include "usage_error.h"

namespace zulstat {

using namespace monitor;

namespace {

// Two colons and no brackets make an IPv6 address without a port.
bool hasPort(std::string_view text) {
    return text.starts_with('[') ? !text.ends_with(']') : std::count(text.begin(), text.end(), ':') == 1;
}

Target parseTarget(std::string_view text, int port) {
    Target target{std::string(text), port};
    if (hasPort(text)) {
        const HostAndPort split = splitPort(text).value_or(HostAndPort{text, "", false});
        const std::optional<int> own = parsePort(split.port);
        if (!own || split.brackets != text.starts_with('[')) {
            throw UsageError{
                fmt::format("'{}' is not a host and a port, such as gw1:7531 or [2001:db8::1]:7531", text)};
        }
        target = {std::string(split.host), *own};
    } else if (text.starts_with('[')) {
        target.host = text.substr(1, text.size() - 2);
    }
    if (target.host.empty()) {
        throw UsageError{"the host name is empty"};
    }
    return target;
}

}  // namespace

void addTargets(const std::string& word, int port, std::vector<Target>& targets) {
    std::string_view left = word;
    for (;;) {
        const std::size_t comma = left.find(',');
        targets.push_back(parseTarget(left.substr(0, comma), port));
        if (comma == std::string_view::npos) {
            return;
        }
        left.remove_prefix(comma + 1);
    }
}

void refuseTwins(const std::vector<Target>& targets) {
    std::set<std::string> seen;
    for (const Target& target : targets) {
        if (const std::string text = targetText(target); !seen.insert(text).second) {
            throw UsageError{fmt::format("the Gateway {} is named twice", text)};
        }
    }
}

}  // namespace zulstat
