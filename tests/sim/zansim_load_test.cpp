// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"

#include <csignal>
#include <sstream>

namespace zan::test {

namespace {

// Queues of this sandbox.
std::size_t queue_count() {
    std::istringstream lines(read_file("/proc/sysvipc/msg"));
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line);)
        ++count;
    return count - 1; // without the heading
}

class Load : public ZansimTest {
protected:
    Load() { autostart_ = false; }

    void SetUp() override { start(device_file()); }
};

TEST_F(Load, PrintsTheRateAndLeavesNoQueue) {
    const std::size_t queues = queue_count();
    Program load({ZAN_TEST_ZANSIM_LOAD, "4", "1", "2"});
    EXPECT_EQ(load.wait(), 0) << load.error();
    EXPECT_NE(load.output().find(" requests a second from 2 threads"), std::string::npos)
        << load.output();
    EXPECT_EQ(queue_count(), queues);
    expect_value("/zansim/modules", "1");
}

TEST_F(Load, FailsWhenZansimIsKilledWhileEveryWorkerWaits) {
    const std::size_t queues = queue_count();
    Program load({ZAN_TEST_ZANSIM_LOAD, "4", "1000", "2"});
    ASSERT_TRUE(load.read_until("registered in")) << load.error();
    zansim().program().signal(SIGSTOP); // from now on nobody answers
    zansim().program().signal(SIGKILL);
    EXPECT_EQ(load.wait(), 1);
    EXPECT_EQ(load.error(), "zansim_load: zansim has ended\n");
    EXPECT_EQ(queue_count(), queues); // those of the killed zansim among them
}

TEST_F(Load, FailsWhenZansimEndsAndRemovesItsQueue) {
    Program load({ZAN_TEST_ZANSIM_LOAD, "4", "1000", "2"});
    ASSERT_TRUE(load.read_until("registered in")) << load.error();
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(load.wait(), 1);
    EXPECT_THAT(load.error(), testing::StartsWith("zansim_load: "));
}

} // namespace

} // namespace zan::test
