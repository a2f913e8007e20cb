// HTTP: connections, their limits, and requests that are answered later. The only part that knows libmicrohttpd.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "auth.h"
#include "monitor/schedule.h"
#include "request.h"
#include "tls.h"

namespace exporter {

using monitor::Clock;

struct HttpRequest {
    std::uint64_t id = 0;  // for HttpServer::answer()
    std::string method;
    std::string path;
    Arguments arguments;
    std::string accept;
    std::string scrapeTimeout;  // header X-Prometheus-Scrape-Timeout-Seconds; empty: none
    std::string client;         // its address
    // When its time is over, and the connection is closed.
    monitor::Clock::time_point until{};
};

using Headers = std::vector<std::pair<std::string, std::string>>;

struct HttpResponse {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    Headers headers;
    // When the client is to have it; the connection of a slower one is closed. In any case there is requestSeconds.
    std::optional<Clock::time_point> until{};
};

// A line of text.
HttpResponse plainAnswer(unsigned status, const std::string& text);

struct HttpLimits {
    unsigned connections = 2048;
    unsigned connectionsPerClient = 1024;
    std::size_t headerSize = 16384;
    double requestSeconds = 30;  // for a request and its answer, or until the first request
    double idleSeconds = 120;    // between requests
};

struct HttpCounts {
    std::uint64_t connections = 0;  // accepted
    std::uint64_t refusedTotal = 0;
    std::uint64_t refusedPerClient = 0;
    std::uint64_t closedLate = 0;  // by requestSeconds and idleSeconds
    std::uint64_t unauthorized = 0;
};

// Nothing where answer() is called later.
using HttpHandler = std::function<std::optional<HttpResponse>(const HttpRequest&)>;

// Listens from construction on. Everything is called from one thread, and nothing waits: poll descriptor() for POLLIN
// until nextWake(), then call step().
class HttpServer {
public:
    // Throws std::runtime_error where it cannot listen at the address. Without `tls` there is none. The authenticator
    // outlives it; without users everybody may ask.
    HttpServer(const monitor::Target& address, const HttpLimits& limits, std::shared_ptr<const Tls> tls,
               Authenticator& authenticator, HttpHandler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // For connections that come from now on. Only where there was TLS from the start.
    void setTls(std::shared_ptr<const Tls> tls);
    // Headers of every answer that does not have them itself.
    void setHeaders(Headers headers);

    int port() const;
    int descriptor() const;
    Clock::time_point nextWake(Clock::time_point now) const;
    void step();
    // Once the authenticator's descriptor is readable.
    void takePasswords();
    // Of a request that the handler left open. A client that has gone is passed over.
    void answer(std::uint64_t id, HttpResponse response);
    // From now on every request is answered with status 503, those that wait for an answer first. The handler is not
    // called any more.
    void end();
    // Ends connections that take too long. Returns the requests that the handler left open and whose client has closed
    // the connection, until they are answered.
    std::vector<std::uint64_t> tidy(Clock::time_point now);

    HttpCounts counts() const;
    std::size_t connections() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace exporter
