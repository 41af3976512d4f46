// SPDX-License-Identifier: MIT
#include <zan.h>

#include "util/path_model.h"
#include "util/random.h"
#include "util/read_only_text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

namespace zan::test {
namespace {

constexpr bool equal = true;
constexpr bool differ = false;

struct Pair {
    const char *a;
    const char *b;
    bool match;
};

int compare(const std::string &a, const std::string &b, int nocase) {
    return pathcmp(ReadOnlyText(a).get(), ReadOnlyText(b).get(), nocase);
}

int compare_part(const std::string &a, const std::string &b, int direction, int nocase) {
    return pathpartcmp(ReadOnlyText(a).get(), ReadOnlyText(b).get(), direction, nocase);
}

int compare_object(const std::string &pattern, const std::string &path) {
    return pathobjectcmp(ReadOnlyText(pattern).get(), ReadOnlyText(path).get());
}

// Each row in both orders.
void expect_pathcmp(const std::vector<Pair> &rows, int nocase = 0) {
    for (const auto &[a, b, match] : rows) {
        EXPECT_EQ(compare(a, b, nocase), match ? 0 : 1) << a << " and " << b;
        EXPECT_EQ(compare(b, a, nocase), match ? 0 : 1) << b << " and " << a;
    }
}

// ---- pathcmp ---------------------------------------------------------------

TEST(Pathcmp, ComparesWithoutInstancesAsTextsAre) {
    expect_pathcmp({{"", "", equal},
                    {"/", "/", equal},
                    {"/sys/log", "/sys/log", equal},
                    {"", "/", differ},
                    {"/A", "/A/B", differ},
                    {"/A", "/A/", differ},
                    {"/A/B", "/A/C", differ},
                    {"/A.B", "/A/B", differ},
                    {"A", "/A", differ},
                    {"/#", "/A", differ},
                    {"/A#", "/A1", differ}});
}

TEST(Pathcmp, TakesCaseForADifferenceUnlessToldOtherwise) {
    expect_pathcmp({{"/a/b", "/A/B", differ}, {"/a/b", "/a/b", equal}});
    for (const int nocase : {1, -1, 256})
        expect_pathcmp({{"/a/b", "/A/B", equal},
                        {"/InternetGatewayDevice", "/internetgatewaydevice", equal},
                        {"/A[", "/A{", differ},
                        {"/a/b", "/a/c", differ}},
                       nocase);
}

TEST(Pathcmp, TakesCaseForADifferenceInInstancesAlways) {
    expect_pathcmp({{"/A:x/B", "/A:X/B", differ},
                    {"/A:x", "/A:X", differ},
                    {"/a:x/b", "/A:x/B", equal},
                    {"/A:#x/B", "/A:Y/B", equal}},
                   1);
}

TEST(Pathcmp, ComparesInstances) {
    expect_pathcmp({{"/sys/user:1/name", "/sys/user:1/name", equal},
                    {"/sys/user:1/name", "/sys/user:2/name", differ},
                    {"/sys/user:1/name", "/sys/user:12/name", differ},
                    {"/sys/user:1/name", "/sys/user:01/name", differ},
                    {"/sys/user:1/name", "/sys/user/name", differ},
                    {"/sys/user:1/name", "/sys/user:/name", differ},
                    {"/sys/user:/name", "/sys/user:/name", equal},
                    {"/A:1", "/A:1", equal},
                    {"/A:1", "/A:2", differ},
                    {"/A:", "/A:", equal},
                    {"/A:", "/A:1", differ},
                    {"/A:1/B:2/C", "/A:1/B:2/C", equal},
                    {"/A:1/B:2/C", "/A:1/B:3/C", differ},
                    {"/A:1/B:2/C", "/A:2/B:2/C", differ},
                    {"/A:1/B", "/A:1/C", differ},
                    {"/A:1/B", "/A:1", differ}});
}

TEST(Pathcmp, LetsAWildcardStandForAnyInstanceWithinAPath) {
    expect_pathcmp({{"/sys/user:#/name", "/sys/user:3/name", equal},
                    {"/sys/user:#/name", "/sys/user:12/name", equal},
                    {"/sys/user:#/name", "/sys/user:123456789/name", equal},
                    {"/sys/user:#/name", "/sys/user:/name", equal},
                    {"/sys/user:#/name", "/sys/user:guest/name", equal},
                    {"/sys/user:#/name", "/sys/user:#/name", equal},
                    {"/sys/user:#1/name", "/sys/user:#2/name", equal},
                    {"/sys/user:#anything/name", "/sys/user:3/name", equal},
                    {"/sys/user:3#/name", "/sys/user:3/name", differ},
                    {"/sys/user:#/name", "/sys/user:3/level", differ},
                    {"/sys/user:#/name", "/sys/user/name", differ},
                    {"/A:#/B:#/C", "/A:10/B:200/C", equal},
                    {"/A:#/B:2/C", "/A:1/B:#/C", equal},
                    {"/A:#/B:2/C", "/A:1/B:3/C", differ},
                    {"/A:#/B:12", "/A:3/B:12", equal}});
}

// The walk ends where the shorter path does.
TEST(Pathcmp, LetsAWildcardAtTheEndStandForOneCharacter) {
    expect_pathcmp({{"/A:#", "/A:1", equal},
                    {"/A:#", "/A:12", differ},
                    {"/A:#", "/A:", differ},
                    {"/A:#", "/A", differ},
                    {"/A:#", "/A:#", equal},
                    {"/A:#x", "/A:12", equal},
                    {"/A:#", "/A:1/", differ},
                    {"/A:#/", "/A:12/", equal},
                    {"/A:#/B", "/A:1", differ},
                    {"/A:12", "/A:#/", differ}});
}

// A second colon is part of the field.
TEST(Pathcmp, TakesAFieldWithColonsAsAWhole) {
    expect_pathcmp({{"/A:1:2", "/A:1:2", equal},
                    {"/A:1:2/B", "/A:1:2/B", equal},
                    {"/A:1:2/B", "/A:1:3/B", differ},
                    {"/A:1:#/B", "/A:1:3/B", differ},
                    {"/A:#:2/B", "/A:7:3/B", equal},
                    {"/A::/B", "/A::/B", equal},
                    {"/A:.1/B", "/A:.1/B", equal},
                    {"/A:1.2/B", "/A:1.3/B", differ}});
}

TEST(Pathcmp, Compares31CharactersOfAField) {
    const std::string common(31, '7');
    for (const char *tail : {"/B", ""}) {
        EXPECT_EQ(compare("/A:" + common + "1" + tail, "/A:" + common + "2" + tail, 0), 0);
        EXPECT_EQ(compare("/A:" + common.substr(1) + "1" + tail,
                          "/A:" + common.substr(1) + "2" + tail, 0),
                  1);
    }
    EXPECT_EQ(compare("/A:" + common + "/B", "/A:" + common + std::string(5000, '1') + "/B", 0), 0);
    EXPECT_EQ(compare("/A:" + common, "/A:" + common + "1", 0), 1) << "characters are left";
    EXPECT_EQ(compare("/A:" + common.substr(1) + "/B", "/A:" + common + "/B", 0), 1);
}

// ---- pathpartcmp -----------------------------------------------------------

constexpr int first_begins_second = 0; // any other direction: the second the first

void expect_begins(const std::vector<Pair> &rows, int nocase = 0) {
    for (const auto &[part, whole, match] : rows)
        EXPECT_EQ(compare_part(part, whole, first_begins_second, nocase), match ? 0 : 1)
            << part << " in " << whole;
}

void expect_begun_by(const std::vector<Pair> &rows, int nocase = 0) {
    for (const auto &[whole, part, match] : rows)
        for (const int direction : {1, -1, 2})
            EXPECT_EQ(compare_part(whole, part, direction, nocase), match ? 0 : 1)
                << whole << " of " << part;
}

TEST(Pathpartcmp, LooksForTheBeginningOfAPath) {
    expect_begins({{"/A/B", "/A/B/C", equal},
                   {"/A/B", "/A/B", equal},
                   {"/A/B/C", "/A/B", differ},
                   {"/A/B/", "/A/B", differ},
                   {"/A/B", "/A/BC", equal},
                   {"/A/C", "/A/B/C", differ},
                   {"", "/A", equal},
                   {"/", "/A", equal},
                   {"/A", "", differ},
                   {"/A", "/", differ},
                   {"", "", equal}});
    expect_begun_by({{"/A/B/C", "/A/B", equal},
                     {"/A/B", "/A/B", equal},
                     {"/A/B", "/A/B/C", differ},
                     {"/A/BC", "/A/B", equal},
                     {"/A/B/C", "/A/C", differ},
                     {"/A", "", equal},
                     {"/A", "/", equal},
                     {"", "/A", differ},
                     {"", "", equal}});
}

TEST(Pathpartcmp, TakesDotsForSlashes) {
    expect_begins({{".A.B", "/A/B/C", equal},
                   {"A.B", "/A/B/C", equal},
                   {"A/B", "A.B.C", equal},
                   {"A.B.", "A/B/C", equal},
                   {"A.B.", "A/BC", differ},
                   {"A.B", "A:B", differ}});
    expect_begun_by({{"/A/B/C", "A.B", equal}, {"A.B.C", "/A/B", equal}, {"A.B.C", "A/C", differ}});
}

TEST(Pathpartcmp, PassesOverLeadingSeparators) {
    expect_begins({{"/A", "A/B", equal},
                   {".A", "A/B", equal},
                   {"A", "/A/B", equal},
                   {"/A", "/A/B", equal},
                   {".A", "/A/B", equal},
                   {"A", ".A/B", differ},
                   {".A", ".A/B", differ},
                   {"/A", ".A/B", differ},
                   {"..A", ".A/B", differ},
                   {"..A", "/.A/B", equal},
                   {"/.A", "x.A/B", equal},
                   {"..A", "/A/B", differ},
                   {"//A", "//A/B", equal},
                   {"//A", "/A/B", differ}});
    expect_begun_by({{"A/B", "/A", equal},
                     {"/A/B", "A", equal},
                     {".A/B", "/A", equal},
                     {".A/B", ".A", equal},
                     {".A/B", "xA", equal},
                     {".A/B", "A", equal},
                     {".A/B", "AB", differ},
                     {"A/B", ".A", differ},
                     {"/A/B", ".A", differ},
                     {"//A", "//A", equal},
                     {"//A", "/A", differ}});
}

TEST(Pathpartcmp, HasNothingToPassOverInAnEmptyPath) {
    expect_begins({{"..", "", differ}, {".", "", equal}, {"/", "", equal}, {"", "..", equal}});
    expect_begun_by({{"..", "", equal}, {".", "", equal}, {"", ".", differ}, {"", "/", equal}});
}

TEST(Pathpartcmp, LetsAWildcardStandForAnyInstance) {
    expect_begins({{"/A:#.X", "/A:7/X/Y", equal},
                   {"/A:#.X", "/A:712/X/Y", equal},
                   {"/A:7.X", "/A:#/X/Y", equal},
                   {"/A:7.X", "/A:8/X/Y", differ},
                   {"/A:#.X", "/A:7/Y", differ},
                   {"/A:#", "/A:7/X", equal},
                   {"/A:#", "/A:712/X", equal},
                   {"/A:71", "/A:712/X", equal},
                   {"/A:71", "/A:#/X", equal},
                   {"/A:71", "/A:8/X", differ},
                   {"/A:72", "/A:712/X", differ},
                   {"/A:", "/A:712/X", equal},
                   {"/A:7/", "/A:712/X", differ},
                   {"/A:1.2", "/A:1/2", equal},
                   {"/A:1:2/B", "/A:1:2.B", equal}});
    expect_begun_by({{"/A:7/X/Y", "/A:#.X", equal},
                     {"/A:#/X/Y", "/A:12.X", equal},
                     {"/A:7/X/Y", "/A:8.X", differ},
                     {"/A:712/X", "/A:71", equal}});
}

TEST(Pathpartcmp, TakesCaseForADifferenceUnlessToldOtherwise) {
    expect_begins({{"/a/b", "/A/B/C", differ}});
    expect_begins({{"/a/b", "/A/B/C", equal}, {"a.b", "/A/B/C", equal}, {"/a:x/", "/A:X/", differ}},
                  1);
    expect_begun_by({{"/A/B/C", "/a.b", differ}});
    expect_begun_by({{"/A/B/C", "/a.b", equal}}, 1);
}

TEST(Pathpartcmp, Compares31CharactersOfAField) {
    const std::string common(31, '7');
    EXPECT_EQ(compare_part("/A:" + common + "1/B", "/A:" + common + "2/B/C", 0, 0), 0);
    EXPECT_EQ(compare_part("/A:" + common.substr(1) + "1.", "/A:" + common.substr(1) + "2/", 0, 0),
              1);
    EXPECT_EQ(compare_part("/A:" + common + "12", "/A:" + common + "3", 1, 0), 0);
}

// ---- pathobjectcmp ---------------------------------------------------------

void expect_object(const std::vector<Pair> &rows) {
    for (const auto &[pattern, path, match] : rows)
        EXPECT_EQ(compare_object(pattern, path), match ? 0 : 1) << path << " in " << pattern;
}

TEST(Pathobjectcmp, MatchesTheObjectAndWhatIsRightBelowIt) {
    expect_object({{"/A/B", "/A/B", equal},
                   {"/A/B", "/A/B/", equal},
                   {"/A/B", "/A/B/C", equal},
                   {"/A/B", "/A/B/C/D", differ},
                   {"/A/B", "/A/B/C/", differ},
                   {"/A/B", "/A/B//", differ},
                   {"/A/B", "/A", differ},
                   {"/A/B", "/A/", differ},
                   {"/A/B", "/A/b", differ},
                   {"/A/B", "/A/C", differ},
                   {"", "", equal},
                   {"", "/A", equal},
                   {"", "A", equal},
                   {"", "/A/B", differ},
                   {"/A", "", differ}});
}

TEST(Pathobjectcmp, LetsAWildcardStandForDigits) {
    expect_object({{"/A/B:#", "/A/B:3", equal},
                   {"/A/B:#", "/A/B:3/", equal},
                   {"/A/B:#", "/A/B:3/Enable", equal},
                   {"/A/B:#", "/A/B:1234567890/Enable", equal},
                   {"/A/B:#", "/A/B:3/C/D", differ},
                   {"/A/B:#", "/A/B:/x", differ},
                   {"/A/B:#", "/A/B:", differ},
                   {"/A/B:#", "/A/B:x", differ},
                   {"/A/B:#", "/A/B:#", differ},
                   {"/A/B:#", "/A/B:-1", differ},
                   {"/A:#/B:#", "/A:10/B:20/C", equal},
                   {"/A:#/B:#", "/A:10/B/C", differ},
                   {"/A:#5", "/A:35", differ},
                   {"/A:##", "/A:35", differ},
                   {"#", "7", equal},
                   {"/A#", "/A1/B", equal}});
}

// Behind the object anything goes until the next element.
TEST(Pathobjectcmp, DoesNotAskForASeparatorBehindTheObject) {
    expect_object({{"/A/B:#", "/A/B:3x", equal},
                   {"/A/B:#", "/A/B:3x/C", differ},
                   {"/A/B", "/A/BC", equal},
                   {"/A/B", "/A/BC/D", differ},
                   {"/A/B", "/A/B.C.D", equal}});
}

// ---- all of them -----------------------------------------------------------

TEST(PathMatching, FindsNullPathsDifferent) {
    EXPECT_EQ(pathcmp(nullptr, "/A", 0), 1);
    EXPECT_EQ(pathcmp("/A", nullptr, 0), 1);
    EXPECT_EQ(pathcmp(nullptr, nullptr, 0), 1);
    for (const int direction : {0, 1}) {
        EXPECT_EQ(pathpartcmp(nullptr, "/A", direction, 0), 1);
        EXPECT_EQ(pathpartcmp("/A", nullptr, direction, 0), 1);
        EXPECT_EQ(pathpartcmp("", nullptr, direction, 0), 1);
        EXPECT_EQ(pathpartcmp(nullptr, "", direction, 0), 1);
    }
    EXPECT_EQ(pathobjectcmp(nullptr, "/A"), 1);
    EXPECT_EQ(pathobjectcmp("/A", nullptr), 1);
    EXPECT_EQ(pathobjectcmp("", nullptr), 1);
}

// Bytes above 127 are letters in some locales and never indices below 0.
TEST(PathMatching, TakesBytesOutsideAsciiAsTheyAre) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string path = std::string("/A") + static_cast<char>(byte) + "/B";
        for (const int nocase : {0, 1}) {
            EXPECT_EQ(compare(path, path, nocase), 0) << byte;
            EXPECT_EQ(compare(path, "/A\x01/B", nocase), byte == 1 ? 0 : 1) << byte;
            EXPECT_EQ(compare_part(path, path, 0, nocase), 0) << byte;
        }
        EXPECT_EQ(compare_object(path, path), byte == '#' ? 1 : 0) << byte;
    }
}

