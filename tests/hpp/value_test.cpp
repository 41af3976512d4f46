// SPDX-License-Identifier: MIT
// Values, instances and attributes: the records byte for byte, and each kind of failure.
#include "support/capture.h"
#include "support/commands.h"
#include "support/daemon.h"
#include "support/raw.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <zan.hpp>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

class HppValue : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(module);
        daemon.forget_records();
    }

    testing::AssertionResult sent(int cmd, std::string payload, int arg = 0) {
        return same_record(daemon.wait_for_records(1).front(),
                           Fields{.mtype = module.queue(),
                                  .type = class_cfg,
                                  .cmd = cmd,
                                  .dst = "ZAN_CFG",
                                  .src = "probe",
                                  .pid = getpid(),
                                  .arg = arg,
                                  .payload = std::move(payload)});
    }

    ScriptedDaemon daemon;
    Module module{"probe"};
};

TEST_F(HppValue, GetSendsPathAndReturnsText) {
    daemon.on(class_cfg, cmd_get, answer("a b"));
    EXPECT_EQ(module.get("/sys/x").value_or("?"), "a b");
    EXPECT_TRUE(sent(cmd_get, "/sys/x"));
}

TEST_F(HppValue, GetConverts) {
    daemon.on(class_cfg, cmd_get, answer("-42"));
    EXPECT_EQ(module.get<int>("/x").value_or(0), -42);
    EXPECT_EQ(module.get<std::int64_t>("/x").value_or(0), -42);
    EXPECT_TRUE(module.get<unsigned>("/x").failed_with(Failure::bad_value));
    EXPECT_TRUE(module.get<bool>("/x").failed_with(Failure::bad_value));
    daemon.on(class_cfg, cmd_get, answer("1"));
    EXPECT_EQ(module.get<bool>("/x").value_or(false), true);
    daemon.on(class_cfg, cmd_get, answer("0"));
    EXPECT_EQ(module.get<bool>("/x").value_or(true), false);
}

TEST_F(HppValue, GetDoesNotTakeTextForNumber) {
    for (const std::string text : {"", "x", "12x", " 12", "99999999999"}) {
        daemon.on(class_cfg, cmd_get, answer(text));
        const Result<int> value = module.get<int>("/x");
        ASSERT_TRUE(value.failed_with(Failure::bad_value)) << text;
        EXPECT_EQ(value.error().message(),
                  "/x is not a number of the wanted range: \"" + text + "\"");
    }
}

TEST_F(HppValue, EmptyValueIsEmptyWithAndWithoutNul) {
    daemon.on(class_cfg, cmd_get, answer("before"));
    EXPECT_TRUE(module.get("/x"));
    daemon.on(class_cfg, cmd_get, answer(std::string(1, '\0')));
    EXPECT_EQ(module.get("/x").value_or("?"), "");
    daemon.on(class_cfg, cmd_get, answer(""));
    EXPECT_EQ(module.get("/x").value_or("?"), "");
}

TEST_F(HppValue, LongestValueArrivesWhole) {
    daemon.on(class_cfg, cmd_get, answer(std::string(ZAN_DATA_SIZE, 'v')));
    EXPECT_EQ(module.get("/x").value_or("?"), std::string(ZAN_DATA_SIZE, 'v'));
}

TEST_F(HppValue, RefusalHasCodeAndText) {
    daemon.on(class_cfg, cmd_get, negative(-101, "no such node: /x"));
    const Result<std::string> value = module.get("/x");
    ASSERT_TRUE(value.failed_with(Failure::refused));
    EXPECT_EQ(value.error().code, -101);
    EXPECT_EQ(value.error().text, "no such node: /x");
    EXPECT_EQ(value.error().message(), "refused with -101: no such node: /x");
}

TEST_F(HppValue, UnansweredRequestEndsAtItsDeadline) {
    daemon.on(class_cfg, cmd_get, never());
    const Result<std::string> value = module.get("/x", 50ms);
    ASSERT_TRUE(value.failed_with(Failure::no_answer));
    EXPECT_EQ(value.error().code, ZAN_ERR_TIMEOUT);
    EXPECT_EQ(value.error().message(), "the daemon did not answer in time");
}

TEST_F(HppValue, FullQueueOfTheDaemonIsNotSent) {
    // Keeps the daemon from reading any further.
    const RawQueue other;
    daemon.once(class_cfg, cmd_get, {{.held = true}});
    ASSERT_TRUE(raw_send(daemon.request_queue(),
                         Fields{.mtype = other.id(), .type = class_cfg, .cmd = cmd_get}));
    daemon.wait_for_records(1);
    constexpr long no_queue = 99999;
    fill_queue(daemon.request_queue(), no_queue);
    const Result<std::string> value = module.get("/x", 50ms);
    ASSERT_TRUE(value.failed_with(Failure::not_sent));
    EXPECT_EQ(value.error().code, ZAN_ERR_SEND);
    EXPECT_EQ(value.error().message(), "the daemon's queue is full");
}

