// SPDX-License-Identifier: MIT
//
// Agents that send invalid records, or do not read.
#include "sim/tcp_test.h"

#include <sys/socket.h>

#include <climits>
#include <random>
#include <utility>

namespace zan::test {

namespace {

class HostileAgent : public TcpTest {
protected:
    // Other modules are served, whatever the agent has done.
    void expect_service() {
        expect_value("/sys/hostname", "router");
        const auto sound = agent("SOUND");
        EXPECT_EQ(sound->call(class_cfg, cmd_get, "/sys/hostname").substr(at::data), "router");
        EXPECT_EQ(sound->announce(cmd_unregister).size(), 100U);
    }
};

TEST_F(HostileAgent, WithAnInvalidLengthIsRefusedAndDisconnected) {
    for (const std::int32_t len : {-1, -100, INT_MIN, 35001, 2 * 1024 * 1024, INT_MAX}) {
        for (const ByteOrder order : {ByteOrder::network, ByteOrder::host}) {
            const auto link = agent("AGENT");
            Fields lying = link->request(class_cfg, cmd_get, "/sys/hostname");
            lying.len = len;
            // The records after it are not decoded.
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

TEST_F(HostileAgent, WithoutValidByteOrderIsDisconnected) {
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

TEST_F(HostileAgent, WithAnUnknownClassOrUnterminatedNameIsOnlyRefused) {
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

TEST_F(HostileAgent, ThatSendsHalfARecordDoesNotBlockOthers) {
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

TEST_F(HostileAgent, ThatNeverReadsLosesMessagesAndDoesNotBlockOthers) {
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

TEST_F(HostileAgent, ThatReadsNoAnswersIsNotServedUntilItReads) {
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

TEST_F(HostileAgent, ThatReadsNoDelayedAnswersLosesThem) {
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

TEST_F(HostileAgent, ThatDisconnectsWithUnsentRecordsIsDropped) {
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

TEST_F(HostileAgent, SendingRandomBytesNeverEndsZansim) {
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
