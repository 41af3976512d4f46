// SPDX-License-Identifier: MIT
#include "fault/faults.h"

#include "support/raw.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace {

using namespace zan::sim;
using Kind = Effect::Kind;

TEST(ParseFault, TakesActionsAndTheirArguments) {
    struct Case {
        const char *rule;
        Kind kind;
        int delay;
        int code;
        const char *text;
    };
    constexpr Case cases[] = {
        {"drop", Kind::drop, 0, 0, ""},
        {"  mute\t", Kind::mute, 0, 0, ""},
        {"header-only", Kind::header_only, 0, 0, ""},
        {"wrong-first", Kind::wrong_first, 0, 0, ""},
        {"die", Kind::die, 0, 0, ""},
        {"delay 250ms", Kind::none, 250, 0, ""},
        {"delay 2s", Kind::none, 2000, 0, ""},
        {"delay 1ms drop", Kind::drop, 1, 0, ""},
        {"die delay 3600s", Kind::die, 3600000, 0, ""},
        {"fail -1", Kind::fail, 0, -1, ""},
        {"fail -2147483648 \"\"", Kind::fail, 0, -2147483647 - 1, ""},
        {R"(fail -5 "disk \"full\" a\\b")", Kind::fail, 0, -5, "disk \"full\" a\\b"},
        {"class=CFG fail -5 \"x=1\" delay 5ms", Kind::fail, 5, -5, "x=1"},
    };
    for (const Case &one : cases) {
        const auto fault = parse_fault(one.rule);
        ASSERT_TRUE(fault) << one.rule << ": " << fault.error().text;
        EXPECT_EQ(fault->effect.kind, one.kind) << one.rule;
        EXPECT_EQ(fault->effect.delay.count(), one.delay) << one.rule;
        EXPECT_EQ(fault->effect.code, one.code) << one.rule;
        EXPECT_EQ(fault->effect.text, one.text) << one.rule;
        EXPECT_EQ(fault->text, one.rule);
    }
}

TEST(ParseFault, TellsThePlaceOfAMistake) {
    constexpr char actions[] = "delay, drop, mute, fail, header-only, wrong-first, die";
    constexpr char conditions[] = "class, command, path, source, probability, skip, times";
    struct Case {
        const char *rule;
        std::size_t column;
        std::string text;
    };
    const Case cases[] = {
        {"", 1, std::string("no action (") + actions + ")"},
        {"class=CFG", 1, std::string("no action (") + actions + ")"},
        {"drop klass=CFG", 6, std::string("\"klass\" is not a condition (") + conditions + ")"},
        {"drop =CFG", 6, std::string("\"\" is not a condition (") + conditions + ")"},
        {"drip", 1,
         std::string("\"drip\" is neither an action (") + actions +
             ") nor a condition like class=CFG"},
        {"drop \"die\"", 6,
         std::string("\"die\" is neither an action (") + actions +
             ") nor a condition like class=CFG"},
        {"drop die", 6, "a second action; only delay goes with another"},
        {"drop drop", 6, "a second action; only delay goes with another"},
        {"delay 1s drop delay 2s", 15, "delay is given twice"},
        {"drop delay", 6, "delay without a time, as in \"delay 250ms\""},
        {"delay 5", 7, "\"5\" is not a time from 1ms to 3600s"},
        {"delay 0ms", 7, "\"0ms\" is not a time from 1ms to 3600s"},
        {"delay 3601s", 7, "\"3601s\" is not a time from 1ms to 3600s"},
        {"delay 3600001ms", 7, "\"3600001ms\" is not a time from 1ms to 3600s"},
        {"delay ms", 7, "\"ms\" is not a time from 1ms to 3600s"},
        {"delay 1.5s", 7, "\"1.5s\" is not a time from 1ms to 3600s"},
        {"delay class=CFG", 7, "\"class=CFG\" is not a time from 1ms to 3600s"},
        {"fail", 1, "fail without a result, as in \"fail -5\""},
        {"fail 5", 6, "\"5\" is not a negative result"},
        {"fail 0", 6, "\"0\" is not a negative result"},
        {"fail -2147483649", 6, "\"-2147483649\" is not a negative result"},
        {"fail \"text\"", 6, "\"text\" is not a negative result"},
        {"fail -5 \"text", 9, "quotation mark without end"},
        {"drop path=\"/a b", 11, "quotation mark without end"},
        {"drop class=cfg", 6, "\"cfg\" is not a class"},
        {"drop class=0", 6, "\"0\" is not a class"},
        {"drop class=10", 6, "\"10\" is not a class"},
        {"drop command=gat", 6, "\"gat\" is not a command"},
        {"drop command=-1", 6, "\"-1\" is not a command"},
        {"drop command=2147483648", 6, "\"2147483648\" is not a command"},
        {"drop command=get class=NOTIFY", 6, "no command of that class is named \"get\""},
        {"drop path=", 6, "no pattern"},
        {"drop source=", 6, "no pattern"},
        {"drop path=/*/*/*/*/*", 6, "a pattern has at most 1023 characters and 4 stars"},
        {"drop class=CFG class=CFG", 16, "class is given twice"},
        {"drop probability=0", 6, "\"0\" is not a probability above 0 and up to 1, or 100%"},
        {"drop probability=1.01", 6, "\"1.01\" is not a probability above 0 and up to 1, or 100%"},
        {"drop probability=101%", 6, "\"101%\" is not a probability above 0 and up to 1, or 100%"},
        {"drop probability=nan", 6, "\"nan\" is not a probability above 0 and up to 1, or 100%"},
        {"drop probability=", 6, "\"\" is not a probability above 0 and up to 1, or 100%"},
        {"drop probability=1x", 6, "\"1x\" is not a probability above 0 and up to 1, or 100%"},
        {"drop skip=-1", 6, "\"-1\" is not a number from 0"},
        {"drop times=0", 6, "\"0\" is not a number from 1"},
        {"drop times=99999999999999999999", 6, "\"99999999999999999999\" is not a number from 1"},
    };
    for (const Case &one : cases) {
        const auto fault = parse_fault(one.rule);
        ASSERT_FALSE(fault) << one.rule;
        EXPECT_EQ(fault.error().column, one.column) << one.rule;
        EXPECT_EQ(fault.error().text, one.text) << one.rule;
    }
}

