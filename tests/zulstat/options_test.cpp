// The command line of zulstat.
#include "options.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using namespace zulstat;
using monitor::Target;

Options parse(const std::string& line) {
    setenv("XDG_CONFIG_HOME", "/nosuch", 1);
    const std::vector<std::string> words = splitPieces("zulstat " + line, ' ');
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(ZulstatOptions, TakesIntervalAndCountFromEitherEnd) {
    struct {
        const char* line;
        double interval;
        std::optional<long> count;
        const char* ids;
        const char* groups;
    } const cases[] = {
        {"watch 2 5", 2, 5, "", ""},
        {"watch 2 5 a b", 2, 5, "a b", ""},
        {"watch a b 2 5", 2, 5, "a b", ""},
        {"watch a 2", 2, std::nullopt, "a", ""},
        {"watch 2 a 5", 2, 5, "a", ""},
        {"watch a -c 5 2", 2, 5, "a", ""},
        {"watch a 7 2 5", 2, 5, "a 7", ""},
        {"watch 2 5 a 7", 2, 5, "a 7", ""},
        {"watch a 7: -i 2 -c 5", 2, 5, "a 7", ""},
        {"watch -g a b 2 5", 2, 5, "", "a b"},
        {"watch 2 -g a 5", 2, 5, "", "a"},
        {"watch 2 5 -g 7", 2, 5, "", "7"},
        {"top a 2", 2, std::nullopt, "a", ""},
        {"top 2 a", 2, std::nullopt, "a", ""},
    };
    for (const auto& c : cases) {
        const Options options = parse(c.line);
        EXPECT_EQ(options.interval, c.interval) << c.line;
        EXPECT_EQ(options.count, c.count) << c.line;
        EXPECT_EQ(join(options.ids, " "), c.ids) << c.line;
        EXPECT_EQ(join(options.groups, " "), c.groups) << c.line;
    }
    for (const char* line : {"watch a -i 2 3", "watch a 2 5 -c 1", "watch a 2 0.5", "watch a 0.01"}) {
        EXPECT_THROW(parse(line), UsageError) << line;
    }
}

std::string shown(const std::vector<Target>& targets) {
    std::vector<std::string> texts;
    for (const Target& target : targets) {
        texts.push_back(target.host + " " + std::to_string(target.port));
    }
    return join(texts, ", ");
}

TEST(ZulstatOptions, TakesGatewaysWithAndWithoutPorts) {
    struct {
        const char* line;
        const char* targets;
    } const cases[] = {
        {"ids", "127.0.0.1 7531"},
        {"explain -H gw1:7000", "gw1 7000"},
        {"explain -H gw1:7000,gw2 -p 7001", "gw1 7000, gw2 7001"},
        {"explain -p 7001 -H gw2 --host gw1:7000 -H gw1:07", "gw2 7001, gw1 7000, gw1 7"},
        {"explain -H ::1,[::1]:9,[fe80::1%eth0],2001:db8::7:8",
         "::1 7531, ::1 9, fe80::1%eth0 7531, 2001:db8::7:8 7531"},
    };
    for (const auto& c : cases) {
        const Options options = parse(c.line);
        EXPECT_EQ(shown(options.targets), c.targets) << c.line;
        EXPECT_EQ(targetText(options.target), targetText(options.targets.front())) << c.line;
    }
    for (const char* line :
         {"ids -H gw1:x", "ids -H gw1:0", "ids -H gw1:65536", "ids -H gw1:", "ids -H :7531", "ids -H gw1,",
          "ids -H ,gw1", "ids -H []", "ids -H [::1", "ids -H [::1]7", "ids -H [::1]:", "ids -H [::1]x:7",
          "ids -H gw1,gw1", "ids -H gw1 -H gw1:7531", "ids -H ::1,[::1]:7531", "map -H gw1 -H gw2"}) {
        EXPECT_THROW(parse(line), UsageError) << line;
    }
}

TEST(ZulstatOptions, HelpIsForCommandsThatThereAre) {
    for (const char* line : {"help", "help stats", "--help", "stats --help", "stats a --help", "-q --help"}) {
        EXPECT_THROW(parse(line), TextWanted) << line;
    }
    for (const char* line : {"help nosuch", "nosuch --help"}) {
        EXPECT_THROW(parse(line), UsageError) << line;
    }
}

}  // namespace
