// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char untouched = '#';

std::string line(const char *format, int qid) {
    char text[160];
    std::snprintf(text, sizeof text, format, qid);
    return text;
}

// The daemon's records for a request of this process, put on its queue beforehand.
class Answer : public testing::Test {
protected:
    Answer() {
        g_msq_qid = queue.id();
        std::memset(err, untouched, sizeof err);
        clear_resp();
    }
    ~Answer() override { g_msq_qid = -1; }

    void clear_resp() {
        std::memset(static_cast<void *>(resp.get()), untouched, sizeof *resp);
        resp->ptr = nullptr;
        resp->len = -7;
    }

    // An answer travels under its class as queue type.
    void arrives(Fields fields) {
        if (fields.mtype == 0)
            fields.mtype = fields.type;
        ASSERT_TRUE(raw_send(queue.id(), fields));
    }

    int wait_for(int type, int cmd) {
        return zan_client_recv_msq_response(type, cmd, err, resp.get());
    }

    std::string text_by_reference() const { return resp->ptr == nullptr ? "(null)" : resp->ptr; }

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

    RawQueue queue;
    char err[1024];
    std::unique_ptr<zan_resp> resp = std::make_unique<zan_resp>();
};

// ---- which record is the answer ----------------------------------------------

TEST_F(Answer, TheAwaitedClassAndCommandEndTheWait) {
    arrives({.type = 1, .cmd = 1, .result = 1, .payload = "value"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(text_by_reference(), "value");
    EXPECT_EQ(resp->len, 5);
    EXPECT_TRUE(copy_area_untouched());
    EXPECT_TRUE(err_untouched());
}

TEST_F(Answer, AnotherCommandIsDiscardedAndTheWaitGoesOn) {
    arrives({.type = 1, .cmd = 2, .result = -9, .payload = "refused"});
    arrives({.type = 1, .cmd = 23, .payload = "other"});
    arrives({.type = 1, .cmd = 1, .payload = "value"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(text_by_reference(), "value");
    EXPECT_EQ(queue_length(queue.id()), 0);
    EXPECT_TRUE(err_untouched());
}

TEST_F(Answer, AnotherClassUnderTheSameQueueTypeIsDiscarded) {
    arrives({.mtype = 1, .type = 7, .cmd = 1, .payload = "other"});
    arrives({.mtype = 1, .type = 1, .cmd = 1, .payload = "value"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(text_by_reference(), "value");
    EXPECT_EQ(queue_length(queue.id()), 0);
}

TEST_F(Answer, RecordsOfOtherQueueTypesStay) {
    arrives({.type = 5, .cmd = 7});
    arrives({.type = 4, .cmd = 4});
    arrives({.type = 1, .cmd = 2});
    EXPECT_EQ(wait_for(1, 2), 1);
    EXPECT_EQ(queue_length(queue.id()), 2);
}

TEST_F(Answer, TheFirstOfTwoAnswersIsTaken) {
    arrives({.type = 1, .cmd = 1, .payload = "first"});
    arrives({.type = 1, .cmd = 1, .payload = "second"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(text_by_reference(), "first");
    EXPECT_EQ(queue_length(queue.id()), 1);
}

TEST_F(Answer, AnAnswerThatComesLaterIsWaitedFor) {
    int result = 0;
    Worker waiter([&] { result = wait_for(1, 1); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    arrives({.type = 1, .cmd = 2, .payload = "other"});
    EXPECT_TRUE(waiter.wait_until_blocked());
    arrives({.type = 1, .cmd = 1, .payload = "value"});
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(text_by_reference(), "value");
}

// ---- results -----------------------------------------------------------------

TEST_F(Answer, AnyResultFromZeroUpIsSuccess) {
    for (const int result : {0, 1, 2, INT32_MAX}) {
        arrives({.type = 1, .cmd = 2, .result = result});
        EXPECT_EQ(wait_for(1, 2), 1) << result;
    }
}

TEST_F(Answer, ANegativeResultComesWithItsText) {
    arrives({.type = 1, .cmd = 1, .result = -42, .payload = "no such node"});
    StdoutCapture out;
    EXPECT_EQ(wait_for(1, 1), -42);
    EXPECT_EQ(out.stop(), "");
    EXPECT_STREQ(err, "no such node");
    EXPECT_TRUE(resp_untouched());
}

TEST_F(Answer, ANegativeResultWithoutABufferIsReturnedAlone) {
    arrives({.type = 1, .cmd = 1, .result = -42, .payload = "no such node"});
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_msq_response(1, 1, nullptr, resp.get()), -42);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(resp_untouched());
}

TEST_F(Answer, ANegativeResultWithoutTextGivesTheEmptyText) {
    arrives({.type = 5, .cmd = 1, .result = INT32_MIN});
    EXPECT_EQ(wait_for(5, 1), INT32_MIN);
    EXPECT_STREQ(err, "");
}

TEST_F(Answer, AnErrorTextOf1023CharactersIsWhole) {
    const std::string text(1023, 'e');
    arrives({.type = 1, .cmd = 1, .result = -1, .payload = text});
    StdoutCapture out;
    EXPECT_EQ(wait_for(1, 1), -1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(err, text);
}

TEST_F(Answer, ALongerErrorTextIsCutWithAWarning) {
    arrives({.type = 1, .cmd = 1, .result = -1, .payload = std::string(1024, 'e')});
    StdoutCapture out;
    EXPECT_EQ(wait_for(1, 1), -1);
    EXPECT_EQ(out.stop(), overflow_warning(std::string(1023, 'e')));
    EXPECT_EQ(err, std::string(1023, 'e'));
}

// ---- the length of the record before -------------------------------------------

TEST_F(Answer, AHeaderOnlyAnswerKeepsLengthAndTextOfTheRecordBefore) {
    arrives({.type = 1, .cmd = 2, .payload = "stale"});
    arrives({.type = 1, .cmd = 1});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 5);
    EXPECT_EQ(text_by_reference(), "stale");
}

TEST_F(Answer, ANegativeHeaderOnlyAnswerGivesTheTextOfTheRecordBefore) {
    arrives({.type = 1, .cmd = 2, .payload = "stale"});
    arrives({.type = 1, .cmd = 1, .result = -3});
    EXPECT_EQ(wait_for(1, 1), -3);
    EXPECT_STREQ(err, "stale");
}

TEST_F(Answer, ACopiedHeaderOnlyAnswerKeepsLengthAndTextOfTheRecordBefore) {
    arrives({.type = 2, .cmd = 2, .payload = "stale"});
    arrives({.type = 2, .cmd = 1});
    EXPECT_EQ(wait_for(2, 1), 1);
    EXPECT_EQ(resp->len, 5);
    EXPECT_STREQ(resp->data, "stale");
}

TEST_F(Answer, TheFirstHeaderOnlyAnswerIsEmpty) {
    arrives({.type = 1, .cmd = 1});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 0);
    EXPECT_EQ(text_by_reference(), "");
}

TEST_F(Answer, EachWaitStartsAfresh) {
    arrives({.type = 1, .cmd = 1, .payload = "the wait before"});
    EXPECT_EQ(wait_for(1, 1), 1);
    clear_resp();
    arrives({.type = 1, .cmd = 1});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 0);
    EXPECT_EQ(text_by_reference(), "");
}

TEST_F(Answer, EachWaitStartsWithAClearedHeader) {
    arrives({.type = 1, .cmd = 23, .result = -5, .payload = "x"});
    EXPECT_EQ(wait_for(1, 23), -5);
    // Class and command alone: the result is that of the cleared record.
    arrives({.type = 1, .cmd = 1, .msgsz = 8});
    EXPECT_EQ(wait_for(1, 1), 1);
}

TEST_F(Answer, APayloadShowsNoBytesOfALongerOneBefore) {
    arrives({.type = 1, .cmd = 2, .payload = "a longer text"});
    arrives({.type = 1, .cmd = 1, .payload = "ab"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 2);
    EXPECT_EQ(text_by_reference(), "ab");
}

TEST_F(Answer, AnErrorTextShowsNoBytesOfALongerOneBefore) {
    arrives({.type = 1, .cmd = 2, .payload = "a longer text"});
    arrives({.type = 1, .cmd = 1, .result = -1, .payload = "ab"});
    EXPECT_EQ(wait_for(1, 1), -1);
    EXPECT_STREQ(err, "ab");
}

TEST_F(Answer, APayloadShowsNoBytesOfTheWaitBefore) {
    arrives({.type = 1, .cmd = 1, .payload = "a longer text"});
    EXPECT_EQ(wait_for(1, 1), 1);
    arrives({.type = 1, .cmd = 1, .payload = "ab"});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(text_by_reference(), "ab");
}

TEST_F(Answer, TheSizeThatTravelledCountsNotTheHeadersLen) {
    for (const int len : {0, 4, 35000, INT32_MAX, -1}) {
        arrives({.type = 1, .cmd = 1, .payload = "abc", .len = len});
        EXPECT_EQ(wait_for(1, 1), 1);
        EXPECT_EQ(resp->len, 3) << len;
        EXPECT_EQ(text_by_reference(), "abc");
    }
}

// ---- by reference, by copy ------------------------------------------------------

TEST_F(Answer, TheCommandsAnsweredByReferenceAreTheseEight) {
    std::vector<int> by_reference;
    for (int cmd = 0; cmd < 64; ++cmd) {
        clear_resp();
        arrives({.type = 1, .cmd = cmd, .payload = "text"});
        EXPECT_EQ(wait_for(1, cmd), 1) << cmd;
        if (resp->ptr != nullptr) {
            by_reference.push_back(cmd);
            EXPECT_EQ(text_by_reference(), "text");
            EXPECT_EQ(resp->len, 4);
        } else {
            EXPECT_TRUE(resp_untouched()) << cmd;
        }
        EXPECT_TRUE(copy_area_untouched());
    }
    EXPECT_THAT(by_reference, ElementsAre(1, 15, 19, 22, 23, 29, 30, 34));
}

TEST_F(Answer, OtherClassesStoreNothing) {
    for (const int type : {3, 4, 5, 7, 8, 9})
        for (const int cmd : {1, 2, 23}) {
            arrives({.type = type, .cmd = cmd, .arg = 1, .payload = "text"});
            EXPECT_EQ(wait_for(type, cmd), 1);
        }
    EXPECT_TRUE(resp_untouched());
}

TEST_F(Answer, NoAnswerAreaIsNeeded) {
    arrives({.type = 1, .cmd = 1, .payload = "text"});
    EXPECT_EQ(zan_client_recv_msq_response(1, 1, nullptr, nullptr), 1);
    arrives({.type = 2, .cmd = 1, .arg = 1, .payload = "text"});
    EXPECT_EQ(zan_client_recv_msq_response(2, 1, nullptr, nullptr), 0);
}

TEST_F(Answer, ACwmpPayloadIsCopiedWithATerminator) {
    arrives({.type = 2, .cmd = 77, .payload = std::string("a\0b", 3)});
    EXPECT_EQ(wait_for(2, 77), 1);
    EXPECT_EQ(std::string(resp->data, 5), std::string("a\0b\0#", 5));
    EXPECT_EQ(resp->len, 3);
    EXPECT_EQ(resp->ptr, nullptr);
}

TEST_F(Answer, AnEmptyCwmpAnswerIsTheEmptyText) {
    arrives({.type = 2, .cmd = 77});
    EXPECT_EQ(wait_for(2, 77), 1);
    EXPECT_EQ(std::string(resp->data, 2), std::string("\0#", 2));
    EXPECT_EQ(resp->len, 0);
}

TEST_F(Answer, ACwmpAnswerWithArgumentOneGivesZero) {
    for (const int arg : {1, 0, 2, -1}) {
        arrives({.type = 2, .cmd = 77, .arg = arg, .payload = "x"});
        EXPECT_EQ(wait_for(2, 77), arg == 1 ? 0 : 1) << arg;
        EXPECT_STREQ(resp->data, "x");
    }
}

TEST_F(Answer, ARefusedCwmpRequestCopiesNothing) {
    arrives({.type = 2, .cmd = 77, .result = -8, .arg = 1, .payload = "refused"});
    EXPECT_EQ(wait_for(2, 77), -8);
    EXPECT_STREQ(err, "refused");
    EXPECT_TRUE(resp_untouched());
}

TEST_F(Answer, APayloadThatFillsTheRecordIsTakenByReference) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string payload(35000, 'p');
    arrives({.type = 1, .cmd = 1, .payload = payload});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 35000);
    EXPECT_EQ(text_by_reference(), payload);
}

TEST_F(Answer, APayloadThatFillsTheCopyAreaLeavesNoRoomForATerminator) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string payload(35000, 'p');
    arrives({.type = 2, .cmd = 1, .payload = payload});
    EXPECT_EQ(wait_for(2, 1), 1);
    EXPECT_EQ(resp->len, 35000);
    EXPECT_EQ(std::string(resp->data, sizeof resp->data), payload);

    arrives({.type = 2, .cmd = 1, .payload = payload.substr(1)});
    EXPECT_EQ(wait_for(2, 1), 1);
    EXPECT_EQ(resp->len, 34999);
    EXPECT_EQ(resp->data[34999], '\0');
}

TEST_F(Answer, AnErrorTextThatFillsTheRecordIsCut) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    arrives({.type = 2, .cmd = 1, .result = -1, .payload = std::string(35000, 'e')});
    StdoutCapture out;
    EXPECT_EQ(wait_for(2, 1), -1);
    EXPECT_EQ(out.stop(), overflow_warning(std::string(1023, 'e')));
}

// ---- records that are none, and queues that go ------------------------------------

TEST_F(Answer, RecordsShorterThanAHeaderAreReadAsFarAsTheyReach) {
    arrives({.mtype = 1, .msgsz = 0});
    arrives({.type = 1, .cmd = 5, .msgsz = 4}); // its command stays what it was: 0
    arrives({.type = 1, .cmd = 1, .msgsz = 99});
    EXPECT_EQ(wait_for(1, 1), 1);
    EXPECT_EQ(resp->len, 0);
    EXPECT_EQ(text_by_reference(), "");
    EXPECT_EQ(queue_length(queue.id()), 0);
}

TEST_F(Answer, ARecordLongerThanAnyAnswerFailsTheWait) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    struct {
        long mtype = 1;
        char bytes[35101] = {};
    } const oversized;
    ASSERT_EQ(msgsnd(queue.id(), &oversized, sizeof oversized.bytes, IPC_NOWAIT), 0);
    StdoutCapture out;
    EXPECT_EQ(wait_for(1, 1), -1);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(out.stop(), line("zan_msg_recv qid=%d ERROR:Argument list too long\n", queue.id()));
    EXPECT_TRUE(resp_untouched());
    EXPECT_TRUE(err_untouched());
}

TEST_F(Answer, WithoutAnOwnQueueTheWaitFailsSilently) {
    g_msq_qid = -1;
    StdoutCapture out;
    EXPECT_EQ(wait_for(1, 1), -1);
    EXPECT_EQ(wait_for(2, 1), -1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(resp_untouched());
    EXPECT_TRUE(err_untouched());
}

TEST_F(Answer, AQueueThatGoesEndsTheWait) {
    StdoutCapture out;
    int result = 0;
    Worker waiter([&] { result = wait_for(1, 1); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    remove_queue(queue.id());
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out.stop(), line("zan_msg_recv qid=%d ERROR:Identifier removed\n", queue.id()));
}

TEST_F(Answer, AnInterruptedWaitGoesOnOnce) {
    StdoutCapture out;
    int result = 0;
    Worker waiter([&] { result = wait_for(1, 1); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    const std::string retry = line("EINTR[%d]:retry...\n", queue.id());
    EXPECT_TRUE(out.wait_for(retry));
    arrives({.type = 1, .cmd = 1, .payload = "value"});
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(out.stop(), retry);
    EXPECT_EQ(text_by_reference(), "value");
}

// ---- the registration answer --------------------------------------------------

class RegistrationAnswer : public Answer {
protected:
    RegistrationAnswer() { g_reg_msq_qid = queue.id(); }
    ~RegistrationAnswer() override { g_reg_msq_qid = -1; }
};

TEST_F(RegistrationAnswer, IsTheResultUnderTheQueuesId) {
    arrives({.mtype = 76, .type = 3, .result = 5});
    arrives({.mtype = 77, .type = 3, .result = 6, .payload = "text"});
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), 6);
    EXPECT_TRUE(err_untouched());
    EXPECT_EQ(queue_length(queue.id()), 1);
    EXPECT_EQ(zan_client_recv_reg_msq(76, nullptr), 5);
}

TEST_F(RegistrationAnswer, IsTakenWhateverItsClassAndCommand) {
    arrives({.mtype = 77, .type = 9, .cmd = 9, .result = 0});
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), 0);
}

TEST_F(RegistrationAnswer, ANegativeResultComesWithItsText) {
    arrives({.mtype = 77, .type = 3, .result = -4, .payload = "name taken"});
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), -4);
    EXPECT_STREQ(err, "name taken");
    arrives({.mtype = 77, .type = 3, .result = -4});
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), -4);
    EXPECT_STREQ(err, "");
    arrives({.mtype = 77, .type = 3, .result = -4, .payload = "name taken"});
    EXPECT_EQ(zan_client_recv_reg_msq(77, nullptr), -4);
}

