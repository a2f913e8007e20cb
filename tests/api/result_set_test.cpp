// Result sets as objects: copies, dumps, and query strings made of them.
#include "support/fixture.h"
#include "support/walk.h"

#include <cstring>

namespace {

using namespace support;
using simgateway::Reply;

class IdQuery : public GatewayTest {
protected:
    const Connection connection{server};
};

TEST_F(IdQuery, joinsGoodIdentifiers) {
    const struct {
        const char* what;
        Reply reply;
        const char* expected;  // nullptr: no identifier is good
    } cases[] = {
        {"over elements", ids().element("e").id("a").id("b").element("f").id("c"), "a:b:c"},
        {"positive codes are not good", ids().element("e").id("a").id("b").element("f", 1).id("c"), "a:b"},
        {"failed ones between", ids().element("e").id("a").element("f", -1).element("g").id("b"), "a:b"},
        {"first entry failed", ids().element("e", -1).element("f").id("a").id("b"), ":a:b"},
        {"first entry positive", ids().element("e", 3).id("x").element("f").id("a"), ":a"},
        {"last entry failed", ids().element("e").id("a").element("f", -1), "a"},
        {"empty element first", ids().element("e").element("f").id("a"), "a"},
        {"up to a NUL", ids().element("e").id(std::string_view("a\0b", 3)).id("c"), "a:c"},
        {"with separators inside", ids().element("e").id("a:b").id("c"), "a:b:c"},
        {"identifiers without characters", ids().element("e").id("").id("").id("a"), "::a"},
        {"all failed", ids().element("e", -1).element("f", -2), nullptr},
        {"all positive", ids().element("e", 1).id("a").id("b"), nullptr},
        {"one without characters", ids().element("e").id(""), nullptr},
        {"one too long", ids().element("e").id(std::string(32000, 'x')), nullptr},
        {"no element", ids(), nullptr},
        {"no item", ids().element("e"), nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        ResultSetToken* result = resultOf(server, connection, each.reply.bytes(), getStatIds);
        char untouched[] = "untouched";
        char* query = untouched;
        EXPECT_EQ(getIdQuery(result, &query), each.expected == nullptr ? STAPI_RC_NO_GOOD_IDS : 0);
        EXPECT_STREQ(query, each.expected == nullptr ? "untouched" : each.expected);
        IdData id{};
        EXPECT_EQ(getNextId(result, &id), STAPI_RC_END_OF_RESULT_SET) << "the position is not at the end";
    }
}

TEST_F(IdQuery, startsOverAndBelongsToItsResultSet) {
    Reply reply(Reply::Content::statistics);
    reply.element("e").stat("a", "1").stat("b", "2").element("f", -1).element("g", 2).stat("c", "3");
    ResultSetToken* result = resultOf(server, connection, reply.element("h").stat("d", "4").bytes(), getStats);
    StatData stat{};
    ASSERT_EQ(getFirstStat(result, &stat), 0);
    ResultSetToken* copy = nullptr;
    ASSERT_EQ(copyResultSet(result, &copy), 0);
    char* first = nullptr;
    char* second = nullptr;
    char* ofCopy = nullptr;
    ASSERT_EQ(getIdQuery(result, &first), 0);
    ASSERT_EQ(getIdQuery(result, &second), 0);
    ASSERT_EQ(getIdQuery(copy, &ofCopy), 0);
    EXPECT_EQ(first, second);
    EXPECT_NE(ofCopy, first);
    EXPECT_STREQ(first, "a:b:d");
    EXPECT_STREQ(ofCopy, "a:b:d");
    EXPECT_EQ(getNextStat(result, &stat), STAPI_RC_END_OF_RESULT_SET);
    EXPECT_EQ(freeResultSet(&copy), 0);
    ASSERT_EQ(resultOf(server, connection, ids().element("e", -1).bytes(), getStatIds), result);
    EXPECT_EQ(getIdQuery(result, &second), STAPI_RC_NO_GOOD_IDS);
    EXPECT_STREQ(first, "a:b:d") << "a call without a result leaves the string before";
}

}  // namespace
