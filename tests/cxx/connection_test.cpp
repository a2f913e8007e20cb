// The C++ header: the same rows as the calls of C, every failure with its code, and nothing used after it has gone.
#include <zulstats.hpp>

#include "support/fixture.h"
#include "support/process.h"
#include "support/walk.h"

#include <algorithm>
#include <concepts>
#include <list>
#include <ranges>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace support;
using Wrapper = GatewayTest;

static_assert(std::movable<zul::Connection> && !std::copyable<zul::Connection>);
static_assert(std::movable<zul::Snapshot> && !std::copyable<zul::Snapshot>);
static_assert(std::movable<zul::Rows> && !std::copyable<zul::Rows>);
static_assert(std::ranges::input_range<zul::Rows> && !std::ranges::forward_range<zul::Rows>);
static_assert(std::same_as<std::ranges::range_reference_t<zul::Rows>, const zul::Row&>);
static_assert(std::copyable<zul::Row>);
static_assert(std::is_nothrow_move_constructible_v<zul::Connection> && std::is_nothrow_destructible_v<zul::Connection>);
static_assert(std::is_nothrow_default_constructible_v<zul::Connection>);
static_assert(noexcept(std::declval<zul::Connection&>().stats(std::declval<std::error_code&>())));
static_assert(!noexcept(std::declval<zul::Connection&>().stats()));
static_assert(noexcept(std::declval<zul::Rows&>().next(std::declval<zul::Row&>(), std::declval<std::error_code&>())));
static_assert(std::is_base_of_v<std::system_error, zul::error> && std::is_error_code_enum_v<zul::errc>);

Entries entries(zul::Rows rows) {
    Entries all;
    for (const zul::Row& row : rows) {
        all.push_back({std::string(row.element()), row.rc(), std::string(row.id()), std::string(row.value())});
    }
    return all;
}

zul::Connection connectTo(const simgateway::Server& server) {
    return zul::Connection::open("127.0.0.1", server.port());
}

// The code that a piece of work throws.
template <typename Work>
std::error_code thrown(Work work) {
    try {
        work();
    } catch (const zul::error& error) {
        EXPECT_EQ(error.code().message(), error.what());
        EXPECT_STREQ(error.hint(), zul::hint(error.code()));
        return error.code();
    }
    return {};
}

std::size_t closeRequests(const simgateway::Server& server) {
    return countRequests(server, Exchange::close);
}

TEST_F(Wrapper, queriesShowWhatTheCallsShow) {
    zul::Connection gateway = connectTo(server);
    ASSERT_TRUE(gateway.is_open());
    EXPECT_EQ(gateway.protocol_version(), "1_0_0_0");
    const simgateway::Model model;
    EXPECT_EQ(entries(gateway.stats()), allStats(model));
    EXPECT_EQ(entries(gateway.ids()), idsOnly(allStats(model)));
    EXPECT_EQ(entries(gateway.groups()), allGroupIds(model));
    EXPECT_EQ(entries(gateway.stats_by_group({"host"})), statsOfGroup(model, "host"));
    EXPECT_EQ(entries(gateway.ids_by_group(std::list<std::string>{"host"})), idsOnly(statsOfGroup(model, "host")));
    const std::vector<const char*> names = {"host.name", "nosuch", "host.load.1m"};
    const Entries found = entries(gateway.stats_by_id(names));
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].id, "host.name");
    EXPECT_EQ(found[1], (Entry{"nosuch", found[1].rc}));
    EXPECT_LT(found[1].rc, 0);
    zul::Rows load = gateway.stats_by_id({"host.load.1m", "host.name"});
    auto row = load.begin();
    EXPECT_GT(row->number(), 0.0);
    EXPECT_EQ((++row)->number(), std::nullopt);
    EXPECT_EQ(std::ranges::count_if(load, [](const zul::Row& each) { return each.rc() >= 0; }), 2);
}

