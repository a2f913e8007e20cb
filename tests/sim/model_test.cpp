// The simulated daemon's figures: repeatable, plausible, and selected as the query says.
#include <map>

#include <gtest/gtest.h>

#include "simgateway/model.h"
#include "walk.h"

namespace simtest {
namespace {

using simgateway::Model;

std::map<std::string, std::string> valuesAt(const Model& model, std::uint64_t seconds) {
    std::map<std::string, std::string> values;
    for (const auto& group : model.groups()) {
        for (const auto& statistic : group.statistics) {
            EXPECT_EQ(statistic.id.rfind(group.id + ".", 0), 0U) << statistic.id;
            EXPECT_TRUE(values.emplace(statistic.id, statistic.value(seconds)).second) << statistic.id;
        }
    }
    return values;
}

TEST(Model, hasAsManyStatisticsAsAskedAndRepeatsItself) {
    for (const std::size_t wanted : {0U, 1U, 16U, 17U, 150U, 151U, 163U, 164U, 1000U}) {
        const Model model(3, static_cast<int>(wanted));
        EXPECT_EQ(valuesAt(model, 40).size(), wanted);
        EXPECT_EQ(walked(model.stats("", 40).bytes()).summary, walked(model.statIds("").bytes(), false).summary);
    }
    // A client's result set holds 32767 bytes: enough for the usual answer, not for any.
    EXPECT_LT(Model().stats("", 4000000000).contentSize(), 32767U / 2);
    EXPECT_GT(Model(1, 1000).stats("", 0).contentSize(), 32767U);
    const Model one(7, 150);
    const Model other(7, 150);
    for (const std::uint64_t t : {86400U, 0U, 31U, 32U, 300U}) {
        EXPECT_EQ(one.stats("", t).bytes(), other.stats("", t).bytes()) << t;
    }
    EXPECT_EQ(Model(7, 400).stats("conn:server.echo", 99).bytes(), one.stats("conn:server.echo", 99).bytes());
    EXPECT_NE(one.stats("", 5).bytes(), one.stats("", 6).bytes());
    EXPECT_NE(one.stats("", 5).bytes(), Model(8, 150).stats("", 5).bytes());
}

TEST(Model, queriesSelect) {
    const Model model(1, 30);
    const auto stats = [&](std::string_view query) { return walked(model.stats(query, 3).bytes()); };
    const auto statIds = [&](std::string_view query) { return walked(model.statIds(query).bytes(), false); };
    const auto resourceGroups = [&](std::string_view query) {
        return walked(model.resourceGroups(query).bytes(), false);
    };
    const struct {
        std::function<Walked(std::string_view)> operation;
        const char* query;
        const char* expected;
    } cases[] = {
        {stats, "", "daemon/16 host/12 conn/2 "},
        {stats, "conn.limit:daemon:host.name", "conn.limit/1 daemon/16 host.name/1 "},
        {stats, "conn:conn", "conn/2 conn/2 "},
        {stats, "::host.name:", "host.name/1 "},
        {stats, ":", ""},
        {stats, "nothing:host.name:Host", "nothing(-1)/0 host.name/1 Host(-1)/0 "},
        {stats, "conn.open.now", "conn.open.now(-1)/0 "},
        {statIds, "", "daemon/16 host/12 conn/2 "},
        {statIds, "conn:worker:host.load.1m", "conn/2 worker(-1)/0 host.load.1m/1 "},
        {resourceGroups, "", "*/3 "},
        {resourceGroups, "host:nothing:host.name", "host/1 nothing(-1)/0 host.name(-1)/0 "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.operation(c.query).summary, c.expected) << c.query;
    }
    EXPECT_EQ(stats("host.name").lastValue, "zulhost");
}

}  // namespace
}  // namespace simtest
