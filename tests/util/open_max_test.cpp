// SPDX-License-Identifier: MIT
//
// Linux always has a limit on open descriptors and always tells it.  To see what
// open_max makes of a system without one, this program stands in for the C
// library's sysconf, for that one question only.
#include "support/capture.h"

#include <zan.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

namespace {

long answer = 0;
int answer_errno = 0;
int times_asked = 0;

} // namespace

extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's own name for it
long __sysconf(int name) noexcept;

long sysconf(int name) noexcept {
    if (name != _SC_OPEN_MAX || answer == 0)
        return __sysconf(name);
    ++times_asked;
    if (answer_errno != 0)
        errno = answer_errno;
    return answer;
}
}

namespace zan::test {
namespace {

TEST(OpenMax, Is1024WithoutALimit) {
    answer = -1;
    errno = EINVAL; // left from earlier: not this question's failure
    StdoutCapture output;
    EXPECT_EQ(open_max(), 1024);
    EXPECT_EQ(output.stop(), "");
}

TEST(OpenMax, KeepsTheFailureAfterReportingItWithoutLineEnd) {
    answer = -1;
    answer_errno = EINVAL;
    StdoutCapture output;
    EXPECT_EQ(open_max(), -1);
    EXPECT_EQ(open_max(), -1);
    EXPECT_EQ(output.stop(), "sysconf error for _SC_OPEN_MAX");
    EXPECT_EQ(times_asked, 1);
}

TEST(OpenMax, AsksOnce) {
    answer = 50;
    EXPECT_EQ(open_max(), 50);
    answer = 60;
    EXPECT_EQ(open_max(), 50);
    EXPECT_EQ(times_asked, 1);
}

TEST(OpenMax, FailureKeepsCommandsFromStarting) {
    answer = -1;
    answer_errno = EINVAL;
    StdoutCapture output;
    EXPECT_EQ(vpopen("true", "r"), nullptr);
    EXPECT_EQ(output.stop(), "sysconf error for _SC_OPEN_MAX");
}

} // namespace
} // namespace zan::test
