// Calls in any order, with any handles that a program can have, with a Gateway of the kind PEER_KIND.
#include "peer.h"

#include "zulstats.h"

#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace {

constexpr bool HOSTILE = Peer::PEER_KIND == Peer::CONNECTED;

// A connection, or one that is gone, whose handle the program has kept.
struct Slot {
    GatewayToken* token;
    bool open;
    ResultSetToken* rs;  // null before the first query
    char* ids;           // of the latest getIdQuery
};

Slot slots[3];
ResultSetToken* copy;
char text[40001];

// The connection of a handle: a new one may have the address of one that is gone.
Slot* find(const GatewayToken* token) {
    for (Slot& slot : slots) {
        if (slot.open && slot.token == token) {
            return &slot;
        }
    }
    return nullptr;
}

void openSlot(unsigned arg, Slot* slot) {
    char* version = nullptr;
    const int rc = openRemoteGatewayConnection("127.0.0.1", arg == 0 ? 65536 : 7531, arg == 2 ? nullptr : &slot->token,
                                               arg == 3 ? nullptr : &version);
    REQUIRE(isOneOf(rc, 0, STAPI_RC_INVALID_PORT, STAPI_RC_NULL_GATEWAY_TOKEN_POINTER, STAPI_RC_NULL_VERSION_POINTER) ||
            (HOSTILE && isOneOf(rc, STAPI_RC_GATEWAY_CONNECTION_LOST, STAPI_RC_GATEWAY_REQUEST_FAILED)) ||
            (peer.connectError != 0 &&
             isOneOf(rc, STAPI_RC_CONNECTION_REFUSED, STAPI_RC_NETWORK_UNREACHABLE, STAPI_RC_CONNECT_FAILED)));
    std::free(version);
    *slot = {slot->token, rc == 0, nullptr, nullptr};
}

void runQuery(unsigned which, unsigned arg, GatewayToken* token, Slot* owner) {
    static constexpr int (*PLAIN[])(GatewayToken*, ResultSetToken**) = {getStats, getStatIds, getResourceGroupIds};
    static constexpr int (*NARROWED[])(GatewayToken*, const char*, ResultSetToken**) = {
        getStatsByStatId, getStatsByStatGroupId, getStatIdsByStatGroupId};
    static constexpr std::size_t LENGTHS[] = {0, 5, 1000, 31999, 32765, 32766, 40000};
    int level = 0;
    REQUIRE(getAPITraceLevel(&level) == 0);
    const std::size_t length = level > 3 ? 5 : LENGTHS[arg % 7];  // the trace shows every byte sent
    std::memset(text, 'q', length);
    text[length] = '\0';
    const char* built = owner != nullptr && arg % 4 == 0 ? owner->ids : nullptr;
    const char* ids = built != nullptr ? built : arg == 31 ? nullptr : text;
    ResultSetToken* rs = nullptr;
    ResultSetToken** rsAt = arg == 30 ? nullptr : &rs;
    const int rc = which < 3 ? PLAIN[which](token, rsAt) : NARROWED[which - 3](token, ids, rsAt);
    if (rc == 0) {
        owner->rs = rs;
    } else if (owner != nullptr && isOneOf(rc, STAPI_RC_GATEWAY_CONNECTION_LOST, STAPI_RC_GATEWAY_REQUEST_FAILED)) {
        REQUIRE(HOSTILE && rs == nullptr);
        owner->open = which == 4;  // whose failure leaves the connection open
    } else {
        REQUIRE(isOneOf(rc, STAPI_RC_NULL_QUERY_STRING, STAPI_RC_NULL_RESULT_SET_POINTER) ||
                (owner == nullptr && isOneOf(rc, STAPI_RC_NULL_GATEWAY_TOKEN, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND)));
    }
}

