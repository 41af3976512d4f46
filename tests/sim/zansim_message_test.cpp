// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/patience.h"

#include <climits>

namespace zan::test {

namespace {

class Message : public ZansimTest {
protected:
    void SetUp() override {
        ZansimTest::SetUp();
        other = another_module("OTHER");
    }

    // A message with something in every field that its sender may fill.
    static Fields from(const RawModule &sender, int type, int cmd, std::string dst,
                       std::string payload) {
        Fields fields = sender.request(type, cmd, std::move(payload));
        fields.dst = std::move(dst);
        fields.time = 1234567890;
        fields.result = 3;
        fields.aux = -5;
        fields.arg = 7;
        return fields;
    }
    Fields message(int type, int cmd, std::string dst, std::string payload) {
        return from(module(), type, cmd, std::move(dst), std::move(payload));
    }

    // The next message that waits for the module is this one, as it was sent.
    static void expect_delivered(const RawModule &receiver, Fields sent) {
        sent.mtype = sent.type;
        EXPECT_TRUE(same_record(await_record(receiver.queue(), sent.type), sent))
            << "to " << receiver.name();
    }

    SizedRecord send_and_await_ack(const Fields &fields) {
        return module().call(make_record(fields));
    }
    void expect_acknowledged(const Fields &fields) {
        EXPECT_TRUE(
            same_record(send_and_await_ack(fields), module().answer(fields.type, cmd_ack, 1)));
    }
    void expect_refused_with(const Fields &fields, int code, const std::string &text) {
        EXPECT_TRUE(same_record(send_and_await_ack(fields),
                                module().answer(fields.type, cmd_ack, code, text)));
    }

    // Nothing waits once zansim has served everything that was sent before.
    void expect_nothing_for(const RawModule &receiver) {
        expect_value("/sys/level", "4");
        EXPECT_EQ(queue_length(receiver.queue()), 0) << receiver.name();
    }

