// SPDX-License-Identifier: MIT
// What arrives unasked: handlers, subscriptions, the descriptor to poll.
#include "support/commands.h"
#include "support/daemon.h"
#include "support/patience.h"
#include "support/raw.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>
#include <zan.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::string event_bytes(std::int32_t event) {
    return {reinterpret_cast<const char *>(&event), sizeof event};
}

class HppSubscription : public testing::Test {
protected:
    static Options quiet() {
        Options options;
        options.diagnostics = [](std::string_view) {};
        return options;
    }

    void SetUp() override {
        ASSERT_TRUE(module);
        daemon.forget_records();
    }

    void deliver(int type, int cmd, std::string payload, std::string src = "peer") {
        ASSERT_TRUE(raw_send(module.queue(), Fields{.mtype = type,
                                                    .type = type,
                                                    .cmd = cmd,
                                                    .src = std::move(src),
                                                    .pid = 4711,
                                                    .payload = std::move(payload)}));
    }
    void change(const std::string &path, const std::string &value, const std::string &subscribed) {
        deliver(class_notify, cmd_value_changed,
                "wlan " + path + " " + value + " 1 9 " + subscribed);
    }

    // Dispatches until so many lines have been seen.
    testing::AssertionResult see(std::size_t count) {
        const bool enough = eventually([&] {
            module.dispatch_for(10ms);
            return seen.size() >= count;
        });
        return enough ? testing::AssertionSuccess() : testing::AssertionFailure() << seen.size();
    }

    testing::AssertionResult sent(int cmd, std::string payload) {
        const SizedRecord record = daemon.wait_for_records(1).front();
        daemon.forget_records();
        if (testing::AssertionResult recent = is_recent(record.record.word(at::time)); !recent)
            return recent;
        return same_record(record, Fields{.mtype = module.queue(),
                                          .type = class_notify,
                                          .cmd = cmd,
                                          .dst = "ZAN",
                                          .src = "probe",
                                          .pid = getpid(),
                                          .time = record.record.word(at::time),
                                          .payload = std::move(payload)});
    }

    std::vector<std::string> seen;
    ScriptedDaemon daemon;
    Module module{"probe", quiet()};
};

TEST_F(HppSubscription, ChangeIsSubscribedAndDelivered) {
    auto changes = module.on_change(
        "/sys/x",
        [&](const Change &c) {
            seen.push_back(c.source + "|" + c.path + "|" + c.value + "|" + std::to_string(c.kind) +
                           "|" + std::to_string(c.option) + "|" + c.subscribed);
        },
        9, 2);
    ASSERT_TRUE(changes);
    EXPECT_TRUE(sent(cmd_watch, std::string("\2\11") + "/sys/x"));
    change("/sys/x/y", "on", "/sys/x");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("wlan|/sys/x/y|on|1|9|/sys/x"));
}

TEST_F(HppSubscription, MissingFieldsKeepTheirDefaults) {
    auto changes = module.on_change("/a", [&](const Change &c) {
        seen.push_back(c.source + "|" + c.path + "|" + std::to_string(c.kind) + "|" +
                       std::to_string(c.option));
    });
    ASSERT_TRUE(changes);
    deliver(class_notify, cmd_value_changed, "wlan /a");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("wlan|/a|1|0"));
}

TEST_F(HppSubscription, ChangeReachesTheHandlersOfItsSubscriptionOnly) {
    auto a = module.on_change("/a", [&](const Change &) { seen.emplace_back("a"); });
    auto also_a = module.on_change("/a", [&](const Change &) { seen.emplace_back("also a"); });
    auto b = module.on_change("/b", [&](const Change &) { seen.emplace_back("b"); });
    change("/a/x", "1", "/a");
    change("/b", "1", "/b");
    ASSERT_TRUE(see(3));
    EXPECT_THAT(seen, ElementsAre("a", "also a", "b"));
}

TEST_F(HppSubscription, EndsWithItsObject) {
    {
        auto changes = module.on_change("/a", [&](const Change &) { seen.emplace_back("a"); });
        ASSERT_TRUE(changes);
        daemon.forget_records();
    }
    EXPECT_TRUE(sent(cmd_unwatch, "/a"));
    auto messages = module.on_message([&](const Message &) { seen.emplace_back("message"); });
    change("/a", "1", "/a");
    deliver(class_message, cmd_send, "x");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("message"));
}

