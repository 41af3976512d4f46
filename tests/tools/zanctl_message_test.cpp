// SPDX-License-Identifier: MIT
//
// Messages and command lines: first each record by itself, then from one zanctl
// to another.
#include "with_zansim.h"

#include "support/patience.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <climits>
#include <csignal>
#include <optional>

namespace zan::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

Replies acknowledgement(int result = 1, std::string text = {}) {
    return {{.result = result, .payload = std::move(text), .cmd = cmd_ack}};
}

class ZanctlMessage : public ZanctlTest {
protected:
    // The only request was this one, sent at some time.
    void expect_sent(int type, int cmd, const std::string &dst, const std::string &payload) {
        const SizedRecord actual = only_request();
        Fields fields = request(type, cmd, dst, payload);
        fields.time = actual.record.word(at::time);
        EXPECT_GT(fields.time, 0);
        EXPECT_TRUE(same_record(actual, fields));
    }

    void expect_done(const std::vector<std::string> &arguments, const std::string &output) {
        daemon.forget_records();
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, exit_done);
        EXPECT_EQ(ended.output, output);
        EXPECT_EQ(ended.error, "");
        expect_left_nothing();
    }
};

TEST_F(ZanctlMessage, SendDoesNotWait) {
    daemon.on(class_message, cmd_send, never());
    expect_done({"send", "wlan", "scan now"}, "");
    expect_sent(class_message, cmd_send, "wlan", "scan now");
    expect_done({"send", "--json", "wlan", "a\"b"}, "{\"module\":\"wlan\",\"text\":\"a\\\"b\"}\n");
}

TEST_F(ZanctlMessage, SendWaitsForTheAcknowledgementOnRequest) {
    daemon.on(class_message, cmd_send_with_ack, acknowledgement());
    expect_done({"send", "wlan", "scan now", "--ack"}, "");
    expect_sent(class_message, cmd_send_with_ack, "wlan", "scan now");
    expect_done({"send", "--json", "--ack", "wlan", "x"},
                "{\"module\":\"wlan\",\"text\":\"x\",\"acknowledged\":true}\n");
}

TEST_F(ZanctlMessage, BroadcastWaitsForTheAcknowledgement) {
    daemon.on(class_broadcast, cmd_send_all, acknowledgement());
    expect_done({"broadcast", "wake up"}, "");
    expect_sent(class_broadcast, cmd_send_all, "ZAN", "wake up");
    expect_done({"broadcast", "--json", "x"}, "{\"text\":\"x\",\"acknowledged\":true}\n");
}

TEST_F(ZanctlMessage, ControlPadsTheCommandLine) {
    daemon.on(class_control, 0, never());
    expect_done({"control", "firewall_cntl -f x"}, "");
    std::string padded = "firewall_cntl -f x";
    padded.resize(1025);
    expect_sent(class_control, 0, "ZAN", padded);
    expect_done({"control", "--json", "ls"}, "{\"command_line\":\"ls\"}\n");
}

TEST_F(ZanctlMessage, TextHasAnyLengthUpToTheMaximum) {
    daemon.on(class_message, cmd_send_with_ack, acknowledgement());
    for (const std::size_t length : {0U, 1U, 1023U, 1024U}) {
        const std::string text(length, 't');
        expect_done({"send", "wlan", text}, "");
        expect_sent(class_message, cmd_send, "wlan", text);
        expect_done({"send", "--ack", "wlan", text}, "");
        expect_sent(class_message, cmd_send_with_ack, "wlan", text);
    }
}

