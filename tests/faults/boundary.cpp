// Lengths and counts at the edge of what the library can hold, without a trace and with all of it; answers are walked,
// dumped and made into query strings.
#include "faults.h"

#include "support/temp_directory.h"

#include <cstdlib>

namespace faults {
namespace {

using simgateway::Reply;
using support::Entries;
constexpr std::size_t RESULT_SET_SIZE = 32767;
constexpr std::size_t QUERY_STRING_MAX = 32765;
constexpr std::size_t ID_QUERY_MAX = 31999;

struct Case {
    std::string name;
    int query;         // of support::QUERY_CALLS
    std::string text;  // query string
    Bytes payload;     // of the reply, unless empty
    Entries entries;
    std::size_t size = 0;  // of the entries in a result set, in their place
    std::string ids{};     // that getIdQuery makes, where that matters
};

void ask(Server& server, int level, const std::string& traceFile, const Case& one) {
    const support::QueryCall& call = support::QUERY_CALLS[one.query];
    const bool tooLarge = one.size > RESULT_SET_SIZE;
    GatewayToken* token = nullptr;
    ResultSetToken* result = nullptr;
    char* version = nullptr;
    char* ids = nullptr;
    if (!one.payload.empty()) {
        server.setPayload(Exchange::invoke, one.payload);
    }
    EXPECT_EQ(setAPITraceFile(traceFile.c_str()), 0);
    EXPECT_EQ(setAPITraceLevel(level), 0);
    EXPECT_EQ(openGatewayConnection(server.port(), &token, &version), 0);
    std::free(version);
    EXPECT_EQ(call.run(token, &result, one.text.c_str()), tooLarge ? STAPI_RC_GATEWAY_REQUEST_FAILED : 0);
    if (!tooLarge) {
        const Entries entries = support::walk(result, call.statistics);
        std::size_t size = 28 + entries.at(0).element.size();
        for (const support::Entry& entry : entries) {
            size += 4 + entry.id.size() + (call.statistics ? 4 + entry.value.size() : 0);
        }
        EXPECT_TRUE(one.size == 0 ? entries == one.entries : size == one.size);
        EXPECT_EQ(dumpResultSet(result), 0);
        EXPECT_EQ(dumpState(), 0);
        EXPECT_EQ(getIdQuery(result, &ids), 0);
        EXPECT_TRUE(one.ids.empty() || ids == one.ids);
        EXPECT_EQ(getStatIdsByStatGroupId(token, ids, &result), 0);
    }
    EXPECT_EQ(closeGatewayConnection(&token), tooLarge ? STAPI_RC_GATEWAY_TOKEN_NOT_FOUND : 0);
    EXPECT_EQ(hooks.held, 1);
}

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const int query : {0, 1}) {
        const bool stats = query == 0;
        const std::string kind = stats ? ".stats" : ".ids";
        for (const std::size_t size : {RESULT_SET_SIZE - 1, RESULT_SET_SIZE, RESULT_SET_SIZE + 1}) {
            const Reply reply = stats ? simgateway::statsOfContentSize(size) : simgateway::idsOfContentSize(size);
            all.push_back({"content" + std::to_string(size) + kind, query, "", reply.bytes(), {}, size});
        }
        // One of three elements has no items.
        for (int i = 0; i < 6; ++i) {
            Reply reply(stats ? Reply::Content::statistics : Reply::Content::identifiers);
            Entries entries;
            for (const std::string element : {"0", "1", "2"}) {
                reply.element(element);
                if (element == std::to_string(i % 3)) {
                    reply.itemCount(i < 3 ? 0 : -1);
                    continue;
                }
                static_cast<void>(stats ? reply.stat("i", "v") : reply.id("i"));
                entries.push_back({element, 0, "i", stats ? "v" : ""});
            }
            all.push_back(
                {(i < 3 ? "none" : "negative") + std::to_string(i % 3) + kind, query, "", reply.bytes(), entries});
        }
    }
    const std::string first(16000, 'a');  // an identifier that does not fit is left out, and its separator
    for (std::size_t length = ID_QUERY_MAX - 1; length <= ID_QUERY_MAX + 2; ++length) {
        const std::string second(length - first.size() - 1, 'b');
        const Bytes payload = Reply(Reply::Content::identifiers).element("e").id(first).id(second).bytes();
        const std::string ids = length <= ID_QUERY_MAX ? first + ":" + second : first;
        all.push_back({"ids" + std::to_string(length), 1, "", payload, {{"e", 0, first}, {"e", 0, second}}, 0, ids});
    }
    // One that is too long is replaced by the one before, or the empty one.
    for (std::size_t length = QUERY_STRING_MAX - 1; length <= QUERY_STRING_MAX + 2; ++length) {
        const std::string text = std::string(length - oneStatistic().size(), ':') + oneStatistic();
        all.push_back({"text" + std::to_string(length), 4, text, {}, answerOf(4, length > QUERY_STRING_MAX)});
    }
    return all;
}

}  // namespace

void walkBoundary(Walk& walk) {
    const support::TempDirectory directory;
    for (const Case& one : cases()) {
        for (const int level : {0, 5}) {
            const std::string name = one.name + ".level" + std::to_string(level);
            walk.point(name, [&](Server& server) { ask(server, level, directory.file(name), one); });
        }
    }
}

}  // namespace faults
