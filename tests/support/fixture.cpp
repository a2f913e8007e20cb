#include "fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace support {

namespace {

constexpr unsigned WATCHDOG_SECONDS = 55;
constexpr int HIGHEST_LEVEL = 5;

}  // namespace

void QuietTest::SetUp() {
    alarm(WATCHDOG_SECONDS);
}

void QuietTest::TearDown() {
    while (closeAllGatewayConnections() == STAPI_RC_GTL_CORRUPT) {
    }
    setAPITraceLevel(0);
    setAPITraceFile(nullptr);
    alarm(0);
}

void ApiTest::SetUp() {
    QuietTest::SetUp();
    if (const char* directory = std::getenv("ZULSTATS_TEST_TRACE_DIR")) {
        const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string file = std::string(directory) + "/" + test->test_suite_name() + "." + test->name() + ".trace";
        ASSERT_EQ(setAPITraceFile(file.c_str()), 0) << file;
        ASSERT_EQ(setAPITraceLevel(HIGHEST_LEVEL), 0);
    }
}

GatewayToken* openConnection(int port) {
    GatewayToken* token = nullptr;
    char* text = nullptr;
    EXPECT_EQ(openGatewayConnection(port, &token, &text), 0);
    EXPECT_NE(token, nullptr);
    EXPECT_NE(text, nullptr);
    std::free(text);
    return token;
}

Connection::~Connection() {
    if (token != nullptr) {
        closeGatewayConnection(&token);
    }
}

int openAndClose(const simgateway::Server& server, const char* host) {
    GatewayToken* token = nullptr;
    char* version = nullptr;
    const int rc = openRemoteGatewayConnection(host, server.port(), &token, &version);
    if (rc == 0) {
        EXPECT_EQ(closeGatewayConnection(&token), 0);
        std::free(version);
    } else {
        EXPECT_TRUE(token == nullptr && version == nullptr);
    }
    return rc;
}

ResultSetToken* resultOf(simgateway::Server& server, GatewayToken* token, const simgateway::Bytes& payload,
                         int (*query)(GatewayToken*, ResultSetToken**)) {
    server.inject(Exchange::invoke, {.payload = payload});
    ResultSetToken* result = nullptr;
    EXPECT_EQ(query(token, &result), 0);
    return result;
}

std::size_t countRequests(const simgateway::Server& server, Exchange exchange) {
    const std::vector<simgateway::Request> requests = server.requests();
    return static_cast<std::size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [exchange](const simgateway::Request& request) { return request.exchange == exchange; }));
}

}  // namespace support
