// SPDX-License-Identifier: MIT
#include <zan.h>

#include "support/capture.h"
#include "util/address_model.h"
#include "util/random.h"
#include "util/read_only_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace zan::test {
namespace {

using Validator = int (*)(const char *);
using Texts = std::initializer_list<std::string>;

void expect_all(Validator validate, int answer, const Texts &texts) {
    for (const std::string &text : texts)
        EXPECT_EQ(validate(ReadOnlyText(text).get()), answer) << '"' << text << '"';
}

std::string dotted(int a, int b, int c, int d) {
    return std::to_string(a) + '.' + std::to_string(b) + '.' + std::to_string(c) + '.' +
           std::to_string(d);
}

// ---- IPv4 ------------------------------------------------------------------

TEST(HostAddress, IsAUnicastAddressWithAHostPart) {
    expect_all(zan_is_valid_ipv4, 1,
               {"192.168.1.1", "1.0.0.1", "10.0.0.254", "126.255.255.254", "128.0.0.1",
                "223.255.255.254", "8.8.8.8", "172.16.0.1"});
    expect_all(zan_is_valid_ipv4, 0,
               {"0.1.2.3", "0.0.0.0", "127.0.0.1", "127.255.255.254", "224.0.0.1", "239.1.1.1",
                "240.0.0.1", "255.255.255.255", "10.0.0.0", "10.0.0.255", "256.1.1.1", "1.256.1.1",
                "1.2.256.1", "1.2.3.256", "1.2.3.999"});
}

TEST(HostAddress, HasFourNumbersOfDigitsAlone) {
    expect_all(zan_is_valid_ipv4, 0, {"",           ".",
                                      "...",        "1",
                                      "1.2.3",      "1.2.3.4.5",
                                      "1.2.3.4.",   ".1.2.3.4",
                                      " 1.2.3.4",   "1.2.3.4 ",
                                      "1. 2.3.4",   "1.2.3.4\n",
                                      "+1.2.3.4",   "-1.2.3.4",
                                      "1.2.3.-4",   "0x1.2.3.4",
                                      "1.2.3.a",    "a.b.c.d",
                                      "1,2,3,4",    "1.2.3.4/24",
                                      "1.2.3.4:80", "::ffff:1.2.3.4",
                                      "1.2.3.\xb2", "localhost"});
}

TEST(HostAddress, ReadsLeadingZerosAsDecimal) {
    expect_all(zan_is_valid_ipv4, 1,
               {"010.1.1.1", "001.002.003.004", "1.1.1.08", "1.1.1.000000000000000000254"});
    expect_all(zan_is_valid_ipv4, 0, {"000.1.1.1", "1.1.1.000", "0127.1.1.1", "1.1.1.0255"});
}

// The first number that is missing ends the reading: it and what follows are 0.
TEST(HostAddress, TakesMissingNumbersForZero) {
    expect_all(zan_is_valid_ipv4, 0, {"1.2.3.", "1..2.3", "1.2..3", ".1.2.3", "1...", "..1.1"});
    expect_all(zan_valid_ipv4_check, 1,
               {"1.2.3.", "1..2.3", "1.2..3", ".1.2.3", "1...", "...", "..1.1"});
    // What stands behind the missing number is not looked at.
    expect_all(zan_valid_ipv4_check, 1, {"1..999.999", "..999.", ".999.999.999", "255..256.1"});
    expect_all(zan_valid_ipv4_check, 0, {"256...", "1.256..", "1.2.256.", "1.256..1"});
}

// A number that does not fit is too large, not what is left of it in 32 or 64 bits.
TEST(HostAddress, IsNotMadeValidByANumberThatWrapsAround) {
    for (const std::string one : {"4294967297", "18446744073709551617", "2147483649",
                                  "340282366920938463463374607431768211457"}) {
        expect_all(zan_is_valid_ipv4, 0,
                   {one + ".1.1.1", "1." + one + ".1.1", "1.1." + one + ".1", "1.1.1." + one});
        expect_all(zan_valid_ipv4_check, 0,
                   {one + ".1.1.1", "1." + one + ".1.1", "1.1." + one + ".1", "1.1.1." + one});
    }
    expect_all(zan_valid_ipv4_check, 0, {std::string(5000, '9') + ".1.1.1"});
    expect_all(zan_valid_ipv4_check, 1, {std::string(5000, '0') + "1.1.1.1"});
}

TEST(AnyAddress, HasFourNumbersBelow256) {
    expect_all(zan_valid_ipv4_check, 1,
               {"0.0.0.0", "255.255.255.255", "127.0.0.1", "224.0.0.1", "1.2.3.0", "0.1.2.3",
                "010.001.000.009"});
    expect_all(zan_valid_ipv4_check, 0,
               {"", "1.2.3", "1.2.3.4.5", "256.0.0.0", "0.0.0.256", "1.2.3.4 ", " 1.2.3.4",
                "1.2.3.x", "-1.2.3.4", "1.2.3.4\t"});
}

TEST(AnyAddress, AgreesWithAModelInEveryPlaceOfEveryNumber) {
    for (int number = 0; number <= 300; ++number) {
        for (const std::string &text : {dotted(number, 1, 1, 1), dotted(1, number, 1, 1),
                                        dotted(1, 1, number, 1), dotted(1, 1, 1, number)}) {
            EXPECT_EQ(zan_valid_ipv4_check(text.c_str()), model::is_ipv4(text)) << text;
            EXPECT_EQ(zan_is_valid_ipv4(text.c_str()), model::is_host(text)) << text;
            EXPECT_EQ(zan_is_valid_ipv4_mask(text.c_str()), model::is_mask(text)) << text;
        }
    }
}

TEST(Mask, IsOnesAndThenZeros) {
    std::vector<std::string> masks;
    for (int length = 0; length <= 32; ++length) {
        const auto bits = static_cast<std::uint32_t>(~((std::uint64_t{1} << (32 - length)) - 1));
        masks.push_back(dotted(static_cast<int>(bits >> 24), static_cast<int>(bits >> 16 & 255),
                               static_cast<int>(bits >> 8 & 255), static_cast<int>(bits & 255)));
        EXPECT_EQ(zan_is_valid_ipv4_mask(masks.back().c_str()), 1) << masks.back();
    }
    EXPECT_EQ(masks.front(), "0.0.0.0");
    EXPECT_EQ(masks[23], "255.255.254.0");
    EXPECT_EQ(masks.back(), "255.255.255.255");
    expect_all(zan_is_valid_ipv4_mask, 0,
               {"255.0.255.0", "255.255.253.0", "255.255.255.1", "0.255.255.255", "0.0.0.1",
                "0.0.0.255", "255.128.128.0", "255.254.0.1", "127.0.0.0", "255.255.255.251",
                "64.0.0.0", "192.168.1.0", "256.0.0.0", "255.256.0.0", "255.255.255.256"});
}

TEST(Mask, IsWrittenAsAnAddress) {
    expect_all(zan_is_valid_ipv4_mask, 0,
               {"", "24", "/24", "255.255.255", "255.255.255.0.0", " 255.255.255.0",
                "255.255.255.0 ", "ff.ff.ff.0", "-1.0.0.0"});
    expect_all(zan_is_valid_ipv4_mask, 1, {"...", "255...", "255.255.255.", "0255.000.0.0"});
}

// Every mask differs from no mask in one of these.
TEST(Mask, AgreesWithAModel) {
    const int fields[] = {0, 1, 127, 128, 192, 193, 224, 248, 252, 254, 255, 256};
    for (const int a : fields)
        for (const int b : fields)
            for (const int c : fields)
                for (const int d : fields) {
                    const std::string text = dotted(a, b, c, d);
                    ASSERT_EQ(zan_is_valid_ipv4_mask(text.c_str()), model::is_mask(text)) << text;
                }
}

// ---- MAC addresses ---------------------------------------------------------

TEST(MacAddress, IsSixPairsOfHexadecimalDigits) {
    expect_all(zan_is_valid_macaddr, 1,
               {"00:11:22:aa:BB:cc", "00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff", "01:23:45:67:89:ab",
                "CD:EF:cd:ef:fe:FE"});
    expect_all(zan_is_valid_macaddr, 0,
               {"",
                "00-11-22-aa-bb-cc",
                "00.11.22.aa.bb.cc",
                "001122aabbcc",
                "0011.22aa.bbcc",
                "0:11:22:aa:bb:cc:",
                "001:1:22:aa:bb:cc",
                "00:11:22:aa:bb:cg",
                "g0:11:22:aa:bb:cc",
                "00:11:22:aa:bb:c",
                "00:11:22:aa:bb:ccd",
                "00:11:22:aa:bb",
                "00:11:22:aa:bb:cc:dd",
                ":0:11:22:aa:bb:cc",
                "00:11:22:aa:bb:cc ",
                " 00:11:22:aa:bb:cc",
                "00:11:22:aa:bb:c:",
                "00:11:22:aa::b:cc",
                "00::1:22:aa:bb:cc",
                ":::::::::::::::::",
                "00:11:22:aa:bb.cc",
                "00;11:22:aa:bb:cc",
                "0x:11:22:aa:bb:cc",
                "00:11:22:aa:bb:\xb2\xb3",
                "00 11 22 aa bb cc"});
}

TEST(MacAddress, MayHaveABlankOrAPlusBeforeADigit) {
    expect_all(zan_is_valid_macaddr, 1,
               {" 0:11:22:aa:bb:cc", "+a:11:22:aa:bb:cc", "00:11:22:aa:bb:+c", "00:11: 2:\ta:bb:cc",
                "  :11:22:aa:bb:cc", " \t:\n\v:\f\r:  :  :  "});
    expect_all(zan_is_valid_macaddr, 0,
               {"-a:11:22:aa:bb:cc", "00:11:22:aa:bb:-c", "0 :11:22:aa:bb:cc", "a+:11:22:aa:bb:cc",
                " -:11:22:aa:bb:cc", " +:11:22:aa:bb:cc", "++:11:22:aa:bb:cc", "+ :11:22:aa:bb:cc",
                "\v-:11:22:aa:bb:cc", "\001a:11:22:aa:bb:cc"});
    unsigned char mac[6];
    EXPECT_EQ(zan_macstr_to_num(" a:+b:  :\td:0e:FF", mac), 0);
    EXPECT_EQ(std::memcmp(mac, "\x0a\x0b\x00\x0d\x0e\xff", 6), 0);
}

// Two characters are read as zan_strtoul does in base 16, whatever they are.
TEST(MacAddress, AgreesWithTheNumberParserOnEveryPair) {
    char text[] = "..:11:22:33:44:55";
    char pair[3] = "";
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            pair[0] = text[0] = static_cast<char>(first);
            pair[1] = text[1] = static_cast<char>(second);
            std::uint32_t value = 0;
            const int result = zan_strtoul(pair, nullptr, 16, &value);
            unsigned char mac[6] = {0xee};
            ASSERT_EQ(zan_macstr_to_num(text, mac), result) << first << ' ' << second;
            ASSERT_EQ(mac[0], result == 0 ? value : 0xee) << first << ' ' << second;
            ASSERT_EQ(zan_is_valid_macaddr(text), result == 0) << first << ' ' << second;
        }
    }
}

