// What the tests of the exported calls share: a test of bounded length that leaves the library as it found it, a
// simulated Gateway, and connections to it.
#pragma once

#include "simgateway/sim_gateway.h"
#include "zulstats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace support {

using simgateway::Exchange;
using simgateway::Fault;

inline constexpr std::chrono::milliseconds PATIENCE{10000};

// A host name that no resolver is asked for: a label of it may have 63 characters.
inline constexpr char UNRESOLVABLE[] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
static_assert(sizeof UNRESOLVABLE == 65);

// Ends the process after 55 seconds. Afterwards no connection is open, the level is 0 and the trace goes to stderr.
class QuietTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// The same, and where the environment variable ZULSTATS_TEST_TRACE_DIR names a directory, the test's whole trace is
// written to a file in it.
class ApiTest : public QuietTest {
protected:
    void SetUp() override;
};

// Both with a Gateway.
class GatewayTest : public ApiTest {
protected:
    simgateway::Server server;
};

class QuietGatewayTest : public QuietTest {
protected:
    simgateway::Server server;
};

// A connection that stays open.
[[nodiscard]] GatewayToken* openConnection(int port);

// The same; closes it unless a query has removed it.
class Connection {
public:
    explicit Connection(const simgateway::Server& server) : token(openConnection(server.port())) {
    }
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    operator GatewayToken*() const {
        return token;
    }
    GatewayToken** address() {
        return &token;
    }

private:
    GatewayToken* token;
};

// The code of an open call whose outputs are dropped; nothing stays open.
[[nodiscard]] int openAndClose(const simgateway::Server& server, const char* host = "127.0.0.1");

// One of the six query calls.
struct QueryCall {
    const char* name;
    bool statistics;
    int (*plain)(GatewayToken*, ResultSetToken**);
    int (*narrowed)(GatewayToken*, const char*, ResultSetToken**);
    bool staysAfterFailure;

    [[nodiscard]] bool takesQuery() const {
        return narrowed != nullptr;
    }
    int run(GatewayToken* token, ResultSetToken** result, const char* query = "") const {
        return takesQuery() ? narrowed(token, query, result) : plain(token, result);
    }
};

inline constexpr QueryCall QUERY_CALLS[] = {
    {"getStats", true, getStats, nullptr, false},
    {"getStatIds", false, getStatIds, nullptr, false},
    {"getResourceGroupIds", false, getResourceGroupIds, nullptr, false},
    {"getStatsByStatId", true, nullptr, getStatsByStatId, false},
    {"getStatsByStatGroupId", true, nullptr, getStatsByStatGroupId, true},
    {"getStatIdsByStatGroupId", false, nullptr, getStatIdsByStatGroupId, false},
};

// The beginning of a reply of identifiers.
[[nodiscard]] inline simgateway::Reply ids() {
    return simgateway::Reply(simgateway::Reply::Content::identifiers);
}

// A result set with this content, on the connection: the Gateway answers one query with the payload.
[[nodiscard]] ResultSetToken* resultOf(simgateway::Server& server, GatewayToken* token,
                                       const simgateway::Bytes& payload, int (*query)(GatewayToken*, ResultSetToken**));

// The requests of this kind that the server has seen.
[[nodiscard]] std::size_t countRequests(const simgateway::Server& server, Exchange exchange);

}  // namespace support
