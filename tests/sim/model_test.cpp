// The simulated daemon's figures: repeatable, plausible, and selected as the query says.

#include <cstdint>
#include <map>
#include <string>

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
            values[statistic.id] = statistic.value(seconds);
        }
    }
    return values;
}

TEST(Model, hasAsManyStatisticsAsAsked) {
    for (const std::size_t wanted : {0U, 1U, 16U, 17U, 150U, 151U, 163U, 164U, 1000U}) {
        const Model model(3, static_cast<int>(wanted));
        const Walked stats = Walked::stats(model.stats("", 40).bytes());
        const Walked ids = Walked::ids(model.statIds("").bytes());
        EXPECT_TRUE(stats.toTheEnd && ids.toTheEnd) << wanted;
        EXPECT_EQ(stats.summary, ids.summary);
        std::map<std::string, std::string> found;
        for (const WalkedElement& element : stats.elements) {
            for (const auto& [id, value] : element.items) {
                EXPECT_EQ(id.rfind(element.text + ".", 0), 0U) << id;
                EXPECT_TRUE(found.emplace(id, value).second) << id;
            }
        }
        EXPECT_EQ(found.size(), wanted);
        EXPECT_EQ(found, valuesAt(model, 40));
    }
    // A client's result set holds 32767 bytes: enough for the usual answer, not for any.
    EXPECT_LT(Model().stats("", 4000000000).contentSize(), 32767U / 2);
    EXPECT_GT(Model(1, 1000).stats("", 0).contentSize(), 32767U);
}

TEST(Model, sameSeedSameValues) {
    const Model one(7, 150);
    const Model other(7, 150);
    for (const std::uint64_t t : {86400U, 0U, 31U, 32U, 300U}) {
        EXPECT_EQ(one.stats("", t).bytes(), other.stats("", t).bytes()) << t;
    }
    EXPECT_EQ(Model(7, 400).stats("conn:server.echo", 99).bytes(), one.stats("conn:server.echo", 99).bytes());
    EXPECT_NE(one.stats("", 5).bytes(), one.stats("", 6).bytes());
    EXPECT_NE(one.stats("", 5).bytes(), Model(8, 150).stats("", 5).bytes());
}

TEST(Model, countersNeverFallAndGaugesAgree) {
    for (const std::uint64_t seed : {1U, 2U, 77U}) {
        const Model model(seed, 164);
        auto before = valuesAt(model, 0);
        const auto first = before;
        for (std::uint64_t t = 1; t < 700; ++t) {
            auto now = valuesAt(model, t);
            for (const auto& [id, value] : now) {
                if (id.ends_with(".total") || id.ends_with(".seconds")) {
                    EXPECT_GE(std::stoll(value), std::stoll(before[id])) << id << " at " << t;
                    EXPECT_TRUE(t < 699 || value != first.at(id)) << id << " stands still";
                }
                EXPECT_FALSE(value.starts_with("-")) << id;
            }
            const auto number = [&now](const std::string& id) { return std::stoll(now.at(id)); };
            EXPECT_EQ(number("conn.accepted.total") - number("conn.closed.total"), number("conn.open.now"));
            EXPECT_EQ(number("worker.busy.now") + number("worker.idle.now"), number("worker.count.now"));
            EXPECT_LE(number("worker.queue.now"), number("worker.queue.peak"));
            before = std::move(now);
        }
    }
}

TEST(Model, queriesSelect) {
    const Model model(1, 30);
    enum Operation { stats, statIds, resourceGroups };
    struct {
        Operation operation;
        const char* query;
        const char* expected;
    } const cases[] = {
        {stats, "", "daemon/16 host/12 conn/2 "},
        {stats, "host", "host/12 "},
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
        const Walked walked = c.operation == stats     ? Walked::stats(model.stats(c.query, 3).bytes())
                              : c.operation == statIds ? Walked::ids(model.statIds(c.query).bytes())
                                                       : Walked::ids(model.resourceGroups(c.query).bytes());
        EXPECT_TRUE(walked.toTheEnd) << c.query;
        EXPECT_EQ(walked.summary, c.expected) << c.query;
    }
    EXPECT_EQ(Walked::stats(model.stats("host.name", 3).bytes()).elements.at(0).items.at(0),
              std::make_pair(std::string("host.name"), std::string("zulhost")));
}

}  // namespace
}  // namespace simtest
