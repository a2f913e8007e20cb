// The first program in C++: opens a connection to a Gateway, shows all statistics, asks again for some of them, and
// closes.
//
//     first-cxx PORT [HOST]
#include <cstdio>
#include <cstdlib>
#include <string>

#include "zulstats.hpp"

namespace {

int width(std::string_view text) {
    return static_cast<int>(text.size());
}

void show(zul::Rows statistics) {
    for (const zul::Row& row : statistics) {
        if (row.rc() < 0) {
            std::printf("%-34.*s  failed with %d\n", width(row.element()), row.element().data(), row.rc());
        } else {
            std::printf("%-34.*s  %.*s\n", width(row.id()), row.id().data(), width(row.value()), row.value().data());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: %s PORT [HOST]\n", argv[0]);
        return 2;
    }
    try {
        zul::Connection gateway = zul::Connection::open(argc == 3 ? argv[2] : "127.0.0.1", std::atoi(argv[1]));
        std::printf("statistics protocol %s\n\n", std::string(gateway.protocol_version()).c_str());
        show(gateway.stats());
        std::string last;
        for (const zul::Row& group : gateway.groups()) {
            last = group.rc() < 0 ? last : group.id();
        }
        if (!last.empty()) {
            std::printf("\nresource group %s:\n", last.c_str());
            show(gateway.stats_by_group({last}));
        }
    } catch (const zul::error& error) {
        std::fprintf(stderr, "%s: %s. %s\n", argv[0], error.what(), error.hint());
        return 1;
    }
    return 0;
}
