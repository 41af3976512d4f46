// SPDX-License-Identifier: MIT
// The links between modules over local datagram sockets.
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/raw.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <string>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

constexpr char module[] = "local_test_probe";
constexpr char server_path[] = "/tmp/local_test_probe_0.ls";
constexpr char second_instance[] = "ZAN: Second instance already running\n";
constexpr char timeout_failure[] = "socket ipc: set socket send timout failed\n";

std::string client_path(pid_t pid = getpid()) {
    return "/tmp/local_test_probe_" + std::to_string(pid) + ".ls";
}

std::string bound_path(int fd) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return "(none)";
    return address.sun_path;
}

class LocalDatagrams : public testing::Test {
protected:
    ~LocalDatagrams() override {
        unlink(server_path);
        rmdir(server_path);
        unlink(client_path().c_str());
    }
};

TEST_F(LocalDatagrams, ServerIsBoundToTheFileOfItsModule) {
    StdoutCapture out;
    const Descriptor fd(ipc_lsocket_create_server(module));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(bound_path(fd.get()), server_path);
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(timeout_option(fd.get(), SO_SNDTIMEO), 200ms);
}

TEST_F(LocalDatagrams, ClientIsBoundToTheFileOfItsProcess) {
    StdoutCapture out;
    const Descriptor fd(ipc_lsocket_create_client(module));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(bound_path(fd.get()), client_path());
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(timeout_option(fd.get(), SO_SNDTIMEO), 200ms);
}

TEST_F(LocalDatagrams, ClientsOfTwoProcessesHaveFilesOfTheirOwn) {
    const Descriptor fd(ipc_lsocket_create_client(module));
    EXPECT_TRUE(holds_in_child([] {
        const int own = ipc_lsocket_create_client(module);
        const bool distinct = bound_path(own) == client_path() && getpid() != getppid();
        zan_lsocket_delete(own);
        return distinct;
    }));
    EXPECT_EQ(bound_path(fd.get()), client_path());
    EXPECT_TRUE(file_exists(client_path()));
}

TEST_F(LocalDatagrams, AddressIsThatOfTheServer) {
    sockaddr_un address;
    std::memset(&address, '#', sizeof address);
    EXPECT_EQ(ipc_lsocket_get_addr(module, &address), 1);
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_STREQ(address.sun_path, server_path);
}

