// SPDX-License-Identifier: MIT
#include "decode/text.h"

#include <gtest/gtest.h>

namespace zan::decode {
namespace {

TEST(Escape, KeepsTheTextOnOneLine) {
    EXPECT_EQ(escape("a\nb\tc\x01"), "a\\nb\\tc\\x01");
    EXPECT_EQ(escape("\"\\"), "\\\"\\\\");
    EXPECT_EQ(escape(std::string_view("\0\x1b\x7f", 3)), "\\x00\\x1B\\x7F");
}

TEST(Escape, ShowsBytesThatAreNotUtf8) {
    EXPECT_EQ(escape("\xc3\xbc"), "\xc3\xbc");
    EXPECT_EQ(escape("\xc3"), "\\xC3");
    EXPECT_EQ(escape("\xc0\xaf"), "\\xC0\\xAF");                   // overlong
    EXPECT_EQ(escape("\xed\xa0\x80"), "\\xED\\xA0\\x80");          // surrogate
    EXPECT_EQ(escape("\xf4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80"); // above the last code point
    EXPECT_EQ(escape("\xf0\x9f\x98\x80"), "\xf0\x9f\x98\x80");
}

TEST(Hex, WritesTwoDigitsForEachByte) {
    EXPECT_EQ(hex(std::string_view("\x00\x0f\xff", 3)), "000FFF");
}

TEST(Unhex, TakesPairsOfDigitsAndNothingElse) {
    EXPECT_EQ(unhex(""), "");
    EXPECT_EQ(unhex("00fF7a"), std::string("\0\xff"
                                           "z",
                                           3));
    EXPECT_EQ(unhex(hex("any \xff")), "any \xff");
    for (const char *const text : {"0", "000", "0x", "x0", "-1", "+1", " 1", "1 "})
        EXPECT_FALSE(unhex(text)) << text;
}

TEST(AsUtf8, ReplacesStrayBytesOneByOne) {
    EXPECT_EQ(as_utf8("a\xff\xc3\xbc\xc3"), "a?\xc3\xbc?");
    EXPECT_EQ(as_utf8(""), "");
}

TEST(IsReadable, AcceptsLinesOfUtf8Only) {
    EXPECT_TRUE(is_readable(""));
    EXPECT_TRUE(is_readable("two\nlines\t\xc3\xbc"));
    EXPECT_FALSE(is_readable(std::string_view("a\0b", 3)));
    EXPECT_FALSE(is_readable("\x1b[2J"));
    EXPECT_FALSE(is_readable("\xff"));
}

} // namespace
} // namespace zan::decode
