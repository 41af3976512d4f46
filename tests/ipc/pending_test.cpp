// SPDX-License-Identifier: MIT
#include "ipc/pending.h"

#include "ipc/calls.h"
#include "ipc/send_test.h"
#include "ipc/sockets.h"
#include "support/capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace zan::test {
namespace {

constexpr SendPolicy keeping = {"keeping failed, %s\n", Remainder::kept};
constexpr SendPolicy dropping = {"dropping failed, %s\n", Remainder::dropped};

std::string bytes_of(const PendingRecord *record) {
    return {record->buffer, record->size};
}

class Pending : public testing::Test {
protected:
    ~Pending() override {
        while (list.g_init && list.g_send_msg_failed.next != &list.g_send_msg_failed)
            del_snd_failed_buffer(list.g_send_msg_failed.next);
    }

    PendingRecord *store(int fd, const std::string &bytes) {
        return set_snd_failed_buffer(list, fd, bytes.data(),
                                     static_cast<unsigned int>(bytes.size()));
    }

    // What the list holds, read in both directions.
    std::vector<std::string> contents() {
        std::vector<std::string> forward;
        std::vector<std::string> backward;
        PendingRecord *const sentinel = &list.g_send_msg_failed;
        for (auto *record = sentinel->next; record != sentinel; record = record->next)
            forward.push_back(bytes_of(record));
        for (auto *record = sentinel->prev; record != sentinel; record = record->prev)
            backward.insert(backward.begin(), bytes_of(record));
        EXPECT_EQ(forward, backward);
        return forward;
    }

    PendingList list = {};
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Pending, ListOfAProcessThatHasCreatedNothingHoldsNothing) {
    EXPECT_EQ(get_snd_failed_buffer(list, 0), nullptr);
    StdoutCapture out;
    discard_pending(list, 0);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(Pending, InitialisedListIsLinkedToItself) {
    init_pending(list);
    EXPECT_TRUE(list.g_init);
    EXPECT_THAT(contents(), IsEmpty());
    EXPECT_EQ(get_snd_failed_buffer(list, 0), nullptr);
}

TEST_F(Pending, InitialisingAgainKeepsWhatIsStored) {
    init_pending(list);
    store(3, "kept");
    init_pending(list);
    EXPECT_THAT(contents(), ElementsAre("kept"));
}

TEST_F(Pending, StoresACopyNothingOfWhichIsSent) {
    init_pending(list);
    std::string bytes("with\0NUL", 8);
    const PendingRecord *record = store(3, bytes);
    bytes.assign(8, 'x');
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->fd, 3);
    EXPECT_EQ(record->size, 8U);
    EXPECT_EQ(record->offset, 0U);
    EXPECT_EQ(bytes_of(record), std::string("with\0NUL", 8));
}

TEST_F(Pending, LooksUpTheOldestRecordOfTheSocket) {
    init_pending(list);
    store(3, "three, old");
    PendingRecord *four = store(4, "four");
    store(3, "three, new");
    EXPECT_THAT(contents(), ElementsAre("three, old", "four", "three, new"));
    EXPECT_EQ(bytes_of(get_snd_failed_buffer(list, 3)), "three, old");
    EXPECT_EQ(get_snd_failed_buffer(list, 4), four);
    EXPECT_EQ(get_snd_failed_buffer(list, 5), nullptr);
    del_snd_failed_buffer(get_snd_failed_buffer(list, 3));
    EXPECT_EQ(bytes_of(get_snd_failed_buffer(list, 3)), "three, new");
}

TEST_F(Pending, UnlinksARecordWhereverItStands) {
    init_pending(list);
    PendingRecord *first = store(1, "first");
    PendingRecord *middle = store(2, "middle");
    PendingRecord *last = store(3, "last");
    del_snd_failed_buffer(middle);
    EXPECT_THAT(contents(), ElementsAre("first", "last"));
    del_snd_failed_buffer(last);
    EXPECT_THAT(contents(), ElementsAre("first"));
    del_snd_failed_buffer(first);
    EXPECT_THAT(contents(), IsEmpty());
}

TEST_F(Pending, DiscardsTheRecordOfTheSocketAndSaysSo) {
    init_pending(list);
    store(3, "three");
    store(4, "four");
    StdoutCapture out;
    discard_pending(list, 3);
    EXPECT_EQ(out.stop(), "delete failed msg queue\n");
    EXPECT_THAT(contents(), ElementsAre("four"));
}

TEST_F(Pending, ReportsThatThereIsNoMemoryForTheRecord) {
    init_pending(list);
    store(3, "before");
    StdoutCapture out;
    refuse_allocation(1);
    EXPECT_EQ(store(3, "lost"), nullptr);
    EXPECT_EQ(out.stop(), "set_snd_failed_buffer - new_failed_msg calloc memory failed\n");
    EXPECT_THAT(contents(), ElementsAre("before"));
}

TEST_F(Pending, ReportsThatThereIsNoMemoryForTheBytes) {
    init_pending(list);
    store(3, "before");
    StdoutCapture out;
    refuse_allocation(2);
    EXPECT_EQ(store(3, "lost"), nullptr);
    EXPECT_EQ(out.stop(), "set_snd_failed_buffer - new_failed_msg->buffer calloc memory failed\n");
    EXPECT_THAT(contents(), ElementsAre("before"));
}

// ---- Sending in order ------------------------------------------------------

class SendInOrder : public Pending {
protected:
    SendInOrder() { init_pending(list); }

