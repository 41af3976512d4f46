// SPDX-License-Identifier: MIT
#include "wire/scan.h"
#include "wire/word.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace zan::wire {
namespace {

// "NUMBER|REST", or "-|REST" without a number.
std::string taken(std::string_view text, std::size_t width = std::string_view::npos) {
    int value = 4711;
    const bool found = take_int(text, &value, width);
    EXPECT_TRUE(found || value == 4711);
    return (found ? std::to_string(value) : "-") + '|' + std::string(text);
}

TEST(TakeInt, ReadsAsScanfDoes) {
    EXPECT_EQ(taken("17 x"), "17| x");
    EXPECT_EQ(taken(" \t\n-17x"), "-17|x");
    EXPECT_EQ(taken("+5"), "5|");
    EXPECT_EQ(taken("007"), "7|");
    EXPECT_EQ(taken("0x1"), "0|x1");
    EXPECT_EQ(taken("  x"), "-|x");
    EXPECT_EQ(taken("-"), "-|-");
    EXPECT_EQ(taken("- 1"), "-|- 1");
    EXPECT_EQ(taken(""), "-|");
}

TEST(TakeInt, TakesTheNearestNumberThatFits) {
    EXPECT_EQ(taken("2147483647"), "2147483647|");
    EXPECT_EQ(taken("2147483648"), "2147483647|");
    EXPECT_EQ(taken("-2147483648"), "-2147483648|");
    EXPECT_EQ(taken("-2147483649"), "-2147483648|");
    EXPECT_EQ(taken(std::string(400, '9')), "2147483647|");
}

TEST(TakeInt, StopsAtTheWidth) {
    EXPECT_EQ(taken("12345", 2), "12|345");
    EXPECT_EQ(taken("-2345", 2), "-2|345");
    EXPECT_EQ(taken("-2345", 1), "-|-2345");
}

TEST(TakeWord, EndsAtWhiteSpaceOrTheEnd) {
    std::string_view text = "  one\ttwo\v";
    EXPECT_EQ(take_word(text), "one");
    EXPECT_EQ(take_word(text), "two");
    EXPECT_EQ(take_word(text), "");
    EXPECT_EQ(take_word(text), "");
}

TEST(UntilNul, EndsAtTheFirstNulOrTheEnd) {
    EXPECT_EQ(until_nul(std::string_view("ab\0cd", 5)), "ab");
    EXPECT_EQ(until_nul("abc"), "abc");
    EXPECT_EQ(until_nul(""), "");
}

TEST(Word, IsInHostOrderAndReadsMissingBytesAsZeros) {
    const auto bytes = store_word(0x01020304);
    EXPECT_EQ(load_word({bytes.data(), bytes.size()}), 0x01020304);
    EXPECT_EQ(load_word(""), 0);
    EXPECT_EQ(load_word(std::string(9, '\xff')), -1);
    std::int32_t copied = 0;
    std::memcpy(&copied, bytes.data(), 2);
    EXPECT_EQ(load_word({bytes.data(), 2}), copied);
    EXPECT_EQ(convert_word(convert_word(INT_MIN + 7)), INT_MIN + 7);
}

} // namespace
} // namespace zan::wire
