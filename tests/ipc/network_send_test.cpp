// SPDX-License-Identifier: MIT
// Sending and receiving over the daemon link, with buffers that are really full.
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/send_test.h"
#include "support/capture.h"
#include "support/patience.h"
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
using testing::HasSubstr;

std::string send_failure(int error) {
    return error_line("ipc socket send failed, %s\n", error);
}
int send(int fd, const std::string &message) {
    return zan_socket_send(fd, message.data(), static_cast<int>(message.size()));
}

void narrow(int fd, int buffer) {
    const int size = 4096;
    ASSERT_EQ(setsockopt(fd, SOL_SOCKET, buffer, &size, sizeof size), 0);
}

// A module connected to a daemon of the test; both have small buffers.
class Link : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        write_file("/tmp/zan.socketip", "127.0.0.1\n");
        const Descriptor listener = tcp_listener(2679, "127.0.0.1", 4096);
        module = zan_socket_create("probe");
        ASSERT_GE(module, 0);
        daemon = accept_one(listener);
        narrow(module, SO_SNDBUF);
    }
    // What the library keeps for the socket goes with it.
    void TearDown() override {
        StdoutCapture out;
        if (is_open(module))
            zan_socket_delete(module);
    }

    // Sends a message that goes in part: how much of it went.
    std::size_t send_too_much() {
        const int sent = send(module, large);
        EXPECT_GT(sent, 0);
        EXPECT_LT(sent, static_cast<int>(large.size()));
        return static_cast<std::size_t>(sent);
    }

    // The peer's acknowledgements make room for a little more now and then: until
    // nothing at all is taken.
    void resend_until_full() {
        ASSERT_TRUE(eventually([&] { return send(module, "dropped") == -3; }));
    }

    int module = -1;
    Descriptor daemon;
    const std::string large = some_bytes(std::size_t{1} << 20);
};

TEST_F(Link, CarriesBytesInSilence) {
    const std::string message = some_bytes(1124);
    StdoutCapture out;
    EXPECT_EQ(send(module, message), 1124);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_bytes(daemon.get(), 1124), message);
}

TEST_F(Link, SendsToItsPeerWithoutAnAddress) {
    EXPECT_EQ(send(module, "message"), 7);
    EXPECT_EQ(connected_sends_made(), 1);
    EXPECT_EQ(addressed_sends_made(), 0);
    const sockaddr_in peer = ipv4("127.0.0.1", 2679);
    EXPECT_EQ(zan_socket_send_to(module, "message", 7, &peer), 7);
    EXPECT_EQ(connected_sends_made(), 1);
    EXPECT_EQ(addressed_sends_made(), 1);
}

TEST_F(Link, ResendsToItsPeerWithoutAnAddress) {
    take_only({4});
    StdoutCapture out;
    EXPECT_EQ(send(module, "message"), 4);
    EXPECT_EQ(send(module, "next"), 4);
    EXPECT_EQ(connected_sends_made(), 3);
    EXPECT_EQ(addressed_sends_made(), 0);
    EXPECT_EQ(read_bytes(daemon.get(), 11), "messagenext");
}

TEST_F(Link, KeepsWhatAFullSocketDidNotTake) {
    StdoutCapture out;
    const std::size_t sent = send_too_much();
    EXPECT_EQ(out.stop(), maybe_full);
    // The next send brings the rest, in its place.
    std::string arrived = read_bytes(daemon.get(), sent);
    while (arrived.size() < large.size()) {
        ASSERT_TRUE(wait_writable(module));
        send(module, "");
        ASSERT_TRUE(wait_readable(daemon.get()));
        arrived += read_available(daemon.get());
    }
    EXPECT_EQ(arrived, large);
}

TEST_F(Link, DoesNotWaitForRoom) {
    fill(module);
    StdoutCapture out;
    // Room may come about once more while the peer's kernel empties the buffer.
    ASSERT_TRUE(eventually([&] { return fill(module) == 0 && send(module, "lost") == -1; }));
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT(out.stop(), testing::EndsWith(send_failure(EAGAIN)));
}

TEST_F(Link, FailsToResendWhileTheSocketIsFull) {
    send_too_much();
    StdoutCapture out;
    resend_until_full();
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT(out.stop(), testing::EndsWith(resend_failure(EAGAIN)));
}

TEST_F(Link, DropsNewMessagesUntilTheOldOneIsThrough) {
    StdoutCapture out;
    send_too_much();
    resend_until_full();
    std::string arrived;
    int incomplete = 0;
    int result = 0;
    // A single byte goes or does not; it may find the socket full once more.
    while (result != 1) {
        ASSERT_TRUE(wait_readable(daemon.get()));
        arrived += read_available(daemon.get());
        ASSERT_TRUE(wait_writable(module));
        result = send(module, "!");
        ASSERT_TRUE(result <= 1 && result >= -3 && result != -2) << result;
        incomplete += result == 0 ? 1 : 0;
    }
    EXPECT_GT(incomplete, 0);
    arrived += read_bytes(daemon.get(), large.size() + 1 - arrived.size());
    EXPECT_EQ(arrived, large + "!");
    EXPECT_EQ(read_available(daemon.get()), "");
    EXPECT_THAT(out.stop(), testing::ContainsRegex("\nsend failed buffer ret = [0-9]+\n"));
}

