// SPDX-License-Identifier: MIT
#include "receive_thread.h"

#include "support/capture.h"
#include "support/patience.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/threads.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <signal.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;

std::string line(const char *format, int number) {
    char text[160];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

// What the handlers were called with; a test can keep the thread in a handler.
class Handled {
public:
    void add(std::string call) {
        std::unique_lock lock(mutex_);
        calls_.push_back(std::move(call));
        changed_.notify_all();
        changed_.wait(lock, [&] { return !gate_closed_; });
    }

    std::vector<std::string> wait_for(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, patience, [&] { return calls_.size() >= count; });
        return calls_;
    }

    void set_gate(bool closed) {
        const std::lock_guard lock(mutex_);
        gate_closed_ = closed;
        changed_.notify_all();
    }

    void clear() {
        const std::lock_guard lock(mutex_);
        calls_.clear();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> calls_;
    bool gate_closed_ = false;
};

Handled handled;

int on_message(char *data, int len, zan_body *) {
    handled.add("message " + std::string(data, static_cast<std::size_t>(len)));
    return 0;
}

int on_event(int event, int) {
    handled.add("event " + std::to_string(event));
    return 0;
}

// The form of the thread.
struct Form {
    const char *name;
    int (*create)(int mtype);
    const char *start_line;
    const char *receive_error; // of the primitive, up to the reason
};

void PrintTo(const Form &form, std::ostream *out) {
    *out << form.name;
}

constexpr Form locking = {"locking", zan_thread_create,
                          "zan_thread_create: mtype=5 g_msq_qid=%d-------------------->\n",
                          "zan_msg_recv_no_wait msqid=%d ERROR:"};
constexpr Form lock_free = {"lock_free", zan_thread_create_wo_lock,
                            "zan_thread_create_wo_lock: mtype=5 g_msq_qid=%d"
                            "-------------------->\n",
                            "zan_msg_recv qid=%d ERROR:"};

class Receiver : public testing::Test {
protected:
    explicit Receiver(const Form &form) : form_(form) {
        handled.clear();
        g_msq_qid = queue.id();
        zan_set_message_handler(on_message);
        zan_set_event_handler(on_event);
    }
    ~Receiver() override {
        handled.set_gate(false);
        queue.remove();
        EXPECT_TRUE(wait_until_ended());
    }

    void start(int mtype = 5) { ASSERT_EQ(form_.create(mtype), 0); }

    bool wait_until_ended() const { return thread_.wait_until_ended(); }
    pid_t thread() const { return thread_.id(); }

    void arrives(Fields fields) {
        if (fields.mtype == 0)
            fields.mtype = fields.type;
        ASSERT_TRUE(raw_send(queue.id(), fields));
    }
    void event_arrives(char code) {
        arrives({.type = 5, .cmd = 8, .payload = {code, '\0', '\0', '\0'}});
    }
    // More than any record holds.
    void oversized_arrives() {
        static const struct {
            long mtype = 5;
            char bytes[35101] = {};
        } oversized;
        ASSERT_EQ(msgsnd(id, &oversized, sizeof oversized.bytes, IPC_NOWAIT), 0);
    }
    void oversized_leaves() {
        static struct {
            long mtype;
            char bytes[35101];
        } oversized;
        ASSERT_EQ(msgrcv(id, &oversized, sizeof oversized.bytes, 5, IPC_NOWAIT), 35101);
    }

    std::string start_line() const { return line(form_.start_line, id); }
    std::string error_lines(const std::string &reason, int count) const {
        return line(form_.receive_error, id) + reason + "\n" +
               line("API: receive msq message error, msgid: %d. Error:", id) + reason +
               line(" count=%d\n", count);
    }

    // Errors count only when they follow each other: with a success behind each, none
    // is one too many.  The thread stops where it reports an error because standard
    // output is locked; the test waits for that and takes the cause away.
    void expect_forgiven_errors() {
        ZAN_SKIP_WITHOUT_LONG_RECORDS();
        StdoutCapture out;
        start();
        ASSERT_TRUE(out.wait_for("-->\n"));
        const pid_t receiver = thread();
        std::string expected = start_line();
        for (char round = 1; round <= 6; ++round) {
            flockfile(stdout);
            oversized_arrives();
            EXPECT_TRUE(wait_until_blocked(receiver));
            oversized_leaves();
            event_arrives(round);
            funlockfile(stdout);
            ASSERT_EQ(handled.wait_for(static_cast<std::size_t>(round)).size(),
                      static_cast<std::size_t>(round));
            expected += error_lines("Argument list too long", 0);
        }
        EXPECT_EQ(out.stop(), expected);
    }

    const Form form_;
    const NextThread thread_;
    RawQueue queue;
    const int id = queue.id();
};

class EitherForm : public Receiver, public testing::WithParamInterface<Form> {
protected:
    EitherForm() : Receiver(GetParam()) {}
};

TEST_P(EitherForm, PrintsItsStartOnce) {
    StdoutCapture out;
    start();
    event_arrives(1);
    event_arrives(2);
    handled.wait_for(2);
    EXPECT_EQ(out.stop(), start_line());
}

TEST_P(EitherForm, DispatchesTheRecordsOfItsType) {
    start();
    event_arrives(1);
    arrives({.type = 4, .cmd = 4, .payload = "stays"});
    event_arrives(2);
    EXPECT_THAT(handled.wait_for(2), ElementsAre("event 1", "event 2"));
    EXPECT_EQ(queue_length(id), 1);
}

TEST_P(EitherForm, TypeZeroIsAnyRecord) {
    start(0);
    arrives({.type = 9, .cmd = 3, .payload = "all"});
    arrives({.type = 4, .cmd = 4, .payload = "you"});
    event_arrives(3);
    EXPECT_THAT(handled.wait_for(3), ElementsAre("message all", "message you", "event 3"));
}

TEST_P(EitherForm, EndsAtOnceWithoutAnOwnQueue) {
    g_msq_qid = -1;
    StdoutCapture out;
    start();
    EXPECT_TRUE(wait_until_ended());
    EXPECT_EQ(out.stop(), line(form_.start_line, -1));
    EXPECT_EQ(zan_thread_cancel(), ESRCH);
}

TEST_P(EitherForm, FourErrorsInARowEndIt) {
    StdoutCapture out;
    start();
    event_arrives(1);
    handled.wait_for(1);
    queue.remove();
    EXPECT_TRUE(wait_until_ended());
    // The first may have met the thread while it waited in the kernel.
    const std::string further = error_lines("Invalid argument", 1) +
                                error_lines("Invalid argument", 2) +
                                error_lines("Invalid argument", 3);
    EXPECT_THAT(out.stop(), AnyOf(start_line() + error_lines("Invalid argument", 0) + further,
                                  start_line() + error_lines("Identifier removed", 0) + further));
    EXPECT_EQ(zan_thread_cancel(), ESRCH);
}

TEST_P(EitherForm, ARecordLongerThanAnyIsAnErrorEachTime) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    oversized_arrives();
    StdoutCapture out;
    start();
    EXPECT_TRUE(wait_until_ended());
    const char *const reason = "Argument list too long";
    EXPECT_EQ(out.stop(), start_line() + error_lines(reason, 0) + error_lines(reason, 1) +
                              error_lines(reason, 2) + error_lines(reason, 3));
}

