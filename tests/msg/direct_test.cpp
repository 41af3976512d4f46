// SPDX-License-Identifier: MIT
#include "clogged_link.h"

#include "support/capture.h"
#include "support/commands.h"
#include "support/module_test.h"
#include "support/patience.h"
#include "support/stream_peer.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::IsEmpty;

constexpr int message = class_message;
constexpr int broadcast = class_broadcast;
constexpr int longest_message = 1024;

std::string text_of(std::size_t size) {
    std::string text;
    for (int part = 0; text.size() < size; ++part)
        text += std::to_string(part) + ",";
    text.resize(size);
    return text;
}

// ---- over the queue ----------------------------------------------------------------

struct QueueSend {
    const char *name;
    int (*send)(const char *module, const void *data, int len);
    int type;
    int cmd;
    bool acknowledged;

    int result() const { return acknowledged ? 1 : 0; }
};

constexpr QueueSend plain_send = {"zan_send", zan_send, message, 4, false};
constexpr QueueSend send_with_ack = {"zan_send_with_ack", zan_send_with_ack, message, 1, true};
constexpr QueueSend send_all = {"zan_send_all", zan_send_all, broadcast, 3, true};

void PrintTo(const QueueSend &form, std::ostream *out) {
    *out << form.name;
}

class QueueMessages : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        // The plain form is not answered.
        daemon.on(message, 4, never());
        daemon.on(message, 1, {{.cmd = 2}});
        daemon.on(broadcast, 3, {{.cmd = 2}});
    }

    // The only record that has arrived, and, but for its time, what it must be.
    void expect_sent(const QueueSend &form, const std::string &dst, const std::string &payload) {
        const SizedRecord sent = daemon.wait_for_records(1).front();
        daemon.forget_records();
        const std::int32_t time = sent.record.word(at::time);
        EXPECT_TRUE(is_recent(time));
        EXPECT_TRUE(same_record(sent, {.mtype = g_msq_qid,
                                       .type = form.type,
                                       .cmd = form.cmd,
                                       .dst = dst,
                                       .src = "probe",
                                       .pid = static_cast<std::int32_t>(getpid()),
                                       .time = time,
                                       .payload = payload}));
    }

    static std::string send_failure() {
        return "zan_msg_send qid=" + std::to_string(g_zan_qid) +
               " ERROR:Invalid argument\n"
               "zan_msq_send send failed\n";
    }
};

class EachQueueSend : public QueueMessages, public testing::WithParamInterface<QueueSend> {
protected:
    const QueueSend &form = GetParam();
};

TEST_P(EachQueueSend, IsOneRecord) {
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), form.result());
    EXPECT_EQ(out.stop(), "");
    expect_sent(form, "peer", "hello");
}

TEST_P(EachQueueSend, CarriesAnyBytes) {
    const std::string bytes("\0\1\xff\0\n", 5);
    EXPECT_EQ(form.send("peer", bytes.data(), 5), form.result());
    expect_sent(form, "peer", bytes);
}

TEST_P(EachQueueSend, CutsAt1024Bytes) {
    for (const int size : {0, 1, 1023, 1024, 1025, 1500, 40000}) {
        const std::string text = text_of(static_cast<std::size_t>(size));
        EXPECT_EQ(form.send("peer", text.data(), size), form.result());
        expect_sent(form, "peer", text.substr(0, longest_message));
    }
}

TEST_P(EachQueueSend, ShowsNothingOfALongerOneBefore) {
    EXPECT_EQ(form.send("a longer name", text_of(1000).data(), 1000), form.result());
    daemon.wait_for_records(1);
    daemon.forget_records();
    EXPECT_EQ(form.send("peer", "hello", 5), form.result());
    expect_sent(form, "peer", "hello");
}

