#include "gateways.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>

#include <sys/resource.h>

#include "output.h"
#include "recording.h"

namespace zulstatsim {

namespace {

// A Gateway has some descriptors of its own and one for each connection, so that many need more than usual.
void allowManyDescriptors() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

std::unique_ptr<simgateway::Server> listening(const simgateway::Options& options) {
    try {
        return std::make_unique<simgateway::Server>(options);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::address_in_use && error.code() != std::errc::permission_denied) {
            throw;
        }
        throw std::runtime_error(std::string(error.what()) + "; --port 0 takes any free one");
    }
}

}  // namespace

Gateways::Gateways(const Arguments& arguments) {
    simgateway::Options options = arguments.options;
    if constexpr (CAN_REPLAY) {
        if (!arguments.replay.empty()) {
            std::uint64_t passedOver = 0;
            options.scenes = readRecording(arguments.replay, arguments.loop, &passedOver);
            if (passedOver > 0) {
                complain("zulstat-sim: " + arguments.replay +
                         ": passed over what is no whole sample, lines: " + std::to_string(passedOver) + "\n");
            }
        }
    }
    allowManyDescriptors();
    for (std::size_t count = 0; count < arguments.gateways; ++count) {
        servers.push_back(listening(options));
        ++options.seed;
        options.port = static_cast<std::uint16_t>(options.port == 0 ? 0 : options.port + 1);
    }
    for (const FaultOrder& order : arguments.faults) {
        give(order);
    }
}

std::vector<std::uint16_t> Gateways::ports() const {
    std::vector<std::uint16_t> all;
    for (const auto& server : servers) {
        all.push_back(server->port());
    }
    return all;
}

void Gateways::give(const FaultOrder& order) {
    checkGateway(order, servers.size());
    for (std::size_t index = 0; index < servers.size(); ++index) {
        if (order.gateway != 0 && order.gateway != index + 1) {
            continue;
        }
        if (order.times) {
            servers[index]->inject(order.exchange, order.fault, *order.times);
        } else {
            servers[index]->setFault(order.exchange, order.fault);
        }
    }
}

void Gateways::stop() {
    for (const auto& server : servers) {
        server->stop();
    }
}

}  // namespace zulstatsim