TEST_F(RegistrationAnswer, ALongErrorTextIsCutWithAWarning) {
    arrives({.mtype = 77, .type = 3, .result = -4, .payload = std::string(2000, 'e')});
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), -4);
    EXPECT_EQ(out.stop(), overflow_warning(std::string(1023, 'e')));
}

TEST_F(RegistrationAnswer, AShortRecordReadsAsZeroBehindItsEnd) {
    arrives({.mtype = 77, .type = 3, .result = -4, .msgsz = 84});
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), 0);
}

TEST_F(RegistrationAnswer, AFailedWaitIsReturned) {
    StdoutCapture out;
    remove_queue(queue.id());
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), -1);
    g_reg_msq_qid = -1;
    EXPECT_EQ(zan_client_recv_reg_msq(77, err), -1);
    EXPECT_EQ(out.stop(), line("zan_msg_recv qid=%d ERROR:Invalid argument\n", queue.id()));
    EXPECT_TRUE(err_untouched());
}

// ---- polling --------------------------------------------------------------------

std::vector<std::string> calls;

// Copies as much as it is told, as handlers do.
int on_message(char *data, int len, zan_body *) {
    calls.push_back("message " + std::string(data, static_cast<std::size_t>(len)));
    return 0;
}

int on_event(int event, int type) {
    calls.push_back("event " + std::to_string(event) + " " + std::to_string(type));
    return 0;
}

