// SPDX-License-Identifier: MIT
#include <zan.h>

#include "support/capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace zan::test {
namespace {

constexpr char guard = '\x7e';

// A writable copy of a text, as callers hand it to the trim functions.
struct Writable {
    explicit Writable(const std::string &text) : bytes(text.begin(), text.end()) {
        bytes.push_back('\0');
    }
    char *get() { return bytes.data(); }
    std::vector<char> bytes;
};

// ---- trimming --------------------------------------------------------------

TEST(Trim, RemovesBlanksAtBothEnds) {
    Writable text("  abc \t\n");
    char *trimmed = zan_trim(text.get());
    EXPECT_STREQ(trimmed, "abc");
    EXPECT_EQ(trimmed, text.get() + 2);
}

TEST(Trim, KeepsBlanksInside) {
    Writable text("\ta b\x01 c\r\n");
    EXPECT_STREQ(zan_trim(text.get()), "a b\x01 c");
}

TEST(Trim, MakesATextOfBlanksEmptyAtItsStart) {
    for (auto *trim : {zan_triml, zan_trimr, zan_trim}) {
        Writable text("   ");
        EXPECT_EQ(trim(text.get()), text.get());
        EXPECT_EQ(text.bytes[0], '\0');
    }
}

TEST(Trim, LeavesTheEmptyTextEmpty) {
    for (auto *trim : {zan_triml, zan_trimr, zan_trim}) {
        Writable text("");
        EXPECT_EQ(trim(text.get()), text.get());
        EXPECT_STREQ(text.get(), "");
    }
}

TEST(Trim, AnswersNullWithNull) {
    EXPECT_EQ(zan_triml(nullptr), nullptr);
    EXPECT_EQ(zan_trimr(nullptr), nullptr);
    EXPECT_EQ(zan_trim(nullptr), nullptr);
}

TEST(Trim, LeftLeavesTheRightEndAlone) {
    Writable text(" abc ");
    EXPECT_STREQ(zan_triml(text.get()), "abc ");
    EXPECT_STREQ(text.get(), " abc ");
}

TEST(Trim, RightLeavesTheLeftEndAlone) {
    Writable text(" abc ");
    EXPECT_EQ(zan_trimr(text.get()), text.get());
    EXPECT_STREQ(text.get(), " abc");
}

// Signed below 33: control characters, the space, and every byte from 128 up.
TEST(Trim, TakesEveryByteValueForWhatItIs) {
    for (int value = 1; value < 256; ++value) {
        SCOPED_TRACE(value);
        const bool blank = value < 33 || value > 127;
        const char byte = static_cast<char>(value);
        Writable left(std::string(1, byte) + "abc");
        EXPECT_EQ(zan_triml(left.get()), left.get() + (blank ? 1 : 0));
        Writable right(std::string("abc") + byte);
        zan_trimr(right.get());
        EXPECT_EQ(std::strlen(right.get()), blank ? 3U : 4U);
        Writable alone(std::string(1, byte));
        EXPECT_EQ(std::strlen(zan_trim(alone.get())), blank ? 0U : 1U);
    }
}

TEST(Trim, StripsBytesOfMultiByteCharacters) {
    Writable left("\xc3\xa9"
                  "abc");
    EXPECT_STREQ(zan_triml(left.get()), "abc");
    Writable right("abc\xa9");
    EXPECT_STREQ(zan_trimr(right.get()), "abc");
    Writable inside("a\xc3\xa9z");
    EXPECT_STREQ(zan_trim(inside.get()), "a\xc3\xa9z");
}

// ---- bounded copy ----------------------------------------------------------

TEST(Strcpy, CopiesAndTerminates) {
    StdoutCapture output;
    char buffer[8];
    std::memset(buffer, guard, sizeof buffer);
    EXPECT_EQ(zan_strcpy(buffer, "abc", sizeof buffer), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], guard);
    EXPECT_EQ(output.stop(), "");
}