// ---- properties ------------------------------------------------------------

// A path of a random tree: names and instances from a few, so that paths often agree.
std::string random_path(Random &random, const std::string &separators) {
    static const std::vector<std::string> names = {"A", "a", "B", "AB", "name", "Enable"};
    static const std::vector<std::string> numbers = {
        "1", "2", "12", "#", "#", "#1", "", std::string(31, '1'), std::string(32, '1'), "1:2"};
    std::string path;
    for (unsigned left = random.below(5); left > 0; --left) {
        path += random.one_of(separators);
        path += random.one_of(names);
        if (random.below(2) == 0)
            path += ":" + random.one_of(numbers);
    }
    if (random.below(8) == 0)
        path += random.one_of(separators);
    return path;
}

// The path with one thing about it changed, or as it is.
std::string varied(Random &random, std::string path) {
    if (path.empty())
        return path;
    const std::size_t at = random.below(static_cast<unsigned>(path.size()));
    switch (random.below(5)) {
    case 0:
        path.resize(at);
        break;
    case 1:
        path.insert(at, 1, random.one_of(std::string_view("/.:#1A")));
        break;
    case 2:
        path[at] = random.one_of(std::string_view("/.:#1A"));
        break;
    case 3:
        for (char &c : path)
            c = c == '/' ? '.' : c;
        break;
    default:
        break;
    }
    return path;
}

