// SPDX-License-Identifier: MIT
#pragma once

#include "support/daemon.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <vector>

namespace zan::test {

// A process registered as module "probe", instance 7, with a scripted daemon that
// has already forgotten the registration.
class ModuleTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_GE(zan_register("probe", 7), 0);
        daemon.forget_records();
    }

    void TearDown() override { remove_queue(g_msq_qid); }

    // The only record that has been sent since the last look: one that nothing answers
    // may still be on its way.
    SizedRecord sent() {
        const std::vector<SizedRecord> records = daemon.wait_for_records(1);
        daemon.forget_records();
        EXPECT_EQ(records.size(), 1U);
        return records.front();
    }

    ScriptedDaemon daemon;
};

// Holds the API lock and the queue lock: a call that takes either never returns.
class BothLocks {
public:
    BothLocks() {
        zan_msq_lock_init();
        zan_api_lock();
        zan_msq_lock();
    }
    ~BothLocks() {
        zan_msq_unlock();
        zan_api_unlock();
    }
    BothLocks(const BothLocks &) = delete;
    BothLocks &operator=(const BothLocks &) = delete;
};

} // namespace zan::test