TEST_F(LocalDatagrams, RequestAndAnswerFindTheirWay) {
    const Descriptor server(ipc_lsocket_create_server(module));
    const Descriptor client(ipc_lsocket_create_client(module));
    sockaddr_un address{};
    ipc_lsocket_get_addr(module, &address);
    StdoutCapture out;
    ASSERT_EQ(zan_lsocket_send_to(client.get(), "hello", 5, &address), 5);
    char bytes[16] = {};
    sockaddr_un sender{};
    ASSERT_EQ(ipc_lsocket_recv_from(server.get(), bytes, sizeof bytes, &sender), 5);
    EXPECT_EQ(std::string(bytes), "hello");
    EXPECT_EQ(sender.sun_path, client_path());
    ASSERT_EQ(zan_lsocket_send_to(server.get(), "yes?", 4, &sender), 4);
    std::memset(bytes, 0, sizeof bytes);
    ASSERT_EQ(zan_lsocket_recv_from(client.get(), bytes, sizeof bytes, &sender), 4);
    EXPECT_EQ(std::string(bytes), "yes?");
    EXPECT_STREQ(sender.sun_path, server_path);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(LocalDatagrams, NeedNoSenderAddress) {
    const Descriptor server(ipc_lsocket_create_server(module));
    const Descriptor client(ipc_lsocket_create_client(module));
    const sockaddr_un address = local(server_path);
    ASSERT_EQ(zan_lsocket_send_to(client.get(), "hello", 5, &address), 5);
    char bytes[4] = {};
    EXPECT_EQ(ipc_lsocket_recv_from(server.get(), bytes, 3, nullptr), 3);
    EXPECT_STREQ(bytes, "hel");
}

TEST_F(LocalDatagrams, SendGivesUpAfterItsTimeOut) {
    const Descriptor server(ipc_lsocket_create_server(module));
    const Descriptor client(ipc_lsocket_create_client(module));
    const sockaddr_un address = local(server_path);
    StdoutCapture out;
    int sent = 0;
    Stopwatch watch;
    while ((sent = zan_lsocket_send_to(client.get(), "x", 1, &address)) == 1)
        watch = Stopwatch();
    EXPECT_EQ(sent, -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(watch.elapsed(), 200ms - one_tick);
    EXPECT_EQ(out.stop(), "ipc lsocket send failed, " + std::string(std::strerror(EAGAIN)) + "\n");
}

TEST_F(LocalDatagrams, SendToAServerThatIsNotThereIsReported) {
    const Descriptor client(ipc_lsocket_create_client(module));
    const sockaddr_un address = local(server_path);
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_send_to(client.get(), "x", 1, &address), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out.stop(), "ipc lsocket send failed, " + std::string(std::strerror(ENOENT)) + "\n");
}

// ---- Files left behind -----------------------------------------------------

TEST_F(LocalDatagrams, ServerRefusesToRunBesideAnother) {
    const Descriptor first(ipc_lsocket_create_server(module));
    StdoutCapture out;
    EXPECT_TRUE(holds_in_child([] { return ipc_lsocket_create_server(module) == -1; }));
    EXPECT_EQ(out.stop(), second_instance);
    EXPECT_TRUE(file_exists(server_path));
}

TEST_F(LocalDatagrams, ServerTakesOverTheFileOfOneThatDied) {
    ASSERT_TRUE(holds_in_child([] { return ipc_lsocket_create_server(module) >= 0; }));
    ASSERT_TRUE(file_exists(server_path));
    StdoutCapture out;
    const Descriptor fd(ipc_lsocket_create_server(module));
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(bound_path(fd.get()), server_path);
}

TEST_F(LocalDatagrams, ClientTakesOverAFileOfItsNumberThatIsStale) {
    write_file(client_path(), "of an earlier process with this number");
    StdoutCapture out;
    const Descriptor fd(ipc_lsocket_create_client(module));
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(bound_path(fd.get()), client_path());
}

TEST_F(LocalDatagrams, SecondClientOfAProcessIsRefused) {
    const Descriptor first(ipc_lsocket_create_client(module));
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_lsocket_create_client(module), -1);
    EXPECT_EQ(out.stop(), second_instance);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(LocalDatagrams, ServerReportsWhatItCannotRemove) {
    mkdir(server_path, 0700);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_lsocket_create_server(module), -1);
    EXPECT_EQ(out.stop(), "ZAN: removing old socket\n");
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(LocalDatagrams, ServerReportsThatSomebodyElseWasFaster) {
    write_file(server_path, "left behind");
    after_unlink([] { write_file(server_path, "taken again"); });
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_lsocket_create_server(module), -1);
    EXPECT_EQ(out.stop(), "ZAN: bind error\n");
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(LocalDatagrams, StayOpenWhenTheyGetNoTimeOut) {
    refuse_option(SO_SNDTIMEO);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_lsocket_create_server(module), -1);
    EXPECT_EQ(ipc_lsocket_create_client(module), -1);
    EXPECT_EQ(out.stop(), std::string(timeout_failure) + timeout_failure);
    EXPECT_EQ(open_descriptors(), descriptors + 2);
}

// ---- Deletion --------------------------------------------------------------

TEST_F(LocalDatagrams, DeletedClientTakesItsFileAlong) {
    const int fd = ipc_lsocket_create_client(module);
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_delete(fd), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(is_open(fd));
    EXPECT_FALSE(file_exists(client_path()));
}

TEST_F(LocalDatagrams, DeletedServerTakesItsFileAlong) {
    const int fd = ipc_lsocket_create_server(module);
    EXPECT_EQ(zan_lsocket_delete(fd), 1);
    EXPECT_FALSE(file_exists(server_path));
}

