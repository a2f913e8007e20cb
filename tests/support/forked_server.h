// A simulated Gateway in a process of its own: its threads and storage would hide what the library keeps.
#pragma once

#include "simgateway/model.h"
#include "simgateway/sim_gateway.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <stdexcept>

namespace support {

// Serves the first model, of this many statistics unless options say otherwise, until its parent ends it or is gone.
// Made before there are threads.
class ForkedServer {
public:
    static constexpr int STATISTICS = 40;

    explicit ForkedServer(simgateway::Options options = {.stats = STATISTICS}) {
        options.keepRequests = false;
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 || (process = fork()) < 0) {
            throw std::runtime_error("no process for the Gateway");
        }
        channel = ends[process == 0 ? 1 : 0];
        close(ends[process == 0 ? 0 : 1]);
        if (process == 0) {
            serve(options);
            _exit(0);
        }
        if (read(channel, &portNumber, sizeof portNumber) != sizeof portNumber) {
            throw std::runtime_error("the Gateway has not started");
        }
    }
    ~ForkedServer() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        close(channel);
    }
    ForkedServer(const ForkedServer&) = delete;
    ForkedServer& operator=(const ForkedServer&) = delete;

    [[nodiscard]] int port() const {
        return portNumber;
    }
    // The next exchange of this kind gets a hostile reply, the same one in every run. False: the last was not met.
    [[nodiscard]] bool spoil(simgateway::Exchange exchange) const {
        bool met = false;
        return write(channel, &exchange, sizeof exchange) == sizeof exchange &&
               read(channel, &met, sizeof met) == sizeof met && met;
    }

private:
    // What a client would wait for without limit ends with the connection.
    static simgateway::Fault hostile(const simgateway::Bytes& answer, std::mt19937& random) {
        constexpr std::size_t WHOLE = 1U << 30;
        static const simgateway::Bytes OVERSIZE = simgateway::statsOfContentSize(32768).bytes();
        const auto word = static_cast<std::int32_t>(random());
        const std::size_t size = random() % 64;
        simgateway::Bytes mutated = answer;
        for (std::size_t changes = size % 8 + 1; changes > 0; --changes) {
            mutated[random() % mutated.size()] = static_cast<std::uint8_t>(random() % 3 == 0 ? 0xFF : random());
        }
        const simgateway::Fault faults[] = {
            {.closeAfter = size / 2},
            {.closeAfter = size, .reset = true},
            {.headerRc = word},
            {.replyRc = word},
            {.exceptionFlag = 1},
            {.noBody = true},
            {.bodySize = size},
            {.dataLength = size % 2 == 0 ? 40000 : 0x7FFFFFFF, .closeAfter = WHOLE},
            {.dataLength = -1, .closeAfter = WHOLE},
            {.nameLength = size % 2 == 0 ? size : 0xFFFFFFF0, .closeAfter = WHOLE},
            {.authRefused = true, .word0 = word, .eyecatcher = "????", .version = 9, .flowType = word},
            {.echoWord = word, .writeSize = 7},
            {.rawReply = simgateway::Bytes(size, static_cast<std::uint8_t>(word)), .closeAfter = WHOLE},
            {.arrayFlag = 0, .blockTag = 0x7A, .elementRc = -3},
            {.payload = OVERSIZE},
            {.payload = mutated},
            {.payload = mutated},
        };
        return faults[random() % std::size(faults)];
    }

    void serve(const simgateway::Options& options) const {
        simgateway::Server server(options);
        const simgateway::Model model(1, options.stats);
        const simgateway::Bytes answers[] = {model.stats("", 0).bytes(), model.statIds("").bytes()};
        std::mt19937 random(1);
        const std::uint16_t number = server.port();
        bool going = write(channel, &number, sizeof number) == sizeof number;
        simgateway::Exchange exchange{};
        simgateway::Exchange previous{};
        while (going && read(channel, &exchange, sizeof exchange) == sizeof exchange) {
            const bool met = server.pendingFaults(previous) == 0;
            server.inject(exchange, hostile(answers[random() % 2], random));
            previous = exchange;
            going = write(channel, &met, sizeof met) == sizeof met;
        }
    }

    pid_t process = -1;
    int channel = -1;
    std::uint16_t portNumber = 0;
};

}  // namespace support
