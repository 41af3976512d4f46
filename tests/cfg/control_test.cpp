// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/stream_peer.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::IsEmpty;

constexpr char untouched = '#';
constexpr char not_ready[] = "zan_mesh_status:mesh_enable=0 role=Agent\n"
                             "ctl_getstr: fail by mesh not ready\n";

// ---- values over the daemon link -------------------------------------------------------

// Module "probe" with a link; the daemon serves the mesh state on its queue.
class ControlValue : public ConfigTest {
protected:
    ControlValue() {
        g_ipc_handle = zan_ipc_create("probe", 0);
        std::memset(value, untouched, sizeof value);
    }

    void SetUp() override {
        ConfigTest::SetUp();
        ASSERT_GE(g_ipc_handle, 0);
        ASSERT_TRUE(peer.wait_for_connections(1));
    }

    ~ControlValue() override { zan_ipc_delete(g_ipc_handle); }

    void mesh_is_ready(bool ready = true) {
        for (const char *const text : {"0", "0", ready ? "1" : "0", "Agent"})
            daemon.once(class_cfg, cmd_get, answer(text));
    }

    void daemon_answers(const std::string &text, std::int32_t result = 1) {
        peer.reply(
            stream_bytes({.type = class_cfg, .cmd = cmd_get, .result = result, .payload = text},
                         ByteOrder::network));
    }

    void expect_asked_for(const std::string &path) {
        const std::string sent = peer.wait_for_records(1).front();
        EXPECT_TRUE(same_bytes(sent, stream_bytes({.type = class_cfg,
                                                   .cmd = cmd_get,
                                                   .dst = "ZAN_CFG",
                                                   .src = "probe",
                                                   .pid = static_cast<std::int32_t>(getpid()),
                                                   .payload = path},
                                                  ByteOrder::network)));
        EXPECT_EQ(peer.unfinished(), "");
    }

    bool value_untouched() const {
        return std::string(value, sizeof value) == std::string(sizeof value, untouched);
    }

    static bool api_lock_is_free() { return LockProbe(zan_api_lock, zan_api_unlock).is_free(); }

    StreamPeer peer;
    char value[2048];
};

TEST_F(ControlValue, IsAskedForInNetworkOrder) {
    mesh_is_ready();
    daemon_answers("value");
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/%s/%d", "a", 7), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_STREQ(value, "value");
    expect_asked_for("/a/7");
}

TEST_F(ControlValue, APathOfFiveTravelsIn105Bytes) {
    mesh_is_ready();
    daemon_answers("value");
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a/bc"), 1);
    const std::string sent = peer.wait_for_records(1).front();
    EXPECT_EQ(sent.size(), 105U);
    EXPECT_EQ(sent.substr(at::len), std::string("\0\0\0\5/a/bc", 9));
    EXPECT_EQ(sent.substr(at::type, 8), std::string("\0\0\0\1\0\0\0\1", 8));
    EXPECT_EQ(sent.substr(at::time, 8), std::string(8, '\0'));
}

TEST_F(ControlValue, APathIsCutAt1023Characters) {
    leave_traces();
    mesh_is_ready();
    daemon_answers("value");
    const std::string path = path_of(1500);
    EXPECT_EQ(ctl_getstr(value, sizeof value, "%s", path.c_str()), 1);
    expect_asked_for(path.substr(0, 1023));
}

TEST_F(ControlValue, IsCutToTheBuffer) {
    mesh_is_ready();
    daemon_answers("0123456789");
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, 8, "/a"), 1);
    EXPECT_EQ(out.stop(), overflow_warning("0123456"));
    EXPECT_STREQ(value, "0123456");
    EXPECT_EQ(value[8], untouched);
}

TEST_F(ControlValue, ATinySizeMeans1024) {
    mesh_is_ready();
    daemon_answers(std::string(1100, 'v'));
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, 4, "/a"), 1);
    EXPECT_EQ(out.stop(), overflow_warning(std::string(1023, 'v')));
    EXPECT_EQ(std::strlen(value), 1023U);
    EXPECT_EQ(value[1024], untouched);
}

TEST_F(ControlValue, IsNotAskedForWhileTheMeshIsNotReady) {
    zan_api_lock_init();
    mesh_is_ready(false);
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), -2010);
    EXPECT_EQ(out.stop(), not_ready);
    EXPECT_TRUE(value_untouched());
    EXPECT_TRUE(api_lock_is_free());
    zan_request_empty_message(); // the first record to arrive
    EXPECT_EQ(peer.wait_for_records(1).front().size(), 100U);
}

