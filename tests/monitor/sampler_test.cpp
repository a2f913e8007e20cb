// A Sampler, with Gateways whose answers fit, fit by group, or fit by identifiers only.
#include "monitor/sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "monitor/codes.h"
#include "processes.h"
#include "simgateway/model.h"
#include "simgateway/sim_gateway.h"

namespace monitor {

namespace {

using simgateway::Exchange;
using Entry = std::tuple<std::string, int, std::string, std::string>;

constexpr Milliseconds ENOUGH = patience;
const Query everything = {What::stats, {}};

simgateway::ResourceGroup group(const std::string& id, int statistics, const std::string& value) {
    simgateway::ResourceGroup made{id, {}};
    for (int index = 0; index < statistics; ++index) {
        made.statistics.push_back({id + "." + std::to_string(index), [=](std::uint64_t) { return value; }});
    }
    return made;
}

// 5,000 statistics: many groups that fit together, one that just fits alone, two that do not.
std::vector<simgateway::ResourceGroup> manyGroups() {
    std::vector<simgateway::ResourceGroup> groups = {group("big", 1500, "12345678901234567890")};
    for (int index = 0; index < 100; ++index) {
        groups.push_back(group("g" + std::to_string(index), 19, std::to_string(index)));
    }
    groups.push_back(group("just", 700, "123456789012345678901234567890"));
    groups.push_back(simgateway::ResourceGroup{"failed", {}, -7});
    groups.push_back(group("long", 900, std::string(60, 'v')));
    return groups;
}

std::vector<Entry> entriesOf(const simgateway::Model& model) {
    std::vector<Entry> entries;
    for (const simgateway::ResourceGroup& one : model.groups()) {
        if (one.rc < 0) {
            entries.emplace_back(one.id, one.rc, "", "");
        }
        for (const simgateway::Statistic& statistic : one.statistics) {
            entries.emplace_back(one.id, one.rc, statistic.id, statistic.value(0));
        }
    }
    return entries;
}

std::vector<Entry> entriesOf(const Sample& sample) {
    std::vector<Entry> entries;
    for (const Element& element : sample.elements) {
        if (element.rc < 0) {
            entries.emplace_back(element.text, element.rc, "", "");
        }
        for (const Item& item : sample.itemsOf(element)) {
            entries.emplace_back(element.text, element.rc, item.id, item.value);
        }
    }
    return entries;
}

std::size_t connectionsMade(const simgateway::Server& server) {
    std::size_t most = 0;
    for (const simgateway::Request& request : server.requests()) {
        most = std::max<std::size_t>(most, request.connection);
    }
    return most;
}

// A Gateway whose statistics the test changes.
class Split : public testing::Test {
protected:
    Split() : server(options()) {
    }
    simgateway::Options options() {
        simgateway::Options options;
        options.protocolVersion = "";
        options.scenes = [this](double) { return simgateway::Scene{model.load(), 0, "1_0_0_0", 0}; };
        return options;
    }