TEST(MacAddress, IsConvertedBothWays) {
    const unsigned char mac[] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xff};
    char text[20];
    std::memset(text, '~', sizeof text);
    EXPECT_EQ(zan_macnum_to_str(mac, text), 0);
    EXPECT_STREQ(text, "00:1a:2b:3c:4d:ff");
    EXPECT_EQ(text[18], '~') << "writes 18 bytes";

    unsigned char back[7] = {0, 0, 0, 0, 0, 0, 0x7e};
    EXPECT_EQ(zan_macstr_to_num(text, back), 0);
    EXPECT_EQ(std::memcmp(back, mac, 6), 0);
    EXPECT_EQ(back[6], 0x7e);
    EXPECT_EQ(zan_macstr_to_num("00:1A:2B:3C:4D:FF", back), 0);
    EXPECT_EQ(std::memcmp(back, mac, 6), 0);
}

TEST(MacAddress, EveryByteComesBack) {
    for (int value = 0; value < 256; ++value) {
        unsigned char mac[6];
        std::memset(mac, value, 6);
        char text[18];
        unsigned char back[6] = {};
        ASSERT_EQ(zan_macnum_to_str(mac, text), 0);
        ASSERT_EQ(zan_is_valid_macaddr(text), 1) << text;
        ASSERT_EQ(zan_macstr_to_num(text, back), 0);
        ASSERT_EQ(std::memcmp(back, mac, 6), 0) << text;
    }
}