TEST_F(LocalDatagrams, OnlyTheLastOneMadeTakesItsFileAlong) {
    const int server = ipc_lsocket_create_server(module);
    const int client = ipc_lsocket_create_client(module);
    EXPECT_EQ(zan_lsocket_delete(server), 1);
    EXPECT_TRUE(file_exists(server_path));
    EXPECT_TRUE(file_exists(client_path()));
    EXPECT_EQ(zan_lsocket_delete(client), 1);
    EXPECT_TRUE(file_exists(server_path));
    EXPECT_FALSE(file_exists(client_path()));
}

TEST_F(LocalDatagrams, OtherSocketsTakeNoFileAlong) {
    const Descriptor client(ipc_lsocket_create_client(module));
    Pair other = stream_pair();
    EXPECT_EQ(zan_lsocket_delete(other.near.release()), 1);
    EXPECT_TRUE(file_exists(client_path()));
}

TEST_F(LocalDatagrams, FileGoesOnlyOnce) {
    const int fd = ipc_lsocket_create_client(module);
    zan_lsocket_delete(fd);
    // Another socket under the same number, and a file in the same place.
    Pair other = stream_pair();
    ASSERT_EQ(dup2(other.near.get(), fd), fd);
    write_file(client_path(), "somebody else's");
    EXPECT_EQ(zan_lsocket_delete(fd), 1);
    EXPECT_TRUE(file_exists(client_path()));
}

// Refused, it stays open, under the number that is free now.
TEST_F(LocalDatagrams, SocketThatMayNotRunIsTheLastOneMadeAllTheSame) {
    const Descriptor first(ipc_lsocket_create_server(module));
    Descriptor client(ipc_lsocket_create_client(module));
    StdoutCapture out;
    const int refused = dup(first.get());
    close(refused);
    EXPECT_EQ(ipc_lsocket_create_server(module), -1);
    ASSERT_TRUE(is_open(refused));
    EXPECT_EQ(zan_lsocket_delete(client.release()), 1);
    EXPECT_TRUE(file_exists(client_path()));
    EXPECT_TRUE(file_exists(server_path));
    EXPECT_EQ(zan_lsocket_delete(refused), 1);
    EXPECT_FALSE(file_exists(server_path));
}

// ---- Names -----------------------------------------------------------------

TEST_F(LocalDatagrams, LongNameIsCutToTheRoomOfAnAddress) {
    const std::string name(200, 'n');
    const std::string path = "/tmp/" + std::string(102, 'n');
    const std::string warning = overflow_warning(path);
    StdoutCapture out;
    const Descriptor fd(ipc_lsocket_create_server(name.c_str()));
    EXPECT_EQ(out.stop(), warning);
    EXPECT_EQ(bound_path(fd.get()), path);
    sockaddr_un address;
    StdoutCapture again;
    EXPECT_EQ(ipc_lsocket_get_addr(name.c_str(), &address), 1);
    EXPECT_EQ(again.stop(), warning);
    EXPECT_EQ(address.sun_path, path);
    unlink(path.c_str());
}

TEST_F(LocalDatagrams, EndlessNameStaysWithinItsBuffers) {
    const std::string name(5000, 'n');
    const std::string path = "/tmp/" + std::string(102, 'n');
    const int fd = ipc_lsocket_create_client(name.c_str());
    EXPECT_EQ(bound_path(fd), path);
    EXPECT_EQ(zan_lsocket_delete(fd), 1);
    unlink(path.c_str());
}

TEST_F(LocalDatagrams, NeedANameAndRoomForAnAddress) {
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_lsocket_create_server(nullptr), -1);
    EXPECT_EQ(ipc_lsocket_create_client(nullptr), -1);
    EXPECT_EQ(open_descriptors(), descriptors);
    sockaddr_un address{};
    EXPECT_EQ(ipc_lsocket_get_addr(nullptr, &address), 1);
    EXPECT_EQ(ipc_lsocket_get_addr(module, nullptr), 1);
}

} // namespace
} // namespace zan::test
