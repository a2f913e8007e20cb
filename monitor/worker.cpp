#include "worker.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codes.h"
#include "frames.h"
#include "network.h"
#include "zulstats.h"

namespace monitor {

namespace {

using Clock = std::chrono::steady_clock;

double seconds(auto duration) {
    return std::chrono::duration<double>(duration).count();
}

constexpr int CHANNEL = STDIN_FILENO;

static_assert(RC_CONNECTION_LOST == STAPI_RC_GATEWAY_CONNECTION_LOST);
static_assert(RC_REQUEST_FAILED == STAPI_RC_GATEWAY_REQUEST_FAILED);
static_assert(RC_HOST_NOT_RESOLVED == STAPI_RC_HOST_NOT_RESOLVED);

// The program has gone, or says what makes no sense: nobody is left to tell.
struct ProgramLost {};

void sendFrame(const std::string& frame) {
    std::size_t sent = 0;
    while (sent < frame.size()) {
        const ssize_t size = send(CHANNEL, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (size < 0 && errno != EINTR) {
            throw ProgramLost();
        }
        sent += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
}

void report(Phase phase) {
    sendFrame(writePhase(phase));
}

FrameReader nextMessage(FrameBuffer& received) {
    for (;;) {
        if (const std::optional<FrameReader> frame = received.next()) {
            return *frame;
        }
        if (received.receive(CHANNEL, 0) == FrameBuffer::Received::end) {
            throw ProgramLost();
        }
    }
}

FrameReader nextMessage(FrameBuffer& received, MessageType expected) {
    const FrameReader frame = nextMessage(received);
    if (frame.type() != expected) {
        throw ProgramLost();
    }
    return frame;
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

// Those of the addresses that may be dialled.
std::vector<std::string> allowedOf(const std::vector<std::string>& addresses, const std::string& networks) {
    std::vector<std::string> allowed;
    std::string all;
    for (const std::string& address : addresses) {
        all += (all.empty() ? "" : ", ") + address;
        if (networks.empty() || anyContains(networks, address)) {
            allowed.push_back(address);
        }
    }
    if (allowed.empty() && !addresses.empty()) {
        throw Failure{FailureKind::forbidden, Phase::resolving, 0, all};
    }
    return allowed;
}

GatewayToken* openConnection(const std::string& host, int port, const std::string& networks) {
    const Clock::time_point start = Clock::now();
    report(Phase::resolving);
    const std::vector<std::string> addresses = allowedOf(resolve(host), networks);
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
    const Opened opened = {version == nullptr ? "" : version, seconds(Clock::now() - start)};
    std::free(version);
    sendFrame(writeOpened(opened));
    return token;
}

int ask(GatewayToken* token, const QueryRequest& query, ResultSetToken** result) {
    switch (query.what) {
    case What::stats:
        return getStats(token, result);
    case What::statsById:
        return getStatsByStatId(token, query.ids.c_str(), result);
    case What::statsByGroup:
        return getStatsByStatGroupId(token, query.ids.c_str(), result);
    case What::ids:
        return getStatIds(token, result);
    case What::idsByGroup:
        return getStatIdsByStatGroupId(token, query.ids.c_str(), result);
    case What::groups:
        return getResourceGroupIds(token, result);
    }
    return STAPI_RC_NULL_PARAMETER;
}

// An answer on its way from the library to the program.
class Answer {
public:
    // Takes the element that the entry belongs to, if it is the first one of it. An entry says which query element it
    // belongs to by the place of the element's text, which is the same for all its entries: two elements may have equal
    // texts. Returns whether it has an item.
    bool enter(const auto& entry) {
        if (entry.queryElementPtr != place) {
            place = entry.queryElementPtr;
            writer.addElement(take(entry.queryElementPtr, entry.queryElementLen), entry.queryElementRC);
        }
        return entry.queryElementRC >= 0;
    }
    void add(const StatData& stat) {
        if (enter(stat)) {
            const std::string_view id = take(stat.statIdPtr, stat.statIdLen);
            writer.addItem(id, take(stat.statValuePtr, stat.statValueLen));
        }
    }
    void add(const IdData& id) {
        if (enter(id)) {
            writer.addItem(take(id.idPtr, id.idLen), {});
        }
    }
    // How much of the result set lies between the first byte and the last that the library handed out, elements that it
    // passed over included, and what it says nothing of: what an answer that just fits has besides.
    std::size_t size() const {
        constexpr std::size_t besides = 20;
        return besides + static_cast<std::size_t>(end - begin);
    }
    std::string finish(const SampleFacts& facts) const {
        return writer.finish(facts);
    }

private:
    std::string_view take(const char* pointer, std::int32_t length) {
        const std::string_view text(pointer, static_cast<std::size_t>(length));
        begin = begin == nullptr ? pointer : std::min(begin, pointer);
        end = std::max(end, pointer + text.size());
        return text;
    }

    SampleWriter writer;
    const char* place = nullptr;
    const char* begin = nullptr;
    const char* end = nullptr;
};

void walk(ResultSetToken* result, Answer& answer, auto first, auto next, auto entry) {
    int rc = first(result, &entry);
    while (rc == 0) {
        answer.add(entry);
        rc = next(result, &entry);
    }
    if (rc != STAPI_RC_END_OF_RESULT_SET) {
        throw Failure{FailureKind::libraryCode, Phase::querying, rc, {}};
    }
}

std::string answer(GatewayToken* token, const QueryRequest& query) {
    report(Phase::querying);
    const Clock::time_point start = Clock::now();
    ResultSetToken* result = nullptr;
    const int rc = ask(token, query, &result);
    const Clock::time_point end = Clock::now();
    SampleFacts facts;
    facts.wallTime = seconds(std::chrono::system_clock::now().time_since_epoch());
    throwOnError(rc, Phase::querying);
    facts.monotonicTime = seconds(end.time_since_epoch());
    facts.querySeconds = seconds(end - start);
    facts.hasValues = asksForValues(query.what);
    Answer answer;
    if (facts.hasValues) {
        walk(result, answer, getFirstStat, getNextStat, StatData{});
    } else {
        walk(result, answer, getFirstId, getNextId, IdData{});
    }
    facts.contentSize = answer.size();
    return answer.finish(facts);
}

// Descriptors of the program that are none of its concern, a Gateway's connection among them perhaps.
void closeOthers() {
    if (fcntl(STDERR_FILENO, F_GETFD) < 0) {
        open("/dev/null", O_WRONLY);  // 0 and 1 are the channel: it becomes 2, which nothing else is to be
    }
    constexpr int first = STDERR_FILENO + 1;
    if (close_range(first, ~0U, 0) != 0) {
        for (long descriptor = sysconf(_SC_OPEN_MAX); descriptor-- > first;) {
            close(static_cast<int>(descriptor));
        }
    }
}

void serve() {
    FrameBuffer received;
    sendFrame(writeHello());
    FrameReader hello = nextMessage(received, MessageType::hello);
    if (readHello(hello) != FRAME_VERSION) {
        throw ProgramLost();  // it learns so from this side's hello
    }
    FrameReader message = nextMessage(received, MessageType::open);
    const OpenRequest request = readOpen(message);
    if (!request.traceFile.empty()) {
        report(Phase::tracing);
        throwOnError(setAPITraceFile(request.traceFile.c_str()), Phase::tracing);
    }
    throwOnError(setAPITraceLevel(request.traceLevel), Phase::starting);
    GatewayToken* token = openConnection(request.host, request.port, request.networks);
    for (;;) {
        message = nextMessage(received);
        switch (message.type()) {
        case MessageType::query:
            sendFrame(answer(token, readQuery(message)));
            break;
        case MessageType::close:
            report(Phase::closing);
            throwOnError(closeGatewayConnection(&token), Phase::closing);
            sendFrame(writeClosed());
            return;
        default:
            throw ProgramLost();
        }
    }
}

}  // namespace

int runWorker() {
    // A program that has gone before shows as a closed channel.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    closeOthers();
    try {
        try {
            serve();
            return EXIT_SUCCESS;
        } catch (const Failure& failure) {
            sendFrame(writeFailed(failure));
        } catch (const std::exception& error) {
            sendFrame(writeFailed({FailureKind::internal, Phase::querying, 0, error.what()}));
        }
    } catch (const ProgramLost&) {
        // Nobody to tell.
    }
    return EXIT_FAILURE;
}

}  // namespace monitor
