#include "subjects.h"

#include "careful.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "stapi_zul_statcomms.h"

#ifdef BENCH_WITH_HIREDIS
#include <hiredis/hiredis.h>
#endif

namespace bench {
namespace {

template <typename Call>
void resolve(void* handle, const char* name, Call* call) {
    *call = reinterpret_cast<Call>(dlsym(handle, name));
    if (*call == nullptr) {
        fail(dlerror());
    }
}

std::size_t receiveAtLeast(int socket, unsigned char* at, std::size_t have, std::size_t wanted, std::size_t room) {
    while (have < wanted) {
        const ssize_t got = recv(socket, at + have, room - have, 0);
        if (got <= 0) {
            fail("recv");
        }
        have += static_cast<std::size_t>(got);
    }
    return have;
}

void sendAll(int socket, const Bytes& request) {
    if (send(socket, request.data(), request.size(), 0) != static_cast<ssize_t>(request.size())) {
        fail("send");
    }
}

// One request and its reply, whose body's size it returns.
std::size_t exchange(int socket, const Bytes& request, Bytes* reply, unsigned calls) {
    struct sigaction saved;
    if ((calls & BareClient::SIGPIPE_CALLS) != 0) {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignore, &saved);
    }
    sendAll(socket, request);
    if ((calls & BareClient::SIGPIPE_CALLS) != 0) {
        sigaction(SIGPIPE, &saved, nullptr);
    }
    if ((calls & BareClient::SELECT_CALL) != 0) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(socket, &set);
        select(socket + 1, &set, nullptr, nullptr, nullptr);
    }
    unsigned char* at = reply->data();
    const std::size_t room = (calls & BareClient::TWO_RECVS) != 0 ? ADMIN_HEADER_SIZE : reply->size();
    const std::size_t have = receiveAtLeast(socket, at, 0, ADMIN_HEADER_SIZE, room);
    const std::size_t body = getU32(at + ADMIN_HEADER_SIZE - 4);
    const std::size_t whole = ADMIN_HEADER_SIZE + body;
    if (getU32(at + 16) != 0 || whole > reply->size()) {
        fail("a reply that the client does not know");
    }
    receiveAtLeast(socket, at, have, whole, whole);
    return body;
}

template <typename Owner>
std::shared_ptr<GatewayToken> sharedConnection(Owner library, std::uint16_t port) {
    return {openConnection(*library, port), [library](GatewayToken* gateway) { closeConnection(*library, gateway); }};
}

}  // namespace

Library loadLibrary(const std::string& name, const std::string& path) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fail(dlerror());
    }
    Library library{};
    library.name = name;
    resolve(handle, "openGatewayConnection", &library.openGatewayConnection);
    resolve(handle, "closeGatewayConnection", &library.closeGatewayConnection);
    resolve(handle, "getStats", &library.getStats);
    resolve(handle, "getStatsByStatId", &library.getStatsByStatId);
    resolve(handle, "getFirstStat", &library.getFirstStat);
    resolve(handle, "getNextStat", &library.getNextStat);
    resolve(handle, "setAPITraceLevel", &library.setAPITraceLevel);
    resolve(handle, "setAPITraceFile", &library.setAPITraceFile);
    return library;
}

GatewayToken* openConnection(const Library& library, std::uint16_t port) {
    GatewayToken* gateway = nullptr;
    char* version = nullptr;
    if (library.openGatewayConnection(port, &gateway, &version) != 0) {
        fail("opening a connection");
    }
    std::free(version);
    return gateway;
}

void closeConnection(const Library& library, GatewayToken* gateway) {
    if (library.closeGatewayConnection(&gateway) != 0) {
        fail("closing a connection");
    }
}

long fetchStats(const Library& library, GatewayToken* gateway, const char* query) {
    ResultSetToken* statistics = nullptr;
    const int rc = query == nullptr ? library.getStats(gateway, &statistics)
                                    : library.getStatsByStatId(gateway, query, &statistics);
    return rc == 0 ? walkStats(library.getFirstStat, library.getNextStat, statistics) : -1;
}

BareClient::BareClient(std::uint16_t port) : socket(connectTo(port)) {
}

