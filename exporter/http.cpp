#include "http.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string_view>

namespace exporter {

namespace {

std::string addressText(const sockaddr* address) {
    std::array<char, NI_MAXHOST> text{};
    const socklen_t size = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    return getnameinfo(address, size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0 ? text.data() : "";
}

// A socket that listens there; without a host at every address.
int listenAt(const monitor::Target& where) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int rc = getaddrinfo(where.host.empty() ? nullptr : where.host.c_str(), std::to_string(where.port).c_str(),
                               &hints, &list);
    if (rc != 0) {
        throw std::runtime_error(fmt::format("cannot listen at {}: {}", targetText(where), gai_strerror(rc)));
    }
    int listener = -1;
    int error = 0;
    // Of several addresses, IPv6 first: it takes both kinds where no host is given.
    for (const int family : {AF_INET6, AF_INET}) {
        for (const addrinfo* entry = list; entry != nullptr && listener < 0; entry = entry->ai_next) {
            if (entry->ai_family != family) {
                continue;
            }
            listener = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            const int on = 1;
            const int off = 0;
            setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
            if (family == AF_INET6) {
                setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
            }
            if (bind(listener, entry->ai_addr, entry->ai_addrlen) != 0 || listen(listener, SOMAXCONN) != 0) {
                error = errno;
                close(listener);
                listener = -1;
            }
        }
    }
    freeaddrinfo(list);
    if (listener < 0) {
        throw std::runtime_error(fmt::format("cannot listen at {}: {}", targetText(where), std::strerror(error)));
    }
    return listener;
}

// "http://host/path" is "/path".
std::string pathOf(std::string_view url) {
    const std::size_t scheme = url.find("://");
    if (url.starts_with('/') || scheme == std::string_view::npos) {
        return std::string(url);
    }
    const std::size_t path = url.find('/', scheme + 3);
    return path == std::string_view::npos ? "/" : std::string(url.substr(path));
}

}  // namespace

HttpResponse plainAnswer(unsigned status, const std::string& text) {
    return {status, "text/plain; charset=utf-8", text + "\n", {}};
}

class HttpServer::Impl {
public:
    Impl(const monitor::Target& address, const HttpLimits& given, std::shared_ptr<const Tls> by, Authenticator& asking,
         HttpHandler use)
        : limits(given), authenticator(asking), tls(by), handler(std::move(use)), firstTls(std::move(by)) {
        const int listener = listenAt(address);
        unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
        std::vector<MHD_OptionItem> options = {
            {MHD_OPTION_LISTEN_SOCKET, listener, nullptr},
            // Its own limit stops accepting; it is not to be reached.
            {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(limits.connections) + 16, nullptr},
            {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(limits.headerSize), nullptr},
            {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(limits.idleSeconds) + 1, nullptr},
            {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&Impl::onCompleted), this},
            {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<intptr_t>(&Impl::onConnection), this},
        };
        if (tls) {
            // It insists on a pair; sessions have what Tls gives them.
            flags |= MHD_USE_TLS;
            options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(tls->settings().certificate.c_str())});
            options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(tls->settings().key.c_str())});
        }
        options.push_back({MHD_OPTION_END, 0, nullptr});
        daemon = MHD_start_daemon(flags, 0, &Impl::onAccept, this, &Impl::onRequest, this, MHD_OPTION_ARRAY,
                                  options.data(), MHD_OPTION_END);
        if (daemon == nullptr) {
            close(listener);
            throw std::runtime_error("cannot serve at " + targetText(address));
        }
        epoll = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
        sockaddr_storage own{};
        socklen_t size = sizeof own;
        getsockname(listener, reinterpret_cast<sockaddr*>(&own), &size);
        listeningPort = ntohs(own.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&own)->sin6_port
                                                        : reinterpret_cast<const sockaddr_in*>(&own)->sin_port);
    }

    ~Impl() {
        end();
        MHD_run(daemon);
        MHD_stop_daemon(daemon);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    Clock::time_point nextWake(Clock::time_point at) const {
        MHD_UNSIGNED_LONG_LONG milliseconds = 0;
        const bool any = MHD_get_timeout(daemon, &milliseconds) == MHD_YES;
        return again ? at : any ? at + std::chrono::milliseconds(milliseconds) : Clock::time_point::max();
    }

    void step() {
        again = false;
        unused.clear();
        MHD_run(daemon);
    }

    void answer(std::uint64_t id, HttpResponse response) {
        const auto found = requests.find(id);
        if (found == requests.end()) {
            return;
        }
        found->second->response = std::move(response);
        resume(*found->second);
    }

    // go() makes the answers.
    void end() {
        ending = true;
        for (auto& [id, request] : requests) {
            resume(*request);
        }
    }

    void authenticated() {
        for (const std::uint64_t id : authenticator.finished()) {
            const auto found = requests.find(id);
            if (found != requests.end()) {
                resume(*found->second);
            } else {
                authenticator.forget(id);
            }
        }
    }

    std::vector<std::uint64_t> tidy(Clock::time_point at) {
        for (auto& [connection, state] : open) {
            const double allowed = state.requests > 0 && !state.active ? limits.idleSeconds : limits.requestSeconds;
            const bool late = state.until && at > *state.until;
            if (!state.ended && (late || std::chrono::duration<double>(at - state.since).count() > allowed)) {
                ++counters.closedLate;
                state.ended = true;
                shutdown(state.socket, SHUT_RDWR);
                again = true;
            }
        }
        // Of a suspended connection the daemon sees nothing.
        std::vector<std::uint64_t> gone;
        for (const auto& [id, request] : requests) {
            pollfd socket = {open[request->connection].socket, POLLRDHUP, 0};
            if (request->asked && request->suspended && poll(&socket, 1, 0) > 0) {
                gone.push_back(id);
            }
        }
        return gone;
    }

    const HttpLimits limits;
    MHD_Daemon* daemon = nullptr;
    Authenticator& authenticator;
    std::shared_ptr<const Tls> tls;  // of new connections
    Headers headers;
    int epoll = -1;
    int listeningPort = 0;
    HttpCounts counters;

    struct Connection {
        int socket = -1;
        std::string client;
        Clock::time_point since;  // the connection, its request or the end of its last one
        unsigned long requests = 0;
        bool active = false;  // a request is being answered
        bool ended = false;
        std::optional<Clock::time_point> until{};  // of the answer on its way
        std::shared_ptr<const Tls> tls{};
    };
    std::map<MHD_Connection*, Connection> open;

private:
    struct Request {
        HttpRequest request;
        MHD_Connection* connection = nullptr;
        std::optional<HttpResponse> response;
        bool asked = false;  // the handler was
        bool suspended = false;
    };

    void resume(Request& request) {
        if (std::exchange(request.suspended, false)) {
            MHD_resume_connection(request.connection);
            again = true;
        }
    }

    static MHD_Result onAccept(void* self, const sockaddr* address, socklen_t) {
        Impl& server = *static_cast<Impl*>(self);
        if (server.open.size() >= server.limits.connections) {
            ++server.counters.refusedTotal;
            return MHD_NO;
        }
        const auto count = server.perClient.find(addressText(address));
        if (count != server.perClient.end() && count->second >= server.limits.connectionsPerClient) {
            ++server.counters.refusedPerClient;
            return MHD_NO;
        }
        return MHD_YES;
    }

    static void onConnection(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
        Impl& server = *static_cast<Impl*>(self);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            Connection& added = server.open[connection];
            added.socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
            added.client =
                addressText(MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr);
            added.since = Clock::now();
            if (server.tls) {
                added.tls = server.tls;
                added.tls->prepare(sessionOf(connection));
            }
            ++server.perClient[added.client];
            ++server.counters.connections;
            return;
        }
        const auto gone = server.open.find(connection);
        if (gone != server.open.end()) {
            const auto count = server.perClient.find(gone->second.client);
            if (--count->second == 0) {
                server.perClient.erase(count);
            }
            server.unused.push_back(std::move(gone->second.tls));
            server.open.erase(gone);
        }
    }

    static void onCompleted(void* self, MHD_Connection* connection, void** mark, MHD_RequestTerminationCode) {
        Impl& server = *static_cast<Impl*>(self);
        if (const auto place = server.open.find(connection); place != server.open.end()) {
            place->second.since = Clock::now();
            place->second.active = false;
            place->second.until.reset();
        }
        if (*mark != nullptr) {
            server.requests.erase(static_cast<Request*>(*mark)->request.id);
            *mark = nullptr;
        }
    }

    static MHD_Result onArgument(void* arguments, MHD_ValueKind, const char* key, std::size_t keySize,
                                 const char* value, std::size_t valueSize) {
        static_cast<Arguments*>(arguments)->emplace(std::string(key, keySize),
                                                    value == nullptr ? "" : std::string(value, valueSize));
        return MHD_YES;
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                                const char*, const char*, std::size_t* uploaded, void** mark) {
        Impl& server = *static_cast<Impl*>(self);
        try {
            if (*mark == nullptr) {
                *mark = server.take(connection, url, method);
                return MHD_YES;
            }
            if (*uploaded != 0) {
                *uploaded = 0;  // nobody reads it
                return MHD_YES;
            }
            return server.go(*static_cast<Request*>(*mark));
        } catch (const std::exception&) {
            return MHD_NO;
        }
    }

    static gnutls_session_t sessionOf(MHD_Connection* connection) {
        const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
        return static_cast<gnutls_session_t>(info->tls_session);
    }

    static std::string header(MHD_Connection* connection, const char* name) {
        const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
        return value == nullptr ? "" : value;
    }

    Request* take(MHD_Connection* connection, const char* url, const char* method) {
        auto request = std::make_unique<Request>();
        request->connection = connection;
        request->request.id = ++lastId;
        request->request.method = method;
        request->request.path = pathOf(url);
        MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, &Impl::onArgument, &request->request.arguments);
        request->request.accept = header(connection, "Accept");
        request->request.scrapeTimeout = header(connection, "X-Prometheus-Scrape-Timeout-Seconds");
        Connection& state = open[connection];
        state.since = Clock::now();
        state.active = true;
        ++state.requests;
        request->request.client = state.client;
        request->request.until = state.since + std::chrono::duration_cast<Clock::duration>(
                                                   std::chrono::duration<double>(limits.requestSeconds));
        Request* const raw = request.get();
        requests.emplace(lastId, std::move(request));
        return raw;
    }

    MHD_Result go(Request& request) {
        if (ending && !request.response) {
            request.response = plainAnswer(503, "The exporter ends.");
        }
        if (!request.response && !request.asked) {
            const std::shared_ptr<const Tls>& own = open[request.connection].tls;
            if (own && !own->accepts(sessionOf(request.connection))) {
                request.response = plainAnswer(403, "A certificate of the client is missing, or is not accepted.");
            } else if (authenticator.needed()) {
                const std::optional<bool> authorized = authorize(request);
                if (!authorized) {
                    return MHD_YES;  // suspended
                }
            }
        }
        if (!request.response && !request.asked) {
            request.asked = true;
            request.response = handler(request.request);
            if (!request.response) {
                suspend(request);
                return MHD_YES;
            }
        }
        return request.response ? queue(request) : MHD_NO;
    }

    void suspend(Request& request) {
        request.suspended = true;
        MHD_suspend_connection(request.connection);
    }

    // Whether the handler may be asked; the response is there otherwise. Nothing while that is not known.
    std::optional<bool> authorize(Request& request) {
        const std::optional<Credentials> given = parseBasic(header(request.connection, "Authorization"));
        const Authenticator::Answer answer =
            given ? authenticator.check(request.request.id, given->user, given->password) : Authenticator::Answer::no;
        switch (answer) {
        case Authenticator::Answer::yes:
            return true;
        case Authenticator::Answer::later:
            suspend(request);
            return std::nullopt;
        case Authenticator::Answer::busy:
            request.response = plainAnswer(503, "Too many passwords to check at once.");
            return false;
        case Authenticator::Answer::no:
            break;
        }
        ++counters.unauthorized;
        request.response = plainAnswer(401, "Unauthorized");
        request.response->headers.emplace_back("WWW-Authenticate", "Basic realm=\"zulstat-exporter\"");
        return false;
    }

    MHD_Result queue(Request& request) {
        HttpResponse& answer = *request.response;
        MHD_Response* const response =
            MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_PERSISTENT);
        if (response == nullptr) {
            return MHD_NO;
        }
        open[request.connection].until = answer.until;
        MHD_add_response_header(response, "Content-Type", answer.type.c_str());
        for (const auto& [name, value] : answer.headers) {
            MHD_add_response_header(response, name.c_str(), value.c_str());
        }
        for (const auto& [name, value] : headers) {
            if (MHD_get_response_header(response, name.c_str()) == nullptr) {
                MHD_add_response_header(response, name.c_str(), value.c_str());
            }
        }
        if (ending) {
            MHD_add_response_header(response, "Connection", "close");
        }
        const MHD_Result result = MHD_queue_response(request.connection, answer.status, response);
        MHD_destroy_response(response);
        return result;
    }

    HttpHandler handler;
    const std::shared_ptr<const Tls> firstTls;       // whose texts the daemon keeps
    std::vector<std::shared_ptr<const Tls>> unused;  // by connections that are being ended
    std::map<std::uint64_t, std::unique_ptr<Request>> requests;
    std::map<std::string, unsigned> perClient;
    std::uint64_t lastId = 0;
    bool again = false;  // connections were resumed or ended: there is something to do
    bool ending = false;
};

