// SPDX-License-Identifier: MIT
#include "trace/trace.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;

std::string shown(std::int32_t type, std::int32_t cmd, std::string payload, bool outgoing = false,
                  std::int32_t result = 0) {
    Record record;
    record.type = type;
    record.cmd = cmd;
    record.result = result;
    record.payload = std::move(payload);
    return readable_payload(record, outgoing);
}

TEST(ReadablePayload, QuotesTexts) {
    EXPECT_EQ(shown(1, 1, "/sys/name"), "\"/sys/name\"");
    EXPECT_EQ(shown(1, 1, "a\nb\x01"), "\"a\\nb\\x01\"");
    EXPECT_EQ(shown(1, 1, std::string("ab\0cd", 5)), "\"ab\"");
}

TEST(ReadablePayload, CutsLongTexts) {
    EXPECT_EQ(shown(1, 1, std::string(256, 'x')), '"' + std::string(256, 'x') + '"');
    EXPECT_EQ(shown(1, 1, std::string(257, 'x')), '"' + std::string(256, 'x') + "\"...");
}

TEST(ReadablePayload, TakesASubscriptionApart) {
    EXPECT_EQ(shown(5, 0, "\x02\xff/sys"), "flag=2 option=255 \"/sys\"");
    EXPECT_EQ(shown(5, 0, "\x02"), "hex 02");
    EXPECT_EQ(shown(5, 0, ""), "hex ");
}

TEST(ReadablePayload, ShowsEventsAsNumbers) {
    const std::int32_t code = -2;
    EXPECT_EQ(shown(5, 8, std::string(reinterpret_cast<const char *>(&code), 4), true), "event=-2");
    EXPECT_EQ(shown(5, 1, "abc"), "hex 616263");
}

TEST(ReadablePayload, ShowsUnknownBytesAsTextOrHex) {
    EXPECT_EQ(shown(6, 1, "text"), "\"text\"");
    EXPECT_EQ(shown(6, 1, std::string("\x00\xff", 2)), "hex 00FF");
    EXPECT_EQ(shown(6, 1, std::string(65, '\xff')).size(), 4 + 2 * 64 + 3);
}

TEST(ReadablePayload, ShowsTheTextOfARefusal) {
    EXPECT_EQ(shown(5, 1, "not subscribed", true, -113), "\"not subscribed\"");
}

} // namespace
