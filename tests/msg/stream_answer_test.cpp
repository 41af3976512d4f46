// SPDX-License-Identifier: MIT
#include "msg/link_test.h"
#include "support/capture.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>

namespace zan::test {
namespace {

using testing::IsEmpty;

constexpr char untouched = '#';

class AnswerOnLink : public LinkTest {
protected:
    AnswerOnLink() {
        std::memset(err, untouched, sizeof err);
        std::memset(static_cast<void *>(resp.get()), untouched, sizeof *resp);
        resp->ptr = nullptr;
        resp->len = -7;
    }

    int wait_for(int type, int cmd) { return zan_client_recv_response(type, cmd, err, resp.get()); }

    bool resp_untouched() const {
        return resp->ptr == nullptr && resp->len == -7 && copy_area_untouched();
    }
    bool copy_area_untouched() const {
        return std::all_of(std::begin(resp->data), std::end(resp->data),
                           [](char byte) { return byte == untouched; });
    }
    bool err_untouched() const {
        return std::all_of(std::begin(err), std::end(err),
                           [](char byte) { return byte == untouched; });
    }

    char err[1024];
    std::unique_ptr<zan_resp> resp = std::make_unique<zan_resp>();
};

// ---- results -------------------------------------------------------------------

TEST_F(AnswerOnLink, AValueIsHandedBackByReference) {
    arrives({.type = class_cfg, .cmd = cmd_get, .result = 1, .payload = "value"});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    ASSERT_NE(resp->ptr, nullptr);
    EXPECT_STREQ(resp->ptr, "value"); // ends where its payload ends
    EXPECT_EQ(resp->len, 5);
    EXPECT_TRUE(copy_area_untouched());
    EXPECT_TRUE(err_untouched());
}

TEST_F(AnswerOnLink, AnEmptyValueIsAText) {
    arrives({.type = class_cfg, .cmd = cmd_get, .payload = "a longer value before"});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    arrives({.type = class_cfg, .cmd = cmd_get});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    EXPECT_STREQ(resp->ptr, "");
    EXPECT_EQ(resp->len, 0);
}

TEST_F(AnswerOnLink, AValueMayBeLongerThanARecordOnAQueue) {
    const std::string value(50000, 'v');
    arrives({.type = class_cfg, .cmd = cmd_get, .len = 50000});
    bytes_arrive(value);
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    EXPECT_EQ(resp->len, 50000);
    EXPECT_TRUE(resp->ptr == value);
}

TEST_F(AnswerOnLink, WithoutAnAnswerAreaTheResultIsReturnedAlone) {
    arrives({.type = class_cfg, .cmd = cmd_get, .payload = "value"});
    EXPECT_EQ(zan_client_recv_response(1, 1, nullptr, nullptr), 1);
}

struct Pair {
    int type;
    int cmd;
};
void PrintTo(const Pair &pair, std::ostream *out) {
    *out << pair.type << "," << pair.cmd;
}

class OtherAnswers : public AnswerOnLink, public testing::WithParamInterface<Pair> {};

TEST_P(OtherAnswers, StoreNothing) {
    const auto [type, cmd] = GetParam();
    arrives({.type = type, .cmd = cmd, .result = 2, .arg = 1, .payload = "text"});
    EXPECT_EQ(wait_for(type, cmd), 1);
    EXPECT_TRUE(resp_untouched());
    EXPECT_TRUE(err_untouched());
}

// The queue answers some of these by reference or by copy; the link does not.
INSTANTIATE_TEST_SUITE_P(Pairs, OtherAnswers,
                         testing::Values(Pair{1, 2}, Pair{1, 15}, Pair{1, 20}, Pair{1, 23},
                                         Pair{1, 34}, Pair{2, 1}, Pair{3, 0}, Pair{3, 1},
                                         Pair{4, 2}, Pair{9, 2}));

TEST_F(AnswerOnLink, AnyResultFromZeroUpIsSuccess) {
    for (const int result : {0, 1, 2, INT32_MAX}) {
        arrives({.type = class_registration, .cmd = cmd_register, .result = result});
        EXPECT_EQ(wait_for(class_registration, cmd_register), 1) << result;
    }
}

TEST_F(AnswerOnLink, ANegativeResultComesWithItsText) {
    arrives({.type = class_cfg, .cmd = cmd_get, .result = -42, .payload = "no such node"});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), -42);
    EXPECT_STREQ(err, "no such node");
    EXPECT_TRUE(resp_untouched());
}

