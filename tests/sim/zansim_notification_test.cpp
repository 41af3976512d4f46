// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include <cstring>
#include <ctime>

namespace zan::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Notification : public ZansimTest {
protected:
    void watch(const RawModule &watcher, const std::string &path, int option = 0, int flag = 0) {
        const SizedRecord answer =
            watcher.call(class_notify, cmd_watch, watch_payload(flag, option, path));
        EXPECT_TRUE(same_record(answer, watcher.answer(class_notify, cmd_watch, 1)));
    }

    static std::vector<std::string> texts(const RawModule &watcher) {
        std::vector<std::string> found;
        for (const SizedRecord &record : watcher.notifications())
            found.push_back(record.payload());
        return found;
    }
};

TEST_F(Notification, ReachesTheWatcherByteForByte) {
    const auto watcher = another_module("WATCHER");
    watch(*watcher, "/sys/hostname", 255, 52);
    const auto before = static_cast<std::int32_t>(time(nullptr));
    module().set("/sys/hostname", "modem");
    const SizedRecord record = watcher->notification();
    const std::int32_t sent = record.record.word(at::time);
    EXPECT_LE(before, sent);
    EXPECT_LE(sent, time(nullptr));
    EXPECT_TRUE(same_record(record, Fields{.mtype = 5,
                                           .type = 5,
                                           .cmd = 7,
                                           .dst = "WATCHER",
                                           .src = "ZAN",
                                           .pid = zansim().pid(),
                                           .time = sent,
                                           .payload = "TESTER /sys/hostname modem 1 255 "
                                                      "/sys/hostname"}));
}

TEST_F(Notification, ReachesWhoSetTheValueToo) {
    watch(module(), "/sys/note");
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/note x 1 0 /sys/note"));
}

TEST_F(Notification, CodesBlanksInTheFields) {
    const auto two_words = another_module("two words");
    watch(module(), "/sys/note");
    two_words->set("/sys/note", "a b%\n");
    two_words->set("/sys/note", "");
    EXPECT_THAT(texts(module()), ElementsAre("two%20words /sys/note a%20b%25%0A 1 0 /sys/note",
                                             "two%20words /sys/note %00 1 0 /sys/note"));
}

TEST_F(Notification, CutsAValueThatItsFieldDoesNotHold) {
    watch(module(), "/sys/note");
    module().set("/sys/note", std::string(1022, 'x') + " y");
    EXPECT_THAT(texts(module()),
                ElementsAre("TESTER /sys/note " + std::string(1022, 'x') + " 1 0 /sys/note"));
}

TEST_F(Notification, CoversASubtreeByWholeElements) {
    watch(module(), "/sys/user:1", 1);
    watch(module(), "/sys/user:#/name", 2);
    watch(module(), "/sys/us", 3);
    watch(module(), "/", 4);
    module().set("/sys/user:2/name", "x");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/user:2/name x 1 2 /sys/user:#/name",
                                             "TESTER /sys/user:2/name x 1 4 /"));
    module().set("/sys/user:1/home", "y");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/user:1/home y 1 1 /sys/user:1",
                                             "TESTER /sys/user:1/home y 1 4 /"));
}

TEST_F(Notification, IsSentOnlyWhenTheStoredValueChanged) {
    watch(module(), "/sys");
    module().set("/sys/level", "4");
    module().set("/sys/level", "04");
    module().set("/sys/level", "9");
    module().set("/sys/serial", "x");
    EXPECT_THAT(texts(module()), IsEmpty());
}

TEST_F(Notification, TellsOfInstancesThatComeAndGo) {
    watch(module(), "/sys/user");
    module().call(class_cfg, cmd_anchor, "/sys/user");
    module().call(class_cfg, cmd_delete, "/sys/user:1");
    module().call(class_cfg, cmd_delete, "/sys/user:2/home");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/user:3 %00 2 0 /sys/user",
                                             "TESTER /sys/user:1 %00 3 0 /sys/user",
                                             "TESTER /sys/user:2/home %00 3 0 /sys/user"));
}

TEST_F(Notification, TellsOfADeletionWhoWatchesSomethingInside) {
    watch(module(), "/sys/user:2/name");
    module().call(class_cfg, cmd_delete, "/sys/user:1");
    module().call(class_cfg, cmd_delete, "/sys/user:2");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/user:2 %00 3 0 /sys/user:2/name"));
}

TEST_F(Notification, TakesTheSettingsOfTheLastSubscription) {
    watch(module(), "/sys/note", 1);
    watch(module(), "/sys/note", 2);
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/note x 1 2 /sys/note"));
}

TEST_F(Notification, StopsWithTheSubscription) {
    watch(module(), "/sys/note");
    EXPECT_TRUE(same_record(module().call(class_notify, cmd_unwatch, "/sys/note"),
                            module().answer(class_notify, cmd_unwatch, 1)));
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(module()), IsEmpty());
    expect_refused(module().call(class_notify, cmd_unwatch, "/sys/note"), class_notify, cmd_unwatch,
                   -113, "not subscribed: /sys/note");
}

