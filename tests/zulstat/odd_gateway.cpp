// A Gateway for tests of zulstat that does one thing wrong, or nothing: prints its port and serves until its standard
// input ends.
//
//     odd_gateway [hostile | big | FAULT EXCHANGE]
//
// FAULT: silent, half (half a reply, then silence), close, refuse. EXCHANGE: handshake, open, query, close.
#include <cstdio>
#include <map>
#include <string>

#include "simgateway/sim_gateway.h"

using simgateway::Exchange;

namespace {

simgateway::Reply hostileReply() {
    using namespace std::string_literals;
    simgateway::Reply reply;
    reply.element("line\nbreak")
        .stat("tab\tid", "a,b \"quoted\"\r\nsecond")
        .stat("\x1b[31mred", "\xff\xfe\xe2\x82 not UTF-8");
    reply.stat("back\\slash", "|'=;").stat("same", "1").stat("same", "2").stat("", "").stat("nul\0id"s, "x\0y"s);
    reply.element("bad\x07", -7);
    reply.element("line\nbreak")
        .stat("gr\xc3\xbc\xc3\x9f", "\xe2\x80\xae reversed")
        .stat("big", "18446744073709551615");
    return reply.element("", 3).stat("007", "007").stat("minus", "-12.50").stat("double", "17.442674924057755");
}

simgateway::Fault faultNamed(const std::string& name) {
    simgateway::Fault fault;
    fault.silent = name == "silent";
    if (name == "half") {
        fault.writeSize = 10;
        fault.writePause = std::chrono::minutes(10);
    } else if (name == "close") {
        fault.closeAfter = 0;
    } else if (name == "refuse") {
        fault.replyRc = 42;
    }
    return fault;
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, Exchange> exchanges = {{"handshake", Exchange::handshake},
                                                       {"open", Exchange::getAttribute},
                                                       {"query", Exchange::invoke},
                                                       {"close", Exchange::close}};
    simgateway::Server server;
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "hostile") {
        server.setPayload(Exchange::invoke, hostileReply().bytes());
    } else if (mode == "big") {
        server.setPayload(Exchange::invoke, simgateway::statsOfContentSize(32768).bytes());
    } else if (argc > 2) {
        server.inject(exchanges.at(argv[2]), faultNamed(mode));
    }
    std::printf("%d\n", server.port());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    server.stop();
}
