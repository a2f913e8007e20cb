// Globs, networks, rules and the mapping file.
#include "monitor/mapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "monitor/glob.h"
#include "monitor/mapping_file.h"
#include "monitor/network.h"
#include "monitor/openmetrics.h"

namespace monitor {

namespace {

// One sample after the other of one element.
std::string metricsOf(Mapper& mapper, const std::vector<std::pair<std::string, std::string>>& items) {
    Sample sample;
    sample.addElement("e", 0);
    for (const auto& [id, value] : items) {
        sample.addItem(sample.keep(id), sample.keep(value));
    }
    OpenMetrics metrics;
    metrics.add(sample, {}, &mapper);
    const std::string text = metrics.text();
    std::string samples;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        const std::string line = text.substr(begin, end - begin);
        samples += line[0] == '#' || line.starts_with("zulstat_element") || line.starts_with("zulstat_open") ||
                           line.starts_with("zulstat_query") || line.starts_with("zulstat_content")
                       ? ""
                       : line + "\n";
        begin = end + 1;
    }
    return samples;
}

Mapper mapperOf(const std::string& rules) {
    return Mapper(parseMapping("modules: {default: {rules: [" + rules + "]}}", "f").modules.at("default"));
}

std::string errorOf(const std::string& text) {
    try {
        parseMapping(text, "f");
    } catch (const MappingFileError& error) {
        return error.what();
    }
    return {};
}

}  // namespace

TEST(Mapping, GlobsTellWhatStarsMatched) {
    using Stars = std::vector<std::string_view>;
    EXPECT_EQ(matchGlob("a.*.b", "a.x.y.b"), (Stars{"x.y"}));
    EXPECT_EQ(matchGlob("*.*", "a.b.c"), (Stars{"a", "b.c"}));
    EXPECT_EQ(matchGlob("*", ""), (Stars{""}));
    EXPECT_EQ(matchGlob("a?c", "abc"), (Stars{}));
    EXPECT_FALSE(matchGlob("a?c", "ac"));
    EXPECT_FALSE(matchGlob("*a", "ab"));
    EXPECT_FALSE(matchGlob("a", "ab"));
    EXPECT_EQ(matchGlob("*a*b*", "xaxbxaxb").value().size(), 3u);
    EXPECT_FALSE(matchGlob(std::string(50, '*') + "b", std::string(10000, 'a')));  // soon
    EXPECT_EQ(fillIn("$1-$2$$1$3$", {"x", "y"}), "x-y$1$");
}

TEST(Mapping, NetworksHoldAddresses) {
    for (const auto& [network, address, holds] :
         std::vector<std::tuple<const char*, const char*, bool>>{{"10.0.0.0/8", "10.255.1.2", true},
                                                                 {"10.0.0.0/8", "11.0.0.0", false},
                                                                 {"10.1.2.3", "10.1.2.3", true},
                                                                 {"10.1.2.3", "10.1.2.2", false},
                                                                 {"0.0.0.0/0", "255.1.1.1", true},
                                                                 {"0.0.0.0/0", "::1", false},
                                                                 {"2001:db8::/33", "2001:db8:7fff::1", true},
                                                                 {"2001:db8::/33", "2001:db8:8000::1", false},
                                                                 {"127.0.0.0/8", "::ffff:127.1.2.3", true},
                                                                 {"::1 192.0.2.0/24", "192.0.2.9", true},
                                                                 {"10.0.0.0/33", "10.0.0.0", false},
                                                                 {"fe80::/10", "fe80::1%eth0", true},
                                                                 {"0.0.0.0/0", "127.1", false},
                                                                 {"", "10.0.0.1", false}}) {
        EXPECT_EQ(anyContains(network, address), holds) << network << " " << address;
    }
}