TEST_P(EitherForm, CanBeStartedAgainAfterItsEnd) {
    g_msq_qid = -1;
    start();
    EXPECT_TRUE(wait_until_ended());
    EXPECT_EQ(zan_thread_cancel(), ESRCH); // synchronises with the end of the thread
    g_msq_qid = id;
    start();
    event_arrives(4);
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 4"));
}

TEST_P(EitherForm, IsCancelledOnce) {
    StdoutCapture out;
    start();
    event_arrives(1);
    handled.wait_for(1);
    EXPECT_EQ(zan_thread_cancel(), 0);
    EXPECT_EQ(zan_thread_cancel(), ESRCH);
    EXPECT_TRUE(wait_until_ended());
    event_arrives(2);
    EXPECT_EQ(queue_length(id), 1);
    EXPECT_EQ(out.stop(), start_line());
}

TEST_P(EitherForm, IsNotCancelledInsideAHandler) {
    zan_set_event_handler([](int, int) {
        handled.add("begun"); // waits on a condition variable, where a cancel could end it
        handled.add("finished");
        return 0;
    });
    handled.set_gate(true);
    start();
    event_arrives(1);
    handled.wait_for(1);
    EXPECT_EQ(zan_thread_cancel(), 0);
    handled.set_gate(false);
    EXPECT_THAT(handled.wait_for(2), ElementsAre("begun", "finished"));
    EXPECT_TRUE(wait_until_ended());
}

TEST_P(EitherForm, TakesNoFurtherRecordOnceItIsCancelled) {
    handled.set_gate(true);
    start();
    event_arrives(1);
    event_arrives(2);
    handled.wait_for(1);
    EXPECT_EQ(zan_thread_cancel(), 0);
    handled.set_gate(false);
    EXPECT_TRUE(wait_until_ended());
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 1"));
    EXPECT_EQ(queue_length(id), 1);
}

TEST_P(EitherForm, BehindAShortRecordItsStorageReadsAsZero) {
    start(0);
    arrives({.type = 4, .cmd = 4, .payload = std::string(2000, 'x')});
    arrives({.type = 4, .cmd = 4, .payload = "ab", .len = 2000});
    arrives({.type = 5, .cmd = 8});
    const auto calls = handled.wait_for(3);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1], "message ab" + std::string(1998, '\0'));
    EXPECT_EQ(calls[2], "event 0");
}