int on_value(char *f1, char *f2, char *f3, char *f6, int f4) {
    calls.push_back(std::string("value ") + f1 + "," + f2 + "," + f3 + "," + f6 + "," +
                    std::to_string(f4));
    return 0;
}

class Poll : public Answer {
protected:
    Poll() {
        calls.clear();
        zan_set_message_handler(on_message);
        zan_set_event_handler(on_event);
        zan_set_value_changed_handler(on_value);
        std::memset(static_cast<void *>(msg.get()), 0xff, sizeof *msg);
    }
    ~Poll() override {
        zan_set_message_handler(nullptr);
        zan_set_event_handler(nullptr);
        zan_set_value_changed_handler(nullptr);
    }

    // The lines, that of the primitive and that of the function, up to the reason.
    void expect_too_long_for(int (*take)(zan_msg *, int, int), const char *primitive_line,
                             const char *function_line) {
        arrives({.type = 4, .cmd = 4, .payload = "text"});
        StdoutCapture out;
        EXPECT_EQ(take(msg.get(), 4, 103), 0);
        const std::string reason = "Argument list too long\n";
        EXPECT_EQ(out.stop(), line(primitive_line, queue.id()) + reason +
                                  line(function_line, queue.id()) + reason);
        EXPECT_EQ(queue_length(queue.id()), 1);
        EXPECT_THAT(calls, IsEmpty());
    }

