// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>

namespace zan::test {
namespace {

// What no call sets errno to.
constexpr int untouched = 7777;

std::string line(const char *format, int qid) {
    char text[128];
    std::snprintf(text, sizeof text, format, qid);
    return text;
}

int queue_of_key(const std::string &path, int proj_id) {
    return msgget(ftok(path.c_str(), proj_id), 0);
}

// A queue the library created, and the key files of a test, removed afterwards.
class QueueCreation : public testing::Test {
protected:
    ~QueueCreation() override {
        for (const int qid : queues_)
            remove_queue(qid);
        for (const std::string &path : files_)
            unlink(path.c_str());
    }

    int keep(int qid) {
        queues_.push_back(qid);
        return qid;
    }
    std::string file(const std::string &path) {
        files_.push_back(path);
        return path;
    }

private:
    std::vector<int> queues_;
    std::vector<std::string> files_;
};

TEST_F(QueueCreation, CreateFileMakesAnEmptyFile) {
    const std::string path = file("/tmp/queue_test_file");
    EXPECT_EQ(create_file(path.c_str()), 0);
    EXPECT_EQ(read_file(path), "");
}

TEST_F(QueueCreation, CreateFileEmptiesAnExistingFile) {
    const std::string path = file("/tmp/queue_test_file");
    write_file(path, "old");
    EXPECT_EQ(create_file(path.c_str()), 0);
    EXPECT_EQ(read_file(path), "");
}

TEST_F(QueueCreation, CreateFileReportsAPathItCannotOpen) {
    StdoutCapture out;
    EXPECT_EQ(create_file("/tmp/queue_test_missing/file"), 1);
    EXPECT_EQ(out.stop(), "open /tmp/queue_test_missing/file fail!\n");
}

TEST_F(QueueCreation, PlainCreationReusesTheQueue) {
    file("/tmp/queue_test_4.msq");
    StdoutCapture out;
    const int first = keep(zan_msg_create("queue_test", 4));
    EXPECT_GE(first, 0);
    EXPECT_EQ(zan_msg_create("queue_test", 4), first);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(QueueCreation, TheKeyIsThatOfTheFileAndProjectZero) {
    const std::string path = file("/tmp/queue_test_4.msq");
    const int qid = keep(zan_msg_create("queue_test", 4));
    EXPECT_EQ(queue_of_key(path, 0), qid);
}

TEST_F(QueueCreation, EverybodyMayUseTheQueue) {
    file("/tmp/queue_test_4.msq");
    const mode_t before = umask(077);
    const int qid = keep(zan_msg_create("queue_test", 4));
    umask(before);
    msqid_ds state{};
    ASSERT_EQ(msgctl(qid, IPC_STAT, &state), 0);
    EXPECT_EQ(state.msg_perm.mode & 0777, 0777);
}

TEST_F(QueueCreation, AMissingKeyFileIsCreatedEmpty) {
    const std::string path = file("/tmp/queue_test_-1.msq");
    keep(zan_msg_create("queue_test", -1));
    EXPECT_EQ(read_file(path), "");
}

TEST_F(QueueCreation, AnExistingKeyFileIsNotTouched) {
    const std::string path = file("/tmp/queue_test_4.msq");
    write_file(path, "kept");
    EXPECT_GE(keep(zan_msg_create("queue_test", 4)), 0);
    EXPECT_GE(keep(zan_msg_create_by_id("queue_test", 4, 1)), 0);
    EXPECT_EQ(read_file(path), "kept");
}

TEST_F(QueueCreation, CreationByIdFailsWhenTheQueueExists) {
    const std::string path = file("/tmp/queue_test_4.msq");
    const int qid = keep(zan_msg_create_by_id("queue_test", 4, 2));
    EXPECT_GE(qid, 0);
    EXPECT_EQ(queue_of_key(path, 2), qid);
    StdoutCapture out;
    EXPECT_EQ(zan_msg_create_by_id("queue_test", 4, 2), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(out.stop(), "zan_msg_create_by_id ERROR:File exists\n");
    EXPECT_TRUE(queue_exists(qid));
}

TEST_F(QueueCreation, EachProjectIdHasItsQueue) {
    file("/tmp/queue_test_4.msq");
    const int first = keep(zan_msg_create_by_id("queue_test", 4, 1));
    const int second = keep(zan_msg_create_by_id("queue_test", 4, 2));
    EXPECT_GE(first, 0);
    EXPECT_GE(second, 0);
    EXPECT_NE(first, second);
}

TEST_F(QueueCreation, ProjectZeroIsThePlainQueue) {
    file("/tmp/queue_test_4.msq");
    keep(zan_msg_create("queue_test", 4));
    StdoutCapture out;
    EXPECT_EQ(zan_msg_create_by_id("queue_test", 4, 0), -1);
    EXPECT_EQ(out.stop(), "zan_msg_create_by_id ERROR:File exists\n");
}

// The key file cannot be made, so there is no key: a queue under the key -1 would be
// shared by every module in the same trouble.
TEST_F(QueueCreation, WithoutAKeyThereIsNoQueue) {
    StdoutCapture out;
    EXPECT_EQ(zan_msg_create("queue_test_missing/name", 4), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(zan_msg_create_by_id("queue_test_missing/name", 4, 1), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out.stop(), "open /tmp/queue_test_missing/name_4.msq fail!\n"
                          "zan_msg_create ERROR:No such file or directory\n"
                          "open /tmp/queue_test_missing/name_4.msq fail!\n"
                          "zan_msg_create_by_id ERROR:No such file or directory\n");
    EXPECT_EQ(msgget(-1, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(QueueCreation, ANullNameIsRefused) {
    StdoutCapture out;
    EXPECT_EQ(zan_msg_create(nullptr, 0), -1);
    EXPECT_EQ(zan_msg_create_by_id(nullptr, 0, 0), -1);
    EXPECT_EQ(zan_del_msq_file(nullptr, 0), -1);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(QueueCreation, TheKeyFilesPathIsCutAt63Characters) {
    const std::string name(80, 'n');
    const std::string path = file("/tmp/" + std::string(58, 'n'));
    StdoutCapture out;
    const int qid = keep(zan_msg_create(name.c_str(), 4));
    EXPECT_GE(qid, 0);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(file_exists(path));
    EXPECT_EQ(queue_of_key(path, 0), qid);
    // What distinguishes the names lies behind the cut.
    EXPECT_EQ(zan_msg_create((name + "x").c_str(), 5), qid);
    EXPECT_EQ(zan_del_msq_file(name.c_str(), 6), 0);
    EXPECT_FALSE(file_exists(path));
}

TEST_F(QueueCreation, APathOf63CharactersIsWhole) {
    const std::string name(52, 'n');
    const std::string path = file("/tmp/" + name + "_4.msq");
    ASSERT_EQ(path.size(), 63u);
    keep(zan_msg_create(name.c_str(), 4));
    EXPECT_TRUE(file_exists(path));
}

TEST_F(QueueCreation, TheKeyFileIsUnlinked) {
    const std::string path = file("/tmp/queue_test_4.msq");
    write_file(path, "");
    EXPECT_EQ(zan_del_msq_file("queue_test", 4), 0);
    EXPECT_FALSE(file_exists(path));
    StdoutCapture out;
    EXPECT_EQ(zan_del_msq_file("queue_test", 4), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out.stop(), "");
}

TEST(QueueDeletion, RemovesTheQueueOnce) {
    const RawQueue queue;
    StdoutCapture out;
    EXPECT_EQ(zan_msg_del(queue.id()), 0);
    EXPECT_FALSE(queue_exists(queue.id()));
    EXPECT_EQ(zan_msg_del(queue.id()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(out.stop(), "zan_msg_del ERROR:Invalid argument\n");
}

TEST(QueuePrimitives, ANegativeIdFailsSilentlyAndWithoutASystemCall) {
    const auto msg = std::make_unique<zan_msg>();
    msg->mtype = 1;
    StdoutCapture out;
    errno = untouched;
    EXPECT_EQ(zan_msg_send(-1, msg.get(), 100), -1);
    EXPECT_EQ(zan_msg_recv(-1, 0, msg.get(), 35100), -1);
    EXPECT_EQ(zan_msg_recv_no_wait(-1, 0, msg.get(), 35100), -1);
    EXPECT_EQ(zan_msg_del(-1), -1);
    EXPECT_EQ(zan_msg_send(-2105, msg.get(), 100), -1);
    EXPECT_EQ(zan_msg_send(-1, msg.get(), -5), -1);
    EXPECT_EQ(errno, untouched);
    EXPECT_EQ(out.stop(), "");
}

// ---- sending ----------------------------------------------------------------

zan_msg every_field(const std::string &payload) {
    zan_msg msg{};
    msg.mtype = 11;
    msg.body.type = 12;
    msg.body.cmd = 13;
    std::strcpy(msg.body.dst, "destination");
    std::strcpy(msg.body.src, "source");
    msg.body.pid = 14;
    msg.body.time = 15;
    msg.body.spare = 16;
    msg.body.result = 17;
    msg.body.aux = 18;
    msg.body.arg = 19;
    msg.body.len = static_cast<int>(payload.size());
    std::memcpy(msg.body.data, payload.data(), payload.size());
    return msg;
}

Fields every_field_expected(const std::string &payload) {
    return {.mtype = 11,
            .type = 12,
            .cmd = 13,
            .dst = "destination",
            .src = "source",
            .pid = 14,
            .time = 15,
            .spare = 16,
            .result = 17,
            .aux = 18,
            .arg = 19,
            .payload = payload};
}

class QueueTransfer : public testing::Test {
protected:
    RawQueue queue;
    std::unique_ptr<zan_msg> msg = std::make_unique<zan_msg>();

    // The record as the library received it.
    SizedRecord received(int size) const {
        SizedRecord record;
        record.record.mtype = msg->mtype;
        std::memcpy(record.record.bytes, &msg->body, sizeof msg->body);
        record.msgsz = static_cast<std::size_t>(size);
        return record;
    }
};

TEST_F(QueueTransfer, ASentRecordArrivesByteForByte) {
    *msg = every_field("payload");
    StdoutCapture out;
    EXPECT_EQ(zan_msg_send(queue.id(), msg.get(), 107), 0);
    EXPECT_EQ(out.stop(), "");
    const auto arrived = raw_receive(queue.id());
    ASSERT_TRUE(arrived);
    EXPECT_TRUE(same_record(*arrived, every_field_expected("payload")));
}

TEST_F(QueueTransfer, APayloadOf35000BytesTravelsWhole) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string payload = std::string(34999, 'p') + "!";
    *msg = every_field(payload);
    EXPECT_EQ(zan_msg_send(queue.id(), msg.get(), 35100), 0);
    const auto arrived = raw_receive(queue.id());
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->msgsz, 35100u);
    EXPECT_TRUE(same_record(*arrived, every_field_expected(payload)));

    ASSERT_TRUE(raw_send(queue.id(), *arrived));
    *msg = {};
    EXPECT_EQ(zan_msg_recv(queue.id(), 11, msg.get(), 35100), 35100);
    EXPECT_TRUE(same_record(received(35100), *arrived));
}

TEST_F(QueueTransfer, ASendToAMissingQueueIsReported) {
    msg->mtype = 1;
    remove_queue(queue.id());
    StdoutCapture out;
    EXPECT_EQ(zan_msg_send(queue.id(), msg.get(), 100), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(out.stop(), line("zan_msg_send qid=%d ERROR:Invalid argument\n", queue.id()));
}

TEST_F(QueueTransfer, ARecordWithoutAQueueTypeIsRefused) {
    StdoutCapture out;
    EXPECT_EQ(zan_msg_send(queue.id(), msg.get(), 100), -1);
    EXPECT_EQ(out.stop(), line("zan_msg_send qid=%d ERROR:Invalid argument\n", queue.id()));
}

// The caller's record ends there: one byte more would be somebody else's memory.
TEST_F(QueueTransfer, ASizeOutsideTheRecordIsRefused) {
    msg->mtype = 1;
    for (const int size : {35101, 1 << 30, -1, -35100}) {
        StdoutCapture out;
        errno = 0;
        EXPECT_EQ(zan_msg_send(queue.id(), msg.get(), size), -1) << size;
        EXPECT_EQ(errno, EINVAL) << size;
        EXPECT_EQ(out.stop(), line("zan_msg_send qid=%d ERROR:Invalid argument\n", queue.id()));
    }
    EXPECT_EQ(queue_length(queue.id()), 0);
}

TEST_F(QueueTransfer, ASendWaitsWhileTheQueueIsFull) {
    msg->mtype = 5;
    const int filled = fill_queue(queue.id(), 4);
    int result = -1;
    Worker sender([&] { result = zan_msg_send(queue.id(), msg.get(), 100); });
    EXPECT_TRUE(sender.wait_until_blocked());
    EXPECT_EQ(queue_length(queue.id()), filled);
    while (raw_receive(queue.id(), 4)) {
    }
    ASSERT_TRUE(sender.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(raw_receive(queue.id(), 5));
}

TEST_F(QueueTransfer, AnInterruptedSendIsNotRepeated) {
    msg->mtype = 5;
    fill_queue(queue.id(), 4);
    StdoutCapture out;
    int result = 0;
    int error = 0;
    Worker sender([&] {
        result = zan_msg_send(queue.id(), msg.get(), 100);
        error = errno;
    });
    EXPECT_TRUE(sender.wait_until_blocked());
    sender.interrupt();
    EXPECT_TRUE(sender.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINTR);
    EXPECT_EQ(out.stop(), line("zan_msg_send qid=%d ERROR:Interrupted system call\n", queue.id()));
}

// ---- receiving --------------------------------------------------------------

struct Receiver {
    const char *name;
    int (*receive)(int qid, int msgtyp, zan_msg *msg, int max);
    const char *error_line; // up to the reason
};

void PrintTo(const Receiver &receiver, std::ostream *out) {
    *out << receiver.name;
}

class QueueReceive : public QueueTransfer, public testing::WithParamInterface<Receiver> {
protected:
    int receive(int msgtyp, int max) {
        return GetParam().receive(queue.id(), msgtyp, msg.get(), max);
    }
    std::string error_line(const std::string &reason) const {
        return line(GetParam().error_line, queue.id()) + reason + "\n";
    }
};

TEST_P(QueueReceive, ARecordComesByteForByte) {
    ASSERT_TRUE(raw_send(queue.id(), every_field_expected("payload")));
    StdoutCapture out;
    const int size = receive(11, 35100);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(size, 107);
    EXPECT_TRUE(same_record(received(size), every_field_expected("payload")));
}

TEST_P(QueueReceive, TheQueueTypeSelects) {
    for (const long mtype : {9L, 4L, 5L})
        ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = mtype}));
    EXPECT_EQ(receive(5, 35100), 100);
    EXPECT_EQ(msg->mtype, 5);
    EXPECT_EQ(receive(-9, 35100), 100); // the lowest up to 9
    EXPECT_EQ(msg->mtype, 4);
    EXPECT_EQ(receive(0, 35100), 100); // any
    EXPECT_EQ(msg->mtype, 9);
}

TEST_P(QueueReceive, ARecordLongerThanTheMaximumStaysOnTheQueue) {
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1, .payload = "abc"}));
    StdoutCapture out;
    EXPECT_EQ(receive(1, 102), -1);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(out.stop(), error_line("Argument list too long"));
    EXPECT_EQ(queue_length(queue.id()), 1);
    EXPECT_EQ(receive(1, 103), 103);
}

TEST_P(QueueReceive, ANegativeMaximumIsRefused) {
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1}));
    StdoutCapture out;
    EXPECT_EQ(receive(1, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(out.stop(), error_line("Invalid argument"));
}

// A sender can put more on the queue than a record holds; whatever maximum the
// caller names, its record ends where it ends.
TEST_P(QueueReceive, ARecordLongerThanTheRecordIsNeverTaken) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    struct {
        long mtype = 1;
        char bytes[35101] = {};
    } const oversized;
    ASSERT_EQ(msgsnd(queue.id(), &oversized, sizeof oversized.bytes, IPC_NOWAIT), 0);
    StdoutCapture out;
    EXPECT_EQ(receive(1, 65536), -1);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(out.stop(), error_line("Argument list too long"));
}

TEST_P(QueueReceive, ARecordWithoutABodyIsZeroBytes) {
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1, .msgsz = 0}));
    EXPECT_EQ(receive(1, 35100), 0);
}

