// SPDX-License-Identifier: MIT
#include "base/glob.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

TEST(PathFits, ElementByElement) {
    struct Case {
        const char *pattern;
        const char *path;
        bool fits;
    };
    constexpr Case cases[] = {
        {"/sys/name", "/sys/name", true},
        {"/sys/name", "/sys/names", false},
        {"/sys/name", "/sys", false},
        {"/sys", "/sys/name", false},
        {"/sys/*", "/sys/name", true},
        {"/sys/*", "/sys", false},
        {"/sys/*", "/sys/user:1/name", false},
        {"/sys/*/name", "/sys/user:1/name", true},
        {"/sys/user:?/n*e", "/sys/user:1/name", true},
        {"/sys/user:?/name", "/sys/user:12/name", false},
        {"/sys/user:[12]/name", "/sys/user:2/name", true},
        {"/sys/user:[!12]/name", "/sys/user:2/name", false},
        {"/**", "/sys/user:1/name", true},
        {"**", "/sys/user:1/name", true},
        {"/sys/**", "/sys", true},
        {"/sys/**", "/system", false},
        {"/**/name", "/name", true},
        {"/**/name", "/sys/user:1/name", true},
        {"/**/user:*/**", "/sys/user:1/a/b", true},
        {"/**/x/**/y", "/a/x/b/c/y", true},
        {"/**/x/**/y", "/a/y/b/x", false},
        {"*", "/sys", false},
        {"*", "new.json", true},
        {"/a\\*", "/a*", true},
        {"/a\\*", "/ab", false},
        {"/[", "/[", true},
        {"", "", true},
        {"", "/a", false},
    };
    for (const Case &one : cases)
        EXPECT_EQ(path_matches(one.pattern, one.path), one.fits) << one.pattern << ' ' << one.path;
}

TEST(TextFits, AsAWhole) {
    EXPECT_TRUE(text_matches("w*", "wlan"));
    EXPECT_TRUE(text_matches("*", "a/b"));
    EXPECT_TRUE(text_matches("*", ""));
    EXPECT_FALSE(text_matches("wlan", "wlan2"));
    EXPECT_FALSE(text_matches("", "a"));
}

} // namespace