TEST_F(HppSubscription, DaemonIsLeftOnlyByTheLastHandlerOfAPath) {
    auto first = module.on_change("/a", [](const Change &) {});
    auto second = module.on_change("/a", [](const Change &) {});
    daemon.forget_records();
    EXPECT_TRUE(first->cancel());
    EXPECT_THAT(daemon.records(), IsEmpty());
    EXPECT_TRUE(second->cancel());
    EXPECT_TRUE(sent(cmd_unwatch, "/a"));
}

TEST_F(HppSubscription, RefusedSubscriptionHasTheDaemonsText) {
    daemon.on(class_notify, cmd_watch, negative(-119, "too many"));
    auto changes = module.on_change("/a", [](const Change &) {});
    ASSERT_TRUE(changes.failed_with(Failure::refused));
    EXPECT_EQ(changes.error().message(), "refused with -119: too many");
}

TEST_F(HppSubscription, EventIsSubscribedDeliveredAndEnded) {
    auto events =
        module.on_event(17, [&](int event) { seen.push_back("event " + std::to_string(event)); });
    ASSERT_TRUE(events);
    EXPECT_TRUE(sent(cmd_await_event, event_bytes(17)));
    deliver(class_notify, cmd_event, event_bytes(18));
    deliver(class_notify, cmd_event, event_bytes(17));
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("event 17"));
    EXPECT_TRUE(events->cancel());
    EXPECT_TRUE(sent(cmd_ignore_event, event_bytes(17)));
}

TEST_F(HppSubscription, AllClassesAreReceivedTogether) {
    auto changes = module.on_change("/a", [&](const Change &) { seen.emplace_back("change"); });
    auto events = module.on_event(1, [&](int) { seen.emplace_back("event"); });
    auto messages = module.on_message([&](const Message &m) {
        seen.push_back("message " + m.source + " " + std::to_string(m.pid) + " " + m.data);
    });
    auto broadcasts =
        module.on_broadcast([&](const Message &m) { seen.push_back("broadcast " + m.data); });
    auto tasks = module.on_task([&](const TaskMessage &t) {
        seen.push_back("task " + std::to_string(t.cmd) + " " + t.data);
    });
    change("/a", "1", "/a");
    deliver(class_message, cmd_send, "hello");
    deliver(class_broadcast, cmd_send_all, "all");
    deliver(class_action, 4, "saved");
    deliver(class_notify, cmd_event, event_bytes(1));
    ASSERT_TRUE(see(5));
    EXPECT_THAT(seen, ElementsAre("change", "message peer 4711 hello", "broadcast all",
                                  "task 4 saved", "event"));
}

TEST_F(HppSubscription, RequestsBesideThemGetTheirAnswers) {
    auto messages = module.on_message([&](const Message &m) { seen.push_back(m.data); });
    daemon.on(class_cfg, cmd_get, answer("on"));
    daemon.on(class_message, cmd_send_with_ack, {{.cmd = cmd_ack}});
    for (int i = 0; i < 20; ++i) {
        deliver(class_message, cmd_send, std::to_string(i));
        EXPECT_EQ(module.get("/a").value_or("?"), "on");
        EXPECT_TRUE(module.send_acknowledged("peer", "x"));
    }
    EXPECT_TRUE(see(20));
}

TEST_F(HppSubscription, HandlersMaySendAndAsk) {
    daemon.on(class_cfg, cmd_get, answer("on"));
    daemon.on(class_message, cmd_send_with_ack, {{.cmd = cmd_ack}});
    auto messages = module.on_message([&](const Message &m) {
        EXPECT_TRUE(module.send("peer", "re: " + m.data));
        EXPECT_TRUE(module.send_acknowledged("peer", "re: " + m.data));
        EXPECT_TRUE(module.on_event(3, [](int) {})) << "ends with this statement";
        seen.push_back(module.get("/a").value_or("?"));
    });
    deliver(class_message, cmd_send, "hello");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("on"));
}