TEST_P(EachQueueSend, LeavesTheQueueLockFree) {
    zan_msq_lock_init();
    EXPECT_EQ(form.send("peer", "hello", 5), form.result());
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

// A name may run over the fields behind; those set later are right nevertheless.
TEST_P(EachQueueSend, ALongNameRunsOverTheFieldsBehindIt) {
    const std::string name = text_of(80);
    EXPECT_EQ(form.send(name.c_str(), "hello", 5), form.result());
    const SizedRecord sent = daemon.wait_for_records(1).front();
    SizedRecord expected = make_record({.mtype = g_msq_qid,
                                        .type = form.type,
                                        .cmd = form.cmd,
                                        .dst = name,
                                        .pid = static_cast<std::int32_t>(getpid()),
                                        .time = sent.record.word(at::time),
                                        .payload = "hello",
                                        .msgsz = 105});
    expected.record.set_bytes(at::dst, name);
    expected.record.set_bytes(at::src, std::string("probe\0", 6));
    expected.record.set_word(at::pid, static_cast<std::int32_t>(getpid()));
    expected.record.set_word(at::time, sent.record.word(at::time));
    EXPECT_TRUE(same_record(sent, expected));
}

TEST_P(EachQueueSend, ANameMayFillTheRecord) {
    const std::string name = text_of(1500); // cut like any text
    StdoutCapture out;
    EXPECT_EQ(form.send(name.c_str(), text_of(1024).data(), 1024), form.result());
    EXPECT_EQ(out.stop(), overflow_warning(name.substr(0, 1023)));
    const SizedRecord sent = daemon.wait_for_records(1).front();
    EXPECT_EQ(sent.msgsz, 1124U);
    EXPECT_EQ(sent.payload(), text_of(1024));
}

TEST_P(EachQueueSend, RefusesWhatIsNoMessage) {
    zan_msq_lock_init();
    EXPECT_EQ(form.send(nullptr, "hello", 5), -1);
    EXPECT_EQ(form.send("peer", nullptr, 5), -1);
    EXPECT_EQ(form.send("peer", "hello", -1), -1);
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
    EXPECT_EQ(form.send("peer", nullptr, 0), form.result());
    expect_sent(form, "peer", "");
}

TEST_P(EachQueueSend, ThatFailsKeepsTheQueueLock) {
    zan_msq_lock_init();
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
    EXPECT_EQ(out.stop(), send_failure());

    StdoutCapture quiet;
    int result = 0;
    Worker next([&] { result = zan_send("peer", "hello", 5); });
    EXPECT_TRUE(next.wait_until_blocked());
    zan_msq_unlock(); // by the thread whose send failed
    ASSERT_TRUE(next.wait_until_done());
    EXPECT_EQ(result, -1);
}

TEST_P(EachQueueSend, NeedsNoLock) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
    EXPECT_EQ(out.stop(), send_failure() + send_failure());
}

TEST_P(EachQueueSend, WithoutADaemonFails) {
    const int qid = g_zan_qid;
    g_zan_qid = -1;
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
    EXPECT_EQ(out.stop(), "zan_msq_send send failed\n");
    g_zan_qid = qid;
}

INSTANTIATE_TEST_SUITE_P(Forms, EachQueueSend, testing::Values(plain_send, send_with_ack, send_all),
                         [](const auto &form) { return form.param.name; });

class EachAcknowledgedSend : public EachQueueSend {};

