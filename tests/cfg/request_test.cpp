// SPDX-License-Identifier: MIT
//
// What all requests have in common: their answers, the API lock, the failure
// report, and that one is in flight at a time.
#include "cfg/config_test.h"
#include "support/patience.h"
#include "support/requests.h"
#include "support/worker.h"

#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <optional>
#include <pthread.h>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace zan::test {
namespace {

// What a send that fails prints about itself.
std::string report_of(const char *function, const std::vector<std::string> &report) {
    std::string text;
    for (std::string line : report) {
        if (const std::size_t at = line.find("PID"); at != std::string::npos)
            line.replace(at, 3, std::to_string(getpid()));
        text += function + line + "\n";
    }
    return text;
}

class Request : public ConfigTest, public testing::WithParamInterface<RequestFunction> {
protected:
    int make() { return GetParam().make(); }
    void answers(const Replies &replies) { daemon.once(GetParam().type, GetParam().cmd, replies); }

    static int refused(int result) { return GetParam().refusal.value_or(result); }

    static std::string failure_report() { return report_of(GetParam().name, GetParam().report); }

    // The lock is released and SIGTERM let through again, however a request ended.
    static void expect_at_rest() {
        EXPECT_TRUE(api_lock_is_free());
        EXPECT_FALSE(sigterm_is_blocked());
    }
};
INSTANTIATE_TEST_SUITE_P(Of, Request, testing::ValuesIn(locked_requests),
                         [](const auto &call) { return call.param.name; });
INSTANTIATE_TEST_SUITE_P(WithoutLock, Request, testing::ValuesIn(unlocked_requests),
                         [](const auto &call) { return call.param.name; });

// ---- the table -------------------------------------------------------------

TEST(RequestTable, NamesEveryConfigurationFunction) {
    std::set<std::string> listed = {"cfg_hw_id_info_init"}; // makes none
    for (const RequestFunction &request : locked_requests)
        listed.insert(request.name);
    for (const IndirectRequest &request : indirect_requests)
        listed.insert(request.name);
    for (const IndirectRequest &request : combined_requests)
        listed.insert(request.name);
    std::istringstream exports(read_file(ZAN_TEST_EXPORTS));
    int functions = 0;
    for (std::string name; exports >> name;) {
        if (!name.starts_with("cfg_"))
            continue;
        ++functions;
        EXPECT_TRUE(listed.contains(name)) << name;
    }
    EXPECT_GT(functions, 25);
}

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
        EXPECT_EQ(make(), refused(result));
        answers(negative(result));
        EXPECT_EQ(make(), refused(result));
    }
    EXPECT_EQ(output.stop(), "");
    expect_at_rest();
}

TEST_P(Request, DiscardsAnswersToOtherRequestsButLeavesOtherClassesOnTheQueue) {
    answers({{.result = -5, .cmd = 99},
             {.result = -6, .payload = "text", .cmd = 98},
             {.result = -7, .type = 44, .mtype = GetParam().type},
             {.type = 4, .cmd = 1},
             {.payload = "1"}});
    EXPECT_EQ(make(), 1);
    EXPECT_EQ(queue_length(g_msq_qid), 1);
}

