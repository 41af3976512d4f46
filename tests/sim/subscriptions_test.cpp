// SPDX-License-Identifier: MIT
#include "state/subscriptions.h"

#include <gmock/gmock.h>

namespace {

using namespace zan::sim;
using testing::ElementsAre;
using testing::IsEmpty;

class SubscriptionsTest : public testing::Test {
protected:
    std::vector<std::string> watching(const char *path, bool gone = false) const {
        std::vector<std::string> found;
        for (const Watch &watch : subscriptions.watching(*parse_path(path), gone))
            found.push_back(std::to_string(watch.peer.endpoint) + ' ' + watch.path + ' ' +
                            std::to_string(watch.option));
        return found;
    }

    const Peer one{nullptr, 1};
    const Peer two{nullptr, 2};
    Subscriptions subscriptions;
};

TEST_F(SubscriptionsTest, FindsEverybodyWhoWatches) {
    ASSERT_TRUE(subscriptions.watch(one, "/sys", 3));
    ASSERT_TRUE(subscriptions.watch(two, "/sys/user:#/name", 0));
    ASSERT_TRUE(subscriptions.watch(two, "/other", 0));
    EXPECT_THAT(watching("/sys/user:9/name"), ElementsAre("1 /sys 3", "2 /sys/user:#/name 0"));
    EXPECT_THAT(watching("/sys/user:9/home"), ElementsAre("1 /sys 3"));
}

TEST_F(SubscriptionsTest, TakesASecondWatchOfAPathForANewOption) {
    ASSERT_TRUE(subscriptions.watch(one, "/sys", 3));
    ASSERT_TRUE(subscriptions.watch(one, "/sys", 4));
    EXPECT_THAT(watching("/sys/x"), ElementsAre("1 /sys 4"));
    EXPECT_EQ(subscriptions.size(), 1U);
}

TEST_F(SubscriptionsTest, EndsAWatchOfItsOwnerOnly) {
    ASSERT_TRUE(subscriptions.watch(one, "/sys", 0));
    EXPECT_EQ(subscriptions.unwatch(two, "/sys").error().code, not_subscribed);
    EXPECT_EQ(subscriptions.unwatch(one, "/sys/x").error().text, "not subscribed: /sys/x");
    ASSERT_TRUE(subscriptions.unwatch(one, "/sys"));
    EXPECT_THAT(watching("/sys/x"), IsEmpty());
}

TEST_F(SubscriptionsTest, TellsOfADeletionWhoWatchesBelow) {
    ASSERT_TRUE(subscriptions.watch(one, "/sys/user:2/name", 0));
    EXPECT_THAT(watching("/sys/user:2"), IsEmpty());
    EXPECT_THAT(watching("/sys/user:2", true), ElementsAre("1 /sys/user:2/name 0"));
    EXPECT_THAT(watching("/sys/user:3", true), IsEmpty());
}

TEST_F(SubscriptionsTest, RefusesWhatIsNoPath) {
    EXPECT_EQ(subscriptions.watch(one, "sys", 0).error().code, bad_path);
    EXPECT_EQ(subscriptions.watch(one, "/sys/user:x", 0).error().code, no_instance);
}

TEST_F(SubscriptionsTest, KeepsEventsByCodeAndOwner) {
    ASSERT_TRUE(subscriptions.add_event(one, 7));
    ASSERT_TRUE(subscriptions.add_event(one, 7));
    ASSERT_TRUE(subscriptions.add_event(two, 7));
    ASSERT_TRUE(subscriptions.add_event(two, -1));
    EXPECT_THAT(subscriptions.awaiting(7), ElementsAre(one, two));
    EXPECT_THAT(subscriptions.awaiting(-1), ElementsAre(two));
    ASSERT_TRUE(subscriptions.remove_event(one, 7));
    EXPECT_EQ(subscriptions.remove_event(one, 7).error().text, "not subscribed: event 7");
    EXPECT_THAT(subscriptions.awaiting(7), ElementsAre(two));
}

TEST_F(SubscriptionsTest, AreBoundedForEachModule) {
    for (std::size_t i = 0; i + 1 < max_subscriptions; ++i)
        ASSERT_TRUE(subscriptions.watch(one, "/sys/x" + std::to_string(i), 0));
    ASSERT_TRUE(subscriptions.add_event(one, 1));
    EXPECT_EQ(subscriptions.watch(one, "/sys/more", 0).error().text, "already 1024 subscriptions");
    EXPECT_EQ(subscriptions.add_event(one, 2).error().code, too_many_subscriptions);
    EXPECT_TRUE(subscriptions.watch(one, "/sys/x0", 7));
    EXPECT_TRUE(subscriptions.add_event(one, 1));
    EXPECT_TRUE(subscriptions.watch(two, "/sys/more", 0));
}

TEST_F(SubscriptionsTest, ForgetsAModuleWhole) {
    ASSERT_TRUE(subscriptions.watch(one, "/sys", 0));
    ASSERT_TRUE(subscriptions.watch(two, "/sys", 0));
    ASSERT_TRUE(subscriptions.add_event(one, 7));
    subscriptions.forget(one);
    EXPECT_THAT(watching("/sys"), ElementsAre("2 /sys 0"));
    EXPECT_THAT(subscriptions.awaiting(7), IsEmpty());
    EXPECT_EQ(subscriptions.size(), 1U);
}

} // namespace