TEST_P(EachAcknowledgedSend, WaitsForTheAcknowledgementUnderTheLock) {
    zan_msq_lock_init();
    daemon.on(form.type, form.cmd, {{.cmd = 2, .held = true}});
    int result = 0;
    Worker sender([&] { result = form.send("peer", "hello", 5); });
    daemon.wait_for_records(1);
    EXPECT_TRUE(sender.wait_until_blocked());
    LockProbe probe(zan_msq_lock, zan_msq_unlock);
    EXPECT_FALSE(probe.is_free());
    daemon.release();
    ASSERT_TRUE(sender.wait_until_done());
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_P(EachAcknowledgedSend, DiscardsOtherRecordsOfItsClass) {
    daemon.on(form.type, form.cmd,
              {{.payload = "a message", .cmd = 4}, {.result = -3, .cmd = 1}, {.cmd = 2}});
    EXPECT_EQ(form.send("peer", "hello", 5), 1);
    EXPECT_EQ(queue_length(g_msq_qid), 0);
}

TEST_P(EachAcknowledgedSend, GivesTheDaemonsRefusal) {
    zan_msq_lock_init();
    daemon.on(form.type, form.cmd, {{.result = -77, .payload = "no such module", .cmd = 2}});
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -77);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

TEST_P(EachAcknowledgedSend, EndsWithItsQueue) {
    zan_msq_lock_init();
    daemon.on(form.type, form.cmd, never());
    StdoutCapture out;
    int result = 0;
    Worker sender([&] { result = form.send("peer", "hello", 5); });
    daemon.wait_for_records(1);
    EXPECT_TRUE(sender.wait_until_blocked());
    remove_queue(g_msq_qid);
    ASSERT_TRUE(sender.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(LockProbe(zan_msq_lock, zan_msq_unlock).is_free());
}

INSTANTIATE_TEST_SUITE_P(Forms, EachAcknowledgedSend, testing::Values(send_with_ack, send_all),
                         [](const auto &form) { return form.param.name; });

TEST_F(QueueMessages, APlainSendWaitsForNothing) {
    daemon.on(message, 4, {{.cmd = 2}});
    EXPECT_EQ(zan_send("peer", "hello", 5), 0);
    // The acknowledgement nobody asked for stays on the queue.
    EXPECT_TRUE(eventually([] { return queue_length(g_msq_qid) == 1; }));
}

// ---- beside the locking receive thread ------------------------------------------------

std::atomic<int> messages_handled = 0;
std::atomic<bool> handler_may_return = false;

class BesideReceiveThread : public QueueMessages {
protected:
    BesideReceiveThread() {
        messages_handled = 0;
        handler_may_return = false;
    }

    void start_thread(zan_message_fn handler) {
        zan_set_message_handler(handler);
        ASSERT_EQ(zan_thread_create(message), 0);
        ASSERT_TRUE(out.wait_for("zan_thread_create: mtype=4"));
    }

    // Without its queue the thread comes to an end.
    void TearDown() override {
        QueueMessages::TearDown();
        EXPECT_TRUE(out.wait_for("count=3"));
    }

    StdoutCapture out;
};

TEST_F(BesideReceiveThread, ASendWaitsForTheHandler) {
    start_thread([](char *, int, zan_body *) {
        ++messages_handled;
        return eventually([] { return handler_may_return.load(); }) ? 0 : 1;
    });
    ASSERT_TRUE(raw_send(g_msq_qid, {.mtype = message, .type = message, .cmd = 4}));
    ASSERT_TRUE(eventually([] { return messages_handled == 1; }));
    int result = -7;
    Worker sender([&] { result = zan_send_with_ack("peer", "hello", 5); });
    EXPECT_TRUE(sender.wait_until_blocked());
    EXPECT_THAT(daemon.records(), IsEmpty());
    handler_may_return = true;
    ASSERT_TRUE(sender.wait_until_done());
    EXPECT_EQ(result, 1);
}

// ---- over the link of an agent ---------------------------------------------------------

struct LinkSend {
    const char *name;
    int (*send)(const char *module, const void *data, int len);
    int type;
    int cmd;
    // What is printed when nothing was sent and there is no daemon's queue either.
    const char *failure;
};

constexpr LinkSend send_agent = {"zan_send_agent", zan_send_agent, message, 1,
                                 "zan_ipc_send send failed\n"};
constexpr LinkSend send_all_agent = {"zan_send_all_agent", zan_send_all_agent, broadcast, 3,
                                     "zan_ipc_send send failed! Try zan_send_all ...\n"
                                     "zan_msq_send send failed\n"
                                     "zan_send_all fail!\n"};

void PrintTo(const LinkSend &form, std::ostream *out) {
    *out << form.name;
}

// An agent "agent" of module "probe" without queues.
class EachLinkSend : public testing::TestWithParam<LinkSend> {
protected:
    EachLinkSend() {
        g_zan_qid = -1;
        zan_strcpy(g_module_name, "probe", sizeof g_module_name);
        zan_strcpy(g_agent_name, "agent", sizeof g_agent_name);
        g_ipc_handle = zan_ipc_create("agent", 0);
    }

    void SetUp() override {
        ASSERT_GE(g_ipc_handle, 0);
        ASSERT_TRUE(peer.wait_for_connections(1));
    }

    ~EachLinkSend() override {
        zan_ipc_delete(g_ipc_handle);
        reset_locks();
    }

    void acknowledged(std::int32_t result = 1, const std::string &text = {}) {
        peer.reply(stream_bytes({.type = form.type, .cmd = 2, .result = result, .payload = text},
                                ByteOrder::network));
    }

    void expect_sent(const std::string &dst, const std::string &payload) {
        const std::string sent = peer.wait_for_records(1).front();
        peer.forget_records();
        Fields expected = {.type = form.type,
                           .cmd = form.cmd,
                           .dst = dst,
                           .src = "agent",
                           .pid = static_cast<std::int32_t>(getpid()),
                           .payload = payload};
        std::copy_n(sent.data() + at::time, sizeof expected.time,
                    reinterpret_cast<char *>(&expected.time));
        EXPECT_TRUE(is_recent(expected.time));
        EXPECT_TRUE(same_bytes(sent, stream_bytes(expected, ByteOrder::host)));
    }

    const LinkSend &form = GetParam();
    StreamPeer peer;
};

TEST_P(EachLinkSend, IsOneRecordInHostOrder) {
    acknowledged();
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), 1);
    EXPECT_EQ(out.stop(), "");
    expect_sent("peer", "hello");
    EXPECT_EQ(peer.unfinished(), "");
}

