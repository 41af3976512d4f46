// SPDX-License-Identifier: MIT
// Sending and receiving over local sockets, with buffers that are really full.
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/send_test.h"
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <string>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

std::string send_failure(int error) {
    return error_line("ipc lsocket send failed, %s\n", error);
}
int send(int fd, const std::string &message) {
    return zan_lsocket_send(fd, message.data(), static_cast<int>(message.size()));
}
// A connected stream takes no address.
int send_to_peer(int fd, const std::string &message) {
    return zan_lsocket_send_to(fd, message.data(), static_cast<int>(message.size()), nullptr);
}

// A module connected to the daemon's end.
class LocalSend : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        const Descriptor listener(zan_lsocket_create("ZAN", 0));
        module = zan_lsocket_create("probe", 0);
        ASSERT_GE(module, 0);
        daemon = accept_one(listener);
    }
    void TearDown() override {
        StdoutCapture out;
        if (module >= 0)
            zan_lsocket_delete(module);
        out.stop();
    }

    int module = -1;
    Descriptor daemon;
    const std::string hundred = some_bytes(100);
    const std::string large = some_bytes(std::size_t{4} << 20);
};

TEST_F(LocalSend, CarriesBytesInSilence) {
    StdoutCapture out;
    EXPECT_EQ(send(module, hundred), 100);
    EXPECT_EQ(send_to_peer(module, hundred), 100);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_bytes(daemon.get(), 200), hundred + hundred);
}

TEST_F(LocalSend, DropsWhatTheSocketDidNotTake) {
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(send(module, hundred), 60);
    EXPECT_EQ(send(module, "next"), 4);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_available(daemon.get()), hundred.substr(0, 60) + "next");
}

TEST_F(LocalSend, ToAnAddressKeepsWhatTheSocketDidNotTake) {
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(send_to_peer(module, hundred), 60);
    EXPECT_EQ(send_to_peer(module, "next"), 4);
    EXPECT_EQ(out.stop(), std::string(maybe_full) + resending + "send failed buffer ret = 40\n");
    EXPECT_EQ(read_available(daemon.get()), hundred + "next");
}

TEST_F(LocalSend, FinishesWhatASendToAnAddressKept) {
    take_only({60, 10});
    send_to_peer(module, hundred);
    EXPECT_EQ(send(module, "never sent"), 0);
    EXPECT_EQ(send(module, "next"), 4);
    EXPECT_EQ(read_available(daemon.get()), hundred + "next");
}

TEST_F(LocalSend, ToAnAddressSaysThatTheBufferMayBeFullAlsoWhenTheRestIsLost) {
    StdoutCapture out;
    take_only({60});
    refuse_allocation(2);
    EXPECT_EQ(send_to_peer(module, hundred), 60);
    EXPECT_EQ(send_to_peer(module, "next"), 4);
    EXPECT_EQ(out.stop(),
              std::string("set_snd_failed_buffer - new_failed_msg->buffer calloc memory failed\n") +
                  maybe_full);
    EXPECT_EQ(read_available(daemon.get()), hundred.substr(0, 60) + "next");
}