BareClient::~BareClient() {
    close(socket);
}

long BareClient::exchangeOnly(std::size_t replySize) {
    constexpr std::size_t INIT_REPLY_SIZE = ADMIN_HEADER_SIZE + 12;
    sendAll(socket, init);
    std::size_t total = receiveAtLeast(socket, reply.data(), 0, INIT_REPLY_SIZE, reply.size());
    sendAll(socket, invoke);
    total += receiveAtLeast(socket, reply.data(), 0, replySize, reply.size());
    return static_cast<long>(total);
}

long BareClient::fetch(unsigned calls) {
    exchange(socket, init, &reply, calls);
    std::memcpy(invoke.data() + ADMIN_HEADER_SIZE + 4, reply.data() + ADMIN_HEADER_SIZE + 8, 4);  // the handle
    const std::size_t body = exchange(socket, invoke, &reply, calls);
    return walkReply(reply.data() + ADMIN_HEADER_SIZE + CALL_REPLY_HEAD, body - CALL_REPLY_HEAD);
}

void addFetches(std::vector<Subject>* subjects, const std::vector<Library>& libraries, int count, std::uint16_t port,
                const std::string& traceFile) {
    const long sum = expectedSum(count);
    const std::size_t replySize = callReply(statsReply(count).bytes()).size();
    const auto bare = std::make_shared<BareClient>(port);
    subjects->push_back({"fetch", "floor", count, 1, [bare] { return bare->fetch(0); }, sum});
    subjects->push_back({"fetch", "exchange", count, 1, [bare, replySize] { return bare->exchangeOnly(replySize); },
                         static_cast<long>(ADMIN_HEADER_SIZE + 12 + replySize)});
    const auto careful = std::make_shared<CarefulClient>(port);
    subjects->push_back({"fetch", "careful", count, 1, [careful] { return careful->fetch(); }, sum});
    for (const Library& library : libraries) {
        const auto gateway = sharedConnection(&library, port);
        const auto fetch = [&library, gateway] { return fetchStats(library, gateway.get()); };
        subjects->push_back({"fetch", library.name, count, 1, fetch, sum});
        if (&library == &libraries.front()) {
            subjects->push_back({"fetch", "level 3", count, 1, fetch, sum, [&library] { library.setAPITraceLevel(3); },
                                 [&library, traceFile] {
                                     library.setAPITraceLevel(0);
                                     if (truncate(traceFile.c_str(), 0) != 0) {
                                         fail("truncating the trace");
                                     }
                                 }});
        }
    }
}

void addCxx(std::vector<Subject>* subjects, const std::string& module, int count, std::uint16_t port) {
    // Its calls are its library's, not those that the benchmark has of its own.
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    if (handle == nullptr) {
        fail(dlerror());
    }
    void* (*open)(int) = nullptr;
    long (*fetch)(void*) = nullptr;
    void (*close)(void*) = nullptr;
    resolve(handle, "cxxOpen", &open);
    resolve(handle, "cxxFetch", &fetch);
    resolve(handle, "cxxClose", &close);
    const std::shared_ptr<void> gateway(open(port), close);
    if (gateway == nullptr) {
        fail("opening a connection");
    }
    subjects->push_back({"fetch", "c++", count, 1, [=] { return fetch(gateway.get()); }, expectedSum(count)});
}

void addSystemCalls(std::vector<Subject>* subjects, int count, std::uint16_t port) {
    const auto bare = std::make_shared<BareClient>(port);
    const auto add = [&](const char* name, unsigned calls) {
        subjects->push_back(
            {"calls", name, count, 1, [bare, calls] { return bare->fetch(calls); }, expectedSum(count)});
    };
    add("floor", 0);
    add("+ sigaction pair", BareClient::SIGPIPE_CALLS);
    add("+ select", BareClient::SELECT_CALL);
    add("+ second recv", BareClient::TWO_RECVS);
    add("+ all of them", BareClient::ALL_CALLS);
}

