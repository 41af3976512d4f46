// SPDX-License-Identifier: MIT
//
// zanctl as a mesh agent: first what it writes to its link, byte for byte, and what
// becomes of a link that fails; then from one zanctl to another.
#include "with_zansim.h"

#include "support/stream_peer.h"

#include <csignal>
#include <ostream>

namespace zan::test {
namespace {

using testing::EndsWith;

const std::string mesh = "/InternetGatewayDevice/X_ORVANE_EasyMesh";

class ZanctlAgent : public ZanctlTest {
protected:
    // Answers the four questions of the library's mesh gate so many times.
    void mesh_is_ready(int times) {
        for (; times > 0; --times)
            for (const std::string value : {"0", "0", "1", "Agent"})
                daemon.once(class_cfg, cmd_get, answer(value));
    }

    void peer_answers(int type, int cmd, int result = 1, const std::string &payload = {}) {
        peer.reply(stream_bytes({.type = type, .cmd = cmd, .result = result, .payload = payload},
                                ByteOrder::network));
    }

    Ended end(const std::vector<std::string> &arguments, const std::string &output) {
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, exit_done) << ended.error;
        EXPECT_EQ(ended.output, output);
        EXPECT_EQ(ended.error, "");
        return ended;
    }

    // Lets its timeout expire when so many records have arrived on its link.
    Ended run_until_expired(const std::vector<std::string> &arguments, std::size_t arrived) {
        Program program(zanctl_command(arguments));
        peer.wait_for_records(arrived);
        return expire(program);
    }

    // It did not get what it wanted, and has cleaned up.
    void expect_failed(const Ended &ended, int status, const std::string &complaint) {
        EXPECT_EQ(ended.status, status);
        EXPECT_EQ(ended.output, "");
        EXPECT_THAT(ended.error, EndsWith("zanctl: " + complaint + "\n"));
        expect_left_nothing();
    }

    // What arrived on the link: registration, this, and the end of it.
    void expect_on_link(Fields fields, ByteOrder order) const {
        const std::vector<std::string> arrived = peer.wait_for_records(3);
        Fields agent = {.type = class_registration,
                        .cmd = cmd_register,
                        .src = "me",
                        .pid = pid,
                        .payload = std::string(4, '\0')};
        EXPECT_TRUE(same_bytes(arrived[0], stream_bytes(agent, ByteOrder::network)));
        fields.src = "me";
        fields.pid = pid;
        std::string bytes = arrived[1];
        if (fields.type != class_cfg)
            bytes.replace(at::time, 4, 4, '\0'); // at some time
        EXPECT_TRUE(same_bytes(bytes, stream_bytes(fields, order)));
        agent.cmd = cmd_unregister;
        EXPECT_TRUE(same_bytes(arrived[2], stream_bytes(agent, ByteOrder::host)));
        EXPECT_TRUE(peer.wait_for_closed(1));
        EXPECT_EQ(peer.unfinished(), "");
        expect_left_nothing();
    }

