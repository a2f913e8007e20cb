// Who may ask the exporter, and for what: passwords and targets.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "allow.h"
#include "auth.h"

namespace exporter {

TEST(Access, GlobsAreForNames) {
    const AllowList list(
        {"gw*.Example.org:7531", "1*:1", "10.*:*", "1?.0.0.1:7531", "*:99", "10.0.0.0/8:7", "[::2]:7"});
    const std::string loopback = "127.0.0.0/8 ::1";
    for (const auto& [target, wanted] :
         std::map<std::string, std::string>{{"GW1.example.ORG:7531", ""},  // whatever its address
                                            {"gw1.example.org:7532", loopback},
                                            {"10.nosuch.invalid:7531", loopback},
                                            {"10.0.0.1:7531", "none"},
                                            {"10.0.0.1:99", "none"},
                                            {"167772161:99", loopback},  // an address in another spelling
                                            {"0xa.1:99", loopback},
                                            {"[2001:db8::1]:99", "none"},
                                            {"a:99", ""},
                                            {"10.0.0.1:7", loopback + " 10.0.0.0/8 ::2"}}) {
        EXPECT_EQ(list.networksFor(*parseTarget(target)).value_or("none"), wanted) << target;
    }
    for (const char* const word : {"1*:1", "10.*:*", "1?.0.0.1:7531"}) {
        EXPECT_EQ(wordExpected(word), "a glob of host names: for addresses write a network, such as 10.0.0.0/8:7531");
    }
    for (const char* const word : {"*:99", "gw*:*", "10.0.0.0/8:7", "10.0.0.1", "[::2]:7"}) {
        EXPECT_EQ(wordExpected(word), "") << word;
    }
}

TEST(Access, UnknownUsersCostAsMuchAsTheDearest) {
    const auto hash = [](const std::string& cost) {
        return "$2b$" + cost + "$abcdefghijklmnopqrstuuJ3PGGpUFMVRCOqSNCbBLJnCmV2n3/S2";
    };
    EXPECT_EQ(nobodysHash({}).substr(0, 7), "$2y$04$");
    EXPECT_EQ(nobodysHash({{"a", hash("09")}, {"b", hash("12")}, {"c", hash("10")}}).substr(0, 7), "$2y$12$");
    for (const auto& [cost, taken] : std::map<std::string, bool>{
             {"03", false}, {"04", true}, {"31", true}, {"32", false}, {"99", false}, {"1x", false}}) {
        EXPECT_EQ(isBcryptHash(hash(cost)), taken) << cost;
    }
    EXPECT_FALSE(isBcryptHash("$2b$04$short"));
}

}  // namespace exporter
