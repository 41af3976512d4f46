// SPDX-License-Identifier: MIT
//
// Messages to and from agents.
#include "sim/tcp_test.h"

#include "support/sandbox.h"

#include <utility>

namespace zan::test {

namespace {

class AgentMessage : public TcpTest {
protected:
    void SetUp() override {
        TcpTest::SetUp();
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

TEST_F(AgentMessage, IsDeliveredBetweenQueuesAndConnections) {
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

TEST_F(AgentMessage, ToAllIsDeliveredToAllButItsSender) {
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

TEST_F(AgentMessage, ToADisconnectedAgentIsRefused) {
    peer->hang_up();
    expect_modules(3);
    const Fields sent = message(class_message, cmd_send_with_ack, "AGENT", "PEER", "x");
    link->send(sent, ByteOrder::host);
    expect_answer(*link, class_message, cmd_ack, -108, "unknown module: PEER");
}

// A module with a queue and a connection is reached over the connection while it is open.
TEST_F(AgentMessage, PrefersTheConnectionOfAModuleThatAlsoHasAQueue) {
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

TEST_F(AgentMessage, ToAllSkipsEveryConnectionOfItsSender) {
    const auto both = agent("TESTER");
    const Fields sent = message(class_broadcast, cmd_send_all, "TESTER", "", "x");
    send_from_queue(sent);
    EXPECT_TRUE(same_record(await_record(module().queue(), class_broadcast),
                            module().answer(class_broadcast, cmd_ack, 1)));
    expect_delivered(*link, sent);
    expect_nothing_for(*both);
}

} // namespace

} // namespace zan::test