// How often the rule strikes among requests; one letter each, "x" or ".".
std::string strikes(Faults &faults, const FaultTarget &target, int requests) {
    std::string pattern;
    for (int i = 0; i < requests; ++i)
        pattern += faults.match(target) == nullptr ? '.' : 'x';
    return pattern;
}

constexpr FaultTarget get_name{1, 1, "/sys/name", "wlan"};

TEST(Faults, FitByClassCommandPathAndSource) {
    struct Case {
        const char *rule;
        FaultTarget target;
        bool matches;
    };
    constexpr Case cases[] = {
        {"drop", get_name, true},
        {"drop class=CFG", get_name, true},
        {"drop class=1 command=1", get_name, true},
        {"drop class=NOTIFY", get_name, false},
        {"drop command=get", get_name, true},
        {"drop command=set", get_name, false},
        {"drop command=2", get_name, false},
        {"drop command=2", {9, 2, "", "wlan"}, true},
        {"drop command=acknowledge", {9, 2, "", "wlan"}, true},
        {"drop command=acknowledge", {4, 2, "", "wlan"}, true},
        {"drop class=CFG command=99", {1, 99, "", "wlan"}, true},
        {"drop class=CWMP command=99", {2, 99, "", "wlan"}, true},
        {"drop path=/sys/*", get_name, true},
        {"drop path=/sys", get_name, false},
        {"drop path=**", {7, 9, "", "wlan"}, false},
        {"drop source=w*", get_name, true},
        {"drop source=lan", get_name, false},
        {"drop class=CFG command=get path=/** source=wlan", get_name, true},
    };
    for (const Case &one : cases) {
        Faults faults;
        ASSERT_TRUE(faults.add(one.rule)) << one.rule;
        EXPECT_EQ(faults.match(one.target) != nullptr, one.matches) << one.rule;
    }
}

