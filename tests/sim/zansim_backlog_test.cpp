// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"

namespace zan::test {

namespace {

class Backlog : public ZansimTest {
protected:
    void SetUp() override {
        ZansimTest::SetUp();
        sleeper = another_module("SLEEPER");
        sleeper->call(class_notify, cmd_watch, watch_payload(0, 0, "/sys/counter"));
    }

    // Changes that the sleeper is told of and does not read.
    void change(int count) {
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(module().set("/sys/counter", std::to_string(++value)).record.result(), 1);
    }

    // Reads what the sleeper has been sent, as long as something comes.
    std::vector<int> read_values(std::size_t count) const {
        std::vector<int> values;
        while (values.size() < count) {
            const std::string text = sleeper->notification().payload();
            int number = 0;
            if (std::sscanf(text.c_str(), "TESTER /sys/counter %d", &number) != 1)
                break;
            values.push_back(number);
        }
        return values;
    }

    std::string dropped() { return module().get("/zansim/dropped").payload(); }

    std::unique_ptr<RawModule> sleeper;
    int value = 0;
};

std::vector<int> numbers(int count) {
    std::vector<int> all;
    for (int i = 1; i <= count; ++i)
        all.push_back(i);
    return all;
}

TEST_F(Backlog, KeepsWhatDoesNotFitAndSendsItInOrder) {
    change(1);
    const int waiting = [&] {
        // As many as the queue takes before it is half full.
        int length = 0;
        while (length != queue_length(sleeper->queue()) && value < 20000) {
            length = queue_length(sleeper->queue());
            change(1);
        }
        return length;
    }();
    change(50);
    EXPECT_EQ(queue_length(sleeper->queue()), waiting);
    EXPECT_EQ(read_values(static_cast<std::size_t>(value)), numbers(value));
    EXPECT_EQ(dropped(), "0");
}

TEST_F(Backlog, LeavesRoomForTheAnswersOfAModuleThatReadsNoNotifications) {
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(sleeper->set("/sys/counter", std::to_string(i + 1)).record.result(), 1);
}

TEST_F(Backlog, IsBoundedAndTellsOnceWhenItOverflowsAndOnceWhenItIsOver) {
    while (dropped() == "0" && value < 40000)
        change(100);
    change(100);
    const std::string queue = "zansim: queue " + std::to_string(sleeper->queue());
    const std::string full =
        queue + " of SLEEPER is full and not being read: records to it are dropped\n";
    const int lost = std::stoi(dropped());
    const std::size_t kept = static_cast<std::size_t>(value - lost);
    EXPECT_EQ(read_values(kept), numbers(static_cast<int>(kept)));
    const std::string over =
        queue + " is being read again: " + std::to_string(lost) + " records were dropped\n";
    EXPECT_TRUE(zansim().program().read_error_until(over));
    change(1);
    EXPECT_THAT(read_values(1), testing::ElementsAre(value));
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), full + over);
}

TEST_F(Backlog, ForgetsAModuleThatGoesWhileRecordsWaitForIt) {
    while (dropped() == "0" && value < 40000)
        change(100);
    expect_value("/zansim/modules", "2");
    sleeper->remove_queue();
    EXPECT_TRUE(eventually([&] { return module().get("/zansim/modules").payload() == "1"; }));
    expect_value("/zansim/subscriptions", "0");
}

TEST_F(Backlog, OfAnswersThatNobodyReadsIsBoundedToo) {
    const RawModule flooder(zansim(), "FLOODER");
    for (int i = 0; i < 20000 && dropped() == "0"; ++i)
        for (int j = 0; j < 100; ++j)
            flooder.send(flooder.request(class_cfg, cmd_get, "/sys/hostname"));
    EXPECT_NE(dropped(), "0");
    expect_value("/sys/hostname", "router");
}

} // namespace

} // namespace zan::test
