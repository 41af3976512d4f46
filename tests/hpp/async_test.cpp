// SPDX-License-Identifier: MIT
// Requests that do not block the loop.
#include "support/commands.h"
#include "support/daemon.h"
#include "support/patience.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <zan.hpp>

#include <chrono>
#include <string>
#include <thread>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

class HppAsync : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(module); }

    bool dispatch_until(const std::function<bool()> &condition) {
        return eventually([&] {
            module.dispatch_for(10ms);
            return condition();
        });
    }

    ScriptedDaemon daemon;
    Module module{"probe"};
};

TEST_F(HppAsync, CompletesOnTheThreadThatDispatches) {
    daemon.on(class_cfg, cmd_get, {{.payload = "7", .held = true}});
    int value = 0;
    std::thread::id completed_on;
    ASSERT_TRUE(module.async([](Module &m) { return m.get<int>("/a"); },
                             [&](const Result<int> &result) {
                                 value = result.value_or(-1);
                                 completed_on = std::this_thread::get_id();
                             }));
    // Not before the answer, and this thread has not waited for it.
    EXPECT_EQ(module.dispatch(), 0);
    daemon.release();
    pollfd ready{module.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 30000), 1);
    EXPECT_EQ(module.dispatch(), 1);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(completed_on, std::this_thread::get_id());
}

TEST_F(HppAsync, CompletesInOrder) {
    std::string order;
    for (const char name : {'a', 'b', 'c'})
        ASSERT_TRUE(module.async([name](Module &m) { return m.set("/x", std::string(1, name)); },
                                 [&order, name](const Result<void> &result) {
                                     EXPECT_TRUE(result);
                                     order += name;
                                 }));
    EXPECT_TRUE(dispatch_until([&] { return order.size() == 3; }));
    EXPECT_EQ(order, "abc");
}

TEST_F(HppAsync, CompletesWithTheFailure) {
    daemon.on(class_cfg, cmd_get, never());
    bool timed_out = false;
    ASSERT_TRUE(module.async([](Module &m) { return m.get("/a", 30ms); },
                             [&](const Result<std::string> &result) {
                                 timed_out = result.failed_with(Failure::no_answer);
                             }));
    EXPECT_TRUE(dispatch_until([&] { return timed_out; }));
}

TEST_F(HppAsync, CompletionMayStartAnother) {
    daemon.on(class_cfg, cmd_get, answer("1"));
    int completed = 0;
    ASSERT_TRUE(module.async([](Module &m) { return m.get<int>("/a"); },
                             [&](const Result<int> &) {
                                 ++completed;
                                 EXPECT_TRUE(
                                     module.async([](Module &m) { return m.get<int>("/a"); },
                                                  [&](const Result<int> &) { ++completed; }));
                             }));
    EXPECT_TRUE(dispatch_until([&] { return completed == 2; }));
}

TEST_F(HppAsync, DestructionEndsARequestThatIsNotAnswered) {
    daemon.on(class_cfg, cmd_get, never());
    const auto started = std::chrono::steady_clock::now();
    {
        Module other("other");
        ASSERT_TRUE(other.async([](Module &m) { return m.get("/a", 1h); },
                                [](const Result<std::string> &) { ADD_FAILURE(); }));
        daemon.wait_for_records(3);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, patience);
}

} // namespace
} // namespace zan::test