TEST_P(EachLinkSend, CutsAt1024Bytes) {
    for (const int size : {0, 1, 1023, 1024, 1025, 1500, 40000}) {
        const std::string text = text_of(static_cast<std::size_t>(size));
        acknowledged();
        EXPECT_EQ(form.send("peer", text.data(), size), 1);
        expect_sent("peer", text.substr(0, longest_message));
    }
}

TEST_P(EachLinkSend, GivesTheDaemonsRefusal) {
    acknowledged(-77, "no such module");
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -77);
    EXPECT_EQ(out.stop(), "");
}

TEST_P(EachLinkSend, EndsWithTheLink) {
    peer.hang_up_at_next_record();
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
}

TEST_P(EachLinkSend, TakesNoLock) {
    zan_msq_lock_init();
    zan_api_lock_init();
    zan_msq_lock();
    zan_api_lock();
    acknowledged();
    EXPECT_EQ(form.send("peer", "hello", 5), 1);
    zan_api_unlock();
    zan_msq_unlock();
}

TEST_P(EachLinkSend, SetsOtherRecordsAside) {
    peer.reply(stream_bytes({.type = message, .cmd = 4, .payload = "hi"}, ByteOrder::network) +
               stream_bytes({.type = form.type, .cmd = 2, .result = 1}, ByteOrder::network));
    messages_handled = 0;
    zan_set_message_handler([](char *, int, zan_body *) { return ++messages_handled; });
    EXPECT_EQ(form.send("peer", "hello", 5), 1);
    EXPECT_EQ(messages_handled, 0);
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0);
    EXPECT_EQ(messages_handled, 1);
}

TEST_P(EachLinkSend, RefusesWhatIsNoMessage) {
    EXPECT_EQ(form.send(nullptr, "hello", 5), -1);
    EXPECT_EQ(form.send("peer", nullptr, 5), -1);
    EXPECT_EQ(form.send("peer", "hello", -1), -1);
    acknowledged();
    EXPECT_EQ(form.send("peer", nullptr, 0), 1);
    expect_sent("peer", "");
}

