// SPDX-License-Identifier: MIT
#ifndef ZAN_TESTS_SUPPORT_MODULE_TEST_H
#define ZAN_TESTS_SUPPORT_MODULE_TEST_H

#include "support/daemon.h"

#include <zan.h>

#include <gtest/gtest.h>

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

    ScriptedDaemon daemon;
};

} // namespace zan::test

#endif
