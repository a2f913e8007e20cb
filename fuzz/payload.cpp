// A reply's payload into a result set, which is what a reader of its own lays, and everything that reads one.
#include "peer.h"

#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statcomms.h"
#include "support/payload.h"

#include <cstring>

namespace {

constexpr std::size_t WORD = 4;
constexpr std::size_t HEAD_SIZE = EYECATCHER_SIZE + WORD;

char expected[RESULT_SET_BUFFER_SIZE];
std::size_t completeSize;
char idQuery[QUERY_STRING_BUFFER_SIZE];

// Lays the content that is expected.
struct Layer {
    explicit Layer(bool ofStatistics, std::size_t size) : statistics(ofStatistics), capacity(size) {
        std::memcpy(expected, statistics ? STATS_CONTENT_MARKER : IDS_CONTENT_MARKER, EYECATCHER_SIZE);
        std::memset(expected + EYECATCHER_SIZE, 0, WORD);
        completeSize = used = HEAD_SIZE;
    }
    bool store(const void* from, std::size_t count) {
        tooLarge = used + count + WORD > capacity;
        std::memcpy(expected + used, from, tooLarge ? 0 : count);
        used += tooLarge ? 0 : count;
        return !tooLarge;
    }
    bool operator()(support::Field field, support::PayloadText text, std::int32_t number) {
        using enum support::Field;
        if (field == COUNT) {
            std::memcpy(expected + EYECATCHER_SIZE, &number, WORD);
            return true;
        }
        const bool isText = field == ELEMENT || field == ID || field == VALUE;
        const auto length = static_cast<std::int32_t>(text.length);
        if (!store(isText ? &length : &number, WORD) || (isText && !store(text.chars, text.length))) {
            return false;
        }
        const bool isWhole = (field == CODE && number < 0) || (field == ITEMS && number <= 0);
        completeSize = isWhole || field == (statistics ? VALUE : ID) ? used : completeSize;
        return true;
    }

    const bool statistics;
    const std::size_t capacity;
    std::size_t used = HEAD_SIZE;
    bool tooLarge = false;
};

// Whether this is the text at *at in the expected content, over which *at moves.
bool isText(const ResultSetToken* rs, const char* chars, std::int32_t length, const char** at) {
    const char* from = *at;
    *at += WORD + loadWord(from);
    return static_cast<std::uint32_t>(length) == loadWord(from) && chars - rs->head == from + WORD - expected;
}

// A record of either walk: what comes before a value is common to both.
union Record {
    StatData stat;
    IdData id;
};

int step(bool statistics, bool first, ResultSetToken* rs, Record* record) {
    return statistics ? (first ? getFirstStat : getNextStat)(rs, &record->stat)
                      : (first ? getFirstId : getNextId)(rs, &record->id);
}

void walk(ResultSetToken* rs, bool statistics, bool first) {
    Record both = {};
    const StatData& record = both.stat;
    int rc = step(statistics, first, rs, &both);
    const char* at = expected + HEAD_SIZE;
    const char* const end = expected + completeSize;
    // A count of elements that is the terminator ends the walk for First calls.
    while (at < end && !(first && loadWord(expected + EYECATCHER_SIZE) == RESULT_SET_TERMINATOR)) {
        const char* element = at;
        at += WORD + loadWord(at) + WORD;
        const auto elementRc = static_cast<std::int32_t>(loadWord(at - WORD));
        const std::uint32_t items = elementRc < 0 ? 1 : loadWord(at);
        at += elementRc < 0 ? 0 : WORD;
        for (auto left = static_cast<std::int32_t>(items); left > 0 && (at < end || elementRc < 0); --left) {
            const char* elementText = element;
            REQUIRE(rc == 0 && record.queryElementRC == elementRc);
            REQUIRE(isText(rs, record.queryElementPtr, record.queryElementLen, &elementText));
            REQUIRE(elementRc < 0 || isText(rs, record.statIdPtr, record.statIdLen, &at));
            REQUIRE(elementRc < 0 || !statistics || isText(rs, record.statValuePtr, record.statValueLen, &at));
            rc = step(statistics, false, rs, &both);
        }
    }
    const ResultSetToken before = *rs;
    REQUIRE(rc == STAPI_RC_END_OF_RESULT_SET);
    REQUIRE(first || step(statistics, false, rs, &both) == STAPI_RC_END_OF_RESULT_SET);
    REQUIRE(std::memcmp(rs, &before, sizeof before) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in = {data, size};
    const bool statistics = in.byte() % 2 == 0;
    const std::size_t capacity = 64 + in.word() % (RESULT_SET_BUFFER_SIZE - 63);
    const unsigned turn = turnOf(in);
    auto* payload = static_cast<std::uint8_t*>(std::malloc(in.size + 1)) + 1;
    // Copies and dumps take a whole buffer.
    auto* content = turn % 64 < 2 ? allocateResultSetBuffer() : static_cast<char*>(std::malloc(capacity));
    std::memcpy(payload, in.data, in.size);

    const int rc = (statistics ? parseStatsData : parseIdsData)(payload, content, in.size, capacity);
    Layer layer(statistics, capacity);
    static_cast<void>(support::readPayload(payload, payload + in.size, statistics, layer));
    REQUIRE(rc == (layer.tooLarge ? STAPI_RC_FLOW_CONTENT_TOO_LARGE : 0) && completeSize + WORD <= capacity);
    REQUIRE(std::memcmp(content, expected, completeSize) == 0);
    REQUIRE(loadWord(content + completeSize) == RESULT_SET_TERMINATOR);

    ResultSetToken rs{};
    rs.owner = USER_OWNED;
    rs.head = content;
    rs.next = content;
    rs.verifiedQueryString = idQuery;
    Record record = {};
    walk(&rs, statistics, false);
    walk(&rs, statistics, true);
    REQUIRE(step(!statistics, true, &rs, &record) == STAPI_RC_WRONG_RESULT_SET_CONTENT);
    char* built = nullptr;
    REQUIRE(turn % 16 != 2 || isOneOf(getIdQuery(&rs, &built), 0, STAPI_RC_NO_GOOD_IDS));
    if (turn % 64 == 1) {
        ResultSetToken* copy = nullptr;
        REQUIRE(copyResultSet(&rs, &copy) == 0 && std::memcmp(copy->head, content, completeSize + WORD) == 0);
        walk(copy, statistics, false);
        copy->head[HEAD_SIZE + turn / 64 % (completeSize + WORD - HEAD_SIZE)] ^= 0x5A;  // what no parser would lay
        REQUIRE(isOneOf(getIdQuery(copy, &built), 0, STAPI_RC_NO_GOOD_IDS));
        REQUIRE(freeResultSet(&copy) == 0 && copy == nullptr);
    }
    REQUIRE(turn % 512 != 0 || completeSize >= 512 || dumpResultSet(&rs) == 0);
    std::free(content);
    std::free(payload - 1);
    return 0;
}
