// The worker process by itself: what it keeps, when it ends, and what it makes of odd messages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "monitor/frames.h"
#include "processes.h"
#include "simgateway/sim_gateway.h"
#include "support/port.h"

namespace {

using namespace monitor;

// How a worker ends that is told these bytes and then no more, as waitpid() says.
int endAfter(const std::string& bytes, bool channel = true) {
    int sockets[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    const pid_t process = fork();
    if (process == 0) {
        dup2(channel ? sockets[1] : ::open("/dev/null", O_RDWR), STDIN_FILENO);
        dup2(channel ? sockets[1] : STDIN_FILENO, channel ? STDOUT_FILENO : STDERR_FILENO);
        execl(WORKER_PROGRAM, "zulstats-worker", nullptr);
        _exit(99);
    }
    close(sockets[1]);
    send(sockets[0], bytes.data(), bytes.size(), MSG_NOSIGNAL);
    shutdown(sockets[0], SHUT_WR);
    int status = -1;
    const bool ended = eventually([&] { return waitpid(process, &status, WNOHANG) == process; });
    if (!ended) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    close(sockets[0]);
    return ended ? status : -1;
}

TEST(Worker, KeepsLittleAndGainsNothing) {
    const int inheritable = open("/dev/null", O_RDONLY);
    const int high = dup2(inheritable, 200);
    simgateway::Server server;
    Collector collector(to(server.port()));
    ASSERT_FALSE(collector.collect({What::stats, {}}, patience).failure);
    const pid_t worker = collector.process();
    EXPECT_EQ(statusOf(worker, "NoNewPrivs"), "1");
    EXPECT_EQ(statusOf(worker, "Name"), "zulstats-worker");

    std::map<std::string, std::string> held;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(worker) + "/fd")) {
        held[entry.path().filename().string()] = std::filesystem::read_symlink(entry.path()).string();
    }
    EXPECT_EQ(held.size(), 4u);  // channel, channel, standard error, and the connection
    EXPECT_EQ(held["0"], held["1"]);
    for (const auto& [descriptor, target] : held) {
        EXPECT_TRUE(descriptor == "2" || target.starts_with("socket:")) << descriptor << " " << target;
    }

    const long resident = std::stol(statusOf(worker, "VmRSS"));  // kB
    RecordProperty("worker_resident_kb", std::to_string(resident));
    if (!SANITIZED) {
        EXPECT_LT(resident, 2560);
    }
    close(inheritable);
    close(high);
}

TEST(Worker, EndsInOrderWhateverItIsTold) {
    simgateway::Server server;
    const std::string hello = writeHello();
    const std::string open = writeOpen({"127.0.0.1", server.port(), 0, ""});
    const std::string query = writeQuery({What::stats, {}});
    const support::TakenPort nobody;
    const std::string dead = writeOpen({"127.0.0.1", nobody.number, 0, ""});
    const std::string cases[] = {
        "",
        hello,
        writeHello(FRAME_VERSION + 1) + open + query + writeClose(),
        hello + hello,
        hello + query,
        hello + open.substr(0, open.size() / 2),
        hello + FrameWriter(MessageType::open).finish(),
        hello + dead + query,
        hello + writeOpen({"127.0.0.1", -1, 0, ""}),
        hello + writeOpen({"127.0.0.1", server.port(), 77, ""}),
        hello + writeOpen({"127.0.0.1", server.port(), 1, "/nonexistent/trace"}),
        hello + open + FrameWriter(MessageType::query).add(std::uint8_t{200}).finish(),
        hello + open + query + writePhase(Phase::closing),
        hello + open + query + "\xff\xff\xff\xff",
        std::string("\5\0\0\0any", 7),
        hello + std::string("\5\0\0\0\7any", 8),
    };
    for (const std::string& bytes : cases) {
        EXPECT_EQ(endAfter(bytes), W_EXITCODE(EXIT_FAILURE, 0)) << testing::PrintToString(bytes);
    }
    EXPECT_EQ(endAfter("", false), W_EXITCODE(EXIT_FAILURE, 0)) << "started by a person";
    EXPECT_EQ(endAfter(hello + open + query + writeClose()), 0);
}

}  // namespace
