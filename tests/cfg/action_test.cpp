// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/patience.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace zan::test {
namespace {

using testing::ElementsAre;

std::string word(std::int32_t value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string payload_of(std::int32_t first, std::int32_t wait, std::int32_t param,
                       const std::string &text) {
    std::string payload = word(first) + word(wait) + word(param) + text;
    payload.resize(1036);
    return payload;
}

class ActionTest : public ConfigTest {
protected:
    static Fields to_daemon(std::int32_t cmd, const std::string &dst, const std::string &payload) {
        return {.mtype = g_msq_qid,
                .type = class_action,
                .cmd = cmd,
                .dst = dst,
                .src = "probe",
                .pid = static_cast<std::int32_t>(getpid()),
                .payload = payload};
    }
    static Fields to_fad(std::int32_t code, std::int32_t wait, std::int32_t param,
                         const std::string &name) {
        return to_daemon(code, "ZAN_FAD", payload_of(code, wait, param, name));
    }

    void answers(int code, const Replies &replies) { daemon.once(class_action, code, replies); }
};

// ---- every action ----------------------------------------------------------

struct Action {
    const char *name;
    std::function<int(int wait)> act;
    int code;
    int param; // as it travels
    std::string text = {};
};

std::ostream &operator<<(std::ostream &out, const Action &action) {
    return out << action.name;
}

const Action actions[] = {
    {"zan_upgrade_firmware", [](int wait) { return zan_upgrade_firmware(wait, 1, "/tmp/fw%d"); }, 2,
     1, "/tmp/fw%d"},
    {"zan_upgrade_config", [](int wait) { return zan_upgrade_config(wait, 2, "/tmp/cfg"); }, 3, 2,
     "/tmp/cfg"},
    {"zan_save_config", [](int wait) { return zan_save_config(wait, 3); }, 4, 3},
    {"zan_factory_reset", [](int wait) { return zan_factory_reset(wait, 4, "web"); }, 5, 4, "web"},
    {"zan_backup_config", [](int wait) { return zan_backup_config(wait, 5, "/tmp/b"); }, 6, 5,
     "/tmp/b"},
    {"zan_run_shell", [](int wait) { return zan_run_shell(wait, 6, "echo %d %s", 1, "%d"); }, 7, 6,
     "echo 1 %d"},
    {"zan_reboot", [](int wait) { return zan_reboot(wait); }, 9, 0},
    {"zan_save_config2", [](int wait) { return zan_save_config2(wait, 7); }, 10, 7},
    {"zan_backup_old_config", [](int wait) { return zan_backup_old_config(wait, 8, "/tmp/o"); }, 16,
     8, "/tmp/o"},
    {"zan_factory_reset_wo_wifi",
     [](int wait) { return zan_factory_reset_wo_wifi(wait, 9, "cli"); }, 17, 9, "cli"},
};

class EveryAction : public ActionTest, public testing::WithParamInterface<Action> {};
INSTANTIATE_TEST_SUITE_P(By, EveryAction, testing::ValuesIn(actions),
                         [](const auto &action) { return action.param.name; });

TEST_P(EveryAction, TravelsWhole) {
    const Action &row = GetParam();
    for (const int wait : {1, 0, -2}) {
        SCOPED_TRACE(wait);
        leave_traces();
        EXPECT_EQ(row.act(wait), 1);
        const SizedRecord record = sent();
        EXPECT_TRUE(same_record(record, to_fad(row.code, wait, row.param, row.text)));
        EXPECT_EQ(record.record.len(), 1036);
        EXPECT_EQ(record.msgsz, 1136U);
    }
}

TEST_P(EveryAction, IsWaitedForOnlyWhenAsked) {
    const Action &row = GetParam();
    StdoutCapture output;
    for (const int result : {0, 1, 7, INT_MAX}) {
        answers(row.code, {{.result = -9, .cmd = row.code + 50}, {.result = result}});
        EXPECT_EQ(row.act(1), 1) << result;
    }
    for (const int result : {-1, -7007, INT_MIN}) {
        answers(row.code, negative(result, "busy"));
        EXPECT_EQ(row.act(1), result);
    }
    EXPECT_EQ(queue_length(g_msq_qid), 0);

    // Not waited for, the refusal stays on the queue.
    answers(row.code, negative(-3, "busy"));
    EXPECT_EQ(row.act(0), 1);
    EXPECT_TRUE(eventually([] { return queue_length(g_msq_qid) == 1; }));
    EXPECT_EQ(output.stop(), "");
}

// ---- one by one ------------------------------------------------------------

TEST_F(ActionTest, TheLogIsSavedWithoutWaiting) {
    daemon.on(class_action, 15, never());
    raw_send(g_msq_qid, {.mtype = 7, .type = class_action, .cmd = 15, .result = -1});
    leave_traces();
    EXPECT_EQ(zan_save_log(), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(15, 0, 0, "")));
    EXPECT_EQ(queue_length(g_msq_qid), 1);
}

// A code of its own in the payload; the answer is known by the command.
TEST_F(ActionTest, CommandAndCodeMayDiffer) {
    answers(40, {{.result = -8, .cmd = 41}, {.result = -6}});
    EXPECT_EQ(zan_fad_send(40, INT_MIN, INT_MAX, 41, "x"), -6);
    EXPECT_TRUE(
        same_record(sent(), to_daemon(40, "ZAN_FAD", payload_of(41, INT_MIN, INT_MAX, "x"))));
}

TEST_F(ActionTest, ANegativeParameterTravelsAsZero) {
    for (const int param : {-1, INT_MIN, 0}) {
        EXPECT_EQ(zan_save_config(1, param), 1);
        EXPECT_TRUE(same_record(sent(), to_fad(4, 1, 0, "")));
    }
    EXPECT_EQ(zan_save_config(1, INT_MAX), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(4, 1, INT_MAX, "")));
}

