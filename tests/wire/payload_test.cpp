// SPDX-License-Identifier: MIT
#include "wire/action.h"
#include "wire/event.h"
#include "wire/subscription.h"
#include "wire/text_request.h"
#include "wire/value_change.h"

#include "support/raw.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace zan::wire {
namespace {

// A 32-bit number as it travels on queues.
std::string word(std::int32_t value) {
    test::RawRecord record;
    record.set_word(0, value);
    return {reinterpret_cast<const char *>(record.bytes), 4};
}

// ---- actions ---------------------------------------------------------------

std::string action_bytes(const Action &action) {
    std::string bytes;
    format_action(bytes, action);
    return bytes;
}

TEST(ActionPayload, IsFormattedByteForByte) {
    const std::string head = word(7) + word(1) + word(-3);
    EXPECT_EQ(action_bytes({.code = 7, .wait = 1, .param = -3, .name = "uptime"}),
              head + "uptime" + std::string(1018, '\0'));
    EXPECT_EQ(action_bytes({}), std::string(1036, '\0'));
    EXPECT_EQ(action_bytes({.name = std::string(1024, 'x')}),
              std::string(12, '\0') + std::string(1023, 'x') + '\0');
}

TEST(ActionPayload, IsParsedIfItIsWhole) {
    const std::string bytes = action_bytes({.code = 7, .wait = 1, .param = -3, .name = "a b"});
    const auto action = parse_action(bytes);
    ASSERT_TRUE(action);
    EXPECT_EQ(action->code, 7);
    EXPECT_EQ(action->wait, 1);
    EXPECT_EQ(action->param, -3);
    EXPECT_EQ(action->name, "a b");
    for (const std::size_t size : {0U, 1U, 12U, 1035U, 1037U, 35000U})
        EXPECT_FALSE(parse_action(std::string(size, '\0'))) << size;
    EXPECT_FALSE(parse_action(std::string(1036, 'x')));
    EXPECT_TRUE(parse_action(std::string(1035, 'x') + '\0'));
}

// ---- events ----------------------------------------------------------------

TEST(EventPayload, IsOneWord) {
    for (const std::int32_t code : {0, 1, -2, INT_MAX, INT_MIN}) {
        const auto bytes = format_event(code);
        EXPECT_EQ(std::string(bytes.data(), bytes.size()), word(code));
        EXPECT_EQ(parse_event(word(code)), code);
    }
    for (const std::string_view payload : {"", "abc", "abcde"})
        EXPECT_FALSE(parse_event(payload));
}

// ---- subscriptions ---------------------------------------------------------

TEST(SubscriptionPayload, HasSettingsBeforeThePath) {
    std::string bytes;
    format_subscription(bytes, {.flag = 2, .option = 255, .path = "/sys"});
    EXPECT_EQ(bytes, "\x02\xff/sys");
    bytes += std::string("\0rest", 5);
    const auto subscription = parse_subscription(bytes);
    ASSERT_TRUE(subscription);
    EXPECT_EQ(subscription->flag, 2);
    EXPECT_EQ(subscription->option, 255);
    EXPECT_EQ(subscription->path, "/sys");
    EXPECT_FALSE(parse_subscription(""));
    EXPECT_FALSE(parse_subscription("\x02"));
    EXPECT_EQ(parse_subscription("ab")->path, "");
}

// ---- value changes ---------------------------------------------------------

TEST(ValueChangePayload, IsFormattedFieldByField) {
    std::string text;
    format_value_change(text, {.source = "wlan",
                               .path = "/sys/name",
                               .value = "my%20router",
                               .kind = 1,
                               .option = 255,
                               .subscribed = "/sys"});
    EXPECT_EQ(text, "wlan /sys/name my%20router 1 255 /sys");
    text.clear();
    format_value_change(text, {.source = "m",
                               .path = "/a",
                               .value = "v",
                               .kind = INT_MIN,
                               .option = INT_MAX,
                               .subscribed = ""});
    EXPECT_EQ(text, "m /a v -2147483648 2147483647 ");
}

std::string shown(const ValueChange &change) {
    return std::string(change.source) + '|' + std::string(change.path) + '|' +
           std::string(change.value) + '|' + std::to_string(change.kind) + '|' +
           std::to_string(change.option) + '|' + std::string(change.subscribed);
}

TEST(ValueChangePayload, IsParsedAsScanfDoes) {
    EXPECT_EQ(shown(parse_value_change("wlan /a v 2 7 /b")), "wlan|/a|v|2|7|/b");
    EXPECT_EQ(shown(parse_value_change("\t wlan\n/a \v v\r +2  -7 /b rest")), "wlan|/a|v|2|-7|/b");
    EXPECT_EQ(shown(parse_value_change("")), "|||1|0|");
    EXPECT_EQ(shown(parse_value_change("wlan /a")), "wlan|/a||1|0|");
    EXPECT_EQ(shown(parse_value_change("wlan /a v x 7 /b")), "wlan|/a|v|1|0|");
    EXPECT_EQ(shown(parse_value_change("wlan /a v 2 x /b")), "wlan|/a|v|2|0|");
    EXPECT_EQ(shown(parse_value_change("wlan /a v 99999999999 -99999999999 /b")),
              "wlan|/a|v|2147483647|-2147483648|/b");
    // A number ends where it does, not at white space.
    EXPECT_EQ(shown(parse_value_change("wlan /a v 2x 7 /b")), "wlan|/a|v|2|0|");
}

// ---- texts of several parts ------------------------------------------------

template<typename Request>
std::string formatted(void (*format)(std::string &, const Request &), const Request &request) {
    std::string text;
    format(text, request);
    return text;
}

TEST(Assignment, HasAFlagAndASpace) {
    EXPECT_EQ(formatted(format_assignment<std::string>, {"/a", "x y"}), "0/a x y");
    EXPECT_EQ(formatted(format_assignment<std::string>, {"/a", ""}), "0/a ");
    const auto assignment = parse_assignment("0/a x y");
    ASSERT_TRUE(assignment);
    EXPECT_EQ(assignment->path, "/a");
    EXPECT_EQ(assignment->value, "x y");
    EXPECT_EQ(parse_assignment("0/a ")->value, "");
    EXPECT_EQ(parse_assignment("0 ")->path, "");
    for (const std::string_view text : {"", "0", " ", "0/a", "1/a x", "/a x", " 0/a x"})
        EXPECT_FALSE(parse_assignment(text)) << text;
}

TEST(PathText, MayBeAPathAlone) {
    EXPECT_EQ(formatted(format_path_text<std::string>, {"/a", "x y"}), "/a x y");
    EXPECT_EQ(formatted(format_path_text<std::string>, {"/a"}), "/a");
    EXPECT_EQ(formatted(format_path_text<std::string>, {"/a", ""}), "/a ");
    EXPECT_EQ(parse_path_text("/a x y").path, "/a");
    EXPECT_EQ(parse_path_text("/a x y").text, "x y");
    EXPECT_EQ(parse_path_text("/a ").text, "");
    EXPECT_EQ(parse_path_text("/a").path, "/a");
    EXPECT_FALSE(parse_path_text("/a").text);
    EXPECT_EQ(parse_path_text("").path, "");
}

TEST(Query, CountsWithAMark) {
    EXPECT_EQ(formatted(format_query<std::string>, {"/a", true}), "/a#");
    EXPECT_EQ(formatted(format_query<std::string>, {"/a", false}), "/a");
    EXPECT_EQ(parse_query("/a#").path, "/a");
    EXPECT_TRUE(parse_query("/a#").counts);
    EXPECT_EQ(parse_query("/a").path, "/a");
    EXPECT_FALSE(parse_query("/a").counts);
    EXPECT_EQ(parse_query("").path, "");
}

TEST(Conversion, BeginsWithItsKind) {
    EXPECT_EQ(formatted(format_conversion<std::string>, {'2', "A.B"}), "2A.B");
    EXPECT_EQ(parse_conversion("2A.B")->kind, '2');
    EXPECT_EQ(parse_conversion("2A.B")->path, "A.B");
    EXPECT_EQ(parse_conversion("x")->path, "");
    EXPECT_FALSE(parse_conversion(""));
}

TEST(Login, HasAnItemOnEachLine) {
    std::string text;
    format_login_item(text, "a", true);
    format_login_item(text, "", false);
    format_login_item(text, "c", false);
    EXPECT_EQ(text, "a\n\nc");
    std::optional<std::string_view> rest = text;
    EXPECT_EQ(take_login_item(rest), "a");
    EXPECT_EQ(take_login_item(rest), "");
    EXPECT_EQ(take_login_item(rest), "c");
    EXPECT_EQ(take_login_item(rest), std::nullopt);
    rest = "";
    EXPECT_EQ(take_login_item(rest), "");
    EXPECT_EQ(take_login_item(rest), std::nullopt);
}

// ---- fixed buffers ---------------------------------------------------------

TEST(FixedText, IsCutAndCountedWhole) {
    FixedText<5> text;
    EXPECT_STREQ(text.c_str(), "");
    append(text, "abc");
    EXPECT_STREQ(text.c_str(), "abc");
    append(text, "def");
    EXPECT_STREQ(text.c_str(), "abcd");
    append(text, 'g');
    EXPECT_EQ(text.view(), "abcd");
    EXPECT_EQ(text.counted(), 7U);
}

TEST(FixedText, TakesTheSamePayloadsAsAString) {
    FixedText<8> text;
    format_assignment(text, {"/a", "value"});
    EXPECT_EQ(text.view(), "0/a val");
    EXPECT_EQ(text.counted(), 9U);
}

} // namespace
} // namespace zan::wire