TEST_F(ControlValue, ARefusalLeavesTheBuffer) {
    mesh_is_ready();
    daemon_answers("no such node", -42);
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), -42);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(value_untouched());
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(ControlValue, ADaemonThatHangsUpLeavesTheBuffer) {
    mesh_is_ready();
    peer.hang_up_at_next_record();
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), -1);
    EXPECT_TRUE(value_untouched());
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(ControlValue, AFailedSendIsReturnedWithoutALineOfItsOwn) {
    mesh_is_ready();
    const int link = g_ipc_handle;
    g_ipc_handle = -1;
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), -1);
    EXPECT_EQ(out.stop(), "ipc socket send failed, Bad file descriptor\n");
    EXPECT_TRUE(value_untouched());
    EXPECT_TRUE(api_lock_is_free());
    g_ipc_handle = link;
}

// The rest of an earlier message goes first, and this one not at all.
TEST_F(ControlValue, ASendOfNothingIsReturnedAsZero) {
    const int link = g_ipc_handle;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    g_ipc_handle = ends[0];
    const std::string much(4UL * 1024 * 1024, 'x');
    std::vector<char> some(100UL * 1024);
    mesh_is_ready();
    StdoutCapture out;
    ASSERT_GT(zan_ipc_send(g_ipc_handle, much.data(), static_cast<int>(much.size())), 0);
    ASSERT_GT(read(ends[1], some.data(), some.size()), 0);
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), 0);
    zan_ipc_delete(g_ipc_handle);
    EXPECT_EQ(out.stop(), "ipc socket: buffer maybe full\n"
                          "get failed packet buffer, start sending...\n"
                          "delete failed msg queue\n");
    EXPECT_TRUE(value_untouched());
    EXPECT_TRUE(api_lock_is_free());
    close(ends[1]);
    g_ipc_handle = link;
}

