// A worker that misbehaves as the variable ODD_WORKER says:
//
//     mute      says nothing
//     half      ends within a message
//     stuck     stops within a message, and stays
//     version   has another version
//     rude      begins without a hello
//     twice     says hello twice
//     backward  says what only a program says
//     long      announces a message over the limit
//     flood     tells phases without end
//     odd       tells a phase that there is not
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <limits>

#include "monitor/frames.h"

using namespace monitor;

namespace {

void say(const std::string& bytes) {
    if (send(STDIN_FILENO, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
        _exit(EXIT_FAILURE);
    }
}

}  // namespace

int main() {
    const char* const variable = std::getenv("ODD_WORKER");
    const std::string mode = variable == nullptr ? "" : variable;
    const std::string phase = writePhase(Phase::querying);
    if (mode != "mute" && mode != "rude") {
        say(writeHello(mode == "version" ? FRAME_VERSION + 1 : FRAME_VERSION));
    }
    if (mode == "half" || mode == "stuck") {
        std::array<char, 4096> request;
        [[maybe_unused]] const ssize_t size = recv(STDIN_FILENO, request.data(), request.size(), 0);
        say(phase.substr(0, phase.size() - 1));
    } else if (mode == "rude") {
        say(phase);
    } else if (mode == "twice") {
        say(writeHello());
    } else if (mode == "backward") {
        say(writeClose());
    } else if (mode == "long") {
        say(std::string(sizeof(std::uint32_t), std::numeric_limits<char>::max()));
    } else if (mode == "odd") {
        say(FrameWriter(MessageType::phase).add(std::uint8_t{99}).finish());
    }
    while (mode == "flood") {
        say(phase);
    }
    if (mode == "half") {
        _exit(EXIT_SUCCESS);
    }
    for (;;) {
        pause();
    }
}