    std::unique_ptr<zan_msg> msg = std::make_unique<zan_msg>();
};

TEST_F(Poll, NothingWaitingIsZeroAndSilent) {
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), 0);
    EXPECT_EQ(zan_recv_msq(), 0);
    EXPECT_EQ(zan_recv_notify_msq(), 0);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(Poll, OneWaitingRecordIsDispatched) {
    arrives({.type = 4, .cmd = 4, .payload = "one"});
    arrives({.type = 4, .cmd = 4, .payload = "two"});
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), 1);
    EXPECT_THAT(calls, ElementsAre("message one"));
    EXPECT_EQ(queue_length(queue.id()), 1);
}

TEST_F(Poll, TheRecordIsInTheCallersStorage) {
    const Fields fields{.mtype = 4, .type = 4, .cmd = 4, .src = "peer", .payload = "text"};
    arrives(fields);
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), 1);
    EXPECT_EQ(msg->mtype, 4);
    EXPECT_EQ(std::memcmp(&msg->body, make_record(fields).record.bytes, 104), 0);
}

TEST_F(Poll, ARecordNobodyHandlesIsTakenWithZero) {
    arrives({.type = 1, .cmd = 1, .payload = "answer"});
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 0, 35100), 0);
    EXPECT_EQ(queue_length(queue.id()), 0);
    arrives({.type = 6});
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 6, 35100), 0);
    EXPECT_EQ(out.stop(), "receive unknown module message[6]\n");
}

