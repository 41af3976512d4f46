// SPDX-License-Identifier: MIT
//
// The helpers that other tests trust.
#include "support/capture.h"
#include "support/daemon.h"
#include "support/patience.h"
#include "support/pauses.h"
#include "support/program.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/threads.h"
#include "support/worker.h"

#include <gmock/gmock.h>

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <thread>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::optional<SizedRecord> await_record(int qid, long msgtyp) {
    std::optional<SizedRecord> record;
    eventually([&] { return (record = raw_receive(qid, msgtyp)).has_value(); });
    return record;
}

TEST(RawRecord, FieldsStandWhereTheyBelong) {
    const SizedRecord made = make_record({.mtype = 9,
                                          .type = 1,
                                          .cmd = 2,
                                          .dst = "TO",
                                          .src = "FROM",
                                          .pid = 3,
                                          .result = -4,
                                          .arg = 5,
                                          .payload = "abc"});
    EXPECT_EQ(made.msgsz, 103u);
    EXPECT_EQ(made.record.mtype, 9);
    EXPECT_EQ(made.record.type(), 1);
    EXPECT_EQ(made.record.cmd(), 2);
    EXPECT_EQ(made.record.dst(), "TO");
    EXPECT_EQ(made.record.src(), "FROM");
    EXPECT_EQ(made.record.pid(), 3);
    EXPECT_EQ(made.record.result(), -4);
    EXPECT_EQ(made.record.arg(), 5);
    EXPECT_EQ(made.record.len(), 3);
    EXPECT_EQ(made.payload(), "abc");
}

TEST(RawRecord, ADifferenceIsNamedByItsField) {
    const SizedRecord one = make_record({.mtype = 1, .src = "abc", .payload = "x"});
    EXPECT_TRUE(same_record(one, one));
    EXPECT_THAT(same_record(one, Fields{.mtype = 1, .src = "abd", .payload = "x"}).message(),
                HasSubstr("src+2 (offset 42)"));
    EXPECT_THAT(same_record(one, Fields{.mtype = 2, .src = "abc", .payload = "x"}).message(),
                HasSubstr("mtype is 1, expected 2"));
    EXPECT_THAT(
        same_record(one, Fields{.mtype = 1, .src = "abc", .payload = "xy", .len = 1}).message(),
        HasSubstr("msgsz is 101, expected 102"));
}

TEST(RawQueue, TheNextIdIsPredicted) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    for (int i = 0; i < 3; ++i) {
        const int predicted = next_queue_id();
        EXPECT_EQ(RawQueue().id(), predicted);
    }
}

TEST(StdoutCapture, TakesLinesOfThreadsAndChildren) {
    StdoutCapture capture;
    std::printf("one\n");
    std::thread([] { std::printf("two\n"); }).join();
    if (fork() == 0) {
        std::printf("three\n");
        _exit(0);
    }
    EXPECT_TRUE(capture.wait_for("three\n"));
    std::printf("four");
    EXPECT_EQ(capture.stop(), "one\ntwo\nthree\nfour");
}

TEST(Worker, AKnownInterruptionEndsABlockedCall) {
    std::optional<int> error;
    Worker worker([&] {
        if (pause() < 0)
            error = errno;
    });
    EXPECT_TRUE(worker.wait_until_blocked());
    EXPECT_FALSE(worker.done());
    worker.interrupt();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_EQ(error, EINTR);
}

// A thread that does as it is told until it ends.
class Puppet {
public:
    template<typename Work> explicit Puppet(Work work) {
        thread_ = std::thread([this, work] {
            id_ = gettid();
            work();
        });
        EXPECT_TRUE(eventually([this] { return id_ != 0; }));
    }
    ~Puppet() { thread_.join(); }

    pid_t id() const { return id_; }
    // Whether it was never found blocked.
    bool stays_unblocked() const {
        for (int look = 0; look < 100; ++look)
            if (is_blocked(id_))
                return false;
        return true;
    }

private:
    std::atomic<pid_t> id_ = 0;
    std::thread thread_;
};