TEST_P(Request, WaitsForALateAnswerAndSurvivesOneInterruption) {
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

TEST_P(Request, ReportsASendThatFails) {
    const std::string refused_by_kernel =
        "zan_msg_send qid=" + std::to_string(daemon.request_queue()) + " ERROR:Invalid argument\n";
    StdoutCapture without_daemon;
    const int known = std::exchange(g_zan_qid, -1);
    EXPECT_EQ(make(), -2003);
    g_zan_qid = known;
    EXPECT_EQ(without_daemon.stop(), failure_report());
    expect_at_rest();

    // A record cannot have -1 for its queue type.
    StdoutCapture without_own_queue;
    const int own = std::exchange(g_msq_qid, -1);
    EXPECT_EQ(make(), -2003);
    g_msq_qid = own;
    EXPECT_EQ(without_own_queue.stop(), refused_by_kernel + failure_report());
    expect_at_rest();

    StdoutCapture after_daemon;
    daemon.die();
    EXPECT_EQ(make(), -2003);
    EXPECT_EQ(after_daemon.stop(), refused_by_kernel + failure_report());
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
    EXPECT_TRUE(api_lock_is_free());
    g_zan_qid = known;
}

TEST_P(Request, FailsWhenTheOwnQueueGoesDuringTheWait) {
    answers(never());
    StdoutCapture output;
    int result = 1;
    Worker worker([&] { result = make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    remove_queue(g_msq_qid);
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, refused(-1));
    EXPECT_EQ(output.stop(),
              "zan_msg_recv qid=" + std::to_string(g_msq_qid) + " ERROR:Identifier removed\n");
    EXPECT_TRUE(api_lock_is_free());
}

// A daemon that dies takes the answer along: only signals end the wait.
TEST_P(Request, WaitsForADeadDaemonUntilItIsInterruptedTwice) {
    answers(die());
    StdoutCapture output;
    int result = 1;
    Worker worker([&] { result = make(); });
    ASSERT_TRUE(worker.wait_until_blocked());
    ASSERT_TRUE(eventually([&] { return !queue_exists(daemon.request_queue()); }));
    const std::string qid = std::to_string(g_msq_qid);
    worker.interrupt();
    EXPECT_TRUE(output.wait_for("EINTR[" + qid + "]:retry...\n"));
    ASSERT_TRUE(worker.wait_until_blocked());
    worker.interrupt();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, refused(-1));
    EXPECT_EQ(output.stop(), "EINTR[" + qid + "]:retry...\nRetry fail[zan_msg_recv] qid=" + qid +
                                 " ERROR:Interrupted system call\n");
    EXPECT_TRUE(api_lock_is_free());
}

// ---- the lock --------------------------------------------------------------

class RequestLock : public Request {};
INSTANTIATE_TEST_SUITE_P(Of, RequestLock, testing::ValuesIn(locked_requests),
                         [](const auto &call) { return call.param.name; });

TEST_P(RequestLock, IsWaitedForBeforeAnythingIsSent) {
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

TEST_P(RequestLock, IsHeldAndSigtermHeldOffUntilTheAnswerIsIn) {
    g_terminations = 0;
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
    const LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    pthread_kill(thread, SIGTERM);
    ASSERT_TRUE(worker.wait_until_blocked());
    EXPECT_EQ(g_terminations, 0);
    daemon.release();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_TRUE(probe.wait_until_free());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(terminations_after, 1);
    EXPECT_EQ(output.stop(), ""); // the wait was not interrupted
}

class LocklessRequest : public Request {};
INSTANTIATE_TEST_SUITE_P(Of, LocklessRequest, testing::ValuesIn(unlocked_requests),
                         [](const auto &call) { return call.param.name; });

TEST_P(LocklessRequest, TakesNoLock) {
    zan_msq_lock_init();
    zan_api_lock();
    zan_msq_lock();
    EXPECT_EQ(make(), 1);
    zan_msq_unlock();
    zan_api_unlock();
    EXPECT_EQ(daemon.records().size(), 1U);
}

// ---- sending alone ---------------------------------------------------------

class Posted : public ConfigTest, public testing::WithParamInterface<PostFunction> {};
INSTANTIATE_TEST_SUITE_P(By, Posted, testing::ValuesIn(posts),
                         [](const auto &post) { return post.param.name; });

// Neither lock is needed, and what waits on the own queue is not read.
TEST_P(Posted, TakesNoLockAndNoAnswer) {
    for (const int type : {1, 2, 7, 8})
        raw_send(g_msq_qid, {.mtype = type, .type = type, .cmd = 42, .result = -5});
    for (const int type : {2, 7, 8})
        for (const int cmd : {0, 1, 42})
            daemon.on(type, cmd, never());
    zan_msq_lock_init();
    zan_api_lock();
    zan_msq_lock();
    StdoutCapture output;
    EXPECT_EQ(GetParam().make(), GetParam().result);
    EXPECT_EQ(output.stop(), "");
    zan_msq_unlock();
    zan_api_unlock();
    daemon.wait_for_records(1);
    EXPECT_EQ(queue_length(g_msq_qid), 4);
}

TEST_P(Posted, ReportsASendThatFails) {
    const std::string report = report_of(GetParam().name, GetParam().report);
    StdoutCapture without_daemon;
    const int known = std::exchange(g_zan_qid, -1);
    EXPECT_EQ(GetParam().make(), -2003);
    g_zan_qid = known;
    EXPECT_EQ(without_daemon.stop(), report);

    StdoutCapture after_daemon;
    daemon.die();
    EXPECT_EQ(GetParam().make(), -2003);
    EXPECT_EQ(after_daemon.stop(),
              "zan_msg_send qid=" + std::to_string(known) + " ERROR:Invalid argument\n" + report);
}

// ---- several requests ------------------------------------------------------

class Requests : public ConfigTest {};

// Each call has an answer of its own: one that took another's would show.
TEST_F(Requests, OfSeveralThreadsGetTheirOwnAnswers) {
    constexpr int rounds = 40;
    daemon.on(class_cfg, cmd_get, answer("the value"));
    daemon.on(class_cfg, cmd_array, answer("the longer array of values"));
    daemon.on(class_cfg, cmd_pid, answer("4711"));
    daemon.on(class_cfg, cmd_login, answer("815"));
    daemon.on(class_cfg, cmd_convert_path, answer("the converted path"));
    daemon.on(class_cfg, cmd_set, negative(-21));
    daemon.on(class_cfg, cmd_anchor, negative(-22));
    daemon.on(class_notify, 1, negative(-23));

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
        [&] {
            zan_login_req login = {"a", "b", "c", "d", nullptr, -1};
            expect(zan_loginauth(&login) == 1);
            expect(login.result == 815);
        },
        [&] {
            char value[64] = "";
            expect(zan_convert_path(value, sizeof value, 2, "/path") == 1);
            expect(std::strcmp(value, "the converted path") == 0);
        },
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
    daemon.once(class_cfg, cmd_anchor, {{.held = true}});
    Worker first([] { cfg_anchor("/first"); });
    daemon.wait_for_records(1);
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
    EXPECT_TRUE(same_record(records[0], request(cmd_anchor, "/first")));
    EXPECT_TRUE(same_record(records[1], request(cmd_delete, "/second")));
}

// Ways to make a child, each ending in make_request() and _exit() there.
pid_t child_of_fork(void (*make_request)()) {
    const pid_t child = fork();
    if (child == 0)
        make_request();
    return child;
}

pid_t child_of_plain_fork(void (*make_request)()) {
    const pid_t child = _Fork();
    if (child == 0)
        make_request();
    return child;
}

pid_t child_of_clone(void (*make_request)()) {
    const auto child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
    if (child == 0)
        make_request();
    return child;
}

// As vfork() makes them: in the parent's memory, the parent waiting.
pid_t child_in_the_same_memory(void (*make_request)()) {
    static char stack[256 * 1024];
    const auto main = [](void *request) -> int {
        reinterpret_cast<void (*)()>(request)();
        return 0;
    };
    return clone(main, stack + sizeof stack, CLONE_VM | CLONE_VFORK | SIGCHLD,
                 reinterpret_cast<void *>(make_request));
}

TEST_F(Requests, OfAChildCarryItsOwnProcessId) {
    EXPECT_EQ(cfg_del("/parent"), 1);
    for (const auto start :
         {child_of_fork, child_of_plain_fork, child_of_clone, child_in_the_same_memory}) {
        daemon.forget_records();
        const pid_t child = start([] { _exit(cfg_del("/child") == 1 ? 0 : 1); });
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(cfg_del("/parent again"), 1);
        const auto records = daemon.records();
        ASSERT_EQ(records.size(), 2U);
        EXPECT_EQ(records[0].record.pid(), child);
        EXPECT_EQ(records[1].record.pid(), getpid());
    }
}

TEST_F(Requests, WorkWithoutALock) {
    zan_api_lock_destroy();
    char value[16] = "";
    daemon.once(class_cfg, cmd_get, answer("x"));
    EXPECT_EQ(cfg_getstr(value, sizeof value, "/a"), 1);
    EXPECT_STREQ(value, "x");
    EXPECT_EQ(zan_notify_register_event(1), 1);
}

TEST_F(Requests, CarryTheWholeModuleName) {
    const std::string longest(31, 'n');
    std::strcpy(g_module_name, longest.c_str());
    EXPECT_EQ(cfg_del("/a"), 1);
    Fields expected = request(cmd_delete, "/a");
    expected.src = longest;
    EXPECT_TRUE(same_record(sent(), expected));
}

// The name is public and writable: without its terminator it ends where it ends.
TEST_F(Requests, StayInsideAModuleNameWithoutTerminator) {
    std::memset(g_module_name, 'n', sizeof g_module_name);
    EXPECT_EQ(cfg_del("/a"), 1);
    Fields expected = request(cmd_delete, "/a");
    expected.src = std::string(32, 'n');
    EXPECT_TRUE(same_record(sent(), expected));
}

} // namespace
} // namespace zan::test