TEST_F(AnswerOnLink, ANegativeResultWithoutABufferIsReturnedAlone) {
    arrives({.type = class_broadcast,
             .cmd = cmd_ack,
             .result = INT32_MIN,
             .payload = "no such module"});
    EXPECT_EQ(zan_client_recv_response(9, 2, nullptr, resp.get()), INT32_MIN);
    EXPECT_TRUE(resp_untouched());
}

TEST_F(AnswerOnLink, ALongErrorTextIsCutWithAWarning) {
    arrives({.type = class_cfg, .cmd = cmd_get, .result = -1, .payload = std::string(1024, 'e')});
    StdoutCapture out;
    EXPECT_EQ(wait_for(class_cfg, cmd_get), -1);
    EXPECT_EQ(out.stop(), overflow_warning(std::string(1023, 'e')));
    EXPECT_EQ(err, std::string(1023, 'e'));
}

// ---- the wait ------------------------------------------------------------------

TEST_F(AnswerOnLink, AnAnswerInPiecesIsWaitedFor) {
    const std::string bytes = from_daemon({.type = class_cfg, .cmd = cmd_get, .payload = "value"});
    int result = 0;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    for (const auto &[begin, size] : {std::pair{0, 100}, {100, 2}, {102, 2}}) {
        ASSERT_TRUE(waiter.wait_until_blocked());
        peer.send(bytes.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(size)));
    }
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.send(bytes.substr(104));
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_STREQ(resp->ptr, "value");
}

TEST_F(AnswerOnLink, ASignalEndsTheWaitLikeATimeOut) {
    int result = 0;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    ASSERT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -2);
}

TEST_F(AnswerOnLink, APeerThatHangsUpEndsTheWait) {
    int result = 0;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.hang_up();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
}

TEST_F(AnswerOnLink, APeerThatDiesMidAnswerEndsTheWait) {
    int result = 0;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.send(from_daemon({.type = class_cfg, .cmd = cmd_get, .payload = "value"}).substr(0, 103));
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.reset();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(resp_untouched());
}

TEST(AnswerWithoutLink, IsATimeOutAtOnce) {
    for (const int handle : {-1, 9999}) {
        g_ipc_handle = handle;
        EXPECT_EQ(zan_client_recv_response(1, 1, nullptr, nullptr), -2);
    }
}

// ---- other records on the way -----------------------------------------------------

TEST_F(AnswerOnLink, OtherConfigurationAnswersAndWakeUpsAreDropped) {
    arrives({.type = class_cfg, .cmd = cmd_set, .result = -9, .payload = "late"});
    arrives({.type = class_notify, .cmd = 20});
    arrives({.type = message, .cmd = 20, .payload = "wake up"});
    arrives({.type = class_cfg, .cmd = cmd_empty});
    arrives({.type = class_cfg, .cmd = cmd_get, .payload = "value"});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    EXPECT_STREQ(resp->ptr, "value");
    EXPECT_TRUE(err_untouched());
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0); // nothing was set aside
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(peer.records(), IsEmpty());
}