HttpServer::HttpServer(const monitor::Target& address, const HttpLimits& limits, std::shared_ptr<const Tls> tls,
                       Authenticator& authenticator, HttpHandler handler)
    : impl(std::make_unique<Impl>(address, limits, std::move(tls), authenticator, std::move(handler))) {
}

HttpServer::~HttpServer() = default;

void HttpServer::setTls(std::shared_ptr<const Tls> tls) {
    impl->tls = std::move(tls);
}

void HttpServer::setHeaders(Headers headers) {
    impl->headers = std::move(headers);
}

int HttpServer::port() const {
    return impl->listeningPort;
}

int HttpServer::descriptor() const {
    return impl->epoll;
}

Clock::time_point HttpServer::nextWake(Clock::time_point now) const {
    return impl->nextWake(now);
}

void HttpServer::step() {
    impl->step();
}

void HttpServer::takePasswords() {
    impl->authenticated();
}

void HttpServer::answer(std::uint64_t id, HttpResponse response) {
    impl->answer(id, std::move(response));
}

void HttpServer::end() {
    impl->end();
}

std::vector<std::uint64_t> HttpServer::tidy(Clock::time_point now) {
    return impl->tidy(now);
}

HttpCounts HttpServer::counts() const {
    return impl->counters;
}

std::size_t HttpServer::connections() const {
    return impl->open.size();
}

}  // namespace exporter
