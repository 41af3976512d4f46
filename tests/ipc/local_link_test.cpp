// SPDX-License-Identifier: MIT
// Both ends of the daemon link over local sockets: how they are made.
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

constexpr char daemon_path[] = "/tmp/ZAN_0.ls";
constexpr char no_daemon[] = "Connect to zan local socket fail!!";
constexpr char second_instance[] = "ZAN: Second instance already running\n";
constexpr char timeout_failure[] = "socket ipc: set socket send timout failed\n";

int connect_to(const Descriptor &fd, const std::string &path) {
    const sockaddr_un address = local(path);
    return connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

Descriptor unconnected(int flags = 0) {
    return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

// Files at fixed places.
class LocalLink : public testing::Test {
protected:
    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }
};

// ---- The daemon's end ------------------------------------------------------

class LocalDaemon : public LocalLink {};

TEST_F(LocalDaemon, ListensBehindTheFileOfItsNameAndInstance) {
    StdoutCapture out;
    const Descriptor fd(zan_lsocket_create("ZAN", 0));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(option(fd.get(), SO_ACCEPTCONN), 1);
    EXPECT_EQ(timeout_option(fd.get(), SO_SNDTIMEO), 200ms);
    const Descriptor module = unconnected();
    EXPECT_EQ(connect_to(module, daemon_path), 0);
}

TEST_F(LocalDaemon, SpellsItsNameAsTheCallerDoes) {
    const Descriptor lower(zan_lsocket_create("zan", 0));
    const Descriptor mixed(zan_lsocket_create("Zan", 12));
    const Descriptor negative(zan_lsocket_create("ZAN", -1));
    EXPECT_TRUE(file_exists("/tmp/zan_0.ls"));
    EXPECT_TRUE(file_exists("/tmp/Zan_12.ls"));
    EXPECT_TRUE(file_exists("/tmp/ZAN_-1.ls"));
    for (const Descriptor *fd : {&lower, &mixed, &negative})
        EXPECT_EQ(option(fd->get(), SO_ACCEPTCONN), 1);
}

TEST_F(LocalDaemon, OtherwiseSpeltOrNumberedIsNotReached) {
    const Descriptor lower(zan_lsocket_create("zan", 0));
    const Descriptor numbered(zan_lsocket_create("ZAN", 1));
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_create("probe", 0), -1);
    EXPECT_EQ(zan_lsocket_create("probe", 1), -1);
    EXPECT_EQ(out.stop(), std::string(no_daemon) + no_daemon);
}

TEST_F(LocalDaemon, RefusesToRunBesideAnother) {
    const Descriptor first(zan_lsocket_create("ZAN", 0));
    StdoutCapture out;
    EXPECT_TRUE(holds_in_child([] { return zan_lsocket_create("ZAN", 0) == -1; }));
    EXPECT_EQ(out.stop(), second_instance);
    const Descriptor module = unconnected();
    EXPECT_EQ(connect_to(module, daemon_path), 0);
}

TEST_F(LocalDaemon, LeavesTheSocketOpenThatMayNotRun) {
    const Descriptor first(zan_lsocket_create("ZAN", 0));
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("ZAN", 0), -1);
    EXPECT_EQ(out.stop(), second_instance);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(LocalDaemon, TakesOverTheFileOfOneThatDied) {
    ASSERT_TRUE(holds_in_child([] { return zan_lsocket_create("ZAN", 0) >= 0; }));
    ASSERT_TRUE(file_exists(daemon_path));
    StdoutCapture out;
    const Descriptor fd(zan_lsocket_create("ZAN", 0));
    EXPECT_EQ(out.stop(), "");
    const Descriptor module = unconnected();
    EXPECT_EQ(connect_to(module, daemon_path), 0);
}

TEST_F(LocalDaemon, TakesOverAFileThatIsNoSocket) {
    write_file(daemon_path, "not a socket");
    StdoutCapture out;
    const Descriptor fd(zan_lsocket_create("ZAN", 0));
    EXPECT_EQ(out.stop(), "");
    EXPECT_GE(fd.get(), 0);
}