TEST_F(Notification, StopsWhenTheModuleUnregisters) {
    watch(module(), "/sys/note");
    module().announce(cmd_unregister);
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(module()), IsEmpty());
}

TEST_F(Notification, MayBeWantedBeforeTheNodeExists) {
    watch(module(), "/sys/user:3/name");
    module().call(class_cfg, cmd_anchor, "/sys/user");
    module().set("/sys/user:3/name", "x");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/user:3/name x 1 0 /sys/user:3/name"));
}

TEST_F(Notification, TakesAPathThatIsPaddedWithZeros) {
    const std::string padded = watch_payload(0, 0, "/sys/note") + std::string(100, '\0');
    EXPECT_EQ(module().call(class_notify, cmd_watch, padded).record.result(), 1);
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(module()), ElementsAre("TESTER /sys/note x 1 0 /sys/note"));
}

TEST_F(Notification, RefusesSubscriptionsThatCannotBe) {
    expect_refused(module().call(class_notify, cmd_watch, watch_payload(0, 0, "sys")), class_notify,
                   cmd_watch, -116, "bad path (it does not start with a slash): sys");
    expect_refused(module().call(class_notify, cmd_watch, std::string(2, '\0')), class_notify,
                   cmd_watch, -106, "malformed record: no path to watch");
    const RawModule stranger(zansim(), "STRANGER");
    expect_refused(stranger.call(class_notify, cmd_watch, watch_payload(0, 0, "/sys")),
                   class_notify, cmd_watch, -114,
                   "not registered: queue " + std::to_string(stranger.queue()));
    expect_refused(stranger.call(class_notify, cmd_await_event, number_bytes(1)), class_notify,
                   cmd_await_event, -114,
                   "not registered: queue " + std::to_string(stranger.queue()));
}

TEST_F(Notification, ReachesTheOthersWhenOneOfThemHasGone) {
    const auto going = another_module("GOING");
    const auto staying = another_module("STAYING");
    watch(*going, "/sys/note");
    watch(*staying, "/sys/note");
    going->remove_queue();
    module().set("/sys/note", "x");
    EXPECT_THAT(texts(*staying), ElementsAre("TESTER /sys/note x 1 0 /sys/note"));
    expect_value("/zansim/modules", "2");
    expect_value("/zansim/subscriptions", "1");
}

using Event = Notification;

TEST_F(Event, ReachesWhoAwaitsItsCodeByteForByte) {
    const auto other = another_module("OTHER");
    EXPECT_TRUE(same_record(module().call(class_notify, cmd_await_event, number_bytes(17)),
                            module().answer(class_notify, cmd_await_event, 1)));
    other->call(class_notify, cmd_await_event, number_bytes(18));
    EXPECT_TRUE(
        same_record(module().set("/zansim/event", "17"), module().answer(class_cfg, cmd_set, 1)));
    const SizedRecord record = module().notification();
    EXPECT_TRUE(same_record(record, Fields{.mtype = 5,
                                           .type = 5,
                                           .cmd = 8,
                                           .dst = "TESTER",
                                           .src = "ZAN",
                                           .pid = zansim().pid(),
                                           .time = record.record.word(at::time),
                                           .payload = number_bytes(17)}));
    EXPECT_THAT(other->notifications(), IsEmpty());
}

TEST_F(Event, ReachesEverybodyWhoAwaitsIt) {
    const auto other = another_module("OTHER");
    module().call(class_notify, cmd_await_event, number_bytes(-1));
    other->call(class_notify, cmd_await_event, number_bytes(-1));
    module().set("/zansim/event", "-1");
    EXPECT_EQ(module().notifications().size(), 1U);
    EXPECT_EQ(other->notifications().size(), 1U);
}

TEST_F(Event, StopsWithTheSubscription) {
    module().call(class_notify, cmd_await_event, number_bytes(1));
    EXPECT_EQ(module().call(class_notify, cmd_ignore_event, number_bytes(1)).record.result(), 1);
    module().set("/zansim/event", "1");
    EXPECT_THAT(module().notifications(), IsEmpty());
    expect_refused(module().call(class_notify, cmd_ignore_event, number_bytes(1)), class_notify,
                   cmd_ignore_event, -113, "not subscribed: event 1");
}

TEST_F(Event, HasACodeOfFourBytes) {
    for (const int cmd : {cmd_await_event, cmd_ignore_event})
        for (const char *const payload : {"", "abc", "abcde"})
            expect_refused(module().call(class_notify, cmd, payload), class_notify, cmd, -106,
                           "malformed record: an event code has 4 bytes");
}

} // namespace

} // namespace zan::test
