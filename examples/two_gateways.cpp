/* Follows two Gateways of this host in one loop, and prints the load that each tells, once a second:
 *
 *     two-gateways PORT PORT
 *
 * It ends when a Gateway is not there at the start; later it waits for one that went. The library of samples, monitor/,
 * asks each Gateway in a process of its own, so that none keeps the other waiting. */
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "monitor/follower.h"

using namespace monitor;

static FollowerOptions optionsFor(const char* port) {
    FollowerOptions options;
    options.collector.target = {"127.0.0.1", std::atoi(port)};
    options.collector.worker = findWorker();
    options.query = {What::statsById, {"host.load.1m"}};
    return options;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s PORT PORT\n", argv[0]);
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::array<FollowerOptions, 2> options = {optionsFor(argv[1]), optionsFor(argv[2])};
    std::array<Follower, 2> followers = {Follower(options[0]), Follower(options[1])};
    for (;;) {
        std::array<pollfd, 2> watched{};
        Clock::time_point wake = Clock::time_point::max();
        for (std::size_t index = 0; index < followers.size(); ++index) {
            const Target& target = options[index].collector.target;
            while (const std::optional<Event> event = followers[index].step(Clock::now())) {
                for (const Item& item : event->sample.items) {
                    std::printf("%s %.*s %.*s\n", targetText(target).c_str(), static_cast<int>(item.id.size()),
                                item.id.data(), static_cast<int>(item.value.size()), item.value.data());
                }
                if (event->failure) {
                    const auto why = describeFailure(*event->failure, target, options[index].timeout);
                    std::printf("%s %s\n", targetText(target).c_str(), why.c_str());
                }
                if (event->kind == Event::Kind::end) {
                    return 1;
                }
            }
            watched[index] = {followers[index].descriptor(), POLLIN, 0};
            wake = std::min(wake, followers[index].nextWake());
        }
        poll(watched.data(), watched.size(), pollTime(wake, Clock::now()));
    }
}