TEST_P(QueueReceive, AMissingQueueIsReported) {
    remove_queue(queue.id());
    StdoutCapture out;
    EXPECT_EQ(receive(1, 35100), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(out.stop(), error_line("Invalid argument"));
}

INSTANTIATE_TEST_SUITE_P(, QueueReceive,
                         testing::Values(Receiver{"waiting", zan_msg_recv,
                                                  "zan_msg_recv qid=%d ERROR:"},
                                         Receiver{"no_wait", zan_msg_recv_no_wait,
                                                  "zan_msg_recv_no_wait msqid=%d ERROR:"}),
                         [](const auto &param) { return std::string(param.param.name); });

TEST_F(QueueTransfer, NothingWaitingIsSilentWithoutWait) {
    StdoutCapture out;
    EXPECT_EQ(zan_msg_recv_no_wait(queue.id(), 1, msg.get(), 35100), -1);
    EXPECT_EQ(errno, ENOMSG);
    EXPECT_EQ(out.stop(), "");
}

class QueueWait : public QueueTransfer {
protected:
    StdoutCapture out;
    int result = 0;
    int error = 0;
    Worker waiter{[this] {
        result = zan_msg_recv(queue.id(), 1, msg.get(), 35100);
        error = errno;
    }};
};

TEST_F(QueueWait, ARecordEndsTheWait) {
    EXPECT_TRUE(waiter.wait_until_blocked());
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 2}));
    EXPECT_TRUE(waiter.wait_until_blocked());
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1, .payload = "x"}));
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 101);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(QueueWait, AnInterruptedWaitGoesOnOnce) {
    const std::string retry = line("EINTR[%d]:retry...\n", queue.id());
    EXPECT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    EXPECT_TRUE(out.wait_for(retry));
    ASSERT_TRUE(raw_send(queue.id(), Fields{.mtype = 1}));
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, 100);
    EXPECT_EQ(out.stop(), retry);
}