    std::unique_ptr<RawModule> other;
};

TEST_F(Message, ReachesTheModuleAsItWasWritten) {
    const Fields sent = message(class_message, cmd_send, "OTHER", std::string("a\0b", 3));
    module().send(sent);
    expect_delivered(*other, sent);
    expect_nothing_for(*other);
    expect_nothing_for(module());
}

TEST_F(Message, IsAcknowledgedOnceItIsOnItsWay) {
    const Fields sent = message(class_message, cmd_send_with_ack, "OTHER", "hello");
    expect_acknowledged(sent);
    expect_delivered(*other, sent);
    expect_nothing_for(*other);
    expect_nothing_for(module());
}

TEST_F(Message, HasAnyLengthThatARecordHas) {
    for (const std::size_t length : {0U, 1U, 1023U, 1024U, 1025U, 4000U}) {
        const Fields sent =
            message(class_message, cmd_send_with_ack, "OTHER", std::string(length, 'x'));
        expect_acknowledged(sent);
        expect_delivered(*other, sent);
    }
}

TEST_F(Message, ReachesAModuleWithTheLongestName) {
    const std::string name(31, 'n');
    const auto longest = another_module(name);
    const Fields sent = message(class_message, cmd_send_with_ack, name, "x");
    expect_acknowledged(sent);
    expect_delivered(*longest, sent);
}

TEST_F(Message, MayComeFromAQueueThatHasNotRegistered) {
    const RawModule stranger(zansim(), "STRANGER");
    const Fields sent = from(stranger, class_message, cmd_send_with_ack, "OTHER", "x");
    EXPECT_TRUE(
        same_record(stranger.call(make_record(sent)), stranger.answer(class_message, cmd_ack, 1)));
    expect_delivered(*other, sent);
}

TEST_F(Message, MayGoToItsSender) {
    const Fields sent = message(class_message, cmd_send, "TESTER", "x");
    module().send(sent);
    expect_delivered(module(), sent);
}

TEST_F(Message, ToAnUnknownModuleIsRefused) {
    for (const std::string name : {"NOBODY", "other", "ZAN", ""})
        expect_refused_with(message(class_message, cmd_send_with_ack, name, "x"), -108,
                            "unknown module: " + name);
    module().send(message(class_message, cmd_send, "NOBODY", "x"));
    expect_nothing_for(module());
    expect_nothing_for(*other);
}

TEST_F(Message, ToAModuleThatHasUnregisteredIsRefused) {
    EXPECT_EQ(other->announce(cmd_unregister).record.result(), 1);
    expect_refused_with(message(class_message, cmd_send_with_ack, "OTHER", "x"), -108,
                        "unknown module: OTHER");
}

TEST_F(Message, ToAModuleWhoseQueueHasGoneIsRefusedAndForgetsIt) {
    expect_value("/zansim/modules", "2");
    other->remove_queue();
    expect_refused_with(message(class_message, cmd_send_with_ack, "OTHER", "x"), -108,
                        "unknown module: OTHER");
    expect_value("/zansim/modules", "1");
}

TEST_F(Message, ReachesAModuleThatHasStartedAgain) {
    other->remove_queue();
    const auto again = another_module("OTHER");
    const Fields sent = message(class_message, cmd_send_with_ack, "OTHER", "x");
    expect_acknowledged(sent);
    expect_delivered(*again, sent);
    const Fields all = message(class_broadcast, cmd_send_all, "", "y");
    expect_acknowledged(all);
    expect_delivered(*again, all);
}

TEST_F(Message, GoesToTheQueueOfTheLowestInstance) {
    const RawModule second(zansim(), "PAIR");
    EXPECT_EQ(second.announce(cmd_register, 1).record.result(), 1);
    const RawModule first(zansim(), "PAIR");
    EXPECT_EQ(first.announce(cmd_register, 0).record.result(), 1);
    const Fields sent = message(class_message, cmd_send, "PAIR", "x");
    module().send(sent);
    expect_delivered(first, sent);
    const Fields all = message(class_broadcast, cmd_send_all, "", "y");
    expect_acknowledged(all);
    expect_delivered(first, all);
    expect_nothing_for(first);
    expect_nothing_for(second);
}

TEST_F(Message, WaitsInOrderForRoomInAFullQueue) {
    const int filled = fill_queue(other->queue(), 77);
    ASSERT_GT(filled, 0);
    std::vector<Fields> sent;
    for (const std::string text : {"one", "two", "three"}) {
        sent.push_back(message(class_message, cmd_send_with_ack, "OTHER", text));
        expect_acknowledged(sent.back());
    }
    EXPECT_EQ(queue_length(other->queue()), filled);
    while (raw_receive(other->queue(), 77)) {
    }
    for (const Fields &fields : sent)
        expect_delivered(*other, fields);
    expect_value("/zansim/dropped", "0");
}

TEST_F(Message, IsRefusedWhenTooManyWait) {
    fill_queue(other->queue(), 77);
    const Fields sent = message(class_message, cmd_send_with_ack, "OTHER", std::string(1024, 'x'));
    SizedRecord ack = send_and_await_ack(sent);
    int accepted = 0;
    for (; ack.record.result() == 1 && accepted < 1000; ++accepted)
        ack = send_and_await_ack(sent);
    EXPECT_GT(accepted, 10);
    EXPECT_TRUE(same_record(
        ack, module().answer(class_message, cmd_ack, -120, "module cannot be reached: OTHER")));
    expect_value("/zansim/dropped", "1");
    // The receiver that is full keeps nobody else from being reached.
    const auto third = another_module("THIRD");
    const Fields all = message(class_broadcast, cmd_send_all, "", "x");
    expect_acknowledged(all);
    expect_delivered(*third, all);
}

TEST_F(Message, IsAcknowledgedToAModuleThatReadsNoNotifications) {
    EXPECT_EQ(
        other->call(class_notify, cmd_watch, watch_payload(0, 0, "/sys/counter")).record.result(),
        1);
    int value = 0;
    int length = -1;
    // Until the rest waits in zansim.
    while (length != queue_length(other->queue()) && value < 20000) {
        length = queue_length(other->queue());
        ASSERT_EQ(module().set("/sys/counter", std::to_string(++value)).record.result(), 1);
    }
    const Fields sent = from(*other, class_message, cmd_send_with_ack, "TESTER", "x");
    EXPECT_TRUE(
        same_record(other->call(make_record(sent)), other->answer(class_message, cmd_ack, 1)));
    expect_delivered(module(), sent);
}

TEST_F(Message, WithAFalseLengthIsRefusedAndNotDelivered) {
    for (const std::int32_t len : {0, 4, 6, 1024, 35000, 35001, INT_MAX, -1, INT_MIN}) {
        for (const auto &[type, cmd] :
             {std::pair(class_message, cmd_send_with_ack), {class_broadcast, cmd_send_all}}) {
            Fields lying = message(type, cmd, "OTHER", "hello");
            lying.len = len;
            expect_refused_with(lying, -106,
                                "malformed record: len is " + std::to_string(len) +
                                    ", but 5 payload bytes arrived");
        }
        Fields lying = message(class_message, cmd_send, "OTHER", "hello");
        lying.len = len;
        module().send(lying);
    }
    expect_nothing_for(module());
    expect_nothing_for(*other);
}

TEST_F(Message, WithANameThatDoesNotEndIsRefusedAndNotDelivered) {
    expect_refused_with(message(class_message, cmd_send_with_ack, std::string(32, 'd'), "x"), -106,
                        "malformed record: destination name is not terminated");
    expect_nothing_for(*other);
}

// zansim's own, for the asking.
TEST_F(Message, IsSentWhenItIsWrittenToANode) {
    EXPECT_TRUE(same_record(module().set("/zansim/message", "OTHER {\"a\":\"b c\"}"),
                            module().answer(class_cfg, cmd_set, 1)));
    const SizedRecord sent = await_record(other->queue(), class_message);
    EXPECT_NE(sent.record.word(at::time), 0);
    EXPECT_TRUE(same_record(sent, {.mtype = class_message,
                                   .type = class_message,
                                   .cmd = cmd_send,
                                   .dst = "OTHER",
                                   .src = "ZAN",
                                   .pid = zansim().pid(),
                                   .time = sent.record.word(at::time),
                                   .payload = "{\"a\":\"b c\"}"}));
    module().set("/zansim/message", "OTHER ");
    EXPECT_EQ(await_record(other->queue(), class_message).payload(), "");
    expect_refused(module().set("/zansim/message", "NOBODY x"), class_cfg, cmd_set, -108,
                   "unknown module: NOBODY");
    expect_refused(module().set("/zansim/message", "OTHER"), class_cfg, cmd_set, -105,
                   "not a module and a text: OTHER");
    expect_refused(module().set("/zansim/message", " x"), class_cfg, cmd_set, -105,
                   "not a module and a text:  x");
    expect_refused(module().get("/zansim/message"), class_cfg, cmd_get, -118,
                   "write-only: /zansim/message");
}

TEST_F(Message, ToAllReachesEveryModuleButItsSender) {
    const auto third = another_module("THIRD");
    const auto fourth = another_module("FOURTH");
    for (const std::string payload : {"", "hello"}) {
        const Fields sent = message(class_broadcast, cmd_send_all, "anybody", payload);
        expect_acknowledged(sent);
        for (const RawModule *receiver : {other.get(), third.get(), fourth.get()}) {
            expect_delivered(*receiver, sent);
            expect_nothing_for(*receiver);
        }
        expect_nothing_for(module());
    }
}

TEST_F(Message, ToAllComesToNoQueueOfItsSender) {
    // Neither to another one of the same name, nor to the own one under another name.
    const RawModule second(zansim(), "TESTER");
    EXPECT_EQ(second.announce(cmd_register, 1).record.result(), 1);
    Fields sent = message(class_broadcast, cmd_send_all, "", "x");
    expect_acknowledged(sent);
    expect_delivered(*other, sent);
    sent.src = "MASKED";
    Fields ack = module().answer(class_broadcast, cmd_ack, 1);
    ack.dst = "MASKED";
    EXPECT_TRUE(same_record(send_and_await_ack(sent), ack));
    expect_delivered(*other, sent);
    expect_nothing_for(second);
    expect_nothing_for(module());
}

TEST_F(Message, ToAllComesToNobodyWhoseNameItsSenderBears) {
    const RawModule namesake(zansim(), "OTHER");
    const Fields sent = from(namesake, class_broadcast, cmd_send_all, "", "x");
    EXPECT_TRUE(same_record(namesake.call(make_record(sent)),
                            namesake.answer(class_broadcast, cmd_ack, 1)));
    expect_delivered(module(), sent);
    expect_nothing_for(*other);
}

TEST_F(Message, ToAllPassesOverAModuleThatHasGone) {
    const auto third = another_module("THIRD");
    other->remove_queue();
    const Fields sent = message(class_broadcast, cmd_send_all, "", "x");
    expect_acknowledged(sent);
    expect_delivered(*third, sent);
    expect_value("/zansim/modules", "2");
}

TEST_F(Message, ToAllIsAcknowledgedWhenThereIsNobody) {
    EXPECT_EQ(other->announce(cmd_unregister).record.result(), 1);
    expect_acknowledged(message(class_broadcast, cmd_send_all, "", "x"));
}

TEST_F(Message, ThatAcknowledgesIsNotPassedOn) {
    module().send(message(class_message, cmd_ack, "OTHER", ""));
    module().send(message(class_broadcast, cmd_ack, "OTHER", ""));
    expect_nothing_for(*other);
    expect_nothing_for(module());
}

using CommandLine = Message;

TEST_F(CommandLine, IsKeptAndCountedButNeverExecuted) {
    expect_value("/zansim/command_lines", "0");
    expect_value("/zansim/last_command_line", std::string(1, '\0'));
    const std::string trap = "/tmp/zan_executed";
    for (const std::string line : {"firewall_cntl -f x", "touch /tmp/zan_executed"}) {
        std::string padded = line;
        padded.resize(1025);
        module().send(module().request(class_control, 0, padded));
        expect_value("/zansim/last_command_line", line);
    }
    expect_value("/zansim/command_lines", "2");
    expect_nothing_for(module());
    EXPECT_EQ(zansim().stop(), 0);
    EXPECT_FALSE(file_exists(trap));
}

TEST_F(CommandLine, ThatIsMalformedIsNotKept) {
    Fields lying = module().request(class_control, 0, "reboot");
    lying.len = 1025;
    module().send(lying);
    expect_value("/zansim/command_lines", "0");
    expect_refused(module().set("/zansim/last_command_line", "x"), class_cfg, cmd_set, -103,
                   "read-only: /zansim/last_command_line");
    expect_refused(module().set("/zansim/command_lines", "1"), class_cfg, cmd_set, -103,
                   "read-only: /zansim/command_lines");
}

} // namespace

} // namespace zan::test
