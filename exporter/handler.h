// What the exporter answers at which path.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "http.h"
#include "own_metrics.h"
#include "targets.h"

namespace exporter {

// What the paths need. The records outlive the handler.
struct HandlerContext {
    Targets& targets;
    const HttpLimits& httpLimits;
    OwnState& state;
    const std::string& configText;  // of the file in force
    const monitor::MappingFile& config;
    double timeoutOffset = 0.5;
    bool lifecycle = false;
    std::function<bool(std::string& why)> reload;
    HttpServer* server = nullptr;  // once there is one
};

// Nothing where the answer comes later, through the server.
std::optional<HttpResponse> handle(HandlerContext& context, const HttpRequest& request);

}  // namespace exporter