    int send(const std::string &message, const SendPolicy &policy = keeping) {
        return send_in_order(list, {ends.near.get(), nullptr, 0}, message.data(),
                             static_cast<int>(message.size()), policy);
    }

    PendingRecord *kept() { return get_snd_failed_buffer(list, ends.near.get()); }
    std::string arrived() { return read_available(ends.far.get()); }

    Pair ends = stream_pair();
    const std::string hundred = some_bytes(100);
};

TEST_F(SendInOrder, SendsAMessageInSilence) {
    StdoutCapture out;
    EXPECT_EQ(send(hundred), 100);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(arrived(), hundred);
    EXPECT_THAT(contents(), IsEmpty());
}

TEST_F(SendInOrder, KeepsWhatTheSocketDidNotTake) {
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(send(hundred), 60);
    EXPECT_EQ(out.stop(), maybe_full);
    ASSERT_NE(kept(), nullptr);
    EXPECT_EQ(kept()->size, 40U);
    EXPECT_EQ(kept()->offset, 0U);
    EXPECT_EQ(bytes_of(kept()), hundred.substr(60));
    EXPECT_EQ(arrived(), hundred.substr(0, 60));
}

TEST_F(SendInOrder, DropsWhatTheSocketDidNotTakeWhereThatIsThePolicy) {
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(send(hundred, dropping), 60);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(kept(), nullptr);
    EXPECT_EQ(send("next", dropping), 4);
    EXPECT_EQ(arrived(), hundred.substr(0, 60) + "next");
}

TEST_F(SendInOrder, FinishesTheOldMessageBeforeTheNewOne) {
    take_only({60});
    send(hundred);
    StdoutCapture out;
    EXPECT_EQ(send("new message"), 11);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 40\n");
    EXPECT_EQ(kept(), nullptr);
    EXPECT_EQ(arrived(), hundred + "new message");
}

TEST_F(SendInOrder, FinishesTheOldMessageBeforeOneWhoseRestIsDropped) {
    store(ends.near.get(), "old ");
    take_only({4, 3});
    StdoutCapture out;
    EXPECT_EQ(send("new", dropping), 3);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 4\n");
    EXPECT_EQ(arrived(), "old new");
}

TEST_F(SendInOrder, DropsTheNewMessageWhileTheOldOneIsIncomplete) {
    take_only({60, 10});
    send(hundred);
    StdoutCapture out;
    EXPECT_EQ(send("never sent"), 0);
    EXPECT_EQ(out.stop(), resending);
    ASSERT_NE(kept(), nullptr);
    EXPECT_EQ(kept()->size, 40U);
    EXPECT_EQ(kept()->offset, 10U);
    EXPECT_EQ(arrived(), hundred.substr(0, 70));
}

TEST_F(SendInOrder, GoesOnWhereTheLastResendStopped) {
    take_only({60, 10, 25});
    send(hundred);
    EXPECT_EQ(send("never sent"), 0);
    EXPECT_EQ(send("neither"), 0);
    EXPECT_EQ(kept()->offset, 35U);
    StdoutCapture out;
    EXPECT_EQ(send("sent"), 4);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 5\n");
    EXPECT_EQ(arrived(), hundred + "sent");
}

TEST_F(SendInOrder, KeepsTheRestOfTheNewMessageAfterTheOldOne) {
    take_only({60, 40, 3});
    send(hundred);
    StdoutCapture out;
    EXPECT_EQ(send("new message"), 3);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 40\n" + maybe_full);
    EXPECT_THAT(contents(), ElementsAre(" message"));
    EXPECT_EQ(arrived(), hundred + "new");
}

TEST_F(SendInOrder, GivesUpWhenNothingOfTheOldMessageGoes) {
    take_only({60, 10});
    send(hundred);
    send("never sent");
    take_only({});

    ASSERT_GT(fill(ends.near.get()), 0U);
    const timeval soon = {0, 1};
    setsockopt(ends.near.get(), SOL_SOCKET, SO_SNDTIMEO, &soon, sizeof soon);
    StdoutCapture out;
    EXPECT_EQ(send("neither"), -3);
    EXPECT_EQ(out.stop(), resend_failure(EAGAIN));
    ASSERT_NE(kept(), nullptr);
    EXPECT_EQ(kept()->offset, 10U);
    EXPECT_EQ(bytes_of(kept()), hundred.substr(60));
}

TEST_F(SendInOrder, KeepsTheRecordOfASocketWhosePeerIsGone) {
    store(ends.near.get(), "unsent");
    ends.far.reset();
    StdoutCapture out;
    EXPECT_EQ(send("new"), -3);
    EXPECT_EQ(out.stop(), resend_failure(EPIPE));
    EXPECT_THAT(contents(), ElementsAre("unsent"));
}

TEST_F(SendInOrder, SendsTheOldestRecordOnly) {
    store(ends.near.get(), "first ");
    store(ends.near.get(), "second ");
    StdoutCapture out;
    EXPECT_EQ(send("new"), 3);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 6\n");
    EXPECT_EQ(arrived(), "first new");
    EXPECT_THAT(contents(), ElementsAre("second "));
}

TEST_F(SendInOrder, LeavesTheRecordsOfOtherSocketsAlone) {
    const Pair other = stream_pair();
    store(other.near.get(), "of the other");
    StdoutCapture out;
    EXPECT_EQ(send(hundred), 100);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(arrived(), hundred);
    EXPECT_EQ(read_available(other.far.get()), "");
    EXPECT_THAT(contents(), ElementsAre("of the other"));
}

TEST_F(SendInOrder, SendsToTheAddressGiven) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    store(from.get(), "old");
    const Destination destination = {from.get(), reinterpret_cast<const sockaddr *>(&address),
                                     sizeof address};
    EXPECT_EQ(send_in_order(list, destination, "new", 3, keeping), 3);
    EXPECT_EQ(read_available(to.get()), "oldnew");
}

