// The Gateway's end of a connection, and its replies, put together byte by byte: nothing of the library's own encoding
// is used.
#ifndef SCRIPTED_PEER_H
#define SCRIPTED_PEER_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/hex.h"

namespace support {

// Header fields of a reply. The length words are those of name and body unless given.
struct ReplyHeader {
    std::string name = "Admin";
    std::uint32_t word12 = 0;      // comes back at offset 16 of the next request
    std::uint32_t returnCode = 0;  // at offset 16
    std::uint8_t flag = 0;
    std::string eyecatcher = "Gate";
    std::uint32_t version = 0x00700000;
    std::uint32_t flowType = 1;
    std::optional<std::uint32_t> nameLength{};
    std::optional<std::int32_t> dataLength{};
};

inline Bytes message(const ReplyHeader& header, const Bytes& body = {}) {
    const auto nameLength = header.nameLength.value_or(static_cast<std::uint32_t>(header.name.size()));
    const auto dataLength = header.dataLength.value_or(static_cast<std::int32_t>(body.size()));
    return Bytes(header.eyecatcher.begin(), header.eyecatcher.end()) + word(header.version) + word(header.flowType) +
           word(header.word12) + word(header.returnCode) + word(nameLength) +
           Bytes(header.name.begin(), header.name.end()) + Bytes{header.flag} +
           word(static_cast<std::uint32_t>(dataLength)) + body;
}

// Bodies of an admin init and an admin call reply.
inline Bytes initBody(std::uint32_t handle) {
    return word(0) + word(0) + word(handle);
}
inline Bytes callBody(const Bytes& payload) {
    return word(1) + word(0) + Bytes{0} + payload;
}

// A connected pair of sockets, closed at the end.
struct SocketPair {
    SocketPair() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        library = ends[0];
        peer = ends[1];
        constexpr timeval LIMIT = {20, 0};  // no read waits longer
        setsockopt(library, SOL_SOCKET, SO_RCVTIMEO, &LIMIT, sizeof LIMIT);
    }
    ~SocketPair() {
        closePeer();
        if (library >= 0) {
            close(library);
        }
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    void closePeer() {
        if (peer >= 0) {
            close(peer);
        }
        peer = -1;
    }
    void write(const Bytes& bytes) const {
        EXPECT_EQ(send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    int library = -1;
    int peer = -1;
};

// The Gateway's end of a socket pair. Its replies lie there before they are asked for; then the connection ends.
class ScriptedPeer {
public:
    explicit ScriptedPeer(const std::vector<Bytes>& replies) {
        for (const Bytes& reply : replies) {
            pair.write(reply);
        }
        shutdown(pair.peer, SHUT_WR);
    }
    int socket() const {
        return pair.library;
    }
    // Ends the conversation and tells what arrived, one entry a request. The name's length stands at 20,
    // the body's in the last 4 bytes of the header.
    std::vector<Bytes> requests() {
        shutdown(pair.library, SHUT_WR);
        Bytes part(4096);
        for (ssize_t count = 1; count > 0;) {
            count = recv(pair.peer, part.data(), part.size(), 0);
            received = received + slice(part, 0, count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        std::vector<Bytes> result;
        for (Bytes rest = received; !rest.empty(); rest = slice(rest, result.back().size())) {
            const std::size_t headerSize = 29 + wordAt(rest, 20);
            result.push_back(slice(rest, 0, headerSize + wordAt(rest, headerSize - 4)));
        }
        return result;
    }

private:
    SocketPair pair;
    Bytes received;
};

}  // namespace support

#endif
