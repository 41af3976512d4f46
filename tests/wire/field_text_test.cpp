// SPDX-License-Identifier: MIT
#include "wire/field_text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace zan::wire {
namespace {

std::string formatted(std::string_view text, std::size_t max = SIZE_MAX) {
    std::string field;
    format_field(field, text, max);
    return field;
}

std::optional<std::string> parsed(std::string_view field) {
    std::string text;
    if (!parse_field(text, field))
        return std::nullopt;
    return text;
}

TEST(FormatField, KeepsPlainText) {
    EXPECT_EQ(formatted("plain/text:1"), "plain/text:1");
}

TEST(FormatField, EncodesSpacesControlCharactersAndPercent) {
    EXPECT_EQ(formatted("a b%c\n\t\x7f\x01"), "a%20b%25c%0A%09%7F%01");
}

TEST(FormatField, WritesTheEmptyTextAsAnEncodedNul) {
    EXPECT_EQ(formatted(""), "%00");
    EXPECT_EQ(formatted(std::string_view("\0", 1)), "%00");
}

TEST(FormatField, KeepsOtherAlphabetsAndStrayBytes) {
    EXPECT_EQ(formatted("M\xc3\xbcller"), "M\xc3\xbcller");
    EXPECT_EQ(formatted("\xff\xfe"), "\xff\xfe");
}

TEST(FormatField, CutsBeforeAnEncodedCharacterThatDoesNotFit) {
    EXPECT_EQ(formatted("ab cd", 5), "ab%20");
    EXPECT_EQ(formatted("ab cd", 4), "ab");
    EXPECT_EQ(formatted("abc", 3), "abc");
    EXPECT_EQ(formatted("abc", 2), "ab");
}

TEST(FormatField, CutsBeforeASequenceThatDoesNotFit) {
    EXPECT_EQ(formatted("a\xe2\x82\xac", 3), "a");
    EXPECT_EQ(formatted("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
}

TEST(ParseField, DecodesEscapesOfBothCases) {
    EXPECT_EQ(parsed("a%20b%0Ac%0ad%25e"), "a b\nc\nd%e");
    EXPECT_EQ(parsed("%C3%BC"), "\xc3\xbc");
    EXPECT_EQ(parsed("plain"), "plain");
}

TEST(ParseField, TakesOneEncodedNulForTheEmptyText) {
    EXPECT_EQ(parsed("%00"), "");
    EXPECT_EQ(parsed("%00%00"), std::string(2, '\0'));
    EXPECT_EQ(parsed(""), "");
}

TEST(ParseField, RejectsEscapesWithoutTwoDigits) {
    for (const std::string_view field :
         {"%", "a%", "a%2", "%%", "%-1", "%+1", "% 1", "%2g", "%g2", "%20%"})
        EXPECT_EQ(parsed(field), std::nullopt) << field;
}

TEST(ParseField, ReversesFormatField) {
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte)
        every_byte += static_cast<char>(byte);
    EXPECT_EQ(parsed(formatted(every_byte)), every_byte);
}

TEST(WithoutCutEscape, RemovesAnIncompleteEscapeAtTheEnd) {
    EXPECT_EQ(without_cut_escape("ab%"), "ab");
    EXPECT_EQ(without_cut_escape("ab%2"), "ab");
    EXPECT_EQ(without_cut_escape("ab%20"), "ab%20");
    EXPECT_EQ(without_cut_escape("ab"), "ab");
    EXPECT_EQ(without_cut_escape(""), "");
}

TEST(Utf8Length, IsZeroForMalformedSequences) {
    EXPECT_EQ(utf8_length("a"), 1U);
    EXPECT_EQ(utf8_length(std::string_view("\0", 1)), 1U);
    EXPECT_EQ(utf8_length("\xc3\xbc"), 2U);
    EXPECT_EQ(utf8_length("\xe2\x82\xac"), 3U);
    EXPECT_EQ(utf8_length("\xf0\x9f\x98\x80"), 4U);
    for (const std::string_view text :
         {"\xc3", "\x80", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80",
          "\xe0\x80\x80", "\xf0\x80\x80\x80", "\xe2\x82", "\xc3\x28"})
        EXPECT_EQ(utf8_length(text), 0U);
}

} // namespace
} // namespace zan::wire
