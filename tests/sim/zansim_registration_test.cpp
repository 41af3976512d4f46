// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"
#include "support/worker.h"

#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

namespace zan::test {

namespace {

using Registration = ZansimTest;

TEST_F(Registration, IsAnsweredOnTheAnswerQueueUnderTheModulesQueueId) {
    const RawModule late(zansim(), "LATE");
    const SizedRecord answer = late.announce(cmd_register, 3);
    EXPECT_TRUE(same_record(answer, late.answer(class_registration, cmd_register, 1)));
    EXPECT_EQ(queue_length(late.queue()), 0);
}

TEST_F(Registration, EndsWithAPositiveAnswerThatLetsTheModuleRemoveItsQueue) {
    const SizedRecord answer = module().announce(cmd_unregister);
    EXPECT_TRUE(same_record(answer, module().answer(class_registration, cmd_unregister, 1)));
    EXPECT_TRUE(queue_exists(module().queue()));
}

TEST_F(Registration, CannotEndTwice) {
    module().announce(cmd_unregister);
    expect_refused(module().announce(cmd_unregister), class_registration, cmd_unregister, -114,
                   "not registered: queue " + std::to_string(module().queue()));
}

TEST_F(Registration, RefusesAQueueThatDoesNotExist) {
    RawModule ghost(zansim(), "GHOST");
    const int qid = ghost.queue();
    ghost.remove_queue();
    module().send(Fields{.mtype = qid, .type = class_registration, .src = "GHOST"});
    expect_refused(await_record(zansim().answer_queue(), qid), class_registration, cmd_register,
                   -117, "no such queue: " + std::to_string(qid));
}

TEST_F(Registration, RefusesANamelessModule) {
    const RawModule nameless(zansim(), "");
    expect_refused(nameless.announce(cmd_register), class_registration, cmd_register, -108,
                   "no module name for queue " + std::to_string(nameless.queue()));
}

TEST_F(Registration, RefusesANameWithoutEnd) {
    const RawModule endless(zansim(), std::string(32, 'x'));
    expect_refused(endless.announce(cmd_register), class_registration, cmd_register, -106,
                   "malformed record: source name is not terminated");
}

TEST_F(Registration, TakesTheLongestName) {
    const RawModule longest(zansim(), std::string(31, 'x'));
    EXPECT_EQ(longest.announce(cmd_register).record.result(), 1);
}

TEST_F(Registration, CountsEachQueueOfAModule) {
    expect_value("/zansim/modules", "1");
    const RawModule second(zansim(), module().name());
    ASSERT_EQ(second.announce(cmd_register, 1).record.result(), 1);
    expect_value("/zansim/modules", "2");
    ASSERT_EQ(second.announce(cmd_unregister, 1).record.result(), 1);
    expect_value("/zansim/modules", "1");
}

TEST_F(Registration, OfTheSameQueueAgainReplacesTheFirst) {
    EXPECT_EQ(module().announce(cmd_register, 1).record.result(), 1);
    expect_value("/zansim/modules", "1");
}

TEST_F(Registration, OfTheSameQueueAgainForgetsItsSubscriptions) {
    module().call(class_notify, cmd_watch, watch_payload(0, 0, "/sys"));
    expect_value("/zansim/subscriptions", "1");
    module().announce(cmd_register);
    expect_value("/zansim/subscriptions", "0");
}

TEST_F(Registration, PidIsTheCollectorOfTheAnswerUntilARequestContainsAnother) {
    const SizedRecord first = module().call(class_cfg, cmd_pid, "TESTER");
    EXPECT_EQ(first.payload(), "4242"); // this very request contains it
    const auto silent = another_module("SILENT");
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "SILENT").payload(), std::to_string(getpid()));
    silent->get("/sys/level");
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "SILENT").payload(), "4242");
}

TEST_F(Registration, PidIsUnknownUntilTheAnswerIsCollected) {
    const RawModule late(zansim(), "LATE");
    late.send(Fields{.mtype = late.queue(), .type = class_registration, .src = "LATE"});
    expect_refused(module().call(class_cfg, cmd_pid, "LATE"), class_cfg, cmd_pid, -108,
                   "pid not known: LATE");
    EXPECT_EQ(await_record(zansim().answer_queue(), late.queue()).record.result(), 1);
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "LATE").payload(), std::to_string(getpid()));
}

