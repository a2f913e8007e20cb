#include "worker.h"

#include <netdb.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "frames.h"
#include "zulstats.h"

namespace monitor {

namespace {

using Clock = std::chrono::steady_clock;

double seconds(auto duration) {
    return std::chrono::duration<double>(duration).count();
}

// The parent has gone, or a message makes no sense: nobody is left to tell.
struct ParentLost {};

void sendFrame(const std::string& frame) {
    std::size_t sent = 0;
    while (sent < frame.size()) {
        const ssize_t size = send(workerChannel, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (size < 0 && errno != EINTR) {
            throw ParentLost();
        }
        sent += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
}

void report(Phase phase) {
    sendFrame(FrameWriter(MessageType::phase).add(phase).finish());
}

FrameReader nextRequest(std::string& received) {
    std::array<char, 4096> block;
    for (;;) {
        if (std::optional<FrameReader> frame = takeFrame(received)) {
            return *std::move(frame);
        }
        const ssize_t size = recv(workerChannel, block.data(), block.size(), 0);
        if (size > 0) {
            received.append(block.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            throw ParentLost();
        }
    }
}

FailureKind kindOf(int rc) {
    switch (rc) {
    case STAPI_RC_HOST_NOT_RESOLVED:
    case STAPI_RC_CONNECTION_REFUSED:
    case STAPI_RC_NETWORK_UNREACHABLE:
    case STAPI_RC_CONNECT_BAD_PARAMETER:
    case STAPI_RC_CONNECT_FAILED:
        return FailureKind::cannotConnect;
    case STAPI_RC_GATEWAY_CONNECTION_LOST:
        return FailureKind::lost;
    case STAPI_RC_GATEWAY_REQUEST_FAILED:
        return FailureKind::refused;
    default:
        return FailureKind::libraryCode;
    }
}

void throwOnError(int rc, Phase phase) {
    if (rc != 0) {
        throw Failure{kindOf(rc), phase, rc, {}};
    }
}

// All addresses of the host. The library resolves names too, but tries the first address alone.
std::vector<std::string> resolve(const std::string& host) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* list = nullptr;
    const int rc = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (rc != 0) {
        throw Failure{FailureKind::cannotConnect, Phase::resolving, STAPI_RC_HOST_NOT_RESOLVED, gai_strerror(rc)};
    }
    std::vector<std::string> addresses;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        std::array<char, NI_MAXHOST> text;
        if (getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0) {
            addresses.emplace_back(text.data());
        }
    }
    freeaddrinfo(list);
    return addresses;
}

GatewayToken* openConnection(const std::string& host, int port) {
    const Clock::time_point start = Clock::now();
    report(Phase::resolving);
    const std::vector<std::string> addresses = resolve(host);
    report(Phase::opening);
    GatewayToken* token = nullptr;
    char* version = nullptr;
    int rc = STAPI_RC_HOST_NOT_RESOLVED;
    for (const std::string& address : addresses) {
        rc = openRemoteGatewayConnection(address.c_str(), port, &token, &version);
        if (kindOf(rc) != FailureKind::cannotConnect) {
            break;
        }
    }
    throwOnError(rc, Phase::opening);
    const std::string protocol = version == nullptr ? "" : version;
    std::free(version);
    sendFrame(
        FrameWriter(MessageType::opened).add(std::string_view(protocol)).add(seconds(Clock::now() - start)).finish());
    return token;
}

int ask(GatewayToken* token, const Query& query, ResultSetToken** result) {
    std::string text;
    for (const std::string& id : query.ids) {
        text += (text.empty() ? "" : ":") + id;
    }
    switch (query.what) {
    case What::stats:
        return getStats(token, result);
    case What::statsById:
        return getStatsByStatId(token, text.c_str(), result);
    case What::statsByGroup:
        return getStatsByStatGroupId(token, text.c_str(), result);
    case What::ids:
        return getStatIds(token, result);
    case What::idsByGroup:
        return getStatIdsByStatGroupId(token, text.c_str(), result);
    case What::groups:
        return getResourceGroupIds(token, result);
    }
    return STAPI_RC_NULL_PARAMETER;
}

std::string text(const char* pointer, std::int32_t length) {
    return std::string(pointer, static_cast<std::size_t>(length));
}

// An entry says which query element it belongs to by the place of the element's text, which is the same for all its
// entries: two elements may have equal texts.
struct Walk {
    std::vector<Element> elements;
    const char* place = nullptr;

    template <typename Entry>
    bool enter(const Entry& entry) {
        if (elements.empty() || entry.queryElementPtr != place) {
            elements.push_back({text(entry.queryElementPtr, entry.queryElementLen), entry.queryElementRC, {}});
            place = entry.queryElementPtr;
        }
        return entry.queryElementRC >= 0;
    }
};

std::vector<Element> walk(ResultSetToken* result, bool hasValues) {
    Walk walk;
    StatData stat{};
    IdData id{};
    int rc = hasValues ? getFirstStat(result, &stat) : getFirstId(result, &id);
    while (rc == 0) {
        if (hasValues) {
            if (walk.enter(stat)) {
                walk.elements.back().items.push_back(
                    {text(stat.statIdPtr, stat.statIdLen), text(stat.statValuePtr, stat.statValueLen)});
            }
            rc = getNextStat(result, &stat);
        } else {
            if (walk.enter(id)) {
                walk.elements.back().items.push_back({text(id.idPtr, id.idLen), {}});
            }
            rc = getNextId(result, &id);
        }
    }
    if (rc != STAPI_RC_END_OF_RESULT_SET) {
        throw Failure{FailureKind::libraryCode, Phase::querying, rc, {}};
    }
    return std::move(walk.elements);
}

// A result set holds a marker of 8 bytes and the number of elements; each element's text, code and number of items;
// their texts; and a word at the end. Each number takes 4 bytes, each text 4 more than its length.
std::size_t contentSize(const std::vector<Element>& elements, bool hasValues) {
    std::size_t size = 8 + 4 + 4;
    for (const Element& element : elements) {
        size += 4 + element.text.size() + 4 + (element.rc < 0 ? 0 : 4);
        for (const Item& item : element.items) {
            size += 4 + item.id.size() + (hasValues ? 4 + item.value.size() : 0);
        }
    }
    return size;
}

Sample takeSample(GatewayToken* token, const Query& query) {
    report(Phase::querying);
    const Clock::time_point start = Clock::now();
    ResultSetToken* result = nullptr;
    const int rc = ask(token, query, &result);
    const Clock::time_point end = Clock::now();
    Sample sample;
    sample.wallTime = seconds(std::chrono::system_clock::now().time_since_epoch());
    throwOnError(rc, Phase::querying);
    sample.monotonicTime = seconds(end.time_since_epoch());
    sample.hasValues = query.what == What::stats || query.what == What::statsById || query.what == What::statsByGroup;
    sample.elements = walk(result, sample.hasValues);
    sample.contentSize = contentSize(sample.elements, sample.hasValues);
    sample.querySeconds = seconds(end - start);
    return sample;
}

void serve() {
    std::string received;
    FrameReader request = nextRequest(received);
    const std::string host = request.takeText();
    const int port = request.take<int>();
    const int traceLevel = request.take<int>();
    const std::string traceFile = request.takeText();
    if (!traceFile.empty()) {
        report(Phase::tracing);
        throwOnError(setAPITraceFile(traceFile.c_str()), Phase::tracing);
    }
    throwOnError(setAPITraceLevel(traceLevel), Phase::starting);
    GatewayToken* token = openConnection(host, port);
    for (;;) {
        request = nextRequest(received);
        if (request.type() == MessageType::close) {
            report(Phase::closing);
            throwOnError(closeGatewayConnection(&token), Phase::closing);
            sendFrame(FrameWriter(MessageType::closed).finish());
            return;
        }
        const Sample sample = takeSample(token, request.takeQuery());
        sendFrame(FrameWriter(MessageType::sample).add(sample).finish());
    }
}

}  // namespace

int runWorker(int argc, char** argv) {
    // The parent may have gone before the kernel was asked to tell.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "zulstat-worker");  // it was started as /proc/self/exe, and would be "exe" in lists of processes
    if (argc != 3 || std::to_string(getppid()) != argv[2]) {
        return EXIT_FAILURE;
    }
    std::optional<Failure> failure;
    try {
        try {
            serve();
        } catch (const Failure& known) {
            failure = known;
        } catch (const std::exception& error) {
            failure = Failure{FailureKind::internal, Phase::querying, 0, error.what()};
        }
        if (!failure) {
            return EXIT_SUCCESS;
        }
        sendFrame(FrameWriter(MessageType::failed).add(*failure).finish());
    } catch (const ParentLost&) {
        return EXIT_FAILURE;
    }
    return EXIT_FAILURE;
}

}  // namespace monitor
