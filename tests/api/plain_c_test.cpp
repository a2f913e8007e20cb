// A program in plain C, linked with nothing of C++ but the library itself.
#include "support/fixture.h"

#include <cstdlib>

namespace {

using namespace support;

using PlainC = QuietTest;

TEST_F(PlainC, walksAndCloses) {
    const simgateway::Server server;
    EXPECT_EQ(std::system((API_C_TEST " " + std::to_string(server.port())).c_str()), 0);
    EXPECT_EQ(countRequests(server, Exchange::close), 1U);
}

}  // namespace
