// SPDX-License-Identifier: MIT
//
// Agents: modules that come over TCP.
#include "sim/raw_link.h"
#include "sim/zansim.h"

#include "support/patience.h"
#include "support/sandbox.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <random>
#include <utility>

namespace zan::test {

namespace {

constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";

class LinkBase : public ZansimTest {
protected:
    std::unique_ptr<RawLink> agent(const std::string &name,
                                   RawLink::Buffer buffer = RawLink::Buffer::usual) {
        auto made = std::make_unique<RawLink>(name, buffer);
        EXPECT_TRUE(same_bytes(made->announce(cmd_register),
                               made->answer(zansim(), class_registration, cmd_register, 1)));
        return made;
    }

    // What the agent gets next is this answer.
    void expect_answer(const RawLink &link, int type, int cmd, int result,
                       const std::string &payload = {}) {
        EXPECT_TRUE(same_bytes(link.receive(), link.answer(zansim(), type, cmd, result, payload)))
            << "to " << link.name();
    }

    void expect_modules(int count) {
        EXPECT_TRUE(eventually([&] {
            return module().get("/zansim/modules").payload() == std::to_string(count);
        })) << "there are "
            << module().get("/zansim/modules").payload();
    }

    // Everything that was sent before has been served.
    void expect_nothing_for(const RawLink &link) {
        EXPECT_TRUE(same_bytes(link.call(class_cfg, cmd_empty, ""),
                               link.answer(zansim(), class_cfg, cmd_empty, 1)));
        EXPECT_EQ(link.waiting(), 0U);
    }

