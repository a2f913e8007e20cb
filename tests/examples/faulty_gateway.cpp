// A Gateway for tests of the examples: prints its port, answers queries but for one, and serves until its standard
// input ends.
//
//     faulty_gateway close|refuse N
//
// The N-th query finds its connection closed, or is refused.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "simgateway/sim_gateway.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    simgateway::Fault fault;
    if (std::string_view(argv[1]) == "close") {
        fault.closeAfter = 0;
    } else {
        fault.replyRc = 42;
    }
    simgateway::Server server;
    for (int query = 1; query < std::atoi(argv[2]); ++query) {
        server.inject(simgateway::Exchange::invoke, {});
    }
    server.inject(simgateway::Exchange::invoke, fault);
    std::printf("%d\n", server.port());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    server.stop();
}
