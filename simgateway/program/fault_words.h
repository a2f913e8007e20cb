// Faults in words, for --fault and for lines on standard input:
//
//     [GATEWAY/]EXCHANGE:FAULT[=VALUE][,FAULT[=VALUE]]...[:N]
//
// GATEWAY is a number from 1 on; without it all Gateways are meant. N is a number of exchanges or "always".
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simgateway/sim_gateway.h"
#include "usage_error.h"

namespace zulstatsim {

struct ExchangeWord {
    std::string_view name;
    std::string_view text;  // what it is, for the help
    simgateway::Exchange exchange;
};

struct FaultWord {
    std::string_view name;
    std::string_view value;  // what stands behind the equals sign, for the help; empty: nothing does
    std::string_view text;   // what it does, for the help
    unsigned exchanges;      // a bit for each Exchange that it changes
    void (*apply)(simgateway::Fault& fault, std::string_view name, std::string_view value);
    std::string_view needs{};  // another fault without which it does nothing
};

// The tables that the parser, the help and the manual's check read.
std::span<const ExchangeWord> exchangeWords();
std::span<const FaultWord> faultWords();

// The exchanges of a fault in words; empty where they are all.
std::string exchangesOf(const FaultWord& word);

struct FaultOrder {
    std::size_t gateway = 0;  // from 1 on; 0: all
    simgateway::Exchange exchange = simgateway::Exchange::unknown;
    simgateway::Fault fault{};
    std::optional<std::size_t> times = 1;  // none: until further notice
};

// Throws UsageError; for a file that cannot be read, std::runtime_error.
FaultOrder parseFaultOrder(std::string_view words);

}  // namespace zulstatsim
