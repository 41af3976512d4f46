// SPDX-License-Identifier: MIT
// Hazards that the C interface keeps, and that zan.hpp does not have.
#include "support/capture.h"
#include "support/commands.h"
#include "support/daemon.h"
#include "support/patience.h"
#include "support/raw.h"
#include "support/worker.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zan.h>
#include <zan.hpp>

#include <array>
#include <atomic>
#include <csignal>
#include <string>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

Options quiet() {
    Options options;
    options.diagnostics = [](std::string_view) {};
    return options;
}

// ---- a request that is interrupted ----

TEST(HazardOfInterruption, CInterfaceReturnsTheAnswerOfTheRequestBefore) {
    ScriptedDaemon daemon;
    ASSERT_GE(zan_register("probe", 0), 0);
    daemon.once(class_cfg, cmd_get, {{.payload = "on", .held = true}});
    int result = 1;
    Worker worker([&] {
        char value[16];
        result = cfg_getstr(value, sizeof value, "/brightness");
    });
    // One interruption is survived; a second one ends the request.
    while (worker.wait_until_blocked())
        worker.interrupt();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_LT(result, 0);
    daemon.release();
    ASSERT_TRUE(eventually([] { return queue_length(g_msq_qid) == 1; }));
    daemon.on(class_cfg, cmd_get, answer("80"));
    char power[16] = "";
    EXPECT_EQ(cfg_getstr(power, sizeof power, "/power"), 1);
    EXPECT_STREQ(power, "on") << "the answer of the request before";
    remove_queue(g_msq_qid);
}

TEST(HazardOfInterruption, ModuleGoesOnWaitingAndTakesItsOwnAnswers) {
    ScriptedDaemon daemon;
    Module module("probe", quiet());
    daemon.once(class_cfg, cmd_get, {{.payload = "on", .held = true}});
    std::string brightness;
    Worker worker([&] { brightness = module.get("/brightness", 30s).value_or("?"); });
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(worker.wait_until_blocked());
        worker.interrupt();
    }
    daemon.release();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_EQ(brightness, "on");
    daemon.on(class_cfg, cmd_get, answer("80"));
    EXPECT_EQ(module.get("/power").value_or("?"), "80");
}

// ---- a module that ends uncleanly ----

