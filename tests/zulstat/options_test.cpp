// The command line of zulstat.
#include "options.h"

#include <gtest/gtest.h>

namespace {

using namespace zulstat;

Options parse(const std::string& line) {
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

TEST(ZulstatOptions, HelpIsForCommandsThatThereAre) {
    for (const char* line : {"help", "help stats", "--help", "stats --help", "stats a --help", "-q --help"}) {
        EXPECT_THROW(parse(line), TextWanted) << line;
    }
    for (const char* line : {"help nosuch", "nosuch --help"}) {
        EXPECT_THROW(parse(line), UsageError) << line;
    }
}

}  // namespace