TEST_F(Link, KeepsBytesForEachSocketApart) {
    StdoutCapture out;
    send_too_much();
    const Pair other = stream_pair();
    EXPECT_EQ(send(other.near.get(), "to another"), 10);
    EXPECT_EQ(out.stop(), maybe_full);
    EXPECT_EQ(read_available(other.far.get()), "to another");
}

TEST_F(Link, SendToAnAddressKeepsTheRestToo) {
    const sockaddr_in ignored = ipv4("127.0.0.1", 9);
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(zan_socket_send_to(module, large.data(), 100, &ignored), 60);
    EXPECT_EQ(zan_socket_send_to(module, "after", 5, &ignored), 5);
    EXPECT_EQ(out.stop(), std::string(maybe_full) + resending + "send failed buffer ret = 40\n");
    EXPECT_EQ(read_bytes(daemon.get(), 105), large.substr(0, 100) + "after");
}

TEST_F(Link, OutlivesADaemonThatIsGone) {
    daemon.reset();
    StdoutCapture out;
    ASSERT_TRUE(eventually([&] { return send(module, "lost") == -1; }));
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << errno;
    EXPECT_EQ(send(module, "lost"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_THAT(out.stop(), testing::EndsWith(send_failure(EPIPE)));
}

TEST_F(Link, OutlivesADaemonThatIsGoneBeforeTheOldMessageIsThrough) {
    send_too_much();
    daemon.reset();
    StdoutCapture out;
    ASSERT_TRUE(eventually([&] { return send(module, "lost") == -3 && errno == EPIPE; }));
    EXPECT_THAT(out.stop(), testing::EndsWith(resend_failure(EPIPE)));
}

TEST_F(Link, DeletedWithSomethingKeptSaysSo) {
    StdoutCapture out;
    send_too_much();
    EXPECT_EQ(zan_socket_delete(module), 1);
    EXPECT_EQ(out.stop(), std::string(maybe_full) + "delete failed msg queue\n");
    expect_nothing_owed_by(module, send);
}

TEST_F(Link, DeletedWithNothingKeptSaysNothing) {
    StdoutCapture out;
    EXPECT_EQ(zan_socket_delete(module), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(is_open(module));
    EXPECT_EQ(read_bytes(daemon.get(), 1), "");
    module = -1;
}

TEST_F(Link, PeekingLeavesTheBytesQueued) {
    ASSERT_EQ(write(daemon.get(), "queued", 6), 6);
    ASSERT_TRUE(wait_readable(module));
    char bytes[16] = {};
    EXPECT_EQ(zan_socket_try_recv(module, bytes, 3), 3);
    EXPECT_EQ(std::string(bytes), "que");
    EXPECT_EQ(zan_socket_try_recv(module, bytes, sizeof bytes), 6);
    EXPECT_EQ(std::string(bytes), "queued");
    std::memset(bytes, 0, sizeof bytes);
    EXPECT_EQ(zan_socket_recv(module, bytes, sizeof bytes), 6);
    EXPECT_EQ(std::string(bytes), "queued");
    EXPECT_EQ(zan_socket_try_recv(module, bytes, sizeof bytes), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Link, EndOfTheStreamIsZeroBytes) {
    daemon.reset();
    ASSERT_TRUE(wait_readable(module));
    char byte;
    EXPECT_EQ(zan_socket_recv(module, &byte, 1), 0);
    EXPECT_EQ(zan_socket_try_recv(module, &byte, 1), 0);
}

TEST_F(Link, DaemonsEndGivesUpSendingAfterItsTimeOut) {
    Descriptor own(zan_socket_create("ZAN"));
    const Descriptor reader = tcp_connection(port_of(own.get()));
    const Descriptor accepted = accept_one(own);
    narrow(accepted.get(), SO_SNDBUF);
    StdoutCapture out;
    const Stopwatch watch;
    const std::string huge = some_bytes(std::size_t{32} << 20);
    const int sent = send(accepted.get(), huge);
    EXPECT_GE(watch.elapsed(), 300ms - one_tick);
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, static_cast<int>(huge.size()));
    // The kernels of both ends may yet find room for a little more.
    int result = 0;
    Stopwatch second;
    while ((result = send(accepted.get(), "dropped")) == 0)
        second = Stopwatch();
    EXPECT_EQ(result, -3);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(second.elapsed(), 300ms - one_tick);
    const std::string printed = out.stop();
    EXPECT_THAT(printed, testing::StartsWith(maybe_full));
    EXPECT_THAT(printed, testing::EndsWith(resend_failure(EAGAIN)));
    EXPECT_EQ(zan_socket_delete(accepted.get()), 1);
}

// ---- Receiving with a time-out ---------------------------------------------

TEST(NetworkReceiveFrom, GivesBytesAndSender) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    EXPECT_EQ(zan_socket_send_to(from.get(), "datagram", 8, &address), 8);
    char bytes[16] = {};
    sockaddr_in sender{};
    StdoutCapture out;
    EXPECT_EQ(zan_socket_recv_from(to.get(), bytes, sizeof bytes, &sender), 8);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(std::string(bytes), "datagram");
    EXPECT_EQ(text_of(sender), own_address(from.get()));
    EXPECT_EQ(timeout_option(to.get(), SO_RCVTIMEO), 3s);
}

TEST(NetworkReceiveFrom, NeedsNoSenderAddress) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    EXPECT_EQ(zan_socket_send_to(from.get(), "x", 1, &address), 1);
    char byte = 0;
    EXPECT_EQ(zan_socket_recv_from(to.get(), &byte, 1, nullptr), 1);
    EXPECT_EQ(byte, 'x');
}

TEST(NetworkReceiveFrom, WaitsThreeSeconds) {
    const Descriptor fd = udp_socket();
    char byte;
    sockaddr_in sender{};
    StdoutCapture out;
    const Stopwatch watch;
    EXPECT_EQ(zan_socket_recv_from(fd.get(), &byte, 1, &sender), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(watch.elapsed(), 3s - one_tick);
    EXPECT_EQ(out.stop(), "recvfrom err:" + std::to_string(EAGAIN) + "\n");
}

TEST(NetworkReceiveFrom, ReturnsTheLengthOfItsLineWithoutATimeOut) {
    const std::string line = "socket option  SO_RCVTIMEO not support\n";
    char byte;
    sockaddr_in sender{};
    StdoutCapture out;
    EXPECT_EQ(zan_socket_recv_from(-1, &byte, 1, &sender), static_cast<int>(line.size()));
    EXPECT_EQ(out.stop(), line);
}

TEST(NetworkReceiveFrom, ReceivesNothingWithoutATimeOut) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    ASSERT_EQ(zan_socket_send_to(from.get(), "kept", 4, &address), 4);
    refuse_option(SO_RCVTIMEO);
    char bytes[8] = {};
    StdoutCapture out;
    EXPECT_EQ(zan_socket_recv_from(to.get(), bytes, sizeof bytes, nullptr), 39);
    EXPECT_STREQ(bytes, "");
    EXPECT_EQ(read_available(to.get()), "kept");
}

// ---- Hostile arguments -----------------------------------------------------

using NetworkArguments = Tempting;

TEST_F(NetworkArguments, NegativeLengthsAreRefused) {
    char byte = '#';
    sockaddr_in address{};
    StdoutCapture out;
    for (const int length : {-1, -100, INT_MIN}) {
        EXPECT_EQ(zan_socket_send(fd, &byte, length), -1);
        EXPECT_EQ(zan_socket_send_to(fd, &byte, length, &address), -1);
        EXPECT_EQ(zan_socket_recv(fd, &byte, length), -1);
        EXPECT_EQ(zan_socket_try_recv(fd, &byte, length), -1);
        EXPECT_EQ(ipc_socket_recv_from(fd, &byte, length, &address), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(zan_socket_recv_from(fd, &byte, length, &address), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(byte, '#');
    EXPECT_THAT(out.stop(), HasSubstr("recvfrom err:" + std::to_string(EINVAL) + "\n"));
}

TEST_F(NetworkArguments, NothingToReadFromOrIntoIsRefused) {
    StdoutCapture out;
    EXPECT_EQ(zan_socket_send(fd, nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(zan_socket_try_recv(fd, nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(zan_socket_recv(fd, nullptr, 5), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(out.stop(), send_failure(EFAULT));
}

TEST_F(NetworkArguments, DatagramWithoutAnAddressIsRefused) {
    const Descriptor unbound = udp_socket();
    StdoutCapture out;
    EXPECT_EQ(zan_socket_send_to(unbound.get(), "x", 1, nullptr), -1);
    EXPECT_EQ(errno, EDESTADDRREQ);
    EXPECT_EQ(out.stop(), send_failure(EDESTADDRREQ));
}

TEST_F(NetworkArguments, SocketThatIsNoneIsReported) {
    char byte;
    StdoutCapture out;
    EXPECT_EQ(zan_socket_send(-1, "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(zan_socket_recv(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(zan_socket_delete(-1), 1);
    EXPECT_EQ(out.stop(), send_failure(EBADF));
}

} // namespace
} // namespace zan::test
