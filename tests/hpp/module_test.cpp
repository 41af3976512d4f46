// SPDX-License-Identifier: MIT
// Registration: what a zan::Module leaves behind, removes and never touches.
#include "support/commands.h"
#include "support/daemon.h"
#include "support/patience.h"
#include "support/raw.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zan.hpp>

#include <csignal>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *key_file = "/tmp/probe_7.msq";

Options probe_options() {
    Options options;
    options.instance = 7;
    return options;
}

// The queues that exist under any key of the module.
std::vector<int> queues_of_probe() {
    std::vector<int> found;
    for (int id = 0; id < 256 && file_exists(key_file); ++id) {
        const int qid = msgget(ftok(key_file, id), 0);
        if (qid >= 0)
            found.push_back(qid);
    }
    return found;
}

// Runs work in a process that ends without any clean-up.
pid_t run_and_die(const std::function<void()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return child;
}

// A module of the C interface that ends after a request, without unregistering.
void crash_after_request() {
    run_and_die([] {
        char value[16];
        if (zan_register("probe", 7) < 0 || cfg_getstr(value, sizeof value, "/a") != 1)
            std::abort();
    });
}

TEST(HppModule, RegistersNameAndInstance) {
    ScriptedDaemon daemon;
    const Module module("probe", probe_options());
    ASSERT_TRUE(module) << module.registration().error().message();
    EXPECT_TRUE(same_record(daemon.wait_for_records(1).front(), Fields{.mtype = module.queue(),
                                                                       .type = class_registration,
                                                                       .cmd = cmd_register,
                                                                       .src = "probe",
                                                                       .pid = 7}));
    EXPECT_TRUE(module.registered());
}

TEST(HppModule, UnregistersAndRemovesQueueAndKeyFile) {
    ScriptedDaemon daemon;
    int queue = -1;
    {
        const Module module("probe", probe_options());
        queue = module.queue();
        daemon.forget_records();
    }
    EXPECT_TRUE(same_record(daemon.wait_for_records(1).front(), Fields{.mtype = queue,
                                                                       .type = class_registration,
                                                                       .cmd = cmd_unregister,
                                                                       .src = "probe",
                                                                       .pid = 7}));
    EXPECT_FALSE(queue_exists(queue));
    EXPECT_FALSE(file_exists(key_file));
}

TEST(HppModule, LeavesNoQueueWhenDaemonHasGone) {
    ScriptedDaemon daemon;
    int queue = -1;
    {
        const Module module("probe", probe_options());
        queue = module.queue();
        daemon.die();
    }
    EXPECT_FALSE(queue_exists(queue));
    EXPECT_FALSE(file_exists(key_file));
}

TEST(HppModule, LeavesNoQueueWhenDaemonDoesNotAnswerUnregistration) {
    ScriptedDaemon daemon;
    daemon.on(class_registration, cmd_unregister, never());
    int queue = -1;
    {
        Options options = probe_options();
        options.timeout = 50ms;
        const Module module("probe", options);
        queue = module.queue();
    }
    EXPECT_FALSE(queue_exists(queue));
}

TEST(HppModule, ReportsMissingDaemon) {
    Module module("probe");
    EXPECT_FALSE(module);
    const Error &error = module.registration().error();
    EXPECT_EQ(error.failure, Failure::not_registered);
    EXPECT_EQ(error.message(), "no daemon: no queue id in /tmp/zan_qid");
    EXPECT_TRUE(module.get("/a").failed_with(Failure::not_registered));
}

TEST(HppModule, RegistersLaterWhenDaemonStartsAfterIt) {
    Module module("probe");
    ASSERT_FALSE(module);
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_get, answer("on"));
    EXPECT_EQ(module.get("/a").value_or("?"), "on");
    EXPECT_TRUE(module.registered());
}

TEST(HppModule, ReportsRefusedRegistrationWithTheDaemonsText) {
    ScriptedDaemon daemon;
    daemon.on(class_registration, cmd_register, negative(-120, "too many modules"));
    const Module module("probe");
    const Error &error = module.registration().error();
    EXPECT_EQ(error.failure, Failure::not_registered);
    EXPECT_EQ(error.code, -120);
    EXPECT_EQ(error.message(), "the daemon refused to register probe: too many modules");
}

TEST(HppModule, GivesUpUnansweredRegistrationAndKeepsNoQueue) {
    ScriptedDaemon daemon;
    daemon.on(class_registration, cmd_register, never());
    Options options = probe_options();
    options.timeout = 50ms;
    const Module module("probe", options);
    EXPECT_TRUE(module.registration().failed_with(Failure::not_registered));
    EXPECT_THAT(queues_of_probe(), IsEmpty());
}