TEST_P(EachLinkSend, WithoutALinkFails) {
    const int link = g_ipc_handle;
    g_ipc_handle = -1;
    StdoutCapture out;
    EXPECT_EQ(form.send("peer", "hello", 5), -1);
    EXPECT_EQ(out.stop(),
              std::string("ipc socket send failed, Bad file descriptor\n") + form.failure);
    g_ipc_handle = link;
}

INSTANTIATE_TEST_SUITE_P(Forms, EachLinkSend, testing::Values(send_agent, send_all_agent),
                         [](const auto &form) { return form.param.name; });

class CloggedLink : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        daemon.on(broadcast, 3, {{.cmd = 2}});
        StreamPeer peer;
        zan_ipc_delete(zan_ipc_create("agent", 0));
        link.emplace();
        g_ipc_handle = link->module_end();
    }

    void TearDown() override {
        StdoutCapture out;
        zan_ipc_delete(g_ipc_handle);
        ModuleTest::TearDown();
    }

    std::optional<CloggedLinkEnds> link;
};

TEST_F(CloggedLink, AnAgentsSendDoesNotGo) {
    link->make_room();
    StdoutCapture out;
    EXPECT_EQ(zan_send_agent("peer", "hello", 5), 0);
    EXPECT_EQ(out.stop(), "get failed packet buffer, start sending...\n"
                          "zan_ipc_send send failed\n");
}

TEST_F(CloggedLink, AnAgentsSendDoesNotGoWithoutRoomEither) {
    StdoutCapture out;
    EXPECT_EQ(zan_send_agent("peer", "hello", 5), -3);
    EXPECT_EQ(out.stop(), "get failed packet buffer, start sending...\n"
                          "resend failed packet ret = -1, Resource temporarily unavailable\n"
                          "zan_ipc_send send failed\n");
}

TEST_F(CloggedLink, ABroadcastGoesOverTheQueue) {
    link->make_room();
    StdoutCapture out;
    EXPECT_EQ(zan_send_all_agent("peer", "hello", 5), 1);
    EXPECT_EQ(out.stop(), "get failed packet buffer, start sending...\n"
                          "zan_ipc_send send failed! Try zan_send_all ...\n"
                          "zan_send_all ok!\n");
    const SizedRecord sent = daemon.wait_for_records(1).front();
    EXPECT_TRUE(same_record(sent, {.mtype = g_msq_qid,
                                   .type = broadcast,
                                   .cmd = 3,
                                   .dst = "peer",
                                   .src = "probe",
                                   .pid = static_cast<std::int32_t>(getpid()),
                                   .time = sent.record.word(at::time),
                                   .payload = "hello"}));
}

class Fallback : public ModuleTest {
protected:
    Fallback() { g_ipc_handle = -1; }
    const std::string no_link = "ipc socket send failed, Bad file descriptor\n"
                                "zan_ipc_send send failed! Try zan_send_all ...\n";
};

TEST_F(Fallback, ThatIsAcknowledgedIsOk) {
    daemon.on(broadcast, 3, {{.cmd = 2}});
    StdoutCapture out;
    EXPECT_EQ(zan_send_all_agent("peer", "hello", 5), 1);
    EXPECT_EQ(out.stop(), no_link + "zan_send_all ok!\n");
}

TEST_F(Fallback, ThatIsRefusedHasFailed) {
    daemon.on(broadcast, 3, {{.result = -77, .cmd = 2}});
    StdoutCapture out;
    EXPECT_EQ(zan_send_all_agent("peer", "hello", 5), -77);
    EXPECT_EQ(out.stop(), no_link + "zan_send_all fail!\n");
}

TEST_F(Fallback, ThatIsNotSentHasFailed) {
    daemon.die();
    StdoutCapture out;
    EXPECT_EQ(zan_send_all_agent("peer", "hello", 5), -1);
    EXPECT_EQ(out.stop(), no_link + "zan_msg_send qid=" + std::to_string(g_zan_qid) +
                              " ERROR:Invalid argument\n"
                              "zan_msq_send send failed\n"
                              "zan_send_all fail!\n");
}

} // namespace
} // namespace zan::test
