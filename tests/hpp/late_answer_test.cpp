// SPDX-License-Identifier: MIT
// No answer is ever taken for that of another request: with a daemon that answers late,
// twice, or never, and with signals that interrupt the wait.
#include "support/commands.h"
#include "support/daemon.h"
#include "support/patience.h"
#include "support/raw.h"
#include "support/worker.h"

#include <gtest/gtest.h>
#include <zan.hpp>

#include <csignal>
#include <string>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

class HppLateAnswer : public testing::Test {
protected:
    static Options silent() {
        Options options;
        options.diagnostics = [](std::string_view) {};
        return options;
    }

    void SetUp() override { ASSERT_TRUE(module); }

    ScriptedDaemon daemon;
    Module module{"probe", silent()};
};

TEST_F(HppLateAnswer, LateAnswerGoesToTheQueueThatWasLeft) {
    daemon.once(class_cfg, cmd_get, {{.payload = "late", .held = true}});
    const int before = module.queue();
    ASSERT_TRUE(module.get("/brightness", 50ms).failed_with(Failure::no_answer));
    daemon.release();
    daemon.on(class_cfg, cmd_get, answer("80"));
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(module.get("/power").value_or("?"), "80");
    EXPECT_NE(module.queue(), before);
    EXPECT_FALSE(queue_exists(before));
}

TEST_F(HppLateAnswer, AnswerThatComesLateTwiceIsNeverTaken) {
    daemon.once(class_cfg, cmd_get, {{.payload = "late", .held = true}, {.payload = "late"}});
    ASSERT_TRUE(module.get("/brightness", 50ms).failed_with(Failure::no_answer));
    daemon.on(class_cfg, cmd_get, answer("80"));
    daemon.release();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(module.get("/power").value_or("?"), "80");
}

TEST_F(HppLateAnswer, AnswerThatIsLateToTheQueueInUseIsNotThereToBeTaken) {
    // The daemon answers the first request only once it has the second.
    daemon.once(class_cfg, cmd_get, never());
    const int before = module.queue();
    ASSERT_TRUE(module.get("/brightness", 50ms).failed_with(Failure::no_answer));
    daemon.once(class_cfg, cmd_get, {{.payload = "late", .queue = before}, {.payload = "80"}});
    EXPECT_EQ(module.get("/power").value_or("?"), "80");
}

TEST_F(HppLateAnswer, EveryUnansweredRequestEndsAndTheNextIsAnswered) {
    for (int i = 0; i < 5; ++i) {
        daemon.once(class_cfg, cmd_get, never());
        EXPECT_TRUE(module.get("/a", 20ms).failed_with(Failure::no_answer));
        daemon.once(class_cfg, cmd_get, answer(std::to_string(i)));
        EXPECT_EQ(module.get<int>("/a").value_or(-1), i);
    }
}

TEST_F(HppLateAnswer, SecondAnswerThatHasArrivedIsDropped) {
    daemon.once(class_cfg, cmd_get, {{.payload = "first"}, {.payload = "first"}});
    EXPECT_EQ(module.get("/a").value_or("?"), "first");
    ASSERT_TRUE(eventually([&] { return queue_length(module.queue()) == 1; }));
    daemon.on(class_cfg, cmd_get, answer("second"));
    EXPECT_EQ(module.get("/b").value_or("?"), "second");
}

TEST_F(HppLateAnswer, AnswerToAnotherCommandIsDropped) {
    daemon.on(class_cfg, cmd_get, {{.payload = "no", .cmd = cmd_get_attr}, {.payload = "yes"}});
    EXPECT_EQ(module.get("/a").value_or("?"), "yes");
}

TEST_F(HppLateAnswer, LateAcknowledgementGoesToTheQueueThatWasLeft) {
    daemon.once(class_message, cmd_send_with_ack, {{.result = 1, .cmd = cmd_ack, .held = true}});
    ASSERT_TRUE(module.send_acknowledged("peer", "1", 50ms).failed_with(Failure::no_answer));
    daemon.once(class_message, cmd_send_with_ack,
                {{.result = -108, .payload = "unknown module", .cmd = cmd_ack}});
    daemon.release();
    EXPECT_TRUE(module.send_acknowledged("peer", "2").failed_with(Failure::refused));
}

TEST_F(HppLateAnswer, InterruptionsDoNotEndTheWait) {
    daemon.once(class_cfg, cmd_get, {{.payload = "on", .held = true}});
    std::string value;
    Worker worker([&] { value = module.get("/brightness", 30s).value_or("?"); });
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(worker.wait_until_blocked());
        worker.interrupt();
    }
    ASSERT_TRUE(worker.wait_until_blocked());
    daemon.release();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_EQ(value, "on");
    daemon.on(class_cfg, cmd_get, answer("80"));
    EXPECT_EQ(module.get("/power").value_or("?"), "80");
}

TEST_F(HppLateAnswer, NotificationsOfTheQueueThatIsLeftArriveInOrder) {
    daemon.on(class_notify, cmd_watch, {Reply{}});
    std::string seen;
    auto changes = module.on_change("/a", [&](const Change &change) { seen += change.value; });
    ASSERT_TRUE(changes);
    const int before = module.queue();
    const auto notify = [&](const char *value) {
        return Fields{.mtype = class_notify,
                      .type = class_notify,
                      .cmd = cmd_value_changed,
                      .payload = std::string("who /a ") + value + " 1 0 /a"};
    };
    daemon.once(class_cfg, cmd_get, never());
    ASSERT_TRUE(module.get("/a", 20ms).failed_with(Failure::no_answer));
    // What comes during the move: on the new queue first, then on the old one.
    daemon.once(class_notify, cmd_watch,
                {Reply{},
                 {.payload = "who /a 3 1 0 /a", .cmd = cmd_value_changed},
                 {.payload = "who /a 2 1 0 /a", .cmd = cmd_value_changed, .queue = before}});
    ASSERT_TRUE(raw_send(before, notify("1")));
    EXPECT_TRUE(module.get("/a"));
    EXPECT_TRUE(eventually([&] { return module.dispatch(), seen.size() >= 3; }));
    EXPECT_EQ(seen, "123");
}

} // namespace
} // namespace zan::test