TEST_F(ActionTest, ANameThatMayBeMissingTravelsAsZeros) {
    EXPECT_EQ(zan_factory_reset(1, 0, nullptr), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(5, 1, 0, "")));
    EXPECT_EQ(zan_backup_config(1, 0, nullptr), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(6, 1, 0, "")));
    EXPECT_EQ(zan_backup_old_config(1, 0, nullptr), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(16, 1, 0, "")));
    EXPECT_EQ(zan_factory_reset_wo_wifi(1, 0, nullptr), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(17, 1, 0, "")));
}

TEST_F(ActionTest, ANameIsCutAt1023CharactersWithAWarning) {
    StdoutCapture output;
    EXPECT_EQ(zan_backup_config(1, 0, path_of(1023).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(6, 1, 0, path_of(1023))));
    EXPECT_EQ(output.so_far(), "");
    EXPECT_EQ(zan_backup_config(1, 0, path_of(2000).c_str()), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(6, 1, 0, path_of(1023))));
    EXPECT_EQ(output.stop(), overflow_warning(path_of(1023)));
}

TEST_F(ActionTest, AnUpgradeNeedsAFile) {
    StdoutCapture output;
    EXPECT_EQ(zan_upgrade_firmware(1, 0, nullptr), -7007);
    EXPECT_EQ(zan_upgrade_config(0, 0, nullptr), -7007);
    EXPECT_EQ(output.stop(), "fad: filename can not be empty\n"
                             "fad: filename can not be empty\n");
    EXPECT_TRUE(sent_nothing());
    EXPECT_EQ(zan_upgrade_config(1, 0, ""), 1);
    EXPECT_TRUE(same_record(sent(), to_fad(3, 1, 0, "")));
}

TEST_F(ActionTest, AShellCommandIsCutAt511Characters) {
    StdoutCapture output;
    for (const std::size_t length : {511U, 512U, 3000U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(zan_run_shell(1, 0, "%s", path_of(length).c_str()), 1);
        EXPECT_TRUE(same_record(sent(), to_fad(7, 1, 0, path_of(511))));
        EXPECT_EQ(zan_run_shell(1, 0, "%s%d", path_of(length).c_str(), 1), 1);
        EXPECT_TRUE(same_record(sent(), to_fad(7, 1, 0, path_of(511))));
    }
    EXPECT_EQ(output.stop(), "");
}

TEST_F(ActionTest, AShellCommandMustBeThere) {
    StdoutCapture output;
    EXPECT_EQ(zan_run_shell(1, 0, nullptr), -7007);
    EXPECT_EQ(output.stop(), "fad: unable to run null shell commad!\n");
    EXPECT_TRUE(sent_nothing());
}

// ---- reboot ----------------------------------------------------------------

class Reboot : public ActionTest {
protected:
    // Puts a command of that name in the way, which writes down its arguments.
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        ActionTest::SetUp();
        mkdir("/tmp/bin", 0755);
        write_file("/tmp/bin/appmgrcmd", "#!/bin/sh\necho \"$*\" >>/tmp/appmgrcmd\nexit 3\n");
        chmod("/tmp/bin/appmgrcmd", 0755);
        const char *path = std::getenv("PATH");
        setenv("PATH", ("/tmp/bin:" + std::string(path != nullptr ? path : "/bin")).c_str(), 1);
    }
};

// Whatever comes of it, and before anything is sent: the daemon is not there to read.
TEST_F(Reboot, EndsTheTelephonyFirst) {
    constexpr long filler = 424242;
    RawQueue unread;
    const int known = std::exchange(g_zan_qid, unread.id());
    fill_queue(unread.id(), filler);
    int result = 0;
    Worker worker([&] { result = zan_reboot(0); });
    EXPECT_TRUE(eventually([] {
        return file_exists("/tmp/appmgrcmd") && read_file("/tmp/appmgrcmd") == "del sipapp\n";
    }));
    EXPECT_TRUE(worker.wait_until_blocked());
    while (raw_receive(unread.id(), filler).has_value())
        continue;
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_EQ(result, 1);
    const auto record = raw_receive(unread.id());
    ASSERT_TRUE(record.has_value());
    EXPECT_TRUE(same_record(*record, to_fad(9, 0, 0, "")));
    g_zan_qid = known;
}

