// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/commands.h"
#include "support/module_test.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

namespace zan::test {
namespace {

using testing::ElementsAre;

class Cwmp : public ModuleTest {
protected:
    static Fields request(std::int32_t cmd, const std::string &payload) {
        return {.mtype = g_msq_qid,
                .type = class_cwmp,
                .cmd = cmd,
                .dst = "ZAN_CWMP",
                .src = "probe",
                .pid = static_cast<std::int32_t>(getpid()),
                .payload = payload};
    }

    static int send(std::int32_t cmd, const std::string &payload) {
        return zan_do_cwmp_request(cmd, payload.data(), static_cast<int>(payload.size()));
    }

    void arrives(const Fields &fields) { EXPECT_TRUE(raw_send(g_msq_qid, fields)); }

    // Fills the answer area with something to leave or to replace.
    void SetUp() override {
        ModuleTest::SetUp();
        std::memset(resp->data, '~', sizeof resp->data);
        resp->len = -99;
        resp->ptr = untouched;
    }
    bool area_is_untouched() const {
        return resp->ptr == untouched && resp->len == -99 &&
               std::string(resp->data, sizeof resp->data) == std::string(35000, '~');
    }

    char untouched[1] = {};
    std::unique_ptr<zan_resp> resp = std::make_unique<zan_resp>();
};

// ---- requests --------------------------------------------------------------

TEST_F(Cwmp, ARequestCarriesItsBytesAsTheyAre) {
    daemon.on(class_cwmp, 7, never());
    daemon.on(class_cwmp, INT_MIN, never());
    const std::string bytes("a\0b\xff", 4);
    EXPECT_EQ(send(7, bytes), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(7, bytes)));
    EXPECT_EQ(record.msgsz, 104U);
    EXPECT_EQ(send(INT_MIN, ""), 1);
    EXPECT_TRUE(same_record(sent(), request(INT_MIN, "")));
}

TEST_F(Cwmp, ARequestWithoutDataCarriesZeros) {
    EXPECT_EQ(send(1, std::string(500, 'x')), 1); // to be left on the stack
    sent();
    for (const int len : {0, 1, 300}) {
        SCOPED_TRACE(len);
        EXPECT_EQ(zan_do_cwmp_request(1, nullptr, len), 1);
        EXPECT_TRUE(
            same_record(sent(), request(1, std::string(static_cast<std::size_t>(len), '\0'))));
    }
}

TEST_F(Cwmp, ARequestOf35000BytesIsTheLongest) {
    const std::string longest(35000, 'c');
    StdoutCapture output;
    EXPECT_EQ(send(3, longest + "x"), -1);
    EXPECT_EQ(zan_do_cwmp_request(3, longest.data(), INT_MAX), -1);
    EXPECT_EQ(zan_do_cwmp_request(3, nullptr, 35001), -1);
    EXPECT_EQ(zan_do_cwmp_request(3, longest.data(), -1), -1);
    EXPECT_EQ(zan_do_cwmp_request(3, longest.data(), INT_MIN), -1);
    EXPECT_EQ(output.stop(), "");
    EXPECT_EQ(send(4, "the first to come"), 1);
    EXPECT_TRUE(same_record(sent(), request(4, "the first to come")));

    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    EXPECT_EQ(send(3, longest), 1);
    const SizedRecord record = sent();
    EXPECT_TRUE(same_record(record, request(3, longest)));
    EXPECT_EQ(record.msgsz, 35100U);
    EXPECT_EQ(zan_do_cwmp_request(3, nullptr, 35000), 1);
    EXPECT_TRUE(same_record(sent(), request(3, std::string(35000, '\0'))));
}

// ---- answers ---------------------------------------------------------------

TEST_F(Cwmp, AnAnswerIsCollectedLater) {
    daemon.once(class_cwmp, 7, answer("the answer"));
    EXPECT_EQ(send(7, "question"), 1);
    EXPECT_EQ(cfg_del("/other/work"), 1);
    EXPECT_EQ(zan_cwmp_recv(7, resp.get()), 1);
    EXPECT_STREQ(resp->data, "the answer");
    EXPECT_EQ(resp->data[11], '~');
    EXPECT_EQ(resp->len, 10);
    EXPECT_EQ(resp->ptr, untouched);
}

TEST_F(Cwmp, TheArgumentOfAnAnswerDecidesTheResult) {
    const struct {
        std::int32_t arg;
        int result;
    } rows[] = {{1, 0}, {0, 1}, {2, 1}, {-1, 1}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.arg);
        for (const std::int32_t result : {0, 1, INT_MAX}) {
            arrives({.mtype = 2,
                     .type = 2,
                     .cmd = 5,
                     .result = result,
                     .arg = row.arg,
                     .payload = "text"});
            std::memset(resp->data, '~', 8);
            EXPECT_EQ(zan_cwmp_recv(5, resp.get()), row.result);
            EXPECT_STREQ(resp->data, "text");
            EXPECT_EQ(resp->len, 4);
        }
    }
}

