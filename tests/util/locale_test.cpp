// SPDX-License-Identifier: MIT
//
// Letters without regard to case, in a module that has set a locale of its own: they
// are those of the locale in paths, and of a hash only where they are ASCII.
#include <zan.h>

#include "support/program.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace zan::test {
namespace {

namespace fs = std::filesystem;

// Sets a locale made for this test, below /tmp; the reason why there is none otherwise.
std::string use_locale(const std::string &source, const std::string &character_map) {
    if (const std::string reason = why_no_host_programs(); !reason.empty())
        return reason;
    const std::string sources = "/usr/share/i18n/locales/" + source;
    if (!fs::exists("/usr/bin/localedef") || !fs::exists(sources))
        return "localedef or its sources are not installed";
    const fs::path directory = "/tmp/zan_locales";
    fs::create_directory(directory);
    Program localedef({"/usr/bin/localedef", "--no-archive", "-i", source, "-f", character_map,
                       directory / source},
                      {.host = true});
    localedef.wait();
    setenv("LOCPATH", directory.c_str(), 1);
    if (std::setlocale(LC_ALL, source.c_str()) == nullptr)
        return "localedef made no locale for this C library: " + localedef.error();
    return {};
}

int compare(const std::string &a, const std::string &b, int nocase) {
    return pathcmp(a.c_str(), b.c_str(), nocase);
}

int compare_part(const std::string &a, const std::string &b, int nocase) {
    return pathpartcmp(a.c_str(), b.c_str(), 0, nocase);
}

// The hash of a single character, from what is mixed in for it.
std::uint32_t hash_of(std::uint32_t mixed_in) {
    return ((0x811C9DC5U * 0x01000193U) ^ mixed_in) & 0x7FFFFFFFU;
}

TEST(WithoutALocale, OnlyAsciiLettersHaveACase) {
    EXPECT_EQ(compare("/A\xc4/I", "/a\xe4/i", 1), 1);
    EXPECT_EQ(compare("/A/I", "/a/i", 1), 0);
    EXPECT_EQ(compare_part("/A\xc4", "/a\xe4/i", 1), 1);
    EXPECT_EQ(fnv1_hash("I", 0), hash_of('i'));
    EXPECT_EQ(fnv1_hash("\xc4", 0), hash_of(0xFFFFFFC4));
}

TEST(Latin1, LettersOfPathsAreItsOwn) {
    ZAN_SKIP_WITH_REASON(use_locale("de_DE", "ISO-8859-1"));
    EXPECT_EQ(compare("/A\xc4/I", "/a\xe4/i", 1), 0);
    EXPECT_EQ(compare("/A\xc4/I", "/a\xe4/i", 0), 1);
    EXPECT_EQ(compare("/\xc4", "/\xd6", 1), 1);
    EXPECT_EQ(compare("/\xd7", "/\xf7", 1), 1) << "the signs between the letters have no case";
    EXPECT_EQ(compare_part("/A\xc4", "/a\xe4/i", 1), 0);
    EXPECT_EQ(compare_part("/A\xc4", "/a\xe4/i", 0), 1);
    EXPECT_EQ(compare("/A:\xc4/B", "/A:\xe4/B", 1), 1) << "instances are compared exactly";
}

TEST(Latin1, AHashMixesHighBytesInAsTheyAre) {
    ZAN_SKIP_WITH_REASON(use_locale("de_DE", "ISO-8859-1"));
    EXPECT_EQ(fnv1_hash("I", 0), hash_of('i'));
    EXPECT_EQ(fnv1_hash("\xc4", 0), hash_of(0xFFFFFFC4));
    EXPECT_EQ(fnv1_hash("\xe4", 0), hash_of(0xFFFFFFE4));
}

// Its I has no dot in either case: 0xfd is the small one, 0xdd the great one with a dot.
TEST(Turkish, LettersOfPathsAreItsOwn) {
    ZAN_SKIP_WITH_REASON(use_locale("tr_TR", "ISO-8859-9"));
    EXPECT_EQ(compare("/I", "/i", 1), 1);
    EXPECT_EQ(compare("/I", "/\xfd", 1), 0);
    EXPECT_EQ(compare("/\xdd", "/i", 1), 0);
    EXPECT_EQ(compare("/WLAN", "/wlan", 1), 0);
    EXPECT_EQ(compare_part("/I", "/i/a", 1), 1);
    EXPECT_EQ(compare_part("/I", "/\xfd/a", 1), 0);
}

TEST(Turkish, AHashHasItsI) {
    ZAN_SKIP_WITH_REASON(use_locale("tr_TR", "ISO-8859-9"));
    EXPECT_EQ(fnv1_hash("I", 0), hash_of(0xFD));
    EXPECT_EQ(fnv1_hash("i", 0), hash_of('i'));
    EXPECT_EQ(fnv1_hash("\xdd", 0), hash_of(0xFFFFFFDD));
}

} // namespace
} // namespace zan::test