TEST(MacAddress, ConversionWritesNothingWithoutItsArguments) {
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    char text[18] = "old";
    EXPECT_EQ(zan_macstr_to_num(nullptr, mac), -1);
    EXPECT_EQ(zan_macstr_to_num("00:11:22:33:44:55", nullptr), -1);
    EXPECT_EQ(zan_macstr_to_num("00:11:22:33:44:5x", mac), -1);
    EXPECT_EQ(zan_macstr_to_num("", mac), -1);
    EXPECT_EQ(std::memcmp(mac, "\1\2\3\4\5\6", 6), 0);
    EXPECT_EQ(zan_macnum_to_str(nullptr, text), -1);
    EXPECT_EQ(zan_macnum_to_str(mac, nullptr), -1);
    EXPECT_STREQ(text, "old");
}

// ---- Lists -----------------------------------------------------------------

struct ListKind {
    const char *name;
    Validator validate;
    const char *good;
    const char *also_good;
    const char *bad;
};

std::ostream &operator<<(std::ostream &out, const ListKind &kind) {
    return out << kind.name;
}

class List : public testing::TestWithParam<ListKind> {
protected:
    void expect(int answer, const Texts &texts) const {
        expect_all(GetParam().validate, answer, texts);
    }
    std::string good = GetParam().good;
    std::string also_good = GetParam().also_good;
    std::string bad = GetParam().bad;
};