    StreamPeer peer;
};

TEST_F(ZanctlAgent, ReadsAValueOverItsLink) {
    mesh_is_ready(3);
    peer_answers(class_registration, cmd_register);
    peer_answers(class_cfg, cmd_get, 1, "a value");
    peer_answers(class_registration, cmd_unregister);
    end({"get", "--agent", "--name", "me", "--json", "/a%sb"},
        "{\"path\":\"/a%sb\",\"value\":\"a value\"}\n");
    expect_on_link({.type = class_cfg, .cmd = cmd_get, .dst = "ZAN_CFG", .payload = "/a%sb"},
                   ByteOrder::network);
}

TEST_F(ZanctlAgent, SendsAMessageOverItsLink) {
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    peer_answers(class_message, cmd_ack);
    peer_answers(class_registration, cmd_unregister);
    end({"send", "--agent", "--ack", "--name", "me", "--json", "wlan", "scan now"},
        "{\"module\":\"wlan\",\"text\":\"scan now\",\"acknowledged\":true}\n");
    expect_on_link(
        {.type = class_message, .cmd = cmd_send_with_ack, .dst = "wlan", .payload = "scan now"},
        ByteOrder::host);
}

TEST_F(ZanctlAgent, SendsAMessageToAllOverItsLink) {
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    peer_answers(class_broadcast, cmd_ack);
    peer_answers(class_registration, cmd_unregister);
    end({"broadcast", "--agent", "--name", "me", "wake up"}, "");
    expect_on_link(
        {.type = class_broadcast, .cmd = cmd_send_all, .dst = "ZAN", .payload = "wake up"},
        ByteOrder::host);
}

TEST_F(ZanctlAgent, PrintsTheCodeOfARefusal) {
    mesh_is_ready(3);
    peer_answers(class_registration, cmd_register);
    peer_answers(class_cfg, cmd_get, -42, "no such node");
    peer_answers(class_registration, cmd_unregister);
    expect_failed(run({"get", "--agent", "/x"}), exit_refused, "/x: refused (-42)");
}

TEST_F(ZanctlAgent, IsRefused) {
    mesh_is_ready(1);
    peer_answers(class_registration, cmd_register, -77);
    expect_failed(run({"get", "--agent", "--name", "me", "/x"}), exit_refused,
                  "registration as agent me: refused (-77)");
    EXPECT_TRUE(peer.wait_for_closed(1));
}

TEST_F(ZanctlAgent, LosesItsLinkWhileItRegisters) {
    mesh_is_ready(1);
    peer.hang_up_at_next_record();
    expect_failed(run({"get", "--agent", "/x"}), exit_no_daemon, "no daemon: it closed the link");
}

TEST_F(ZanctlAgent, LosesItsLinkWhileItReads) {
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    peer.hang_up_at_next_record();
    expect_failed(run({"get", "--agent", "/x"}), exit_no_daemon, "no daemon: it closed the link");
}

TEST_F(ZanctlAgent, EndsInTimeWithoutAnAnswer) {
    const std::vector<std::string> arguments = {"get", "--agent", "--timeout", "600", "/x"};
    mesh_is_ready(1);
    expect_failed(run_until_expired(arguments, 1), exit_no_answer,
                  "no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
                  "waits longer)");
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    expect_failed(run_until_expired(arguments, 3), exit_no_answer,
                  "no answer from the daemon within 10 minutes (is it busy? --timeout SECONDS "
                  "waits longer)");
    EXPECT_TRUE(peer.wait_for_closed(2));
}

TEST_F(ZanctlAgent, EndsAtASignal) {
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    Program program(zanctl_command({"get", "--agent", "--timeout", "60", "/x"}));
    peer.wait_for_records(2);
    program.signal(SIGINT);
    EXPECT_EQ(finish(program).status, 128 + SIGINT);
    EXPECT_TRUE(peer.wait_for_closed(1));
    expect_left_nothing();
}

TEST_F(ZanctlAgent, ReportsThatNothingListensAtTheAddress) {
    mesh_is_ready(1);
    write_file("/tmp/zan.socket", "1\n");
    const Ended ended = run({"get", "--agent", "/x"});
    expect_failed(ended, exit_no_daemon,
                  "no daemon: cannot connect to port 1 of 127.0.0.1 (does it serve mesh agents?)");
    EXPECT_EQ(peer.connections(), 0);
}

TEST_F(ZanctlAgent, StopsListeningWhenItsLinkEnds) {
    mesh_is_ready(1);
    peer_answers(class_registration, cmd_register);
    Program listener(zanctl_command({"listen", "--agent"}));
    ASSERT_TRUE(listener.read_error_until("zanctl: listening\n"));
    peer.hang_up();
    expect_failed(finish(listener), exit_no_daemon, "no daemon: it closed the link");
}

TEST_F(ZanctlAgent, ListensNoLongerWhenItReceivesNoRecord) {
    mesh_is_ready(2);
    peer_answers(class_registration, cmd_register);
    Program listener(zanctl_command({"listen", "--agent", "--timeout", "600"}));
    ASSERT_TRUE(listener.read_error_until("zanctl: listening\n"));
    peer.send(
        stream_bytes({.type = class_message, .cmd = cmd_get, .len = 1 << 21}, ByteOrder::network));
    peer.wait_for_records(2); // registration and unregistration, which is not answered
    expect_failed(expire(listener), exit_no_daemon,
                  "no daemon: it sent an invalid record on the link");
}

// ---- with zansim

class AgentToAgent : public WithZansim {
protected:
    static void set_mesh(const std::string &node, const std::string &value) {
        EXPECT_EQ(zanctl({"set", mesh + node, value}), "");
    }
    static void make_ready() {
        set_mesh("/Enable", "1");
        set_mesh("/DeviceRole", "Agent");
    }
};

TEST_F(AgentToAgent, PrintsWhyTheMeshIsNotReady) {
    struct State {
        std::string node;
        std::string value;
        std::string reason;
    };
    for (const auto &[node, value, reason] :
         {State{"/Enable", "0", "mesh_enable=0 role=Controller"},
          State{"/Enable", "1", "mesh_enable=1 role=Controller"},
          State{"/Status/TopologyOptimize", "1", "mesh_enable=1 role=Controller"},
          State{"/DeviceRole", "Agent", "Topology is optimizing.."},
          State{"/ReInitWifiFlag", "1", "Topology is optimizing.."},
          State{"/Status/TopologyOptimize", "0", "Mapd is initializing..."}}) {
        set_mesh(node, value);
        const Ended ended =
            run_zanctl({"get", "--agent", "--verbose", "--name", "me", "/sys/hostname"});
        EXPECT_EQ(ended.status, exit_refused);
        EXPECT_EQ(ended.output, "");
        EXPECT_THAT(ended.error,
                    testing::MatchesRegex("zan_mesh_status:" + reason + "\n" +
                                          "zan_register_agent: module=me pid=[0-9]+ fail by mesh "
                                          "not ready\n"
                                          "zanctl: registration as agent me: this device is not "
                                          "a mesh agent, or the mesh is not ready "
                                          "\\(--verbose shows which\\) \\(-2010\\)\n"));
    }
    set_mesh("/ReInitWifiFlag", "0");
    EXPECT_NE(zanctl({"get", "--agent", "/sys/hostname"}), "");
    EXPECT_EQ(zanctl({"get", "/zansim/modules"}), "1\n");
}

TEST_F(AgentToAgent, ReadsValuesOfAnyLength) {
    make_ready();
    EXPECT_EQ(zanctl({"get", "--agent", "/runtime/hw/model", mesh + "/DeviceRole"}),
              zanctl({"get", "/runtime/hw/model"}) + "Agent\n");
    const Ended ended = run_zanctl({"get", "--agent", "/none", mesh + "/DeviceRole"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "Agent\n");
    EXPECT_EQ(ended.error, "zanctl: /none: refused (-101)\n");
}

TEST_F(AgentToAgent, MessagesGoBetweenAgentsAndModulesOfQueues) {
    make_ready();
    const auto agent = listen({"--agent", "--count", "4", "wlan"});
    const auto module = listen({"--count", "3", "lan"});
    EXPECT_EQ(zanctl({"get", "/zansim/modules"}), "4\n"); // wlan twice, lan, and this one
    zanctl({"send", "--agent", "--ack", "--name", "bell", "wlan", "one"});
    zanctl({"send", "--ack", "--name", "bell", "wlan", "two"});
    zanctl({"send", "--agent", "--ack", "--name", "bell", "lan", "three"});
    zanctl({"broadcast", "--agent", "--name", "bell", "four"});
    zanctl({"broadcast", "--name", "bell", "five"});
    expect_heard(*agent, "message bell one\nmessage bell two\n"
                         "broadcast bell four\nbroadcast bell five\n");
    // Different classes may pass each other.
    EXPECT_EQ(module->wait(), exit_done);
    EXPECT_THAT(module->output(), testing::HasSubstr("message bell three\n"));
    EXPECT_THAT(module->output(), EndsWith("broadcast bell four\nbroadcast bell five\n"));
    const Ended ended = run_zanctl({"send", "--agent", "--ack", "nobody", "x"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.error, "zanctl: nobody: refused (-108)\n");
}

TEST_F(AgentToAgent, ReceivesChangesToo) {
    make_ready();
    const auto agent = listen({"--agent", "--watch", "/sys/hostname", "--count", "2", "wlan"});
    zanctl({"set", "/sys/hostname", "attic"});
    EXPECT_TRUE(agent->read_until("attic\n"));
    zanctl({"send", "--ack", "--name", "bell", "wlan", "hello"});
    expect_heard(*agent, "changed /sys/hostname attic\nmessage bell hello\n");
}

// The library then sends nothing any more, not even a farewell.
TEST_F(AgentToAgent, UnregistersWhenTheMeshIsNoLongerReady) {
    make_ready();
    const auto agent = listen({"--agent", "--verbose", "wlan"});
    set_mesh("/Enable", "0");
    agent->signal(SIGTERM);
    EXPECT_EQ(agent->wait(), exit_done);
    EXPECT_THAT(agent->error(), testing::HasSubstr("zan_unregister_agent: module=wlan"));
    EXPECT_EQ(zanctl({"get", "/zansim/modules"}), "1\n");
}

TEST_F(AgentToAgent, StopsListeningWhenTheDaemonEnds) {
    make_ready();
    const auto agent = listen({"--agent", "wlan"});
    zansim.signal(SIGTERM);
    EXPECT_EQ(agent->wait(), exit_no_daemon);
    EXPECT_THAT(agent->error(), testing::StartsWith("zanctl: listening\nzanctl: no daemon: "));
}

} // namespace
} // namespace zan::test