TEST(Threads, ATimedSleepIsNotBlocked) {
    std::atomic<bool> end = false;
    const Puppet sleeper([&] {
        const timespec tenth = {0, 100'000'000};
        while (!end)
            clock_nanosleep(CLOCK_MONOTONIC, 0, &tenth, nullptr);
    });
    EXPECT_TRUE(sleeper.stays_unblocked());
    end = true;
}

TEST(Threads, AThreadIsBlockedOnlyWhenTheOwnerOfItsLockSleepsToo) {
    std::mutex lock;
    std::mutex gate;
    std::atomic<bool> spin = true;
    std::atomic<bool> locked = false;
    gate.lock();
    const Puppet owner([&] {
        const std::lock_guard held(lock);
        locked = true;
        while (spin) {
        }
        gate.lock();
        gate.unlock();
    });
    ASSERT_TRUE(eventually([&] { return locked.load(); }));
    const Puppet waiter([&] { const std::lock_guard held(lock); });
    EXPECT_TRUE(waiter.stays_unblocked());
    spin = false;
    EXPECT_TRUE(wait_until_blocked(waiter.id()));
    gate.unlock();
}

TEST(Worker, CodeBetweenTwoCallsIsInterruptedUntilItEnds) {
    Worker worker([] {
        for (int calls = 0; calls < 3; ++calls)
            pause();
    });
    EXPECT_TRUE(worker.interrupt_until_done());
}