TEST(Mapping, TheFirstRuleMakesTheMetric) {
    Mapper mapper = mapperOf(
        "{match: x.drop, type: drop}, {match: 'x.*.total', type: counter, name: x_total, labels: {of: $1}},"
        "{match: x.size, type: gauge, name: x_bytes, extract: {KB: 1000, '': 1}},"
        "{match: x.state, type: stateset, name: x_state, states: [A, 'B \"']},"
        "{match: x.at, type: gauge, name: x_at_seconds}, {match: x.name, type: info, name: x_name_info},"
        "{match: 'x.*', type: gauge, name: other_$1_total, scale: 0.001}");
    EXPECT_EQ(metricsOf(mapper, {{"x.drop", "1"},
                                 {"x.in.total", "18446744073709551615"},
                                 {"x.out.total", "-1"},
                                 {"x.size", "1.5 KB of 2"},
                                 {"x.state", "B \""},
                                 {"x.at", "1970-01-01T00:01:00Z"},
                                 {"x.name", "n"},
                                 {"x.a-b", "1500"},
                                 {"y", "5"}}),
              "x_total{element=\"e\",of=\"in\"} 18446744073709551615\n"
              "gateway_x_out_total_value{element=\"e\",id=\"x.out.total\"} -1\n"
              "x_bytes{element=\"e\"} 1500\n"
              "x_state{element=\"e\",x_state=\"A\"} 0\nx_state{element=\"e\",x_state=\"B \\\"\"} 1\n"
              "x_at_seconds{element=\"e\"} 60\n"
              "x_name_info{element=\"e\",value=\"n\"} 1\n"
              "other_a_b_total_value{element=\"e\"} 1.5\n"
              "gateway_y{element=\"e\",id=\"y\"} 5\n");
    EXPECT_EQ(mapper.counts.notNumbers, 1u);
    // What fits no rule's values is as it is without one.
    EXPECT_EQ(metricsOf(mapper, {{"x.size", "2 MB"}, {"x.state", "C"}}),
              "zulstat_text{element=\"e\",id=\"x.size\",value=\"2 MB\"} 1\n"
              "zulstat_text{element=\"e\",id=\"x.state\",value=\"C\"} 1\n"
              "x_state{element=\"e\",x_state=\"A\"} 0\nx_state{element=\"e\",x_state=\"B \\\"\"} 0\n");
    EXPECT_EQ(mapper.counts.unknownStates, 1u);
}

TEST(Mapping, SharedNamesAreKept) {
    Mapper mapper = mapperOf(
        "{match: 'a.*', type: gauge, name: n}, {match: bb, type: counter, name: n},"
        "{match: c, type: gauge, name: gateway_dd}, {match: e, type: counter, name: gateway_ff}");
    EXPECT_EQ(
        metricsOf(
            mapper,
            {{"a.1", "1"}, {"a.2", "2"}, {"a.2", "3"}, {"bb", "4"}, {"c", "5"}, {"dd", "6"}, {"e", "7"}, {"ff", "8"}}),
        "n{element=\"e\",id=\"a.1\"} 1\nn{element=\"e\",id=\"a.2\"} 2\nn{element=\"e\",id=\"a.2\",repeated=\"2\"} 3\n"
        "gateway_bb{element=\"e\",id=\"bb\"} 4\n"
        "gateway_dd{element=\"e\"} 5\ngateway_dd{element=\"e\",id=\"dd\"} 6\n"
        "gateway_ff_total{element=\"e\"} 7\ngateway_ff_unmapped{element=\"e\",id=\"ff\"} 8\n");
    EXPECT_EQ(mapper.counts.sameNames, 3u);
    EXPECT_EQ(mapper.counts.otherTypes, 1u);
}

// Whatever an identifier holds, names are those of metrics, and no label is there twice.
TEST(Mapping, NamesFromStarsAreNames) {
    Mapper mapper = mapperOf(
        "{match: 'l.*', type: gauge, name: $1}, {match: 'n:*', type: gauge, name: 'a:$1'},"
        "{match: 's.*', type: stateset, name: $1, states: [A], labels: {own: x}}");
    EXPECT_EQ(metricsOf(mapper, {{"l.1m", "1"},
                                 {"l.", "2"},
                                 {"l.zulstat_up", "3"},
                                 {"n:b", "4"},
                                 {"s.element", "A"},
                                 {"s.own", "A"},
                                 {"s.__x", "A"},
                                 {"s.5", "A"}}),
              "_1m{element=\"e\"} 1\n"
              "_{element=\"e\"} 2\n"
              "_zulstat_up{element=\"e\"} 3\n"
              "a:b{element=\"e\"} 4\n"
              "state_element{element=\"e\",own=\"x\",state_element=\"A\"} 1\n"
              "state_own{element=\"e\",own=\"x\",state_own=\"A\"} 1\n"
              "state___x{element=\"e\",own=\"x\",state___x=\"A\"} 1\n"
              "_5{element=\"e\",own=\"x\",_5=\"A\"} 1\n");
}

