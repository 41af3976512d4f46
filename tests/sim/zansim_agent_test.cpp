// SPDX-License-Identifier: MIT
//
// Agents: modules that connect over TCP.
#include "sim/tcp_test.h"

#include "support/sandbox.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

namespace zan::test {

namespace {

constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";

int listen_on(const char *host, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_aton(host, &address.sin_addr);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd, 1), 0);
    return fd;
}

class AgentPort : public TcpTest {
protected:
    AgentPort() { autostart_ = false; }

    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }

    void expect_served_at(int port) {
        EXPECT_EQ(read_file(port_file), std::to_string(port) + "\n");
        EXPECT_EQ(read_file(address_file), "127.0.0.1\n");
        EXPECT_EQ(agent("AGENT")->call(class_cfg, cmd_get, "/a").substr(at::data), "1");
        EXPECT_NE(zansim().program().output().find(", port " + std::to_string(port) + ","),
                  std::string::npos)
            << zansim().program().output();
    }

    const std::string simple = tree_file(R"({"a": 1})");
};

TEST_F(AgentPort, IsTheDefaultPortOnLoopback) {
    start(simple);
    expect_served_at(2679);
    // And no other address of this machine.
    const int elsewhere = listen_on("127.0.0.2", 2679);
    close(elsewhere);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "");
    EXPECT_FALSE(file_exists(port_file));
    EXPECT_FALSE(file_exists(address_file));
}

TEST_F(AgentPort, IsTheNextFreePort) {
    const int first = listen_on("127.0.0.1", 2679);
    const int second = listen_on("0.0.0.0", 2680);
    start(simple);
    expect_served_at(2681);
    close(first);
    close(second);
}

TEST_F(AgentPort, IsTheSameAfterARunWithOpenConnections) {
    for (int run = 0; run < 2; ++run) {
        start(simple);
        const auto open = agent("AGENT");
        EXPECT_EQ(read_file(port_file), "2679\n");
        EXPECT_EQ(zansim().stop(), 0);
        EXPECT_TRUE(open->ended());
    }
}

TEST_F(AgentPort, IsTakenOverFromAKilledRun) {
    start(simple);
    const auto open = agent("AGENT");
    zansim().program().signal(SIGKILL);
    zansim().program().wait();
    EXPECT_TRUE(file_exists(port_file));
    write_file(port_file, "4711\n");
    write_file(address_file, "192.168.0.1\n");
    start(simple);
    expect_served_at(2679);
}

TEST_F(AgentPort, FilesOfALaterDaemonAreKept) {
    start(simple);
    write_file(port_file, "2690\n");
    write_file(address_file, "192.168.0.1\n");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(read_file(port_file), "2690\n");
    EXPECT_EQ(read_file(address_file), "192.168.0.1\n");
}

TEST_F(AgentPort, FilesDoNotFollowSymbolicLinks) {
    write_file("/tmp/zan_precious", "precious");
    ASSERT_EQ(symlink("/tmp/zan_precious", port_file), 0);
    ASSERT_EQ(symlink("/tmp/zan_precious", address_file), 0);
    start(simple);
    expect_served_at(2679);
    EXPECT_EQ(read_file("/tmp/zan_precious"), "precious");
}

TEST_F(AgentPort, IsNoneWithoutLoopbackAddress) {
    ZAN_SKIP_WITHOUT_ROOT();
    ASSERT_EQ(system("ip link set lo down && ip address flush dev lo"), 0);
    write_file(port_file, "4711\n");
    write_file(address_file, "127.0.0.1\n");
    start(simple);
    EXPECT_FALSE(file_exists(port_file));
    EXPECT_FALSE(file_exists(address_file));
    expect_value("/a", "1");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "zansim: cannot serve agents: no port on 127.0.0.1: Cannot assign "
                        "requested address\n");
}

using Agent = TcpTest;

TEST_F(Agent, RegistersAndUnregistersOverItsConnection) {
    const RawLink link("AGENT");
    link.send({.type = class_registration,
               .cmd = cmd_register,
               .src = "AGENT",
               .pid = 4711,
               .payload = std::string(4, '\0')},
              ByteOrder::network);
    expect_answer(link, class_registration, cmd_register, 1);
    expect_value("/zansim/modules", "2");
    EXPECT_EQ(module().call(class_cfg, cmd_pid, "AGENT").payload(), "4711");
    // The library leaves in the order of its machine.
    link.send({.type = class_registration,
               .cmd = cmd_unregister,
               .src = "AGENT",
               .pid = 4711,
               .payload = std::string(4, '\0')},
              ByteOrder::host);
    expect_answer(link, class_registration, cmd_unregister, 1);
    expect_value("/zansim/modules", "1");
    expect_nothing_for(link);
}

