// Opening and closing: what goes wrong on the way, the version text, the limits of the connection list.
#include "child.h"
#include "fixture.h"
#include "walk.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>

namespace {

using apitest::Connection;
using apitest::countRequests;
using apitest::Exchange;
using apitest::Fault;
using apitest::openAndClose;
using apitest::openDescriptors;
using apitest::PATIENCE;
using simgateway::Bytes;
using testing::ElementsAre;

using Opening = apitest::GatewayTest;
using Closing = apitest::GatewayTest;
using ConnectionList = apitest::QuietGatewayTest;

int openAt(const char* host, int port) {
    GatewayToken* token = nullptr;
    char* version = nullptr;
    const int rc = openRemoteGatewayConnection(host, port, &token, &version);
    if (rc != 0) {
        EXPECT_EQ(token, nullptr);
        EXPECT_EQ(version, nullptr);
        return rc;
    }
    std::free(version);
    return closeGatewayConnection(&token);
}

// A port that nobody listens on: bound while the object lives, so that nobody else gets it.
class SilentPort {
public:
    SilentPort() : descriptor(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
        number = ntohs(address.sin_port);
    }
    ~SilentPort() {
        close(descriptor);
    }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    [[nodiscard]] int port() const {
        return number;
    }

private:
    int descriptor;
    int number = 0;
};

TEST_F(Opening, introducesItselfAndAsksForTheVersion) {
    {
        const Connection connection(server);
        EXPECT_EQ(connection.version(), "1_0_0_0");
        EXPECT_TRUE(server.waitForConnections(1, PATIENCE));
    }
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    std::vector<Exchange> seen;
    for (const simgateway::Request& request : server.requests()) {
        seen.push_back(request.exchange);
    }
    EXPECT_THAT(seen, ElementsAre(Exchange::handshake, Exchange::authFirst, Exchange::authSecond, Exchange::adminInit,
                                  Exchange::getAttribute, Exchange::close));
}

TEST_F(Opening, findsTheHost) {
    for (const char* host : {"127.0.0.1", "127.0.0.2", "localhost"}) {
        // What listens on 127.0.0.1 alone refuses other loopback addresses.
        const int expected = std::string(host) == "127.0.0.2" ? STAPI_RC_CONNECTION_REFUSED : 0;
        EXPECT_EQ(openAt(host, server.port()), expected) << host;
    }
}

TEST_F(Opening, tellsWhyItCannotConnect) {
    const SilentPort silent;
    const int before = openDescriptors();
    EXPECT_EQ(openAt("127.0.0.1", silent.port()), STAPI_RC_CONNECTION_REFUSED);
    EXPECT_EQ(openAt(apitest::UNRESOLVABLE, server.port()), STAPI_RC_HOST_NOT_RESOLVED);
    EXPECT_EQ(openAt("127.255.255.255", server.port()), STAPI_RC_NETWORK_UNREACHABLE) << "the broadcast address";
    EXPECT_EQ(openDescriptors(), before);
}

// In a child, because the limit would hold for the server's threads too.
TEST_F(Opening, withoutDescriptorsFailsAndRecovers) {
    const int failed = unittest::runInChild([&] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none = {0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const int rc = openAt("127.0.0.1", server.port());
        setrlimit(RLIMIT_NOFILE, &limit);
        return (rc == STAPI_RC_CONNECT_FAILED ? 0 : 1) + (openAt("127.0.0.1", server.port()) == 0 ? 0 : 2);
    });
    EXPECT_EQ(failed, 0);
}

TEST_F(Opening, unresolvedHostClosesNoForeignDescriptor) {
    const int standardInput = dup(STDIN_FILENO);
    ASSERT_GE(standardInput, 0);
    EXPECT_EQ(openAt(apitest::UNRESOLVABLE, server.port()), STAPI_RC_HOST_NOT_RESOLVED);
    EXPECT_EQ(openAt("127.0.0.1", SilentPort().port()), STAPI_RC_CONNECTION_REFUSED);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, standardInput}) {
        EXPECT_GE(dup2(descriptor, descriptor), 0) << descriptor;
    }
    close(standardInput);
}