TEST_F(QueueWait, ASecondInterruptionEndsIt) {
    EXPECT_TRUE(waiter.wait_until_blocked());
    ASSERT_TRUE(waiter.interrupt_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EINTR);
    EXPECT_EQ(
        out.stop(),
        line("EINTR[%d]:retry...\n", queue.id()) +
            line("Retry fail[zan_msg_recv] qid=%d ERROR:Interrupted system call\n", queue.id()));
}

TEST_F(QueueWait, ARetryThatFindsTheQueueGoneEndsIt) {
    EXPECT_TRUE(waiter.wait_until_blocked());
    waiter.interrupt();
    EXPECT_TRUE(out.wait_for("retry"));
    EXPECT_TRUE(waiter.wait_until_blocked());
    remove_queue(queue.id());
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EIDRM);
    EXPECT_EQ(out.stop(),
              line("EINTR[%d]:retry...\n", queue.id()) +
                  line("Retry fail[zan_msg_recv] qid=%d ERROR:Identifier removed\n", queue.id()));
}

TEST_F(QueueWait, AQueueRemovedMeanwhileEndsItAtOnce) {
    EXPECT_TRUE(waiter.wait_until_blocked());
    remove_queue(queue.id());
    ASSERT_TRUE(waiter.wait_until_done());
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EIDRM);
    EXPECT_EQ(out.stop(), line("zan_msg_recv qid=%d ERROR:Identifier removed\n", queue.id()));
}

} // namespace
} // namespace zan::test