    std::string dropped() { return module().get("/zansim/dropped").payload(); }
};

// ---- where it is ---------------------------------------------------------------

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

class Place : public LinkBase {
protected:
    Place() { autostart_ = false; }

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

TEST_F(Place, IsTheUsualPortOfTheLoopbackAddress) {
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

TEST_F(Place, IsTheNextPortThatIsFree) {
    const int first = listen_on("127.0.0.1", 2679);
    const int second = listen_on("0.0.0.0", 2680);
    start(simple);
    expect_served_at(2681);
    close(first);
    close(second);
}

TEST_F(Place, IsTheSameAfterARunWhoseLinksWereOpen) {
    for (int run = 0; run < 2; ++run) {
        start(simple);
        const auto open = agent("AGENT");
        EXPECT_EQ(read_file(port_file), "2679\n");
        EXPECT_EQ(zansim().stop(), 0);
        EXPECT_TRUE(open->ended());
    }
}

TEST_F(Place, IsTakenOverFromAKilledRun) {
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

TEST_F(Place, OfADaemonThatCameAfterItIsLeftAlone) {
    start(simple);
    write_file(port_file, "2690\n");
    write_file(address_file, "192.168.0.1\n");
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(read_file(port_file), "2690\n");
    EXPECT_EQ(read_file(address_file), "192.168.0.1\n");
}

TEST_F(Place, IsNotReachedThroughALinkInTmp) {
    write_file("/tmp/zan_precious", "precious");
    ASSERT_EQ(symlink("/tmp/zan_precious", port_file), 0);
    ASSERT_EQ(symlink("/tmp/zan_precious", address_file), 0);
    start(simple);
    expect_served_at(2679);
    EXPECT_EQ(read_file("/tmp/zan_precious"), "precious");
}

TEST_F(Place, IsNoneWithoutALoopbackAddress) {
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

// ---- registration --------------------------------------------------------------

using Agent = LinkBase;

TEST_F(Agent, RegistersAndLeavesOnItsLink) {
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

TEST_F(Agent, IsUnderstoodInEitherOrderAndAnsweredInOne) {
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

TEST_F(Agent, IsRefusedLikeAModuleOfAQueue) {
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

TEST_F(Agent, ThatHangsUpIsForgottenWithItsSubscriptions) {
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

TEST_F(Agent, ReadsTheLongestValue) {
    const std::string longest(35000, 'v');
    start(tree_file("{\"long\": \"" + longest + "\"}"));
    const RawLink link("AGENT");
    for (int again = 0; again < 3; ++again)
        EXPECT_EQ(link.call(class_cfg, cmd_get, "/long").substr(at::data), longest);
}

TEST_F(Agent, IsToldOfChangesAndEvents) {
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

TEST_F(Agent, HandsOverACommandLine) {
    const RawLink link("AGENT");
    link.send(link.request(class_control, 0, "touch /tmp/zan_executed"), ByteOrder::host);
    expect_nothing_for(link);
    expect_value("/zansim/last_command_line", "touch /tmp/zan_executed");
    EXPECT_FALSE(file_exists("/tmp/zan_executed"));
}

TEST_F(Agent, MayWriteItsRecordsInPiecesAndInHeaps) {
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

TEST_F(Agent, IsOneOfMany) {
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

TEST_F(Agent, BeyondTheDescriptorsThereAreIsRefusedUntilAnotherLeaves) {
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

// ---- messages ------------------------------------------------------------------

class Mix : public LinkBase {
protected:
    void SetUp() override {
        LinkBase::SetUp();
        link = agent("AGENT");
        peer = agent("PEER");
        other = another_module("OTHER");
    }

    // With something in every field that its sender may fill.
    static Fields message(int type, int cmd, std::string src, std::string dst,
                          std::string payload) {
        return {.type = type,
                .cmd = cmd,
                .dst = std::move(dst),
                .src = std::move(src),
                .pid = 0x01020304,
                .time = 1234567890,
                .result = 3,
                .aux = -5,
                .arg = 7,
                .payload = std::move(payload)};
    }

    static void expect_delivered(const RawLink &receiver, const Fields &sent) {
        EXPECT_TRUE(same_bytes(receiver.receive(), stream_bytes(sent, ByteOrder::network)))
            << "to " << receiver.name();
    }
    static void expect_delivered(const RawModule &receiver, Fields sent) {
        sent.mtype = sent.type;
        EXPECT_TRUE(same_record(await_record(receiver.queue(), sent.type), sent))
            << "to " << receiver.name();
    }

    void send_from_queue(Fields fields) {
        fields.mtype = module().queue();
        module().send(fields);
    }

    std::unique_ptr<RawLink> link;
    std::unique_ptr<RawLink> peer;
    std::unique_ptr<RawModule> other;
};

TEST_F(Mix, AMessageReachesAModuleOfEitherKindFromEither) {
    for (const int cmd : {cmd_send, cmd_send_with_ack}) {
        for (const std::string &payload : {std::string(), std::string("a\0b", 3),
                                           std::string(1024, 'x'), std::string(35000, 'y')}) {
            if (payload.size() > 1024 && !why_no_long_records().empty())
                continue;
            for (const std::string to : {"PEER", "OTHER"}) {
                const auto expect_it = [&](const Fields &sent) {
                    if (to == "PEER")
                        expect_delivered(*peer, sent);
                    else
                        expect_delivered(*other, sent);
                };
                const Fields by_link = message(class_message, cmd, "AGENT", to, payload);
                link->send(by_link, ByteOrder::host);
                if (cmd == cmd_send_with_ack)
                    expect_answer(*link, class_message, cmd_ack, 1);
                expect_it(by_link);
                const Fields by_queue = message(class_message, cmd, "TESTER", to, payload);
                send_from_queue(by_queue);
                if (cmd == cmd_send_with_ack) {
                    EXPECT_TRUE(same_record(await_record(module().queue(), class_message),
                                            module().answer(class_message, cmd_ack, 1)));
                }
                expect_it(by_queue);
            }
        }
    }
    for (const RawLink *each : {link.get(), peer.get()})
        expect_nothing_for(*each);
    EXPECT_EQ(queue_length(other->queue()), 0);
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(Mix, AMessageToAllReachesAllButItsSender) {
    const Fields by_link = message(class_broadcast, cmd_send_all, "AGENT", "", "one");
    link->send(by_link, ByteOrder::host);
    expect_answer(*link, class_broadcast, cmd_ack, 1);
    for (const RawModule *receiver : {&module(), other.get()})
        expect_delivered(*receiver, by_link);
    expect_delivered(*peer, by_link);

    const Fields by_queue = message(class_broadcast, cmd_send_all, "TESTER", "", "two");
    send_from_queue(by_queue);
    EXPECT_TRUE(same_record(await_record(module().queue(), class_broadcast),
                            module().answer(class_broadcast, cmd_ack, 1)));
    expect_delivered(*other, by_queue);
    for (const RawLink *receiver : {link.get(), peer.get()}) {
        expect_delivered(*receiver, by_queue);
        expect_nothing_for(*receiver);
    }
    EXPECT_EQ(queue_length(module().queue()), 0);
}

TEST_F(Mix, AMessageToAnAgentThatHasGoneIsRefused) {
    peer->hang_up();
    expect_modules(3);
    const Fields sent = message(class_message, cmd_send_with_ack, "AGENT", "PEER", "x");
    link->send(sent, ByteOrder::host);
    expect_answer(*link, class_message, cmd_ack, -108, "unknown module: PEER");
}

// What comes for a module that has both comes on its link, as long as it has one.
TEST_F(Mix, AModuleOfAQueueThatIsAnAgentTooIsReachedOnItsLink) {
    auto both = agent("OTHER");
    for (const int type : {class_message, class_broadcast}) {
        const int cmd = type == class_message ? cmd_send_with_ack : cmd_send_all;
        const Fields sent = message(type, cmd, "AGENT", "OTHER", "x");
        link->send(sent, ByteOrder::host);
        expect_answer(*link, type, cmd_ack, 1);
        expect_delivered(*both, sent);
        expect_nothing_for(*both);
    }
    EXPECT_EQ(queue_length(other->queue()), 0);
    // And on the last one that it has opened.
    const auto again = agent("OTHER");
    const Fields sent = message(class_message, cmd_send, "AGENT", "OTHER", "y");
    link->send(sent, ByteOrder::host);
    expect_delivered(*again, sent);
    again->announce(cmd_unregister);
    both->announce(cmd_unregister);
    link->send(sent, ByteOrder::host);
    expect_delivered(*other, sent);
}

TEST_F(Mix, AMessageToAllComesToNoLinkOfItsSender) {
    const auto both = agent("TESTER");
    const Fields sent = message(class_broadcast, cmd_send_all, "TESTER", "", "x");
    send_from_queue(sent);
    EXPECT_TRUE(same_record(await_record(module().queue(), class_broadcast),
                            module().answer(class_broadcast, cmd_ack, 1)));
    expect_delivered(*link, sent);
    expect_nothing_for(*both);
}

// ---- hostile peers ---------------------------------------------------------------

class Hostile : public LinkBase {
protected:
    // Whatever the peer has done, the others are served.
    void expect_service() {
        expect_value("/sys/hostname", "router");
        const auto sound = agent("SOUND");
        EXPECT_EQ(sound->call(class_cfg, cmd_get, "/sys/hostname").substr(at::data), "router");
        EXPECT_EQ(sound->announce(cmd_unregister).size(), 100U);
    }
};

TEST_F(Hostile, ALengthThatNoRecordHasIsRefusedAndEndsTheLink) {
    for (const std::int32_t len : {-1, -100, INT_MIN, 35001, 2 * 1024 * 1024, INT_MAX}) {
        for (const ByteOrder order : {ByteOrder::network, ByteOrder::host}) {
            const auto link = agent("AGENT");
            Fields lying = link->request(class_cfg, cmd_get, "/sys/hostname");
            lying.len = len;
            // What follows is not understood any more.
            EXPECT_TRUE(link->send(
                stream_bytes(lying, order) +
                stream_bytes(link->request(class_control, 0, "reboot"), ByteOrder::host)));
            expect_answer(*link, class_cfg, cmd_get, -106,
                          "malformed record: len is " + std::to_string(len) + ", not 0 to 35000");
            EXPECT_TRUE(link->ended());
            expect_modules(1);
            // Nor does it fill anything.
            link->send_some(std::string(100000, 'x'));
        }
    }
    expect_value("/zansim/command_lines", "0");
    expect_service();
}

TEST_F(Hostile, AClassThatTellsNoByteOrderEndsTheLink) {
    for (const std::int32_t type : {0, -1, 256, 0x01000001}) {
        const RawLink link("AGENT");
        link.send(link.request(type, 1, ""), ByteOrder::network);
        EXPECT_TRUE(same_bytes(link.receive(),
                               link.answer(zansim(), type, 1, -106,
                                           "malformed record: its class tells no byte order")));
        EXPECT_TRUE(link.ended());
    }
    expect_service();
}

TEST_F(Hostile, AnUnknownClassAndANameWithoutEndAreRefusedAndNoMore) {
    const auto link = agent("AGENT");
    for (const int type : {6, 255}) {
        link->send(link->request(type, 1, "x"), ByteOrder::network);
        expect_answer(*link, type, 1, -107, "unknown class " + std::to_string(type));
    }
    Fields endless = link->request(class_message, cmd_send_with_ack, "x");
    endless.dst = std::string(32, 'd');
    link->send(endless, ByteOrder::host);
    expect_answer(*link, class_message, cmd_ack, -106,
                  "malformed record: destination name is not terminated");
    expect_nothing_for(*link);
}

TEST_F(Hostile, HalfARecordAndThenSilenceHoldsNobodyUp) {
    const RawLink bare("SILENT");
    const auto link = agent("AGENT");
    const std::string whole =
        stream_bytes(link->request(class_cfg, cmd_get, "/sys/hostname"), ByteOrder::network);
    for (const std::size_t size : {1U, 99U, 100U, 101U}) {
        const RawLink silent("SILENT");
        EXPECT_TRUE(silent.send(whole.substr(0, size)));
        expect_service();
    }
    EXPECT_TRUE(link->send(whole.substr(0, 105)));
    expect_service();
    EXPECT_TRUE(link->send(whole.substr(105)));
    expect_answer(*link, class_cfg, cmd_get, 1, "router");
}

TEST_F(Hostile, APeerThatNeverReadsLosesMessagesAndHoldsNobodyUp) {
    const auto deaf = agent("DEAF", RawLink::Buffer::small);
    const auto other = agent("OTHER");
    const std::string text(1024, 'x');
    const auto send_message = [&](int number) {
        Fields fields = other->request(class_message, cmd_send_with_ack, text);
        fields.dst = "DEAF";
        fields.arg = number;
        other->send(fields, ByteOrder::host);
        return other->receive();
    };
    int accepted = 0;
    std::string ack = send_message(accepted);
    const std::string yes = other->answer(zansim(), class_message, cmd_ack, 1);
    for (; ack == yes && accepted < 10000; ++accepted)
        ack = send_message(accepted + 1);
    EXPECT_TRUE(same_bytes(ack, other->answer(zansim(), class_message, cmd_ack, -120,
                                              "module cannot be reached: DEAF")));
    EXPECT_EQ(dropped(), "1");
    expect_service();
    // Once it reads it has what was acknowledged, in order.
    for (int number = 0; number < accepted; ++number) {
        const std::string record = deaf->receive();
        ASSERT_EQ(record.size(), 1124U);
        EXPECT_EQ(record.substr(at::arg, 4),
                  stream_bytes({.arg = number}, ByteOrder::network).substr(at::arg, 4));
    }
    EXPECT_TRUE(zansim().program().read_error_until("read again"));
    EXPECT_EQ(send_message(1), yes);
    EXPECT_EQ(deaf->receive().size(), 1124U);
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_EQ(errors(),
              "zansim: link 1 of DEAF is full and not being read: records to it are dropped\n"
              "zansim: link 1 is being read again: 1 records were dropped\n");
}

TEST_F(Hostile, APeerThatReadsNoAnswersIsNotServedUntilItDoes) {
    start(tree_file("{\"long\": \"" + std::string(30000, 'v') +
                    "\", \"sys\": {\"hostname\": "
                    "\"router\"}}"));
    const RawLink deaf("DEAF", RawLink::Buffer::small);
    const std::string request =
        stream_bytes(deaf.request(class_cfg, cmd_get, "/long"), ByteOrder::network);
    // Far more than would ever be kept for it.
    std::string requests;
    for (int i = 0; i < 1000; ++i)
        requests += request;
    std::string_view rest = requests;
    rest.remove_prefix(deaf.send_some(rest));
    // Until only the questions of this test are counted, several times in a row.
    const auto served = [&] { return std::stoi(module().get("/zansim/requests").payload()); };
    int before = served();
    int quiet = 0;
    EXPECT_TRUE(eventually([&] {
        const int now = served();
        quiet = now == std::exchange(before, now) + 1 ? quiet + 1 : 0;
        return quiet == 20;
    }));
    EXPECT_LT(before, 900);
    expect_service();
    for (int i = 0; i < 1000; ++i) {
        rest.remove_prefix(deaf.send_some(rest));
        ASSERT_EQ(deaf.receive().size(), 30100U) << i;
    }
    EXPECT_TRUE(rest.empty());
    EXPECT_EQ(dropped(), "0");
}

TEST_F(Hostile, APeerThatReadsNoDelayedAnswersLosesThem) {
    start(tree_file("{\"long\": \"" + std::string(30000, 'v') +
                    "\", \"sys\": {\"hostname\": \"router\"}}"),
          {"--fault", "delay 200ms path=/long"});
    const RawLink deaf("DEAF", RawLink::Buffer::small);
    constexpr int requests = 500;
    std::string sent;
    for (int i = 0; i < requests; ++i)
        sent += stream_bytes(deaf.request(class_cfg, cmd_get, "/long"), ByteOrder::network);
    ASSERT_TRUE(deaf.send(sent));
    ASSERT_TRUE(eventually([&] { return dropped() != "0"; }));
    expect_service();
    // Each was answered or dropped: behind a dropped one, others wait to be read.
    for (int answers = 0; answers + std::stoi(dropped()) < requests; ++answers)
        ASSERT_EQ(deaf.receive().size(), 30100U) << answers;
    EXPECT_TRUE(zansim().program().read_error_until("read again"));
}

TEST_F(Hostile, APeerThatGoesWhileMuchWaitsForItIsForgotten) {
    auto deaf = agent("DEAF", RawLink::Buffer::small);
    const auto other = agent("OTHER");
    for (int i = 0; i < 10000 && dropped() == "0"; ++i) {
        Fields fields = other->request(class_message, cmd_send, std::string(4000, 'x'));
        fields.dst = "DEAF";
        for (int j = 0; j < 10; ++j)
            other->send(fields, ByteOrder::host);
    }
    EXPECT_NE(dropped(), "0");
    deaf->hang_up();
    expect_modules(2);
    expect_service();
}

TEST_F(Hostile, RandomBytesNeverEndIt) {
    std::mt19937 random(4711); // the same bytes in every run
    for (int round = 0; round < 200; ++round) {
        const RawLink link("RANDOM");
        std::string bytes(random() % 3000, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        if (round % 2 == 0) {
            // As far as the services.
            Fields fields = link.request(static_cast<int>(random() % 10),
                                         static_cast<int>(random() % 40), bytes);
            fields.dst = round % 4 == 0 ? "TESTER" : "RANDOM";
            bytes = stream_bytes(fields, ByteOrder::host) + bytes.substr(0, 50);
        }
        link.send(bytes);
    }
    expect_modules(1);
    while (raw_receive(module().queue())) {
    }
    expect_service();
}

} // namespace

} // namespace zan::test