// Which code a fault in one exchange of the introduction gives, and whether the connection is gone on both sides.
TEST_F(Opening, foldsFaultsOfTheGateway) {
    const struct {
        const char* what;
        Exchange exchange;
        Fault fault;
        int code;
    } cases[] = {
        // An introduction that fails shows in the first admin exchange, if at all.
        {"handshake refused", Exchange::handshake, {.headerRc = 5}, 0},
        {"handshake without body", Exchange::handshake, {.noBody = true}, 0},
        {"auth refused", Exchange::authFirst, {.authRefused = true}, 0},
        {"second auth refused", Exchange::authSecond, {.authRefused = true}, 0},
        {"auth without body", Exchange::authFirst, {.noBody = true}, 0},
        {"auth done at once", Exchange::authFirst, {.word0 = 1, .replyRc = 9}, 0},
        {"auth reply of 4 bytes", Exchange::authFirst, {.bodySize = 4}, 0},
        {"closed in the handshake", Exchange::handshake, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"closed in the auth", Exchange::authSecond, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"init refused", Exchange::adminInit, {.replyRc = 8}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init without body", Exchange::adminInit, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init reply of 3 bytes", Exchange::adminInit, {.bodySize = 3}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init header code", Exchange::adminInit, {.headerRc = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"init header says lost", Exchange::adminInit, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"init header negative", Exchange::adminInit, {.headerRc = -1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"closed in the init", Exchange::adminInit, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"reset in the init", Exchange::adminInit, {.closeAfter = 0, .reset = true}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"version refused", Exchange::getAttribute, {.replyRc = 8}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version exception", Exchange::getAttribute, {.exceptionFlag = 1}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version header says lost", Exchange::getAttribute, {.headerRc = 0xF004}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"version answered like an init", Exchange::getAttribute, {.word0 = 0}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version without body", Exchange::getAttribute, {.noBody = true}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version reply of 8 bytes", Exchange::getAttribute, {.bodySize = 8}, STAPI_RC_GATEWAY_REQUEST_FAILED},
        {"version reply of 9 bytes", Exchange::getAttribute, {.bodySize = 9}, 0},
        {"closed in the version", Exchange::getAttribute, {.closeAfter = 0}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"name too long", Exchange::getAttribute, {.name = "AdminAdmin"}, STAPI_RC_GATEWAY_CONNECTION_LOST},
        {"name length absurd", Exchange::adminInit, {.nameLength = 0xFFFFFFFF}, STAPI_RC_GATEWAY_CONNECTION_LOST},
    };
    const int before = openDescriptors();
    for (const auto& each : cases) {
        server.inject(each.exchange, each.fault);
        EXPECT_EQ(openAndClose(server), each.code) << each.what;
        EXPECT_EQ(server.pendingFaults(each.exchange), 0U) << each.what;
        EXPECT_TRUE(server.waitForConnections(0, PATIENCE)) << each.what;
    }
    EXPECT_EQ(openDescriptors(), before);
}

std::string versionOf(simgateway::Server& server, const Bytes& payload) {
    server.inject(Exchange::getAttribute, {.payload = payload});
    return Connection(server).version();
}

TEST_F(Opening, copiesVersionsOfEveryLength) {
    for (const std::size_t length : {0U, 1U, 62U, 63U, 64U, 65U, 1000U, 32765U}) {
        const std::string text(length, 'v');
        EXPECT_EQ(versionOf(server, simgateway::attributePayload(text)), text) << length;
    }
}

// Longer than the longest copy: the connection opens, and the caller's pointer is left as it was.
TEST_F(Opening, hasNoCopyOfAnOverlongVersion) {
    for (const std::size_t length : {32766U, 32767U}) {
        server.inject(Exchange::getAttribute, {.payload = simgateway::attributePayload(std::string(length, 'v'))});
        GatewayToken* token = nullptr;
        char mark[] = "mine";
        char* version = mark;
        ASSERT_EQ(openGatewayConnection(server.port(), &token, &version), 0) << length;
        EXPECT_EQ(version, mark) << length;
        ResultSetToken* result = nullptr;
        EXPECT_EQ(getStats(token, &result), 0);
        EXPECT_EQ(closeGatewayConnection(&token), 0);
    }
}

// Lengths are signed on this side: one of 0x8000 and up is no length.
TEST_F(Opening, takesAVersionLengthOutOfRangeForNone) {
    for (const int length : {0x8000, 0xFFFF}) {
        Bytes payload = simgateway::attributePayload("1_0_0_0");
        payload.at(6) = static_cast<std::uint8_t>(length >> 8);
        payload.at(7) = static_cast<std::uint8_t>(length & 0xFF);
        EXPECT_EQ(versionOf(server, payload), "") << length;
    }
}

TEST_F(Opening, takesNoMoreVersionThanThereIs) {
    const Bytes whole = simgateway::attributePayload("1_0_0_0");
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const std::string expected = size < 8 ? "" : std::string("1_0_0_0").substr(0, size - 8);
        EXPECT_EQ(versionOf(server, cut), expected) << size;
    }
}

