// Connections of the C++ header: the same rows as the calls of C, every failure with its code, each closed once.
#include "plugin.h"
#include "wrapper.h"

#include "support/process.h"

#include <algorithm>
#include <concepts>
#include <list>
#include <ranges>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace wrapper;

static_assert(std::movable<zul::Connection> && !std::copyable<zul::Connection>);
static_assert(std::is_nothrow_move_constructible_v<zul::Connection> && std::is_nothrow_destructible_v<zul::Connection>);
static_assert(std::is_nothrow_default_constructible_v<zul::Connection>);
static_assert(noexcept(std::declval<zul::Connection&>().stats(std::declval<std::error_code&>())));
static_assert(!noexcept(std::declval<zul::Connection&>().stats()));
static_assert(noexcept(std::declval<zul::Connection&>().stats_by_id({"a"}, std::declval<std::error_code&>())));
static_assert(std::is_base_of_v<std::system_error, zul::error> && std::is_error_code_enum_v<zul::errc>);

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

// An input range of what `make` returns for each number below a limit.
template <typename Make>
class Made {
public:
    struct iterator {
        using iterator_concept = std::input_iterator_tag;
        using value_type = std::invoke_result_t<const Make&, int>;
        using difference_type = std::ptrdiff_t;

        value_type operator*() const {
            return made->make(at);
        }
        iterator& operator++() {
            ++at;
            return *this;
        }
        void operator++(int) {
            ++at;
        }
        bool operator==(std::default_sentinel_t) const {
            return at == made->limit;
        }
        const Made* made = nullptr;
        int at = 0;
    };

    Made(int below, Make by) : limit(below), make(std::move(by)) {
    }
    iterator begin() const {
        return {this, 0};
    }
    static std::default_sentinel_t end() {
        return {};
    }

private:
    int limit;
    Make make;
};

TEST_F(Wrapper, takesNamesFromAnyRange) {
    zul::Connection gateway = connectTo(server);
    const auto named = [](int number) {
        return "a name that takes a block of storage of its own, number " + std::to_string(number);
    };
    const Entries found = entries(gateway.stats_by_id(Made(3, named)));
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[2].element, named(2));

    // An answer may name what the next query on its connection asks for.
    zul::Rows ids = gateway.ids_by_group({"host"});
    auto at = ids.begin();
    Made idsOfHost(2, [&](int) { return (++at)->id(); });
    const Entries some = entries(gateway.stats_by_id(idsOfHost));
    EXPECT_TRUE(some.size() == 2 && some[1].id == statsOfGroup(simgateway::Model(), "host")[2].id);
    std::error_code code;
    gateway.stats_by_group(idsOfHost, code);
    EXPECT_EQ(code, zul::errc::stale);
    EXPECT_EQ(thrown([&] { gateway.stats_by_group(idsOfHost); }), zul::errc::stale);
    const auto close = [&](int) {
        gateway.close();
        return "host";
    };
    EXPECT_EQ(thrown([&] { gateway.stats_by_id(Made(1, close)); }), zul::errc::not_open);

    // What else a range throws is the caller's in both forms.
    gateway = connectTo(server);
    Made throws(1, [](int) -> std::string_view { throw std::domain_error("a range"); });
    EXPECT_THROW(gateway.stats_by_id(throws), std::domain_error);
    EXPECT_THROW(gateway.ids_by_group(throws, code), std::domain_error);
    EXPECT_EQ(entries(gateway.stats_by_id({"host.name"})).size(), 1U);
}

