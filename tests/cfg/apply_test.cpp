// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/worker.h"

#include <cstring>

namespace zan::test {
namespace {

constexpr const char *state_path = "/runtime/app/tr069/config_state";

class Apply : public ConfigTest {
protected:
    void state_is(const Replies &replies) { daemon.once(class_cfg, cmd_get, replies); }

    // Whether the state was asked for, and nothing but that and then `records` sent.
    void expect_sent_behind_the_state(const std::vector<Fields> &expected) {
        const auto records = daemon.records();
        daemon.forget_records();
        ASSERT_EQ(records.size(), expected.size() + 1);
        EXPECT_TRUE(same_record(records[0], request(cmd_get, state_path)));
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_TRUE(same_record(records[i + 1], expected[i]));
    }
};

TEST_F(Apply, SendsAHeaderOnceTheStateAllowsIt) {
    for (const char *state : {"0", "2", "-1", "11", "x", ""}) {
        SCOPED_TRACE(state);
        StdoutCapture output;
        leave_traces();
        state_is(answer(state));
        EXPECT_EQ(cfg_apply_all(), 1);
        EXPECT_EQ(output.stop(), "");
        expect_sent_behind_the_state({request(cmd_apply_all, "")});
    }
}

TEST_F(Apply, IsHeldBackWhileTheConfigurationIsWritten) {
    StdoutCapture output;
    state_is(answer("1"));
    EXPECT_EQ(cfg_apply_all(), -1);
    EXPECT_EQ(output.stop(), "cfg_apply_all[probe]:TR069 doing configuration setting!\n");
    expect_sent_behind_the_state({});
}

// The name is public and writable: without its terminator it ends where it ends.
TEST_F(Apply, NamesAModuleWithoutTerminator) {
    std::memset(g_module_name, 'n', sizeof g_module_name);
    StdoutCapture output;
    state_is(answer("1"));
    EXPECT_EQ(cfg_apply_all(), -1);
    EXPECT_EQ(output.stop(),
              "cfg_apply_all[" + std::string(32, 'n') + "]:TR069 doing configuration setting!\n");
}

TEST_F(Apply, GoesAheadWhenTheStateCannotBeRead) {
    StdoutCapture output;
    state_is(negative(-9, "1"));
    EXPECT_EQ(cfg_apply_all(), 1);
    EXPECT_EQ(output.stop(), "cfg_getint failed for " + std::string(state_path) + "\n");
    expect_sent_behind_the_state({request(cmd_apply_all, "")});
}

TEST_F(Apply, PassesTheDaemonsResultOn) {
    const struct {
        Reply reply;
        int result;
    } rows[] = {{{.result = 0}, 1},
                {{.result = 5, .payload = "done"}, 1},
                {{.result = -12, .payload = "not now"}, -12},
                {{.result = -1}, -1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reply.result);
        state_is(answer("0"));
        daemon.once(class_cfg, cmd_apply_all, {row.reply});
        EXPECT_EQ(cfg_apply_all(), row.result);
    }
}

TEST_F(Apply, ReportsTwiceThatTheDaemonIsGone) {
    daemon.die();
    const std::string refused =
        "zan_msg_send qid=" + std::to_string(g_zan_qid) + " ERROR:Invalid argument\n";
    const std::string pid = ": pid=" + std::to_string(getpid()) + "\n";
    StdoutCapture output;
    EXPECT_EQ(cfg_apply_all(), -2003);
    EXPECT_EQ(output.stop(),
              refused + "cfg_getstr:zan_msg_send fail!\ncfg_getstr: path=" + state_path +
                  "\ncfg_getstr" + pid + "cfg_getint failed for " + state_path + "\n" + refused +
                  "cfg_apply_all:zan_msg_send fail!\ncfg_apply_all" + pid);
}

TEST_F(Apply, HoldsTheLockUntilTheAnswerIsIn) {
    state_is(answer("0"));
    daemon.once(class_cfg, cmd_apply_all, {{.held = true}});
    int result = 0;
    Worker worker([&] { result = cfg_apply_all(); });
    ASSERT_EQ(daemon.wait_for_records(2).size(), 2U);
    ASSERT_TRUE(worker.wait_until_blocked());
    const LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    daemon.release();
    EXPECT_TRUE(worker.wait_until_done());
    EXPECT_TRUE(probe.wait_until_free());
    EXPECT_EQ(result, 1);
}

TEST_F(Apply, LetsGoOfTheLockWhenTheDaemonIsGone) {
    daemon.die();
    StdoutCapture output;
    EXPECT_EQ(cfg_apply_all(), -2003);
    EXPECT_TRUE(LockProbe(zan_api_lock, zan_api_unlock).is_free());
}

// The state is asked for before the lock is taken for the second request.
TEST_F(Apply, LetsGoOfTheLock) {
    EXPECT_EQ(cfg_apply_all(), 1);
    EXPECT_EQ(cfg_apply_all(), 1);
    state_is(answer("1"));
    StdoutCapture output;
    EXPECT_EQ(cfg_apply_all(), -1);
    EXPECT_EQ(cfg_del("/a"), 1);
}

TEST_F(Apply, OfAFirewallEventAsksNobody) {
    daemon.on(class_cfg, cmd_get, answer("1"));
    leave_traces();
    EXPECT_EQ(cfg_apply_firewall_event(), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_apply_firewall, "")));
    EXPECT_EQ(record.msgsz, 100U);
}

using Reset = ConfigTest;

TEST_F(Reset, SendsTheFormattedPath) {
    leave_traces();
    EXPECT_EQ(cfg_reset("/sys/user:%d", 3), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(cmd_reset, "/sys/user:3")));
    EXPECT_EQ(record.msgsz, 111U);
}

TEST_F(Reset, CutsThePathAt1023Characters) {
    for (const std::size_t length : {1023U, 1024U, 5000U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(cfg_reset("%s", path_of(length).c_str()), 1);
        EXPECT_TRUE(same_record(sent(), request(cmd_reset, path_of(1023))));
    }
}

TEST_F(Reset, NeedsAPath) {
    EXPECT_EQ(cfg_reset(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