TEST_F(Cwmp, ARefusalLeavesTheAreaUntouched) {
    StdoutCapture output;
    for (const std::int32_t result : {-1, -9001, INT_MIN}) {
        SCOPED_TRACE(result);
        arrives({.mtype = 2, .type = 2, .cmd = 5, .result = result, .arg = 1, .payload = "no"});
        EXPECT_EQ(zan_cwmp_recv(5, resp.get()), result);
    }
    EXPECT_TRUE(area_is_untouched());
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Cwmp, AnswersToOtherCommandsAreDropped) {
    arrives({.mtype = 2, .type = 2, .cmd = 6, .result = -3, .payload = "another's"});
    arrives({.mtype = 1, .type = 1, .cmd = 5, .payload = "of another class"});
    arrives({.mtype = 2, .type = 2, .cmd = 5, .payload = "mine"});
    EXPECT_EQ(zan_cwmp_recv(5, resp.get()), 1);
    EXPECT_STREQ(resp->data, "mine");
    EXPECT_EQ(queue_length(g_msq_qid), 1);
}

TEST_F(Cwmp, AHeaderOnlyAnswerIsEmpty) {
    arrives({.mtype = 2, .type = 2, .cmd = 5});
    EXPECT_EQ(zan_cwmp_recv(5, resp.get()), 1);
    EXPECT_STREQ(resp->data, "");
    EXPECT_EQ(resp->len, 0);
    arrives({.mtype = 2, .type = 2, .cmd = 5, .arg = 1});
    EXPECT_EQ(zan_cwmp_recv(5, nullptr), 0);
}

TEST_F(Cwmp, AnAnswerThatFillsTheAreaHasNoTerminator) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    arrives({.mtype = 2, .type = 2, .cmd = 5, .payload = std::string(35000, 'c')});
    EXPECT_EQ(zan_cwmp_recv(5, resp.get()), 1);
    EXPECT_EQ(std::string(resp->data, 35000), std::string(35000, 'c'));
    EXPECT_EQ(resp->len, 35000);
}

TEST_F(Cwmp, AnAnswerIsCollectedWithoutALock) {
    arrives({.mtype = 2, .type = 2, .cmd = 5, .payload = "text"});
    const BothLocks locks;
    EXPECT_EQ(zan_cwmp_recv(5, resp.get()), 1);
    EXPECT_STREQ(resp->data, "text");
}

TEST_F(Cwmp, AWaitThatFailsIsMinusOne) {
    remove_queue(g_msq_qid);
    StdoutCapture output;
    EXPECT_EQ(zan_cwmp_recv(5, resp.get()), -1);
    EXPECT_EQ(output.stop(),
              "zan_msg_recv qid=" + std::to_string(g_msq_qid) + " ERROR:Invalid argument\n");
    EXPECT_TRUE(area_is_untouched());
}

// ---- polling ---------------------------------------------------------------

std::vector<std::string> g_calls;

class CwmpPoll : public Cwmp {
protected:
    CwmpPoll() {
        g_calls.clear();
        zan_set_message_handler([](char *data, int len, zan_body *) {
            g_calls.push_back("message " + std::string(data, static_cast<std::size_t>(len)));
            return 0;
        });
        zan_set_event_handler([](int event, int) {
            g_calls.push_back("event " + std::to_string(event));
            return 0;
        });
    }
};

TEST_F(CwmpPoll, TakesMessagesAndNotificationsEachByItself) {
    EXPECT_EQ(zan_cwmp_recv_msq(), 0);
    EXPECT_EQ(zan_cwmp_recv_notify_msq(), 0);
    arrives({.mtype = 5, .type = 5, .cmd = 8, .payload = std::string("\x07\0\0\0", 4)});
    arrives({.mtype = 4, .type = 4, .cmd = 4, .payload = "hello"});
    EXPECT_EQ(zan_cwmp_recv_msq(), 1);
    EXPECT_EQ(zan_cwmp_recv_msq(), 0);
    EXPECT_EQ(zan_cwmp_recv_notify_msq(), 1);
    EXPECT_EQ(zan_cwmp_recv_notify_msq(), 0);
    EXPECT_THAT(g_calls, ElementsAre("message hello", "event 7"));
}

TEST_F(CwmpPoll, TakesNoLock) {
    arrives({.mtype = 5, .type = 5, .cmd = 8, .payload = std::string("\x07\0\0\0", 4)});
    arrives({.mtype = 4, .type = 4, .cmd = 4, .payload = "hello"});
    const BothLocks locks;
    EXPECT_EQ(zan_cwmp_recv_msq(), 1);
    EXPECT_EQ(zan_cwmp_recv_notify_msq(), 1);
    EXPECT_THAT(g_calls, ElementsAre("message hello", "event 7"));
}

TEST_F(CwmpPoll, ReportsAMissingQueueUnlessErrnoSaysNoMessage) {
    const int own = std::exchange(g_msq_qid, -1);
    StdoutCapture output;
    errno = EINVAL;
    EXPECT_EQ(zan_cwmp_recv_msq(), -1);
    errno = EIDRM;
    EXPECT_EQ(zan_cwmp_recv_notify_msq(), -1);
    errno = ENOMSG;
    EXPECT_EQ(zan_cwmp_recv_msq(), -1);
    EXPECT_EQ(output.stop(),
              "zan_cwmp_recv_msq:receive msq message error, msgid: -1. Error:Invalid argument\n"
              "zan_cwmp_recv_notify_msq:receive msq message error, msgid: -1. "
              "Error:Identifier removed\n");
    g_msq_qid = own;
}

} // namespace
} // namespace zan::test
