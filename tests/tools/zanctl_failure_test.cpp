// SPDX-License-Identifier: MIT
#include "zanctl.h"

#include "support/patience.h"
#include "support/sandbox.h"

#include <csignal>
#include <fstream>

namespace zan::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string missing_file = " not found (is zansim running?)\n";

// For the wait that a program begins with, which expires however slow the machine is.
const std::string short_timeout = "0.5";
const std::string no_answer_shortly =
    "zanctl: no answer from the daemon within 0.5 seconds (is it busy? --timeout SECONDS "
    "waits longer)\n";
// For later waits: the test lets them expire.
const std::string long_timeout = "600";
const std::string no_answer =
    "zanctl: no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
    "waits longer)\n";

// ---- no daemon at all

TEST(ZanctlWithoutDaemon, MissingIdFiles) {
    const Ended ended = run_zanctl({"get", "/x"});
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: no daemon: /tmp/zan_qid" + missing_file);
    EXPECT_THAT(zanctl_key_files(), IsEmpty());
}

TEST(ZanctlWithoutDaemon, MissingRegistrationQueueFile) {
    const RawQueue queue;
    write_file("/tmp/zan_qid", std::to_string(queue.id()));
    const Ended ended = run_zanctl({"get", "/x"});
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.error, "zanctl: no daemon: /tmp/zan_req_qid" + missing_file);
}

TEST(ZanctlWithoutDaemon, LeftoversOfAKilledDaemon) {
    RawQueue queue;
    const std::string id = std::to_string(queue.id());
    write_file("/tmp/zan_qid", id);
    write_file("/tmp/zan_req_qid", id);
    queue.remove();
    const Ended ended = run_zanctl({"--json", "get", "/x"});
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: no daemon: queue " + id +
                               " of /tmp/zan_qid does not exist (has zansim ended?)\n");
    EXPECT_THAT(zanctl_key_files(), IsEmpty());
}

TEST(ZanctlWithoutDaemon, FullRequestQueue) {
    const RawQueue request;
    const RawQueue registration;
    write_file("/tmp/zan_qid", std::to_string(request.id()));
    write_file("/tmp/zan_req_qid", std::to_string(registration.id()));
    fill_queue(request.id(), 1);
    const Ended ended = run_zanctl({"get", "--timeout", short_timeout, "/x"});
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, EndsWith(no_answer_shortly));
    EXPECT_THAT(zanctl_key_files(), IsEmpty());
}

// ---- a daemon that does not answer

TEST_F(ZanctlTest, ASilentRegistrationEndsInTime) {
    daemon.on(class_registration, cmd_register, never());
    const Ended ended = run({"get", "--timeout", short_timeout, "/x"});
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, EndsWith(no_answer_shortly));
    expect_left_nothing();
}

TEST_F(ZanctlTest, ASilentRequestEndsInTimeAndUnregisters) {
    daemon.on(class_cfg, cmd_get, never());
    const Ended ended =
        run_until_expired({"get", "--json", "--timeout", long_timeout, "/x", "/y"}, 2);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, HasSubstr(no_answer));
    ASSERT_EQ(records.size(), 3U) << "the second path is not tried";
    EXPECT_EQ(records[2].record.cmd(), cmd_unregister);
    EXPECT_EQ(records[2].record.type(), class_registration);
    expect_left_nothing();
}

TEST_F(ZanctlTest, ASilentUnregistrationLeavesNothing) {
    daemon.on(class_registration, cmd_unregister, never());
    daemon.on(class_cfg, cmd_get, answer("value"));
    const Ended ended = run_until_expired({"get", "--timeout", long_timeout, "/x"}, 3);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "value\n");
    expect_left_nothing();
}

