// SPDX-License-Identifier: MIT
#include <zan.h>

#include "util/path_model.h"
#include "util/random.h"
#include "util/read_only_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace zan::test {
namespace {

constexpr char untouched = '\x7e';
constexpr const char *no_range = nullptr;

// What is copied, or no_range for the empty text that is not the buffer.
struct Range {
    int start;
    int end;
    const char *elements;
};

void expect_ranges(const std::string &path, const std::vector<Range> &ranges) {
    const ReadOnlyText text(path);
    for (const auto &[start, end, elements] : ranges) {
        SCOPED_TRACE(path + " " + std::to_string(start) + " to " + std::to_string(end));
        char out[64] = "old";
        char *const result = extract_tr098_path(text.get(), out, sizeof out, start, end);
        ASSERT_NE(result, nullptr);
        EXPECT_STREQ(result, elements == no_range ? "" : elements);
        EXPECT_EQ(result == out, elements != no_range);
        EXPECT_STREQ(out, result) << "the buffer is emptied";
    }
}

// ---- ranges counted from the left ------------------------------------------

TEST(ExtractFromLeft, CopiesElementsWithTheSeparatorBehind) {
    for (const char *path : {"/A/B/C", "A/B/C", "//A/B/C", "/.A/B/C", ":A/B/C"})
        expect_ranges(path, {{0, 1, "A/"},
                             {1, 2, "B/"},
                             {2, 3, "C"},
                             {0, 2, "A/B/"},
                             {1, 3, "B/C"},
                             {0, 3, "A/B/C"},
                             {0, 9, "A/B/C"},
                             {1, INT_MAX, "B/C"}});
}

TEST(ExtractFromLeft, HasNoRangeWhereNoElementStarts) {
    expect_ranges("/A/B/C",
                  {{3, 4, no_range}, {3, INT_MAX, no_range}, {INT_MAX, INT_MAX, no_range}});
    expect_ranges("", {{1, 2, no_range}});
}

TEST(ExtractFromLeft, HasNoRangeThatEndsBeforeItStarts) {
    expect_ranges("/A/B/C", {{0, 0, no_range},
                             {0, -1, no_range},
                             {1, 0, no_range},
                             {2, 1, no_range},
                             {1, INT_MIN, no_range}});
}

TEST(ExtractFromLeft, CopiesNothingOfARangeWithoutElements) {
    expect_ranges("/A/B/C", {{1, 1, ""}, {2, 2, ""}});
    expect_ranges("", {{0, 1, ""}});
    expect_ranges("/", {{0, 1, ""}});
}

TEST(ExtractFromLeft, KnowsThreeSeparators) {
    expect_ranges("/A:1.B/C", {{0, 1, "A:"}, {1, 2, "1."}, {2, 3, "B/"}, {0, 3, "A:1.B/"}});
}

TEST(ExtractFromLeft, TakesWhatSeparatorsEncloseForAnElement) {
    expect_ranges("/A//C/", {{1, 2, "/"}, {2, 3, "C/"}, {3, 4, ""}, {4, 5, no_range}});
    expect_ranges("///A", {{0, 1, "/"}, {1, 2, "A"}});
}

// ---- ranges counted from the right -----------------------------------------

TEST(ExtractFromRight, CopiesElementsWithTheSeparatorBehind) {
    for (const char *path : {"/A/B/C", "/A/B/C/", "A/B/C", "A/B/C:"})
        expect_ranges(path, {{-1, 0, "C"},
                             {-2, 0, "B/C"},
                             {-3, 0, "A/B/C"},
                             {-9, 0, "A/B/C"},
                             {INT_MIN, 0, "A/B/C"},
                             {-2, -1, "B/"},
                             {-3, -2, "A/"},
                             {-3, -1, "A/B/"},
                             {INT_MIN, -1, "A/B/"}});
}

TEST(ExtractFromRight, HasNoRangeThatEndsBeforeItStarts) {
    expect_ranges(
        "/A/B/C",
        {{-1, 1, no_range}, {-1, INT_MAX, no_range}, {-1, -2, no_range}, {-1, INT_MIN, no_range}});
}

TEST(ExtractFromRight, HasNoRangeWhereNoElementEnds) {
    expect_ranges("/A/B/C", {{-9, -4, no_range}, {INT_MIN, INT_MIN, no_range}});
    expect_ranges("A", {{-2, -2, no_range}});
}

TEST(ExtractFromRight, CopiesNothingOfARangeWithoutElements) {
    expect_ranges("/A/B/C", {{-1, -1, ""}, {-2, -2, ""}, {-3, -3, ""}, {-9, -3, ""}});
}

TEST(ExtractFromRight, IgnoresOneSeparatorAtTheEndAndOneSlashInFront) {
    expect_ranges("/A/B//", {{-1, 0, ""}, {-2, 0, "B/"}, {-2, -1, "B/"}});
    expect_ranges("//A", {{-1, 0, "A"}, {-2, 0, "/A"}, {-2, -1, "/"}});
    expect_ranges("//", {{-1, 0, ""}, {-2, 0, ""}});
    expect_ranges(".A", {{-2, 0, ".A"}});
}

TEST(ExtractFromRight, KnowsThreeSeparators) {
    expect_ranges("/A:1.B/C", {{-1, 0, "C"}, {-2, -1, "B/"}, {-3, -2, "1."}, {-4, -3, "A:"}});
}

TEST(ExtractFromRight, AnswersNullForAnEmptyPath) {
    for (const char *path : {"", "/"}) {
        char out[8] = "old";
        EXPECT_EQ(extract_tr098_path(path, out, sizeof out, -1, 0), nullptr);
        EXPECT_STREQ(out, "") << "the buffer is emptied";
        EXPECT_STREQ(extract_tr098_path(path, out, sizeof out, -1, 1), "")
            << "no range comes first";
    }
}

// ---- the buffer ------------------------------------------------------------

TEST(Extract, AnswersNullForANullArgument) {
    char out[8] = "old";
    EXPECT_EQ(extract_tr098_path(nullptr, out, sizeof out, 0, 1), nullptr);
    EXPECT_STREQ(out, "old");
    EXPECT_EQ(extract_tr098_path("/A", nullptr, 8, 0, 1), nullptr);
}

TEST(Extract, CutsAtTheSize) {
    const struct {
        int size;
        const char *stored;
    } rows[] = {{1, ""},     {2, "A"},     {3, "A/"},    {4, "A/B"},
                {5, "A/B/"}, {6, "A/B/C"}, {7, "A/B/C"}, {INT_MAX, "A/B/C"}};
    for (const auto &[size, stored] : rows) {
        for (const auto &[start, end] : {std::pair(0, 9), std::pair(-3, 0)}) {
            char out[16];
            std::memset(out, untouched, sizeof out);
            EXPECT_EQ(extract_tr098_path("/A/B/C", out, size, start, end), out);
            EXPECT_STREQ(out, stored);
            EXPECT_EQ(out[std::strlen(stored) + 1], untouched) << "bytes written for " << size;
        }
    }
}

TEST(Extract, WritesNothingWithoutRoom) {
    for (const int size : {0, -1, INT_MIN}) {
        char out = untouched;
        EXPECT_EQ(extract_tr098_path("/A/B/C", &out, size, 0, 1), &out);
        EXPECT_EQ(extract_tr098_path("/A/B/C", &out, size, -1, 0), &out);
        EXPECT_STREQ(extract_tr098_path("/A/B/C", &out, size, 5, 6), "");
        EXPECT_EQ(out, untouched);
    }
}

TEST(Extract, CopiesLongPaths) {
    const std::string name(100000, 'n');
    std::vector<char> out(3 * name.size());
    const std::string path = "/" + name + "/" + name;
    EXPECT_EQ(extract_tr098_path(path.c_str(), out.data(), static_cast<int>(out.size()), -1, 0),
              name);
    EXPECT_EQ(extract_tr098_path(path.c_str(), out.data(), static_cast<int>(out.size()), 0, 1),
              name + "/");
}

TEST(Extract, AgreesWithAModel) {
    Random random;
    std::array<int, 3> kinds{};
    for (int round = 0; round < 50000; ++round) {
        std::string path;
        for (unsigned left = random.below(9); left > 0; --left)
            path += random.one_of(std::string_view("//.:ABCD"));
        const int start = static_cast<int>(random.below(14)) - 7;
        const int end = static_cast<int>(random.below(14)) - 7;
        const int size = static_cast<int>(random.below(12)) + 1;
        SCOPED_TRACE(path + " " + std::to_string(start) + " " + std::to_string(end));
        std::string out(static_cast<std::size_t>(size), untouched);
        const model::Extracted expected = model::extract(path, start, end);
        const char *const result = extract_tr098_path(path.c_str(), out.data(), size, start, end);
        ++kinds[expected.kind];
        ASSERT_EQ(result == nullptr, expected.kind == model::Extracted::null);
        ASSERT_EQ(result == out.data(), expected.kind == model::Extracted::text);
        const std::string text = expected.value.substr(0, static_cast<std::size_t>(size) - 1);
        ASSERT_EQ(out.c_str(), text);
        if (result != nullptr) {
            ASSERT_EQ(result, text);
        }
    }
    for (const int count : kinds)
        EXPECT_GT(count, 1000);
}

// What is behind the k-th element from the left is before it from the right.
TEST(Extract, CutsEveryPathInTwoAnywhere) {
    const std::string path = "InternetGatewayDevice/WANDevice:1/X.Y/Enable";
    const int count = 6;
    for (int at = 1; at < count; ++at) {
        char left[64];
        char right[64];
        EXPECT_EQ(std::string(extract_tr098_path(path.c_str(), left, sizeof left, 0, at)) +
                      extract_tr098_path(path.c_str(), right, sizeof right, at, count),
                  path);
        EXPECT_EQ(
            std::string(extract_tr098_path(path.c_str(), left, sizeof left, -count, at - count)) +
                extract_tr098_path(path.c_str(), right, sizeof right, at - count, 0),
            path);
    }
}

// ---- instance numbers ------------------------------------------------------

using Numbers = std::vector<std::int32_t>;

// Also checks that nothing behind the last number is written.
Numbers instances_of(const std::string &path) {
    std::array<std::int32_t, 32> list;
    list.fill(-77);
    EXPECT_EQ(get_instances_by_path(ReadOnlyText(path).get(), list.data()), 1);
    const std::int32_t count = list[0];
    if (count < 0 || count > 30) {
        ADD_FAILURE() << count << " instances";
        return {};
    }
    for (std::size_t i = static_cast<std::size_t>(count) + 1; i < list.size(); ++i)
        EXPECT_EQ(list[i], -77) << "behind the numbers of " << path;
    return {list.begin() + 1, list.begin() + 1 + count};
}

TEST(Instances, AreTheNumbersBehindColonsAndDots) {
    const struct {
        const char *path;
        Numbers numbers;
    } rows[] = {
        {"/x/WANDevice:1/WANConnectionDevice:2/IPConnection:3", {1, 2, 3}},
        {"A.10.B", {10}},
        {"A.1.2.3", {1, 2, 3}},
        {"A:1:2", {1, 2}},
        {"A:12x/B:3", {12, 3}},
        {"A:007", {7}},
        {"/x/A:0/B:5", {5}},
        {"/x/A:000/B.0", {}},
        {"A:#/B:-1/C:+2/D: 3/E:x4", {}},
        {"/10/20", {}},
        {"A10/B20", {}},
        {"A..5:", {5}},
        {"", {}},
        {"A", {}},
        {"A:", {}},
        {":5", {}}, // the first character is not looked at
        {".5.6", {6}},
        {"/:5", {5}},
        {"A:2147483647/B:2147483648/C:99999999999999999999", {INT32_MAX, INT32_MAX, INT32_MAX}},
        {"A:18446744073709551617", {INT32_MAX}},
    };
    for (const auto &[path, numbers] : rows)
        EXPECT_EQ(instances_of(path), numbers) << path;
}

TEST(Instances, AreThirtyAtMost) {
    std::string path = "/x";
    Numbers numbers;
    for (int number = 1; number <= 30; ++number) {
        path += "/A:" + std::to_string(number);
        numbers.push_back(number);
        EXPECT_EQ(instances_of(path), numbers);
    }
    EXPECT_EQ(instances_of(path + "/A:31"), numbers);
    EXPECT_EQ(instances_of(path + "/A:0/B:31/C:32"), numbers);
    EXPECT_EQ(instances_of("/x/A:0" + path.substr(2)), numbers) << "a 0 does not take a place";
}

TEST(Instances, NeedBothArguments) {
    std::int32_t list[31] = {-77};
    EXPECT_EQ(get_instances_by_path(nullptr, list), 0);
    EXPECT_EQ(list[0], -77);
    EXPECT_EQ(get_instances_by_path("A:1", nullptr), 0);
    EXPECT_EQ(get_instances_by_path(nullptr, nullptr), 0);
}

TEST(Instances, AgreeWithAModel) {
    Random random;
    std::size_t found = 0;
    for (int round = 0; round < 8000; ++round) {
        std::string path;
        for (unsigned left = random.below(90); left > 0; --left)
            path += random.one_of(std::string_view("::.../A0129"));
        const Numbers numbers = instances_of(path);
        found = std::max(found, numbers.size());
        ASSERT_EQ(numbers, model::instances(path)) << path;
    }
    EXPECT_GT(found, 20U);
}

} // namespace
} // namespace zan::test
