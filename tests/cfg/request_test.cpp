// SPDX-License-Identifier: MIT
//
// What all requests have in common: their answers, the API lock, the failure
// report, and that one is in flight at a time.
#include "cfg/config_test.h"
#include "support/patience.h"
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
#include <utility>

namespace zan::test {
namespace {

struct Call {
    const char *name;
    int type;
    int cmd;
    std::function<int()> make;
    // The report of a send that fails, behind the function's name; PID stands for the process id.
    std::vector<std::string> report;
    // What a failed wait and the daemon's refusal give, where it is not their result.
    std::optional<int> refusal = {};
};

std::ostream &operator<<(std::ostream &out, const Call &call) {
    return out << call.name;
}

std::vector<std::string> about(const std::string &subject) {
    return {":zan_msg_send fail!", ": " + subject, ": pid=PID"};
}
const std::vector<std::string> about_nothing = {":zan_msg_send fail!", ": pid=PID"};
const std::vector<std::string> in_one_line = {":zan_msg_send fail!"};

char g_value[64]; // where the calls that read put what they get
char g_file[] = "/tmp/a";
char g_text[] = "text";

// 1 for the text of an answer, as all others say it.
int attributes_of(const char *path) {
    const intptr_t text = cfg_getattr("%s", path);
    if (text == 0 || text == ZAN_ERR_SEND)
        return static_cast<int>(text);
    return std::strcmp(reinterpret_cast<const char *>(text), "1") == 0 ? 1 : -99;
}

int check_login() {
    zan_login_req login = {"a", "b", "c", "d", nullptr, -1};
    return zan_loginauth(&login);
}

// Those that hold the API lock.
const Call locked_calls[] = {
    {"cfg_getstr", class_cfg, cmd_get, [] { return cfg_getstr(g_value, 64, "/a:%d", 1); },
     about("path=/a:1")},
    {"cfg_getarray", class_cfg, cmd_array, [] { return cfg_getarray(g_value, 64, "/a:%d", 2); },
     about("path=/a:2")},
    {"cfg_setstr", class_cfg, cmd_set, [] { return cfg_setstr("value", "/a:%d", 3); },
     about("path=/a:3")},
    {"cfg_get_module_pid", class_cfg, cmd_pid, [] { return cfg_get_module_pid("wifi"); },
     about("module=wifi")},
    {"cfg_anchor", class_cfg, cmd_anchor, [] { return cfg_anchor("/a:%d", 4); },
     about("path=/a:4")},
    {"cfg_del", class_cfg, cmd_delete, [] { return cfg_del("/a:%d", 5); }, about("path=/a:5")},
    {"cfg_reload", class_cfg, cmd_reload, [] { return cfg_reload(g_file); },
     about("loadfile=/tmp/a")},
    {"cfg_setfile", class_cfg, cmd_set_file, [] { return cfg_setfile(g_file); },
     about("loadfile=/tmp/a")},
    {"cfg_dump", class_cfg, cmd_dump, [] { return cfg_dump(2, g_file); }, about("dumpfile=/tmp/a")},
    // The path alone, not the whole payload.
    {"cfg_print", class_cfg, cmd_print, [] { return cfg_print(2, "extra", "/a:%d", 6); },
     about("tmp_path=/a:6")},
    {"cfg_getattr", class_cfg, cmd_get_attr, [] { return attributes_of("/a:7"); },
     about("tmp_path=/a:7"), 0},
    {"cfg_setattr", class_cfg, cmd_set_attr, [] { return cfg_setattr("ro", "/a:%d", 8); },
     about("tmp_path=/a:8")},
    {"cfg_reset", class_cfg, cmd_reset, [] { return cfg_reset("/a:%d", 9); }, about_nothing},
    {"cfg_apply_firewall_event", class_cfg, cmd_apply_firewall, cfg_apply_firewall_event,
     about_nothing},
    {"zan_loginauth", class_cfg, cmd_login, check_login, about_nothing},
    {"zan_convert", class_cfg, cmd_convert, [] { return zan_convert(2, g_text); }, about_nothing},
    {"zan_convert_path", class_cfg, cmd_convert_path,
     [] { return zan_convert_path(g_value, 64, 2, "/a:%d", 10); }, about_nothing},
    {"zan_cfg_get_ifname", class_cfg, cmd_ifname,
     [] { return zan_cfg_get_ifname(g_value, 64, "/a:%d", 11); }, about_nothing},
    {"zan_notify_register_value_changed", class_notify, 0,
     [] { return zan_notify_register_value_changed("/a", 1, 2); }, about_nothing},
    {"zan_notify_register_event", class_notify, 1, [] { return zan_notify_register_event(1); },
     about_nothing},
    {"zan_notify_unregister_value_changed", class_notify, 2,
     [] { return zan_notify_unregister_value_changed("/a"); }, about_nothing},
    {"zan_notify_unregister_event", class_notify, 3, [] { return zan_notify_unregister_event(1); },
     about_nothing},
};

// Those that take no lock.
const Call unlocked_calls[] = {
    {"zan_fad_send", class_action, 42, [] { return zan_fad_send(42, 1, 0, 42, "name"); },
     in_one_line},
};

// Those that wait for no answer: the result is the send's, 0, or 1.
struct Post {
    const char *name;
    std::function<int()> make;
    int result;
    std::vector<std::string> report;
};

std::ostream &operator<<(std::ostream &out, const Post &post) {
    return out << post.name;
}

std::vector<std::string> with_line(const std::string &line) {
    return {": cmd_line=firewall_cntl " + line, ":zan_msg_send fail!"};
}

const Post posts[] = {
    {"zan_fad_send", [] { return zan_fad_send(42, 0, 0, 42, "name"); }, 1, in_one_line},
    {"zan_report_event_result", [] { return zan_report_event_result(1, 2); }, 0, in_one_line},
    {"zan_do_cwmp_request", [] { return zan_do_cwmp_request(1, "data", 4); }, 1, in_one_line},
    {"zan_ctl_request",
     [] { return zan_ctl_request("a b"); },
     0,
     {":zan_msg_send fail! cmdline=a b"}},
    {"zan_firewall_request", [] { return zan_firewall_request("F", "P"); }, 0,
     with_line("-f F -p P")},
    {"zan_firewall_request2", [] { return zan_firewall_request2("F", "P", "A"); }, 0,
     with_line("-f F -p P -a A")},
    {"zan_firewall_request3", [] { return zan_firewall_request3("%d", 3); }, 0, with_line("-C 3")},
    {"zan_firewall_request4", [] { return zan_firewall_request4("F", "K"); }, 0,
     with_line("-f F -k K")},
    {"zan_firewall_l2b_notify", [] { return zan_firewall_l2b_notify("P", "I", 4); }, 0,
     with_line("-b -p P -i I -m 4")},
};

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

class Request : public ConfigTest, public testing::WithParamInterface<Call> {
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
INSTANTIATE_TEST_SUITE_P(Of, Request, testing::ValuesIn(locked_calls),
                         [](const auto &call) { return call.param.name; });
INSTANTIATE_TEST_SUITE_P(WithoutLock, Request, testing::ValuesIn(unlocked_calls),
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
INSTANTIATE_TEST_SUITE_P(Of, RequestLock, testing::ValuesIn(locked_calls),
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
INSTANTIATE_TEST_SUITE_P(Of, LocklessRequest, testing::ValuesIn(unlocked_calls),
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

class Posted : public ConfigTest, public testing::WithParamInterface<Post> {};
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
