// The program: its command line, what it prints and how it ends.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "raw_client.h"
#include "walk.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;

// The program as a child process. Its options are words of a shell command; what it prints is what they leave of it.
class Program {
public:
    // `before` is a shell command; it sees the process number of the program as $$.
    explicit Program(const std::string& options, const std::string& before = ":")
        : output(::popen(("echo $$; " + before + "; exec '" ZULSTAT_SIM_PROGRAM "' " + options).c_str(), "re")) {
        EXPECT_EQ(std::fscanf(output, "%d%*c", &pid), 1);
    }
    ~Program() {
        if (output != nullptr) {
            end(SIGKILL);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // From the line that the program prints when it listens.
    std::uint16_t port() {
        std::uint16_t number = 0;
        EXPECT_EQ(std::fscanf(output, "listening on 127.0.0.1:%hu%*c", &number), 1);
        return number;
    }

    std::string firstLine() {
        char line[1024] = "";
        EXPECT_NE(std::fgets(line, sizeof line, output), nullptr);
        return line;
    }

    // Exit status, or -1 when the program was killed. `printed` has what came after the port.
    int end(int signal = 0) {
        ::kill(pid, signal);
        for (int c = 0; (c = std::fgetc(output)) != EOF;) {
            printed += static_cast<char>(c);
        }
        const int status = ::pclose(output);
        output = nullptr;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string printed;

private:
    std::FILE* output;
    pid_t pid = 0;
};

TEST(Program, servesAndEndsOnASignal) {
    std::string directory = testing::TempDir() + "/simtest.XXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    for (const int signal : {SIGINT, SIGTERM}) {
        Program program("2>&1 --port 0 --port-file=" + directory + "/port");
        const std::uint16_t port = program.port();
        std::ifstream file(directory + "/port");
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), std::to_string(port) + "\n");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1) << "draft left behind";

        RawClient client(port);
        client.exchange(handshakeRequest);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(program.end(signal), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
        EXPECT_EQ(program.printed, "");
        EXPECT_EQ(client.awaitEnd(), End::closed);
    }
    std::filesystem::remove_all(directory);
}

TEST(Program, writesItsPortThroughNoLinkOfOthers) {
    std::string directory = testing::TempDir() + "/simtest.XXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    const std::string name = directory + "/port";
    Program program("2>&1 --port 0 --port-file=" + name, "ln -s victim " + name + ".$$.tmp");
    const std::string line = program.firstLine();
    program.end(SIGKILL);
    EXPECT_NE(line.find("File exists"), std::string::npos) << line;
    EXPECT_FALSE(std::filesystem::exists(directory + "/victim"));
    std::filesystem::remove_all(directory);
}

TEST(Program, answersAsAServerWithTheSameOptions) {
    simgateway::Options options;
    options.seed = 42;
    options.stats = 77;
    simgateway::Server server(options);
    const Bytes expected = RawClient(server.port()).query("GET_STATS");
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

TEST(Program, endsAtOnce) {
    const simgateway::Server taken;
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
    };
    for (const auto& c : cases) {
        Program wanted(c.words + (c.status == 0 ? " 2>/dev/null" : " 2>&1 >/dev/null"));
        EXPECT_EQ(wanted.end(), c.status) << c.printed;
        EXPECT_NE(wanted.printed.find(c.printed), std::string::npos) << wanted.printed;
    }
}

}  // namespace
}  // namespace simtest