TEST_F(Closing, endsTheConnectionAndClearsTheHandle) {
    Connection connection(server);
    GatewayToken* stale = connection;
    EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
    EXPECT_EQ(static_cast<GatewayToken*>(connection), nullptr);
    EXPECT_EQ(countRequests(server, Exchange::close), 1U);
    EXPECT_EQ(closeGatewayConnection(connection.address()), STAPI_RC_NULL_GATEWAY_TOKEN);
    GatewayToken* const before = stale;
    EXPECT_EQ(closeGatewayConnection(&stale), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(stale, before);
    EXPECT_EQ(countRequests(server, Exchange::close), 1U);
}

// What the Gateway makes of the close request is its own affair.
TEST_F(Closing, succeedsWhateverTheGatewaySays) {
    const int before = openDescriptors();
    for (const Fault& fault :
         {Fault{.headerRc = 5}, Fault{.closeAfter = 0}, Fault{.closeAfter = 0, .reset = true}, Fault{.closeAfter = 10},
          Fault{.dataLength = 50, .closeAfter = 40}, Fault{.name = "X"}}) {
        server.inject(Exchange::close, fault);
        Connection connection(server);
        EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Closing, afterTheGatewayIsGone) {
    Connection connection(server);
    server.stop();
    EXPECT_EQ(closeGatewayConnection(connection.address()), 0);
}

// Takes a middle, the last and the first one, and adds again, so that every kind of neighbour is unlinked.
TEST_F(Closing, leavesTheOthersOpen) {
    Connection first(server);
    Connection second(server);
    Connection third(server);
    ResultSetToken* result = nullptr;
    EXPECT_EQ(closeGatewayConnection(second.address()), 0);
    EXPECT_EQ(getStats(first, &result), 0);
    EXPECT_EQ(getStats(third, &result), 0);
    EXPECT_EQ(closeGatewayConnection(third.address()), 0);
    Connection fourth(server);
    EXPECT_EQ(getStats(fourth, &result), 0);
    EXPECT_EQ(closeGatewayConnection(first.address()), 0);
    EXPECT_EQ(getStats(fourth, &result), 0);
    EXPECT_EQ(closeGatewayConnection(fourth.address()), 0);
    const Connection fifth(server);
    EXPECT_EQ(getStats(fifth, &result), 0);
}

TEST_F(Closing, allAtOnce) {
    GatewayToken* tokens[5] = {};
    for (GatewayToken*& token : tokens) {
        char* version = nullptr;
        ASSERT_EQ(openGatewayConnection(server.port(), &token, &version), 0);
        std::free(version);
    }
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(countRequests(server, Exchange::close), 5U);
    for (GatewayToken* token : tokens) {
        ResultSetToken* result = nullptr;
        EXPECT_EQ(getStats(token, &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    }
    EXPECT_EQ(openAndClose(server), 0);
}

// The application's own handling of SIGPIPE is back after every call, whatever it was.
TEST_F(Closing, leavesSigpipeAsItWas) {
    const auto handler = [](int) {};
    for (const sighandler_t mine : {SIG_DFL, SIG_IGN, static_cast<sighandler_t>(handler)}) {
        struct sigaction installed {};
        installed.sa_handler = mine;
        installed.sa_flags = SA_RESTART;
        sigaddset(&installed.sa_mask, SIGUSR1);
        ASSERT_EQ(sigaction(SIGPIPE, &installed, nullptr), 0);
        {
            Connection connection(server);
            ResultSetToken* result = nullptr;
            server.inject(Exchange::invoke, {.closeAfter = 0, .reset = true});
            EXPECT_EQ(getStatsByStatGroupId(connection, "daemon", &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
            // The second send is the one that would raise the signal.
            EXPECT_EQ(getStatsByStatGroupId(connection, "daemon", &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
            EXPECT_EQ(getStatsByStatGroupId(connection, "daemon", &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
        }
        struct sigaction found {};
        ASSERT_EQ(sigaction(SIGPIPE, nullptr, &found), 0);
        EXPECT_EQ(found.sa_handler, mine);
        EXPECT_EQ(found.sa_flags & SA_RESTART, SA_RESTART);
        EXPECT_EQ(sigismember(&found.sa_mask, SIGUSR1), 1);
    }
    std::signal(SIGPIPE, SIG_DFL);
}

// A child program of the application gets none of the connections.
TEST_F(Opening, keepsItsDescriptorFromChildPrograms) {
    const auto inheritable = [] {
        int count = 0;
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            const int flags = fcntl(descriptor, F_GETFD);
            count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
        }
        return count;
    };
    const int descriptors = openDescriptors();
    const int before = inheritable();
    const Connection connection(server);
    EXPECT_EQ(openDescriptors(), descriptors + 2) << "this end and the Gateway's";
    EXPECT_EQ(inheritable(), before);
}

// Descriptors beyond what a set of select holds.
TEST_F(ConnectionList, worksOnHighDescriptors) {
    std::vector<int> taken;
    for (int i = 0; i < 1100; ++i) {
        taken.push_back(dup(STDERR_FILENO));
        ASSERT_GE(taken.back(), 0) << "this test needs 1200 descriptors";
    }
    {
        const Connection connection(server);
        ResultSetToken* result = nullptr;
        EXPECT_EQ(getStats(connection, &result), 0);
        EXPECT_EQ(apitest::walkStats(result), apitest::allStats(simgateway::Model()));
        server.inject(Exchange::invoke, {.delay = std::chrono::milliseconds(50)});
        EXPECT_EQ(getStatIds(connection, &result), 0);
        server.inject(Exchange::invoke, {.closeAfter = 0});
        EXPECT_EQ(getStatsByStatGroupId(connection, "daemon", &result), STAPI_RC_GATEWAY_CONNECTION_LOST);
    }
    EXPECT_EQ(openAt("127.0.0.1", SilentPort().port()), STAPI_RC_CONNECTION_REFUSED);
    for (const int descriptor : taken) {
        close(descriptor);
    }
}

// A walk over the list ends after 256 entries: one beyond cannot be found, and closing all takes two calls.
TEST_F(ConnectionList, endsAt256) {
    constexpr std::size_t limit = 256;
    std::vector<GatewayToken*> tokens(limit + 2);
    for (GatewayToken*& token : tokens) {
        char* version = nullptr;
        ASSERT_EQ(openGatewayConnection(server.port(), &token, &version), 0);
        std::free(version);
    }
    ResultSetToken* result = nullptr;
    EXPECT_EQ(getStats(tokens[limit - 1], &result), 0);
    EXPECT_EQ(getStats(tokens[limit + 1], &result), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    GatewayToken* last = tokens[limit + 1];
    EXPECT_EQ(closeGatewayConnection(&last), STAPI_RC_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(closeAllGatewayConnections(), STAPI_RC_GTL_CORRUPT);
    EXPECT_TRUE(server.waitForConnections(2, PATIENCE));
    EXPECT_EQ(getStats(tokens[limit + 1], &result), 0) << "now within the limit";
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
}

TEST_F(ConnectionList, of256CountsAsTooLongWhenClosed) {
    for (int i = 0; i < 256; ++i) {
        GatewayToken* token = nullptr;
        char* version = nullptr;
        ASSERT_EQ(openGatewayConnection(server.port(), &token, &version), 0);
        std::free(version);
    }
    EXPECT_EQ(closeAllGatewayConnections(), STAPI_RC_GTL_CORRUPT);
    EXPECT_TRUE(server.waitForConnections(0, PATIENCE));
    EXPECT_EQ(closeAllGatewayConnections(), 0);
}

}  // namespace
