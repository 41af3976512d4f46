// SPDX-License-Identifier: MIT
//
// What all requests have in common: their answers, the API lock, the failure
// report, and that one is in flight at a time.
#include "cfg/config_test.h"
#include "support/worker.h"

#include <sys/wait.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <pthread.h>
#include <utility>

namespace zan::test {
namespace {

struct Call {
    const char *name;
    int type;
    int cmd;
    std::function<int()> make;
    // The middle line of the failure report.
    std::string report = {};
};

std::ostream &operator<<(std::ostream &out, const Call &call) {
    return out << call.name;
}

char g_value[64]; // where the calls that read put what they get

const Call calls[] = {
    {"cfg_getstr", configuration, cmd::get, [] { return cfg_getstr(g_value, 64, "/a:%d", 1); },
     "path=/a:1"},
    {"cfg_getarray", configuration, cmd::get_array,
     [] { return cfg_getarray(g_value, 64, "/a:%d", 2); }, "path=/a:2"},
    {"cfg_setstr", configuration, cmd::set, [] { return cfg_setstr("value", "/a:%d", 3); },
     "path=/a:3"},
    {"cfg_get_module_pid", configuration, cmd::module_pid,
     [] { return cfg_get_module_pid("wifi"); }, "module=wifi"},
    {"cfg_anchor", configuration, cmd::anchor, [] { return cfg_anchor("/a:%d", 4); }, "path=/a:4"},
    {"cfg_del", configuration, cmd::del, [] { return cfg_del("/a:%d", 5); }, "path=/a:5"},
    {"zan_notify_register_value_changed", subscription, 0,
     [] { return zan_notify_register_value_changed("/a", 1, 2); }},
    {"zan_notify_register_event", subscription, 1, [] { return zan_notify_register_event(1); }},
    {"zan_notify_unregister_value_changed", subscription, 2,
     [] { return zan_notify_unregister_value_changed("/a"); }},
    {"zan_notify_unregister_event", subscription, 3, [] { return zan_notify_unregister_event(1); }},
};

bool lock_is_free() {
    return LockProbe(zan_api_lock, zan_api_unlock).is_free();
}

bool sigterm_is_blocked() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGTERM) == 1;
}

class Request : public ConfigTest, public testing::WithParamInterface<Call> {
protected:
    int make() { return GetParam().make(); }
    void answers(const Replies &replies) { daemon.once(GetParam().type, GetParam().cmd, replies); }

    std::string failure_report() const {
        const std::string name = GetParam().name;
        const std::string middle =
            GetParam().report.empty() ? "" : name + ": " + GetParam().report + "\n";
        return name + ":zan_msg_send fail!\n" + middle + name +
               ": pid=" + std::to_string(getpid()) + "\n";
    }

    // The lock is released and SIGTERM let through again, however a request ended.
    void expect_at_rest() {
        EXPECT_TRUE(lock_is_free());
        EXPECT_FALSE(sigterm_is_blocked());
    }
};
INSTANTIATE_TEST_SUITE_P(Of, Request, testing::ValuesIn(calls),
                         [](const auto &call) { return call.param.name; });

// ---- answers ---------------------------------------------------------------

TEST_P(Request, IsOneForEveryResultFromZeroUp) {
    StdoutCapture output;
    for (const int result : {0, 1, 2, INT_MAX}) {
        SCOPED_TRACE(result);
        answers({{.result = result, .payload = "1"}});
        EXPECT_EQ(make(), 1);
    }
    EXPECT_EQ(output.stop(), "");
    expect_at_rest();
}

TEST_P(Request, PassesANegativeResultOnSilently) {
    StdoutCapture output;
    for (const int result : {-1, -2003, -9001, INT_MIN}) {
        SCOPED_TRACE(result);
        answers(negative(result, "why not"));
        EXPECT_EQ(make(), result);
        answers(negative(result));
        EXPECT_EQ(make(), result);
    }
    EXPECT_EQ(output.stop(), "");
    expect_at_rest();
}

TEST_P(Request, DiscardsAnswersToOtherRequests) {
    answers({{.result = -5, .cmd = 99},
             {.result = -6, .payload = "text", .cmd = 98},
             {.result = -7, .type = 44, .mtype = GetParam().type},
             {.payload = "1"}});
    EXPECT_EQ(make(), 1);
    EXPECT_EQ(queue_length(g_msq_qid), 0);
}