INSTANTIATE_TEST_SUITE_P(Of, List,
                         testing::Values(ListKind{"Addresses", zan_is_valid_ipv4_list, "1.1.1.1",
                                                  "223.2.2.2", "1.1.1.0"},
                                         ListKind{"Masks", zan_is_valid_ipv4_mask_list,
                                                  "255.255.255.0", "0.0.0.0", "255.0.255.0"},
                                         ListKind{"Macs", zan_is_valid_mac_list,
                                                  "00:11:22:aa:BB:cc", "ff:ff:ff:ff:ff:ff",
                                                  "00:11:22:aa:bb:cg"}),
                         [](const auto &row) { return row.param.name; });

TEST_P(List, MayBeEmptyOrNull) {
    EXPECT_EQ(GetParam().validate(nullptr), 1);
    expect(1, {""});
}

TEST_P(List, IsValidWhenEveryEntryIs) {
    expect(1, {good, good + "," + also_good, good + "," + also_good + "," + good});
    expect(0, {bad, bad + "," + good, good + "," + bad, good + "," + bad + "," + good,
               good + ";" + good, good + " " + good});
    std::string many = good;
    for (int i = 0; i < 5000; ++i)
        many += (i % 2 == 0 ? ", " : ",") + also_good;
    expect(1, {many});
    expect(0, {many + "," + bad});
}

TEST_P(List, MayHaveBlanksAroundEntriesButNotBehindTheLast) {
    expect(1, {good + ", " + good, good + " ," + good, "  " + good + " \t,\n " + good, " " + good,
               "\x01\xc3\xa9" + good + "\xc3\xa9," + good});
    expect(0, {good + "," + good + " ", good + " ", good + "," + good + "\n",
               good + "," + good + "\xa9"});
}

TEST_P(List, HasNoEmptyEntries) {
    expect(0, {good + ",," + good, good + ",", "," + good, ",", ",,", " ", " \t ", good + ", ",
               good + ", ," + good, " ," + good, "\xc3\xa9"});
}

// Of an entry with a comma behind it 128 characters count, blanks behind it included.
TEST_P(List, LooksAt128CharactersOfAnEntry) {
    const std::string padded = good + std::string(128 - good.size(), ' ');
    expect(1, {padded + "," + good, padded + bad + "," + good, padded + " x," + good,
               std::string(500, ' ') + padded + "x," + good});
    expect(0, {padded.substr(1) + "x," + good, good + std::string(128, 'x') + "," + good,
               good + "," + padded + "x"});
}

