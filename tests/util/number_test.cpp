// SPDX-License-Identifier: MIT
#include <zan.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ostream>

namespace zan::test {
namespace {

constexpr int all = -1; // the end pointer stands on the text's NUL

// One row per text: what the conversion makes of it, and how far it gets.
template<typename Value> struct Row {
    const char *text;
    int base;
    int result;
    Value value;
    int stops_at;
};

template<typename Value> std::ostream &operator<<(std::ostream &out, const Row<Value> &row) {
    return out << '"' << row.text << "\" in base " << row.base;
}

template<typename Value, typename Convert> void check(const Row<Value> &row, Convert convert) {
    const auto full = static_cast<std::ptrdiff_t>(std::strlen(row.text));
    char *end = nullptr;
    Value value = 77;
    EXPECT_EQ(convert(row.text, &end, row.base, &value), row.result);
    EXPECT_EQ(value, row.value);
    EXPECT_EQ(end - row.text, row.stops_at == all ? full : row.stops_at);

    value = 77;
    EXPECT_EQ(convert(row.text, nullptr, row.base, &value), row.result) << "without end";
    EXPECT_EQ(value, row.value) << "without end";

    // What an earlier call left there is not this conversion's failure.
    errno = ERANGE;
    EXPECT_EQ(convert(row.text, nullptr, row.base, &value), row.result) << "with errno set before";
}

template<typename Value, typename Convert>
int errno_after(Convert convert, const char *text, int base = 10) {
    Value value;
    errno = EBADF;
    convert(text, nullptr, base, &value);
    return errno;
}

// The same on every machine: a 64-bit one converts numbers that the target cannot.
TEST(NumberErrno, IsErangeForANumberThatDoesNotFit32Bits) {
    for (const char *text : {"2147483648", "-2147483649", "99999999999", "-99999999999",
                             "99999999999999999999", "99999999999x"})
        EXPECT_EQ(errno_after<std::int32_t>(zan_strtol, text), ERANGE) << text;
    for (const char *text : {"4294967296", " 99999999999", "99999999999999999999", "99999999999x"})
        EXPECT_EQ(errno_after<std::uint32_t>(zan_strtoul, text), ERANGE) << text;
}

TEST(NumberErrno, IsClearedByAConversionInRange) {
    for (const char *text : {"2147483647", "-2147483648", "12x", "x"})
        EXPECT_EQ(errno_after<std::int32_t>(zan_strtol, text), 0) << text;
    for (const char *text : {"4294967295", "12x", "x"})
        EXPECT_EQ(errno_after<std::uint32_t>(zan_strtoul, text), 0) << text;
}

TEST(NumberErrno, IsEinvalForABaseThatDoesNotExist) {
    for (const int base : {-10, 1, 37}) {
        EXPECT_EQ(errno_after<std::int32_t>(zan_strtol, "1", base), EINVAL) << base;
        EXPECT_EQ(errno_after<std::uint32_t>(zan_strtoul, "1", base), EINVAL) << base;
    }
}

TEST(NumberErrno, IsLeftAloneByANegativeUnsignedNumber) {
    EXPECT_EQ(errno_after<std::uint32_t>(zan_strtoul, " -99999999999"), EBADF);
}

class Strtol : public testing::TestWithParam<Row<std::int32_t>> {};

TEST_P(Strtol, Converts) {
    check(GetParam(), zan_strtol);
}

INSTANTIATE_TEST_SUITE_P(
    Whole, Strtol,
    testing::Values(
        Row<std::int32_t>{"12", 10, 0, 12, all}, //
        Row<std::int32_t>{"-12", 10, 0, -12, all}, Row<std::int32_t>{"+12", 10, 0, 12, all},
        Row<std::int32_t>{" \t\n12", 10, 0, 12, all}, Row<std::int32_t>{"0", 0, 0, 0, all}, //
        Row<std::int32_t>{"", 10, 0, 0, all},                                               //
        Row<std::int32_t>{"", 0, 0, 0, all}, Row<std::int32_t>{"0x1f", 0, 0, 31, all},
        Row<std::int32_t>{"0x1f", 16, 0, 31, all}, Row<std::int32_t>{"1F", 16, 0, 31, all},
        Row<std::int32_t>{"017", 0, 0, 15, all}, Row<std::int32_t>{"017", 10, 0, 17, all},
        Row<std::int32_t>{"101", 2, 0, 5, all}, Row<std::int32_t>{"zz", 36, 0, 1295, all}));

INSTANTIATE_TEST_SUITE_P(
    LeftOver, Strtol,
    testing::Values(Row<std::int32_t>{"12 ", 10, -1, 0, 2}, //
                    Row<std::int32_t>{"12x", 10, -1, 0, 2}, //
                    Row<std::int32_t>{"12\n", 10, -1, 0, 2},
                    Row<std::int32_t>{"x", 10, -1, 0, 0},                                         //
                    Row<std::int32_t>{"-", 10, -1, 0, 0}, Row<std::int32_t>{"   ", 10, -1, 0, 0}, //
                    Row<std::int32_t>{"0x", 0, -1, 0, 1}, Row<std::int32_t>{"08", 0, -1, 0, 1},   //
                    Row<std::int32_t>{"1.5", 10, -1, 0, 1}, Row<std::int32_t>{"1f", 10, -1, 0, 1}));

INSTANTIATE_TEST_SUITE_P(Range, Strtol,
                         testing::Values(Row<std::int32_t>{"2147483647", 10, 0, INT32_MAX, all},
                                         Row<std::int32_t>{"2147483648", 10, -1, 0, all},
                                         Row<std::int32_t>{"-2147483648", 10, 0, INT32_MIN, all},
                                         Row<std::int32_t>{"-2147483649", 10, -1, 0, all},
                                         Row<std::int32_t>{"0x7fffffff", 0, 0, INT32_MAX, all},
                                         Row<std::int32_t>{"0xffffffff", 0, -1, 0, all},
                                         Row<std::int32_t>{"99999999999", 10, -1, 0, all},
                                         Row<std::int32_t>{"-99999999999", 10, -1, 0, all},
                                         Row<std::int32_t>{"99999999999999999999", 10, -1, 0, all},
                                         Row<std::int32_t>{"99999999999x", 10, -1, 0, 11}));

INSTANTIATE_TEST_SUITE_P(Base, Strtol,
                         testing::Values(Row<std::int32_t>{"1", 1, -1, 0, 0},
                                         Row<std::int32_t>{"1", 37, -1, 0, 0},
                                         Row<std::int32_t>{"1", -10, -1, 0, 0},
                                         Row<std::int32_t>{"", 1, -1, 0, 0}));

class Strtoul : public testing::TestWithParam<Row<std::uint32_t>> {};

TEST_P(Strtoul, Converts) {
    check(GetParam(), zan_strtoul);
}

INSTANTIATE_TEST_SUITE_P(Whole, Strtoul,
                         testing::Values(Row<std::uint32_t>{"12", 10, 0, 12, all}, //
                                         Row<std::uint32_t>{"+12", 10, 0, 12, all},
                                         Row<std::uint32_t>{" \t\n\v\f\r12", 10, 0, 12, all},
                                         Row<std::uint32_t>{"", 10, 0, 0, all}, //
                                         Row<std::uint32_t>{" \t\n\v\f\r", 10, 0, 0, all},
                                         Row<std::uint32_t>{"0x1f", 0, 0, 31, all},
                                         Row<std::uint32_t>{"017", 0, 0, 15, all},
                                         Row<std::uint32_t>{"ff", 16, 0, 255, all}));

INSTANTIATE_TEST_SUITE_P(LeftOver, Strtoul,
                         testing::Values(Row<std::uint32_t>{"12 ", 10, -1, 0, 2},
                                         Row<std::uint32_t>{"12x", 10, -1, 0, 2},
                                         Row<std::uint32_t>{" 12x", 10, -1, 0, 3},
                                         Row<std::uint32_t>{"x", 10, -1, 0, 0}));

// The standard conversion would wrap these.
INSTANTIATE_TEST_SUITE_P(Negative, Strtoul,
                         testing::Values(Row<std::uint32_t>{"-1", 10, -1, 0, 0}, //
                                         Row<std::uint32_t>{" -1", 10, -1, 0, 1},
                                         Row<std::uint32_t>{"\n\t -1", 0, -1, 0, 3},
                                         Row<std::uint32_t>{"-0", 10, -1, 0, 0}, //
                                         Row<std::uint32_t>{"-", 10, -1, 0, 0}));

INSTANTIATE_TEST_SUITE_P(Range, Strtoul,
                         testing::Values(Row<std::uint32_t>{"4294967295", 10, 0, UINT32_MAX, all},
                                         Row<std::uint32_t>{"4294967296", 10, -1, 0, all},
                                         Row<std::uint32_t>{"0xffffffff", 0, 0, UINT32_MAX, all},
                                         Row<std::uint32_t>{"0x100000000", 0, -1, 0, all},
                                         Row<std::uint32_t>{"99999999999999999999", 10, -1, 0,
                                                            all}));

INSTANTIATE_TEST_SUITE_P(Base, Strtoul,
                         testing::Values(Row<std::uint32_t>{"1", 1, -1, 0, 0},
                                         Row<std::uint32_t>{"1", 37, -1, 0, 0}));

} // namespace
} // namespace zan::test