TEST_F(HppValue, SetSendsFlagPathAndValue) {
    EXPECT_TRUE(module.set("/sys/x", "a b"));
    EXPECT_TRUE(sent(cmd_set, "0/sys/x a b"));
}

TEST_F(HppValue, SetFormatsNumbersAndBools) {
    EXPECT_TRUE(module.set("/x", 17));
    EXPECT_TRUE(module.set("/x", true));
    EXPECT_TRUE(module.set("/x", std::string()));
    daemon.wait_for_records(3);
    EXPECT_EQ(daemon.take_payloads(), (std::vector<std::string>{"0/x 17", "0/x 1", "0/x "}));
}

TEST_F(HppValue, RefusesWhatTheRecordWouldCut) {
    EXPECT_TRUE(module.get(std::string(1024, 'p')).failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.set("/a b", "c").failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.set("/x", std::string(2043, 'v')).failed_with(Failure::bad_argument));
    EXPECT_TRUE(module.get(std::string_view("/a\0b", 4)).failed_with(Failure::bad_argument));
    EXPECT_TRUE(daemon.records().empty());
    EXPECT_TRUE(module.set("/x", std::string(2042, 'v')));
    EXPECT_TRUE(module.get(std::string(1023, 'p')));
}

TEST_F(HppValue, CountAsksForTheObjectWithSuffix) {
    daemon.on(class_cfg, cmd_get, answer("3"));
    EXPECT_EQ(module.count("/sys/user").value_or(0), 3);
    EXPECT_TRUE(sent(cmd_get, "/sys/user#"));
}

TEST_F(HppValue, InstancesAreTheNumbersOfTheLines) {
    daemon.on(class_cfg, cmd_array, answer("2 name=a enabled=1\n7 name=b\n"));
    const auto users = module.instances("/sys/user");
    ASSERT_TRUE(users);
    std::string seen;
    for (const Path &user : *users)
        seen += (user / "name").text() + ' ';
    EXPECT_EQ(seen, "/sys/user:2/name /sys/user:7/name ");
    EXPECT_TRUE(sent(cmd_array, "/sys/user"));
}

TEST_F(HppValue, NoInstancesIsAnEmptyRange) {
    daemon.on(class_cfg, cmd_array, answer(""));
    const auto users = module.instances("/sys/user");
    ASSERT_TRUE(users);
    EXPECT_TRUE(users->empty());
}

TEST_F(HppValue, InstancesOfAnotherRenderingAreABadValue) {
    daemon.on(class_cfg, cmd_array, answer("name=a"));
    EXPECT_TRUE(module.instances("/sys/user").failed_with(Failure::bad_value));
}

TEST_F(HppValue, AttributesAreReadAndWritten) {
    daemon.on(class_cfg, cmd_get_attr, answer("rw"));
    EXPECT_EQ(module.attributes("/x").value_or("?"), "rw");
    EXPECT_TRUE(sent(cmd_get_attr, "/x"));
    daemon.forget_records();
    EXPECT_TRUE(module.set_attributes("/x", "a b"));
    EXPECT_TRUE(sent(cmd_set_attr, "/x a b"));
}

TEST_F(HppValue, NodesAreAddedRemovedAndReset) {
    EXPECT_TRUE(module.add("/sys/user"));
    EXPECT_TRUE(sent(cmd_anchor, "/sys/user"));
    daemon.forget_records();
    EXPECT_TRUE(module.remove(Path("/sys/user")[3]));
    EXPECT_TRUE(sent(cmd_delete, "/sys/user:3"));
    daemon.forget_records();
    EXPECT_TRUE(module.reset("/sys"));
    EXPECT_TRUE(sent(cmd_reset, "/sys"));
}

TEST_F(HppValue, PrintsNothingOnStandardOutput) {
    daemon.on(class_cfg, cmd_get, negative(-101, "no such node"));
    StdoutCapture capture;
    EXPECT_FALSE(module.get("/x"));
    EXPECT_FALSE(module.get(std::string(2000, 'x')));
    daemon.on(class_cfg, cmd_get, never());
    EXPECT_FALSE(module.get("/x", 20ms));
    daemon.die();
    EXPECT_FALSE(module.get("/x", 20ms));
    EXPECT_EQ(capture.stop(), "");
}

TEST_F(HppValue, WaitingThreadsTakeTheirTurns) {
    daemon.on(class_cfg, cmd_get, answer("on"));
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 20; ++n)
                right += module.get("/x").value_or("") == "on" ? 1 : 0;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(right, 160);
}

TEST(HppPath, BuildsWithoutFormatStrings) {
    EXPECT_EQ((Path("/sys/user")[1] / "name").text(), "/sys/user:1/name");
    EXPECT_EQ((Path("/sys") / "/user").text(), "/sys/user");
    EXPECT_EQ((Path("/sys") / "100%s").text(), "/sys/100%s");
}

} // namespace
} // namespace zan::test
