// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/patience.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <ostream>
#include <pthread.h>

namespace zan::test {
namespace {

bool is_blocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

bool is_pending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

void set_blocked(int signal, bool blocked) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &one, nullptr);
}

volatile std::sig_atomic_t terminations = 0;

void count_terminations() {
    struct sigaction action {};
    action.sa_handler = [](int) { terminations = terminations + 1; };
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
}

// The four functions of either lock.
struct Lock {
    const char *name;
    void (*init)();
    void (*destroy)();
    void (*lock)();
    void (*unlock)();
};

void PrintTo(const Lock &lock, std::ostream *out) {
    *out << lock.name;
}

constexpr Lock api_lock = {"api", zan_api_lock_init, zan_api_lock_destroy, zan_api_lock,
                           zan_api_unlock};
constexpr Lock queue_lock = {"queue", zan_msq_lock_init, zan_msq_lock_destroy, zan_msq_lock,
                             zan_msq_unlock};

// Whether a second thread can take the lock that is meant to be free.
bool is_free(const Lock &lock) {
    return LockProbe(lock.lock, lock.unlock).is_free();
}

class EitherLock : public testing::TestWithParam<Lock> {
protected:
    ~EitherLock() override {
        GetParam().destroy();
        EXPECT_EQ(out.stop(), "");
    }
    StdoutCapture out;
};

TEST_P(EitherLock, DoesNothingUntilInitialised) {
    const Lock &lock = GetParam();
    lock.lock();
    lock.lock(); // a lock that exists would stop here
    EXPECT_TRUE(is_free(lock));
    lock.unlock();
    lock.unlock();
    EXPECT_FALSE(is_blocked(SIGTERM));
}

