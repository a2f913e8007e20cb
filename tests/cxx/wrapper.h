// What the tests of the C++ header share.
#pragma once

#include <zulstats.hpp>

#include "support/fixture.h"
#include "support/walk.h"

namespace wrapper {

using namespace support;
using Wrapper = GatewayTest;

inline Entries entries(zul::Rows rows) {
    Entries all;
    for (const zul::Row& row : rows) {
        all.push_back({std::string(row.element()), row.rc(), std::string(row.id()), std::string(row.value())});
    }
    return all;
}

inline zul::Connection connectTo(const simgateway::Server& server) {
    return zul::Connection::open("127.0.0.1", server.port());
}

// The code that a piece of work throws.
template <typename Work>
std::error_code thrown(Work work) {
    try {
        work();
    } catch (const zul::error& error) {
        EXPECT_EQ(error.code().message(), error.what());
        EXPECT_STREQ(error.hint(), zul::hint(error.code()));
        return error.code();
    }
    return {};
}

inline std::size_t closeRequests(const simgateway::Server& server) {
    return countRequests(server, Exchange::close);
}

}  // namespace wrapper
