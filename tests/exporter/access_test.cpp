// Who may ask the exporter: passwords.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "auth.h"

namespace exporter {

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
