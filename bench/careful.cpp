#include "careful.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "server.h"

namespace bench {
namespace {

pid_t ownProcess = getpid();  // nothing forks while a client lives

unsigned char* newBlock(std::size_t size) {
    auto* block = static_cast<unsigned char*>(std::malloc(size));
    if (block == nullptr) {
        fail("malloc");
    }
    return block;
}

void receive(int socket, unsigned char* at, std::size_t size) {
    for (std::size_t have = 0; have < size;) {
        const ssize_t got = recv(socket, at + have, size - have, 0);
        if (got <= 0) {
            fail("recv");
        }
        have += static_cast<std::size_t>(got);
    }
}

}  // namespace

CarefulClient::CarefulClient(std::uint16_t port) : socket(connectTo(port)), process(getpid()), thread(pthread_self()) {
}

CarefulClient::~CarefulClient() {
    close(socket);
    std::free(content);
}

unsigned char* CarefulClient::exchange(const Bytes& request, std::uint32_t handle, std::size_t* size) {
    unsigned char* data = newBlock(request.size());
    std::memcpy(data, request.data(), request.size());
    if (request.size() > ADMIN_HEADER_SIZE + 8) {
        putU32(data + ADMIN_HEADER_SIZE + 4, handle);
    }
    struct sigaction ignore {};
    struct sigaction saved {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &saved);
    const ssize_t sent = send(socket, data, request.size(), 0);
    sigaction(SIGPIPE, &saved, nullptr);
    if (sent != static_cast<ssize_t>(request.size())) {
        fail("send");
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    if (select(socket + 1, &set, nullptr, nullptr, nullptr) < 0) {
        fail("select");
    }
    unsigned char* header = newBlock(ADMIN_HEADER_SIZE);
    receive(socket, header, ADMIN_HEADER_SIZE);
    const std::uint32_t failed = getU32(header + 16);
    *size = getU32(header + ADMIN_HEADER_SIZE - 4);
    std::free(header);
    std::free(data);
    if (failed != 0 || *size > (512U << 20)) {
        fail("a reply that the client does not know");
    }
    unsigned char* body = newBlock(*size);
    receive(socket, body, *size);
    return body;
}

bool CarefulClient::query() {
    std::size_t size = 0;
    unsigned char* body = exchange(init, 0, &size);
    const std::uint32_t handle = size < 12 ? 0 : getU32(body + 8);
    std::free(body);
    body = exchange(invoke, handle, &size);
    if (size < CALL_REPLY_HEAD) {
        std::free(body);
        return false;
    }
    size -= CALL_REPLY_HEAD;
    unsigned char* payload = newBlock(size);
    std::memcpy(payload, body + CALL_REPLY_HEAD, size);
    std::free(body);
    const long laid = layOut(payload, size, content, RESULT_SET_BUFFER_SIZE);
    std::free(payload);
    cursor = content + EYECATCHER_SIZE + 4;
    itemsLeft = 0;
    return laid >= 0;
}

// One statistic a call, as long as there is one; lengths are held against the end of the buffer.
[[gnu::noinline]] bool CarefulClient::next(Entry* entry) {
    if (process != ownProcess || pthread_equal(pthread_self(), thread) == 0) {
        return false;
    }
    const char* const end = content + RESULT_SET_BUFFER_SIZE;
    const char* at = cursor;
    while (itemsLeft == 0) {
        if (end - at < 4 || loadWord(at) == RESULT_SET_TERMINATOR || end - at < 12 + static_cast<long>(loadWord(at))) {
            return false;
        }
        at += 4 + loadWord(at);
        const auto rc = static_cast<std::int32_t>(loadWord(at));
        itemsLeft = rc < 0 ? 0 : loadWord(at + 4);
        at += rc < 0 ? 4 : 8;
    }
    if (end - at < 4) {
        return false;
    }
    entry->idLength = loadWord(at);
    entry->id = at + 4;
    if (end - entry->id < 4 + static_cast<long>(entry->idLength)) {
        return false;
    }
    at = entry->id + entry->idLength;
    entry->valueLength = loadWord(at);
    entry->value = at + 4;
    if (end - entry->value < static_cast<long>(entry->valueLength)) {
        return false;
    }
    cursor = entry->value + entry->valueLength;
    --itemsLeft;
    return true;
}

long CarefulClient::fetch() {
    if (!query()) {
        return -1;
    }
    long sum = 0;
    Entry entry;
    while (next(&entry)) {
        sum += entrySum(entry.id, entry.idLength, entry.value, entry.valueLength);
    }
    return sum;
}

}  // namespace bench
