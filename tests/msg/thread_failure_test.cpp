// SPDX-License-Identifier: MIT
//
// What the locks and the receive thread say when the threads library fails them.
// No real condition makes these calls fail on demand, so the linker puts the
// functions below in front of them (--wrap), for the library's objects too.
#include "receive_thread.h"

#include "support/capture.h"
#include "support/daemon.h"
#include "support/raw.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <pthread.h>

namespace {

// The results that the calls are made to fail with; 0 lets them through.
struct Failures {
    int mutex_lock = 0;
    int mutex_unlock = 0;
    int sigmask = 0;
    int sigemptyset = 0;
    int sigaddset = 0;
    int attr_init = 0;
    int attr_setdetachstate = 0;
    int create = 0;
};
Failures failures;
int signals_released = 0;
int attributes_in_use = 0;
int failed_destructions = 0; // of mutexes

} // namespace

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    return failures.mutex_lock != 0 ? failures.mutex_lock : __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
    const int result = __real_pthread_mutex_unlock(mutex);
    return failures.mutex_unlock != 0 ? failures.mutex_unlock : result;
}

int __real_pthread_mutex_destroy(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex) {
    const int result = __real_pthread_mutex_destroy(mutex);
    failed_destructions += result != 0 ? 1 : 0;
    return result;
}

int __real_pthread_sigmask(int how, const sigset_t *mask, sigset_t *before);
int __wrap_pthread_sigmask(int how, const sigset_t *mask, sigset_t *before) {
    if (how == SIG_UNBLOCK)
        ++signals_released;
    return failures.sigmask != 0 ? failures.sigmask : __real_pthread_sigmask(how, mask, before);
}

int __real_sigemptyset(sigset_t *mask);
int __wrap_sigemptyset(sigset_t *mask) {
    return failures.sigemptyset != 0 ? failures.sigemptyset : __real_sigemptyset(mask);
}

int __real_sigaddset(sigset_t *mask, int signal);
int __wrap_sigaddset(sigset_t *mask, int signal) {
    return failures.sigaddset != 0 ? failures.sigaddset : __real_sigaddset(mask, signal);
}

int __real_pthread_attr_init(pthread_attr_t *attributes);
int __wrap_pthread_attr_init(pthread_attr_t *attributes) {
    if (failures.attr_init != 0)
        return failures.attr_init;
    ++attributes_in_use;
    return __real_pthread_attr_init(attributes);
}

int __real_pthread_attr_destroy(pthread_attr_t *attributes);
int __wrap_pthread_attr_destroy(pthread_attr_t *attributes) {
    --attributes_in_use;
    return __real_pthread_attr_destroy(attributes);
}