void pause_for_ms(int ms) {
    const timespec time = {0, ms * 1'000'000L};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

TEST(PauseWatch, SeesThePausesOfItsThread) {
    PauseWatch watch;
    int seen = 0;
    watch.before_each([&] { ++seen; });
    pause_for_ms(1);
    std::thread([] { pause_for_ms(2); }).join();
    pause_for_ms(3);
    EXPECT_THAT(watch.pauses(), ElementsAre(1ms, 3ms));
    EXPECT_EQ(seen, 2);
    watch.forget();
    EXPECT_THAT(watch.pauses(), IsEmpty());
}

TEST(PauseWatch, SeesThoseOfAllThreadsOnRequest) {
    pause_for_ms(1);
    const PauseWatch watch(PauseWatch::Of::all_threads);
    std::thread([] { pause_for_ms(2); }).join();
    EXPECT_THAT(watch.pauses(), ElementsAre(2ms));
}

TEST(RawRecord, TheTimeIsRecentForADay) {
    const auto now = static_cast<std::int32_t>(std::time(nullptr));
    EXPECT_TRUE(is_recent(now));
    EXPECT_TRUE(is_recent(now - 3600));
    EXPECT_FALSE(is_recent(0));
    EXPECT_FALSE(is_recent(getpid()));
    EXPECT_FALSE(is_recent(now + 2 * 86400));
}

std::mutex probed;

TEST(LockProbe, TellsAHeldLockFromAFreeOne) {
    const auto lock = [] { probed.lock(); };
    const auto unlock = [] { probed.unlock(); };
    probed.lock();
    LockProbe held(lock, unlock);
    EXPECT_FALSE(held.is_free());
    probed.unlock();
    EXPECT_TRUE(held.wait_until_free());
    EXPECT_TRUE(LockProbe(lock, unlock).is_free());
}

TEST(Program, StreamsStatusAndSignals) {
    Program cat({"/bin/cat"}, {.input = "hello\n", .host = true});
    EXPECT_EQ(cat.wait(), 0);
    EXPECT_EQ(cat.output(), "hello\n");

    Program shell({"/bin/sh", "-c", "echo $WORD; echo oops >&2; read line; exit 3"},
                  {.env = {{"WORD", "ready"}}, .keep_stdin = true, .host = true});
    EXPECT_TRUE(shell.read_until("ready\n"));
    EXPECT_TRUE(shell.running());
    shell.write("go\n");
    EXPECT_EQ(shell.wait(), 3);
    EXPECT_EQ(shell.error(), "oops\n");

    Program sleeper({"/bin/sleep", "1000"}, {.host = true});
    sleeper.signal(SIGTERM);
    EXPECT_EQ(sleeper.wait(), 128 + SIGTERM);
    EXPECT_FALSE(sleeper.read_until("never printed"));
}

TEST(Program, StartsProgramsOfTheTarget) {
    Program self({std::filesystem::read_symlink("/proc/self/exe"), "--gtest_list_tests"});
    EXPECT_EQ(self.wait(), 0);
    EXPECT_THAT(self.output(), HasSubstr("StartsProgramsOfTheTarget"));
}

class ScriptedDaemonTest : public testing::Test {
protected:
    void ask(std::int32_t type, std::int32_t cmd) {
        ASSERT_TRUE(raw_send(daemon.request_queue(),
                             Fields{.mtype = module.id(), .type = type, .cmd = cmd}));
    }

    ScriptedDaemon daemon;
    RawQueue module;
};

TEST_F(ScriptedDaemonTest, PublishesItsQueues) {
    EXPECT_EQ(read_file("/tmp/zan_qid"), std::to_string(daemon.request_queue()));
    EXPECT_EQ(read_file("/tmp/zan_req_qid"), std::to_string(daemon.registration_queue()));
}

TEST_F(ScriptedDaemonTest, GrantsEverythingByItself) {
    ask(3, 0);
    ask(1, 2);
    const auto registered = await_record(daemon.registration_queue(), module.id());
    ASSERT_TRUE(registered);
    EXPECT_TRUE(same_record(*registered, Fields{.mtype = module.id(), .type = 3, .result = 1}));
    const auto answered = await_record(module.id(), 1);
    ASSERT_TRUE(answered);
    EXPECT_TRUE(same_record(*answered, Fields{.mtype = 1, .type = 1, .cmd = 2, .result = 1}));
    const auto records = daemon.wait_for_records(2);
    EXPECT_TRUE(same_record(records[0], Fields{.mtype = module.id(), .type = 3}));
    EXPECT_TRUE(same_record(records[1], Fields{.mtype = module.id(), .type = 1, .cmd = 2}));
}

TEST_F(ScriptedDaemonTest, FollowsItsScript) {
    daemon.on(1, 1, {{.payload = "other", .cmd = 2}, {.payload = "value", .held = true}});
    daemon.once(1, 1, negative(-5, "no"));
    ask(1, 1);
    auto answered = await_record(module.id(), 1);
    ASSERT_TRUE(answered);
    EXPECT_TRUE(same_record(
        *answered, Fields{.mtype = 1, .type = 1, .cmd = 1, .result = -5, .payload = "no"}));
    ask(1, 1);
    answered = await_record(module.id(), 1);
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->record.cmd(), 2);
    EXPECT_EQ(queue_length(module.id()), 0);
    daemon.release();
    answered = await_record(module.id(), 1);
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->payload(), "value");
}

TEST_F(ScriptedDaemonTest, MayStaySilentOrDie) {
    daemon.on(1, 1, never());
    daemon.on(1, 2, die());
    ask(1, 1);
    ask(1, 2);
    // One goes after the other.
    EXPECT_TRUE(eventually([&] {
        return !queue_exists(daemon.request_queue()) && !queue_exists(daemon.registration_queue());
    }));
    EXPECT_EQ(queue_length(module.id()), 0);
}

TEST_F(ScriptedDaemonTest, EndsWhileAReplyWaits) {
    daemon.on(1, 1, {{.held = true}});
    daemon.on(1, 2, {{.delay = std::chrono::hours(1)}});
    ask(1, 1);
    daemon.wait_for_records(1);
}

} // namespace
} // namespace zan::test
