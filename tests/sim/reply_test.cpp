// Payloads of the builder against bytes written by hand and against a walk by distances.
#include <gtest/gtest.h>

#include "walk.h"

namespace simtest {
namespace {

using simgateway::Reply;

TEST(Reply, statisticsAsWrittenByHand) {
    EXPECT_EQ(
        toHex(Reply().element("conn").stat("conn.accepted", "1742").stat("conn.now", "7").element("x", -7).bytes()),
        toHex(hex("01 00 00 00 02"                            // array flag, 2 elements
                  "AC ED 00 05 73 72"                         // stream head, object, class description
                  "00 1C 'com.qal.zul.stats.StatsReply'"      // class name
                  "2F 6A 1C 0D 58 E3 B9 47 0C 00 00 78 72"    // UID, flags, no fields, end of annotation, superclass
                  "00 17 'com.qal.zul.stats.Reply'"           // its name
                  "51 D0 93 7E 4C 2A F8 6B 0C 00 00 78 70"    // UID, flags, no fields, end, no superclass
                  "77 0E"                                     // block of 14 bytes
                  "00 04 'conn' 00 00 00 00 00 00 00 02"      // element text, rc 0, 2 items
                  "73 72 00 16 'com.qal.zul.stats.Stat'"      // item: object, class description, class name
                  "6B 83 E5 F2 19 04 7D CA 0C 00 00 78 70"    // UID, flags, no fields, end, no superclass
                  "77 15 00 0D 'conn.accepted' 00 04 '1742'"  // block of 21 bytes: identifier, value
                  "78 73 71 00 7E 00 03"                      // end of the item; next item: class by handle
                  "77 0D 00 08 'conn.now' 00 01 '7'"          // block of 13 bytes: identifier, value
                  "78 78"                                     // end of the item, end of the element
                  "AC ED 00 05 73 72"                         // second element
                  "00 1C 'com.qal.zul.stats.StatsReply' 2F 6A 1C 0D 58 E3 B9 47 0C 00 00 78 72"
                  "00 17 'com.qal.zul.stats.Reply' 51 D0 93 7E 4C 2A F8 6B 0C 00 00 78 70"
                  "77 07 00 01 'x' FF FF FF F9 78")));  // block: element text, rc -7; end of the element
}

TEST(Reply, shapesOfHeadAndBlock) {
    const auto plain = [] { return Reply().classNames("", "", ""); };
    const auto ids = [&plain](std::size_t size) { return plain().element("a").id(std::string(size, 'i')); };
    constexpr std::size_t block = 5 + 36;  // where the first element's block starts when no class has a name
    struct {
        const char* what;
        Reply reply;
        std::size_t from;
        const char* expected;  // the first bytes from there; all of them when the text ends with a dot
    } const cases[] = {
        {"no elements", plain(), 0, "01 00 00 00 00."},
        {"count as told", plain().count(-2).element("a"), 0, "01 FF FF FF FE AC ED"},
        {"raw after element", plain().element("a", -1).raw({0xAB}), block, "77 07 00 01 61 FF FF FF FF 78 AB."},
        {"empty", plain().element("a").shortEnd(), block, "77 0B 00 01 61 00 00 00 00 00 00 00 00 78."},
        {"fill", plain().element("a"), block + 13, "78 00 00 00 00 00 00 00 00 00 00 00."},
        {"no fill for identifiers", Reply(Reply::Content::identifiers).element("a").classNames("", "", ""), block,
         "77 0B 00 01 61 00 00 00 00 00 00 00 00 78."},
        {"item count", plain().element("a").itemCount(-3), block, "77 0B 00 01 61 00 00 00 00 FF FF FF FD 78"},
        {"long block", plain().element("a", -1).blockTag(0x7A), block, "7A 00 00 00 07 00 01 61 FF FF FF FF 78."},
        {"longest short block", ids(242), block, "77 FF 00 01 61"},
        {"shortest long block", ids(243), block, "7A 00 00 01 00 00 01 61"},
        {"item block too long", plain().element("a").stat("i", std::string(251, 'v')), block + 30, "77 00 00 01 69"},
    };
    for (const auto& c : cases) {
        std::string found = toHex(slice(c.reply.bytes(), c.from));
        found.back() = '.';
        EXPECT_EQ(found.substr(0, std::string(c.expected).size()), c.expected) << c.what;
    }
}

}  // namespace
}  // namespace simtest