    const simgateway::Model large{manyGroups()};
    const simgateway::Model small{{group("big", 700, "1"), group("g", 5, "2")}};
    std::atomic<const simgateway::Model*> model{&large};
    simgateway::Server server;
    Sampler sampler{to(server.port())};
};

}  // namespace

TEST_F(Split, AnswersOfAnySizeAreOneSample) {
    ASSERT_EQ(entriesOf(large).size(), 5001u);  // the failed group included
    const Outcome first = sampler.collect(everything, ENOUGH);
    ASSERT_FALSE(first.failure);
    EXPECT_EQ(entriesOf(first.sample), entriesOf(large));
    EXPECT_EQ(first.sample.query.what, What::stats);
    EXPECT_EQ(first.sample.splitGroups, 2u);
    EXPECT_LE(first.sample.contentSize, RESULT_SET_LIMIT);
    EXPECT_TRUE(first.sample.freshConnection);
    EXPECT_EQ(first.sample.protocol, "1_0_0_0");

    // What is known now: the connection stays, and small groups go together.
    const std::size_t connections = connectionsMade(server);
    const Outcome second = sampler.collect(everything, ENOUGH);
    ASSERT_FALSE(second.failure);
    EXPECT_EQ(entriesOf(second.sample), entriesOf(large));
    EXPECT_FALSE(second.sample.freshConnection);
    EXPECT_EQ(connectionsMade(server), connections);
    EXPECT_LT(second.sample.parts, 30u);
    EXPECT_LT(second.sample.parts, first.sample.parts);
    EXPECT_FALSE(sampler.collect({What::statsByGroup, {"g1"}}, ENOUGH).failure);
    EXPECT_FALSE(sampler.close(ENOUGH));
}

TEST_F(Split, GroupsAreOneSampleToo) {
    const Query some = {What::statsByGroup, {"g2", "long", "nosuch", "big", "g1"}};
    std::vector<Entry> wanted;
    for (const char* id : {"g2", "long", "nosuch", "big", "g1"}) {
        for (const Entry& entry : entriesOf(large)) {
            if (std::get<0>(entry) == id) {
                wanted.push_back(entry);
            }
        }
    }
    for (const std::size_t most : {100u, 30u}) {
        const Outcome outcome = sampler.collect(some, ENOUGH);
        ASSERT_FALSE(outcome.failure);
        std::vector<Entry> entries = entriesOf(outcome.sample);
        EXPECT_EQ(std::erase_if(entries, [](const Entry& entry) { return std::get<0>(entry) == "nosuch"; }), 1);
        EXPECT_EQ(entries, wanted);
        EXPECT_EQ(failedElements(outcome.sample), 1u);
        EXPECT_EQ(outcome.sample.query.ids, some.ids);
        EXPECT_LT(outcome.sample.parts, most);
    }
    // That says nothing of other queries.
    EXPECT_EQ(sampler.collect({What::statsByGroup, {"g1", "g2"}}, ENOUGH).sample.parts, 1u);
    model = &small;
    EXPECT_EQ(sampler.collect(everything, ENOUGH).sample.parts, 1u);
}

TEST_F(Split, IdentifiersAreOneSampleToo) {
    std::vector<Entry> wanted;
    for (const auto& [element, rc, id, value] : entriesOf(large)) {
        wanted.emplace_back(element, rc, id, "");
    }
    for (int times = 0; times < 2; ++times) {
        const Outcome outcome = sampler.collect({What::ids, {}}, ENOUGH);
        ASSERT_FALSE(outcome.failure);
        EXPECT_EQ(entriesOf(outcome.sample), wanted);
        EXPECT_GT(outcome.sample.parts, 100u);
        EXPECT_EQ(outcome.sample.query.what, What::ids);
    }
    // That says nothing of the statistics, of which several groups go together once they are known.
    ASSERT_FALSE(sampler.collect(everything, ENOUGH).failure);
    EXPECT_LT(sampler.collect(everything, ENOUGH).sample.parts, 30u);
    EXPECT_FALSE(sampler.collect({What::idsByGroup, {"big", "long"}}, ENOUGH).failure);
    // A group of which there is nothing smaller.
    const simgateway::Model huge({group(std::string(30000, 'i'), 2, "1")});
    model = &huge;
    EXPECT_EQ(sampler.collect({What::ids, {}}, ENOUGH).failure.value().kind, FailureKind::refused);
    model = &small;
    EXPECT_EQ(sampler.collect({What::ids, {}}, ENOUGH).sample.items.size(), entriesOf(small).size());
}

TEST_F(Split, WhatFitsAgainIsAskedForAtOnce) {
    ASSERT_GT(sampler.collect(everything, ENOUGH).sample.parts, 1u);
    model = &small;
    // Its size is not known to fit; and 10 minutes have not passed.
    EXPECT_GT(sampler.collect(everything, ENOUGH).sample.parts, 1u);
    sampler.begin(everything, Clock::now() + std::chrono::minutes(11));
    const Outcome whole = sampler.wait();
    EXPECT_EQ(whole.sample.parts, 1u);
    EXPECT_EQ(entriesOf(whole.sample), entriesOf(small));
    // And one that grows, between two samples and within one that is asked for by group.
    model = &large;
    const Outcome split = sampler.collect(everything, ENOUGH);
    ASSERT_FALSE(split.failure);
    EXPECT_EQ(entriesOf(split.sample), entriesOf(large));
    // Known to be too large: not tried, however much time passes.
    const std::size_t connections = connectionsMade(server);
    sampler.begin(everything, Clock::now() + std::chrono::hours(1));
    EXPECT_GT(sampler.wait().sample.parts, 1u);
    EXPECT_EQ(connectionsMade(server), connections);
}

TEST_F(Split, APackThatGrewIsAskedForGroupByGroup) {
    ASSERT_FALSE(sampler.collect(everything, ENOUGH).failure);
    std::vector<simgateway::ResourceGroup> grown = manyGroups();
    for (int index = 1; index <= 100; index += 3) {
        grown[static_cast<std::size_t>(index)] = group("g" + std::to_string(index - 1), 40, std::string(50, 'w'));
    }
    const simgateway::Model other(std::move(grown));
    model = &other;
    const Outcome outcome = sampler.collect(everything, ENOUGH);
    ASSERT_FALSE(outcome.failure);
    EXPECT_EQ(entriesOf(outcome.sample), entriesOf(other));
    model = &large;
}

TEST_F(Split, OneDeadlineHoldsForAllAnswers) {
    ASSERT_FALSE(sampler.collect(everything, ENOUGH).failure);
    simgateway::Fault slow;
    slow.delay = Milliseconds(100);
    server.setFault(Exchange::invoke, slow);
    const Outcome outcome = sampler.collect(everything, Milliseconds(450));
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->kind, FailureKind::deadline);
    EXPECT_TRUE(outcome.sample.items.empty());
    server.setFault(Exchange::invoke, {});
    EXPECT_EQ(entriesOf(sampler.collect(everything, ENOUGH).sample), entriesOf(large));
}

TEST_F(Split, AGatewayThatRefusesEverythingFailsAsItDoesAtOnce) {
    simgateway::Fault refusal;
    refusal.replyRc = 42;
    server.setFault(Exchange::invoke, refusal);
    for (int times = 0; times < 2; ++times) {
        const Outcome outcome = sampler.collect(everything, ENOUGH);
        ASSERT_TRUE(outcome.failure);
        EXPECT_EQ(outcome.failure->rc, RC_REQUEST_FAILED);
        EXPECT_TRUE(outcome.sample.elements.empty());
    }
    // A value that fits no answer.
    server.setFault(Exchange::invoke, {});
    const simgateway::Model huge({group("one", 1, std::string(32760, 'x')), group("two", 3, "1")});
    model = &huge;
    EXPECT_EQ(sampler.collect(everything, ENOUGH).failure.value().kind, FailureKind::refused);
    model = &small;
    EXPECT_EQ(entriesOf(sampler.collect(everything, ENOUGH).sample), entriesOf(small));
}

}  // namespace monitor
