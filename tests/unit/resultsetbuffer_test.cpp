// Result set tokens, and what is written to the buffer that they point at.
#include "stapi_zul_resultsetbuffer.h"

#include "stapi_zul_diag.h"

#include "support/interposer.h"
#include "support/trace_capture.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using namespace support;

TEST(ResultSetBuffer, writersAtAnyAddress) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
        TraceCapture trace(shift == 0 ? 5 : 0);
        std::string storage(64, '\xEE');
        char* const start = storage.data() + shift;
        char* cursor = start;
        EXPECT_EQ(addPlatformChars(&cursor, "AB", 2), 0);
        EXPECT_EQ(addChars(&cursor, nullptr, 0), 0);
        EXPECT_EQ(addChars(&cursor, "C", 1), 0);
        EXPECT_EQ(addInteger(&cursor, 0x01010101), 0);
        EXPECT_EQ(addIdStr(&cursor, "x"), 0);
        EXPECT_EQ(*cursor, '\0') << "which the next write replaces";
        EXPECT_EQ(addIdStr(&cursor, ""), 0);
        EXPECT_EQ(addTerminator(cursor), 0);
        EXPECT_EQ(cursor, start + 16) << "the terminator moves no cursor";
        const std::uint32_t words[] = {0x01010101, 1, 0, 0x0E0F0E0F};
        const std::string bytes(reinterpret_cast<const char*>(words), sizeof words);
        EXPECT_EQ(std::string(start, 21), "ABC" + bytes.substr(0, 8) + "x" + bytes.substr(8) + "\xEE");
        std::int32_t found = 77;
        EXPECT_TRUE(checkTerminator(cursor, &found) == 0 && found == 1);
        EXPECT_TRUE(checkTerminator(cursor - 1, &found) == 0 && found == 0);
        EXPECT_EQ(trace.takeNumbers({2123, 2125, 2126}).size(), shift == 0 ? 6u : 0u);
    }
}

TEST(ResultSetToken, creationFillsInAndDeletionReleasesAllOnce) {
    for (const auto& [eyecatcher, shown, owner] : {std::tuple(CONNECTION_OWNED_EYECATCHER, "ZULRSROB", 0x8888u),
                                                   {"AB", "AB\0\0\0\0\0\0", 0x9999u},
                                                   {"LONGERTHANEIGHT", "LONGERTH", 0x9999u}}) {
        const AllocationFault fault(0);
        ResultSetToken* token = nullptr;
        ASSERT_EQ(createResultSet(&token, eyecatcher, owner), 0);
        EXPECT_EQ(std::memcmp(token->eyecatcher, shown, 8), 0);
        EXPECT_EQ(token->owner, owner);
        EXPECT_EQ(token->pid, owner == 0x8888 ? static_cast<std::uint32_t>(getpid()) : 0);
        EXPECT_EQ(token->tid, owner == 0x8888 ? static_cast<std::uint32_t>(pthread_self()) : 0);
        std::memset(token->verifiedQueryString, 'q', 32000);
        token->queryString = static_cast<char*>(std::malloc(4));
        EXPECT_TRUE(deleteResultSet(&token) == 0 && token == nullptr);
        EXPECT_TRUE(fault.taken == 3 && fault.released == 3);
    }
}

TEST(ResultSetToken, isNotMadeOfNothing) {
    ResultSetToken before{};
    ResultSetToken* token = &before;
    EXPECT_EQ(createResultSet(nullptr, "ZULRSUSR", 0x9999), STAPI_RC_NULL_PARAMETER);
    EXPECT_EQ(createResultSet(&token, nullptr, 0x8888), STAPI_RC_NULL_PARAMETER);
    EXPECT_EQ(createResultSet(&token, "ZULRSUSR", 0x7777), STAPI_RC_INVALID_OWNER);
    EXPECT_EQ(token, &before);
}

// Content without a terminator ends with its buffer. The dump goes to a pipe that is full long before its end, so it
// stands still with half of it written: it holds traceLock from the title to the last rule.
TEST(ResultSetDump, isOnePieceAndEndsWithItsBuffer) {
    std::string buffer(RESULT_SET_BUFFER_SIZE, 'x');
    ResultSetToken token{};
    token.head = buffer.data();
    TraceCapture trace(0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    setTraceDestination(fdopen(ends[1], "w"), "pipe");
    std::thread dumper([&] { EXPECT_EQ(dumpResultSetInternal(&token), 0); });
    const std::string rule = std::string(80, '-') + "\n";
    std::string text;
    int held = 0;
    pollfd readable = {.fd = ends[0], .events = POLLIN, .revents = 0};
    while ((!text.ends_with(rule) || text.size() < 1000) && poll(&readable, 1, 10000) == 1) {
        if (text.empty()) {
            held = pthread_mutex_trylock(&traceLock.mutex);
        }
        char part[512];
        text.append(part, static_cast<std::size_t>(read(ends[0], part, sizeof part)));
    }
    close(ends[0]);  // a dump that is not at its end dies of it
    dumper.join();
    EXPECT_EQ(held, EBUSY);
    EXPECT_EQ(splitLines(text).size(), 3u + 2048u);
}

}  // namespace
