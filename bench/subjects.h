// What is measured: each subject fetches, walks or parses the same statistics and comes to the same sum.
#pragma once

#include <zulstats.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "server.h"

namespace bench {

// A build of the library, loaded beside others; its calls by their names.
struct Library {
    std::string name;
    decltype(&::openGatewayConnection) openGatewayConnection;
    decltype(&::closeGatewayConnection) closeGatewayConnection;
    decltype(&::getStats) getStats;
    decltype(&::getStatsByStatId) getStatsByStatId;
    decltype(&::getFirstStat) getFirstStat;
    decltype(&::getNextStat) getNextStat;
    decltype(&::setAPITraceLevel) setAPITraceLevel;
    decltype(&::setAPITraceFile) setAPITraceFile;
};
Library loadLibrary(const std::string& name, const std::string& path);

GatewayToken* openConnection(const Library& library, std::uint16_t port);
void closeConnection(const Library& library, GatewayToken* gateway);

// A query for everything, or for a query string unless that is null, and a full walk.
long fetchStats(const Library& library, GatewayToken* gateway, const char* query = nullptr);

// The same two exchanges on a bare socket.
struct BareClient {
    // Calls of the library that an exchange can make as well.
    static constexpr unsigned SIGPIPE_CALLS = 1;  // sigaction before and after send
    static constexpr unsigned SELECT_CALL = 2;    // before recv
    static constexpr unsigned TWO_RECVS = 4;      // one for the header, one for the body
    static constexpr unsigned ALL_CALLS = 7;

    explicit BareClient(std::uint16_t port);
    ~BareClient();
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    long exchangeOnly(std::size_t replySize);  // the bytes received
    long fetch(unsigned calls);                // replies read by their lengths, the last one walked in place

    int socket;
    Bytes init = support::adminInitRequest;
    Bytes invoke = support::invokeRequest(0, 0, "GET_STATS");
    Bytes reply = Bytes(1 << 17);
};

struct Subject {
    std::string group;
    std::string name;
    int count;  // statistics
    int per;    // times are shown divided by it
    std::function<long()> run;
    long expected;                           // what run returns, each time
    std::function<void()> before = nullptr;  // around a batch of runs
    std::function<void()> after = nullptr;
    int batch = 1;
    std::vector<double> elapsed = {};  // nanoseconds of one run, round by round
    std::vector<double> processor = {};
};

// Fetches of `count` statistics from the server at `port`. The first library is traced as well.
void addFetches(std::vector<Subject>* subjects, const std::vector<Library>& libraries, int count, std::uint16_t port,
                const std::string& traceFile);
// The bare fetch with the library's system calls, one kind at a time.
// The C++ header's fetch, of the module at this path.
void addCxx(std::vector<Subject>* subjects, const std::string& module, int count, std::uint16_t port);
void addSystemCalls(std::vector<Subject>* subjects, int count, std::uint16_t port);
// HGETALL of the same statistics, where there are hiredis and redis-server.
void addRedis(std::vector<Subject>* subjects, const std::vector<int>& counts, int core);
// Walks of one content, as the result set of a connection and as a copy.
struct Walker {
    std::string name;
    decltype(&::getFirstStat) first;
    decltype(&::getNextStat) next;
};
void addWalks(std::vector<Subject>* subjects, const std::vector<Walker>& walkers, int count);
void addParses(std::vector<Subject>* subjects, int count);

}  // namespace bench
