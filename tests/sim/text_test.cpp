// SPDX-License-Identifier: MIT
#include "base/text.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

TEST(EncodeField, LeavesPlainTextAsItIs) {
    EXPECT_EQ(encode_field("plain/text:1"), "plain/text:1");
}

TEST(EncodeField, CodesBlanksControlCharactersAndPercent) {
    EXPECT_EQ(encode_field("a b%c\n\t\x7f\x01"), "a%20b%25c%0A%09%7F%01");
}

TEST(EncodeField, WritesTheEmptyTextAsACodedNul) {
    EXPECT_EQ(encode_field(""), "%00");
    EXPECT_EQ(encode_field(std::string_view("\0", 1)), "%00");
}

TEST(EncodeField, LeavesOtherAlphabetsAndStrayBytesAsTheyAre) {
    EXPECT_EQ(encode_field("M\xc3\xbcller"), "M\xc3\xbcller");
    EXPECT_EQ(encode_field("\xff\xfe"), "\xff\xfe");
}

TEST(EncodeField, CutsBeforeACodedCharacterThatDoesNotFit) {
    EXPECT_EQ(encode_field("ab cd", 5), "ab%20");
    EXPECT_EQ(encode_field("ab cd", 4), "ab");
    EXPECT_EQ(encode_field("abc", 3), "abc");
    EXPECT_EQ(encode_field("abc", 2), "ab");
}

TEST(EncodeField, CutsBeforeASequenceThatDoesNotFit) {
    EXPECT_EQ(encode_field("a\xe2\x82\xac", 3), "a");
    EXPECT_EQ(encode_field("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
}

TEST(Escape, KeepsTheTextOnOneLine) {
    EXPECT_EQ(escape("a\nb\tc\x01"), "a\\nb\\tc\\x01");
    EXPECT_EQ(escape("\"\\"), "\\\"\\\\");
}

TEST(Escape, ShowsWhatIsNotUtf8AsBytes) {
    EXPECT_EQ(escape("\xc3\xbc"), "\xc3\xbc");
    EXPECT_EQ(escape("\xc3"), "\\xC3");
    EXPECT_EQ(escape("\xc0\xaf"), "\\xC0\\xAF");                   // overlong
    EXPECT_EQ(escape("\xed\xa0\x80"), "\\xED\\xA0\\x80");          // surrogate
    EXPECT_EQ(escape("\xf4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80"); // above the last code point
    EXPECT_EQ(escape("\xf0\x9f\x98\x80"), "\xf0\x9f\x98\x80");
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

TEST(IsReadable, AcceptsLinesOfUtf8Only) {
    EXPECT_TRUE(is_readable(""));
    EXPECT_TRUE(is_readable("two\nlines\t\xc3\xbc"));
    EXPECT_FALSE(is_readable(std::string_view("a\0b", 3)));
    EXPECT_FALSE(is_readable("\x1b[2J"));
    EXPECT_FALSE(is_readable("\xff"));
}

TEST(Hex, WritesTwoDigitsForEachByte) {
    EXPECT_EQ(hex(std::string_view("\x00\x0f\xff", 3)), "000FFF");
}

TEST(UntilNul, EndsAtTheFirstNulOrTheEnd) {
    EXPECT_EQ(until_nul(std::string_view("ab\0cd", 5)), "ab");
    EXPECT_EQ(until_nul("abc"), "abc");
}

TEST(ToNumber, TakesWholeDecimalNumbersOnly) {
    EXPECT_EQ(to_number("-17"), -17);
    EXPECT_EQ(to_number("007"), 7);
    EXPECT_EQ(to_number("9223372036854775807"), INT64_MAX);
    for (const char *const text : {"", " 1", "1 ", "+1", "1x", "0x1", "-", "9223372036854775808"})
        EXPECT_FALSE(to_number(text)) << text;
}

} // namespace
