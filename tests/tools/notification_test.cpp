// SPDX-License-Identifier: MIT
#include "notification.h"
#include "printable.h"

#include <gtest/gtest.h>

namespace zan::ctl {
namespace {

std::string decoded(std::string_view value) {
    return decode_change("m", "/a", value, "/a", 1, 0).value;
}

TEST(Notification, KeepsTheFieldsByPosition) {
    const Change change = decode_change("wifid", "/a/b", "v", "/a", 3, 17);
    EXPECT_EQ(change.source, "wifid");
    EXPECT_EQ(change.path, "/a/b");
    EXPECT_EQ(change.value, "v");
    EXPECT_EQ(change.subscribed, "/a");
    EXPECT_EQ(change.kind, 3);
    EXPECT_EQ(change.option, 17);
    EXPECT_FALSE(change.cut);
}

TEST(Notification, DecodesEscapesOfBothCases) {
    EXPECT_EQ(decoded("a%20b%0Ac%0ad%25e"), "a b\nc\nd%e");
    EXPECT_EQ(decoded("%C3%BC"), "\xc3\xbc");
}

TEST(Notification, DecodesTheEmptyValue) {
    EXPECT_EQ(decoded("%00"), "");
    EXPECT_EQ(decoded("%00%00"), std::string(2, '\0'));
    EXPECT_EQ(decoded(""), "");
}

TEST(Notification, KeepsTextThatIsNotEncoded) {
    for (const std::string value :
         {"%", "a%", "a%2", "%%", "%-1", "%+1", "% 1", "%2g", "%g2", "%20%"})
        EXPECT_EQ(decoded(value), value);
}

TEST(Notification, MarksAValueThatFillsItsField) {
    const std::string before(1020, 'v');
    EXPECT_FALSE(decode_change("m", "/a", before + "xy", "", 1, 0).cut);
    EXPECT_TRUE(decode_change("m", "/a", before + "xyz", "", 1, 0).cut);
    EXPECT_EQ(decoded(before + "%20"), before + " ");
    EXPECT_EQ(decoded(before + "x%2"), before + "x");
    EXPECT_EQ(decoded(before + "xx%"), before + "xx");
    EXPECT_EQ(decoded(before + "%%2"), before + "%%2");
}

TEST(Notification, NamesTheKinds) {
    EXPECT_EQ(kind_text(1), "changed");
    EXPECT_EQ(kind_text(2), "added");
    EXPECT_EQ(kind_text(3), "deleted");
    EXPECT_EQ(kind_text(0), "0");
    EXPECT_EQ(kind_text(4), "4");
    EXPECT_EQ(kind_text(-1), "-1");
}

TEST(Notification, PrintableTextStaysOnOneLine) {
    EXPECT_EQ(printable("plain \xc3\xbc text"), "plain \xc3\xbc text");
    EXPECT_EQ(printable(std::string_view("\0\n\x1f\x7f\\", 5)), "\\x00\\x0A\\x1F\\x7F\\x5C");
}

} // namespace
} // namespace zan::ctl
