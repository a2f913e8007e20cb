// Gateways as they are named on the command line.
#pragma once

#include <string>
#include <vector>

#include "monitor/sample.h"

namespace zulstat {

// Adds what a word names to the targets: "gw1", "gw1:7532", "[::1]:7532", "::1", or several of them with commas
// between. Those without a port of their own have the one given. Throws UsageError.
void addTargets(const std::string& word, int port, std::vector<monitor::Target>& targets);

// Throws UsageError where one is there twice.
void refuseTwins(const std::vector<monitor::Target>& targets);

}  // namespace zulstat
