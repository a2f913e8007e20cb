// Initialisation that fails, in processes of their own.
#include "recording.h"

#include "support/interposer.h"
#include "support/process.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"

#include <cerrno>

namespace {

using golden::Keep;
using support::AllocationFault;
using support::Call;
using support::CallFault;
using support::Outcome;

struct Failure {
    const char* name;
    int code;                                      // of the first call
    std::function<std::shared_ptr<void>()> cause;  // lasts as long as what it returns
};

const Failure FAILURES[] = {
    {"no-trace-lock", STAPI_RC_TRACE_INIT_FAILED,
     [] {
         return std::make_shared<CallFault>(Call::pthread_mutex_init, Outcome{ENOMEM, ENOMEM}, &traceLock.mutex);
     }},
    {"no-list-lock", STAPI_RC_LOCK_INIT_FAILED,
     [] {
         return std::make_shared<CallFault>(Call::pthread_mutex_init, Outcome{EAGAIN, EAGAIN}, &gtlLock.mutex);
     }},
    {"no-trace-memory", STAPI_RC_NO_MEMORY, [] { return std::make_shared<AllocationFault>(1); }},
    {"list-lock-taken", STAPI_RC_LOCK_ALREADY_INITIALIZED,
     [] {
         EXPECT_EQ(initializeLock(&gtlLock), 0);
         return nullptr;
     }},
};

// The calls with a zero for each argument.
template <typename... Call>
std::vector<std::function<int()>> withZeros(Call... call) {
    constexpr auto one = []<typename... Arguments>(int (*function)(Arguments...)) {
        return [function] { return function(Arguments{}...); };
    };
    return {one(call)...};
}

// Every exported call. In an initialised library they would succeed, or fail in another way.
const std::vector<std::function<int()>> CALLS = withZeros(
    openGatewayConnection, openRemoteGatewayConnection, closeGatewayConnection, closeAllGatewayConnections, getStats,
    getStatIds, getResourceGroupIds, getStatsByStatId, getStatsByStatGroupId, getStatIdsByStatGroupId, getFirstStat,
    getNextStat, getFirstId, getNextId, copyResultSet, freeResultSet, dumpResultSet, getIdQuery, getStatsAPIVersion,
    getAPITraceLevel, setAPITraceLevel, setAPITraceFile, dumpState);

// Whichever call comes first gets the failure's own code and says why; all later ones say that the trace cannot be
// initialised. The first in the list is two calls: it opens by way of the second one.
TEST(Startup, failsForGood) {
    ASSERT_EQ(CALLS.size(), 23U);
    for (const Failure& failure : FAILURES) {
        const support::TempDirectory directory;
        const std::string file = directory.file("stderr");
        for (const std::function<int()>& call : CALLS) {
            SCOPED_TRACE(testing::Message() << failure.name << ", call " << &call - CALLS.data());
            const int wrong = support::runInChild([&] {
                if (std::freopen(file.c_str(), "w", stderr) == nullptr) {
                    return 100;
                }
                std::shared_ptr<void> cause = failure.cause();
                const int first = call();
                cause.reset();  // a second initialisation would succeed
                const bool isTwo = &call == CALLS.data();
                const int second = isTwo ? first : call();
                std::fflush(stderr);
                const int expected = isTwo ? STAPI_RC_TRACE_INIT_FAILED : failure.code;
                return first == expected && second == STAPI_RC_TRACE_INIT_FAILED ? 0 : 1;
            });
            EXPECT_EQ(wrong, 0);
            golden::compare(std::string("startup-") + failure.name, support::readFile(file), Keep::ALL,
                            directory.file(""), 0);
        }
    }
}

}  // namespace
