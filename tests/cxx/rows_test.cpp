// Rows of the C++ header: what a row shows, and that nothing is used after it has gone.
#include "wrapper.h"

#include <algorithm>
#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace wrapper;

static_assert(std::movable<zul::Snapshot> && !std::copyable<zul::Snapshot>);
static_assert(std::movable<zul::Rows> && !std::copyable<zul::Rows>);
static_assert(std::ranges::input_range<zul::Rows> && !std::ranges::forward_range<zul::Rows>);
static_assert(std::same_as<std::ranges::range_reference_t<zul::Rows>, const zul::Row&>);
static_assert(std::copyable<zul::Row>);
static_assert(noexcept(std::declval<zul::Rows&>().next(std::declval<zul::Row&>(), std::declval<std::error_code&>())));

TEST_F(Wrapper, staleRowsAreAnErrorInEveryOrder) {
    struct Case {
        void (*end)(zul::Connection&, zul::Rows&);
        bool answerStays = false;
        bool rowsStay = false;
    };
    for (const Case& each : {
             Case{[](zul::Connection&at, zul::Rows&) { at.groups(); }},
             Case{[](zul::Connection&at, zul::Rows&) { at.close(); }},
             Case{[](zul::Connection&at, zul::Rows&) { at = {}; }},
             Case{[](zul::Connection&at, zul::Rows&) { const zul::Connection gone = std::move(at); }},
             Case{[](zul::Connection&at, zul::Rows&rows) { rows = at.groups(); }, false, true},
             Case{[](zul::Connection&at, zul::Rows&rows) { (rows = at.groups()).begin(); }, false, true},
             Case{[](zul::Connection&, zul::Rows&rows) { rows.begin(); }, true},
         }) {
        zul::Connection gateway = connectTo(server);
        zul::Rows rows = gateway.stats();
        auto at = rows.begin();
        const zul::Row& shown = *at;
        const zul::Row row = shown;
        zul::Row next;
        each.end(gateway, rows);
        EXPECT_EQ(thrown([&] { static_cast<void>(*at); }), zul::errc::stale);
        EXPECT_EQ(thrown([&] { ++at; }), zul::errc::stale);
        if (each.answerStays) {
            EXPECT_EQ(row.id(), "daemon.version");
            continue;
        }
        std::error_code code;
        for (const auto& use :
             {std::function<void()>([&] { row.id(); }), {[&] { row.rc(); }}, {[&] { row.number(); }}, {[&] {
                  row.element();
              }}}) {
            EXPECT_EQ(thrown(use), zul::errc::stale);
        }
        if (each.rowsStay) {
            EXPECT_TRUE(rows.next(next, code));  // from the first on, or the second
            continue;
        }
        EXPECT_EQ(thrown([&] { shown.id(); }), zul::errc::stale);
        EXPECT_EQ(thrown([&] { rows.begin(); }), zul::errc::stale);
        EXPECT_EQ(thrown([&] { static_cast<void>(rows.snapshot()); }), zul::errc::stale);
        EXPECT_FALSE(rows.next(next, code));
        EXPECT_EQ(code, zul::errc::stale);
    }
    EXPECT_EQ(thrown([] { zul::Row().id(); }), zul::errc::stale);
    EXPECT_TRUE(entries({}).empty());
}

TEST_F(Wrapper, iteratorsNeedNoRows) {
    zul::Connection gateway = connectTo(server);
    auto at = gateway.stats().begin();
    EXPECT_EQ((++at)->id(), "daemon.build.date");
    auto rows = std::make_unique<zul::Rows>(gateway.stats());
    at = rows->begin();
    zul::Rows moved = std::move(*rows);
    rows.reset();
    EXPECT_EQ((++at)->id(), "daemon.build.date");
    zul::Row row;
    std::error_code code;
    EXPECT_TRUE(moved.next(row, code));
    EXPECT_EQ(row.id(), "daemon.state");
    const zul::Row& first = *gateway.groups().begin();
    EXPECT_EQ(first.element(), first.element());

    at = zul::Rows().begin();
    EXPECT_EQ(thrown([&] { static_cast<void>(*at); }), zul::errc::stale);
    EXPECT_EQ(thrown([&] { ++at; }), zul::errc::stale);
    for (zul::Rows (*query)(zul::Connection&) : {+[](zul::Connection& of) { return of.stats_by_group({"host"}); },
                                                 +[](zul::Connection& of) { return of.ids(); }}) {
        zul::Rows all = query(gateway);
        at = all.begin();
        zul::Row last;
        for (; at != all.end(); ++at) {
            last = *at;
        }
        EXPECT_FALSE(last.id().empty());
        EXPECT_EQ(thrown([&] { static_cast<void>(at->id()); }), zul::errc::end_of_result_set);
        EXPECT_EQ(thrown([&] { ++at; }), zul::errc::end_of_result_set);
    }
}

TEST_F(Wrapper, numbersAreDecimalAndFinite) {
    zul::Connection gateway = connectTo(server);
    simgateway::Reply reply;
    reply.element("x");
    const std::vector<std::pair<const char*, std::optional<double>>> texts = {
        {"8.04", 8.04},
        {"+5", 5.0},
        {"-0.5", -0.5},
        {"1e3", 1000.0},
        {".5", 0.5},
        {"nan", std::nullopt},
        {"nan(1)", std::nullopt},
        {"-nan(0)", std::nullopt},
        {"inf", std::nullopt},
        {"1e400", std::nullopt},
        {"0x10", std::nullopt},
        {"+-5", std::nullopt},
        {"5 ", std::nullopt},
        {"", std::nullopt},
        {"e5", std::nullopt},
        {"1e", std::nullopt},
    };
    for (const auto& [text, number] : texts) {
        reply.stat("x", text);
    }
    server.inject(Exchange::invoke, {.payload = reply.bytes()});
    zul::Rows rows = gateway.stats();
    auto at = rows.begin();
    for (const auto& [text, number] : texts) {
        EXPECT_EQ(at->value(), text);
        EXPECT_EQ(at->number(), number) << text;
        ++at;
    }
}

TEST_F(Wrapper, snapshotsLast) {
    zul::Connection gateway = connectTo(server);
    EXPECT_EQ(thrown([&] { static_cast<void>(gateway.snapshot()); }), zul::errc::null_result_set);
    const Entries all = entries(gateway.stats());
    zul::Snapshot snapshot = gateway.snapshot();
    zul::Snapshot groups = gateway.groups().snapshot();
    EXPECT_TRUE(entries(zul::Rows().snapshot().rows()).empty());
    gateway.close();
    EXPECT_EQ(entries(groups.rows()), allGroupIds(simgateway::Model()));
    EXPECT_EQ(entries(snapshot.rows().snapshot().rows()), all);
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

}  // namespace
