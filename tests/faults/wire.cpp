// Every byte of every reply: where the reply ends, and what it says.
#include "faults.h"

#include <cerrno>

namespace faults {
namespace {

// The replies of a conversation with one query.
enum { HANDSHAKE, AUTH_FIRST, AUTH_SECOND, VERSION_INIT, VERSION, QUERY_INIT, QUERY_CALL, END, REPLIES };
constexpr Exchange EXCHANGES[REPLIES] = {Exchange::handshake, Exchange::authFirst,    Exchange::authSecond,
                                         Exchange::adminInit, Exchange::getAttribute, Exchange::adminInit,
                                         Exchange::invoke,    Exchange::close};

constexpr std::size_t WHOLE = SIZE_MAX;

bool isAdmin(int reply) {
    return reply >= VERSION_INIT && reply < END;
}

Expected expectedOf(int reply, const Codes& codes) {
    return {.step = reply <= VERSION ? OPEN : reply < END ? QUERY : CLOSE, .codes = reply < END ? codes : Codes{0}};
}

void point(Walk& walk, int reply, const std::string& what, const simgateway::Fault& fault, const Expected& expected,
           int errnoBefore = 0) {
    walk.point("reply" + std::to_string(reply) + "." + what, [&](Server& server) {
        if (reply == QUERY_INIT) {
            server.inject(Exchange::adminInit, {});  // the other one's
        }
        server.inject(EXCHANGES[reply], fault);
        converse(server, expected, 0, 1, errnoBefore);
        EXPECT_EQ(server.pendingFaults(EXCHANGES[reply]), 0U);
    });
}

// A reply that the Gateway follows with the end of the connection: whatever it says, nothing waits for ever.
Expected expectedOfLast(int reply) {
    const bool call = reply == VERSION || reply == QUERY_CALL;
    Expected expected = expectedOf(reply, call ? Codes{0, FAILS[0], FAILS[1]} : FAILS);
    expected.next = reply == VERSION ? FAILS : Codes{0};
    expected.answer = Answer::ANY;
    return expected;
}

// A connection that ends inside a message leaves errno as it was before: 0 makes a short reply a whole one, with zeros
// for what is missing. Opening sets errno on its way.
void cut(Walk& walk, int reply, std::size_t size, bool reset, int errnoBefore) {
    const std::size_t headerSize = isAdmin(reply) ? 34 : 33;
    const bool taken = reply > VERSION && !reset && errnoBefore == 0 && size > 0 && size != headerSize;
    Expected expected = expectedOf(reply, LOST);
    if (reply < END && taken && size < headerSize) {
        expected.codes = REFUSED;  // no body: the request is read in its place
    } else if (reply == QUERY_CALL && taken) {
        expected.codes = size >= headerSize + 4 ? Codes{0} : REFUSED;  // without its call type it is one to an init
        expected.answer = Answer::ANY;
    }
    point(walk, reply,
          "cut" + std::to_string(size) + (reset ? ".reset" : ".end") + ".errno" + std::to_string(errnoBefore),
          {.closeAfter = size, .reset = reset}, expected, errnoBefore);
}

void headerWords(Walk& walk, int reply) {
    const std::uint32_t usual = isAdmin(reply) ? 5 : 4;
    const bool call = reply == VERSION || reply == QUERY_CALL;
    Expected expected = expectedOfLast(reply);
    for (const std::uint32_t length :
         {0U, 3U, usual - 1, usual + 1, 255U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFE8U, 0xFFFFFFFFU}) {
        expected.codes = isAdmin(reply) && length > usual ? LOST : expectedOfLast(reply).codes;
        point(walk, reply, "name" + std::to_string(length), {.nameLength = length, .closeAfter = WHOLE}, expected);
    }
    for (const std::int32_t length : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 19, 20, INT32_MAX}) {
        const bool bad = isAdmin(reply) && (length <= 0 || length == INT32_MAX || (call && length < 9));
        expected.codes = bad ? REFUSED : call ? Codes{0} : expectedOfLast(reply).codes;
        point(walk, reply, "data" + std::to_string(length), {.dataLength = length, .closeAfter = WHOLE}, expected);
    }
    for (const std::int32_t rc : {1, 0xF004}) {
        const Codes codes = !isAdmin(reply) ? Codes{0} : rc == 1 ? REFUSED : LOST;
        point(walk, reply, "rc" + std::to_string(rc), {.headerRc = rc}, expectedOf(reply, codes));
    }
}

// One byte changed, or a length put there.
void bytes(Walk& walk, int reply, const Bytes& usual, std::size_t at) {
    const auto reach = [&](const std::string& what, std::initializer_list<int> values) {
        Bytes broken = usual;
        std::copy_n(values.begin(), std::min(values.size(), usual.size() - at), broken.begin() + static_cast<long>(at));
        point(walk, reply, what + std::to_string(at) + "." + std::to_string(*values.begin() & 0xFF),
              {.rawReply = broken, .closeAfter = WHOLE}, expectedOfLast(reply));
    };
    const int was = usual[at];
    for (const int value : {was ^ 1, was ^ 2, was ^ 16, was ^ 0x80, was + 1, was - 1}) {
        if (walk.full) {
            reach("byte", {value});
        }
    }
    for (const int length : {0, 1, 0x7FFF, 0x8000, 0xFFFF}) {
        reach("length" + std::to_string(length) + "at", {length >> 8, length & 0xFF});
    }
}

}  // namespace

void walkWire(Walk& walk) {
    walk.reference(false, 0, 1);
    for (int reply = 0; reply < REPLIES; ++reply) {
        const Bytes usual(record->bytes + record->start[reply], record->bytes + record->start[reply + 1]);
        for (std::size_t at = 0; at < usual.size(); at += walk.full ? 1 : 11) {
            for (const bool reset : {false, true}) {
                cut(walk, reply, at, reset, 0);
                cut(walk, reply, at, reset, EFAULT);
            }
            bytes(walk, reply, usual, at);
        }
        headerWords(walk, reply);
    }
}

}  // namespace faults
