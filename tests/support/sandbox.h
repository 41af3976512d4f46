// SPDX-License-Identifier: MIT
//
// What the surroundings of a test allow.  scripts/sandbox gives each test
// namespaces of its own where it can; where it cannot, the tests that need more
// than the machine's defaults are skipped by these, with the reason.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace zan::test {

// Empty when it is allowed, else the reason why not.
std::string why_no_long_records();
std::string why_no_private_sandbox();
std::string why_no_root();
std::string why_no_host_programs();

} // namespace zan::test

#define ZAN_SKIP_WITH_REASON(reason_)                                                              \
    do {                                                                                           \
        if (const std::string zan_skip_reason = (reason_); !zan_skip_reason.empty())               \
            GTEST_SKIP() << zan_skip_reason;                                                       \
    } while (false)

// The test puts records of up to 35100 bytes, and several of them, on queues.
#define ZAN_SKIP_WITHOUT_LONG_RECORDS() ZAN_SKIP_WITH_REASON(zan::test::why_no_long_records())

// The test mounts, changes interfaces, or needs a /tmp and queues nobody else uses.
#define ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX() ZAN_SKIP_WITH_REASON(zan::test::why_no_private_sandbox())

// The test needs privileges inside its namespaces.
#define ZAN_SKIP_WITHOUT_ROOT() ZAN_SKIP_WITH_REASON(zan::test::why_no_root())

// The test runs programs of the machine that builds, which is not always the one that
// the test runs on.
#define ZAN_SKIP_WITHOUT_HOST_PROGRAMS() ZAN_SKIP_WITH_REASON(zan::test::why_no_host_programs())

// For tests that withhold access by file modes, which root is not subject to.
#define ZAN_SKIP_AS_ROOT()                                                                         \
    ZAN_SKIP_WITH_REASON(zan::test::why_no_root().empty()                                          \
                             ? std::string("file modes do not hold root back")                     \
                             : std::string())