TEST_F(Reboot, EndsTheTelephonyOnceForEachRequest) {
    EXPECT_EQ(zan_reboot(1), 1);
    answers(9, negative(-2, "not now"));
    EXPECT_EQ(zan_reboot(1), -2);
    EXPECT_EQ(read_file("/tmp/appmgrcmd"), "del sipapp\ndel sipapp\n");
    // No other action runs it.
    EXPECT_EQ(zan_factory_reset(1, 0, nullptr), 1);
    EXPECT_EQ(zan_fad_send(9, 1, -1, 9, nullptr), 1);
    EXPECT_EQ(read_file("/tmp/appmgrcmd"), "del sipapp\ndel sipapp\n");
}

// ---- the answer, later -----------------------------------------------------

class Later : public ActionTest {
protected:
    Later() {
        calls().clear();
        zan_set_taskmgr_msg_handler([](char *data, int type) {
            calls().push_back("task " + std::string(data) + " " + std::to_string(type));
            return -5;
        });
        zan_set_message_handler([](char *data, int len, zan_body *body) {
            calls().push_back("message " + std::string(data, static_cast<std::size_t>(len)) +
                              (body->data[34999] == '\0' ? "" : " and more"));
            return -5;
        });
    }

    static std::vector<std::string> &calls() {
        static std::vector<std::string> made;
        return made;
    }
};

TEST_F(Later, IsTakenFromTheQueueInTurnInSilence) {
    StdoutCapture output;
    EXPECT_EQ(zan_fad_recv_msq(), 0);
    answers(4, {{.result = -3, .payload = "busy"}});
    EXPECT_EQ(zan_save_config(0, 0), 1);
    EXPECT_TRUE(eventually([] { return queue_length(g_msq_qid) == 1; }));
    raw_send(g_msq_qid, {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = "hello"});
    raw_send(g_msq_qid,
             {.mtype = 1, .type = class_cfg, .cmd = cmd_get, .payload = "a stray answer"});
    EXPECT_EQ(zan_fad_recv_msq(), 1);
    EXPECT_EQ(zan_fad_recv_msq(), 1);
    EXPECT_EQ(zan_fad_recv_msq(), 0);
    EXPECT_EQ(queue_length(g_msq_qid), 0);
    EXPECT_EQ(output.stop(), "");
    EXPECT_THAT(calls(), ElementsAre("task busy 7", "message hello"));
}

TEST_F(Later, IsTakenWithoutALock) {
    raw_send(g_msq_qid, {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = "hello"});
    const BothLocks locks;
    EXPECT_EQ(zan_fad_recv_msq(), 1);
    EXPECT_THAT(calls(), ElementsAre("message hello"));
}

TEST_F(Later, OfARecordOfFullLengthIsTakenWhole) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    raw_send(g_msq_qid,
             {.mtype = 7, .type = class_action, .cmd = 4, .payload = std::string(35000, 't')});
    zan_set_taskmgr_msg_handler([](char *data, int) {
        calls().push_back(std::string(data, 35000));
        return 0;
    });
    EXPECT_EQ(zan_fad_recv_msq(), 1);
    EXPECT_THAT(calls(), ElementsAre(std::string(35000, 't')));
}

// A queue that is gone is the receive's to report, not this function's.
TEST_F(Later, OfAQueueThatIsGoneIsNothing) {
    remove_queue(g_msq_qid);
    StdoutCapture output;
    EXPECT_EQ(zan_fad_recv_msq(), 0);
    const std::string qid = std::to_string(g_msq_qid);
    EXPECT_EQ(output.stop(), "zan_msg_recv_no_wait msqid=" + qid +
                                 " ERROR:Invalid argument\n"
                                 "zan_client_recv_msq_no_wait: receive msq message error, msgid: " +
                                 qid + ". Error:Invalid argument\n");
}

TEST_F(Later, WithoutAnOwnQueueIsReportedEveryTime) {
    const int own = std::exchange(g_msq_qid, -1);
    StdoutCapture output;
    errno = EINVAL;
    EXPECT_EQ(zan_fad_recv_msq(), -1);
    errno = ENOMSG; // as an empty queue left it
    EXPECT_EQ(zan_fad_recv_msq(), -1);
    EXPECT_EQ(output.stop(),
              "zan_fad_recv_msq:receive msq message error, msgid: -1. Error:Invalid argument\n"
              "zan_fad_recv_msq:receive msq message error, msgid: -1. "
              "Error:No message of desired type\n");
    g_msq_qid = own;
}

// ---- event results ---------------------------------------------------------

TEST_F(ActionTest, TheResultOfAnEventIsReportedToNobodyByName) {
    daemon.on(class_action, 1, never());
    const struct {
        int event;
        int result;
        const char *text;
    } rows[] = {{5, 0, "0"}, {-1, -12, "-12"}, {INT_MAX, INT_MIN, "-2147483648"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        leave_traces();
        EXPECT_EQ(zan_report_event_result(row.event, row.result), 0);
        const SizedRecord record = sent();
        EXPECT_TRUE(same_record(record, to_daemon(1, "", payload_of(row.event, 0, 0, row.text))));
        EXPECT_EQ(record.msgsz, 1136U);
    }
}

} // namespace
} // namespace zan::test