TEST_F(AnswerOnLink, RecordsSetAsideAreDeliveredInOrderByTheNextPoll) {
    const Fields first = {.type = message, .cmd = 4, .src = "a", .payload = "first"};
    const Fields second = {.type = class_broadcast,
                           .cmd = cmd_send_all,
                           .src = "b",
                           .payload = std::string(5000, 'b')};
    const Fields third = {.type = message, .cmd = 1, .src = "c"};
    for (const Fields &fields : {first, second, third})
        arrives(fields);
    arrives({.type = class_registration, .cmd = cmd_register, .result = 1});
    EXPECT_EQ(wait_for(class_registration, cmd_register), 1);
    EXPECT_THAT(delivered(), IsEmpty());

    const Fields fourth = {.type = message, .cmd = 4, .payload = "still on the link"};
    arrives(fourth);
    const std::size_t waiting = bytes_waiting(g_ipc_handle);
    char buf[16] = {untouched};
    EXPECT_EQ(zan_client_recv(g_ipc_handle, buf, sizeof buf), 0);
    EXPECT_EQ(buf[0], untouched);
    EXPECT_EQ(bytes_waiting(g_ipc_handle), waiting); // the link was not read
    ASSERT_EQ(delivered().size(), 3U);
    EXPECT_TRUE(was_delivered(0, first));
    EXPECT_TRUE(was_delivered(1, second));
    EXPECT_TRUE(was_delivered(2, third));

    EXPECT_EQ(receive_record(), 1);
    ASSERT_EQ(delivered().size(), 4U);
    EXPECT_TRUE(was_delivered(3, fourth));
}

TEST_F(AnswerOnLink, RecordsOfSeveralWaitsAreDeliveredTogether) {
    // Once delivered, none of them comes again with those of later waits.
    for (int round = 1; round <= 3; ++round) {
        for (const char *const text : {"first", "second"}) {
            arrives({.type = message, .cmd = 4, .payload = text});
            arrives({.type = class_cfg, .cmd = cmd_set});
            EXPECT_EQ(wait_for(class_cfg, cmd_set), 1);
        }
        delivered().clear();
        EXPECT_EQ(zan_client_recv(-1, nullptr, 0), 0);
        ASSERT_EQ(delivered().size(), 2U);
        EXPECT_TRUE(was_delivered(0, {.type = message, .cmd = 4, .payload = "first"}));
        EXPECT_TRUE(was_delivered(1, {.type = message, .cmd = 4, .payload = "second"}));
    }
}

TEST_F(AnswerOnLink, AFloodOfRecordsIsSetAsideInOrder) {
    constexpr int waits = 20;
    constexpr int records_each = 300;
    static int taken = 0;
    zan_set_message_handler([](char *, int, zan_body *body) {
        taken += body->pid == taken ? 1 : 0;
        return 0;
    });
    for (int wait = 0; wait < waits; ++wait) {
        std::string bytes;
        for (int i = 0; i < records_each; ++i)
            bytes += from_daemon({.type = message, .cmd = 4, .pid = wait * records_each + i});
        // All at once, for a header must not come in pieces.
        bytes_arrive(bytes + from_daemon({.type = class_cfg, .cmd = cmd_set}));
        ASSERT_EQ(wait_for(class_cfg, cmd_set), 1);
    }
    EXPECT_EQ(zan_client_recv(-1, nullptr, 0), 0);
    EXPECT_EQ(taken, waits * records_each);
}

TEST_F(AnswerOnLink, AnAnswerToAnotherRequestIsSetAsideUnlessItIsAConfigurations) {
    arrives({.type = message, .cmd = 2, .payload = "late acknowledgement"});
    arrives({.type = message, .cmd = 1, .payload = "message"});
    arrives({.type = class_broadcast, .cmd = cmd_ack});
    EXPECT_EQ(wait_for(class_broadcast, cmd_ack), 1);
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0);
    EXPECT_EQ(delivered().size(), 2U);
}

TEST_F(AnswerOnLink, AHeaderThatIsNotTheAnswersKeepsNothingOfIt) {
    // A negative result ends the wait only in the answer itself.
    arrives({.type = class_notify, .cmd = cmd_event, .result = -5, .payload = "\1\2\3\4"});
    arrives({.type = class_registration, .cmd = cmd_register});
    EXPECT_EQ(wait_for(class_registration, cmd_register), 1);
    EXPECT_TRUE(err_untouched());
}

// ---- the record that wakes the module ------------------------------------------------