TEST_F(Wrapper, closesWhatTheLibraryCannotFindYet) {
    const int before = openDescriptors();
    std::vector<zul::Connection> open(270);
    for (zul::Connection& each : open) {
        each = connectTo(server);
    }
    zul::Connection& last = open.back();
    EXPECT_EQ(thrown([&] { last.stats(); }), zul::errc::gateway_token_not_found);
    EXPECT_TRUE(last.is_open());
    for (std::size_t at = 258; at < 269; ++at) {
        open[at].close();
    }
    EXPECT_EQ(closeRequests(server), 0U);
    open[0].close();
    EXPECT_FALSE(entries(open[257].groups()).empty());
    EXPECT_EQ(closeRequests(server), 1U);
    open[1].close();  // lets the next one be found, whose close lets another, up to the last
    EXPECT_EQ(closeRequests(server), 13U);
    EXPECT_FALSE(entries(last.groups()).empty());
    open.clear();
    EXPECT_EQ(closeRequests(server), 270U);
    EXPECT_EQ(fallenTo(before, openDescriptors), before);
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

TEST_F(Wrapper, refusesWhatTheCallsWouldMistake) {
    zul::Connection gateway = connectTo(server);
    const std::size_t asked = countRequests(server, Exchange::invoke);
    const std::string half(16382, 'x');
    for (const auto& each : std::vector<std::pair<std::vector<std::string>, zul::errc>>{
             {{}, zul::errc::nothing_asked},
             {{""}, zul::errc::nothing_asked},
             {{"", "a"}, zul::errc::nothing_asked},
             {{"a", ""}, zul::errc::nothing_asked},
             {{"a:b"}, zul::errc::invalid_text},
             {{std::string("a\0b", 3)}, zul::errc::invalid_text},
             {{half, half + "x"}, zul::errc::query_too_long},
             {{half + half + "xx"}, zul::errc::query_too_long},
         }) {
        EXPECT_EQ(thrown([&] { gateway.stats_by_id(each.first); }), each.second);
    }
    EXPECT_EQ(thrown([&] { gateway.stats_by_id(std::vector<const char*>{"a", nullptr}); }), zul::errc::invalid_text);
    EXPECT_EQ(countRequests(server, Exchange::invoke), asked);
    EXPECT_EQ(thrown([&] { gateway.stats_by_id({half, half}); }), zul::errc::gateway_request_failed);  // asked
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open(std::string_view("a\0b", 3), 1)); }),
              zul::errc::invalid_text);
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open("127.0.0.1", 0)); }), zul::errc::invalid_port);
    EXPECT_EQ(thrown([&] { static_cast<void>(zul::Connection::open(UNRESOLVABLE, 1)); }), zul::errc::host_not_resolved);
}

TEST(WrapperCodes, eachHasWords) {
#define ROW(constant, meaning, hintText)                                  \
    {                                                                     \
        const std::error_code code(STAPI_RC_##constant, zul::category()); \
        EXPECT_EQ(code.message(), meaning);                               \
        EXPECT_STREQ(zul::hint(code), hintText);                          \
        EXPECT_STREQ(zul::name(code), #constant);                         \
    }
    ZULSTATS_CODES(ROW)
#undef ROW
    for (const zul::errc code : {zul::errc::stale, zul::errc::not_open, zul::errc::invalid_text,
                                 zul::errc::nothing_asked, zul::errc::query_too_long}) {
        EXPECT_STRNE(zul::hint(code), "");
        EXPECT_STRNE(zul::name(code), "");
        EXPECT_EQ(make_error_code(code).message().find("code"), std::string::npos);
    }
    EXPECT_EQ(std::error_code(zul::errc::ok).message(), "success");
    EXPECT_EQ(std::error_code(-999, zul::category()).message(), "code -999");
    EXPECT_STREQ(zul::hint(std::make_error_code(std::errc::io_error)), "");
    EXPECT_STREQ(zul::name(std::make_error_code(std::errc::io_error)), "");
    EXPECT_NE(std::error_code(static_cast<int>(zul::errc::stale), std::generic_category()), zul::errc::stale);
    EXPECT_EQ(std::string(zul::category().name()), "zulstats");
}

TEST_F(Wrapper, successIsOk) {
    std::error_code code;
    EXPECT_NE(code, zul::errc::ok);
    zul::Connection gateway = zul::Connection::open("127.0.0.1", server.port(), code);
    EXPECT_EQ(code, zul::errc::ok);
    code.clear();
    zul::Rows rows = gateway.stats(code);
    EXPECT_EQ(code, zul::errc::ok);
    code.clear();
    zul::Row row;
    EXPECT_TRUE(rows.next(row, code));
    EXPECT_EQ(code, zul::errc::ok);
    code.clear();
    const zul::Snapshot snapshot = gateway.snapshot(code);
    EXPECT_EQ(code, zul::errc::ok);
    code.clear();
    rows = gateway.stats_by_id({"host.name"}, code);
    EXPECT_EQ(code, zul::errc::ok);
    while (rows.next(row, code)) {
    }
    EXPECT_EQ(code, zul::errc::ok);
}

TEST(WrapperCodes, areTheSameInSharedObjects) {
    std::error_code code;
    setStale(code);
    EXPECT_NE(&code.category(), &zul::category());  // the object has one of its own
    EXPECT_EQ(code, zul::errc::stale);
    EXPECT_STREQ(zul::name(code), "STALE");
    try {
        throwStale();
        ADD_FAILURE();
    } catch (const zul::error& error) {
        EXPECT_EQ(error.code(), zul::errc::stale);
        EXPECT_STRNE(error.hint(), "");
    }
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
