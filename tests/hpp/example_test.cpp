// SPDX-License-Identifier: MIT
// The examples on event loops, on zansim.
#include "sim/zansim.h"
#include "support/program.h"

#include <gtest/gtest.h>
#include <zan.hpp>

#include <csignal>
#include <string>

namespace zan::test {
namespace {

Options quiet() {
    Options options;
    options.diagnostics = [](std::string_view) {};
    return options;
}

TEST(HppExample, EpollWatcherPrintsChangesAndAnswersMessages) {
    Zansim zansim(device_file());
    Module module("tester", quiet());
    Program example({ZAN_TEST_EPOLL_WATCHER});
    ASSERT_TRUE(example.read_until("watching ")) << example.error();
    EXPECT_TRUE(module.set("/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID", "attic"));
    EXPECT_TRUE(example.read_until("tester changed the Wi-Fi network's name to: attic\n"));
    EXPECT_TRUE(module.send_acknowledged("epoll_watcher", "hello"));
    EXPECT_TRUE(example.read_until("tester says: hello\n"));
    example.signal(SIGTERM);
    EXPECT_EQ(example.wait(), 0);
    EXPECT_TRUE(module.module_pid("epoll_watcher").failed_with(Failure::refused))
        << "it has unregistered";
}

#ifdef ZAN_TEST_LIBEVENT_WATCHER
TEST(HppExample, LibeventWatcherCountsUsers) {
    Zansim zansim(device_file());
    Module module("tester", quiet());
    Program example({ZAN_TEST_LIBEVENT_WATCHER});
    ASSERT_TRUE(example.read_until("3 user accounts\n")) << example.error();
    EXPECT_TRUE(module.remove("/sys/user:3"));
    EXPECT_TRUE(example.read_until("2 user accounts\n"));
    example.signal(SIGTERM);
    EXPECT_EQ(example.wait(), 0);
    EXPECT_TRUE(module.module_pid("libevent_watcher").failed_with(Failure::refused));
}
#endif

TEST(HppExample, ReportsMissingDaemon) {
    Program example({ZAN_TEST_EPOLL_WATCHER});
    EXPECT_EQ(example.wait(), 1);
    EXPECT_EQ(example.error(), "epoll_watcher: no daemon: no queue id in /tmp/zan_qid\n");
}

} // namespace
} // namespace zan::test