TEST_F(Poll, WithoutAnOwnQueueItIsMinusOneAndSilent) {
    g_msq_qid = -1;
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), -1);
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 4, 35100), -1);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(Poll, AMissingQueueIsReportedTwiceWithZero) {
    remove_queue(queue.id());
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), 0);
    EXPECT_EQ(out.stop(),
              line("zan_msg_recv_no_wait msqid=%d ERROR:Invalid argument\n", queue.id()) +
                  line("zan_client_recv_msq_no_wait: receive msq message error, msgid: %d. "
                       "Error:Invalid argument\n",
                       queue.id()));
}

TEST_F(Poll, ARecordLongerThanTheMaximumIsReportedAndStays) {
    expect_too_long_for(zan_client_recv_msq_no_wait, "zan_msg_recv_no_wait msqid=%d ERROR:",
                        "zan_client_recv_msq_no_wait: receive msq message error, msgid: %d. "
                        "Error:");
}

TEST_F(Poll, DirectMessagesAreClassFour) {
    arrives({.type = 5, .cmd = 8, .payload = std::string("\x07\0\0\0", 4)});
    arrives({.type = 4, .cmd = 4, .payload = "hello"});
    EXPECT_EQ(zan_recv_msq(), 1);
    EXPECT_EQ(zan_recv_msq(), 0);
    EXPECT_THAT(calls, ElementsAre("message hello"));
    EXPECT_EQ(queue_length(queue.id()), 1);
}