TEST_F(ControlValue, IsReadUnderTheApiLock) {
    mesh_is_ready();
    int result = 0;
    Worker reader([&] { result = ctl_getstr(value, sizeof value, "/a"); });
    peer.wait_for_records(1);
    EXPECT_TRUE(reader.wait_until_blocked());
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    peer.send(
        stream_bytes({.type = class_cfg, .cmd = cmd_get, .payload = "value"}, ByteOrder::network));
    ASSERT_TRUE(reader.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(ControlValue, MayTravelBehindOtherRecords) {
    mesh_is_ready();
    const auto bytes = [](const Fields &fields) {
        return stream_bytes(fields, ByteOrder::network);
    };
    peer.reply(bytes({.type = class_message, .cmd = cmd_send, .payload = "hello"}) +
               bytes({.type = class_cfg, .cmd = cmd_set, .result = -3}) +
               bytes({.type = class_cfg, .cmd = cmd_get, .payload = "value"}));
    EXPECT_EQ(ctl_getstr(value, sizeof value, "/a"), 1);
    EXPECT_STREQ(value, "value");
    // The message waits for a poll, and the daemon is asked to cause one.
    EXPECT_EQ(peer.wait_for_records(2).back().size(), 100U);
}

TEST_F(ControlValue, IsRequestedWithoutABufferToo) {
    mesh_is_ready();
    daemon_answers("value");
    StdoutCapture out;
    EXPECT_EQ(ctl_getstr(nullptr, 10, "/a"), 1);
    EXPECT_EQ(out.stop(), "");
    expect_asked_for("/a");
    mesh_is_ready();
    daemon_answers("no such node", -7);
    EXPECT_EQ(ctl_getstr(nullptr, 10, "/a"), -7);
}

TEST_F(ControlValue, AsksTheMeshGateBeforeItChecksArguments) {
    mesh_is_ready(false);
    StdoutCapture without_buffer;
    EXPECT_EQ(ctl_getstr(nullptr, 10, "/a"), -2010);
    EXPECT_EQ(without_buffer.stop(), not_ready);
    mesh_is_ready(false);
    StdoutCapture without_path;
    EXPECT_EQ(ctl_getstr(value, sizeof value, nullptr), -2010);
    EXPECT_EQ(without_path.stop(), not_ready);
    EXPECT_EQ(peer.unfinished(), "");
}

TEST_F(ControlValue, NeedsAPath) {
    mesh_is_ready();
    EXPECT_EQ(ctl_getstr(value, sizeof value, nullptr), -1);
    EXPECT_EQ(daemon.records().size(), 4U) << "the mesh gate alone";
    daemon.forget_records();
    EXPECT_EQ(ctl_getint(nullptr), 0);
    EXPECT_THAT(daemon.records(), IsEmpty());
    EXPECT_EQ(peer.unfinished(), "");
}

// ---- numbers ---------------------------------------------------------------------------

struct Number {
    const char *text;
    int value;
};
void PrintTo(const Number &number, std::ostream *out) {
    *out << '"' << number.text << '"';
}

class ControlNumber : public ControlValue, public testing::WithParamInterface<Number> {};

TEST_P(ControlNumber, IsWhatTheTextBeginsWith) {
    mesh_is_ready();
    daemon_answers(GetParam().text);
    StdoutCapture out;
    EXPECT_EQ(ctl_getint("/sys/%s", "mode"), GetParam().value);
    EXPECT_EQ(out.stop(), "");
    expect_asked_for("/sys/mode");
}

INSTANTIATE_TEST_SUITE_P(Texts, ControlNumber,
                         testing::Values(Number{"42", 42}, Number{"-7", -7},
                                         Number{" 12 apples", 12}, Number{"", 0}, Number{"none", 0},
                                         Number{"2147483647", 2147483647}));

TEST_F(ControlValue, ANumberIsReadFrom255Characters) {
    mesh_is_ready();
    daemon_answers("9" + std::string(300, 'x'));
    StdoutCapture out;
    EXPECT_EQ(ctl_getint("/a"), 9);
    EXPECT_EQ(out.stop(), overflow_warning("9" + std::string(254, 'x')));
}

TEST_F(ControlValue, ANumberWhileTheMeshIsNotReadyIsZeroAfterThreeLines) {
    mesh_is_ready(false);
    StdoutCapture out;
    EXPECT_EQ(ctl_getint("/sys/%d", 5), 0);
    EXPECT_EQ(out.stop(), std::string(not_ready) + "cfg_getint failed for /sys/5\n");
}

TEST_F(ControlValue, ANumberThatIsRefusedIsZero) {
    mesh_is_ready();
    daemon_answers("77", -3);
    StdoutCapture out;
    EXPECT_EQ(ctl_getint("/a"), 0);
    EXPECT_EQ(out.stop(), "cfg_getint failed for /a\n");
}

// The formatted path is a format once more.
TEST_F(ControlValue, ANumbersPathIsFormattedTwice) {
    mesh_is_ready();
    daemon_answers("1");
    EXPECT_EQ(ctl_getint("/a%s", "%%b"), 1);
    expect_asked_for("/a%b");
}

// ---- command lines -----------------------------------------------------------------------

class CommandLine : public ConfigTest {
protected:
    int send(const std::string &text) {
        daemon.on(class_control, 0, never());
        return zan_ctl_request(text.c_str());
    }
};

TEST_F(CommandLine, TravelsWithZerosBehindIt) {
    StdoutCapture out;
    EXPECT_EQ(send("firewall_cntl start"), 0);
    EXPECT_EQ(out.stop(), "");
    expect_command_line_sent("firewall_cntl start");
}

TEST_F(CommandLine, ShowsNothingOfALongerOneBefore) {
    EXPECT_EQ(send(path_of(1000)), 0);
    expect_command_line_sent(path_of(1000));
    leave_traces();
    EXPECT_EQ(send("short"), 0);
    expect_command_line_sent("short");
}

TEST_F(CommandLine, MayBeEmpty) {
    EXPECT_EQ(send(""), 0);
    expect_command_line_sent("");
}

TEST_F(CommandLine, Of1024CharactersIsWhole) {
    StdoutCapture out;
    EXPECT_EQ(send(path_of(1024)), 0);
    EXPECT_EQ(out.stop(), "");
    expect_command_line_sent(path_of(1024));
}

TEST_F(CommandLine, ThatIsLongerIsCutTo1024Characters) {
    const std::string text = path_of(2000);
    StdoutCapture out;
    EXPECT_EQ(send(text), 0);
    EXPECT_EQ(out.stop(), overflow_warning(text.substr(0, 1024)));
    expect_command_line_sent(text.substr(0, 1024));
}

TEST_F(CommandLine, IsSentWithoutTheLocks) {
    zan_msq_lock_init();
    zan_api_lock();
    zan_msq_lock();
    EXPECT_EQ(send("now"), 0);
    zan_msq_unlock();
    zan_api_unlock();
    expect_command_line_sent("now");
}

TEST_F(CommandLine, ThatCannotBeSentIsNamedWhole) {
    daemon.die();
    const std::string text = path_of(1100);
    StdoutCapture out;
    EXPECT_EQ(zan_ctl_request(text.c_str()), -2003);
    EXPECT_EQ(out.stop(), overflow_warning(text.substr(0, 1024)) +
                              "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                              " ERROR:Invalid argument\n"
                              "zan_ctl_request:zan_msg_send fail! cmdline=" +
                              text + "\n");
}

TEST_F(CommandLine, WithoutADaemonFails) {
    const int qid = g_zan_qid;
    g_zan_qid = -1;
    StdoutCapture out;
    EXPECT_EQ(zan_ctl_request("now"), -2003);
    EXPECT_EQ(out.stop(), "zan_ctl_request:zan_msg_send fail! cmdline=now\n");
    g_zan_qid = qid;
}

TEST_F(CommandLine, MustBeThere) {
    EXPECT_EQ(zan_ctl_request(nullptr), -1);
    EXPECT_TRUE(sent_nothing());
}

} // namespace
} // namespace zan::test
