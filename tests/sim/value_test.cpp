// SPDX-License-Identifier: MIT
#include "tree/value.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

std::string stored(const Leaf &leaf, std::string_view text) {
    const auto accepted = accepted_value(leaf, text);
    return accepted ? *accepted : accepted.error().text;
}

TEST(AcceptedValue, TakesAnyTextForAString) {
    const Leaf leaf;
    EXPECT_EQ(stored(leaf, ""), "");
    EXPECT_EQ(stored(leaf, " two words "), " two words ");
    EXPECT_EQ(stored(leaf, std::string(35000, 'x')), std::string(35000, 'x'));
    EXPECT_EQ(accepted_value(leaf, std::string(35001, 'x')).error().code, too_long);
}

TEST(AcceptedValue, HoldsAStringToItsLength) {
    Leaf leaf;
    leaf.max_length = 3;
    EXPECT_EQ(stored(leaf, "abc"), "abc");
    EXPECT_EQ(accepted_value(leaf, "abcd").error().code, too_long);
    EXPECT_EQ(stored(leaf, "abcd"), "value of 4 bytes is longer than 3");
}

TEST(AcceptedValue, StoresNumbersInOneForm) {
    Leaf leaf;
    leaf.type = ValueType::integer;
    EXPECT_EQ(stored(leaf, "007"), "7");
    EXPECT_EQ(stored(leaf, "-0"), "0");
    EXPECT_EQ(stored(leaf, "-2147483648"), "-2147483648");
}

TEST(AcceptedValue, RefusesWhatIsNoNumberOfTheType) {
    Leaf leaf;
    leaf.type = ValueType::integer;
    for (const char *const text : {"", "abc", "1 ", "1.5", "2147483648", "-2147483649"})
        EXPECT_EQ(accepted_value(leaf, text).error().code, bad_value) << text;
    leaf.type = ValueType::unsigned_integer;
    EXPECT_EQ(stored(leaf, "4294967295"), "4294967295");
    EXPECT_EQ(stored(leaf, "-1"), "value is not uint from 0 to 4294967295");
    leaf.type = ValueType::boolean;
    EXPECT_EQ(stored(leaf, "1"), "1");
    EXPECT_EQ(stored(leaf, "true"), "value is not bool from 0 to 1");
}

TEST(AcceptedValue, HoldsANumberToItsRange) {
    Leaf leaf;
    leaf.type = ValueType::integer;
    leaf.least = 1;
    leaf.most = 8;
    EXPECT_EQ(stored(leaf, "1"), "1");
    EXPECT_EQ(stored(leaf, "8"), "8");
    EXPECT_EQ(stored(leaf, "0"), "value is not int from 1 to 8");
    EXPECT_EQ(stored(leaf, "9"), "value is not int from 1 to 8");
}

TEST(AcceptedValue, HoldsAValueToItsChoices) {
    Leaf leaf;
    leaf.choices = {"on", "off"};
    EXPECT_EQ(stored(leaf, "on"), "on");
    EXPECT_EQ(stored(leaf, "On"), "value is none of on, off");
    EXPECT_EQ(accepted_value(leaf, "On").error().code, bad_value);
}

TEST(TypeByName, KnowsTheTypesOfTreeFiles) {
    for (const ValueType type :
         {ValueType::string, ValueType::integer, ValueType::unsigned_integer, ValueType::boolean})
        EXPECT_EQ(type_by_name(type_name(type)), type);
    EXPECT_FALSE(type_by_name("float"));
}

} // namespace