// The module's own queue is still there, so only its timeout ends the wait.
TEST_F(ZanctlTest, EndsInTimeWhenTheDaemonDies) {
    daemon.on(class_cfg, cmd_get, die());
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x"}));
    EXPECT_TRUE(eventually([&] { return !queue_exists(daemon.request_queue()); }));
    const Ended ended = expire(program);
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error,
                EndsWith("zanctl: no daemon: its queue was removed (has zansim ended?)\n"));
    EXPECT_EQ(records.size(), 2U);
    expect_left_nothing();
}

TEST_F(ZanctlTest, ADaemonThatDiesBetweenRequestsIsReported) {
    daemon.on(class_cfg, cmd_get, {{.die = true}, {.payload = "value"}});
    const Ended ended = run({"get", "--timeout", long_timeout, "/x", "/y"});
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "value\n");
    EXPECT_THAT(ended.error,
                EndsWith("zanctl: no daemon: its queue was removed (has zansim ended?)\n"));
    expect_left_nothing();
}

TEST_F(ZanctlTest, ADaemonThatRemovesTheModulesQueueIsReported) {
    daemon.on(class_cfg, cmd_get, never());
    Program program(zanctl_command({"get", "/x"}));
    const auto arrived = daemon.wait_for_records(2);
    remove_queue(static_cast<int>(arrived[0].record.mtype));
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, EndsWith("zanctl: no daemon: the queue of this module was removed\n"));
    expect_left_nothing();
}

TEST_F(ZanctlTest, WaitsForALateAnswer) {
    daemon.on(class_cfg, cmd_get, {{.payload = "late", .delay = std::chrono::milliseconds(700)}});
    EXPECT_EQ(run({"get", "--timeout", long_timeout, "/x"}).output, "late\n");
}

// ---- a daemon that says no

TEST_F(ZanctlTest, ARefusedRegistrationIsReported) {
    daemon.on(class_registration, cmd_register, negative(-5, "full"));
    const Ended ended = run({"get", "--name", "zanctl-x", "/x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: registration as zanctl-x: refused (-5)\n");
    expect_left_nothing();
}

TEST_F(ZanctlTest, ARefusedUnregistrationLeavesNothing) {
    for (const int result : {0, -5}) {
        daemon.on(class_registration, cmd_unregister, negative(result));
        daemon.on(class_cfg, cmd_get, answer("value"));
        EXPECT_EQ(run({"get", "/x"}).output, "value\n");
        expect_left_nothing();
    }
}

// ---- a kernel that says no

// Sets a limit of this sandbox's own queues: whether it could.
bool set_limit(const std::string &name, int value) {
    std::ofstream file("/proc/sys/kernel/" + name);
    file << value << std::flush;
    return file.good();
}

TEST_F(ZanctlTest, ReportsAValueThatExceedsTheLimitOfTheKernel) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ASSERT_TRUE(set_limit("msgmax", 200));
    const Ended ended = run({"set", "/x", std::string(300, 'v')});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_THAT(ended.error, HasSubstr("zanctl: /x: a request of 404 bytes exceeds "
                                       "kernel.msgmax (-2003)\n"));
    ASSERT_EQ(records.size(), 2U) << "registered and unregistered";
    expect_left_nothing();
}

TEST_F(ZanctlTest, ReportsThatTheKernelHasNoQueueLeft) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    ASSERT_TRUE(set_limit("msgmni", 2));
    const Ended ended = run({"get", "--verbose", "--name", "zanctl-x", "/x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_THAT(ended.error, HasSubstr("zan_msg_create_by_id ERROR:No space left on device\n"));
    EXPECT_THAT(ended.error, EndsWith("zanctl: registration as zanctl-x: cannot create a queue (is "
                                      "kernel.msgmni reached?) (-2105)\n"));
    EXPECT_THAT(zanctl_key_files(), IsEmpty());
}

// ---- signals

class ZanctlSignal : public ZanctlTest, public testing::WithParamInterface<int> {};

TEST_P(ZanctlSignal, EndsARegistrationAndLeavesNothing) {
    daemon.on(class_registration, cmd_register, never());
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x"}));
    daemon.wait_for_records(1);
    program.signal(GetParam());
    EXPECT_EQ(finish(program).status, 128 + GetParam());
    expect_left_nothing();
}

INSTANTIATE_TEST_SUITE_P(All, ZanctlSignal, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto &param) { return std::string(sigabbrev_np(param.param)); });

