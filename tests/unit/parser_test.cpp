// The parser that writes a trace line for each field and the one that writes none lay the same content.
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statcomms.h"

#include "support/guarded_block.h"
#include "scripted_peer.h"
#include "support/trace_capture.h"

#include <cstring>

namespace {

using namespace support;

// An element with an item, its block tag a short one, and a failed element, its block tag a long one.
Bytes payload(bool stats) {
    const std::string element =
        "AC ED 00 05 73 72 0001 'E' 0102030405060708 0C 00 00 78 72 0001 'R' 1112131415161718 0C 00 00 78 70";
    const std::string items =
        stats ? "73 72 0001 'S' 2122232425262728 0C 00 00 78 70 77 09 0002 'id' 0001 'v' 78 73" : "0002 'id' 78";
    return hex("01 00000002" + element + "77 0D 0001 'A' 00000000 00000001" + items + element +
               "7A 00000009 0001 'B' FFFFFFFF 78");
}

// Code and content, of storage that ends right before a page that faults.
std::pair<int, std::string> parsed(bool stats, const Bytes& reply, std::size_t capacity) {
    GuardedBlock in(reply);
    GuardedBlock out(capacity);
    std::memset(out.data(), 0x55, capacity);
    const int rc = (stats ? parseStatsData : parseIdsData)(in.data(), out.text(), reply.size(), capacity);
    return {rc, {out.text(), capacity}};
}

TEST(Parser, linesForEachFieldChangeNothing) {
    TraceCapture trace(0);
    const auto expectSame = [&](bool stats, const Bytes& reply, std::size_t capacity) {
        trace.setLevel(0);
        const auto expected = parsed(stats, reply, capacity);
        trace.setLevel(5);
        EXPECT_EQ(parsed(stats, reply, capacity), expected) << stats << " " << reply.size() << " " << capacity;
        return expected;
    };
    constexpr std::uint32_t TERMINATOR = 0x0E0F0E0F;
    const std::string terminator(reinterpret_cast<const char*>(&TERMINATOR), sizeof TERMINATOR);
    for (const bool stats : {true, false}) {
        const Bytes whole = payload(stats);
        std::size_t used = 0;
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            const auto [rc, content] = expectSame(stats, slice(whole, 0, size), 128);
            EXPECT_EQ(rc, 0);
            used = content.find(terminator) + terminator.size();
        }
        EXPECT_EQ(used, stats ? 49u : 44u);
        for (std::size_t capacity = 4; capacity < used; ++capacity) {
            EXPECT_EQ(expectSame(stats, whole, capacity).first, STAPI_RC_FLOW_CONTENT_TOO_LARGE);
        }
        EXPECT_EQ(expectSame(stats, whole, used).first, 0);
    }
}

}  // namespace