TEST_F(Agent, MaySendEitherByteOrderAndIsAnsweredInNetworkOrder) {
    const auto other = another_module("OTHER");
    const RawLink link("AGENT");
    struct Case {
        int type;
        int cmd;
        int answer;
        std::string request;
        std::string payload;
    };
    for (const auto &[type, cmd, answer, request, payload] :
         {Case{class_registration, cmd_register, cmd_register, std::string(4, '\0'), ""},
          Case{class_cfg, cmd_get, cmd_get, "/sys/hostname", "router"},
          Case{class_cfg, cmd_empty, cmd_empty, "", ""},
          Case{class_message, cmd_send_with_ack, cmd_ack, "hello", ""},
          Case{class_broadcast, cmd_send_all, cmd_ack, "hello", ""},
          Case{class_registration, cmd_unregister, cmd_unregister, std::string(4, '\0'), ""}}) {
        for (const ByteOrder order : {ByteOrder::network, ByteOrder::host}) {
            // Leaves and comes only once.
            const bool again = type == class_registration && order == ByteOrder::host;
            if (again)
                link.announce(cmd == cmd_register ? cmd_unregister : cmd_register);
            Fields fields = link.request(type, cmd, request);
            if (type == class_message)
                fields.dst = "OTHER";
            link.send(fields, order);
            expect_answer(link, type, answer, 1, payload);
        }
    }
}

TEST_F(Agent, IsRefusedLikeAModuleWithAQueue) {
    const RawLink link("AGENT");
    EXPECT_TRUE(same_bytes(
        link.announce(cmd_unregister),
        link.answer(zansim(), class_registration, cmd_unregister, -114, "not registered: link 1")));
    const RawLink nameless("");
    EXPECT_TRUE(same_bytes(nameless.announce(cmd_register),
                           nameless.answer(zansim(), class_registration, cmd_register, -108,
                                           "no module name for link 2")));
    EXPECT_TRUE(
        same_bytes(link.call(class_notify, cmd_watch, watch_payload(0, 0, "/sys")),
                   link.answer(zansim(), class_notify, cmd_watch, -114, "not registered: link 1")));
    expect_value("/zansim/modules", "1");
}

TEST_F(Agent, IsDroppedWithItsSubscriptionsWhenItDisconnects) {
    const auto link = agent("AGENT");
    link->send(link->request(class_notify, cmd_watch, watch_payload(0, 0, "/sys")),
               ByteOrder::network);
    expect_answer(*link, class_notify, cmd_watch, 1);
    expect_value("/zansim/subscriptions", "1");
    link->hang_up();
    expect_modules(1);
    expect_value("/zansim/subscriptions", "0");
}

TEST_F(Agent, ReadsTheConfigurationWithoutRegistering) {
    const RawLink link("AGENT");
    EXPECT_TRUE(same_bytes(link.call(class_cfg, cmd_get, "/sys/hostname"),
                           link.answer(zansim(), class_cfg, cmd_get, 1, "router")));
    // An empty value is a NUL, as on the queues.
    EXPECT_TRUE(same_bytes(link.call(class_cfg, cmd_get, "/sys/note"),
                           link.answer(zansim(), class_cfg, cmd_get, 1, std::string(1, '\0'))));
    EXPECT_TRUE(same_bytes(link.call(class_cfg, cmd_get, "/nope"),
                           link.answer(zansim(), class_cfg, cmd_get, -101, "no such node: /nope")));
    EXPECT_TRUE(
        same_bytes(link.call(class_cfg, 99, ""),
                   link.answer(zansim(), class_cfg, 99, -107, "unknown command 99 of class CFG")));
    expect_nothing_for(link);
}

TEST_F(Agent, ReadsAValueOfMaximumLength) {
    const std::string longest(35000, 'v');
    start(tree_file("{\"long\": \"" + longest + "\"}"));
    const RawLink link("AGENT");
    for (int again = 0; again < 3; ++again)
        EXPECT_EQ(link.call(class_cfg, cmd_get, "/long").substr(at::data), longest);
}