template<typename Work> int in_child(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        StdoutCapture quiet_child;
        _exit(work());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A child that registers a Module, asks and ends without unregistering once run() is
// called.  It is forked before the test has threads: a child of a process with threads
// cannot start any under user-mode emulation.
class WaitingChild {
public:
    WaitingChild() {
        if (pipe(start_) != 0 || (pid_ = fork()) != 0)
            return;
        char go = 0;
        if (read(start_[0], &go, 1) != 1)
            _exit(2);
        Module module("probe", quiet());
        _exit(module.get("/a").ok() ? 0 : 1);
    }
    ~WaitingChild() {
        close(start_[0]);
        close(start_[1]);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    WaitingChild(const WaitingChild &) = delete;
    WaitingChild &operator=(const WaitingChild &) = delete;

    // The exit status, or -1.
    int run() {
        int status = -1;
        if (pid_ <= 0 || write(start_[1], "", 1) != 1 || waitpid(pid_, &status, 0) != pid_)
            return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    int start_[2] = {-1, -1};
    pid_t pid_ = -1;
};

// 0: registered, asked, and ended without unregistering.
int crash_in_c() {
    char value[16];
    return zan_register("probe", 0) >= 0 && cfg_getstr(value, sizeof value, "/a") == 1 ? 0 : 1;
}

TEST(HazardOfCrashes, CInterfaceCannotRegisterAfterTheFourth) {
    ScriptedDaemon daemon;
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(in_child(crash_in_c), 0) << i;
    StdoutCapture capture;
    EXPECT_EQ(zan_register("probe", 0), ZAN_ERR_QUEUE_IDS);
}

TEST(HazardOfCrashes, ModuleRegistersAfterAnyNumberAndLeavesNoQueues) {
    std::array<WaitingChild, 10> crashing;
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_pid, negative(-108, "unknown module"));
    for (WaitingChild &child : crashing)
        ASSERT_EQ(child.run(), 0) << &child - crashing.data();
    int before = 0;
    {
        const Module module("probe", quiet());
        ASSERT_TRUE(module);
        before = module.queue();
    }
    EXPECT_FALSE(queue_exists(before));
    EXPECT_FALSE(file_exists("/tmp/probe_0.msq")) << "removed only when no queue is left";
}

// ---- a clean end while the daemon is away ----

TEST(HazardOfMissingDaemon, CInterfaceLeavesItsQueue) {
    int queue = -1;
    {
        ScriptedDaemon daemon;
        queue = zan_register("probe", 0);
        ASSERT_GE(queue, 0);
    }
    StdoutCapture capture;
    EXPECT_LT(zan_unregister("probe", 0), 0);
    EXPECT_TRUE(queue_exists(queue));
    remove_queue(queue);
}

TEST(HazardOfMissingDaemon, ModuleLeavesNothing) {
    int queue = -1;
    {
        std::optional<ScriptedDaemon> daemon(std::in_place);
        const Module module("probe", quiet());
        queue = module.queue();
        daemon.reset();
    }
    EXPECT_FALSE(queue_exists(queue));
}

// ---- a send in a handler ----

int answer_in_handler(char *, int, zan_body *) {
    return zan_send("peer", "re", 2);
}

TEST(HazardOfSendInHandler, CInterfaceDeadlocksUnderTheLockingReceiveThread) {
    ScriptedDaemon daemon;
    ASSERT_GE(zan_register("probe", 0), 0);
    StdoutCapture capture;
    zan_set_message_handler(answer_in_handler);
    ASSERT_EQ(zan_thread_create(ZAN_CLASS_MESSAGE), 0);
    ASSERT_TRUE(raw_send(g_msq_qid, Fields{.mtype = 4, .type = 4, .cmd = 4}));
    ASSERT_TRUE(eventually([] { return queue_length(g_msq_qid) == 0; }));
    LockProbe lock(zan_msq_lock, zan_msq_unlock);
    EXPECT_FALSE(lock.is_free()) << "held by the thread that waits for it";
    lock.abandon();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0); // no thread can be joined any more
}

TEST(HazardOfSendInHandler, ModuleSends) {
    ScriptedDaemon daemon;
    Module module("probe", quiet());
    bool sent = false;
    auto messages =
        module.on_message([&](const Message &) { sent = module.send("peer", "re").ok(); });
    ASSERT_TRUE(raw_send(module.queue(), Fields{.mtype = 4, .type = 4, .cmd = 4}));
    EXPECT_TRUE(eventually([&] { return module.dispatch_for(10ms), sent; }));
}

// ---- an answer that is lost ----

std::atomic<bool> terminated = false;
void note_termination(int) {
    terminated = true;
}

TEST(HazardOfLostAnswer, CInterfaceHangsAndHoldsSigtermOff) {
    ScriptedDaemon daemon;
    ASSERT_GE(zan_register("probe", 0), 0);
    daemon.once(class_cfg, cmd_get, {{.held = true}});
    std::signal(SIGTERM, note_termination);
    Worker worker([] {
        char value[16];
        cfg_getstr(value, sizeof value, "/a");
    });
    ASSERT_TRUE(worker.wait_until_blocked());
    worker.send(SIGTERM);
    EXPECT_TRUE(worker.wait_until_blocked());
    EXPECT_FALSE(terminated);
    daemon.release();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_TRUE(terminated);
    remove_queue(g_msq_qid);
}

TEST(HazardOfLostAnswer, ModuleGivesUpAtItsDeadlineAndLetsSigtermIn) {
    ScriptedDaemon daemon;
    Module module("probe", quiet());
    daemon.on(class_cfg, cmd_get, {{.held = true}});
    terminated = false;
    std::signal(SIGTERM, note_termination);
    Worker worker([&] { static_cast<void>(module.get("/a", 30s)); });
    ASSERT_TRUE(worker.wait_until_blocked());
    worker.send(SIGTERM);
    EXPECT_TRUE(eventually([] { return terminated.load(); }));
    daemon.release();
    ASSERT_TRUE(worker.wait_until_done());
    EXPECT_TRUE(module.get("/a", 50ms).failed_with(Failure::no_answer));
}

// ---- several classes at once ----

TEST(HazardOfOneClass, CInterfaceThreadLeavesTheOthersOnTheQueue) {
    ScriptedDaemon daemon;
    ASSERT_GE(zan_register("probe", 0), 0);
    static std::atomic<int> events = 0;
    static std::atomic<int> messages = 0;
    zan_set_event_handler([](int, int) { return ++events; });
    zan_set_message_handler([](char *, int, zan_body *) { return ++messages; });
    StdoutCapture capture;
    ASSERT_EQ(zan_thread_create(ZAN_CLASS_NOTIFY), 0);
    ASSERT_TRUE(raw_send(g_msq_qid, Fields{.mtype = 4, .type = 4, .cmd = 4}));
    ASSERT_TRUE(raw_send(g_msq_qid, Fields{.mtype = 5, .type = 5, .cmd = 8, .payload = "1234"}));
    ASSERT_TRUE(eventually([] { return events == 1; }));
    EXPECT_EQ(messages, 0);
    EXPECT_EQ(queue_length(g_msq_qid), 1);
    remove_queue(g_msq_qid);
    std::_Exit(testing::Test::HasFailure() ? 1 : 0); // the thread uses the queue still
}
// That zan.hpp receives all of them is in subscription_test.cpp.

// ---- calls of the C interface beside a module ----

TEST(CInterfaceBesideModule, RequestsFailAtOnceAndTakeNoRecords) {
    ScriptedDaemon daemon;
    Module module("probe", quiet());
    ASSERT_TRUE(raw_send(module.queue(), Fields{.mtype = 1, .type = 1, .cmd = 1}));
    daemon.forget_records();
    StdoutCapture capture;
    char value[16];
    zan_msg msg;
    EXPECT_EQ(cfg_getstr(value, sizeof value, "/a"), ZAN_ERR_SEND);
    EXPECT_EQ(cfg_setstr("1", "/a"), ZAN_ERR_SEND);
    EXPECT_EQ(zan_notify_register_event(1), ZAN_ERR_SEND);
    EXPECT_EQ(zan_save_config(1, 0), ZAN_ERR_SEND);
    EXPECT_EQ(zan_ctl_request("x"), ZAN_ERR_SEND);
    EXPECT_EQ(zan_do_cwmp_request(1, "x", 1), ZAN_ERR_SEND);
    EXPECT_EQ(zan_cwmp_recv(1, nullptr), ZAN_ERR);
    EXPECT_LT(zan_send("peer", "x", 1), 0);
    EXPECT_LT(zan_send_with_ack("peer", "x", 1), 0);
    EXPECT_EQ(zan_recv_msq(), ZAN_ERR);
    EXPECT_EQ(zan_recv_notify_msq(), ZAN_ERR);
    EXPECT_EQ(zan_fad_recv_msq(), ZAN_ERR);
    EXPECT_EQ(zan_firewall_recv_msq(), ZAN_ERR);
    EXPECT_EQ(zan_client_recv_msq2(&msg, 0, ZAN_BODY_SIZE), ZAN_ERR);
    EXPECT_EQ(zan_unregister("probe", 0), ZAN_ERR);
    capture.stop();
    EXPECT_TRUE(daemon.records().empty());
    EXPECT_EQ(queue_length(module.queue()), 1);
    daemon.on(class_cfg, cmd_get, answer("on"));
    EXPECT_EQ(module.get("/a").value_or("?"), "on");
}

TEST(CInterfaceBesideModule, MayRegisterAModuleOfItsOwn) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_get, answer("on"));
    Module module("probe", quiet());
    ASSERT_GE(zan_register("other", 0), 0);
    char value[16];
    EXPECT_EQ(cfg_getstr(value, sizeof value, "/a"), 1);
    EXPECT_EQ(module.get("/a").value_or("?"), "on");
    EXPECT_EQ(zan_unregister("other", 0), 0);
    EXPECT_EQ(module.get("/a").value_or("?"), "on");
}

