// SPDX-License-Identifier: MIT
// A module through the life of a daemon: killed and started again, stopped, at odds.
#include "sim/zansim.h"
#include "support/patience.h"
#include "support/raw.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zan.hpp>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

Options quick() {
    Options options;
    options.check_interval = 20ms;
    options.diagnostics = [](std::string_view) {};
    return options;
}

std::string tree() {
    return tree_file(R"({"a": "1", "users": [{"name": "x"}, {"name": "y"}]})");
}

void stop(pid_t pid) {
    kill(pid, SIGSTOP);
    const std::string state = "/proc/" + std::to_string(pid) + "/stat";
    ASSERT_TRUE(eventually([&] { return read_file(state).find(") T ") != std::string::npos; }));
}

TEST(HppRestart, RequestsWorkAgainAfterTheDaemonWasKilled) {
    std::optional<Zansim> zansim(std::in_place, tree());
    Module module("probe", quick());
    ASSERT_EQ(module.get("/a").value_or("?"), "1");
    kill(zansim->pid(), SIGKILL);
    zansim->program().wait();
    zansim.emplace(tree());
    EXPECT_EQ(module.get("/a").value_or("?"), "1");
    EXPECT_EQ(module.instances("/users").value_or(std::vector<Path>()).size(), 2U);
    EXPECT_EQ(module.module_pid("probe").value_or(0), getpid());
}

TEST(HppRestart, SubscriptionsAreRenewedWithoutACall) {
    std::optional<Zansim> zansim(std::in_place, tree());
    Module module("probe", quick());
    std::vector<std::string> seen;
    auto changes = module.on_change("/a", [&](const Change &c) { seen.push_back(c.value); });
    ASSERT_TRUE(changes);
    kill(zansim->pid(), SIGKILL);
    zansim->program().wait();
    zansim.emplace(tree());
    Module other("other", quick());
    ASSERT_TRUE(
        eventually([&] { return other.get<int>("/zansim/subscriptions").value_or(0) == 1; }));
    ASSERT_TRUE(other.set("/a", "2"));
    EXPECT_TRUE(eventually([&] { return module.dispatch_for(10ms), !seen.empty(); }));
    EXPECT_THAT(seen, testing::ElementsAre("2"));
}

TEST(HppRestart, CleanEndOfTheDaemonIsReportedUntilItIsBack) {
    std::optional<Zansim> zansim(std::in_place, tree());
    Module module("probe", quick());
    zansim->stop();
    EXPECT_TRUE(module.get("/a").failed_with(Failure::not_registered));
    zansim.emplace(tree());
    EXPECT_EQ(module.get("/a").value_or("?"), "1");
}

TEST(HppRestart, StoppedDaemonCostsTheDeadlineAndNoMore) {
    Zansim zansim(tree());
    Module module("probe", quick());
    stop(zansim.pid());
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(module.get("/a", 30ms));
    kill(zansim.pid(), SIGCONT);
    EXPECT_EQ(module.get("/a").value_or("?"), "1");
    EXPECT_TRUE(module.set("/a", "3"));
    EXPECT_EQ(module.get("/a").value_or("?"), "3");
}

TEST(HppRestart, FaultsOfAnswersNeverMixThemUp) {
    Zansim zansim(tree(), {"--fault", "mute command=get path=/a probability=30%", "--fault",
                           "wrong-first command=get path=/a"});
    Module module("probe", quick());
    int answered = 0;
    for (int i = 0; i < 30; ++i) {
        const std::string value = std::to_string(i);
        ASSERT_TRUE(module.set("/a", value));
        const Result<std::string> got = module.get("/a", 50ms);
        if (got) {
            EXPECT_EQ(*got, value);
            ++answered;
        } else {
            EXPECT_EQ(got.error().failure, Failure::no_answer);
        }
    }
    EXPECT_GT(answered, 0);
}

} // namespace
} // namespace zan::test