TEST(Faults, StrikeTheRequestsThatAreCounted) {
    const auto pattern = [](const char *rule) {
        Faults faults;
        EXPECT_TRUE(faults.add(rule));
        faults.match({1, 2, "", "other"}); // does not fit, so it does not count
        return strikes(faults, get_name, 6);
    };
    EXPECT_EQ(pattern("drop command=get"), "xxxxxx");
    EXPECT_EQ(pattern("drop command=get times=2"), "xx....");
    EXPECT_EQ(pattern("drop command=get skip=4"), "....xx");
    EXPECT_EQ(pattern("drop command=get skip=2 times=1"), "..x...");
    EXPECT_EQ(pattern("drop command=get skip=0 times=100"), "xxxxxx");
}

TEST(Faults, StrikeByChanceTheSameForTheSameSeed) {
    const auto pattern = [](std::uint32_t seed, const char *rule) {
        Faults faults;
        faults.seed(seed);
        EXPECT_TRUE(faults.add(rule));
        return strikes(faults, get_name, 1000);
    };
    const auto count = [](const std::string &text) {
        return std::count(text.begin(), text.end(), 'x');
    };
    const std::string one = pattern(1, "drop probability=0.25");
    EXPECT_EQ(one, pattern(1, "drop probability=25%"));
    EXPECT_NE(one, pattern(2, "drop probability=0.25"));
    EXPECT_GT(count(one), 200);
    EXPECT_LT(count(one), 300);
    EXPECT_EQ(count(pattern(1, "drop probability=100%")), 1000);
    EXPECT_EQ(count(pattern(1, "drop probability=25% times=3")), 3);
    // Another rule before it does not move its chances, only its number does.
    Faults both;
    ASSERT_TRUE(both.add("drop class=NOTIFY"));
    ASSERT_TRUE(both.add("drop probability=0.25"));
    const std::string second = strikes(both, get_name, 1000);
    EXPECT_GT(count(second), 200);
    EXPECT_LT(count(second), 300);
}

TEST(Faults, AreTriedInTheirOrder) {
    Faults faults;
    ASSERT_TRUE(faults.add("fail -1 times=1"));
    ASSERT_TRUE(faults.add("fail -2 path=/sys/**"));
    ASSERT_TRUE(faults.add("fail -3"));
    EXPECT_EQ(faults.text(), "fail -1 times=1\nfail -2 path=/sys/**\nfail -3\n");
    EXPECT_EQ(faults.match(get_name)->effect.code, -1);
    EXPECT_EQ(faults.match(get_name)->effect.code, -2);
    EXPECT_EQ(faults.match({1, 1, "/a", "x"})->effect.code, -3);
    faults.clear();
    EXPECT_TRUE(faults.empty());
    EXPECT_EQ(faults.match(get_name), nullptr);
}

TEST(Faults, AreNotMoreThan256) {
    Faults faults;
    for (int i = 0; i < 256; ++i)
        ASSERT_TRUE(faults.add("drop"));
    EXPECT_EQ(faults.add("drop").error().text, "there are 256 rules already");
    faults.clear();
    EXPECT_TRUE(faults.add("drop"));
}

TEST(Faults, DoNotLookAtTextsLongerThanAPath) {
    Faults faults;
    ASSERT_TRUE(faults.add("drop path=*a*a*a*b"));
    const std::string longest(1023, 'a');
    EXPECT_EQ(faults.match({1, 1, longest + "b", "wlan"}), nullptr);
    EXPECT_NE(faults.match({1, 1, longest.substr(1) + "b", "wlan"}), nullptr);
}

TEST(Faults, AreReadFromAFileWithThePlaceOfAMistake) {
    constexpr char file[] = "/tmp/zan_faults";
    zan::test::write_file(file,
                          "# a comment\n\n  \t\n  drop class=CFG  \r\n# another\ndie times=1");
    Faults faults;
    ASSERT_TRUE(faults.load(file));
    EXPECT_EQ(faults.text(), "  drop class=CFG\ndie times=1\n");
    zan::test::write_file(file, "drop\n\n  fail 5\n");
    EXPECT_EQ(Faults().load(file).error().text,
              "/tmp/zan_faults:3:8: \"5\" is not a negative result");
    EXPECT_EQ(Faults().load("/none").error().text,
              "/none: cannot be read: No such file or directory");
    EXPECT_EQ(faults.add("drop path=").error().text, "column 6: no pattern");
}

} // namespace