TEST_F(Registration, PidIsUnknownWhenAnswersAreCollectedInAnyOrder) {
    const RawModule one(zansim(), "ONE");
    const RawModule two(zansim(), "TWO");
    for (const RawModule *const each : {&one, &two})
        each->send(Fields{.mtype = each->queue(), .type = class_registration, .src = each->name()});
    module().get("/sys/level"); // both registrations have been served
    for (const RawModule *const each : {&one, &two})
        EXPECT_EQ(await_record(zansim().answer_queue(), each->queue()).record.result(), 1);
    for (const char *const name : {"ONE", "TWO"})
        expect_refused(module().call(class_cfg, cmd_pid, name), class_cfg, cmd_pid, -108,
                       std::string("pid not known: ") + name);
}

// The module's process is a child, while this process sends to zansim last.
TEST_F(Registration, PidIsTheLastReceiverOfTheModulesQueue) {
    const RawModule late(zansim(), "LATE");
    late.send(Fields{.mtype = late.queue(), .type = class_registration, .src = "LATE"});
    await_record(zansim().answer_queue(), late.queue());
    const pid_t child = fork();
    if (child == 0) {
        await_record(late.queue(), class_message);
        _exit(0);
    }
    Fields message = module().request(class_message, cmd_send_with_ack, "x");
    message.dst = "LATE";
    EXPECT_EQ(module().call(make_record(message)).record.result(), 1);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "LATE").payload(), std::to_string(child));
}

// The kernel notes the thread.
TEST_F(Registration, PidIsTheProcessOfAThreadThatWaitedForARecord) {
    const RawModule late(zansim(), "LATE");
    std::atomic<bool> asked = false;
    Worker receiver([&] {
        char body[sizeof(long) + 35100];
        EXPECT_GE(msgrcv(late.queue(), body, 35100, 0, 0), 0);
        EXPECT_TRUE(eventually([&] { return asked.load(); })); // it exists meanwhile
    });
    EXPECT_TRUE(receiver.wait_until_blocked());
    late.send(Fields{.mtype = late.queue(), .type = class_registration, .src = "LATE"});
    await_record(zansim().answer_queue(), late.queue());
    Fields message = module().request(class_message, cmd_send_with_ack, "x");
    message.dst = "LATE";
    EXPECT_EQ(module().call(make_record(message)).record.result(), 1);
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "LATE").payload(), std::to_string(getpid()));
    asked = true;
}

TEST_F(Registration, RefusesThePidOfAModuleThatIsNot) {
    expect_refused(module().call(class_cfg, cmd_pid, "NOBODY"), class_cfg, cmd_pid, -108,
                   "unknown module: NOBODY");
    module().announce(cmd_unregister);
    expect_refused(module().call(class_cfg, cmd_pid, "TESTER"), class_cfg, cmd_pid, -108,
                   "unknown module: TESTER");
}

TEST_F(Registration, GivesTheDaemonsPidUnderItsOwnNames) {
    const std::string pid = std::to_string(zansim().pid());
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "ZAN").payload(), pid);
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "ZAN_CFG").payload(), pid);
}

TEST_F(Registration, ServesAThousandModules) {
    std::vector<std::unique_ptr<RawModule>> modules;
    for (int i = 1; i < 1000; ++i)
        modules.push_back(another_module("MODULE" + std::to_string(i)));
    expect_value("/zansim/modules", "1000");
    for (const auto &each : modules)
        ASSERT_EQ(each->get("/sys/hostname").payload(), "router");
    for (const auto &each : modules)
        ASSERT_EQ(each->announce(cmd_unregister).record.result(), 1);
    expect_value("/zansim/modules", "1");
}

TEST_F(Registration, DoesNotAddUpModulesThatWentWithoutAWord) {
    for (int i = 0; i < 600; ++i)
        another_module("PASSING"); // its queue goes at once
    EXPECT_LE(std::stoi(module().get("/zansim/modules").payload()), 256);
}

TEST_F(Registration, SurvivesModulesThatDieBeforeTheirAnswer) {
    // Far more unclaimed answers than the answer queue holds by default.
    for (int i = 0; i < 500; ++i) {
        const RawModule dying(zansim(), "DYING");
        dying.send(Fields{.mtype = dying.queue(), .type = class_registration, .src = "DYING"});
        module().get("/sys/level"); // its registration has been served
    }
    const RawModule late(zansim(), "LATE");
    EXPECT_EQ(late.announce(cmd_register).record.result(), 1);
}

} // namespace

} // namespace zan::test
