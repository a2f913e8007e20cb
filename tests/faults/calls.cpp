// Every allocation and every call of the system fails or does less than it should; and many descriptors are open.
#include "faults.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace faults {
namespace {

const Codes NO_MEMORY = {STAPI_RC_NO_MEMORY};
// What comes of the allocations of a step, by their number in it; the last row that fits counts. An exchange has three:
// request, header and body of the reply. A reply that there is no storage for stays unread and meets the next one.
const struct {
    int step;
    int first;
    int last;
    Codes once;
    Codes onward;
} ROWS[] = {
    {INIT, 1, 1, NO_MEMORY, NO_MEMORY},
    {OPEN, 1, 5, NO_MEMORY, NO_MEMORY},
    {OPEN, 4, 4, REFUSED, NO_MEMORY},  // the version text
    {OPEN, 6, 14, FAILS, REFUSED},     // handshake and authorisation, which need not succeed
    {OPEN, 6, 6, {0}, REFUSED},
    {OPEN, 9, 9, {0}, REFUSED},
    {OPEN, 12, 12, {0}, REFUSED},
    {OPEN, 15, 21, REFUSED, REFUSED},
    {OPEN, 22, 22, {0}, {0}},  // the caller's copy of the version
    {COPY, 1, 3, NO_MEMORY, NO_MEMORY},
    {ID_QUERY, 1, 1, NO_MEMORY, NO_MEMORY},
    {CLOSE, 1, 2, {0}, {0}},
};

Expected withoutMemory(const Event& event, bool onward) {
    Expected expected{.step = event.step, .codes = {}};
    for (const auto& row : ROWS) {
        if (row.step == event.step && event.nth >= row.first && event.nth <= row.last) {
            expected.codes = onward ? row.onward : row.once;
        }
    }
    const bool resultSet = event.step == OPEN && (event.nth == 2 || event.nth == 3);  // without it a token stays
    expected.held = event.step == INIT ? 0 : resultSet ? 2 : 1;
    expected.answer = event.step == OPEN && event.nth == 22 ? Answer::NONE : Answer::OWN;
    if (event.step >= QUERY && event.step < COPY) {
        const int queryString = event.step > QUERY + 2 ? 1 : 0;
        const int ofExchanges = event.nth - queryString;
        if (ofExchanges > 7) {  // two exchanges and a payload: what follows is the query string, for a trace line
            expected.codes = {0};
            return expected;
        }
        expected.codes = ofExchanges <= 0 && !onward ? Codes{0} : REFUSED;
        expected.answer = ofExchanges == 0 ? Answer::OF_EVERYTHING : Answer::OWN;
        // A request, and a payload that has been read, leave nothing behind. Where the body of the first reply does, a
        // later query may take it for a header and wait for ever.
        expected.next = ofExchanges <= 0 || ofExchanges % 3 == 1 ? Codes{0} : ofExchanges == 3 ? Codes{} : FAILS;
    }
    return expected;
}

Expected withoutCall(const Event& event, int harm) {
    Expected expected{.step = event.step};
    if (event.call == Call::ioctl || event.step >= CLOSE || harm == ONE_BYTE) {
        return expected;
    }
    const bool nothingUnread = event.call == Call::send && harm != HALF;
    const int exchange = event.call == Call::recv ? (event.nth + 1) / 2 : event.nth;
    if (event.call == Call::socket || event.call == Call::connect) {
        expected.codes = {STAPI_RC_CONNECT_FAILED};
    } else if (event.step != OPEN || exchange > 3 || harm == HALF) {
        expected.codes = LOST;
    } else if (!nothingUnread) {
        expected.codes = FAILS;  // in handshake or authorisation
    }
    expected.next = nothingUnread ? Codes{0} : event.call == Call::recv && event.nth == 2 ? Codes{} : FAILS;
    return expected;
}

}  // namespace

void walkMemory(Walk& walk) {
    for (const int level : {0, 5}) {
        walk.reference(true, level);
        for (int i = 0; i < 2 * record->events; ++i) {
            const Event event = record->event[i / 2];
            const bool onward = i % 2 == 1;
            const std::string name = stepName(event.step) + "." + std::to_string(event.nth);
            walk.point(name + (onward ? ".onward" : ".once") + ".level" + std::to_string(level), [&](Server& server) {
                hooks = {.allocations = true, .onward = onward, .target = i / 2, .harm = ENOMEM};
                converse(server, withoutMemory(event, onward), level);
            });
        }
    }
}

void walkCalls(Walk& walk) {
    walk.reference(false);
    for (int i = 0; i < record->events; ++i) {
        const Event event = record->event[i];
        Codes harms = {EINTR, ECONNRESET, EPIPE, ENOMEM, EMFILE};
        if (event.call == Call::send || event.call == Call::recv) {
            harms.insert(harms.end(), {ZERO, event.call == Call::send ? HALF : ONE_BYTE});
        }
        for (const int harm : harms) {
            const std::string call = support::nameOf(event.call) + std::to_string(event.nth);
            walk.point(stepName(event.step) + "." + call + "." + std::to_string(harm), [&](Server& server) {
                hooks = {.target = i, .harm = harm};
                converse(server, withoutCall(event, harm));
            });
        }
    }
}

void walkDescriptors(Walk& walk) {
    for (const int level : {0, 5}) {
        for (const int count : walk.full ? Codes{1100, 5000} : Codes{1100}) {
            walk.point("open" + std::to_string(count) + ".level" + std::to_string(level), [&](Server& server) {
                const rlimit limit = {static_cast<rlim_t>(count) + 64, 20000};
                EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
                for (int i = 0; i < count; ++i) {
                    EXPECT_GE(dup(STDERR_FILENO), 0);
                }
                converse(server, {}, level);
            });
        }
    }
}

}  // namespace faults
