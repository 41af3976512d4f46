// SPDX-License-Identifier: MIT
//
// How long the library pauses between two looks at a queue.  A function of this
// program stands before the system's clock_nanosleep(): it notes the call and
// passes it on.
#include "support/capture.h"
#include "support/patience.h"
#include "support/raw.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

namespace {

std::mutex mutex;
std::vector<long> pauses_us;

std::vector<long> pauses() {
    const std::lock_guard lock(mutex);
    return pauses_us;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's
extern "C" {
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left) {
    {
        const std::lock_guard lock(mutex);
        pauses_us.push_back(wanted->tv_sec * 1'000'000L + wanted->tv_nsec / 1000);
    }
    return __real_clock_nanosleep(clock, flags, wanted, left);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace zan::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class Pause : public testing::Test {
protected:
    Pause() { pauses_us.clear(); }
};

TEST_F(Pause, OfAnInterruptedWaitIsAMillisecond) {
    const RawQueue queue;
    const auto msg = std::make_unique<zan_msg>();
    StdoutCapture out;
    Worker waiter([&] { zan_msg_recv(queue.id(), 1, msg.get(), 35100); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    EXPECT_THAT(pauses(), IsEmpty());
    waiter.interrupt();
    EXPECT_TRUE(out.wait_for("retry"));
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1}));
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_THAT(pauses(), ElementsAre(1000));
}

TEST_F(Pause, OfTheLockingReceiveThreadIsATenthOfASecond) {
    RawQueue queue;
    g_msq_qid = queue.id();
    StdoutCapture out;
    ASSERT_EQ(zan_thread_create(5), 0);
    EXPECT_TRUE(eventually([] { return pauses().size() >= 2; }));
    queue.remove();
    EXPECT_TRUE(out.wait_for("count=3")); // without its queue the thread ends
    EXPECT_THAT(pauses(), Each(100'000));
}

} // namespace
} // namespace zan::test
