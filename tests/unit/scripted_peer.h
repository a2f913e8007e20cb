// The Gateway's end of a connection.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/message.h"

namespace support {

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
