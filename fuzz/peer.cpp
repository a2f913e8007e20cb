#include "peer.h"

#include "bytes.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_socketcomms.h"
#include "support/interposer.h"
#include "zulstats.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

Peer peer;

namespace {

constexpr std::size_t CALL_REPLY_HEAD = 9;

std::uint8_t sent[1 << 16];

// A request read as a reply succeeds. Only what a call asks for is not in it.
unsigned mirror(std::size_t size) {
    const std::size_t bodyAt = HEADER_FIXED_SIZE + getU32(sent + 20);
    if (size >= bodyAt + CALL_REPLY_HEAD && getU32(sent + bodyAt) == ADMIN_INVOKE) {
        std::memcpy(sent + bodyAt + CALL_REPLY_HEAD, peer.stream.data, peer.stream.size);
        putU32(sent + bodyAt - 4, static_cast<std::uint32_t>(CALL_REPLY_HEAD + peer.stream.size));
        size = bodyAt + CALL_REPLY_HEAD + peer.stream.size;
    }
    peer.choices = {sent, size};
    return 0;
}

ssize_t deliver(Input* from, void* data, std::size_t size) {
    const Input piece = from->take(size);
    std::memcpy(data, piece.data, piece.size);
    return static_cast<ssize_t>(piece.size);
}

// Less memory while a trace shows every byte received.
void* takeStorage(std::size_t count, std::size_t size) {
    const std::size_t limit = traceIsOpen(4) ? 1 << 16 : 1 << 17;
    const bool failing = peer.failing > 0 && --peer.failing == 0;
    return failing || (size != 0 && count > limit / size) ? nullptr : support::real::calloc(count, size);
}

ssize_t receive(int descriptor, void* data, std::size_t size, int flags) {
    if (peer.kind != Peer::SCRIPTED) {
        return peer.kind == Peer::MIRROR ? deliver(&peer.choices, data, size)
                                         : support::real::recv(descriptor, data, size, flags);
    }
    const unsigned choice = peer.choices.byte();
    if (peer.stream.size != 0) {
        return deliver(&peer.stream, data, choice == 0 || choice > size ? size : choice);
    }
    errno = choice % 2 == 0 ? 0 : choice % 8 < 4 ? EINTR : ECONNRESET;
    return choice % 4 == 3 ? -1 : 0;
}

ssize_t sendSome(int descriptor, const void* data, std::size_t size, int flags) {
    std::memcpy(sent, data, size);
    if (peer.kind == Peer::CONNECTED) {
        return support::real::send(descriptor, data, size, flags | MSG_DONTWAIT);  // nobody reads the requests
    }
    const unsigned choice = peer.kind == Peer::MIRROR ? mirror(size) : peer.choices.byte();
    errno = EPIPE;
    return choice == 0xFF ? -1 : static_cast<ssize_t>(choice < 0xF0 ? size : choice - 0xF0);
}

// The stream is there, or at its end: no wait is needed.
int awaitNothing(int, fd_set*, fd_set*, fd_set*, timeval*) {
    errno = EINTR;
    return peer.kind == Peer::SCRIPTED && peer.choices.byte() == 0xFF ? -1 : 1;
}

int handOut(int descriptor, const sockaddr*, socklen_t) {
    int ends[2];
    if (peer.kind == Peer::CONNECTED) {
        close(peer.otherEnd);
        REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
        REQUIRE(write(ends[1], peer.stream.data, peer.stream.size) == static_cast<ssize_t>(peer.stream.size));
        REQUIRE(shutdown(ends[1], SHUT_WR) == 0 && dup2(ends[0], descriptor) == descriptor && close(ends[0]) == 0);
        peer.otherEnd = ends[1];
    }
    errno = peer.connectError;
    return peer.connectError == 0 ? 0 : -1;
}

}  // namespace

unsigned turnOf(Input input) {
    unsigned turn = static_cast<unsigned>(input.size);
    for (const std::size_t step = input.size / 1024; input.size > 0; input.take(step)) {
        turn = turn * 31 + input.byte();
    }
    return turn ^ turn >> 16;
}

void chooseTrace(const Input& input) {
    const auto turn = static_cast<int>(turnOf(input) % 6144);
    REQUIRE(setAPITraceLevel(turn < 6 ? turn : 0) == 0);
}

extern "C" {

// A quarantine that fits the cache: the targets allocate little and often.
const char* __asan_default_options() {
    return "quarantine_size_mb=2:malloc_context_size=6:allocator_release_to_os_interval_ms=-1";
}

int LLVMFuzzerInitialize(int*, char***) {
    static support::Script script;
    script.calloc = takeStorage;
    script.recv = receive;
    script.send = sendSome;
    script.select = awaitNothing;
    script.connect = handOut;
    setenv("TZ", "UTC0", 1);  // time stamps without a look at the time zone's file
    REQUIRE(setAPITraceFile("/dev/null") == 0);
    return 0;
}
}
