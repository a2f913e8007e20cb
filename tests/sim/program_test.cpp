// The program: its command line, what it prints and how it ends.
#include <filesystem>
#include <fstream>
#include <thread>

#include <sys/stat.h>

#include "program.h"
#include "raw_client.h"
#include "recording.h"
#include "simgateway/model.h"
#include "support/temp_directory.h"
#include "walk.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;

TEST(Program, servesAndEndsOnASignal) {
    const TempDirectory directory;
    for (const int signal : {SIGINT, SIGTERM}) {
        Program program("2>&1 --port 0 --port-file=" + directory.file("port"));
        const std::uint16_t port = program.port();
        EXPECT_EQ(readFile(directory.file("port")), std::to_string(port) + "\n");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.file("")), {}), 1) << "draft left behind";

        RawClient client(port);
        client.exchange(handshakeRequest);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(program.end(signal), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
        EXPECT_EQ(program.printed, "");
        EXPECT_EQ(client.awaitEnd(), End::closed);
    }
}

TEST(Program, writesItsPortThroughNoLinkOfOthers) {
    const TempDirectory directory;
    const std::string name = directory.file("port");
    Program program("2>&1 --port 0 --port-file=" + name, "ln -s victim " + name + ".$$.tmp");
    EXPECT_NE(program.nextLine().find("File exists"), std::string::npos);
    program.end(SIGKILL);
    EXPECT_FALSE(std::filesystem::exists(directory.file("victim")));
}

TEST(Program, answersAsItsOptionsSay) {
    const Bytes expected = simgateway::Model(42, 77).stats("", 0).bytes();
    Program program("--port=0 --seed=42 --stats 77 --speed=0 --protocol '9_8 = 7'");
    RawClient client(program.port());
    EXPECT_EQ(toHex(client.query("GET_STATS")), toHex(expected));
    const Bytes reply = client.exchange(client.requestFor(simgateway::Exchange::getAttribute));
    EXPECT_EQ(toHex(slice(reply, 43)), toHex(hex("00 AC ED 00 05 74 00 07 '9_8 = 7'")));
}

TEST(Program, timeRunsAtItsSpeed) {
    Program program("--port=0 --speed=1000");
    RawClient client(program.port());
    std::this_thread::sleep_for(50ms);
    EXPECT_GE(std::stoll(walked(client.query("GET_STATS", "daemon.uptime.seconds")).lastValue), 49);
}

std::uint32_t handshakeRc(std::uint16_t port) {
    return wordAt(RawClient(port).exchange(handshakeRequest), 16);
}

TEST(Program, faultsOfTheCommandLine) {
    Program program(
        "--port=0 --gateways 2 --fault handshake:header-rc=1:2 --fault=2/handshake:header-rc=2 "
        "--fault handshake:header-rc=3 --fault auth-first:reply-rc=42:always");
    const std::uint16_t first = program.port();
    const std::uint16_t second = program.port();
    for (const auto& [port, rc] : {std::pair(first, 1U),
                                   {first, 1U},
                                   {first, 3U},
                                   {first, 0U},
                                   {second, 1U},
                                   {second, 1U},
                                   {second, 2U},
                                   {second, 3U},
                                   {second, 0U}}) {
        EXPECT_EQ(handshakeRc(port), rc);
    }
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(wordAt(RawClient(first).exchange(authFirstRequest), 37), 42U);
    }
}

TEST(Program, faultsOfStandardInput) {
    const TempDirectory directory;
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::FILE* const input = std::fopen(fifo.c_str(), "r+e");
    ASSERT_NE(input, nullptr);
    Program program("2>&1 --port=0 --speed=0 --fault handshake:header-rc=1 <" + fifo);
    const std::uint16_t port = program.port();
    const auto say = [&](const std::string& line) {
        std::fputs(line.c_str(), input);
        std::fflush(input);
        return program.nextLine();
    };
    EXPECT_EQ(say("handshake:header-rc=2:2 \r\n"), "fault handshake:header-rc=2:2\n");
    EXPECT_EQ(say("\n \nhandshake:nosuch\n"), "zulstat-sim: handshake:nosuch: unknown fault 'nosuch'\n");
    EXPECT_EQ(say("2/handshake:healthy\n"),
              "zulstat-sim: 2/handshake:healthy: there is no Gateway 2, the last one is 1\n");
    EXPECT_EQ(say(std::string(100000, 'x') + "\n"),
              "zulstat-sim: a line on standard input is longer than 65536 bytes\n");
    for (const std::uint32_t rc : {1U, 2U}) {
        EXPECT_EQ(handshakeRc(port), rc);
    }
    EXPECT_EQ(say("handshake:header-rc=5:always\n"), "fault handshake:header-rc=5:always\n");
    EXPECT_EQ(say("handshake:header-rc=6\n"), "fault handshake:header-rc=6\n");
    for (const std::uint32_t rc : {6U, 5U, 5U}) {
        EXPECT_EQ(handshakeRc(port), rc);
    }
    std::fputs("handshake:healthy:always", input);  // the last line has no end but that of the input
    std::fclose(input);
    EXPECT_EQ(program.nextLine(), "fault handshake:healthy:always\n");
    EXPECT_EQ(handshakeRc(port), 0U);
    EXPECT_EQ(program.end(SIGTERM), 0);
    EXPECT_EQ(program.printed, "");
}

