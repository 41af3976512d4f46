// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

namespace zan::test {

// Runs the current test in a process of its own if this process runs others too:
// whether it did, and then the caller has nothing left to do.
bool run_in_new_process();

} // namespace zan::test

// At the beginning of a test or of a fixture's SetUp(), if the test depends on what the
// library remembers as long as the process lives, such as the log table or where a search
// for a free port begins.
#define ZAN_NEEDS_NEW_PROCESS()                                                                    \
    do {                                                                                           \
        if (zan::test::run_in_new_process())                                                       \
            GTEST_SKIP() << "ran in a process of its own";                                         \
    } while (false)
