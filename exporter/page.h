// HTML. Every text passes monitor::escapeHtml().
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "targets.h"

namespace exporter {

// The page for people, without script and foreign resources. `now` is in seconds since 1970.
std::string landingPage(const std::vector<TargetState>& targets, std::string_view version, double now);
std::string_view styleSheet();

}  // namespace exporter
