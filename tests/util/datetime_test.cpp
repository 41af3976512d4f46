// SPDX-License-Identifier: MIT
//
// Time zones are given by their rules, so that no zone files are needed.
#include <zan.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>

namespace zan::test {
namespace {

constexpr bool wide_time = sizeof(std::time_t) > 4;

constexpr const char *utc = "UTC0";
constexpr const char *berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char *new_york = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char *sydney = "AEST-10AEDT,M10.1.0,M4.1.0/3";
constexpr const char *kathmandu = "<+0545>-5:45";
constexpr const char *lord_howe = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
constexpr const char *sao_paulo = "<-03>3";
constexpr const char *chatham = "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45";
constexpr const char *dublin = "IST-1GMT0,M10.5.0,M3.5.0/1"; // winter is the exception
constexpr const char *zones[] = {utc,       berlin,    new_york, sydney, kathmandu,
                                 lord_howe, sao_paulo, chatham,  dublin};

void set_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
}

std::int32_t seconds_of(const std::string &text) {
    std::int32_t seconds = 4711;
    EXPECT_EQ(string_time(text.c_str(), &seconds), 1);
    return seconds;
}

std::string text_of(std::int32_t seconds) {
    char text[32] = "old";
    EXPECT_EQ(time_string(text, sizeof text, seconds), text);
    return text;
}

// ---- time to text ----------------------------------------------------------

TEST(TimeString, IsUtcWithoutAZoneInEveryZone) {
    for (const char *zone : zones) {
        SCOPED_TRACE(zone);
        set_zone(zone);
        EXPECT_EQ(text_of(86400), "1970-01-02T00:00:00");
        EXPECT_EQ(text_of(1), "1970-01-01T00:00:01");
        EXPECT_EQ(text_of(-1), "1969-12-31T23:59:59");
        EXPECT_EQ(text_of(1577880000), "2020-01-01T12:00:00");
        EXPECT_EQ(text_of(1593604800), "2020-07-01T12:00:00");
        EXPECT_EQ(text_of(INT32_MAX), "2038-01-19T03:14:07");
        EXPECT_EQ(text_of(INT32_MIN), "1901-12-13T20:45:52");
    }
}

TEST(TimeString, ZeroIsTheUnknownTimeWhateverTheSize) {
    for (const unsigned int size : {0U, 1U, 5U, 20U, 32U}) {
        char text[32] = "old";
        EXPECT_EQ(time_string(text, size, 0), text);
        EXPECT_STREQ(text, "0001-01-01T00:00:00Z");
    }
}

TEST(TimeString, LeavesAnEmptyTextWhereItDoesNotFit) {
    for (unsigned int size = 0; size <= 21; ++size) {
        SCOPED_TRACE(size);
        char text[32];
        std::memset(text, '~', sizeof text);
        EXPECT_EQ(time_string(text, size, 86400), text);
        const std::string expected = size == 0   ? "~"
                                     : size < 20 ? std::string(1, '\0')
                                                 : "1970-01-02T00:00:00";
        EXPECT_EQ(std::string(text, expected.size()), expected);
        EXPECT_EQ(text[std::max(size, 1U)], '~');
    }
}

TEST(TimeString, TakesNoBuffer) {
    EXPECT_EQ(time_string(nullptr, 32, 0), nullptr);
    EXPECT_EQ(time_string(nullptr, 32, 86400), nullptr);
}

// ---- text to time, the zone given in the text ----------------------------------

struct Utc {
    const char *text;
    std::int32_t seconds;
};

constexpr std::int32_t noon = 1577880000; // 2020-01-01T12:00:00 UTC

constexpr Utc texts_in_utc[] = {
    {"2020-01-01T12:00:00Z", noon},
    {"20200101T120000Z", noon},
    {"20200101T12:00:00Z", noon},
    {"2020-01-01T12:00:00X", noon}, // any other suffix is no offset
    {"2020-01-01T12:00:00 Z", noon},
    {"2020-7-1T12:0:0Z", 1593604800},
    {"0001-01-01T00:00:00Z", 0},
    {"1-1-1T0:0:0Z", 0},
    {"00010101T000000Z", 0},
    {"0001-06-01T00:00:00Z", 13046400}, // only the year is replaced
    {"1970-01-02T00:00:00Z", 86400},
    {"1970-01-01T00:00:00Z", 0},
    {"1969-12-31T23:59:59Z", -1},
    // offsets
    {"2020-01-01T12:00:00+01:00", noon - 3600},
    {"2020-01-01T12:00:00+0100", noon - 3600},
    {"2020-01-01T12:00:00-05:30", noon + 19800},
    {"2020-01-01T12:00:00-0530", noon + 19800},
    {"2020-01-01T12:00:00-00:30", noon - 1800}, // no negative hours: half an hour ahead
    {"2020-01-01T12:00:00-0030", noon + 1800},
    {"2020-01-01T12:00:00+00:00", noon},
    {"2020-01-01T12:00:00+1", noon - 60}, // a number hhmm
    {"2020-01-01T12:00:00+1:00", noon - 60},
    {"2020-01-01T12:00:00-100", noon + 3600},
    {"2020-01-01T12:00:00+01:", noon - 3600},
    {"2020-01-01T12:00:00+01:x", noon - 3600},
    {"2020-01-01T12:00:00-01:-30", noon + 3600 - 1800},
    {"2020-01-01T12:00:00+", noon},
    {"2020-01-01T12:00:00-", noon},
    {"2020-01-01T12:00:00+x", noon},
    {"2020-01-01T12:00:00+ab:10", noon},
    {"20200101T120000+0100", noon - 3600},
    {"20200101T12:00:00+01:00", noon - 3600},
    // fractions
    {"2020-01-01T12:00:00.250Z", noon},
    {"2020-01-01T12:00:00.Z", noon},
    {"2020-01-01T12:00:00.25", noon}, // a suffix, and so UTC
    {"2020-01-01T12:00:00.250+01:00", noon - 3600},
    {"2020-01-01T12:00:00.250-0100", noon + 3600},
    {"20200101T120000.5Z", noon},
    // a suffix has 31 characters: what follows is not seen
    {"2020-01-01T12:00:00.123456789012345678901234567890+01:00", noon},
    {"2020-01-01T12:00:00.12345678901234567890123456789+01:00", noon},
    {"2020-01-01T12:00:00.1234567890123456789012345678+01:00", noon}, // "+0"
    {"2020-01-01T12:00:00.1234567890123456789012345+01:00", noon - 3600},
    {"2020-01-01T12:00:00.123456789012345678901234567+0101", noon - 60}, // "+01"
    // fields out of range carry over
    {"2020-01-01T12:00:60Z", noon + 60},
    {"2019-13-01T12:00:00Z", noon},
    {"2019-12-32T12:00:00Z", noon},
    {"2020-00-32T12:00:00Z", noon},
    {"2020-01-02T-12:00:00Z", noon},
    // what C calls -1 as an error is a second like any other
    {"1970-01-01T00:59:59Z", 3599},
    {"1970-01-01T01:59:59Z", 7199}};

TEST(StringTime, ReadsTextsInUtcTheSameInEveryZone) {
    for (const char *zone : zones) {
        SCOPED_TRACE(zone);
        set_zone(zone);
        for (const Utc &row : texts_in_utc)
            EXPECT_EQ(seconds_of(row.text), row.seconds) << row.text;
    }
}

// ---- text to time, without a zone --------------------------------------------

TEST(StringTime, TakesATextWithoutSuffixForLocalTime) {
    struct {
        const char *zone;
        const char *text;
        std::int32_t seconds;
    } const rows[] = {
        {utc, "2020-01-01T12:00:00", noon},
        {utc, "20200101T120000", noon},
        {utc, "20200101T12:00:00", noon},
        {berlin, "2020-01-01T12:00:00", noon - 3600},
        {berlin, "2020-07-01T12:00:00", 1593604800 - 7200}, // daylight saving
        {berlin, "2020-03-29T01:59:59", 1585443599},        // before the clock goes forward
        {berlin, "2020-03-29T03:00:00", 1585443600},        // and the second after
        {berlin, "2020-10-25T01:59:59", 1603583999},
        {berlin, "2020-10-25T03:00:00", 1603591200},
        {new_york, "2020-01-01T12:00:00", noon + 18000},
        {new_york, "2020-07-01T12:00:00", 1593604800 + 14400},
        {sydney, "2020-01-01T12:00:00", noon - 39600}, // summer in January
        {sydney, "2020-07-01T12:00:00", 1593604800 - 36000},
        {kathmandu, "2020-01-01T12:00:00", noon - 20700},
        {lord_howe, "2020-01-01T12:00:00", noon - 39600},
        {lord_howe, "2020-07-01T12:00:00", 1593604800 - 37800},
        {sao_paulo, "2020-01-01T12:00:00", noon + 10800},
        {dublin, "2020-01-01T12:00:00", noon},
        {dublin, "2020-07-01T12:00:00", 1593604800 - 3600},
        {berlin, "0001-01-01T00:00:00", -3600}, // the unknown time, taken for local
        {utc, "2020", 1575072000},              // the day before the first of December
        {utc, "2020-06-15", 1592179200},
        {utc, "20200615T10", 1592179200 + 36000},
    };
    for (const auto &row : rows) {
        set_zone(row.zone);
        EXPECT_EQ(seconds_of(row.text), row.seconds) << row.text << " in " << row.zone;
    }
}

TEST(StringTime, LeavesAnHourThatThereIsTwiceOrNeverToTheLibrary) {
    set_zone(berlin);
    const std::int32_t twice = seconds_of("2020-10-25T02:30:00");
    EXPECT_TRUE(twice == 1603585800 || twice == 1603589400) << twice;
    const std::int32_t never = seconds_of("2020-03-29T02:30:00");
    EXPECT_TRUE(never == 1585441800 || never == 1585445400) << never;
}

TEST(StringTime, TakesADashAnywhereForADateWithDashes) {
    set_zone(utc);
    // The year is 20200101 then, and nothing follows it.
    EXPECT_EQ(seconds_of("20200101T12:00:00-05:00"), -1);
    EXPECT_EQ(seconds_of("20200101T120000-0500"), -1);
}

TEST(StringTime, GivesMinusOneForWhatIsNoTime) {
    for (const char *zone : zones) {
        set_zone(zone);
        for (const char *text : {"", "x", "-", ":", "T", "Z", "--", "0", "0000-00-00T00:00:00Z"})
            EXPECT_EQ(seconds_of(text), -1) << text << " in " << zone;
    }
}

TEST(StringTime, GivesMinusOneForNumbersBeyondAnyTime) {
    const std::string huge = "99999999999999999999";
    for (const char *zone : {utc, berlin}) {
        set_zone(zone);
        for (const std::string &text :
             {huge + "-01-01T00:00:00Z", "-" + huge + "-01-01T00:00:00Z",
              "2020-" + huge + "-01T00:00:00Z", "2020--" + huge + "-01T00:00:00Z",
              "2020-01-" + huge + "T00:00:00", "2020-01-01T" + huge + ":00:00Z",
              "2020-01-01T-" + huge + ":00:00+" + huge, "2020-01-01T" + huge + ":00:00-" + huge,
              "2020-01-01T00:" + huge + ":" + huge + "-21:" + huge, "2020-01-01T00:00:00+" + huge,
              "2020-01-01T00:-" + huge + ":00+21:" + huge, "20200101T" + huge + ":0:0",
              std::string("3000-01-01T00:00:00Z"), std::string("1800-01-01T00:00:00Z"),
              std::string("1900-01-01T00:00:00")})
            EXPECT_EQ(seconds_of(text), -1) << text << " in " << zone;
    }
}

TEST(StringTime, WantsATextAndAPlace) {
    std::int32_t seconds = 4711;
    EXPECT_EQ(string_time(nullptr, &seconds), 0);
    EXPECT_EQ(seconds, 4711);
    EXPECT_EQ(string_time("2020-01-01T12:00:00Z", nullptr), 0);
    EXPECT_EQ(string_time(nullptr, nullptr), 0);
}

// ---- the limits of 32 bits ---------------------------------------------------

TEST(StringTime, EndsWithThe32ndBitInUtc) {
    set_zone(utc);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:07Z"), INT32_MAX);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:07"), INT32_MAX);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:08Z"), -1);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:08"), -1);
    EXPECT_EQ(seconds_of("2038-01-19T04:14:07+01:00"), INT32_MAX);
    EXPECT_EQ(seconds_of("2038-01-19T04:14:08+01:00"), -1);
    EXPECT_EQ(seconds_of("1901-12-13T20:45:52Z"), INT32_MIN);
    EXPECT_EQ(seconds_of("1901-12-13T20:45:51Z"), -1);
}