TEST_F(ZanctlMessage, RefusalIsPrinted) {
    daemon.on(class_message, cmd_send_with_ack, acknowledgement(-8, "no such module"));
    daemon.on(class_broadcast, cmd_send_all, acknowledgement(-9, "not today"));
    Ended ended = run({"send", "--json", "--ack", "wlan", "x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, R"({"path":"wlan","refused":true,"code":-8,"text":"no such module"})"
                            "\n");
    EXPECT_EQ(ended.error, "");
    ended = run({"broadcast", "--json", "x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, R"({"path":"broadcast","refused":true,"code":-9,"text":"not today"})"
                            "\n");
    EXPECT_EQ(ended.error, "");
    expect_left_nothing();
}

TEST_F(ZanctlMessage, WithoutAcknowledgementEndsInTime) {
    daemon.on(class_message, cmd_send_with_ack, never());
    const Ended ended = run_until_expired({"send", "--ack", "--timeout", "600", "wlan", "x"}, 2);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_THAT(
        ended.error,
        HasSubstr(
            "zanctl: no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
            "waits longer)\n"));
    EXPECT_EQ(records.size(), 3U) << "registered, sent and unregistered";
}

// Registered with a daemon that then reads no further, on a queue without room.
class ZanctlWithFullQueue : public ZanctlMessage {
protected:
    void start_blocked(const std::vector<std::string> &arguments) {
        daemon.on(class_registration, cmd_register, {{.held = true}, {.held = true}});
        program.emplace(zanctl_command(arguments));
        daemon.wait_for_records(1);
        EXPECT_GT(fill_queue(daemon.request_queue(), 1), 0);
        daemon.release();
        EXPECT_TRUE(eventually([this] { return has_received_answer(); }));
    }

    std::optional<Program> program;

private:
    bool has_received_answer() const {
        msqid_ds state{};
        return msgctl(daemon.registration_queue(), IPC_STAT, &state) == 0 &&
               state.msg_lrpid == program->pid();
    }
};

TEST_F(ZanctlWithFullQueue, SendEndsInTime) {
    start_blocked({"send", "--timeout", "600", "wlan", "x"});
    const Ended ended = expire(*program);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_THAT(
        ended.error,
        testing::EndsWith(
            "zanctl: no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
            "waits longer)\n"));
    expect_left_nothing();
}

TEST_F(ZanctlWithFullQueue, ControlEndsInTime) {
    start_blocked({"control", "--timeout", "600", "ls"});
    const Ended ended = expire(*program);
    EXPECT_EQ(ended.status, exit_no_answer);
    EXPECT_THAT(
        ended.error,
        testing::EndsWith(
            "zanctl: no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
            "waits longer)\n"));
    expect_left_nothing();
}

TEST_F(ZanctlWithFullQueue, SendEndsAtASignal) {
    start_blocked({"send", "--timeout", "600", "wlan", "x"});
    program->signal(SIGTERM);
    EXPECT_EQ(finish(*program).status, 128 + SIGTERM);
    expect_left_nothing();
}

TEST_F(ZanctlMessage, ListenSurvivesAnyLengthAndName) {
    Program listener(zanctl_command({"listen", "wlan", "--count", "3"}));
    ASSERT_TRUE(listener.read_error_until("zanctl: listening\n"));
    const int queue = static_cast<int>(daemon.records().at(0).record.mtype);
    for (const std::int32_t len : {-1, INT_MIN, INT_MAX})
        EXPECT_TRUE(raw_send(queue, {.mtype = class_message,
                                     .type = class_message,
                                     .cmd = cmd_send,
                                     .src = std::string(32, 's'),
                                     .payload = "abc",
                                     .len = len}));
    const Ended ended = finish(listener);
    EXPECT_EQ(ended.status, exit_done);
    const std::string head = "message " + std::string(32, 's');
    EXPECT_THAT(ended.output, StartsWith(head + "\n" + head + "\n" + head + " abc\\x00"));
    expect_left_nothing();
}

// ---- from one to another

using ZanctlToZanctl = WithZansim;

TEST_F(ZanctlToZanctl, MessagesArriveInOrder) {
    const auto listener = listen({"wlan", "--count", "4"});
    zanctl({"send", "--name", "bell", "wlan", "one\n1\\"});
    zanctl({"send", "--name", "bell", "--ack", "wlan", ""});
    zanctl({"send", "--name", "bell", "--ack", "wlan", std::string(1024, 'x')});
    zanctl({"send", "--name", "bell", "wlan", "\xc3\xa4 4"});
    expect_heard(*listener, "message bell one\\x0A1\\x5C\nmessage bell\nmessage bell " +
                                std::string(1024, 'x') + "\nmessage bell \xc3\xa4 4\n");
}

TEST_F(ZanctlToZanctl, BroadcastReachesEveryListener) {
    const auto first = listen({"wlan", "--count", "1"});
    const auto second = listen({"--name", "lan", "--count", "1", "--json"});
    zanctl({"broadcast", "--name", "bell", "wake up"});
    expect_heard(*first, "broadcast bell wake up\n");
    expect_heard(*second, "{\"broadcast\":\"wake up\",\"source\":\"bell\"}\n");
}

TEST_F(ZanctlToZanctl, ListenPrintsJson) {
    const auto listener = listen({"wlan", "--json", "--count", "2", "--time"});
    zanctl({"send", "--name", "bell", "wlan", "one\n\xff"});
    zanctl({"send", "--name", "bell", "wlan", ""});
    EXPECT_EQ(listener->wait(), exit_done);
    EXPECT_THAT(listener->output(),
                testing::MatchesRegex("\\{\"message\":\"one\\\\n\xef\xbf\xbd\",\"source\":\"bell\","
                                      "\"time\":\"[^\"]+\"\\}\n"
                                      "\\{\"message\":\"\",\"source\":\"bell\","
                                      "\"time\":\"[^\"]+\"\\}\n"));
}

TEST_F(ZanctlToZanctl, ListenPrintsChangesAndEventsToo) {
    const auto listener = listen({"wlan", "--watch", "/sys/user", "--watch", "/sys/hostname",
                                  "--event", "12", "--count", "4"});
    zanctl({"set", "/sys/user:1/name", "one"});
    zanctl({"send", "--name", "bell", "--ack", "wlan", "two"});
    EXPECT_TRUE(listener->read_until("two\n"));
    zanctl({"set", "/sys/hostname", "three"});
    zanctl({"set", "/zansim/event", "12"});
    EXPECT_EQ(listener->wait(), exit_done);
    // Different classes may pass each other.
    EXPECT_THAT(listener->output(), HasSubstr("changed /sys/user:1/name one\n"));
    EXPECT_THAT(listener->output(), HasSubstr("message bell two\n"));
    EXPECT_THAT(listener->output(), testing::EndsWith("changed /sys/hostname three\nevent 12\n"));
    EXPECT_EQ(zanctl({"get", "/zansim/subscriptions"}), "0\n");
}

TEST_F(ZanctlToZanctl, ListenIsRegisteredByItsNameUntilASignal) {
    const auto listener = listen({"wlan"});
    EXPECT_EQ(zanctl({"pid", "wlan"}), std::to_string(listener->pid()) + "\n");
    listener->signal(SIGINT);
    expect_heard(*listener, "");
    EXPECT_EQ(zanctl({"get", "/zansim/modules"}), "1\n");
    EXPECT_FALSE(file_exists("/tmp/wlan_0.msq"));
}

TEST_F(ZanctlToZanctl, AnUnknownModuleIsReportedOnlyWithAcknowledgement) {
    const Ended ended = run_zanctl({"send", "--ack", "nobody", "x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: nobody: unknown module (-108)\n");
    EXPECT_EQ(zanctl({"send", "nobody", "x"}), "");
}

TEST_F(ZanctlToZanctl, WatchIgnoresMessages) {
    const auto watcher = watch({"--name", "wlan", "--count", "1", "/sys/hostname"});
    zanctl({"send", "--ack", "wlan", "x"});
    zanctl({"set", "/sys/hostname", "attic"});
    EXPECT_EQ(watcher->wait(), exit_done);
    EXPECT_EQ(watcher->output(), "changed /sys/hostname attic\n");
}

TEST_F(ZanctlToZanctl, CommandLinesAreRecordedAndNotExecuted) {
    const std::string line = "touch /tmp/zan_executed";
    zanctl({"control", line});
    EXPECT_EQ(zanctl({"get", "/zansim/last_command_line"}), line + "\n");
    zanctl({"control", std::string(1024, 'c')});
    EXPECT_EQ(zanctl({"get", "/zansim/last_command_line"}), std::string(1024, 'c') + "\n");
    EXPECT_EQ(zanctl({"get", "/zansim/command_lines"}), "2\n");
    EXPECT_FALSE(file_exists("/tmp/zan_executed"));
}

} // namespace
} // namespace zan::test