// ---- Sends that fail -------------------------------------------------------

TEST_F(SendInOrder, ReportsAPeerThatIsGoneAndLives) {
    ends.far.reset();
    StdoutCapture out;
    EXPECT_EQ(send("lost"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(out.stop(), error_line(keeping.failure, EPIPE));
    EXPECT_EQ(kept(), nullptr);
}

TEST_F(SendInOrder, ReportsWithTheLineOfTheChannel) {
    ends.far.reset();
    StdoutCapture out;
    EXPECT_EQ(send("lost", dropping), -1);
    EXPECT_EQ(out.stop(), error_line(dropping.failure, EPIPE));
}

TEST_F(SendInOrder, LeavesTheErrorToTheCallerWhenItCannotBePrinted) {
    ends.far.reset();
    std::fflush(stdout);
    const Descriptor saved(dup(STDOUT_FILENO));
    close(STDOUT_FILENO);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const int result = send("lost");
    const int error = errno;
    dup2(saved.get(), STDOUT_FILENO);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EPIPE);
}

TEST_F(SendInOrder, ReportsAnEmptyMessageAsNotSent) {
    errno = 0;
    StdoutCapture out;
    EXPECT_EQ(send(""), 0);
    EXPECT_EQ(out.stop(), error_line(keeping.failure, 0));
}

TEST_F(SendInOrder, RefusesANegativeLength) {
    StdoutCapture out;
    EXPECT_EQ(send_in_order(list, {ends.near.get(), nullptr, 0}, "x", -1, keeping), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(out.stop(), error_line(keeping.failure, EINVAL));
    EXPECT_EQ(arrived(), "");
}

TEST_F(SendInOrder, FinishesTheOldMessageBeforeItRefusesTheNewOne) {
    store(ends.near.get(), "old");
    StdoutCapture out;
    EXPECT_EQ(send_in_order(list, {ends.near.get(), nullptr, 0}, "x", -100, keeping), -1);
    EXPECT_EQ(out.stop(), std::string(resending) + "send failed buffer ret = 3\n" +
                              error_line(keeping.failure, EINVAL));
    EXPECT_EQ(arrived(), "old");
    EXPECT_THAT(contents(), IsEmpty());
}

TEST_F(SendInOrder, ReportsAMessageThatIsNotThere) {
    StdoutCapture out;
    EXPECT_EQ(send_in_order(list, {ends.near.get(), nullptr, 0}, nullptr, 5, keeping), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(out.stop(), error_line(keeping.failure, EFAULT));
}

TEST_F(SendInOrder, ReportsASocketThatIsNotOpen) {
    StdoutCapture out;
    EXPECT_EQ(send_in_order(list, {-1, nullptr, 0}, "x", 1, keeping), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(out.stop(), error_line(keeping.failure, EBADF));
}

TEST_F(SendInOrder, SaysThatTheBufferMayBeFullAlsoWhenTheRestIsLost) {
    StdoutCapture out;
    take_only({60});
    refuse_allocation(1);
    EXPECT_EQ(send(hundred), 60);
    EXPECT_EQ(out.stop(),
              std::string("set_snd_failed_buffer - new_failed_msg calloc memory failed\n") +
                  maybe_full);
    EXPECT_EQ(kept(), nullptr);
}

} // namespace
} // namespace zan::test