// On the way a text in UTC is taken for local time, twice, which a narrow time_t
// cannot hold for the last hours west of Greenwich and the first hours east of it.
TEST(StringTime, EndsHoursEarlierElsewhereWhereTheLibraryHas32Bits) {
    for (const char *zone : zones) {
        SCOPED_TRACE(zone);
        set_zone(zone);
        const std::int32_t last = seconds_of("2038-01-19T03:14:07Z");
        const std::int32_t first = seconds_of("1901-12-13T20:45:52Z");
        EXPECT_TRUE(last == INT32_MAX || (!wide_time && last == -1)) << last;
        EXPECT_TRUE(first == INT32_MIN || (!wide_time && first == -1)) << first;
        EXPECT_EQ(seconds_of("2038-01-19T03:14:08Z"), -1);
        EXPECT_EQ(seconds_of("1901-12-13T20:45:51Z"), -1);
        // A day from the limits all can tell.
        EXPECT_EQ(seconds_of("2038-01-18T03:14:07Z"), INT32_MAX - 86400);
        EXPECT_EQ(seconds_of("1901-12-15T20:45:52Z"), INT32_MIN + 2 * 86400);
    }
    set_zone(new_york);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:07Z"), wide_time ? INT32_MAX : -1);
    EXPECT_EQ(seconds_of("2038-01-18T17:14:08Z"), wide_time ? INT32_MAX - 35999 : -1);
    EXPECT_EQ(seconds_of("2038-01-18T17:14:07Z"), INT32_MAX - 36000);
    set_zone(berlin);
    EXPECT_EQ(seconds_of("1901-12-13T20:45:52Z"), wide_time ? INT32_MIN : -1);
    EXPECT_EQ(seconds_of("2038-01-19T03:14:07Z"), INT32_MAX);
}