TEST_F(Wrapper, closesOnceWhateverFailed) {
    struct Case {
        const char* name;
        zul::Rows (*query)(zul::Connection&, std::error_code&);
    };
    for (const Case& query : {
             Case{"stats", [](zul::Connection&at, std::error_code&code) { return at.stats(code); }},
             Case{"ids", [](zul::Connection&at, std::error_code&code) { return at.ids(code); }},
             Case{"groups", [](zul::Connection&at, std::error_code&code) { return at.groups(code); }},
             Case{"stats_by_id", [](zul::Connection&at, std::error_code&code) { return at.stats_by_id({"a"}, code); }},
             Case{"stats_by_group",
                  [](zul::Connection&at, std::error_code&code) { return at.stats_by_group({"a"}, code); }},
             Case{"ids_by_group",
                  [](zul::Connection&at, std::error_code&code) { return at.ids_by_group({"a"}, code); }},
         }) {
        for (const bool lost : {false, true}) {
            SCOPED_TRACE(std::string(query.name) + (lost ? " lost" : " refused"));
            zul::Connection gateway = connectTo(server);
            zul::Connection next = connectTo(server);
            zul::Rows before = gateway.stats();
            const std::size_t closed = closeRequests(server);
            Fault fault;
            if (lost) {
                fault.closeAfter = 0;
            } else {
                fault.headerRc = 1;
            }
            server.setFault(Exchange::invoke, fault);
            std::error_code code;
            zul::Rows rows = query.query(gateway, code);
            server.setFault(Exchange::invoke, {});
            EXPECT_EQ(code, lost ? zul::errc::gateway_connection_lost : zul::errc::gateway_request_failed);
            EXPECT_FALSE(gateway.is_open());
            EXPECT_TRUE(rows.begin() == rows.end());
            EXPECT_EQ(thrown([&] { before.begin(); }), zul::errc::stale);
            EXPECT_EQ(thrown([&] { gateway.stats(); }), zul::errc::not_open);
            gateway.close();
            gateway = {};
            EXPECT_EQ(closeRequests(server), closed + (lost ? 0 : 1));
            EXPECT_EQ(entries(next.groups()).empty(), false);  // whose token may stand where the other's stood
        }
    }
}

TEST_F(Wrapper, ownsOneConnection) {
    {
        zul::Connection first = connectTo(server);
        zul::Connection second = std::move(first);
        EXPECT_FALSE(first.is_open());  // NOLINT: what a moved-from connection is
        first = std::move(second);
        EXPECT_TRUE(first.is_open());
        first = connectTo(server);
        EXPECT_EQ(closeRequests(server), 1U);
        EXPECT_EQ(runInChild([&] {
                      std::error_code code;
                      first.stats(code);
                      first.close();
                      return code == zul::errc::result_set_pid_mismatch ? 0 : 1;
                  }),
                  0);
        std::error_code code;
        std::thread([&] { first.stats(code); }).join();
        EXPECT_EQ(code, zul::errc::result_set_tid_mismatch);
        EXPECT_FALSE(entries(first.stats()).empty());
        EXPECT_EQ(closeRequests(server), 1U);
    }
    EXPECT_EQ(closeRequests(server), 2U);
}

TEST_F(Wrapper, staleRowsAreAnErrorInEveryOrder) {
    struct Case {
        void (*end)(zul::Connection&, zul::Rows&);
        bool answerStays = false;
    };
    for (const Case& each : {
             Case{[](zul::Connection&at, zul::Rows&) { at.groups(); }},
             Case{[](zul::Connection&at, zul::Rows&) { at.close(); }},
             Case{[](zul::Connection&at, zul::Rows&) { at = {}; }},
             Case{[](zul::Connection&at, zul::Rows&) { const zul::Connection gone = std::move(at); }},
             Case{[](zul::Connection&, zul::Rows&rows) { rows.begin(); }, true},
         }) {
        zul::Connection gateway = connectTo(server);
        zul::Rows rows = gateway.stats();
        auto at = rows.begin();
        const zul::Row row = *at;
        zul::Row next;
        each.end(gateway, rows);
        EXPECT_EQ(thrown([&] { static_cast<void>(*at); }), zul::errc::stale);
        EXPECT_EQ(thrown([&] { ++at; }), zul::errc::stale);
        if (each.answerStays) {
            EXPECT_EQ(row.id(), "daemon.version");
            continue;
        }
        std::error_code code;
        for (const auto& use : {std::function<void()>([&] { row.id(); }),
                                {[&] { row.rc(); }},
                                {[&] { row.number(); }},
                                {[&] { row.element(); }},
                                {[&] { rows.begin(); }}}) {
            EXPECT_EQ(thrown(use), zul::errc::stale);
        }
        EXPECT_FALSE(rows.next(next, code));
        EXPECT_EQ(code, zul::errc::stale);
    }
    EXPECT_EQ(thrown([] { zul::Row().id(); }), zul::errc::stale);
    EXPECT_TRUE(entries({}).empty());
}