TEST_P(Request, LeavesRecordsOfOtherClassesOnTheQueue) {
    answers({{.type = 4, .cmd = 1}, {.payload = "1"}});
    EXPECT_EQ(make(), 1);
    EXPECT_EQ(queue_length(g_msq_qid), 1);
}

TEST_P(Request, WaitsForALateAnswer) {
    answers({{.payload = "1", .held = true}});
    int result = 0;
    Worker worker([&] { result = make(); });
    EXPECT_TRUE(worker.wait_until_blocked());
    daemon.release();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, 1);
}

TEST_P(Request, SurvivesOneInterruptionOfItsWait) {
    answers({{.payload = "1", .held = true}});
    StdoutCapture output;
    int result = 0;
    Worker worker([&] { result = make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    worker.interrupt();
    const std::string line = "EINTR[" + std::to_string(g_msq_qid) + "]:retry...\n";
    EXPECT_TRUE(output.wait_for(line));
    daemon.release();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(output.stop(), line);
}

// ---- failures --------------------------------------------------------------

TEST_P(Request, ReportsThatTheDaemonIsGone) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(make(), -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(daemon.request_queue()) +
                                 " ERROR:Invalid argument\n" + failure_report());
    expect_at_rest();
}

TEST_P(Request, ReportsAFailedSendWithoutADaemonKnown) {
    const int known = std::exchange(g_zan_qid, -1);
    StdoutCapture output;
    EXPECT_EQ(make(), -2003);
    EXPECT_EQ(output.stop(), failure_report());
    expect_at_rest();
    g_zan_qid = known;
}

TEST_P(Request, FailsWhenTheOwnQueueGoesDuringTheWait) {
    answers(never());
    StdoutCapture output;
    int result = 0;
    Worker worker([&] { result = make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    remove_queue(g_msq_qid);
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(output.stop(),
              "zan_msg_recv qid=" + std::to_string(g_msq_qid) + " ERROR:Identifier removed\n");
    EXPECT_TRUE(lock_is_free());
}

TEST_P(Request, FailsWithoutAnOwnQueue) {
    const int own = std::exchange(g_msq_qid, -1);
    StdoutCapture output;
    const int result = make();
    g_msq_qid = own;
    // A record cannot have -1 for its queue type: the send is refused.
    EXPECT_EQ(result, -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(daemon.request_queue()) +
                                 " ERROR:Invalid argument\n" + failure_report());
    expect_at_rest();
}

// The queue full, the request waits in its send; the daemon goes.
TEST_P(Request, ReportsThatTheDaemonWentDuringTheSend) {
    RawQueue unread;
    const int known = std::exchange(g_zan_qid, unread.id());
    fill_queue(unread.id(), 1);
    StdoutCapture output;
    int result = 0;
    Worker worker([&] { result = make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    const int removed = unread.id();
    unread.remove();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(removed) +
                                 " ERROR:Identifier removed\n" + failure_report());
    EXPECT_TRUE(lock_is_free());
    g_zan_qid = known;
}

// ---- the lock --------------------------------------------------------------

TEST_P(Request, HoldsTheLockUntilItsAnswerIsIn) {
    answers({{.payload = "1", .held = true}});
    Worker worker([&] { make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    const LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    daemon.release();
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_P(Request, SendsNothingWhileAnotherThreadHoldsTheLock) {
    zan_api_lock();
    Worker worker([&] { make(); });
    EXPECT_TRUE(worker.wait_until_blocked());
    EXPECT_TRUE(daemon.records().empty());
    EXPECT_EQ(queue_length(daemon.request_queue()), 0);
    zan_api_unlock();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(daemon.records().size(), 1U);
}

std::atomic<int> g_terminations{0};

TEST_P(Request, HoldsSigtermOffUntilItsAnswerIsIn) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++g_terminations; };
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);

    answers({{.payload = "1", .held = true}});
    StdoutCapture output;
    std::atomic<pthread_t> thread{};
    int result = 0;
    int terminations_after = -1;
    Worker worker([&] {
        thread = pthread_self();
        result = make();
        terminations_after = g_terminations;
    });
    ASSERT_TRUE(worker.wait_until_blocked());
    pthread_kill(thread, SIGTERM);
    ASSERT_TRUE(worker.wait_until_blocked());
    EXPECT_EQ(g_terminations, 0);
    daemon.release();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(terminations_after, 1);
    EXPECT_EQ(output.stop(), ""); // the wait was not interrupted
}

// ---- several requests ------------------------------------------------------

class Requests : public ConfigTest {};

// Each call has an answer of its own: one that took another's would show.
TEST_F(Requests, OfSeveralThreadsGetTheirOwnAnswers) {
    constexpr int rounds = 40;
    daemon.on(configuration, cmd::get, answer("the value"));
    daemon.on(configuration, cmd::get_array, answer("the longer array of values"));
    daemon.on(configuration, cmd::module_pid, answer("4711"));
    daemon.on(configuration, cmd::set, negative(-21));
    daemon.on(configuration, cmd::anchor, negative(-22));
    daemon.on(subscription, 1, negative(-23));

    std::atomic<int> wrong{0};
    const auto expect = [&](bool right) { wrong += right ? 0 : 1; };
    const std::function<void()> calls_of_threads[] = {
        [&] {
            char value[64] = "";
            expect(cfg_getstr(value, sizeof value, "/value") == 1);
            expect(std::strcmp(value, "the value") == 0);
        },
        [&] {
            char value[64] = "";
            expect(cfg_getarray(value, sizeof value, "/array") == 1);
            expect(std::strcmp(value, "the longer array of values") == 0);
        },
        [&] { expect(cfg_get_module_pid("wifi") == 4711); },
        [&] { expect(cfg_setstr("value", "/x") == -21); },
        [&] { expect(cfg_anchor("/x") == -22); },
        [&] { expect(zan_notify_register_event(1) == -23); },
    };
    {
        std::vector<std::unique_ptr<Worker>> workers;
        for (const auto &call : calls_of_threads)
            workers.push_back(std::make_unique<Worker>([&] {
                for (int round = 0; round < rounds; ++round)
                    call();
            }));
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(daemon.records().size(), rounds * std::size(calls_of_threads));
}

TEST_F(Requests, OfTwoThreadsFollowEachOther) {
    daemon.once(configuration, cmd::anchor, {{.held = true}});
    Worker first([] { cfg_anchor("/first"); });
    ASSERT_TRUE(first.wait_until_blocked());
    Worker second([] { cfg_del("/second"); });
    EXPECT_TRUE(second.wait_until_blocked());
    EXPECT_EQ(daemon.records().size(), 1U);
    EXPECT_EQ(queue_length(daemon.request_queue()), 0);
    daemon.release();
    EXPECT_TRUE(first.wait_until_done());
    EXPECT_TRUE(second.wait_until_done());
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_TRUE(same_record(records[0], request(cmd::anchor, "/first")));
    EXPECT_TRUE(same_record(records[1], request(cmd::del, "/second")));
}

TEST_F(Requests, OfAForkedChildCarryItsOwnProcessId) {
    EXPECT_EQ(cfg_del("/parent"), 1);
    const pid_t child = fork();
    if (child == 0)
        _exit(cfg_del("/child") == 1 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(cfg_del("/parent again"), 1);
    const auto records = daemon.records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].record.pid(), getpid());
    EXPECT_EQ(records[1].record.pid(), child);
    EXPECT_EQ(records[2].record.pid(), getpid());
}

TEST_F(Requests, WorkWithoutALock) {
    zan_api_lock_destroy();
    char value[16] = "";
    daemon.once(configuration, cmd::get, answer("x"));
    EXPECT_EQ(cfg_getstr(value, sizeof value, "/a"), 1);
    EXPECT_STREQ(value, "x");
    EXPECT_EQ(zan_notify_register_event(1), 1);
}

TEST_F(Requests, CarryTheWholeModuleName) {
    const std::string longest(31, 'n');
    std::strcpy(g_module_name, longest.c_str());
    EXPECT_EQ(cfg_del("/a"), 1);
    Fields expected = request(cmd::del, "/a");
    expected.src = longest;
    EXPECT_TRUE(same_record(sent(), expected));
}

// The name is public and writable: without its terminator it ends where it ends.
TEST_F(Requests, StayInsideAModuleNameWithoutTerminator) {
    std::memset(g_module_name, 'n', sizeof g_module_name);
    EXPECT_EQ(cfg_del("/a"), 1);
    Fields expected = request(cmd::del, "/a");
    expected.src = std::string(32, 'n');
    EXPECT_TRUE(same_record(sent(), expected));
}

} // namespace
} // namespace zan::test
