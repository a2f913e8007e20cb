// Pairs of calls that meet in one another: the first pauses at each of its steps in turn while the second runs.
#include "hooks.h"
#include "stapi_zul_gwytok.h"
#include "support/fixture.h"
#include "support/forked_server.h"
#include "support/port.h"
#include "support/process.h"
#include "support/temp_directory.h"
#include "support/walk.h"

#include <sys/mman.h>

#include <algorithm>
#include <barrier>
#include <climits>
#include <cstring>
#include <filesystem>
#include <thread>

namespace meetings {
namespace {

using support::ForkedServer;
using support::QUERY_CALLS;
using Codes = std::vector<int>;

constexpr char USAGE[] =
    "usage: meetings [--full | --pair FIRST SECOND [--level LEVEL] [--at STEP]]\n"
    "  --full   every step without a trace, and many with all of it, in place of one or two\n"
    "  --pair   every step of one pair, or one of them; at step 0 the second call follows the first\n";
constexpr int LEVELS[] = {0, 5};
constexpr unsigned SECONDS = 30;  // that a meeting may take
constexpr int STATISTICS = 2;
constexpr char NO_TRACE[] = "/dev/null";
constexpr char FORMER_TEXT[] = "the caller's own";
const simgateway::Model MODEL(1, STATISTICS);

// What all processes share. The Gateways tell a short version text, the shortest and the longest that the library does
// not copy.
struct World {
    ForkedServer usual{{.stats = STATISTICS}};
    ForkedServer tooLong{{.protocolVersion = std::string(32766, '1'), .stats = STATISTICS}};
    ForkedServer longest{{.protocolVersion = std::string(32767, '1'), .stats = STATISTICS}};
    support::TakenPort refusing{};
    support::TempDirectory directory{};
    std::string traceFile = directory.file("trace");
};
const World* world;

// One of the two threads, with a connection and the answer to a query on it.
struct Actor {
    int query;      // of QUERY_CALLS, the last on the connection
    int level;      // of the trace when the meeting begins
    bool mayClose;  // somebody closes the connection: the result set is then a copy
    GatewayToken* token = nullptr;
    ResultSetToken* result = nullptr;
    GatewayToken* target = nullptr;  // the connection that it closes
    int rc = INT_MAX;
};

// Outputs have a former value, which is the caller's, and are written on success only.
int openTo(int port, bool copiesVersion) {
    static GatewayToken former;
    GatewayToken* token = &former;
    char text[sizeof FORMER_TEXT];
    char* version = std::strcpy(text, FORMER_TEXT);
    const int rc = openGatewayConnection(port, &token, &version);
    EXPECT_EQ(token == &former, rc != 0);
    EXPECT_EQ(version == text, rc != 0 || !copiesVersion);
    EXPECT_STREQ(text, FORMER_TEXT);
    if (version != text) {
        EXPECT_STREQ(version, "1_0_0_0");
        std::free(version);
    }
    return rc;
}

int query(Actor& actor) {
    static ResultSetToken former;
    ResultSetToken* result = &former;
    const int rc = QUERY_CALLS[actor.query].run(actor.token, &result);
    EXPECT_EQ(result == &former, rc != 0);
    EXPECT_TRUE(actor.mayClose || result == actor.result);
    return rc;
}

int walk(Actor& actor) {
    char* ids = nullptr;
    EXPECT_EQ(support::walkStats(actor.result), support::allStats(MODEL));
    return getIdQuery(actor.result, &ids);
}

int copy(Actor& actor) {
    ResultSetToken* copied = nullptr;
    const int rc = copyResultSet(actor.result, &copied);
    EXPECT_TRUE(freeResultSet(&copied) == 0 && copied == nullptr);
    return rc;
}

int close(Actor& actor) {
    GatewayToken* handle = actor.target;
    const int rc = closeGatewayConnection(&handle);
    EXPECT_EQ(handle, rc == 0 ? nullptr : actor.target);
    return rc;
}

int changeLevel(Actor& actor) {
    int level = -1;
    for (const int next : {0, 1, 2, 3, 4, 5, 4, 3, 2, 1, 0}) {
        EXPECT_EQ(setAPITraceLevel(next), 0);
    }
    EXPECT_EQ(setAPITraceLevel(actor.level), 0);
    return getAPITraceLevel(&level);
}

int changeFile(Actor& /*actor*/) {
    EXPECT_EQ(setAPITraceFile(world->traceFile.c_str()), 0);
    EXPECT_EQ(setAPITraceFile("/nonexistent/trace"), STAPI_RC_TRACE_FILE_OPEN_FAILED);
    EXPECT_EQ(setAPITraceFile(nullptr), 0);
    return setAPITraceFile(NO_TRACE);
}

enum class Closes { NOTHING, CONNECTION, ALL };

// Its other codes where the other call closes this one's connection, or all of them.
struct Call {
    const char* name;
    int (*run)(Actor& actor);
    Codes codes{0};
    Codes afterClose{};
    Codes afterCloseAll{};
    int query = 0;  // the last on the connection after the call
    Closes closes = Closes::NOTHING;
};

const Codes LOST = {STAPI_RC_GATEWAY_CONNECTION_LOST};
const Codes GONE = {STAPI_RC_GATEWAY_TOKEN_NOT_FOUND};
const Codes BOTH = {STAPI_RC_GATEWAY_CONNECTION_LOST, STAPI_RC_GATEWAY_TOKEN_NOT_FOUND};
const Codes REFUSED = {STAPI_RC_CONNECTION_REFUSED};

const Call CALLS[] = {
    {"open", [](Actor&) { return openTo(world->usual.port(), true); }, {0}, {}, LOST},
    {"open32766", [](Actor&) { return openTo(world->tooLong.port(), false); }, {0}, {}, LOST},
    {"open32767", [](Actor&) { return openTo(world->longest.port(), false); }, {0}, {}, LOST},
    {"refused", [](Actor&) { return openTo(world->refusing.number, false); }, REFUSED, {}, LOST},
    {"stats", query, {0}, BOTH, BOTH, 0},
    {"groups", query, {0}, BOTH, BOTH, 2},
    {"staying", query, {0}, BOTH, BOTH, 4},  // a failure leaves the connection
    {"ids", query, {0}, BOTH, BOTH, 5},
    {"walk", walk},
    {"copy", copy},
    {"dump", [](Actor& actor) { return dumpResultSet(actor.result); }},
    {"close", close, {0}, GONE, GONE, 0, Closes::CONNECTION},
    {"closeAll", [](Actor&) { return closeAllGatewayConnections(); }, {0}, {}, {}, 0, Closes::ALL},
    {"level", changeLevel},
    {"file", changeFile},
    {"state", [](Actor&) { return dumpState(); }},
};
constexpr int COUNT = std::size(CALLS);

Actor newActor(const Call& call, const Call& other, int level) {
    return {call.query, level, other.closes != Closes::NOTHING || call.closes == Closes::ALL};
}

void setUp(Actor& actor) {
    ResultSetToken* result = nullptr;
    actor.token = support::openConnection(world->usual.port());
    EXPECT_EQ(getStats(actor.token, &result), 0);
    actor.result = result;
    EXPECT_TRUE(!actor.mayClose || copyResultSet(result, &actor.result) == 0);
}

void tearDown(Actor& actor) {
    const int number = actor.mayClose ? 0 : actor.query;
    EXPECT_EQ(support::walk(actor.result, QUERY_CALLS[number].statistics), support::answerOf(MODEL, number));
    EXPECT_TRUE(!actor.mayClose || freeResultSet(&actor.result) == 0);
}

void act(Actor& actor, const Call& call, Role role, Meeting& meeting, std::barrier<>& ready) {
    {
        const As alone(ALONE, meeting);
        setUp(actor);
    }
    ready.arrive_and_wait();
    ready.arrive_and_wait();  // the level is set
    {
        const As one(role, meeting);
        actor.rc = call.run(actor);
    }
    const As alone(ALONE, meeting);
    tearDown(actor);
}

// Whether the code is one of a call that meets the other.
void expectCode(const Actor& actor, const Call& call, const Call& other) {
    const Codes& more = other.closes == Closes::ALL          ? call.afterCloseAll
                        : other.closes == Closes::CONNECTION ? call.afterClose
                                                             : call.codes;
    EXPECT_TRUE(std::ranges::count(call.codes, actor.rc) + std::ranges::count(more, actor.rc) > 0)
        << call.name << " " << actor.rc;
}

// The library is as it was, and does what it did.
void expectOrder(int descriptors) {
    EXPECT_EQ(setAPITraceLevel(0), 0);
    EXPECT_EQ(setAPITraceFile(NO_TRACE), 0);
    std::filesystem::remove(world->traceFile);
    EXPECT_EQ(closeAllGatewayConnections(), 0);
    EXPECT_EQ(gtListHeadPtr, nullptr);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    Actor actor = newActor(CALLS[0], CALLS[0], 0);
    setUp(actor);
    tearDown(actor);
    EXPECT_EQ(closeGatewayConnection(&actor.token), 0);
    EXPECT_EQ(gtListHeadPtr, nullptr);
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

void meet(const Call& one, const Call& two, int level, Meeting& meeting) {
    const int descriptors = support::openDescriptors();
    Actor first = newActor(one, two, level);
    Actor second = newActor(two, one, level);
    std::barrier ready(3);
    std::thread firstThread([&] { act(first, one, FIRST, meeting, ready); });
    std::thread secondThread([&] { act(second, two, SECOND, meeting, ready); });
    ready.arrive_and_wait();
    const bool bothClose = one.closes == Closes::CONNECTION && two.closes == Closes::CONNECTION;
    first.target = bothClose ? first.token : second.token;
    second.target = first.token;
    EXPECT_EQ(setAPITraceLevel(level), 0);
    ready.arrive_and_wait();
    firstThread.join();
    secondThread.join();
    const As alone(ALONE, meeting);
    expectCode(first, one, two);
    expectCode(second, two, one);
    EXPECT_TRUE(!bothClose || (first.rc == 0) != (second.rc == 0));
    expectOrder(descriptors);
    EXPECT_EQ(meeting.blocks.load(), 0);
}

struct Options {
    bool full = false;
    int first = -1;  // this pair
    int second = -1;
    int level = -1;
    int at = -1;
};

// How far the meetings are, for the next process to go on when one has ended too early.
struct Progress {
    int pair;   // of CALLS: first * COUNT + second
    int level;  // of LEVELS
    int nth;    // meeting of the pair at the level, from 0, where the second call follows the first
    int steps[COUNT][std::size(LEVELS)];  // of each first call; 0: not known
    int meetings;
    Meeting meeting;  // the last
};
Progress* progress;

// How many meetings the pair has at the level behind that where the second call follows the first; -1: not even that.
int last(const Options& options, int pair, int level) {
    const bool all = options.first < 0;
    if (!all &&
        (pair != options.first * COUNT + options.second || (options.level >= 0 && options.level != LEVELS[level]))) {
        return -1;
    }
    const bool traced = LEVELS[level] > 0;
    int most = options.at >= 0 ? 0 : traced && all ? 20 : INT_MAX;
    if (all && !options.full) {
        const bool closes =
            CALLS[pair / COUNT].closes != Closes::NOTHING || CALLS[pair % COUNT].closes != Closes::NOTHING;
        most = !traced ? (closes ? 2 : 1) : pair % 5 == 0 ? 1 : 0;
    }
    return std::min(progress->steps[pair / COUNT][level], most);
}

// The step of the nth meeting. They are spread over all steps, from another one on for each pair; where a few have to
// do, the second is one of the last, where a call has what it was made for and has not handed it out.
int stepOf(const Options& options, const Progress& place) {
    const int steps = progress->steps[place.pair / COUNT][place.level];
    if (options.at >= 0 || place.nth == 0) {
        return std::max(options.at, 0);
    }
    if (options.first < 0 && !options.full && place.nth == 2) {
        return steps - place.pair % (steps / 8 + 1);
    }
    const int meetings = last(options, place.pair, place.level);
    return static_cast<int>((static_cast<long>(place.nth - 1) * steps + place.pair * 37 % steps) / meetings) + 1;
}

// From where the progress says to the end, or to the first failure.
int run(const Options& options) {
    stderr = std::fopen(NO_TRACE, "w");  // where a trace without a file goes; checking tools write to the descriptor
    std::signal(SIGPIPE, SIG_DFL);       // ends the process when it comes
    EXPECT_EQ(setAPITraceFile(NO_TRACE), 0);
    Progress& place = *progress;
    for (; place.pair < COUNT * COUNT; ++place.pair, place.level = 0) {
        const Call& first = CALLS[place.pair / COUNT];
        const Call& second = CALLS[place.pair % COUNT];
        if (options.full && place.pair % COUNT == 0) {
            std::printf("%s, behind %d meetings\n", first.name, place.meetings);
            std::fflush(stdout);
        }
        for (; place.level < static_cast<int>(std::size(LEVELS)); ++place.level, place.nth = 0) {
            for (; place.nth <= last(options, place.pair, place.level); ++place.nth) {
                int& steps = place.steps[place.pair / COUNT][place.level];
                const int step = stepOf(options, place);
                if (step == 0 && steps > 0 && !options.full && options.first < 0) {
                    continue;
                }
                Meeting* meeting = new (&place.meeting) Meeting{step};
                ++place.meetings;
                alarm(SECONDS);
                meet(first, second, LEVELS[place.level], *meeting);
                steps = step == 0 ? meeting->steps.load() : steps;
                if (testing::UnitTest::GetInstance()->Failed()) {
                    return 1;
                }
            }
        }
    }
    std::exit(0);  // a checking tool then reports what has leaked
}

int numberOf(const std::string& name) {
    const Call* call = std::find_if(CALLS, CALLS + COUNT, [&](const Call& one) { return name == one.name; });
    return call == CALLS + COUNT ? -1 : static_cast<int>(call - CALLS);
}

bool parse(int argc, char** argv, Options& options) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::size_t count = arguments.size();
    options.full = count == 1 && arguments[0] == "--full";
    if (count < 3 || arguments[0] != "--pair") {
        return count == 0 || options.full;
    }
    options.first = numberOf(arguments[1]);
    options.second = numberOf(arguments[2]);
    std::size_t i = 3;
    for (; i + 1 < count && (arguments[i] == "--level" || arguments[i] == "--at"); i += 2) {
        (arguments[i] == "--at" ? options.at : options.level) = std::atoi(arguments[i + 1].c_str());
    }
    return i == count && options.first >= 0 && options.second >= 0;
}

// Runs the meetings in processes that end with the first failure, and counts the failures.
int runAll(const Options& options) {
    constexpr int ENOUGH = 3;  // failures of a pair at one level
    Progress& place = *progress;
    int failures = 0;
    int here = 0;
    int where = -1;
    while (const int rc = support::runInChild([&] { return run(options); }, SECONDS)) {
        ++failures;
        if (place.pair == COUNT * COUNT) {
            std::printf("failed with %d behind all meetings\n", rc);
            break;
        }
        const Meeting& meeting = place.meeting;
        const char* step = meeting.pausedAt;
        std::printf("failed with %d%s: meetings --pair %s %s --level %d --at %d  # %s\n", rc,
                    rc == -100 - SIGALRM ? " (hangs)" : "", CALLS[place.pair / COUNT].name,
                    CALLS[place.pair % COUNT].name, LEVELS[place.level], meeting.pauseAt,
                    step == nullptr ? "one after the other" : step);
        const int now = place.pair * static_cast<int>(std::size(LEVELS)) + place.level;
        here = now == where ? here + 1 : 1;
        where = now;
        place.nth = here == ENOUGH ? INT_MAX : place.nth + 1;
    }
    return failures;
}

}  // namespace
}  // namespace meetings

int main(int argc, char** argv) {
    using namespace meetings;
    Options options;
    if (!parse(argc, argv, options)) {
        std::fputs(USAGE, stderr);
        return 2;
    }
    const World shared{};
    world = &shared;
    void* memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("meetings");
        return 2;
    }
    progress = new (memory) Progress{};
    const auto start = std::chrono::steady_clock::now();
    const int failures = runAll(options);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const int pairs = options.first < 0 ? COUNT * COUNT : 1;
    std::printf("%d pairs %d meetings %d failures %.1f s\n", pairs, progress->meetings, failures, taken.count());
    return failures == 0 ? 0 : 1;
}