TEST_P(EitherLock, KeepsOtherThreadsOut) {
    const Lock &lock = GetParam();
    lock.init();
    EXPECT_TRUE(is_free(lock));
    lock.lock();
    LockProbe probe(lock.lock, lock.unlock);
    EXPECT_FALSE(probe.is_free());
    lock.unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_P(EitherLock, ASecondInitialisationChangesNothing) {
    const Lock &lock = GetParam();
    lock.init();
    lock.lock();
    lock.init();
    LockProbe probe(lock.lock, lock.unlock);
    EXPECT_FALSE(probe.is_free());
    lock.unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_P(EitherLock, OneDestructionUndoesTwoInitialisations) {
    const Lock &lock = GetParam();
    lock.init();
    lock.init();
    lock.destroy();
    lock.lock();
    EXPECT_TRUE(is_free(lock));
    EXPECT_FALSE(is_blocked(SIGTERM));
}

TEST_P(EitherLock, CanBeDestroyedTwice) {
    const Lock &lock = GetParam();
    lock.init();
    lock.destroy();
    lock.destroy();
    lock.lock();
    lock.lock();
    EXPECT_TRUE(is_free(lock));
}

TEST_P(EitherLock, CanBeInitialisedAgain) {
    const Lock &lock = GetParam();
    lock.init();
    lock.destroy();
    lock.init();
    lock.lock();
    LockProbe probe(lock.lock, lock.unlock);
    EXPECT_FALSE(probe.is_free());
    lock.unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

INSTANTIATE_TEST_SUITE_P(, EitherLock, testing::Values(api_lock, queue_lock),
                         [](const auto &param) { return std::string(param.param.name); });

// Without a fixture: the thread that waits for itself never ends.
class LockTakenTwice : public testing::TestWithParam<Lock> {};

TEST_P(LockTakenTwice, NeverReturns) {
    const Lock lock = GetParam();
    lock.init();
    Worker twice([lock] {
        lock.lock();
        lock.lock();
    });
    EXPECT_TRUE(twice.wait_until_blocked());
    twice.abandon();
}

INSTANTIATE_TEST_SUITE_P(, LockTakenTwice, testing::Values(api_lock, queue_lock),
                         [](const auto &param) { return std::string(param.param.name); });

class ApiLock : public testing::Test {
protected:
    ApiLock() {
        terminations = 0;
        count_terminations();
        zan_api_lock_init();
    }
    ~ApiLock() override {
        zan_api_lock_destroy();
        EXPECT_EQ(out.stop(), "");
    }
    StdoutCapture out;
};

TEST_F(ApiLock, BlocksSigtermAloneWhileItIsOwned) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    zan_api_lock();
    for (int signal = 1; signal < SIGRTMIN; ++signal)
        EXPECT_EQ(is_blocked(signal), signal == SIGTERM || sigismember(&before, signal) == 1)
            << signal;
    zan_api_unlock();
    EXPECT_FALSE(is_blocked(SIGTERM));
}

// Another thread, which has its mask from before, can still be told to end.
TEST_F(ApiLock, BlocksSigtermInItsOwnThreadOnly) {
    std::atomic<bool> held = false;
    bool blocked = true;
    Worker other([&] {
        eventually([&] { return held.load(); });
        blocked = is_blocked(SIGTERM);
    });
    zan_api_lock();
    held = true;
    EXPECT_TRUE(other.wait_until_done());
    EXPECT_FALSE(blocked);
    zan_api_unlock();
}

TEST_F(ApiLock, HoldsATerminationOffUntilItIsReleased) {
    zan_api_lock();
    pthread_kill(pthread_self(), SIGTERM);
    EXPECT_TRUE(is_pending(SIGTERM));
    EXPECT_EQ(terminations, 0);
    zan_api_unlock();
    EXPECT_EQ(terminations, 1);
    EXPECT_FALSE(is_pending(SIGTERM));
}

TEST_F(ApiLock, HoldsATerminationOffWhileItWaitsForTheLock) {
    zan_api_lock();
    bool blocked = false;
    set_blocked(SIGTERM, false);
    Worker waiter([&] {
        zan_api_lock();
        blocked = is_blocked(SIGTERM) && is_pending(SIGTERM) && terminations == 0;
        zan_api_unlock();
    });
    set_blocked(SIGTERM, true);
    EXPECT_TRUE(waiter.wait_until_blocked());
    waiter.send(SIGTERM);
    zan_api_unlock();
    EXPECT_TRUE(waiter.wait_until_done());
    EXPECT_TRUE(blocked);
    EXPECT_EQ(terminations, 1);
}

TEST_F(ApiLock, AnotherSignalIsTakenAtOnce) {
    struct sigaction action {};
    action.sa_handler = [](int) { terminations = terminations + 1; };
    sigaction(SIGUSR2, &action, nullptr);
    zan_api_lock();
    pthread_kill(pthread_self(), SIGUSR2);
    EXPECT_EQ(terminations, 1);
    zan_api_unlock();
}

TEST_F(ApiLock, ReleasingItUnownedOnlyUnblocksSigterm) {
    set_blocked(SIGTERM, true);
    zan_api_unlock();
    EXPECT_FALSE(is_blocked(SIGTERM));
    EXPECT_TRUE(is_free(api_lock));
    zan_api_lock();
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(ApiLock, TwoReleasesLeaveItFreeAndUsable) {
    zan_api_lock();
    zan_api_unlock();
    zan_api_unlock();
    zan_api_lock();
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}

#ifndef __SANITIZE_THREAD__ // it reports every release by another thread
// The second of two releases can come when another thread has the lock already.
TEST_F(ApiLock, AReleaseTakesItFromAnyThread) {
    Worker([] { zan_api_lock(); }).wait_until_done();
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    zan_api_unlock();
    EXPECT_TRUE(probe.wait_until_free());
}
#endif

// The queue lock is held for as long as handlers run: it must not keep a module
// from being ended.
TEST(QueueLock, LeavesSignalsAlone) {
    zan_msq_lock_init();
    zan_msq_lock();
    EXPECT_FALSE(is_blocked(SIGTERM));
    set_blocked(SIGTERM, true);
    zan_msq_unlock();
    EXPECT_TRUE(is_blocked(SIGTERM));
    set_blocked(SIGTERM, false);
    zan_msq_lock_destroy();
}

TEST(BothLocks, AreIndependent) {
    zan_api_lock_init();
    zan_msq_lock_init();
    zan_api_lock();
    EXPECT_TRUE(is_free(queue_lock));
    zan_msq_lock();
    zan_api_unlock();
    EXPECT_TRUE(is_free(api_lock));
    zan_msq_unlock();
    zan_msq_lock_destroy();
    zan_api_lock_destroy();
}

} // namespace
} // namespace zan::test
