// A program in plain C, linked with nothing of C++ but the library itself.
#include "fixture.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>

namespace {

using PlainC = apitest::QuietTest;

TEST_F(PlainC, walksAndCloses) {
    const simgateway::Server server;
    const std::string command = std::string(API_C_TEST) + " " + std::to_string(server.port());
    std::FILE* output = popen(command.c_str(), "re");
    ASSERT_NE(output, nullptr);
    std::array<char, 256> line{};
    const char* read = std::fgets(line.data(), static_cast<int>(line.size()), output);
    EXPECT_EQ(pclose(output), 0);
    ASSERT_NE(read, nullptr);
    EXPECT_STREQ(line.data(), "150 statistics\n");
    EXPECT_EQ(apitest::countRequests(server, apitest::Exchange::close), 1U);
}

}  // namespace