TEST(Strcpy, CopiesTheEmptyText) {
    char buffer[8] = "old";
    EXPECT_EQ(zan_strcpy(buffer, "", sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(Strcpy, WritesNothingWithoutSourceOrDestination) {
    char buffer[8] = "old";
    EXPECT_EQ(zan_strcpy(buffer, nullptr, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "old");
    EXPECT_EQ(zan_strcpy(nullptr, "abc", 8), 0);
    EXPECT_EQ(zan_strcpy(nullptr, nullptr, 8), 0);
}

TEST(Strcpy, CutsAtTheSizeAndWarns) {
    StdoutCapture output;
    char buffer[16];
    std::memset(buffer, guard, sizeof buffer);
    EXPECT_EQ(zan_strcpy(buffer, "0123456789", 5), 4);
    EXPECT_STREQ(buffer, "0123");
    EXPECT_EQ(buffer[5], guard);
    EXPECT_EQ(output.stop(), overflow_warning("0123"));
}

TEST(Strcpy, CopiesATextThatJustFitsWithoutWarning) {
    StdoutCapture output;
    char buffer[8];
    EXPECT_EQ(zan_strcpy(buffer, "0123", 5), 4);
    EXPECT_STREQ(buffer, "0123");
    EXPECT_EQ(zan_strcpy(buffer, "0123456", 8), 7);
    EXPECT_STREQ(buffer, "0123456");
    EXPECT_EQ(output.stop(), "");
}

TEST(Strcpy, WarnsWhenASingleCharacterIsLost) {
    StdoutCapture output;
    char buffer[8];
    EXPECT_EQ(zan_strcpy(buffer, "01234", 5), 4);
    EXPECT_STREQ(buffer, "0123");
    EXPECT_EQ(output.stop(), overflow_warning("0123"));
}

class SmallSize : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(BelowFive, SmallSize, testing::Values(-2147483647 - 1, -1, 0, 1, 2, 3, 4));

TEST_P(SmallSize, MeansRoomFor1023CharactersInACopy) {
    StdoutCapture output;
    std::vector<char> buffer(1026, guard);
    const std::string fits(1023, 'f');
    EXPECT_EQ(zan_strcpy(buffer.data(), fits.c_str(), GetParam()), 1023);
    EXPECT_EQ(buffer.data(), fits);
    EXPECT_EQ(output.so_far(), "");

    const std::string longer = std::string(1023, 'l') + "m";
    EXPECT_EQ(zan_strcpy(buffer.data(), longer.c_str(), GetParam()), 1023);
    EXPECT_EQ(buffer.data(), std::string(1023, 'l'));
    EXPECT_EQ(buffer[1024], guard);
    EXPECT_EQ(output.stop(), overflow_warning(std::string(1023, 'l')));
}

// The address sanitizer sees a read behind the block.
TEST(Strcpy, ReadsNoFurtherThanItsBound) {
    StdoutCapture output;
    const std::vector<char> unterminated(5, 'x');
    char buffer[8];
    EXPECT_EQ(zan_strcpy(buffer, unterminated.data(), 5), 4);
    EXPECT_STREQ(buffer, "xxxx");
    EXPECT_EQ(output.stop(), overflow_warning("xxxx"));
}

TEST(Strcpy, PrintsTheTextOfAWarningAsItIs) {
    StdoutCapture output;
    char buffer[8];
    EXPECT_EQ(zan_strcpy(buffer, "%s%n%d!", 7), 6);
    EXPECT_EQ(output.stop(), overflow_warning("%s%n%d"));
}

// ---- bounded formatting ----------------------------------------------------

TEST(Sprintf, StoresTheFormattedText) {
    char buffer[32];
    std::memset(buffer, guard, sizeof buffer);
    EXPECT_EQ(zan_sprintf(buffer, sizeof buffer, "%s:%d/%c", "/sys/user", 3, 'n'), 13);
    EXPECT_STREQ(buffer, "/sys/user:3/n");
    EXPECT_EQ(buffer[14], guard);
}

TEST(Sprintf, CutsAtTheSizeAndReturnsWhatItStored) {
    StdoutCapture output;
    char buffer[16];
    std::memset(buffer, guard, sizeof buffer);
    EXPECT_EQ(zan_sprintf(buffer, 8, "%s", "123456789"), 7);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(buffer[8], guard);
    EXPECT_EQ(output.stop(), "");
}

TEST(Sprintf, KeepsATextThatJustFits) {
    char buffer[16];
    EXPECT_EQ(zan_sprintf(buffer, 8, "%d", 1234567), 7);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(zan_sprintf(buffer, 8, "%d", 12345678), 7);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(zan_sprintf(buffer, 5, "%d", 12345), 4);
    EXPECT_STREQ(buffer, "1234");
}

TEST(Sprintf, WritesNothingWhenTheSizeIsNegative) {
    char buffer[8] = "old";
    EXPECT_EQ(zan_sprintf(buffer, -1, "%d", 1), 0);
    EXPECT_EQ(zan_sprintf(buffer, -2147483647 - 1, "%d", 1), 0);
    EXPECT_STREQ(buffer, "old");
}

TEST(Sprintf, TakesASizeBelowFiveFor1024) {
    for (int size = 0; size < 5; ++size) {
        SCOPED_TRACE(size);
        std::vector<char> buffer(1026, guard);
        EXPECT_EQ(zan_sprintf(buffer.data(), size, "%s", std::string(1023, 'f').c_str()), 1023);
        EXPECT_EQ(buffer.data(), std::string(1023, 'f'));
        EXPECT_EQ(zan_sprintf(buffer.data(), size, "%s", std::string(5000, 'l').c_str()), 1023);
        EXPECT_EQ(buffer.data(), std::string(1023, 'l'));
        EXPECT_EQ(buffer[1024], guard);
    }
}

TEST(Sprintf, ReturnsZeroForAnEmptyText) {
    char buffer[8] = "old";
    EXPECT_EQ(zan_sprintf(buffer, sizeof buffer, "%s", ""), 0);
    EXPECT_STREQ(buffer, "");
}

// In the C locale a character outside ASCII has no multi-byte form.
TEST(Sprintf, PassesTheFormattersFailureOn) {
    char buffer[8];
    EXPECT_EQ(zan_sprintf(buffer, sizeof buffer, "%ls", L"\u20ac"), -1);
}

} // namespace
} // namespace zan::test