// ---- properties --------------------------------------------------------------

TEST(DateTime, EveryTimeComesBackFromItsTextInEveryZone) {
    std::mt19937 generator(4711); // NOLINT: the same times in every run
    std::uniform_int_distribution<std::int32_t> any(INT32_MIN + 2 * 86400, INT32_MAX - 86400);
    for (const char *zone : zones) {
        SCOPED_TRACE(zone);
        set_zone(zone);
        for (int round = 0; round < 100; ++round) {
            const std::int32_t seconds = any(generator);
            ASSERT_EQ(seconds_of(text_of(seconds) + "Z"), seconds);
        }
        EXPECT_EQ(seconds_of(text_of(0)), 0);
    }
}

TEST(DateTime, AYearWithItsClockChangesComesBack) {
    for (const char *zone : zones) {
        SCOPED_TRACE(zone);
        set_zone(zone);
        for (std::int32_t seconds = noon; seconds < noon + 366 * 86400; seconds += 18000)
            ASSERT_EQ(seconds_of(text_of(seconds) + "Z"), seconds);
    }
}

// The same conversion by the C library's scanner.
std::int32_t scanned_seconds(const char *text) {
    int year = 0;
    int month = 0;
    int day = 0;
    char suffix[32] = "";
    std::tm parts{};
    const char *format = std::strchr(text, '-') != nullptr   ? "%d-%d-%dT%d:%d:%d%31s"
                         : std::strchr(text, ':') != nullptr ? "%4d%2d%2dT%d:%d:%d%31s"
                                                             : "%4d%2d%2dT%2d%2d%2d%31s";
    std::sscanf(text, format, &year, &month, &day, &parts.tm_hour, &parts.tm_min, &parts.tm_sec,
                suffix);
    parts.tm_year = (year == 1 ? 1970 : year) - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_isdst = -1;
    if (suffix[0] != '\0') {
        const char *at = suffix;
        if (*at == '.')
            at += 1 + std::strspn(at + 1, "0123456789");
        int hours = 0;
        int minutes = 0;
        if ((*at == '+' || *at == '-') && std::strlen(at) > 3 && at[3] == ':') {
            std::sscanf(at, "%d:%d", &hours, &minutes);
            minutes = hours < 0 ? -minutes : minutes;
        } else if (*at == '+' || *at == '-') {
            std::sscanf(at, "%d", &hours);
            minutes = hours % 100;
            hours /= 100;
        }
        parts.tm_hour -= hours;
        parts.tm_min -= minutes;
        const std::int64_t seconds = timegm(&parts);
        return seconds >= INT32_MIN && seconds <= INT32_MAX ? static_cast<std::int32_t>(seconds)
                                                            : -1;
    }
    const std::int64_t seconds = std::mktime(&parts);
    return seconds >= INT32_MIN && seconds <= INT32_MAX ? static_cast<std::int32_t>(seconds) : -1;
}