TEST_F(Poll, NotificationsAreClassFive) {
    arrives({.type = 4, .cmd = 4, .payload = "hello"});
    arrives({.type = 5, .cmd = 8, .payload = std::string("\x07\0\0\0", 4)});
    EXPECT_EQ(zan_recv_notify_msq(), 1);
    EXPECT_EQ(zan_recv_notify_msq(), 0);
    EXPECT_THAT(calls, ElementsAre("event 7 5"));
    EXPECT_EQ(queue_length(queue.id()), 1);
}

TEST_F(Poll, MessagesAndNotificationsOfFullLengthAreTaken) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string payload(35000, 'p');
    arrives({.type = 4, .cmd = 4, .payload = payload});
    EXPECT_EQ(zan_recv_msq(), 1);
    EXPECT_THAT(calls, ElementsAre("message " + payload));
    calls.clear();
    arrives({.type = 5, .cmd = 7, .payload = payload});
    EXPECT_EQ(zan_recv_notify_msq(), 1);
    EXPECT_THAT(calls, ElementsAre("value " + payload.substr(0, 31) + ",,,,1"));
}

TEST_F(Poll, TheirErrorsAreThoseOfThePrimitives) {
    remove_queue(queue.id());
    StdoutCapture out;
    EXPECT_EQ(zan_recv_msq(), 0);
    EXPECT_EQ(zan_recv_notify_msq(), 0);
    const std::string lines =
        line("zan_msg_recv_no_wait msqid=%d ERROR:Invalid argument\n", queue.id()) +
        line("zan_client_recv_msq_no_wait: receive msq message error, msgid: %d. "
             "Error:Invalid argument\n",
             queue.id());
    EXPECT_EQ(out.stop(), lines + lines);
}

TEST_F(Poll, WithoutAnOwnQueueTheyReportIt) {
    g_msq_qid = -1;
    StdoutCapture out;
    errno = EINVAL;
    EXPECT_EQ(zan_recv_msq(), -1);
    errno = EIDRM;
    EXPECT_EQ(zan_recv_notify_msq(), -1);
    errno = ENOMSG; // as an empty queue left it
    EXPECT_EQ(zan_recv_msq(), -1);
    EXPECT_EQ(out.stop(),
              "zan_recv_msq:receive msq message error, msgid: -1. Error:Invalid argument\n"
              "zan_recv_notify_msq:receive msq message error, msgid: -1. "
              "Error:Identifier removed\n");
}