TEST_F(LocalDaemon, ReportsWhatItCannotRemove) {
    mkdir(daemon_path, 0700);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("ZAN", 0), -1);
    EXPECT_EQ(out.stop(), "ZAN: removing old socket\n");
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(LocalDaemon, ReportsThatSomebodyElseWasFaster) {
    write_file(daemon_path, "left behind");
    after_unlink([] { write_file(daemon_path, "taken again"); });
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("ZAN", 0), -1);
    EXPECT_EQ(out.stop(), "ZAN: bind error\n");
    EXPECT_EQ(open_descriptors(), descriptors + 1);
    EXPECT_EQ(read_file(daemon_path), "taken again");
}

TEST_F(LocalDaemon, StaysOpenWhenItGetsNoTimeOut) {
    refuse_option(SO_SNDTIMEO);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("ZAN", 0), -1);
    EXPECT_EQ(out.stop(), timeout_failure);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
    const Descriptor module = unconnected();
    EXPECT_EQ(connect_to(module, daemon_path), 0);
}

TEST_F(LocalDaemon, LetsSixtySixConnectionsWait) {
    const Descriptor daemon(zan_lsocket_create("ZAN", 0));
    std::vector<Descriptor> waiting;
    // The kernel lets one more wait than the backlog of 65 says.
    for (int i = 0; i < 66; ++i) {
        waiting.push_back(unconnected(SOCK_NONBLOCK));
        ASSERT_EQ(connect_to(waiting.back(), daemon_path), 0) << i;
    }
    const Descriptor late = unconnected(SOCK_NONBLOCK);
    EXPECT_EQ(connect_to(late, daemon_path), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(LocalDaemon, LeavesItsFileWhenItIsDeleted) {
    const int fd = zan_lsocket_create("ZAN", 0);
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_delete(fd), 1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(is_open(fd));
    EXPECT_TRUE(file_exists(daemon_path));
}

TEST(LocalLinkName, IsNeeded) {
    EXPECT_EQ(zan_lsocket_create(nullptr, 0), -1);
}

// ---- A module's end --------------------------------------------------------

class LocalModule : public LocalLink {};

TEST_F(LocalModule, ConnectsToTheDaemonWhateverItsInstance) {
    const Descriptor daemon(zan_lsocket_create("ZAN", 0));
    for (const int instance : {0, 7}) {
        StdoutCapture out;
        const Descriptor module(zan_lsocket_create("probe", instance));
        EXPECT_EQ(out.stop(), "");
        ASSERT_GE(module.get(), 0);
        EXPECT_EQ(option(module.get(), SO_TYPE), SOCK_STREAM);
        EXPECT_EQ(timeout_option(module.get(), SO_SNDTIMEO), 200ms);
        EXPECT_EQ(fcntl(module.get(), F_GETFL) & O_NONBLOCK, 0);
        const Descriptor accepted = accept_one(daemon);
        EXPECT_EQ(zan_lsocket_send(module.get(), "here", 4), 4);
        EXPECT_EQ(read_bytes(accepted.get(), 4), "here");
    }
    EXPECT_FALSE(file_exists("/tmp/probe_0.ls"));
}

TEST_F(LocalModule, FindsNoDaemon) {
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("probe", 0), -1);
    EXPECT_EQ(out.stop(), no_daemon);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(LocalModule, FindsADaemonThatDied) {
    ASSERT_TRUE(holds_in_child([] { return zan_lsocket_create("ZAN", 0) >= 0; }));
    StdoutCapture out;
    EXPECT_EQ(zan_lsocket_create("probe", 0), -1);
    EXPECT_EQ(out.stop(), no_daemon);
    EXPECT_TRUE(file_exists(daemon_path));
}

TEST_F(LocalModule, StaysOpenWhenItGetsNoTimeOut) {
    const Descriptor daemon(zan_lsocket_create("ZAN", 0));
    refuse_option(SO_SNDTIMEO);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_lsocket_create("probe", 0), -1);
    EXPECT_EQ(out.stop(), timeout_failure);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

} // namespace
} // namespace zan::test
