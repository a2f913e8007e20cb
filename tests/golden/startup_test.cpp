// Initialisation that fails, in processes of their own.
#include "recording.h"

#include "child.h"
#include "failing_malloc.h"
#include "failing_mutex.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"

#include <cerrno>
#include <cstdio>
#include <functional>

namespace {

using golden::Keep;
using unittest::AllocationFault;
using unittest::MutexCall;
using unittest::MutexFault;

struct Failure {
    const char* name;
    int code;                     // of the first call
    std::function<void()> cause;  // lasts as long as the process
};

const Failure FAILURES[] = {
    {"no-trace-lock", STAPI_RC_TRACE_INIT_FAILED,
     [] { static const MutexFault fault(MutexCall::INIT, &traceLock.mutex, ENOMEM, ENOMEM); }},
    {"no-list-lock", STAPI_RC_LOCK_INIT_FAILED,
     [] { static const MutexFault fault(MutexCall::INIT, &gtlLock.mutex, EAGAIN, EAGAIN); }},
    {"no-trace-memory", STAPI_RC_NO_MEMORY, [] { static const AllocationFault fault(1); }},
    {"list-lock-taken", STAPI_RC_LOCK_ALREADY_INITIALIZED, [] { EXPECT_EQ(initializeLock(&gtlLock), 0); }},
};

// Every exported call, with arguments that would succeed, or fail in another way, in an initialised library.
const std::function<int()> CALLS[] = {
    [] { return openGatewayConnection(0, nullptr, nullptr); },
    [] { return openRemoteGatewayConnection(nullptr, 0, nullptr, nullptr); },
    [] { return closeGatewayConnection(nullptr); },
    [] { return closeAllGatewayConnections(); },
    [] { return getStats(nullptr, nullptr); },
    [] { return getStatIds(nullptr, nullptr); },
    [] { return getResourceGroupIds(nullptr, nullptr); },
    [] { return getStatsByStatId(nullptr, nullptr, nullptr); },
    [] { return getStatsByStatGroupId(nullptr, nullptr, nullptr); },
    [] { return getStatIdsByStatGroupId(nullptr, nullptr, nullptr); },
    [] { return getFirstStat(nullptr, nullptr); },
    [] { return getNextStat(nullptr, nullptr); },
    [] { return getFirstId(nullptr, nullptr); },
    [] { return getNextId(nullptr, nullptr); },
    [] { return copyResultSet(nullptr, nullptr); },
    [] { return freeResultSet(nullptr); },
    [] { return dumpResultSet(nullptr); },
    [] { return getIdQuery(nullptr, nullptr); },
    [] { return getStatsAPIVersion(nullptr); },
    [] { return getAPITraceLevel(nullptr); },
    [] { return setAPITraceLevel(3); },
    [] { return setAPITraceFile(nullptr); },
    [] { return dumpState(); },
};
static_assert(std::size(CALLS) == 23);

// Whichever call comes first gets the failure's own code; all later ones say that the trace cannot be initialised.
TEST(Startup, failsForGood) {
    for (const Failure& failure : FAILURES) {
        for (std::size_t first = 0; first < std::size(CALLS); ++first) {
            const int wrong = unittest::runInChild([&] {
                if (std::freopen("/dev/null", "w", stderr) == nullptr) {
                    return 100;
                }
                failure.cause();
                // The first in the list is two calls: it opens by way of the second one.
                const int expected = first == 0 ? STAPI_RC_TRACE_INIT_FAILED : failure.code;
                int count = CALLS[first]() == expected ? 0 : 1;
                for (const std::function<int()>& call : CALLS) {
                    count += call() == STAPI_RC_TRACE_INIT_FAILED ? 0 : 1;
                }
                return count;
            });
            EXPECT_EQ(wrong, 0) << failure.name << ", call " << first;
        }
    }
}

TEST(Startup, saysWhyItFails) {
    for (const Failure& failure : FAILURES) {
        const unittest::TempDirectory directory;
        const std::string file = directory.file("stderr");
        const int wrong = unittest::runInChild([&] {
            if (std::freopen(file.c_str(), "w", stderr) == nullptr) {
                return 100;
            }
            failure.cause();
            const int first = closeAllGatewayConnections();
            const int second = closeAllGatewayConnections();
            std::fflush(stderr);
            return first == failure.code && second == STAPI_RC_TRACE_INIT_FAILED ? 0 : 1;
        });
        EXPECT_EQ(wrong, 0) << failure.name;
        golden::compare(std::string("startup-") + failure.name, unittest::readFile(file), 1, Keep::ALL,
                        directory.file(""), 0);
    }
}

}  // namespace