std::string without(char c, std::string path) {
    std::erase(path, c);
    return path;
}

class PathProperties : public testing::Test {
protected:
    template<typename Check> void for_random_pairs(Check check) {
        for (int round = 0; round < 12000 && !HasFailure(); ++round) {
            const std::string a = random_path(random, "///.");
            const std::string b =
                random.below(4) == 0 ? random_path(random, "///.") : varied(random, a);
            SCOPED_TRACE(a + " and " + b);
            check(a, b);
        }
    }

    Random random;
    int matches = 0;
    int differences = 0;
    int count(int result) {
        ++(result == 0 ? matches : differences);
        return result;
    }
    void expect_both() const {
        EXPECT_GT(matches, 1000);
        EXPECT_GT(differences, 1000);
    }
};

TEST_F(PathProperties, PathcmpAgreesWithAModel) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        for (const int nocase : {0, 1})
            EXPECT_EQ(count(pathcmp(a.c_str(), b.c_str(), nocase)),
                      model::pathcmp(a, b, nocase != 0));
    });
    expect_both();
}

TEST_F(PathProperties, PathpartcmpAgreesWithAModel) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        for (const int direction : {0, 1})
            for (const int nocase : {0, 1})
                EXPECT_EQ(count(pathpartcmp(a.c_str(), b.c_str(), direction, nocase)),
                          model::pathpartcmp(a, b, direction, nocase != 0));
    });
    expect_both();
}