TEST_F(LocalSend, GivesUpAfterItsTimeOut) {
    StdoutCapture out;
    const Stopwatch watch;
    const int sent = send(module, large);
    EXPECT_GE(watch.elapsed(), 200ms - one_tick);
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, static_cast<int>(large.size()));
    const Stopwatch second;
    EXPECT_EQ(send(module, "lost"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(second.elapsed(), 200ms - one_tick);
    EXPECT_EQ(out.stop(), send_failure(EAGAIN));
    EXPECT_EQ(read_available(daemon.get()), large.substr(0, static_cast<std::size_t>(sent)));
}

TEST_F(LocalSend, ToAnAddressDropsNewMessagesUntilTheOldOneIsThrough) {
    StdoutCapture out;
    EXPECT_GT(send_to_peer(module, large), 0);
    EXPECT_EQ(send_to_peer(module, "dropped"), -3);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(out.stop(), maybe_full + resend_failure(EAGAIN));
    std::string arrived;
    int incomplete = 0;
    int result = 0;
    while (result != 1) {
        ASSERT_TRUE(wait_readable(daemon.get()));
        arrived += read_available(daemon.get());
        StdoutCapture later;
        result = send_to_peer(module, "!");
        ASSERT_TRUE(result == 0 || result == 1) << result;
        EXPECT_THAT(later.stop(), testing::StartsWith(resending));
        incomplete += result == 0 ? 1 : 0;
    }
    EXPECT_GT(incomplete, 0);
    arrived += read_available(daemon.get());
    EXPECT_EQ(arrived, large + "!");
}

TEST_F(LocalSend, OutlivesADaemonThatIsGone) {
    daemon.reset();
    StdoutCapture out;
    EXPECT_EQ(send(module, "lost"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(send_to_peer(module, "lost"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(out.stop(), send_failure(EPIPE) + send_failure(EPIPE));
}

TEST_F(LocalSend, OutlivesADaemonThatIsGoneBeforeTheOldMessageIsThrough) {
    take_only({60});
    send_to_peer(module, hundred);
    daemon.reset();
    StdoutCapture out;
    EXPECT_EQ(send(module, "dropped"), -3);
    EXPECT_EQ(out.stop(), resend_failure(EPIPE));
}

TEST_F(LocalSend, KeepsItsBytesApartFromTheNetworkChannels) {
    take_only({60});
    send_to_peer(module, hundred);
    StdoutCapture out;
    EXPECT_EQ(zan_socket_send(module, "network", 7), 7);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(send(module, "local"), 5);
    EXPECT_EQ(read_available(daemon.get()),
              hundred.substr(0, 60) + "network" + hundred.substr(60) + "local");
}

TEST_F(LocalSend, DeletedWithSomethingKeptSaysSo) {
    take_only({60});
    send_to_peer(module, hundred);
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_delete(module), 1);
    EXPECT_EQ(out.stop(), "delete failed msg queue\n");
    EXPECT_EQ(read_bytes(daemon.get(), 100), hundred.substr(0, 60));
    expect_nothing_owed_by(module, send);
}

TEST_F(LocalSend, DeletedWithNothingKeptSaysNothing) {
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_delete(module), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(is_open(module));
    EXPECT_TRUE(file_exists("/tmp/ZAN_0.ls"));
    module = -1;
}

TEST_F(LocalSend, PeekingLeavesTheBytesQueued) {
    ASSERT_EQ(write(daemon.get(), "queued", 6), 6);
    char bytes[16] = {};
    EXPECT_EQ(zan_lsocket_try_recv(module, bytes, 3), 3);
    EXPECT_EQ(std::string(bytes), "que");
    EXPECT_EQ(zan_lsocket_recv(module, bytes, sizeof bytes), 6);
    EXPECT_EQ(std::string(bytes), "queued");
    daemon.reset();
    EXPECT_EQ(zan_lsocket_try_recv(module, bytes, sizeof bytes), 0);
    EXPECT_EQ(zan_lsocket_recv(module, bytes, sizeof bytes), 0);
}

// ---- Hostile arguments -----------------------------------------------------

using LocalArguments = Tempting;

TEST_F(LocalArguments, NegativeLengthsAreRefused) {
    char byte = '#';
    sockaddr_un address{};
    StdoutCapture out;
    for (const int length : {-1, -100, INT_MIN}) {
        EXPECT_EQ(zan_lsocket_send(fd, &byte, length), -1);
        EXPECT_EQ(zan_lsocket_send_to(fd, &byte, length, &address), -1);
        EXPECT_EQ(zan_lsocket_recv(fd, &byte, length), -1);
        EXPECT_EQ(zan_lsocket_try_recv(fd, &byte, length), -1);
        EXPECT_EQ(zan_lsocket_recv_from(fd, &byte, length, &address), -1);
        EXPECT_EQ(ipc_lsocket_recv_from(fd, &byte, length, &address), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    std::string failures;
    for (int i = 0; i < 6; ++i)
        failures += send_failure(EINVAL);
    EXPECT_EQ(out.stop(), failures);
    EXPECT_EQ(byte, '#');
}

TEST_F(LocalArguments, NothingToReadFromOrIntoIsRefused) {
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_send(fd, nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(zan_lsocket_recv(fd, nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(out.stop(), send_failure(EFAULT));
}

TEST_F(LocalArguments, SocketThatIsNoneIsReported) {
    char byte;
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_send(-1, "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(zan_lsocket_recv(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(zan_lsocket_delete(-1), 1);
    EXPECT_EQ(out.stop(), send_failure(EBADF));
}

} // namespace
} // namespace zan::test