TEST_P(EitherForm, WhatAHandlerWritesBehindAPayloadIsGoneWithTheNextRecord) {
    zan_set_message_handler([](char *data, int len, zan_body *body) {
        handled.add(std::string(data, static_cast<std::size_t>(len)));
        std::memset(data, 'x', sizeof body->data);
        return 0;
    });
    start(4);
    arrives({.type = 4, .cmd = 4, .payload = "ab"});
    arrives({.type = 4, .cmd = 4, .payload = "cd", .len = 35000});
    const auto calls = handled.wait_for(2);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[1] == "cd" + std::string(34998, '\0'));
}

INSTANTIATE_TEST_SUITE_P(, EitherForm, testing::Values(locking, lock_free),
                         [](const auto &param) { return std::string(param.param.name); });

TEST(ReceiverThread, CannotBeCancelledBeforeItWasEverStarted) {
    EXPECT_EQ(zan_thread_cancel(), ESRCH);
}

// ---- the locking form -----------------------------------------------------------

class LockingReceiver : public Receiver {
protected:
    LockingReceiver() : Receiver(locking) {}
    ~LockingReceiver() override {
        queue.remove();
        EXPECT_TRUE(wait_until_ended());
        zan_thread_cancel(); // synchronises with the end of the thread
        zan_msq_lock_destroy();
    }
};

TEST_F(LockingReceiver, HoldsTheQueueLockWhileItDispatches) {
    handled.set_gate(true);
    start();
    event_arrives(1);
    handled.wait_for(1);
    LockProbe probe(zan_msq_lock, zan_msq_unlock);
    EXPECT_FALSE(probe.is_free());
    handled.set_gate(false);
    EXPECT_TRUE(probe.wait_until_free());
}

// While a direct send holds the lock its acknowledgement must not be taken.
TEST_F(LockingReceiver, ReceivesNothingWhileTheQueueLockIsHeld) {
    start();
    event_arrives(1);
    handled.wait_for(1);
    zan_msq_lock();
    event_arrives(2);
    EXPECT_TRUE(wait_until_blocked(thread())); // the pause between two receives is over
    EXPECT_EQ(queue_length(id), 1);
    zan_msq_unlock();
    EXPECT_THAT(handled.wait_for(2), ElementsAre("event 1", "event 2"));
}

TEST_F(LockingReceiver, LeavesTheQueueLockFreeWhenItIsCancelled) {
    start();
    event_arrives(1);
    handled.wait_for(1);
    EXPECT_EQ(zan_thread_cancel(), 0);
    EXPECT_TRUE(wait_until_ended());
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

TEST_F(LockingReceiver, LeavesTheQueueLockFreeWhenErrorsEndIt) {
    start();
    queue.remove();
    EXPECT_TRUE(wait_until_ended());
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

TEST_F(LockingReceiver, DispatchesEvenAnEmptyRecord) {
    StdoutCapture out;
    start();
    arrives({.mtype = 5, .msgsz = 0});
    EXPECT_TRUE(out.wait_for("receive unknown module message[0]\n"));
    event_arrives(1);
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 1"));
}

TEST_F(LockingReceiver, ASuccessForgivesTheErrorsBefore) {
    expect_forgiven_errors();
}

// ---- the lock-free form ---------------------------------------------------------

class LockFreeReceiver : public Receiver {
protected:
    LockFreeReceiver() : Receiver(lock_free) {}

    void interrupt() { tgkill(getpid(), thread(), SIGUSR2); }
};

TEST_F(LockFreeReceiver, TakesNoLock) {
    zan_msq_lock_init();
    zan_msq_lock();
    handled.set_gate(true);
    start();
    event_arrives(1);
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 1"));
    zan_msq_unlock();
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
    zan_msq_lock_destroy();
}

TEST_F(LockFreeReceiver, LeavesTheQueueLockUninitialised) {
    start();
    zan_msq_lock();
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

TEST_F(LockFreeReceiver, PassesOverAnEmptyRecord) {
    StdoutCapture out;
    start();
    arrives({.mtype = 5, .msgsz = 0});
    event_arrives(1);
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 1"));
    EXPECT_EQ(out.stop(), start_line());
}

TEST_F(LockFreeReceiver, ASuccessForgivesTheErrorsBefore) {
    expect_forgiven_errors();
}

TEST_F(LockFreeReceiver, InterruptionsAreNoErrors) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    StdoutCapture out;
    start();
    ASSERT_TRUE(out.wait_for("-->\n"));
    const std::string failed_retry =
        line("Retry fail[zan_msg_recv] qid=%d ERROR:Interrupted system call\n", id);
    EXPECT_TRUE(eventually([&] {
        interrupt();
        return out.so_far().find(failed_retry) != std::string::npos &&
               out.so_far().size() > start_line().size() + 8 * failed_retry.size();
    }));
    event_arrives(1);
    EXPECT_THAT(handled.wait_for(1), ElementsAre("event 1"));
    EXPECT_THAT(out.stop(), testing::Not(testing::HasSubstr("API: receive")));
}

} // namespace
} // namespace zan::test
