// SPDX-License-Identifier: MIT
#include "transport/outbox.h"

#include <gtest/gtest.h>

namespace {

using namespace zan::sim;
using Lane = Outbox::Lane;

TEST(Outbox, KeepsEachLaneInItsOrder) {
    Outbox outbox;
    EXPECT_TRUE(outbox.empty());
    ASSERT_TRUE(outbox.keep(Lane::notices, {5, "a"}));
    ASSERT_TRUE(outbox.keep(Lane::answers, {1, "b"}));
    ASSERT_TRUE(outbox.keep(Lane::notices, {5, "c"}));
    EXPECT_EQ(outbox.lane(Lane::notices).front().body, "a");
    outbox.pop(Lane::notices);
    EXPECT_EQ(outbox.lane(Lane::notices).front().body, "c");
    EXPECT_EQ(outbox.lane(Lane::answers).front().body, "b");
    outbox.pop(Lane::notices);
    EXPECT_FALSE(outbox.empty());
    outbox.pop(Lane::answers);
    EXPECT_TRUE(outbox.empty());
}

TEST(Outbox, TakesTheLongestRecord) {
    Outbox outbox;
    EXPECT_TRUE(outbox.keep(Lane::answers, {1, std::string(35100, 'x')}));
}

TEST(Outbox, IsBoundedHoweverSmallTheRecordsAre) {
    Outbox outbox;
    std::size_t kept = 0;
    while (outbox.keep(Lane::notices, {5, ""})) {
        ++kept;
        ASSERT_LT(kept, 65536U);
    }
    EXPECT_FALSE(outbox.keep(Lane::answers, {1, ""}));
    outbox.pop(Lane::notices);
    EXPECT_TRUE(outbox.keep(Lane::answers, {1, ""}));
}

} // namespace