TEST(Program, runsWithoutInputAndOutput) {
    const TempDirectory directory;
    const std::string file = directory.file("port");
    Program program("--port=0 --fault handshake:header-rc=1 --port-file " + file + " <&- >&-");
    std::uint16_t port = 0;
    for (int tries = 0; tries < 5000 && !(std::ifstream(file) >> port); ++tries) {
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(handshakeRc(port), 1U);
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(handshakeRc(port), 0U);
    }
    EXPECT_EQ(program.end(SIGTERM), 0);
}

TEST(Program, servesManyGateways) {
    const TempDirectory directory;
    constexpr std::uint64_t count = 200;
    Program program("--port 0 --gateways 200 --seed 5 --speed 0 --port-file " + directory.file("port"));
    std::string ports;
    std::vector<std::unique_ptr<RawClient>> clients;
    for (std::uint64_t index = 0; index < count; ++index) {
        const std::uint16_t port = program.port();
        ports += std::to_string(port) + "\n";
        clients.push_back(std::make_unique<RawClient>(port));
        const simgateway::Model model(5 + index);
        EXPECT_TRUE(clients.back()->query("GET_STATS") == model.stats("", 0).bytes()) << index;
    }
    EXPECT_EQ(readFile(directory.file("port")), ports);
    EXPECT_EQ(program.end(SIGTERM), 0);
}

TEST(Program, takesPortsInARow) {
    for (int attempt = 0;; ++attempt) {
        std::uint16_t begin = 0;
        {
            const simgateway::Server somewhere;
            begin = somewhere.port();
        }
        Program program("2>&1 --gateways 3 --port " + std::to_string(begin));
        const std::string line = program.nextLine();
        if (line.find("in use") != std::string::npos && attempt < 100) {
            continue;  // somebody has one of the next ports
        }
        EXPECT_EQ(line, "listening on 127.0.0.1:" + std::to_string(begin) + "\n");
        EXPECT_EQ(program.port(), begin + 1);
        EXPECT_EQ(program.port(), begin + 2);
        return;
    }
}

TEST(Program, endsAtOnce) {
    const simgateway::Server taken;
    const std::string missing = "--replay is not in this program: it was built without nlohmann-json";
    struct {
        std::string words;
        int status;
        std::string printed;  // on the standard output when it succeeds, else on the standard error
    } const cases[] = {
        {"--help", 0, "--protocol TEXT"},
        {"--version", 0, "zulstat-sim "},
        {"--port " + std::to_string(taken.port()), 1,
         "cannot listen on port " + std::to_string(taken.port()) +
             ": Address already in use; --port 0 takes any free one\n"},
        {"--port=0 --port-file=/nowhere/at/all", 1, "/nowhere/at/all"},
        {"--porto", 2, "unknown argument '--porto'"},
        {"--port", 2, "--port needs a value"},
        {"--port 65536", 2, "bad value '65536' for --port"},
        {"--stats=100001", 2, "bad value '100001' for --stats"},
        {"--speed=nan", 2, "bad value 'nan' for --speed"},
        {"--port=0 --protocol " + std::string(65536, 'p'), 2, "longer than 65535 bytes"},
        {"--gateways 0", 2, "bad value '0' for --gateways"},
        {"--gateways 3 --port 65534", 2, "the ports of 3 Gateways from 65534 on end beyond 65535"},
        {"--fault invoke:sielnt", 2, "--fault invoke:sielnt: unknown fault 'sielnt'"},
        {"--port=0 --gateways 2 --fault 3/invoke:silent", 2, "there is no Gateway 3, the last one is 2"},
        {"--fault invoke:payload=/nosuch", 1, "/nosuch: No such file or directory"},
        {"--loop", 2, "--loop goes with --replay only"},
        {"--loop=yes", 2, "--loop takes no value"},
        {"--port=0 --replay /nosuch", zulstatsim::CAN_REPLAY ? 1 : 2,
         zulstatsim::CAN_REPLAY ? "/nosuch: No such" : missing},
        {"--replay x --seed 1", 2, zulstatsim::CAN_REPLAY ? "--seed does not go with --replay" : missing},
    };
    for (const auto& c : cases) {
        Program wanted(c.words + (c.status == 0 ? " 2>/dev/null" : " 2>&1 >/dev/null"));
        EXPECT_EQ(wanted.end(), c.status) << c.printed;
        EXPECT_NE(wanted.printed.find(c.printed), std::string::npos) << wanted.printed;
    }
}

}  // namespace
}  // namespace simtest
