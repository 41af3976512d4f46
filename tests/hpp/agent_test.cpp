// SPDX-License-Identifier: MIT
// An agent on its TCP link: the same calls, byte for byte in the form of the link.
#include "support/commands.h"
#include "support/patience.h"
#include "support/stream_peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zan/agent.hpp>

#include <optional>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr auto network = ByteOrder::network;

Options quick() {
    Options options;
    options.check_interval = 20ms;
    options.diagnostics = [](std::string_view) {};
    return options;
}

std::string answer_bytes(int type, int cmd, std::string payload = {}, int result = 1) {
    return stream_bytes({.type = type, .cmd = cmd, .result = result, .payload = std::move(payload)},
                        network);
}

std::string registered() {
    return answer_bytes(class_registration, cmd_register);
}

class HppAgent : public testing::Test {
protected:
    void SetUp() override {
        peer.reply(registered());
        agent.emplace("node", quick());
        ASSERT_TRUE(*agent) << agent->registration().error().message();
    }

    Fields from_agent(int type, int cmd, std::string dst, std::string payload) const {
        return {.type = type,
                .cmd = cmd,
                .dst = std::move(dst),
                .src = "node",
                .pid = getpid(),
                .payload = std::move(payload)};
    }

    StreamPeer peer;
    std::optional<Agent> agent;
};

TEST_F(HppAgent, RegistersAndUnregisters) {
    EXPECT_TRUE(same_bytes(
        peer.wait_for_records(1)[0],
        stream_bytes(from_agent(class_registration, cmd_register, "", std::string(4, '\0')),
                     network)));
    agent.reset();
    EXPECT_TRUE(same_bytes(
        peer.wait_for_records(2)[1],
        stream_bytes(from_agent(class_registration, cmd_unregister, "", std::string(4, '\0')),
                     ByteOrder::host)));
    EXPECT_TRUE(peer.wait_for_closed(1));
}

TEST_F(HppAgent, ReadsAndWritesValues) {
    peer.reply(answer_bytes(class_cfg, cmd_get, "7"));
    EXPECT_EQ(agent->get<int>("/a").value_or(0), 7);
    EXPECT_TRUE(same_bytes(peer.wait_for_records(2)[1],
                           stream_bytes(from_agent(class_cfg, cmd_get, "ZAN_CFG", "/a"), network)));
    peer.reply(answer_bytes(class_cfg, cmd_set, "read-only", -103));
    const Result<void> set = agent->set("/a", 8);
    ASSERT_TRUE(set.failed_with(Failure::refused));
    EXPECT_EQ(set.error().message(), "refused with -103: read-only");
}

TEST_F(HppAgent, SendsMessagesInTheOrderOfTheMachine) {
    peer.reply(answer_bytes(class_message, cmd_ack));
    EXPECT_TRUE(agent->send_acknowledged("wlan", "scan"));
    const std::string sent = peer.wait_for_records(2)[1];
    std::int32_t time = 0;
    std::memcpy(&time, sent.data() + at::time, sizeof time);
    EXPECT_TRUE(is_recent(time));
    Fields expected = from_agent(class_message, cmd_send_with_ack, "wlan", "scan");
    expected.time = time;
    EXPECT_TRUE(same_bytes(sent, stream_bytes(expected, ByteOrder::host)));
}

TEST_F(HppAgent, ReceivesWhatArrivesUnaskedAlsoBeforeAnAnswer) {
    std::vector<std::string> seen;
    peer.reply(answer_bytes(class_notify, cmd_watch));
    auto changes = agent->on_change("/a", [&](const Change &c) { seen.push_back(c.value); });
    ASSERT_TRUE(changes);
    peer.reply(answer_bytes(class_notify, cmd_value_changed, "wlan /a on 1 0 /a") +
               answer_bytes(class_cfg, cmd_get, "on"));
    EXPECT_EQ(agent->get("/a").value_or("?"), "on");
    EXPECT_TRUE(eventually([&] { return agent->dispatch_for(10ms), !seen.empty(); }));
    EXPECT_THAT(seen, ElementsAre("on"));
    peer.reply(answer_bytes(class_notify, cmd_unwatch));
}

TEST_F(HppAgent, RecordsMayArriveInPieces) {
    const std::string bytes = answer_bytes(class_message, cmd_send, "hello");
    std::vector<std::string> seen;
    auto messages = agent->on_message([&](const Message &m) { seen.push_back(m.data); });
    for (const char byte : bytes)
        peer.send({&byte, 1});
    EXPECT_TRUE(eventually([&] { return agent->dispatch_for(10ms), !seen.empty(); }));
    EXPECT_THAT(seen, ElementsAre("hello"));
}

TEST_F(HppAgent, LateAnswerGoesWithItsLink) {
    ASSERT_TRUE(agent->get("/a", 30ms).failed_with(Failure::no_answer));
    peer.reply(registered());
    peer.reply(answer_bytes(class_cfg, cmd_get, "80"));
    EXPECT_EQ(agent->get("/b").value_or("?"), "80");
    EXPECT_EQ(peer.connections(), 2);
    EXPECT_TRUE(peer.wait_for_closed(1));
}

TEST_F(HppAgent, ConnectsAgainAfterAHangUp) {
    peer.reply(registered());
    peer.hang_up();
    peer.reply(answer_bytes(class_cfg, cmd_get, "80"));
    EXPECT_TRUE(eventually([&] { return !agent->registered(); }));
    EXPECT_EQ(agent->get("/b").value_or("?"), "80");
}

TEST_F(HppAgent, RenewsSubscriptionsWithoutACall) {
    peer.reply(answer_bytes(class_notify, cmd_watch));
    auto changes = agent->on_change("/a", [](const Change &) {});
    ASSERT_TRUE(changes);
    peer.reply(registered());
    peer.reply(answer_bytes(class_notify, cmd_watch));
    peer.forget_records();
    peer.hang_up();
    const std::vector<std::string> records = peer.wait_for_records(2);
    EXPECT_TRUE(same_bytes(records[0].substr(0, 8), registered().substr(0, 8)));
    EXPECT_EQ(records[1].substr(raw_header_size), std::string("\0\0/a", 4));
    EXPECT_TRUE(eventually([&] { return agent->registered(); }));
    peer.reply(answer_bytes(class_notify, cmd_unwatch));
}

TEST_F(HppAgent, RecordBeyondTheLargestEndsTheLink) {
    peer.send(stream_bytes({.type = class_message, .cmd = cmd_send, .len = 35001}, network));
    EXPECT_TRUE(eventually([&] { return !agent->registered(); }));
}

TEST(HppAgentAlone, ReportsMissingDaemon) {
    StreamPeer deaf(StreamPeer::Start::deaf);
    const Agent agent("node", quick());
    ASSERT_TRUE(agent.registration().failed_with(Failure::not_registered));
    const std::string where = "no daemon at 127.0.0.1 port " + std::to_string(deaf.port()) + ": ";
    // User-mode emulation passes on the build machine's number of a socket error.
    EXPECT_THAT(agent.registration().error().message(),
                testing::AnyOf(where + "Connection refused", where + "Unknown error 111"));
}

TEST(HppAgentAlone, ReportsRefusal) {
    StreamPeer peer;
    peer.reply(answer_bytes(class_registration, cmd_register, "no more agents", -5));
    const Agent agent("node", quick());
    ASSERT_TRUE(agent.registration().failed_with(Failure::not_registered));
    EXPECT_EQ(agent.registration().error().code, -5);
    EXPECT_EQ(agent.registration().error().message(),
              "the daemon did not register agent node: refused with -5: no more agents");
}

} // namespace
} // namespace zan::test
