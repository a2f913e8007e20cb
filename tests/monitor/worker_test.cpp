// The worker process by itself: what it keeps, when it ends, and what it makes of odd messages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "monitor/collector.h"
#include "monitor/frames.h"
#include "processes.h"
#include "simgateway/sim_gateway.h"

namespace monitor {

namespace {

// How a worker ends that is told these bytes and then no more, as waitpid() says.
int endAfter(const std::string& bytes) {
    int sockets[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    const pid_t process = fork();
    if (process == 0) {
        dup2(sockets[1], STDIN_FILENO);
        dup2(sockets[1], STDOUT_FILENO);
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

}  // namespace

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

TEST(Worker, EndsWithTheProgramThatStartedIt) {
    simgateway::Server server;
    simgateway::Fault silent;
    silent.silent = true;
    server.inject(simgateway::Exchange::invoke, silent);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t program = fork();
    if (program == 0) {
        Collector collector(to(server.port()));
        collector.begin({What::stats, {}}, Clock::now() + std::chrono::hours(1));
        reaches(collector, Phase::querying);
        const pid_t worker = collector.process();
        [[maybe_unused]] const ssize_t written = write(ends[1], &worker, sizeof worker);
        for (;;) {
            pause();
        }
    }
    pid_t worker = -1;
    ASSERT_EQ(read(ends[0], &worker, sizeof worker), static_cast<ssize_t>(sizeof worker));
    EXPECT_TRUE(alive(worker));
    kill(program, SIGKILL);
    waitpid(program, nullptr, 0);
    EXPECT_TRUE(eventually([&] { return !alive(worker); }));
    close(ends[0]);
    close(ends[1]);
}

TEST(Worker, EndsInOrderWhateverItIsTold) {
    simgateway::Server server;
    const std::string hello = writeHello();
    const std::string open = writeOpen({"127.0.0.1", server.port(), 0, ""});
    const std::string query = writeQuery({What::stats, {}});
    const std::string dead = writeOpen({"127.0.0.1", unusedPort(), 0, ""});
    std::vector<std::string> cases = {
        "",
        hello,
        writeHello(2) + open + query + writeClose(),
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
    };
    std::mt19937 random(7);
    for (int count = 0; count < (SANITIZED ? 10 : 60); ++count) {
        std::string bytes = count % 2 == 0 ? hello : "";
        const std::size_t size = random() % 64;
        bytes += std::string({static_cast<char>(size % 9), 0, 0, 0});
        while (bytes.size() < size) {
            bytes += static_cast<char>(random());
        }
        cases.push_back(bytes);
    }
    for (const std::string& bytes : cases) {
        const int status = endAfter(bytes);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE)
            << testing::PrintToString(bytes) << " " << status;
    }
    EXPECT_EQ(endAfter(hello + open + query + writeClose()), 0);
}

TEST(Worker, IsNothingForPeople) {
    const pid_t process = fork();
    if (process == 0) {
        dup2(::open("/dev/null", O_RDWR), STDIN_FILENO);
        dup2(STDIN_FILENO, STDERR_FILENO);
        execl(WORKER_PROGRAM, "zulstats-worker", nullptr);
        _exit(99);
    }
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE);
}

}  // namespace monitor
