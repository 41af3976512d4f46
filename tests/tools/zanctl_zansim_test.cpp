// SPDX-License-Identifier: MIT
//
// The two tools with each other, on the tree that is shipped.
#include "with_zansim.h"

#include <csignal>

namespace zan::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string ssid = "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID";

using ZanctlWithZansim = WithZansim;

TEST_F(ZanctlWithZansim, ReadsWhatItHasWritten) {
    EXPECT_EQ(zanctl({"set", ssid, "Two words, 100%"}), "");
    EXPECT_EQ(zanctl({"get", ssid}), "Two words, 100%\n");
    EXPECT_EQ(zanctl({"get", "--json", ssid}),
              "{\"path\":\"" + ssid + "\",\"value\":\"Two words, 100%\"}\n");
}

TEST_F(ZanctlWithZansim, ChecksLoginsAndConvertsPaths) {
    const std::string name = zanctl({"get", "/sys/user:1/name"});
    const std::string password = zanctl({"get", "/sys/user:1/password"});
    const auto line = [](const std::string &text) { return text.substr(0, text.size() - 1); };
    EXPECT_EQ(zanctl({"login", line(name), line(password), "web", "x"}), "1\n");
    EXPECT_EQ(zanctl({"login", line(name), "wrong", "web", "x"}), "0\n");
    EXPECT_EQ(zanctl({"convert", "2", "A.B.1"}), "/A/B:1\n");
}

TEST_F(ZanctlWithZansim, ResetsWhatItHasWritten) {
    const std::string factory = zanctl({"get", ssid});
    zanctl({"set", ssid, "mine"});
    EXPECT_EQ(zanctl({"reset", "--yes", ssid}), "");
    EXPECT_EQ(zanctl({"get", ssid}), factory);
    zanctl({"set", ssid, "mine"});
    EXPECT_EQ(zanctl({"fad", "reset", "--yes"}), "");
    EXPECT_EQ(zanctl({"get", ssid}), factory);
    zanctl({"attr", "set", ssid, "a b"});
    EXPECT_EQ(zanctl({"attr", "get", ssid}), "a b\n");
}

TEST_F(ZanctlWithZansim, AddsCountsRendersAndDeletesInstances) {
    EXPECT_EQ(zanctl({"count", "/sys/user"}), "3\n");
    EXPECT_EQ(zanctl({"add", "/sys/user"}), "4\n");
    EXPECT_EQ(zanctl({"count", "/sys/user"}), "4\n");
    EXPECT_EQ(zanctl({"set", "/sys/user:4/name", "night shift"}), "");
    EXPECT_THAT(zanctl({"array", "/sys/user"}), HasSubstr("\n4 name=night%20shift "));
    EXPECT_EQ(zanctl({"del", "/sys/user:2"}), "");
    EXPECT_EQ(zanctl({"count", "--json", "/sys/user"}), "{\"path\":\"/sys/user\",\"count\":3}\n");
    EXPECT_EQ(zanctl({"get", "/sys/user:4/name"}), "night shift\n");
}

TEST_F(ZanctlWithZansim, FindsModules) {
    EXPECT_EQ(zanctl({"pid", "ZAN"}), std::to_string(zansim.pid()) + "\n");
    const auto watcher = watch({"--name", "nightwatch", "/sys"});
    EXPECT_EQ(zanctl({"pid", "nightwatch"}), std::to_string(watcher->pid()) + "\n");
    watcher->signal(SIGTERM);
    EXPECT_EQ(watcher->wait(), exit_done);
    EXPECT_EQ(run_zanctl({"pid", "nightwatch"}).status, exit_refused);
}

TEST_F(ZanctlWithZansim, PrintsARefusal) {
    const Ended ended = run_zanctl({"get", "/no/such/node"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: /no/such/node: no such node (-101)\n");
    EXPECT_EQ(run_zanctl({"set", "/runtime/hw/model", "1"}).status, exit_refused);
}

TEST_F(ZanctlWithZansim, WatchesASubtreeAndAnEvent) {
    const auto watcher = watch({"/sys/user", "--event", "12", "--count", "6"});
    zanctl({"set", ssid, "elsewhere"});
    zanctl({"set", "/sys/user:1/name", "two words\\"});
    zanctl({"set", "/sys/user:1/name", ""});
    zanctl({"add", "/sys/user"});
    zanctl({"del", "/sys/user:4"});
    zanctl({"set", "/zansim/event", "11"});
    zanctl({"set", "/zansim/event", "12"});
    zanctl({"set", "/sys/user:1/name", "100%"});
    EXPECT_EQ(watcher->wait(), exit_done) << watcher->error();
    EXPECT_EQ(watcher->output(), "changed /sys/user:1/name two words\\x5C\n"
                                 "changed /sys/user:1/name\n"
                                 "added /sys/user:4\n"
                                 "deleted /sys/user:4\n"
                                 "event 12\n"
                                 "changed /sys/user:1/name 100%\n");
    EXPECT_EQ(zanctl({"get", "/zansim/subscriptions"}), "0\n");
}

TEST_F(ZanctlWithZansim, PrintsTheSourceOfAChange) {
    const auto watcher = watch({"--json", "--count", "1", "/sys/user"});
    zanctl({"set", "--name", "nightshift", "/sys/user:1/name", "a b"});
    EXPECT_EQ(watcher->wait(), exit_done);
    EXPECT_EQ(watcher->output(),
              "{\"change\":\"changed\",\"path\":\"/sys/user:1/name\",\"value\":\"a b\","
              "\"source\":\"nightshift\",\"option\":0,\"subscribed\":\"/sys/user\"}\n");
}

TEST_F(ZanctlWithZansim, EndsInTimeWhenTheDaemonIsStopped) {
    zansim.signal(SIGSTOP);
    const Ended ended = run_zanctl({"get", "--timeout", "0.5", ssid});
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(zanctl_key_files(), IsEmpty());
    zansim.signal(SIGCONT);
    EXPECT_THAT(zanctl({"get", "/zansim/modules"}), "1\n");
}

TEST_F(ZanctlWithZansim, EndsTheWatchWhenTheDaemonEnds) {
    const auto watcher = watch({"/sys"});
    zansim.signal(SIGTERM);
    EXPECT_EQ(watcher->wait(), exit_no_daemon);
    EXPECT_THAT(watcher->error(), StartsWith("zanctl: watching\nzanctl: no daemon: "));
}

} // namespace
} // namespace zan::test