TEST_F(PathProperties, PathobjectcmpAgreesWithAModel) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        EXPECT_EQ(count(pathobjectcmp(a.c_str(), b.c_str())), model::pathobjectcmp(a, b));
        std::string path = b;
        for (char &c : path)
            c = c == '#' ? '3' : c;
        EXPECT_EQ(count(pathobjectcmp(a.c_str(), path.c_str())), model::pathobjectcmp(a, path));
    });
    expect_both();
}

TEST_F(PathProperties, EqualityIsReflexiveAndSymmetric) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        EXPECT_EQ(pathcmp(a.c_str(), a.c_str(), 0), 0);
        for (const int nocase : {0, 1})
            EXPECT_EQ(count(pathcmp(a.c_str(), b.c_str(), nocase)),
                      pathcmp(b.c_str(), a.c_str(), nocase));
    });
    expect_both();
}

// With a leading "/" on both, the two directions are each other's mirror.
TEST_F(PathProperties, TheDirectionsMirrorEachOther) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        const std::string first = "/x" + a;
        const std::string second = "/x" + b;
        EXPECT_EQ(count(pathpartcmp(first.c_str(), second.c_str(), 0, 0)),
                  pathpartcmp(second.c_str(), first.c_str(), 1, 0));
    });
    expect_both();
}

