// SPDX-License-Identifier: MIT
#include <zan.h>

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>

namespace zan::test {
namespace {

constexpr std::uint32_t low_bits = 0x7FFFFFFF;

TEST(Fnv1Hash, HashesLowerCaseTextsAsEverybodyDoes) {
    // Published values of 32-bit FNV-1, without their top bit.
    EXPECT_EQ(fnv1_hash("", 0), 0x811C9DC5 & low_bits);
    EXPECT_EQ(fnv1_hash("a", 0), 0x050C5D7EU & low_bits);
    EXPECT_EQ(fnv1_hash("b", 0), 0x050C5D7DU & low_bits);
    EXPECT_EQ(fnv1_hash("foobar", 0), 0x31F0B262U & low_bits);
    EXPECT_EQ(fnv1_hash("", 0), 0x011C9DC5U);
}

TEST(Fnv1Hash, PassesOverTheCaseOfLetters) {
    EXPECT_EQ(fnv1_hash("ABC", 0), fnv1_hash("abc", 0));
    EXPECT_EQ(fnv1_hash("WLAN_Zz9", 0), fnv1_hash("wlan_zZ9", 0));
    // What stands beside the letters in the code is no letter.
    EXPECT_NE(fnv1_hash("@[", 0), fnv1_hash("`{", 0));
}

// One step of the hash, to the bit: the text's byte as a signed number.
TEST(Fnv1Hash, MixesHighBytesInSignExtended) {
    constexpr std::uint32_t multiplied = 0x811C9DC5U * 0x01000193U;
    EXPECT_EQ(fnv1_hash("\xc3", 0), (multiplied ^ 0xFFFFFFC3U) & low_bits);
    EXPECT_EQ(fnv1_hash("\x80", 0), (multiplied ^ 0xFFFFFF80U) & low_bits);
    EXPECT_EQ(fnv1_hash("\xff", 0), (multiplied ^ 0xFFFFFFFFU) & low_bits);
    EXPECT_EQ(fnv1_hash("\x7f", 0), (multiplied ^ 0x7FU) & low_bits);
    EXPECT_EQ(fnv1_hash("A", 0), (multiplied ^ 'a') & low_bits);
    EXPECT_EQ(fnv1_hash("\xff"
                        "B",
                        0),
              (((multiplied ^ 0xFFFFFFFFU) * 0x01000193U) ^ 'b') & low_bits);
}

TEST(Fnv1Hash, IsReducedByAModulusAboveZero) {
    const std::uint32_t hash = fnv1_hash("wlan0", 0);
    EXPECT_EQ(fnv1_hash("wlan0", -1), hash);
    EXPECT_EQ(fnv1_hash("wlan0", INT_MIN), hash);
    EXPECT_EQ(fnv1_hash("wlan0", 1), 0U);
    for (const int modulus : {2, 16, 97, 65536, INT_MAX})
        EXPECT_EQ(fnv1_hash("wlan0", modulus), hash % static_cast<std::uint32_t>(modulus));
}

TEST(Fnv1Hash, TakesNullForAnEmptyText) {
    EXPECT_EQ(fnv1_hash(nullptr, 0), fnv1_hash("", 0));
    EXPECT_EQ(fnv1_hash(nullptr, 7), fnv1_hash("", 7));
}

TEST(Fnv1Hash, NeverHasItsTopBit) {
    std::mt19937 generator(4711); // NOLINT: the same texts in every run
    std::uint32_t seen = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (auto length = generator() % 20; length > 0; --length)
            text += static_cast<char>(1 + generator() % 255);
        seen |= fnv1_hash(text.c_str(), 0);
    }
    EXPECT_EQ(seen, low_bits);
}

} // namespace
} // namespace zan::test