TEST_F(Wrapper, snapshotsLast) {
    zul::Connection gateway = connectTo(server);
    EXPECT_EQ(thrown([&] { static_cast<void>(gateway.snapshot()); }), zul::errc::null_result_set);
    const Entries all = entries(gateway.stats());
    zul::Snapshot snapshot = gateway.snapshot();
    gateway.close();
    EXPECT_EQ(thrown([&] { static_cast<void>(gateway.snapshot()); }), zul::errc::not_open);
    Entries seen;
    std::thread([&] { seen = entries(snapshot.rows()); }).join();
    EXPECT_EQ(seen, all);
    zul::Rows rows = snapshot.rows();
    const zul::Row first = *rows.begin();
    EXPECT_EQ(first.id(), all.front().id);
    snapshot = {};
    EXPECT_EQ(thrown([&] { first.id(); }), zul::errc::stale);
    EXPECT_TRUE(entries(snapshot.rows()).empty());
}

TEST_F(Wrapper, refusesWhatTheCallsWouldMistake) {
    zul::Connection gateway = connectTo(server);
    const std::size_t asked = countRequests(server, Exchange::invoke);
    const std::string half(16382, 'x');
    for (const auto& each : std::vector<std::pair<std::vector<std::string>, zul::errc>>{
             {{}, zul::errc::nothing_asked},
             {{""}, zul::errc::nothing_asked},
             {{"", ":"}, zul::errc::nothing_asked},
             {{std::string("a\0b", 3)}, zul::errc::invalid_text},
             {{half, half + "x"}, zul::errc::query_too_long},
             {{half + half + "xx"}, zul::errc::query_too_long},
         }) {
        EXPECT_EQ(thrown([&] { gateway.stats_by_id(each.first); }), each.second);
    }
    EXPECT_EQ(countRequests(server, Exchange::invoke), asked);
    EXPECT_EQ(thrown([&] { gateway.stats_by_id({half, half}); }), zul::errc::gateway_request_failed);  // asked
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open(std::string_view("a\0b", 3), 1)); }),
              zul::errc::invalid_text);
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open("127.0.0.1", 0)); }), zul::errc::invalid_port);
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open(UNRESOLVABLE, 1)); }), zul::errc::host_not_resolved);
}

TEST(WrapperCodes, eachHasWords) {
#define ROW(name, meaning, hintText)                                  \
    {                                                                 \
        const std::error_code code(STAPI_RC_##name, zul::category()); \
        EXPECT_EQ(code.message(), meaning);                           \
        EXPECT_STREQ(zul::hint(code), hintText);                      \
    }
    ZULSTATS_CODES(ROW)
#undef ROW
    for (const zul::errc code : {zul::errc::stale, zul::errc::not_open, zul::errc::invalid_text,
                                 zul::errc::nothing_asked, zul::errc::query_too_long}) {
        EXPECT_STRNE(zul::hint(code), "");
        EXPECT_EQ(make_error_code(code).message().find("code"), std::string::npos);
    }
    EXPECT_EQ(std::error_code(zul::errc::ok).message(), "success");
    EXPECT_EQ(std::error_code(-999, zul::category()).message(), "code -999");
    EXPECT_STREQ(zul::hint(std::make_error_code(std::errc::io_error)), "");
    EXPECT_EQ(std::string(zul::category().name()), "zulstats");
}

TEST_F(Wrapper, setsTheTrace) {
    EXPECT_EQ(thrown([] { zul::Trace::level(6); }), zul::errc::invalid_trace_level);
    EXPECT_EQ(thrown([] { zul::Trace::file("/nosuch/file"); }), zul::errc::trace_file_open_failed);
    EXPECT_EQ(thrown([] { zul::Trace::file(std::string("a\0b", 3)); }), zul::errc::invalid_text);
    zul::Trace::level(1);
    EXPECT_EQ(zul::Trace::level(), 1);
    zul::Trace::level(0);
    zul::Trace::standard_error();
}

}  // namespace
