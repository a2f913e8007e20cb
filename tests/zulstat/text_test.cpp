// Texts, numbers, globs and ranges of zulstat.
#include "text.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "charset.h"
#include "monitor/number.h"
#include "monitor/utf8.h"
#include "range.h"

namespace {

using namespace monitor;
using namespace zulstat;

[[maybe_unused]] const bool usersLocaleIsSet = [] {
    setenv("LC_ALL", "C.UTF-8", 1);
    setLocale();
    return true;
}();

TEST(ZulstatText, EscapesWhatATerminalWouldObey) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> cases[] = {
        {"plain gr\xc3\xbc\xc3\x9f", "plain gr\xc3\xbc\xc3\x9f"},
        {"a\nb\tc\\\x1b[0m\x7f\0"s, "a\\nb\\tc\\\\\\x1b[0m\\x7f\\x00"},
        {"\xc2\x9b\xe2\x80\xae", "\\u009b\\u202e"},
        {"\xff\xc3 \xe4\xb8", "\\xff\\xc3 \\xe4\\xb8"},
        {"\xc0\xaf\xed\xa0\x80", "\\xc0\\xaf\\xed\\xa0\\x80"},
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        {"a\xc2\xad\xe1\xa0\x8e\xe2\x80\x8b\xef\xbb\xbf", "a\\u00ad\\u180e\\u200b\\ufeff"},
        {"\xf3\xa0\x80\x81\xf3\xa0\x81\x81\xef\xb8\x8f", "\\ue0001\\ue0041\\ufe0f"},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(escapeForTerminal(bytes), expected);
    }
    EXPECT_EQ(repairUtf8("a\xff\xe2\x82z\n"), "a\xEF\xBF\xBD\xEF\xBF\xBDz\n");
    EXPECT_EQ(columnWidth("gr\xc3\xbc\xe4\xb8\xad"), 5u);
    EXPECT_EQ(padLeft("\xc3\xbc", 3), "  \xc3\xbc");
}

TEST(ZulstatText, TakesDecimalsForNumbers) {
    // What JSON has as a number too loses nothing there.
    for (const char* text : {"0", "-1", "8.04", "1e5", "-12.50", "0.0", "123456789012345e-20", "9223372036854775807",
                             "18446744073709551615", "-9223372036854775808"}) {
        EXPECT_TRUE(parseNumber(text)) << text;
        EXPECT_EQ(parseExactNumber(text), parseNumber(text)) << text;
    }
    const std::pair<const char*, double> lossy[] = {
        {"17.442674924057755", 17.442674924057755},
        {"0.1234567890123456", 0.1234567890123456},
        {"18446744073709551616", 18446744073709551616.0},
        {"-9223372036854775809", -9223372036854775809.0},
        {"007", 7},
        {"+5", 5},
        {"+1.5E+2", 150},
        {"5.", 5},
        {".5", 0.5},
        {"-.5e1", -5},
        {"-0", 0},
        {"1e-400", 0},
        {"0.00000000000000000000000000000000000000000000000000000000000000001", 1e-65},
    };
    for (const auto& [text, value] : lossy) {
        ASSERT_TRUE(parseNumber(text)) << text;
        EXPECT_EQ(toDouble(*parseNumber(text)), value) << text;
        EXPECT_FALSE(parseExactNumber(text)) << text;
    }
    for (const char* text : {"",    "-",    "+",   ".",   "-.",  "e5", ".e5", " 5",    "5 ",    "--5",
                             "+-5", "0x10", "1_0", "nan", "inf", "1e", "1e+", "1.2.3", "1e999", "12,5"}) {
        EXPECT_FALSE(parseNumber(text)) << text;
        EXPECT_FALSE(parseExactNumber(text)) << text;
    }
    EXPECT_EQ(parseNumber("+18446744073709551615"), Number(std::uint64_t{18446744073709551615u}));
    const auto distance = [](const char* later, const char* earlier) {
        return difference(*parseNumber(later), *parseNumber(earlier));
    };
    EXPECT_EQ(distance("18446744073709551615", "18446744073709551613"), 2);
    EXPECT_EQ(distance("9223372036854775806", "9223372036854775807"), -1);
    EXPECT_EQ(distance("-5", "7"), -12);
    EXPECT_EQ(distance("5", "-7"), 12);
    EXPECT_EQ(distance("18446744073709551615", "-1"), 18446744073709551616.0);
    EXPECT_EQ(distance("1.5", "1"), 0.5);
}