// Leading zeros make an address as long as one likes.
TEST(AddressList, IsCutInTheMiddleOfALongEntry) {
    const std::string zeros(121, '0');
    expect_all(zan_is_valid_ipv4_list, 1, {zeros + "1.1.1.1,1.1.1.1", zeros + "1.1.1.1x,1.1.1.1"});
    expect_all(zan_is_valid_ipv4_list, 0, {zeros + "01.1.1.1,1.1.1.1"});
    expect_all(zan_is_valid_ipv4_list, 1, {"1.1.1.1," + zeros + zeros + "1.1.1.1"});
    expect_all(zan_is_valid_ipv4_list, 1, {"1.1.1." + zeros + "12,1.1.1.1"});
    expect_all(zan_is_valid_ipv4_list, 0, {"1.1.1." + zeros + "2,1.1.1.300", zeros + ","});
}

TEST(Lists, AgreeWithAModel) {
    Random random;
    const std::vector<std::string> pieces = {"1.1.1.1",
                                             "255.255.0.0",
                                             "0.0.0.0",
                                             "00:11:22:33:44:55",
                                             "a",
                                             "1.",
                                             ".1",
                                             " ",
                                             "\t",
                                             "\xc3",
                                             ",",
                                             ",",
                                             ", ",
                                             " ,",
                                             std::string(120, ' '),
                                             std::string(125, '0'),
                                             "1",
                                             "+"};
    int valid = 0;
    for (int round = 0; round < 25000; ++round) {
        std::string text;
        for (unsigned left = random.below(7); left > 0; --left)
            text += random.one_of(pieces);
        const int host = zan_is_valid_ipv4_list(text.c_str());
        const int mask = zan_is_valid_ipv4_mask_list(text.c_str());
        const int mac = zan_is_valid_mac_list(text.c_str());
        ASSERT_EQ(host, model::all_entries(text, model::is_host)) << text;
        ASSERT_EQ(mask, model::all_entries(text, model::is_mask)) << text;
        ASSERT_EQ(mac, model::all_entries(text, model::is_mac)) << text;
        valid += host + mask + mac;
    }
    EXPECT_GT(valid, 500) << "the texts are not all invalid";
}

// ---- All of them -----------------------------------------------------------

TEST(Validators, AnswerNullWithInvalid) {
    for (const Validator validate :
         {zan_is_valid_ipv4, zan_valid_ipv4_check, zan_is_valid_ipv4_mask, zan_is_valid_macaddr})
        EXPECT_EQ(validate(nullptr), 0);
}

TEST(Validators, PrintNothing) {
    StdoutCapture output;
    const std::string longer = "1.1.1." + std::string(3000, '1');
    for (const Validator validate :
         {zan_is_valid_ipv4, zan_valid_ipv4_check, zan_is_valid_ipv4_mask, zan_is_valid_ipv4_list,
          zan_is_valid_ipv4_mask_list, zan_is_valid_macaddr, zan_is_valid_mac_list})
        for (const std::string &text : {longer, longer + "," + longer, std::string("%s%n")})
            EXPECT_EQ(validate(text.c_str()), 0);
    EXPECT_EQ(output.stop(), "");
}

TEST(Validators, AgreeWithModelsOnRandomTexts) {
    Random random;
    constexpr std::string_view alphabet = "0122455...  :::aF+-x,";
    for (int round = 0; round < 50000; ++round) {
        std::string text;
        for (unsigned left = random.below(20); left > 0; --left)
            text += random.one_of(alphabet);
        ASSERT_EQ(zan_is_valid_ipv4(text.c_str()), model::is_host(text)) << text;
        ASSERT_EQ(zan_valid_ipv4_check(text.c_str()), model::is_ipv4(text)) << text;
        ASSERT_EQ(zan_is_valid_ipv4_mask(text.c_str()), model::is_mask(text)) << text;
        ASSERT_EQ(zan_is_valid_macaddr(text.c_str()), model::is_mac(text)) << text;
    }
}

} // namespace
} // namespace zan::test