TEST_F(ZanctlTest, AnInterruptEndsAWaitAndUnregisters) {
    daemon.on(class_cfg, cmd_get, never());
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x"}));
    daemon.wait_for_records(2);
    program.signal(SIGINT);
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, 128 + SIGINT);
    EXPECT_EQ(ended.output, "");
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[2].record.type(), class_registration);
    expect_left_nothing();
}

// The library holds SIGTERM off from a request until its answer.
TEST_F(ZanctlTest, TerminationWaitsForTheAnswer) {
    daemon.on(class_cfg, cmd_get, {{.payload = "value", .held = true}});
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x", "/y"}));
    daemon.wait_for_records(2);
    program.signal(SIGTERM);
    daemon.release();
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, 128 + SIGTERM);
    EXPECT_EQ(ended.output, "value\n") << "the answer that came is printed, the next not asked for";
    ASSERT_EQ(records.size(), 3U);
    expect_left_nothing();
}

TEST_F(ZanctlTest, ASecondInterruptDoesNotStopTheCleanup) {
    daemon.on(class_cfg, cmd_get, never());
    daemon.on(class_registration, cmd_unregister, {{.held = true}});
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x"}));
    daemon.wait_for_records(2);
    program.signal(SIGINT);
    daemon.wait_for_records(3);
    program.signal(SIGINT);
    program.signal(SIGTERM);
    daemon.release();
    EXPECT_EQ(finish(program).status, 128 + SIGINT);
    EXPECT_EQ(records.size(), 3U);
    expect_left_nothing();
}

TEST_F(ZanctlTest, IgnoresHangupIfTheCallerDoes) {
    daemon.on(class_cfg, cmd_get, {{.payload = "value", .held = true}});
    std::signal(SIGHUP, SIG_IGN);
    Program program(zanctl_command({"get", "--timeout", long_timeout, "/x"}));
    daemon.wait_for_records(2);
    program.signal(SIGHUP);
    daemon.release();
    const Ended ended = finish(program);
    std::signal(SIGHUP, SIG_DFL);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "value\n");
}

TEST_F(ZanctlTest, TimesOutWithSignalsBlockedByTheCaller) {
    daemon.on(class_registration, cmd_register, never());
    Program program(zanctl_command({"get", "--timeout", short_timeout, "/x"}),
                    {.block_signals = true});
    EXPECT_EQ(finish(program).status, exit_no_answer);
    expect_left_nothing();
}

// ---- output that cannot be written

TEST_F(ZanctlTest, AFullDeviceIsReported) {
    daemon.on(class_cfg, cmd_get, answer("value"));
    Program program(script("exec \"$@\" >/dev/full", {"get", "/x"}), {.host = true});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: cannot write standard output: No space left on device\n");
    expect_left_nothing();
}

TEST_F(ZanctlTest, AClosedOutputIsReported) {
    daemon.on(class_cfg, cmd_get, answer("value"));
    Program program(script("exec \"$@\" >&-", {"get", "/x"}), {.host = true});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: cannot write standard output: Bad file descriptor\n");
    expect_left_nothing();
}

TEST_F(ZanctlTest, EndsBySigpipeWhenItsOutputIsClosed) {
    daemon.on(class_cfg, cmd_get, answer("value"));
    Program program(script("exec 3> >(:); wait $!; \"$@\" >&3; echo status $?", {"get", "/x"}),
                    {.host = true});
    const Ended ended = finish(program);
    EXPECT_EQ(ended.output, "status " + std::to_string(128 + SIGPIPE) + "\n");
    expect_left_nothing();
}

} // namespace
} // namespace zan::test
