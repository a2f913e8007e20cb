#include "faults.h"

#include "support/process.h"

#include <cerrno>
#include <cstring>

namespace faults {
namespace {

using support::Entries;
using support::QUERY_CALLS;

constexpr int STATISTICS = 2;
const simgateway::Model MODEL(1, STATISTICS);

}  // namespace

const std::string& oneStatistic() {
    return MODEL.groups().back().statistics.back().id;
}

Entries answerOf(int query, bool everything) {
    Entries entries = support::answerOf(MODEL, query);
    if (query > 2 && !everything) {
        entries = {{oneStatistic(), 0, oneStatistic(), entries.back().value}};
    }
    return entries;
}

std::string stepName(int step) {
    constexpr const char* OTHERS[] = {"init", "open", "copyResultSet", "getIdQuery", "close", "closeAll"};
    return step >= QUERY && step < COPY ? QUERY_CALLS[step - QUERY].name
                                        : OTHERS[step < QUERY ? step : step - COPY + 2];
}

void converse(const Server& server, const Expected& expected, int level, int queries, int errnoBefore) {
    GatewayToken* token = nullptr;
    ResultSetToken* result = nullptr;
    ResultSetToken* copy = nullptr;
    char mark[] = "1_0_0_0";
    char* version = mark;
    char* ids = nullptr;
    bool alive = false;

    const auto codesOf = [&](int number) {
        const bool noStorage = hooks.onward && number > expected.step && number < CLOSE;
        return number == expected.step                           ? expected.codes
               : expected.step == INIT                           ? Codes{STAPI_RC_TRACE_INIT_FAILED}
               : !alive && number >= QUERY && number < CLOSE_ALL ? Codes{STAPI_RC_GATEWAY_TOKEN_NOT_FOUND}
               : noStorage                                       ? (number < COPY ? REFUSED : Codes{STAPI_RC_NO_MEMORY})
               : number == expected.step + 1                     ? expected.next
                                                                 : Codes{0};
    };
    const auto step = [&](int number, const std::function<int()>& call) {
        hooks.step = number;
        hooks.nth.clear();
        hooks.on = true;
        errno = errnoBefore;
        const int rc = call();
        hooks.on = false;
        EXPECT_THAT(codesOf(number), testing::Contains(rc)) << stepName(number);
        return rc;
    };

    step(INIT, [] { return setAPITraceLevel(0); });
    if (level > 0) {
        setAPITraceFile("/dev/null");
        setAPITraceLevel(level);
    }
    const int descriptors = support::openDescriptors();
    const bool opened = step(OPEN, [&] { return openGatewayConnection(server.port(), &token, &version); }) == 0;
    alive = opened;
    EXPECT_TRUE(opened ? token != nullptr && version != mark : token == nullptr && version == mark);
    EXPECT_TRUE(!opened || expected.answer == Answer::ANY ||
                (expected.answer == Answer::NONE ? version == nullptr : std::strcmp(version, mark) == 0));
    std::free(opened ? version : nullptr);
    const int last = expected.next.empty() ? expected.step : COPY;
    for (int number = QUERY; opened && number < QUERY + queries && number <= last; ++number) {
        const support::QueryCall& query = QUERY_CALLS[number - QUERY];
        const Answer answer = number == expected.step ? expected.answer : Answer::OWN;
        ResultSetToken* latest = nullptr;
        const int rc = step(number, [&] { return query.run(token, &latest, oneStatistic().c_str()); });
        EXPECT_EQ(rc == 0, latest != nullptr);
        alive = alive && (rc == 0 || query.staysAfterFailure);
        if (rc == 0) {
            result = latest;
            const Entries entries = support::walk(result, query.statistics);
            EXPECT_TRUE(answer == Answer::ANY || entries == answerOf(number - QUERY, answer == Answer::OF_EVERYTHING));
        }
    }
    if (alive && last == COPY && QUERY + queries == COPY) {
        if (step(COPY, [&] { return copyResultSet(result, &copy); }) == 0) {
            EXPECT_EQ(support::walkIds(copy), support::walkIds(result));
        }
        EXPECT_TRUE(copy == nullptr || freeResultSet(&copy) == 0);
        step(ID_QUERY, [&] { return getIdQuery(result, &ids); });
    }
    if (opened) {
        step(CLOSE, [&] { return closeGatewayConnection(&token); });
    }
    step(CLOSE_ALL, closeAllGatewayConnections);
    // Other threads' checking tools open and close pipes of their own.
    EXPECT_LE(support::fallenTo(descriptors, support::openDescriptors), descriptors);
    EXPECT_EQ(hooks.held, expected.held);
}

void Walk::point(const std::string& point, const std::function<void(Server&)>& body) {
    const auto work = [&] {
        Server server({.stats = STATISTICS});
        const HookedCalls calls;
        body(server);
        return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
    };
    const bool wanted = only.empty() || only == point || point == "reference";
    const int rc = wanted ? support::runInChild(work) : 0;
    points += wanted ? 1 : 0;
    if (rc != 0) {
        ++failures;
        std::printf("failed with %d: fault_walk %s %s\n", rc, name.c_str(), point.c_str());
    }
}

void Walk::reference(bool allocations, int level, int queries) {
    *record = {};
    point("reference", [&](const Server& server) {
        hooks.allocations = allocations;
        hooks.recording = true;
        converse(server, {}, level, queries);
    });
}

}  // namespace faults