TEST(HppModule, RefusesNamesThatARecordOrKeyFileCannotCarry) {
    ScriptedDaemon daemon;
    for (const std::string &name : {std::string(), std::string(32, 'x'), std::string("a/b")}) {
        const Module module(name);
        EXPECT_TRUE(module.registration().failed_with(Failure::bad_argument)) << name;
    }
    EXPECT_TRUE(Module(std::string(31, 'x')));
}

TEST(HppModule, RemovesQueuesOfDeadPredecessors) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_pid, negative(-108, "unknown module"));
    for (int i = 0; i < 4; ++i)
        crash_after_request();
    ASSERT_EQ(queues_of_probe().size(), 4U);
    std::string diagnostics;
    Options options = probe_options();
    options.diagnostics = [&](std::string_view line) { diagnostics = line; };
    const Module module("probe", options);
    EXPECT_TRUE(module);
    EXPECT_THAT(queues_of_probe(), testing::ElementsAre(module.queue()));
    EXPECT_EQ(diagnostics, "removed 4 queue(s) left by earlier processes of this name");
}

TEST(HppModule, RegistersBesideQueuesThatItMayNotRemove) {
    ScriptedDaemon daemon;
    for (int i = 0; i < 4; ++i)
        crash_after_request();
    // The daemon says that a process of the name lives: this one.
    daemon.on(class_cfg, cmd_pid, answer(std::to_string(getpid())));
    const Module module("probe", probe_options());
    EXPECT_TRUE(module);
    EXPECT_EQ(queues_of_probe().size(), 5U);
    for (const int queue : queues_of_probe())
        if (queue != module.queue())
            remove_queue(queue);
}

TEST(HppModule, KeepsQueuesWhenDaemonDoesNotSayWhoLives) {
    ScriptedDaemon daemon;
    crash_after_request();
    daemon.on(class_cfg, cmd_pid, never());
    Options options = probe_options();
    options.timeout = 200ms;
    const int left = queues_of_probe().at(0);
    Module module("probe", options);
    // The question has taken all the time there was.
    static_cast<void>(module.connect(Timeout(30s)));
    EXPECT_TRUE(module.registered());
    EXPECT_TRUE(queue_exists(left));
    remove_queue(left);
}

TEST(HppModule, NeverRemovesQueueOfLivingTwin) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_pid, negative(-108));
    const Module first("probe", probe_options());
    {
        const Module second("probe", probe_options());
        EXPECT_TRUE(second);
        EXPECT_TRUE(queue_exists(first.queue()));
        EXPECT_NE(first.queue(), second.queue());
    }
    EXPECT_TRUE(queue_exists(first.queue()));
    EXPECT_TRUE(file_exists(key_file)) << "the twin's queue belongs to it";
}

TEST(HppModule, NeverRemovesQueueOfLivingTwinWhoseLastReceiverHasEnded) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_pid, negative(-108));
    Module first("probe", probe_options());
    // A thread that waited in the kernel is what the kernel then names.
    std::thread([&] { EXPECT_TRUE(first.get("/a")); }).join();
    const Module second("probe", probe_options());
    EXPECT_TRUE(queue_exists(first.queue()));
}

TEST(HppModule, KeepsQueueThatNobodyHasReceivedFrom) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_pid, negative(-108));
    write_file(key_file, "");
    const int unread = msgget(ftok(key_file, 0), IPC_CREAT | 0666);
    {
        const Module module("probe", probe_options());
        EXPECT_TRUE(module);
        EXPECT_TRUE(queue_exists(unread));
    }
    EXPECT_TRUE(file_exists(key_file)) << "a queue belongs to it";
    remove_queue(unread);
}

TEST(HppModule, LeavesEverythingToTheParentInAForkedChild) {
    ScriptedDaemon daemon;
    daemon.on(class_cfg, cmd_get, answer("on"));
    auto module = std::make_unique<Module>("probe", probe_options());
    ASSERT_TRUE(module->get("/a"));
    auto changes = module->on_change("/a", [](const Change &) {});
    const pid_t child = fork();
    if (child == 0) {
        const bool refused = module->get("/a").failed_with(Failure::not_registered) &&
                             module->send("x", "y").failed_with(Failure::not_registered);
        module.reset();
        _exit(refused ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(queue_exists(module->queue()));
    EXPECT_EQ(module->get("/a").value_or("?"), "on");
}

TEST(HppModule, TwoModulesInOneProcessHaveQueuesOfTheirOwn) {
    ScriptedDaemon daemon;
    Module first("first");
    Module second("second");
    daemon.once(class_cfg, cmd_get, answer("1"));
    daemon.once(class_cfg, cmd_get, answer("2"));
    EXPECT_EQ(first.get<int>("/a").value_or(0), 1);
    EXPECT_EQ(second.get<int>("/a").value_or(0), 2);
}

} // namespace
} // namespace zan::test