int __real_pthread_attr_setdetachstate(pthread_attr_t *attributes, int state);
int __wrap_pthread_attr_setdetachstate(pthread_attr_t *attributes, int state) {
    return failures.attr_setdetachstate != 0
               ? failures.attr_setdetachstate
               : __real_pthread_attr_setdetachstate(attributes, state);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*main)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*main)(void *), void *argument) {
    if (failures.create == 0)
        return __real_pthread_create(thread, attributes, main, argument);
    *thread = {}; // whatever it held before is lost
    return failures.create;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace zan::test {
namespace {

using testing::MatchesRegex;

// Lets the calls fail with the given results while one call of the library runs,
// and returns what it printed.
template<typename Call> std::string printed_when(const Failures &wanted, Call call) {
    StdoutCapture out;
    failures = wanted;
    call();
    failures = {};
    return out.stop();
}

class ThreadFailure : public testing::Test {
protected:
    ~ThreadFailure() override {
        zan_api_lock_destroy();
        zan_msq_lock_destroy();
    }
};

TEST_F(ThreadFailure, AnInitialisationThatFailsIsReported) {
    EXPECT_THAT(printed_when({.sigemptyset = -1}, zan_api_lock_init),
                MatchesRegex("\\[zan_api_lock_init:[0-9]+\\] zan_api_lock_init fail\n"));
    zan_api_lock_destroy();
    EXPECT_THAT(printed_when({.sigaddset = -1}, zan_api_lock_init),
                MatchesRegex("\\[zan_api_lock_init:[0-9]+\\] zan_api_lock_init fail\n"));
    EXPECT_EQ(printed_when({.sigemptyset = -1, .sigaddset = -1}, zan_api_lock_init), "");
}

TEST_F(ThreadFailure, ALockThatFailsIsReported) {
    zan_api_lock_init();
    EXPECT_EQ(printed_when({.mutex_lock = EINVAL}, zan_api_lock), "cfg api lock failure [22]\n");
    EXPECT_EQ(printed_when({.sigmask = EINVAL}, zan_api_lock),
              "[zan_api_lock:194] sig unlock fail\n");
    zan_api_unlock();
}

TEST_F(ThreadFailure, BothFailuresOfALockAreReportedInTheirOrder) {
    zan_api_lock_init();
    EXPECT_EQ(printed_when({.mutex_lock = EINVAL, .sigmask = EINVAL}, zan_api_lock),
              "[zan_api_lock:194] sig unlock fail\ncfg api lock failure [22]\n");
}

TEST_F(ThreadFailure, AnUnlockThatFailsIsReported) {
    zan_api_lock_init();
    zan_api_lock();
    EXPECT_EQ(printed_when({.mutex_unlock = EPERM, .sigmask = EINVAL}, zan_api_unlock),
              "cfg api unlock failure [1]\n[zan_api_unlock:229] cfg api unlock failure\n");
    zan_api_unlock();
}

TEST_F(ThreadFailure, AnUninitialisedLockCallsNothingThatCouldFail) {
    const Failures all{.mutex_lock = EINVAL, .mutex_unlock = EINVAL, .sigmask = EINVAL};
    EXPECT_EQ(printed_when(all, zan_api_lock), "");
    EXPECT_EQ(printed_when(all, zan_api_unlock), "");
}

TEST_F(ThreadFailure, TheQueueLockFailsSilently) {
    zan_msq_lock_init();
    EXPECT_EQ(printed_when({.mutex_lock = EINVAL, .sigmask = EINVAL}, zan_msq_lock), "");
    zan_msq_lock();
    EXPECT_EQ(printed_when({.mutex_unlock = EPERM, .sigmask = EINVAL}, zan_msq_unlock), "");
}

// A queue that cannot be removed makes one call release the lock twice, each time
// with the signal.
TEST_F(ThreadFailure, AQueueThatCannotBeRemovedReleasesTheLockTwice) {
    const ScriptedDaemon daemon;
    const int qid = zan_register("probe", 7);
    ASSERT_GT(qid, 0);
    StdoutCapture out;
    signals_released = 0;
    EXPECT_EQ(zan_unregister_msqid("probe", 7, qid), 0);
    EXPECT_EQ(signals_released, 1);
    signals_released = 0;
    EXPECT_EQ(zan_unregister_msqid("probe", 7, qid), -2006);
    EXPECT_EQ(signals_released, 2);
    EXPECT_EQ(out.stop(), "zan_msg_del ERROR:Invalid argument\n");
}

// A lock that a failure has left held is released before it goes.
TEST_F(ThreadFailure, NoLockIsDestroyedWhileItIsHeld) {
    const ScriptedDaemon daemon;
    const int qid = zan_register("probe", 7);
    ASSERT_GT(qid, 0);
    zan_msq_lock_init();
    StdoutCapture out;
    EXPECT_EQ(zan_unregister_msqid("probe", 7, -1), -1); // keeps the API lock
    g_zan_qid = -1;
    EXPECT_EQ(zan_send("peer", "hello", 5), -1); // keeps the queue lock
    g_zan_qid = daemon.request_queue();
    failed_destructions = 0;
    EXPECT_EQ(zan_unregister("probe", 7), 0);
    EXPECT_EQ(failed_destructions, 0);
}

class ThreadCreation : public ThreadFailure, public testing::WithParamInterface<int (*)(int)> {
protected:
    std::string printed_by_create(const Failures &wanted) {
        return printed_when(wanted, [this] { result_ = GetParam()(5); });
    }
    int result_ = 0;
};

TEST_P(ThreadCreation, EachStepThatFailsIsReportedAndReturned) {
    EXPECT_EQ(printed_by_create({.attr_init = ENOMEM}),
              "Initial pthread attribution error, errno: Cannot allocate memory.\n");
    EXPECT_EQ(result_, ENOMEM);
    EXPECT_EQ(printed_by_create({.attr_setdetachstate = EINVAL}),
              "Setting pthread attribution error, errno: Invalid argument.\n");
    EXPECT_EQ(result_, EINVAL);
    EXPECT_EQ(printed_by_create({.create = EAGAIN}), "API: Create trap handler thread failed.\n");
    EXPECT_EQ(result_, EAGAIN);
    EXPECT_EQ(zan_thread_cancel(), ESRCH);
    EXPECT_EQ(attributes_in_use, 0);
}

TEST_P(ThreadCreation, AThreadThatRunsCanBeCancelledWhenAnotherWasNotCreated) {
    const RawQueue queue;
    g_msq_qid = queue.id();
    const NextThread receiver;
    StdoutCapture out;
    ASSERT_EQ(GetParam()(5), 0);
    ASSERT_TRUE(out.wait_for("-->\n"));
    out.stop();
    printed_by_create({.create = EAGAIN});
    EXPECT_EQ(result_, EAGAIN);
    EXPECT_EQ(zan_thread_cancel(), 0);
    EXPECT_TRUE(receiver.wait_until_ended());
    g_msq_qid = -1;
}

INSTANTIATE_TEST_SUITE_P(, ThreadCreation,
                         testing::Values(zan_thread_create, zan_thread_create_wo_lock),
                         [](const auto &param) {
                             return std::string(param.index == 0 ? "locking" : "lock_free");
                         });

} // namespace
} // namespace zan::test
