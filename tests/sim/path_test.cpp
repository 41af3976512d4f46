// SPDX-License-Identifier: MIT
#include "tree/path.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

bool pattern_covers(const char *pattern, const char *path) {
    return covers(*parse_pattern(pattern), *parse_path(path));
}

bool pattern_reaches(const char *pattern, const char *path) {
    return reaches_into(*parse_pattern(pattern), *parse_path(path));
}

TEST(ParsePath, TakesElementsWithAndWithoutInstances) {
    const auto path = parse_path("/sys/user:12/name");
    ASSERT_TRUE(path);
    const Path expected{{.name = "sys"}, {.name = "user", .instance = 12}, {.name = "name"}};
    EXPECT_EQ(*path, expected);
}

TEST(ParsePath, TakesTheRootAsNoElements) {
    EXPECT_TRUE(parse_path("/")->empty());
}

TEST(ParsePath, RefusesWhatIsNotAPath) {
    for (const char *const text :
         {"", "sys", "//", "/sys/", "/sys//user", "/a b", "/a%20", "/a\n", "/a#", "/:1", "/a=b"})
        EXPECT_EQ(parse_path(text).error().code, bad_path) << text;
}

TEST(ParsePath, NamesWhatIsWrong) {
    EXPECT_EQ(parse_path("sys").error().text, "bad path (it does not start with a slash): sys");
    EXPECT_EQ(parse_path("/a//b").error().text, "bad path (empty element): /a//b");
    EXPECT_EQ(parse_path("/a\n").error().text, "bad path (character in a name): /a\\n");
}

TEST(ParsePath, RefusesInstanceNumbersThatCannotBe) {
    for (const char *const text :
         {"/a:0", "/a:-1", "/a:", "/a:x", "/a:01", "/a:2147483648", "/a:1:2", "/a:#", "/a: 1"})
        EXPECT_EQ(parse_path(text).error().code, no_instance) << text;
    EXPECT_EQ(parse_path("/a:2147483647")->at(0).instance, 2147483647U);
}

TEST(ParsePath, TakesAtMost1023Characters) {
    EXPECT_TRUE(parse_path('/' + std::string(1022, 'a')));
    EXPECT_EQ(parse_path('/' + std::string(1023, 'a')).error().code, bad_path);
}

TEST(Covers, APathAndWhatLiesBelow) {
    EXPECT_TRUE(pattern_covers("/sys", "/sys"));
    EXPECT_TRUE(pattern_covers("/sys", "/sys/user:1/name"));
    EXPECT_TRUE(pattern_covers("/", "/sys/user:1"));
    EXPECT_FALSE(pattern_covers("/sys/user:1/name", "/sys/user:1"));
}

TEST(Covers, WholeElementsOnly) {
    EXPECT_FALSE(pattern_covers("/sys/us", "/sys/user:1"));
    EXPECT_FALSE(pattern_covers("/sys/user:1", "/sys/user:12"));
}

TEST(Covers, AnyInstanceWhereTheWildcardStands) {
    EXPECT_TRUE(pattern_covers("/sys/user:#/name", "/sys/user:12/name"));
    EXPECT_TRUE(pattern_covers("/sys/user:#", "/sys/user:3/name"));
    EXPECT_FALSE(pattern_covers("/sys/user:#/name", "/sys/user:12/home"));
    EXPECT_FALSE(pattern_covers("/sys/user:#", "/sys/user"));
}

TEST(Covers, EveryInstanceOfATable) {
    EXPECT_TRUE(pattern_covers("/sys/user", "/sys/user:2/name"));
}

TEST(ReachesInto, WhatLiesBelowADeletedNode) {
    EXPECT_TRUE(pattern_reaches("/sys/user:2/name", "/sys/user:2"));
    EXPECT_TRUE(pattern_reaches("/sys/user:#/name", "/sys/user:2"));
    EXPECT_TRUE(pattern_reaches("/sys/user:2/name", "/sys/user"));
    EXPECT_FALSE(pattern_reaches("/sys/user:3/name", "/sys/user:2"));
    EXPECT_FALSE(pattern_reaches("/sys", "/sys/user:2"));
}

} // namespace
