// Walks over everything that can go wrong at one place of a conversation. Each place is a point, tried in a process of
// its own with a Gateway of its own, because the library initialises once per process.
#pragma once

#include "support/fixture.h"
#include "support/interposer.h"
#include "support/walk.h"

#include <map>

namespace faults {

using simgateway::Bytes;
using simgateway::Server;
using support::Call;
using support::Exchange;

enum Harm { UNHARMED = 0, ZERO = -1, HALF = -2, ONE_BYTE = -3 };  // positive: the errno with which a call fails

struct Event {
    int step;
    Call call;  // malloc for any allocation
    int nth;    // of its kind in the step, from 1
};

// How the calls that the library makes, not those of the Gateway's threads, are counted and harmed: allocations, and
// those of the system from socket to close.
struct Hooks {
    bool on = false;           // while the library runs
    bool allocations = false;  // counts these, else calls of the system
    bool recording = false;
    bool onward = false;  // harms all events behind the target too
    int target = -1;      // event, from 0
    int harm = UNHARMED;
    int held = 0;  // blocks taken and not released
    int seen = 0;
    int step = 0;
    int met = UNHARMED;  // by the call under way
    std::map<Call, int> nth{};
};
extern Hooks hooks;

struct HookedCalls : support::Script {
    HookedCalls();
};

// The events of a conversation without harm and the replies that it received, for all processes to read.
struct Record {
    int events;
    Event event[512];
    std::size_t replies;
    std::size_t start[64];  // in bytes, of each reply and behind the last
    Bytes::value_type bytes[32768];
};
extern Record* record;

enum Step { INIT, OPEN, QUERY, COPY = QUERY + 6, ID_QUERY, CLOSE, CLOSE_ALL };
[[nodiscard]] std::string stepName(int step);

using Codes = std::vector<int>;
inline const Codes LOST = {STAPI_RC_GATEWAY_CONNECTION_LOST};
inline const Codes REFUSED = {STAPI_RC_GATEWAY_REQUEST_FAILED};
inline const Codes FAILS = {STAPI_RC_GATEWAY_REQUEST_FAILED, STAPI_RC_GATEWAY_CONNECTION_LOST};

enum class Answer { OWN, OF_EVERYTHING, ANY, NONE };

// The step that is harmed and what comes of it. All others succeed and are right unless the connection is gone.
struct Expected {
    int step = -1;
    Codes codes = {0};
    Codes next = {0};             // of the step behind it, where the connection stays; none: it is closed at once
    Answer answer = Answer::OWN;  // or version
    int held = 1;                 // blocks at the end: the name of the trace file
};

// With a trace to /dev/null; each call finds this errno. With less than all queries there is no copy either.
void converse(const Server& server, const Expected& expected, int level = 0, int queries = COPY - QUERY,
              int errnoBefore = 0);

// A query string that asks for one statistic, and what the queries answer to it, or to the empty one.
[[nodiscard]] const std::string& oneStatistic();
[[nodiscard]] support::Entries answerOf(int query, bool everything);

struct Walk {
    std::string name;
    bool full;
    std::string only;  // this point, unless empty
    int points = 0;
    int failures = 0;
    // Runs the body in a process of its own, where its expectations are to hold.
    void point(const std::string& point, const std::function<void(Server&)>& body);
    // Converses without harm and fills the record.
    void reference(bool allocations, int level = 0, int queries = COPY - QUERY);
};

void walkMemory(Walk& walk);
void walkCalls(Walk& walk);
void walkWire(Walk& walk);
void walkBoundary(Walk& walk);
void walkDescriptors(Walk& walk);

}  // namespace faults
