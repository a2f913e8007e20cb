// Single steps of the library, measured with Google Benchmark.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <vector>

#include "server.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_statcomms.h"

#include "stapi_zul_statcomms_trace.h"

using namespace bench;

namespace {

std::uint16_t port;

void require(int rc) {
    if (rc != 0) {
        fail("a call of the library");
    }
}

// A result set of either owner over a content of its own.
struct Set {
    explicit Set(const simgateway::Reply& reply, bool statistics, bool copy = false)
        : content(RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK) {
        const Bytes payload = reply.bytes();
        require((statistics ? parseStatsData : parseIdsData)(payload.data(), content.data(), payload.size(),
                                                             RESULT_SET_BUFFER_SIZE));
        require(copy ? createResultSet(&token, USER_OWNED_EYECATCHER, USER_OWNED)
                     : createResultSet(&token, CONNECTION_OWNED_EYECATCHER, CONNECTION_OWNED));
        token->head = content.data();
        token->next = token->head;
    }
    ~Set() {
        releaseResultSet(token);
    }
    Set(const Set&) = delete;
    Set& operator=(const Set&) = delete;

    std::vector<char> content;
    ResultSetToken* token = nullptr;
};

simgateway::Reply idsReply(int count) {
    simgateway::Reply reply(simgateway::Reply::Content::identifiers);
    reply.element("");
    for (int i = 0; i < count; ++i) {
        reply.id(statId(i));
    }
    return reply;
}

template <bool Statistics>
void parse(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const Bytes payload = (Statistics ? statsReply(count) : idsReply(count)).bytes();
    std::vector<char> content(RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK);
    for (auto _ : state) {
        require((Statistics ? parseStatsData : parseIdsData)(payload.data(), content.data(), payload.size(),
                                                             RESULT_SET_BUFFER_SIZE));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK_TEMPLATE(parse, true)->Name("parse/statistics")->Arg(10)->Arg(400);
BENCHMARK_TEMPLATE(parse, false)->Name("parse/identifiers")->Arg(10)->Arg(400);

template <bool Copy>
void walk(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const Set set(statsReply(count), true, Copy);
    for (auto _ : state) {
        benchmark::DoNotOptimize(walkStats(getFirstStat, getNextStat, set.token));
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK_TEMPLATE(walk, false)->Name("walk/connection")->Arg(400);
BENCHMARK_TEMPLATE(walk, true)->Name("walk/copy")->Arg(400);

void idQuery(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const Set set(idsReply(count), false);
    char* query = nullptr;
    for (auto _ : state) {
        require(getIdQuery(set.token, &query));
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(idQuery)->Name("getIdQuery")->Arg(700)->Arg(1400);  // half a result set and almost all of one

void copySet(benchmark::State& state) {
    const Set set(statsReply(static_cast<int>(state.range(0))), true);
    for (auto _ : state) {
        ResultSetToken* copy = nullptr;
        require(copyResultSet(set.token, &copy));
        require(freeResultSet(&copy));
    }
}
BENCHMARK(copySet)->Name("copyResultSet")->Arg(400);

void closedGate(benchmark::State& state) {
    for (auto _ : state) {
        TRACE(calculateCallLength_entry);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(closedGate)->Name("closed gate");

GatewayToken* openConnection() {
    GatewayToken* gateway = nullptr;
    char* version = nullptr;
    require(openGatewayConnection(port, &gateway, &version));
    std::free(version);
    return gateway;
}

void openAndClose(benchmark::State& state) {
    for (auto _ : state) {
        GatewayToken* gateway = openConnection();
        require(closeGatewayConnection(&gateway));
    }
}
BENCHMARK(openAndClose)->Name("open and close");

void verify(benchmark::State& state) {
    GatewayToken* newest = nullptr;
    for (int i = 0; i < state.range(0); ++i) {
        newest = openConnection();
    }
    for (auto _ : state) {
        require(verifyGatewayToken(newest));
    }
    require(closeAllGatewayConnections() == STAPI_RC_GTL_CORRUPT ? closeAllGatewayConnections() : 0);
}
BENCHMARK(verify)->Name("verifyGatewayToken")->Arg(1)->Arg(256);

}  // namespace

int main(int argc, char** argv) {
    const Cores cores = availableCores();
    port = startServer({statsReply(10).bytes()}, cores.server).front();
    pinTo(cores.client);
    alarm(600);
    int level = 0;
    require(getAPITraceLevel(&level));  // initialises the library
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