TEST_F(Agent, ReceivesChangesAndEvents) {
    const auto link = agent("AGENT");
    link->send(link->request(class_notify, cmd_watch, watch_payload(0, 3, "/sys/level")),
               ByteOrder::network);
    expect_answer(*link, class_notify, cmd_watch, 1);
    link->send(link->request(class_notify, cmd_await_event, number_bytes(17)), ByteOrder::network);
    expect_answer(*link, class_notify, cmd_await_event, 1);
    module().set("/sys/level", "5");
    module().set("/zansim/event", "17");
    std::string change = link->receive();
    std::string event = link->receive();
    const Fields told = {.type = class_notify, .dst = "AGENT", .src = "ZAN", .pid = zansim().pid()};
    Fields expected = told;
    expected.cmd = cmd_value_changed;
    expected.payload = "TESTER /sys/level 5 1 3 /sys/level";
    // The time of the notification is of no interest here.
    change.replace(at::time, 4, 4, '\0');
    event.replace(at::time, 4, 4, '\0');
    EXPECT_TRUE(same_bytes(change, stream_bytes(expected, ByteOrder::network)));
    expected.cmd = cmd_event;
    expected.payload = number_bytes(17);
    EXPECT_TRUE(same_bytes(event, stream_bytes(expected, ByteOrder::network)));
}

TEST_F(Agent, SendsACommandLine) {
    const RawLink link("AGENT");
    link.send(link.request(class_control, 0, "touch /tmp/zan_executed"), ByteOrder::host);
    expect_nothing_for(link);
    expect_value("/zansim/last_command_line", "touch /tmp/zan_executed");
    EXPECT_FALSE(file_exists("/tmp/zan_executed"));
}

TEST_F(Agent, MaySendRecordsInPiecesAndManyAtOnce) {
    const RawLink link("AGENT");
    const std::string request =
        stream_bytes(link.request(class_cfg, cmd_get, "/sys/hostname"), ByteOrder::network);
    for (const char byte : request)
        EXPECT_TRUE(link.send(std::string(1, byte)));
    expect_answer(link, class_cfg, cmd_get, 1, "router");
    std::string heap;
    for (int i = 0; i < 1000; ++i)
        heap += request;
    EXPECT_TRUE(link.send(heap));
    for (int i = 0; i < 1000; ++i)
        expect_answer(link, class_cfg, cmd_get, 1, "router");
}

TEST_F(Agent, IsServedAmongManyAgents) {
    constexpr int count = 200;
    std::vector<std::unique_ptr<RawLink>> agents;
    for (int i = 0; i < count; ++i)
        agents.push_back(agent("AGENT" + std::to_string(i)));
    expect_value("/zansim/modules", std::to_string(count + 1));
    // Each to the next one, all at once.
    for (int i = 0; i < count; ++i) {
        Fields fields = agents[static_cast<std::size_t>(i)]->request(class_message, cmd_send,
                                                                     "from " + std::to_string(i));
        fields.dst = "AGENT" + std::to_string((i + 1) % count);
        agents[static_cast<std::size_t>(i)]->send(fields, ByteOrder::host);
    }
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(agents[static_cast<std::size_t>(i)]->receive().substr(at::data),
                  "from " + std::to_string((i + count - 1) % count));
    agents.clear();
    expect_modules(1);
}

TEST_F(Agent, IsRefusedWithoutFreeDescriptorsUntilAnotherLeaves) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 64; // 32 links, and 32 for zansim's own
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    start(tree_file(R"({"a": 1})"));
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<std::unique_ptr<RawLink>> agents;
    for (int i = 0; i < 32; ++i)
        agents.push_back(agent("AGENT" + std::to_string(i)));
    for (int again = 0; again < 2; ++again) {
        const RawLink refused("REFUSED");
        EXPECT_TRUE(refused.ended());
    }
    EXPECT_EQ(agents[0]->call(class_cfg, cmd_get, "/a").substr(at::data), "1");
    agents.pop_back();
    expect_modules(32);
    agents.push_back(agent("LATE"));
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(), "zansim: cannot accept another link: 32 are open\n");
}

} // namespace

} // namespace zan::test
