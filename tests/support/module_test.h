// SPDX-License-Identifier: MIT
#pragma once

#include "support/daemon.h"
#include "support/locks.h"

#include <zan.h>

#include <gtest/gtest.h>

#include <vector>

namespace zan::test {

// A process registered as module "probe", instance 7. The scripted daemon has already
// forgotten the registration.
class ModuleTest : public testing::Test {
protected:
    ~ModuleTest() override { reset_locks(); }

    void SetUp() override {
        ASSERT_GE(zan_register("probe", 7), 0);
        daemon.forget_records();
    }

    void TearDown() override { remove_queue(g_msq_qid); }

    // The only record sent since the last call. Waits for it, because a record that is
    // not answered may still be on its way.
    SizedRecord sent() {
        const std::vector<SizedRecord> records = daemon.wait_for_records(1);
        daemon.forget_records();
        EXPECT_EQ(records.size(), 1U);
        return records.front();
    }

    ScriptedDaemon daemon;
};

} // namespace zan::test