TEST_F(Poll, BehindAShortRecordTheCallersStorageReadsAsZero) {
    arrives({.type = 5, .cmd = 8, .payload = "\x01", .len = 4});
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 5, 35100), 1);
    arrives({.type = 5, .cmd = 8});
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 5, 35100), 1);
    arrives({.type = 5, .cmd = 8, .msgsz = 8});
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 5, 35100), 1);
    EXPECT_EQ(msg->body.len, 0);
    EXPECT_THAT(calls, ElementsAre("event 1 5", "event 0 5", "event 0 5"));
}

TEST_F(Poll, AValueChangeEndsWhereItsPayloadEnds) {
    std::memset(msg->body.data, 'x', sizeof msg->body.data);
    arrives({.type = 5, .cmd = 7, .payload = "a b c 1 2 d"});
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 5, 35100), 1);
    arrives({.type = 5, .cmd = 7});
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 5, 35100), 1);
    EXPECT_THAT(calls, ElementsAre("value a,b,c,d,1", "value ,,,,1"));
}

// The sender's len may promise more than it sent: what the handler then reads is not
// left over from earlier records.
TEST_F(Poll, AMessageShorterThanItsLenReadsAsZeroBehindIt) {
    arrives({.type = 4, .cmd = 4, .payload = "ab", .len = 6});
    EXPECT_EQ(zan_client_recv_msq_no_wait(msg.get(), 4, 35100), 1);
    arrives({.type = 4, .cmd = 4, .payload = "cd", .len = INT32_MAX});
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 4, 35100), 1);
    arrives({.type = 4, .cmd = 4, .payload = "ef", .len = 35000});
    EXPECT_EQ(zan_recv_msq(), 1);
    EXPECT_THAT(calls, ElementsAre("message ab" + std::string(4, '\0'),
                                   "message cd" + std::string(34998, '\0'),
                                   "message ef" + std::string(34998, '\0')));
}

// ---- waiting on a caller's storage ----------------------------------------------

TEST_F(Poll, TheWaitingFormWaits) {
    int result = -1;
    Worker waiter([&] { result = zan_client_recv_msq2(msg.get(), 4, 35100); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    arrives({.type = 4, .cmd = 4, .payload = "late"});
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_THAT(calls, ElementsAre("message late"));
}

TEST_F(Poll, TheWaitingFormTakesTheFirstOfItsType) {
    arrives({.type = 5, .cmd = 8, .payload = std::string("\x07\0\0\0", 4)});
    arrives({.type = 4, .cmd = 4, .payload = "one"});
    arrives({.type = 4, .cmd = 4, .payload = "two"});
    EXPECT_EQ(zan_client_recv_msq2(msg.get(), 4, 35100), 1);
    EXPECT_THAT(calls, ElementsAre("message one"));
    EXPECT_EQ(queue_length(queue.id()), 2);
}

TEST_F(Poll, TheWaitingFormReportsARecordLongerThanTheMaximumWhichStays) {
    expect_too_long_for(zan_client_recv_msq2, "zan_msg_recv qid=%d ERROR:",
                        "zan_client_recv_msq2: receive msq message error, msgid: %d. Error:");
}

TEST_F(Poll, TheWaitingFormGivesZeroWhenItIsInterrupted) {
    StdoutCapture out;
    int result = -1;
    Worker waiter([&] { result = zan_client_recv_msq2(msg.get(), 4, 35100); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    ASSERT_TRUE(waiter.interrupt_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(
        out.stop(),
        line("EINTR[%d]:retry...\n", queue.id()) +
            line("Retry fail[zan_msg_recv] qid=%d ERROR:Interrupted system call\n", queue.id()));
}

TEST_F(Poll, TheWaitingFormReportsOtherErrorsWithZero) {
    StdoutCapture out;
    int result = -1;
    Worker waiter([&] { result = zan_client_recv_msq2(msg.get(), 4, 35100); });
    EXPECT_TRUE(waiter.wait_until_blocked());
    remove_queue(queue.id());
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(out.stop(), line("zan_msg_recv qid=%d ERROR:Identifier removed\n", queue.id()) +
                              line("zan_client_recv_msq2: receive msq message error, msgid: %d. "
                                   "Error:Identifier removed\n",
                                   queue.id()));
}

} // namespace
} // namespace zan::test