void useResultSet(unsigned op, bool bad, ResultSetToken* rs, Slot* owner) {
    StatData stat{};
    IdData id{};
    char* ids = nullptr;
    ResultSetToken** at = rs == copy || owner == nullptr ? &copy : &owner->rs;
    const int rc = op == 0   ? getFirstStat(rs, bad ? nullptr : &stat)
                   : op == 1 ? getNextStat(rs, bad ? nullptr : &stat)
                   : op == 2 ? getFirstId(rs, bad ? nullptr : &id)
                   : op == 3 ? getNextId(rs, bad ? nullptr : &id)
                   : op == 4 ? dumpResultSet(rs)
                   : op == 5 ? copyResultSet(rs, bad || copy != nullptr ? nullptr : &copy)
                   : op == 6 ? freeResultSet(bad ? nullptr : at)
                             : getIdQuery(rs, bad ? nullptr : &ids);
    REQUIRE(isOneOf(rc, 0, STAPI_RC_END_OF_RESULT_SET, STAPI_RC_NULL_RESULT_SET, STAPI_RC_NULL_RESULT_SET_POINTER,
                    STAPI_RC_NULL_STAT_DATA, STAPI_RC_NULL_ID_DATA, STAPI_RC_WRONG_RESULT_SET_CONTENT,
                    STAPI_RC_NULL_POINTER, STAPI_RC_NO_GOOD_IDS, STAPI_RC_RESULT_SET_NOT_USER_OWNED));
    if (ids != nullptr && owner != nullptr && rs == owner->rs) {
        owner->ids = ids;
    }
}

void call(unsigned op, unsigned choice) {
    Slot& slot = slots[choice / 32 % 4 % 3];
    const unsigned arg = choice % 32;
    GatewayToken* token = arg == 29 ? nullptr : slot.token;
    Slot* owner = find(token);
    if (op < 6) {
        runQuery(op, arg, token, owner);
    } else if (op < 14) {
        useResultSet(op - 6, arg == 31, arg % 4 == 1 || owner == nullptr ? copy : owner->rs, owner);
    } else if (op < 16 && !slot.open) {
        openSlot(arg, &slot);
    } else if (op == 16) {
        const int rc = closeGatewayConnection(&token);
        REQUIRE(owner != nullptr ? rc == 0
                                 : isOneOf(rc, STAPI_RC_NULL_GATEWAY_TOKEN, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND));
        if (owner != nullptr) {
            owner->open = false;
        }
    } else if (op == 17) {
        std::memset(text, '/', 5000);
        text[5000] = '\0';
        REQUIRE(setAPITraceFile(text) == STAPI_RC_TRACE_FILE_OPEN_FAILED && dumpState() == 0);
        REQUIRE(isOneOf(setAPITraceLevel(static_cast<int>(choice) / 2 - 125), 0, STAPI_RC_INVALID_TRACE_LEVEL));
    } else if (op == 18) {
        REQUIRE(closeAllGatewayConnections() == 0);
        slots[0].open = slots[1].open = slots[2].open = false;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static constexpr int CONNECT_ERRORS[] = {0, EINPROGRESS, ECONNREFUSED, ENETUNREACH, EACCES};
    Input in = {data, size};
    chooseTrace(in);
    const unsigned error = in.byte() % 32;
    Input choices = in.take(in.byte());
    peer = {Peer::PEER_KIND, in.take(8192), {}, CONNECT_ERRORS[HOSTILE && error < 5 ? error : 0], -1, 0};
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    for (int calls = 0; choices.size > 1 && calls < 16; ++calls) {
        const unsigned op = choices.byte() % 19;
        call(op, choices.byte());
    }
    REQUIRE(closeAllGatewayConnections() == 0 && setAPITraceLevel(0) == 0);
    std::memset(slots, 0, sizeof slots);
    REQUIRE(copy == nullptr || freeResultSet(&copy) == 0);
    close(peer.otherEnd);
    REQUIRE(dup(STDERR_FILENO) == descriptor && close(descriptor) == 0);  // none has leaked
    return 0;
}