TEST(ZulstatText, TakesMomentsWithAZone) {
    const std::pair<const char*, double> moments[] = {
        {"1970-01-01T00:00:00Z", 0},
        {"2026-11-21T13:15:55.024Z", 1795266955.024},
        {"2026-11-21T14:15:55+01:00", 1795266955},
        {"2026-11-21T10:45:55-02:30", 1795266955},
        {"2016-12-31T23:59:60Z", 1483228800},
        {"1969-12-31T23:59:59.5Z", -0.5},
        {"2024-02-29T00:00:00Z", 1709164800},
    };
    for (const auto& [text, seconds] : moments) {
        EXPECT_EQ(parseMoment(text), std::optional(seconds)) << text;
    }
    for (const char* text :
         {"", "2026-11-21", "2026-11-21T13:15:55", "2026-11-21 13:15:55Z", "2026-11-21T13:15Z", "2026-13-21T13:15:55Z",
          "2023-02-29T00:00:00Z", "2026-11-21T24:00:00Z", "2026-11-21T13:15:55.Z", "2026-11-21T13:15:55ZZ",
          "2026-11-21T13:15:55+1:00", "2026-11-21T13:15:55+01:60", "-026-11-21T13:15:55Z"}) {
        EXPECT_FALSE(parseMoment(text)) << text;
    }
}

TEST(ZulstatText, GlobsMatchWholeTexts) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"conn.*", "conn.open", true},
        {"conn.*", "xconn.open", false},
        {"*", "", true},
        {"a*b*c", "axxbxxbc", true},
        {"a*b*c", "axxbxx", false},
        {"?", "", false},
        {"[a-c]x", "bx", true},
        {"[!a-c]x", "bx", false},
        {"a?z", "a\xc3\xbcz", true},
        {"a?z", "a\xffz", true},
        {"[abc", "[abc", true},
        {"\\*", "*", true},
        {"*a*a*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
    };
    using namespace std::string_literals;
    EXPECT_FALSE(globMatches("a", "a\0b"s));
    EXPECT_TRUE(globMatches("a?b", "a\0b"s));
    EXPECT_TRUE(globMatches("*b", "a\0b"s));
    for (const auto& [glob, text, expected] : cases) {
        EXPECT_EQ(globMatches(glob, text), expected) << glob << " " << text;
    }
    const std::vector<GlobRule> rules = {{true, "a.b"}, {false, "a.*"}, {true, "a.c"}};
    EXPECT_TRUE(keeps(rules, "a.b"));
    EXPECT_FALSE(keeps(rules, "a.c"));
    EXPECT_FALSE(keeps(rules, "z"));
    EXPECT_TRUE(keeps(std::vector<GlobRule>{{false, "a.*"}}, "z"));
    // What a selection means, and what the rules leave of it.
    const IdFilter wanted = {{"a.*", "b[0]"}, {{false, "a.b"}}};
    EXPECT_TRUE(keeps(wanted, "a.c"));
    EXPECT_TRUE(keeps(wanted, "b[0]"));
    EXPECT_FALSE(keeps(wanted, "a.b"));
    EXPECT_FALSE(keeps(wanted, "z"));
}

TEST(ZulstatRange, AlertsAsPluginsDo) {
    const std::tuple<const char*, double, bool> cases[] = {
        {"10", 10, false},    {"10", -1, true},     {"10", 10.1, true}, {"10:", 9, true},
        {"10:", 11, false},   {"~:10", -99, false}, {"~:10", 11, true}, {"10:20", 21, true},
        {"@10:20", 20, true}, {"@10:20", 9, false}, {":5", 6, true},
    };
    for (const auto& [text, value, expected] : cases) {
        EXPECT_EQ(parseRange(text)->alerts(value), expected) << text << " " << value;
    }
    for (const char* text : {"", ":", "@", "20:10", "x", "1:2:3", "1:x", "nan", "inf", "1~"}) {
        EXPECT_FALSE(parseRange(text)) << text;
    }
}

}  // namespace
