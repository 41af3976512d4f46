// SPDX-License-Identifier: MIT
#include "cfg/config_test.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <gmock/gmock.h>

#include <climits>
#include <functional>

namespace zan::test {
namespace {

using testing::ElementsAre;

class Firewall : public ConfigTest {
protected:
    Firewall() { daemon.on(class_control, 0, never()); }
};

// ---- lines -----------------------------------------------------------------

struct LineRow {
    const char *name;
    std::function<int()> request;
    const char *line;
};

std::ostream &operator<<(std::ostream &out, const LineRow &row) {
    return out << row.name;
}

const LineRow lines[] = {
    {"f", [] { return zan_firewall_request("up", nullptr); }, "-f up"},
    {"f_p", [] { return zan_firewall_request("up", "%d ppp0"); }, "-f up -p %d ppp0"},
    {"empty", [] { return zan_firewall_request("", ""); }, "-f  -p "},
    {"2_f", [] { return zan_firewall_request2("up", nullptr, nullptr); }, "-f up"},
    {"2_f_p", [] { return zan_firewall_request2("up", "ppp0", nullptr); }, "-f up -p ppp0"},
    {"2_f_a", [] { return zan_firewall_request2("up", nullptr, "all"); }, "-f up -a all"},
    {"2_f_p_a", [] { return zan_firewall_request2("up", "ppp0", "all"); }, "-f up -p ppp0 -a all"},
    {"3", [] { return zan_firewall_request3("%s %d", "rule", -7); }, "-C rule -7"},
    {"3_percent", [] { return zan_firewall_request3("%s", "%d"); }, "-C %d"},
    {"4_f", [] { return zan_firewall_request4("up", nullptr); }, "-f up"},
    {"4_f_k", [] { return zan_firewall_request4("up", "key"); }, "-f up -k key"},
    {"l2b", [] { return zan_firewall_l2b_notify("p1", "i1", -1); }, "-b -p p1 -i i1 -m -1"},
    {"l2b_least", [] { return zan_firewall_l2b_notify("", "", INT_MIN); },
     "-b -p  -i  -m -2147483648"},
};

class FirewallLine : public Firewall, public testing::WithParamInterface<LineRow> {};
INSTANTIATE_TEST_SUITE_P(Of, FirewallLine, testing::ValuesIn(lines),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(FirewallLine, IsHandedToTheDaemon) {
    leave_traces();
    StdoutCapture output;
    EXPECT_EQ(GetParam().request(), 0);
    EXPECT_EQ(output.stop(), "");
    expect_command_line_sent(std::string("firewall_cntl ") + GetParam().line);
}

TEST_F(Firewall, ALineIsCutAt1024Characters) {
    const std::string text = path_of(3000);
    const char *const given = text.c_str();
    const auto cut = [&](const std::string &line) { return line.substr(0, 1024); };
    StdoutCapture output;
    EXPECT_EQ(zan_firewall_request(given, "lost"), 0);
    expect_command_line_sent(cut("firewall_cntl -f " + text));
    EXPECT_EQ(zan_firewall_request2("f", given, "lost"), 0);
    expect_command_line_sent(cut("firewall_cntl -f f -p " + text));
    EXPECT_EQ(zan_firewall_request2("f", nullptr, given), 0);
    expect_command_line_sent(cut("firewall_cntl -f f -a " + text));
    EXPECT_EQ(zan_firewall_request3("%s", given), 0);
    expect_command_line_sent(cut("firewall_cntl -C " + text));
    EXPECT_EQ(zan_firewall_request3("%s%s", "/", given), 0);
    expect_command_line_sent(cut("firewall_cntl -C /" + text));
    EXPECT_EQ(zan_firewall_request4("f", given), 0);
    expect_command_line_sent(cut("firewall_cntl -f f -k " + text));
    EXPECT_EQ(zan_firewall_l2b_notify("p", given, 7), 0);
    expect_command_line_sent(cut("firewall_cntl -b -p p -i " + text));
    EXPECT_EQ(output.stop(), "");
}

// At every length around the bound, so that no option is half written behind it.
TEST_F(Firewall, ALineIsCutWhereverTheBoundFalls) {
    for (std::size_t length = 1000; length <= 1012; ++length) {
        SCOPED_TRACE(length);
        const std::string text = path_of(length);
        EXPECT_EQ(zan_firewall_request2(text.c_str(), "P", "A"), 0);
        expect_command_line_sent(("firewall_cntl -f " + text + " -p P -a A").substr(0, 1024));
    }
}

TEST_F(Firewall, WhatIsNeededMustBeThere) {
    StdoutCapture output;
    EXPECT_EQ(zan_firewall_request(nullptr, "p"), -1);
    EXPECT_EQ(zan_firewall_request2(nullptr, "p", "a"), -1);
    EXPECT_EQ(zan_firewall_request3(nullptr), -1);
    EXPECT_EQ(zan_firewall_request4(nullptr, "k"), -1);
    EXPECT_EQ(zan_firewall_l2b_notify(nullptr, "i", 1), -1);
    EXPECT_EQ(zan_firewall_l2b_notify("p", nullptr, 1), -1);
    EXPECT_EQ(output.stop(), "");
    EXPECT_TRUE(sent_nothing());
}

// The report shows the line as it would have been sent.
TEST_F(Firewall, AReportedLineIsCutToo) {
    daemon.die();
    const std::string text = path_of(3000);
    StdoutCapture output;
    EXPECT_EQ(zan_firewall_request(text.c_str(), nullptr), -2003);
    EXPECT_EQ(output.stop(), "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                                 " ERROR:Invalid argument\nzan_firewall_request: cmd_line=" +
                                 ("firewall_cntl -f " + text).substr(0, 1024) +
                                 "\nzan_firewall_request:zan_msg_send fail!\n");
}

// ---- receiving -------------------------------------------------------------

std::vector<std::string> g_messages;

class FirewallReceive : public Firewall {
protected:
    FirewallReceive() {
        g_messages.clear();
        zan_set_message_handler([](char *data, int len, zan_body *) {
            g_messages.emplace_back(data, static_cast<std::size_t>(len));
            return 0;
        });
    }
};

TEST_F(FirewallReceive, WaitsForTheNextRecordOfAnyType) {
    int result = -1;
    Worker waiter([&] { result = zan_firewall_recv_msq(); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    raw_send(g_msq_qid,
             {.mtype = 9, .type = class_broadcast, .cmd = cmd_send_all, .payload = "late"});
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_THAT(g_messages, ElementsAre("late"));
    raw_send(g_msq_qid, {.mtype = 1, .type = class_cfg, .cmd = cmd_get});
    EXPECT_EQ(zan_firewall_recv_msq(), 0);
    EXPECT_EQ(queue_length(g_msq_qid), 0);
}

TEST_F(FirewallReceive, TakesNoLock) {
    raw_send(g_msq_qid, {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = "hello"});
    const BothLocks locks;
    EXPECT_EQ(zan_firewall_recv_msq(), 1);
    EXPECT_THAT(g_messages, ElementsAre("hello"));
}

// Its storage is its own: what a record does not bring reads as zeros to its end.
TEST_F(FirewallReceive, ShowsZerosBehindWhatCame) {
    raw_send(g_msq_qid,
             {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = "ab", .len = 35000});
    EXPECT_EQ(zan_firewall_recv_msq(), 1);
    EXPECT_THAT(g_messages, ElementsAre("ab" + std::string(34998, '\0')));
}

TEST_F(FirewallReceive, TakesARecordOfFullLengthWhole) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    raw_send(
        g_msq_qid,
        {.mtype = 4, .type = class_message, .cmd = cmd_send, .payload = std::string(35000, 'm')});
    EXPECT_EQ(zan_firewall_recv_msq(), 1);
    EXPECT_THAT(g_messages, ElementsAre(std::string(35000, 'm')));
}

TEST_F(FirewallReceive, GivesZeroWhenItIsInterrupted) {
    StdoutCapture output;
    int result = -1;
    Worker waiter([&] { result = zan_firewall_recv_msq(); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    const std::string qid = std::to_string(g_msq_qid);
    waiter.interrupt();
    EXPECT_TRUE(output.wait_for("EINTR[" + qid + "]:retry...\n"));
    EXPECT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output.stop(), "EINTR[" + qid + "]:retry...\nRetry fail[zan_msg_recv] qid=" + qid +
                                 " ERROR:Interrupted system call\n");
}

TEST_F(FirewallReceive, ReportsAQueueThatGoes) {
    StdoutCapture output;
    int result = -1;
    Worker waiter([&] { result = zan_firewall_recv_msq(); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    remove_queue(g_msq_qid);
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 0);
    const std::string qid = std::to_string(g_msq_qid);
    EXPECT_EQ(output.stop(), "zan_msg_recv qid=" + qid + " ERROR:Identifier removed\n" +
                                 "zan_client_recv_msq2: receive msq message error, msgid: " + qid +
                                 ". Error:Identifier removed\n");
}

TEST_F(FirewallReceive, NeedsAnOwnQueue) {
    const int own = std::exchange(g_msq_qid, -1);
    StdoutCapture output;
    EXPECT_EQ(zan_firewall_recv_msq(), -1);
    EXPECT_EQ(output.stop(), "");
    g_msq_qid = own;
}

} // namespace
} // namespace zan::test