TEST_F(AnswerOnLink, AWakeUpIsAskedForOnceWhenRecordsWereSetAside) {
    arrives({.type = message, .cmd = 4});
    arrives({.type = class_broadcast, .cmd = cmd_send_all});
    arrives({.type = class_cfg, .cmd = cmd_get, .payload = "value"});
    StdoutCapture out;
    EXPECT_EQ(wait_for(class_cfg, cmd_get), 1);
    EXPECT_EQ(out.stop(), "");
    const auto records = peer.wait_for_records(1);
    EXPECT_TRUE(same_bytes(records[0], empty_message()));
    // Whatever else was sent would have come before this.
    EXPECT_EQ(zan_ipc_send(g_ipc_handle, records[0].data(), 100), 100);
    EXPECT_EQ(peer.wait_for_records(2).size(), 2U);
}

TEST_F(AnswerOnLink, AWakeUpIsAskedForBeforeEveryReturnUntilThePoll) {
    arrives({.type = message, .cmd = 4});
    for (int wait = 1; wait <= 2; ++wait) {
        arrives({.type = class_cfg, .cmd = cmd_set});
        EXPECT_EQ(wait_for(class_cfg, cmd_set), 1);
        EXPECT_TRUE(same_bytes(peer.wait_for_records(static_cast<std::size_t>(wait)).back(),
                               empty_message()));
    }
    zan_client_recv(g_ipc_handle, nullptr, 0);
    arrives({.type = class_cfg, .cmd = cmd_set});
    EXPECT_EQ(wait_for(class_cfg, cmd_set), 1);
    zan_request_empty_message();
    EXPECT_EQ(peer.wait_for_records(3).size(), 3U);
}

TEST_F(AnswerOnLink, AWakeUpIsAskedForAfterARefusalToo) {
    arrives({.type = message, .cmd = 4});
    arrives({.type = class_cfg, .cmd = cmd_get, .result = -42});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), -42);
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], empty_message()));
}

TEST_F(AnswerOnLink, AWakeUpIsAskedForAfterAnErrorToo) {
    arrives({.type = message, .cmd = 4});
    arrives({.type = class_cfg, .cmd = cmd_get, .len = INT32_MAX});
    EXPECT_EQ(wait_for(class_cfg, cmd_get), -1);
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], empty_message()));
}

TEST_F(AnswerOnLink, AWakeUpIsAskedForAfterATimeOutToo) {
    arrives({.type = message, .cmd = 4});
    int result = 0;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    ASSERT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -2);
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], empty_message()));
}

TEST_F(AnswerOnLink, AnAgentThatLeavesAsksForNone) {
    arrives({.type = message, .cmd = 4});
    arrives({.type = class_registration, .cmd = cmd_unregister});
    EXPECT_EQ(wait_for(class_registration, cmd_unregister), 1);
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0);
    EXPECT_EQ(delivered().size(), 1U); // set aside all the same
    zan_request_empty_message();
    EXPECT_EQ(peer.wait_for_records(1).size(), 1U);
}

TEST_F(AnswerOnLink, AWakeUpThatCannotBeAskedForIsTriedTwice) {
    int result = 0;
    StdoutCapture out;
    Worker waiter([&] { result = wait_for(class_cfg, cmd_get); });
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.send(from_daemon({.type = message, .cmd = 4}));
    ASSERT_TRUE(waiter.wait_until_blocked());
    peer.reset();
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out.stop(), "ipc socket send failed, Broken pipe\n"
                          "zan_request_empty_message failed\n"
                          "ipc socket send failed, Broken pipe\n"
                          "zan_request_empty_message failed\n");
}

TEST_F(AnswerOnLink, TheRequestForAWakeUpIsAHeaderInHostOrder) {
    StdoutCapture out;
    EXPECT_EQ(zan_request_empty_message(), 100);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], empty_message()));
    EXPECT_EQ(peer.unfinished(), "");
}

TEST(WakeUpWithoutLink, SaysThatItFailed) {
    g_ipc_handle = -1;
    StdoutCapture out;
    EXPECT_EQ(zan_request_empty_message(), 0);
    EXPECT_EQ(out.stop(), "ipc socket send failed, Bad file descriptor\n"
                          "zan_request_empty_message failed\n");
}

} // namespace
} // namespace zan::test
