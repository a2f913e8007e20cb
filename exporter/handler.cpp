#include "handler.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <variant>

#include "monitor/utf8.h"
#include "page.h"

namespace exporter {

using namespace monitor;

namespace {

using Answer = std::optional<HttpResponse>;

Answer probe(HandlerContext& context, const HttpRequest& request) {
    const auto parsed = parseProbe(request.arguments);
    if (const std::string* const wrong = std::get_if<std::string>(&parsed)) {
        return plainAnswer(400, *wrong);
    }
    const ProbeParameters& parameters = std::get<ProbeParameters>(parsed);
    std::optional<double> timeout;
    if (!request.scrapeTimeout.empty()) {
        timeout = parseScrapeTimeout(request.scrapeTimeout);
        if (!timeout) {
            return plainAnswer(400, "The header X-Prometheus-Scrape-Timeout-Seconds is no number above 0.");
        }
    }
    // What is left for the request is a time-out too.
    const double rest = std::max(std::chrono::duration<double>(request.until - Clock::now()).count(), 0.0);
    const double seconds = probeSeconds(std::min(timeout.value_or(rest), rest), context.timeoutOffset,
                                        context.targets.moduleDeadline(parameters.module));
    const bool debug = parameters.debug;
    const MetricsFormat format = formatAccepted(request.accept);
    const std::uint64_t id = request.id;
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds + context.timeoutOffset));
    const auto answer = [&context, id, format, debug, end](ProbeResult& result, Mapper& mapper) {
        HttpResponse response;
        // What a name resolved to shows only while it is probed; to which addresses, in the log.
        if (result.failure && result.failure->kind == FailureKind::forbidden) {
            response = plainAnswer(403, NOT_ALLOWED);
        } else if (debug) {
            response.body = probeDebug(result, mapper);
        } else {
            response.type = contentType(format);
            response.body = probeMetrics(format, result, mapper);
        }
        response.until = end;
        context.server->answer(id, std::move(response));
    };
    const std::optional<Refusal> refusal =
        context.targets.probe(parameters.target, parameters.module, Clock::now(), seconds, answer, id);
    return refusal ? Answer(plainAnswer(refusal->status, refusal->why)) : std::nullopt;
}

Answer metrics(HandlerContext& context, const HttpRequest& request) {
    const MetricsFormat format = formatAccepted(request.accept);
    return HttpResponse{200,
                        std::string(contentType(format)),
                        ownMetrics(format, context.targets, *context.server, context.httpLimits, context.state),
                        {}};
}

Answer landing(HandlerContext& context, const HttpRequest&) {
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    return HttpResponse{200,
                        "text/html; charset=utf-8",
                        landingPage(context.targets.states(), ZULSTAT_EXPORTER_VERSION, now),
                        {{"Content-Security-Policy",
                          "default-src 'none'; style-src 'self'; form-action 'self'; "
                          "base-uri 'none'; frame-ancestors 'none'"},
                         {"Cache-Control", "no-store"}}};
}

Answer style(HandlerContext&, const HttpRequest&) {
    return HttpResponse{200, "text/css; charset=utf-8", std::string(styleSheet()), {{"Cache-Control", "max-age=3600"}}};
}

Answer discovery(HandlerContext& context, const HttpRequest&) {
    nlohmann::json all = nlohmann::json::array();
    for (const ConfiguredTarget& target : context.config.targets) {
        nlohmann::json labels = {{"__param_module", repairUtf8(target.module)}};
        for (const auto& [name, value] : target.labels) {
            labels[name] = repairUtf8(value);
        }
        all.push_back({{"targets", {target.target}}, {"labels", labels}});
    }
    return HttpResponse{200, "application/json", all.dump(2) + "\n", {}};
}

Answer configuration(HandlerContext& context, const HttpRequest&) {
    return HttpResponse{200, "text/plain; charset=utf-8", context.configText, {}};
}

Answer healthy(HandlerContext&, const HttpRequest&) {
    return plainAnswer(200, "zulstat-exporter is healthy.");
}

Answer ready(HandlerContext&, const HttpRequest&) {
    return plainAnswer(200, "zulstat-exporter is ready.");
}

Answer reload(HandlerContext& context, const HttpRequest&) {
    if (!context.lifecycle) {
        return plainAnswer(403, "Reloading by request is off: --web.enable-lifecycle.");
    }
    std::string why;
    return context.reload(why) ? plainAnswer(200, "The configuration is loaded.")
                               : plainAnswer(500, "The former configuration stays in force: " + why);
}

struct Path {
    std::string_view path;
    bool changes;  // POST in place of GET
    Answer (*answer)(HandlerContext&, const HttpRequest&);
};

constexpr std::array<Path, 9> PATHS = {{
    {"/", false, landing},
    {"/probe", false, probe},
    {"/metrics", false, metrics},
    {"/sd", false, discovery},
    {"/config", false, configuration},
    {"/style.css", false, style},
    {"/-/healthy", false, healthy},
    {"/-/ready", false, ready},
    {"/-/reload", true, reload},
}};

}  // namespace

Answer handle(HandlerContext& context, const HttpRequest& request) {
    for (const Path& path : PATHS) {
        if (path.path != request.path) {
            continue;
        }
        const bool fits = path.changes ? request.method == "POST" || request.method == "PUT"
                                       : request.method == "GET" || request.method == "HEAD";
        Answer answer = fits ? path.answer(context, request) : plainAnswer(405, "This method is not for this path.");
        if (answer) {
            if (!fits) {
                answer->headers.emplace_back("Allow", path.changes ? "POST, PUT" : "GET, HEAD");
            }
            answer->headers.emplace_back("X-Content-Type-Options", "nosniff");
        }
        return answer;
    }
    return plainAnswer(404, "There is nothing at this path.");
}

}  // namespace exporter