TEST(Mapping, TextsHaveLimits) {
    Mapper mapper = mapperOf("");
    std::vector<std::pair<std::string, std::string>> many;
    for (int index = 0; index < 205; ++index) {
        many.emplace_back("t" + std::to_string(index), "text");
    }
    many[0].second = std::string(127, 'x') + "\xC3\xA4\xC3\xA4";
    const std::string metrics = metricsOf(mapper, many);
    EXPECT_EQ(std::count(metrics.begin(), metrics.end(), '\n'), 200);
    EXPECT_NE(metrics.find("\"" + std::string(127, 'x') + "\xC3\xA4\""), std::string::npos);
    EXPECT_EQ(mapper.counts.manyTexts, 5u);
    EXPECT_EQ(mapper.counts.longTexts, 1u);

    Mapper changing = mapperOf("");
    std::string shown;
    for (int sample = 0; sample < 18; ++sample) {
        const int change = std::min(sample, 4);
        shown += metricsOf(changing, {{"t", "v" + std::to_string(change)}}).empty() ? '-' : 't';
    }
    // The third change takes it away; ten samples later fewer than three are remembered.
    EXPECT_EQ(shown, "ttt---------tttttt");
    EXPECT_EQ(changing.counts.changingTexts, 9u);
}

TEST(Mapping, ErrorsNameThePlaceAndWhatWasExpected) {
    for (const auto& [text, error] : std::vector<std::pair<std::string, std::string>>{
             {"modules:\n  a:\n    rulez: []",
              "f:3:5: unknown key 'rulez', expected groups, include, exclude, deadline, rules"},
             {"- a", "f:1:1: expected the file: allow, targets, modules, a colon behind each"},
             {"allow: x", "f:1:8: expected a list of addresses, networks and host names"},
             {"a: [", "f:1:1: end of sequence flow not found"},
             {"modules: {a: {}, a: {}}", "f:1:18: 'a' is there twice"},
             {"modules: {a: {deadline: soon}}", "f:1:25: 'soon' is not a number of seconds"},
             {"targets: [{target: 'x:1', module: b}]", "f:1:35: the target x:1 has the module 'b', which is not there"},
             {"modules: {a: {rules: [{match: x, type: sum}]}}",
              "f:1:40: 'sum' is no type, expected counter, gauge, stateset, info or drop"},
             {"modules: {a: {rules: [{match: x, type: gauge}]}}",
              "f:1:23: expected the key 'name', with a metric's name"},
             {"modules: {a: {rules: [{match: 'x*', type: gauge, name: a_$2}]}}",
              "f:1:56: '$2' stands for a '*' of 'match', which has 1"},
             {"modules: {a: {rules: [{match: x, type: gauge, name: a-b}]}}",
              "f:1:53: 'a-b' is not a metric's name: letters, digits, '_' and ':'"},
             {"modules: {a: {rules: [{match: x, type: info, name: a, scale: 2}]}}",
              "f:1:62: 'scale' goes with the types counter and gauge only"},
             {"modules: {a: {rules: [{match: x, type: stateset, name: a}]}}",
              "f:1:23: expected the key 'states', with a list of states"},
             {"modules: {a: {rules: [{match: x, type: stateset, name: 'a:b', states: [A]}]}}",
              "f:1:56: 'a:b' is not the name of a stateset, which is a label too: letters, digits and '_'"},
             {"modules: {a: {rules: [{match: x, type: stateset, name: id, states: [A]}]}}",
              "f:1:56: the label 'id' of that stateset is there already"},
             {"modules: {a: {rules: [{match: x, type: stateset, name: s, states: [A], labels: {s: t}}]}}",
              "f:1:56: the label 's' of that stateset is there already"},
             {"modules: {a: {groups: ['a:b']}}", "f:1:23: 'a:b' is not the name of a resource group"},
             {"modules: {a: {rules: [{match: x, type: gauge, name: a, labels: {id: x}}]}}",
              "f:1:69: the label 'id' is there already"}}) {
        EXPECT_EQ(errorOf(text), error) << text;
    }
    EXPECT_EQ(errorOf(""), "");
    EXPECT_EQ(errorOf("allow:\nmodules: {a: }"), "");
}

}  // namespace monitor