TEST(DateTime, AnyTextIsScannedAsByTheLibrary) {
    std::mt19937 generator(4711); // NOLINT: the same texts in every run
    const auto below = [&](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(generator);
    };
    const std::string alphabet = "0123456789012345-+:T.Z \t";
    set_zone(utc); // where there is but one way to convert
    int times = 0;
    for (int round = 0; round < 10000; ++round) {
        static constexpr const char *beginnings[] = {
            "2020-01-01T12:00:00.250+01:00", "20200101T120000-0130", "20200101T12:00:00+0100",
            "0001-01-01T00:00:00Z", "2020-01-01T12:00:00"};
        std::string text = beginnings[below(std::size(beginnings))];
        for (std::size_t changes = below(4); changes > 0; --changes) {
            const std::size_t at = below(text.size());
            const char c = alphabet[below(alphabet.size())];
            switch (below(3)) {
            case 0:
                text[at] = c;
                break;
            case 1:
                text.insert(at, 1, c);
                break;
            default:
                text.erase(at, 1 + below(3));
            }
            if (text.empty())
                break;
        }
        const std::int32_t seconds = seconds_of(text);
        ASSERT_EQ(seconds, scanned_seconds(text.c_str())) << text;
        times += seconds != -1 ? 1 : 0;
    }
    EXPECT_GT(times, 5000);
}

} // namespace
} // namespace zan::test
