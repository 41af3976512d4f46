// SPDX-License-Identifier: MIT
#pragma once

#include "log/raw_table.h"
#include "support/capture.h"
#include "support/daemon.h"
#include "support/module_test.h"
#include "support/new_process.h"
#include "support/sandbox.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace zan::test {

// Module "probe" with a daemon whose tree has no settings of logs.  The table would
// outlive the test: it needs an IPC namespace of its own.
class LogTest : public ModuleTest {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        ZAN_NEEDS_NEW_PROCESS(); // a process attaches to the table once
        ModuleTest::SetUp();
        daemon.on(1, 1, answer("0"));
        daemon.on(4, 4, never());
    }
};

} // namespace zan::test
