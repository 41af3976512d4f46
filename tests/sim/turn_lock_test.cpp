// SPDX-License-Identifier: MIT
#include "base/turn_lock.h"

#include "support/worker.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace zan::sim {
namespace {

class Turns : public testing::Test {
protected:
    // A thread that wants the lock, and waits for it.
    std::unique_ptr<test::Worker> start_waiting(int number) {
        auto worker = std::make_unique<test::Worker>([this, number] {
            lock_.lock();
            turns_.push_back(number);
            lock_.unlock();
        });
        EXPECT_TRUE(worker->wait_until_blocked());
        return worker;
    }

    TurnLock lock_;
    std::vector<int> turns_;
};

TEST_F(Turns, AreInTheOrderOfAsking) {
    lock_.lock();
    const auto first = start_waiting(1);
    const auto second = start_waiting(2);
    const auto third = start_waiting(3);
    lock_.unlock();
    lock_.lock(); // behind those that wait already
    EXPECT_EQ(turns_, (std::vector{1, 2, 3}));
    lock_.unlock();
}

TEST_F(Turns, AreGivenToWhoWaits) {
    lock_.lock();
    const auto waiting = start_waiting(1);
    lock_.yield_to_waiters();
    EXPECT_EQ(turns_, std::vector{1});
    lock_.yield_to_waiters(); // nobody waits
    lock_.unlock();
}

} // namespace
} // namespace zan::sim