// ---- diagnostics ----

TEST(HazardOfDiagnostics, CInterfacePrintsOnStandardOutput) {
    StdoutCapture capture;
    char value[16];
    EXPECT_LT(cfg_getstr(value, sizeof value, "/a"), 0);
    EXPECT_NE(capture.stop(), "");
}

TEST(HazardOfDiagnostics, ModuleReportsWhereItIsTold) {
    ScriptedDaemon daemon;
    std::string lines;
    Options options;
    options.diagnostics = [&](std::string_view line) { lines += std::string(line) + '\n'; };
    StdoutCapture capture;
    {
        Module module("probe", options);
        daemon.once(class_cfg, cmd_get, never());
        EXPECT_FALSE(module.get("/a", 20ms));
        EXPECT_TRUE(module.get("/a"));
    }
    EXPECT_EQ(capture.stop(), "");
    EXPECT_EQ(lines, "registered again\n");
}

TEST(HazardOfDiagnostics, ModuleReportsOnStandardOutputByDefault) {
    ScriptedDaemon daemon;
    StdoutCapture capture;
    {
        Module module("probe");
        daemon.once(class_cfg, cmd_get, never());
        EXPECT_FALSE(module.get("/a", 20ms));
        EXPECT_TRUE(module.get("/a"));
    }
    EXPECT_EQ(capture.stop(), "probe: registered again\n");
}

} // namespace
} // namespace zan::test