// Only a dot ends an instance field for one comparison and not for the other.
TEST_F(PathProperties, EqualPathsBeginEachOther) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        const std::string first = "/x" + without('.', a);
        const std::string second = "/x" + without('.', b);
        if (count(pathcmp(first.c_str(), second.c_str(), 0)) != 0)
            return;
        EXPECT_EQ(pathpartcmp(first.c_str(), second.c_str(), 0, 0), 0);
        EXPECT_EQ(pathpartcmp(first.c_str(), second.c_str(), 1, 0), 0);
    });
    expect_both();
}

TEST_F(PathProperties, EveryPrefixBeginsItsPath) {
    for (int round = 0; round < 1500; ++round) {
        const std::string path = "/x" + random_path(random, "/.");
        for (std::size_t length = 0; length <= path.size(); ++length) {
            const std::string prefix = path.substr(0, length);
            ASSERT_EQ(pathpartcmp(prefix.c_str(), path.c_str(), 0, 0), 0) << prefix << ' ' << path;
            ASSERT_EQ(pathpartcmp(path.c_str(), prefix.c_str(), 1, 0), 0) << prefix << ' ' << path;
            ASSERT_EQ(pathcmp(prefix.c_str(), path.c_str(), 0), length == path.size() ? 0 : 1);
        }
    }
}

// Where there are no instances and no dots, a path is a text.
TEST_F(PathProperties, WithoutInstancesPathsAreTexts) {
    for_random_pairs([&](const std::string &a, const std::string &b) {
        const std::string first = without(':', a);
        const std::string second = without(':', b);
        EXPECT_EQ(count(pathcmp(first.c_str(), second.c_str(), 0)), first == second ? 0 : 1);
        EXPECT_EQ(pathcmp(first.c_str(), second.c_str(), 1),
                  strcasecmp(first.c_str(), second.c_str()) == 0 ? 0 : 1);
    });
    expect_both();
}

} // namespace
} // namespace zan::test