TEST_F(HppSubscription, HandlerMayEndItselfAndOthers) {
    Subscription first;
    Subscription second;
    first = *module.on_message([&](const Message &) {
        seen.emplace_back("first");
        second = Subscription();
        first = Subscription();
    });
    second = *module.on_message([&](const Message &) { seen.emplace_back("second"); });
    auto last = module.on_broadcast([&](const Message &) { seen.emplace_back("last"); });
    deliver(class_message, cmd_send, "1");
    deliver(class_message, cmd_send, "2");
    deliver(class_broadcast, cmd_send_all, "3");
    ASSERT_TRUE(see(2));
    EXPECT_THAT(seen, ElementsAre("first", "last"));
}

TEST_F(HppSubscription, MayOutliveItsModule) {
    auto other = std::make_unique<Module>("other", quiet());
    auto changes = other->on_change("/a", [](const Change &) {});
    ASSERT_TRUE(changes);
    other.reset();
    EXPECT_TRUE(changes->cancel());
}

TEST_F(HppSubscription, DescriptorIsReadableWhileAnythingWaits) {
    auto messages = module.on_message([&](const Message &m) { seen.push_back(m.data); });
    pollfd ready{module.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 0), 0);
    deliver(class_message, cmd_send, "1");
    ASSERT_EQ(poll(&ready, 1, 30000), 1);
    ASSERT_TRUE(see(1));
    EXPECT_EQ(poll(&ready, 1, 0), 0);
    EXPECT_EQ(module.dispatch(), 0);
}

TEST_F(HppSubscription, AcknowledgementThatNobodyAwaitsIsNoMessage) {
    auto messages = module.on_message([&](const Message &m) { seen.push_back(m.data); });
    deliver(class_message, cmd_ack, "acknowledgement");
    deliver(class_message, cmd_send, "message");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("message"));
}

TEST_F(HppSubscription, RecordsBeyondTheLimitAreDroppedAndReported) {
    std::atomic<int> reports = 0;
    Options options;
    options.max_pending_bytes = 5000;
    options.diagnostics = [&](std::string_view line) {
        EXPECT_EQ(line, "record dropped: too many wait for dispatch()");
        ++reports;
    };
    Module small("small", options);
    auto messages = small.on_message([&](const Message &) { seen.emplace_back("message"); });
    for (int i = 0; i < 6; ++i)
        ASSERT_TRUE(raw_send(small.queue(), Fields{.mtype = class_message,
                                                   .type = class_message,
                                                   .cmd = cmd_send,
                                                   .payload = std::string(1000, 'x')}));
    ASSERT_TRUE(eventually([&] { return queue_length(small.queue()) == 0 && reports >= 2; }));
    const int dropped = reports;
    ASSERT_TRUE(eventually(
        [&] { return small.dispatch(), seen.size() + static_cast<std::size_t>(dropped) >= 6; }));
}

TEST_F(HppSubscription, RecordsShorterThanAHeaderAreIgnored) {
    auto messages = module.on_message([&](const Message &m) { seen.push_back(m.data); });
    ASSERT_TRUE(raw_send(
        module.queue(),
        Fields{.mtype = class_message, .type = class_message, .cmd = cmd_send, .msgsz = 40}));
    deliver(class_message, cmd_send, "whole");
    ASSERT_TRUE(see(1));
    EXPECT_THAT(seen, ElementsAre("whole"));
}

TEST_F(HppSubscription, SubscriptionsAreRenewedAfterAnAnswerThatDidNotCome) {
    auto changes = module.on_change("/a", [&](const Change &c) { seen.push_back(c.value); });
    auto events = module.on_event(5, [](int) {});
    daemon.once(class_cfg, cmd_get, never());
    EXPECT_FALSE(module.get("/a", 20ms));
    daemon.forget_records();
    EXPECT_TRUE(module.get("/a"));
    const std::vector<SizedRecord> records = daemon.wait_for_records(5);
    std::vector<std::string> commands;
    for (const SizedRecord &record : records)
        commands.push_back(std::to_string(record.record.type()) + "/" +
                           std::to_string(record.record.cmd()));
    EXPECT_THAT(commands, ElementsAre("3/0", "5/0", "5/1", "3/1", "1/1"));
    change("/a", "new", "/a");
    ASSERT_TRUE(see(1));
}

} // namespace
} // namespace zan::test