void addRedis(std::vector<Subject>* subjects, const std::vector<int>& counts, int core) {
#ifdef BENCH_WITH_HIREDIS
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    if (bind(probe, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        fail("finding a free port");
    }
    close(probe);
    const int port = ntohs(address.sin_port);
    if (forkChild(core)) {
        const std::string text = std::to_string(port);
        execlp("redis-server", "redis-server", "--port", text.c_str(), "--bind", "127.0.0.1", "--save", "",
               "--appendonly", "no", "--logfile", "/dev/null", "--daemonize", "no", static_cast<char*>(nullptr));
        _exit(1);
    }
    redisContext* context = nullptr;
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (context = redisConnect("127.0.0.1", port); context != nullptr && context->err == 0) {
            break;
        }
        redisFree(context);
        context = nullptr;
        usleep(50000);
    }
    if (context == nullptr) {
        return;
    }
    for (const int count : counts) {
        for (int i = 0; i < count; ++i) {
            freeReplyObject(
                redisCommand(context, "HSET stats%d %s %s", count, statId(i).c_str(), statValue(i).c_str()));
        }
        const auto fetch = [context, count] {
            long sum = 0;
            auto* reply = static_cast<redisReply*>(redisCommand(context, "HGETALL stats%d", count));
            if (reply == nullptr || reply->type != REDIS_REPLY_ARRAY) {
                fail("HGETALL");
            }
            for (std::size_t i = 0; i < reply->elements; i += 2) {
                const redisReply* id = reply->element[i];
                const redisReply* value = reply->element[i + 1];
                sum += entrySum(id->str, id->len, value->str, value->len);
            }
            freeReplyObject(reply);
            return sum;
        };
        subjects->push_back({"fetch", "hiredis", count, 1, fetch, expectedSum(count)});
    }
#else
    static_cast<void>(subjects), static_cast<void>(counts), static_cast<void>(core);
#endif
}

void addWalks(std::vector<Subject>* subjects, const std::vector<Walker>& walkers, int count) {
    char* content = allocateResultSetBuffer();  // released with the process, as the tokens are
    const Bytes payload = statsReply(count).bytes();
    ResultSetToken* owned = nullptr;
    ResultSetToken* copy = nullptr;
    if (content == nullptr || layOut(payload.data(), payload.size(), content, RESULT_SET_BUFFER_SIZE) < 0 ||
        createResultSet(&owned, CONNECTION_OWNED_EYECATCHER, CONNECTION_OWNED) != 0 ||
        createResultSet(&copy, USER_OWNED_EYECATCHER, USER_OWNED) != 0) {
        fail("making result sets");
    }
    owned->head = content;
    copy->head = content;
    const long sum = expectedSum(count);
    subjects->push_back({"walk", "bare", count, count, [content] { return walkContent(content); }, sum});
    for (const Walker& walker : walkers) {
        const auto walk = [first = walker.first, next = walker.next](ResultSetToken* set) {
            return walkStats(first, next, set);
        };
        subjects->push_back({"walk", walker.name, count, count, [=] { return walk(owned); }, sum});
        subjects->push_back({"walk", walker.name + ", copy", count, count, [=] { return walk(copy); }, sum});
    }
}

void addParses(std::vector<Subject>* subjects, int count) {
    const auto payload = std::make_shared<Bytes>(statsReply(count).bytes());
    const auto buffer = std::make_shared<Bytes>(RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK);
    auto* content = reinterpret_cast<char*>(buffer->data());
    const auto size = static_cast<long>(statsReply(count).contentSize());
    const auto terminated = [content, size] {
        return loadWord(content + size - 4) == RESULT_SET_TERMINATOR ? size : -1;
    };
    subjects->push_back({"parse", "hand-written", count, count,
                         [=] {
                             content[size - 4] = 0;
                             layOut(payload->data(), payload->size(), content, RESULT_SET_BUFFER_SIZE);
                             return terminated();
                         },
                         size});
    subjects->push_back({"parse", "zulstats", count, count,
                         [=] {
                             content[size - 4] = 0;
                             const int rc =
                                 parseStatsData(payload->data(), content, payload->size(), RESULT_SET_BUFFER_SIZE);
                             return rc == 0 && buffer != nullptr ? terminated() : -1;
                         },
                         size});
}

}  // namespace bench
