// SPDX-License-Identifier: MIT
// Both ends of the daemon link: how they are made.
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/new_process.h"
#include "support/pauses.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
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

constexpr int default_port = 2679;
constexpr char port_file[] = "/tmp/zan.socket";
constexpr char address_file[] = "/tmp/zan.socketip";
constexpr char timeout_failure[] = "socket ipc: set socket send timout failed\n";

std::string cannot_connect(int port) {
    return "zan: can not connect to zan, port=" + std::to_string(port) + "\n";
}

// Ports and files at fixed places.
class DaemonLink : public testing::Test {
protected:
    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }
};

// ---- The daemon's end ------------------------------------------------------

class DaemonEnd : public DaemonLink {};

TEST_F(DaemonEnd, ListensOnAllAddressesAndPublishesItsPort) {
    ZAN_NEEDS_NEW_PROCESS();
    StdoutCapture out;
    const Descriptor fd(zan_socket_create("ZAN"));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(own_address(fd.get()), "0.0.0.0:2679");
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(option(fd.get(), SO_ACCEPTCONN), 1);
    EXPECT_EQ(option(fd.get(), SO_REUSEADDR), 1);
    EXPECT_EQ(timeout_option(fd.get(), SO_SNDTIMEO), 300ms);
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(read_file(port_file), "2679\n");
}

TEST_F(DaemonEnd, IsMadeForTheNameInAnyCase) {
    ZAN_NEEDS_NEW_PROCESS();
    for (const char *name : {"zan", "Zan", "zAN"}) {
        const Descriptor fd(zan_socket_create(name));
        ASSERT_GE(fd.get(), 0) << name;
        EXPECT_EQ(option(fd.get(), SO_ACCEPTCONN), 1) << name;
    }
}

TEST_F(DaemonEnd, TakesTheNextPortWhenAnotherProcessHasTheFirst) {
    ZAN_NEEDS_NEW_PROCESS();
    int hold[2];
    int held[2];
    ASSERT_EQ(pipe(hold), 0);
    ASSERT_EQ(pipe(held), 0);
    const pid_t other = fork();
    if (other == 0) {
        close(hold[1]);
        const Descriptor listener = tcp_listener(default_port);
        close(held[1]);
        char end;
        _exit(read(hold[0], &end, 1) == 0 ? 0 : 1);
    }
    close(held[1]);
    char end;
    EXPECT_EQ(read(held[0], &end, 1), 0);
    const Descriptor fd(zan_socket_create("ZAN"));
    close(hold[1]);
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(port_of(fd.get()), 2680);
    EXPECT_EQ(read_file(port_file), "2680\n");
}

TEST_F(DaemonEnd, PassesOverEveryPortThatIsTaken) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor first = tcp_listener(2679);
    const Descriptor second = tcp_listener(2680);
    const Descriptor third = tcp_listener(2681);
    const Descriptor fd(zan_socket_create("ZAN"));
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(port_of(fd.get()), 2682);
    EXPECT_EQ(read_file(port_file), "2682\n");
}

// The option that would let it have the port again comes behind the attempts.
TEST_F(DaemonEnd, TakesTheNextPortWhileAConnectionToTheFirstIsLeft) {
    ZAN_NEEDS_NEW_PROCESS();
    const int first = zan_socket_create("ZAN");
    ASSERT_GE(first, 0);
    const Descriptor module = tcp_connection(default_port);
    const Descriptor accepted = accept_one(Descriptor(dup(first)));
    EXPECT_EQ(zan_socket_delete(first), 1);
    const Descriptor second(zan_socket_create("ZAN"));
    ASSERT_GE(second.get(), 0);
    EXPECT_EQ(port_of(second.get()), 2680);
    EXPECT_EQ(read_file(port_file), "2680\n");
}

TEST_F(DaemonEnd, RunsOutOfPortsUntilOneIsFreeAgain) {
    // A module's attempt sets the port that the daemon's end starts from.
    Descriptor taken = tcp_listener(65535);
    write_file(port_file, "65535\n");
    write_file(address_file, "127.0.0.1\n");
    Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    unlink(port_file);
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_socket_create("ZAN"), -1);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(file_exists(port_file));
    taken.reset();
    module.reset();
    const Descriptor fd(zan_socket_create("ZAN"));
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(port_of(fd.get()), 65535);
    EXPECT_EQ(read_file(port_file), "65535\n");
}

TEST_F(DaemonEnd, IsNoUseWithoutItsPortFile) {
    mkdir(port_file, 0700);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_socket_create("ZAN"), -1);
    EXPECT_EQ(out.stop(), "zan: write socket port file failed\n");
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(DaemonEnd, StaysOpenWhenItGetsNoTimeOut) {
    ZAN_NEEDS_NEW_PROCESS();
    refuse_option(SO_SNDTIMEO);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_socket_create("ZAN"), -1);
    EXPECT_EQ(out.stop(), timeout_failure);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
    EXPECT_EQ(read_file(port_file), "2679\n");
}

TEST_F(DaemonEnd, LetsSixtySixConnectionsWait) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor daemon(zan_socket_create("ZAN"));
    ASSERT_GE(daemon.get(), 0);
    std::vector<Descriptor> waiting;
    // The kernel lets one more wait than the backlog of 65 says.
    for (int i = 0; i < 66; ++i)
        waiting.push_back(tcp_connection(default_port));
    // The next one is neither taken nor refused: it is not answered at all.
    const Descriptor late(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const sockaddr_in address = ipv4("127.0.0.1", default_port);
    EXPECT_EQ(connect(late.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address),
              -1);
    EXPECT_EQ(errno, EINPROGRESS);
    EXPECT_EQ(connect(late.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address),
              -1);
    EXPECT_EQ(errno, EALREADY);
}

TEST_F(DaemonEnd, HandsItsTimeOutToTheConnectionsItAccepts) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor daemon(zan_socket_create("ZAN"));
    const Descriptor module = tcp_connection(default_port);
    const Descriptor accepted = accept_one(daemon);
    EXPECT_EQ(timeout_option(accepted.get(), SO_SNDTIMEO), 300ms);
}

TEST(LinkName, IsNeeded) {
    EXPECT_EQ(zan_socket_create(nullptr), -1);
}

// ---- A module's end --------------------------------------------------------

class ModuleEnd : public DaemonLink {
protected:
    void SetUp() override {
        DaemonLink::SetUp();
        if (!IsSkipped())
            write_file(address_file, "127.0.0.1\n");
    }
};

TEST_F(ModuleEnd, ConnectsToTheDaemonsEnd) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor daemon(zan_socket_create("ZAN"));
    StdoutCapture out;
    const Descriptor module(zan_socket_create("probe"));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(module.get(), 0);
    const Descriptor accepted = accept_one(daemon);
    EXPECT_EQ(peer_address(module.get()), "127.0.0.1:2679");
    EXPECT_EQ(peer_address(accepted.get()), own_address(module.get()));
}

TEST_F(ModuleEnd, IsNonBlockingAndNothingElse) {
    const Descriptor listener = tcp_listener(default_port);
    const Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(fcntl(module.get(), F_GETFL) & ~O_ACCMODE, O_NONBLOCK);
    EXPECT_EQ(timeout_option(module.get(), SO_SNDTIMEO), 300ms);
    EXPECT_EQ(option(module.get(), SO_REUSEADDR), 0);
    char byte;
    EXPECT_EQ(zan_socket_recv(module.get(), &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(zan_socket_try_recv(module.get(), &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(ModuleEnd, TriesTheDefaultPortWithoutAPortFile) {
    const Descriptor listener = tcp_listener(2679);
    const Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(peer_address(module.get()), "127.0.0.1:2679");
}

TEST_F(ModuleEnd, TriesThePortOfThePortFile) {
    const Descriptor listener = tcp_listener(2690);
    write_file(port_file, "2690\n");
    const Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(peer_address(module.get()), "127.0.0.1:2690");
}

TEST_F(ModuleEnd, ReadsThePortFileEachTime) {
    const Descriptor listener = tcp_listener(2690);
    write_file(port_file, "2690\n");
    const Descriptor first(zan_socket_create("probe"));
    unlink(port_file);
    const Descriptor other = tcp_listener(2679);
    const Descriptor second(zan_socket_create("probe"));
    EXPECT_EQ(peer_address(first.get()), "127.0.0.1:2690");
    EXPECT_EQ(peer_address(second.get()), "127.0.0.1:2679");
}

TEST_F(ModuleEnd, RefusesAPortFileWithoutAPort) {
    for (const char *contents : {"", "\n", "garbage\n", "0\n", "-2679\n"}) {
        write_file(port_file, contents);
        StdoutCapture out;
        const int descriptors = open_descriptors();
        EXPECT_EQ(zan_socket_create("probe"), -1) << contents;
        EXPECT_EQ(out.stop(), "zan: can not get zan port\n") << contents;
        EXPECT_EQ(open_descriptors(), descriptors) << contents;
    }
    EXPECT_EQ(connects_made(), 0);
}

TEST_F(ModuleEnd, ConnectsForEveryNameThatIsNotTheDaemons) {
    const Descriptor listener = tcp_listener(default_port);
    for (const char *name : {"", "ZANX", "ZA", " zan", "probe"}) {
        const Descriptor module(zan_socket_create(name));
        ASSERT_GE(module.get(), 0) << name;
        EXPECT_EQ(peer_address(module.get()), "127.0.0.1:2679") << name;
    }
}

// ---- The daemon's address --------------------------------------------------

class DaemonAddress : public DaemonLink {
protected:
    static void give_loopback(const char *host) {
        ifreq request{};
        std::string("lo:1").copy(request.ifr_name, IFNAMSIZ - 1);
        const sockaddr_in address = ipv4(host, 0);
        std::memcpy(&request.ifr_addr, &address, sizeof address);
        const Descriptor any = udp_socket();
        ASSERT_EQ(ioctl(any.get(), SIOCSIFADDR, &request), 0) << std::strerror(errno);
    }
};

TEST_F(DaemonAddress, IsTheRoutersOwnWithoutAnAddressFile) {
    give_loopback("192.168.0.1");
    const Descriptor listener = tcp_listener(default_port, "0.0.0.0");
    const Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(peer_address(module.get()), "192.168.0.1:2679");
}

TEST_F(DaemonAddress, IsTheRoutersOwnWithAnEmptyAddressFile) {
    give_loopback("192.168.0.1");
    const Descriptor listener = tcp_listener(default_port, "0.0.0.0");
    write_file(address_file, "");
    const Descriptor module(zan_socket_create("probe"));
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(peer_address(module.get()), "192.168.0.1:2679");
}

TEST_F(DaemonAddress, OfABlankLineIsNotReached) {
    give_loopback("192.168.0.1");
    const Descriptor listener = tcp_listener(default_port, "0.0.0.0");
    for (const char *contents : {"\n", "  \n", " "}) {
        write_file(address_file, contents);
        StdoutCapture out;
        EXPECT_EQ(zan_socket_create("probe"), -1) << contents;
        EXPECT_EQ(out.stop(), cannot_connect(default_port)) << contents;
    }
}

TEST_F(DaemonAddress, IsThatOfTheAddressFile) {
    give_loopback("10.1.2.3");
    const Descriptor listener = tcp_listener(default_port, "0.0.0.0");
    for (const char *contents :
         {"10.1.2.3\n", "10.1.2.3", "10.1.2.3 \r\n", "10.1.2.3\n127.0.0.1\n"}) {
        write_file(address_file, contents);
        const Descriptor module(zan_socket_create("probe"));
        ASSERT_GE(module.get(), 0) << contents;
        EXPECT_EQ(peer_address(module.get()), "10.1.2.3:2679") << contents;
    }
}

TEST_F(DaemonAddress, ThatIsNoneIsNotReached) {
    const Descriptor listener = tcp_listener(default_port, "0.0.0.0");
    write_file(address_file, "the daemon\n");
    StdoutCapture out;
    EXPECT_EQ(zan_socket_create("probe"), -1);
    EXPECT_EQ(out.stop(), cannot_connect(default_port));
}

// ---- Attempts --------------------------------------------------------------
// A non-blocking connect only starts a connection; the next connect of the same
// socket learns what became of it.  A port that is closed thus takes up two
// attempts each time.

TEST_F(ModuleEnd, GivesUpAfterFiveAttempts) {
    write_file(port_file, "2690\n");
    StdoutCapture out;
    const int descriptors = open_descriptors();
    const Stopwatch watch;
    const PauseWatch pauses;
    EXPECT_EQ(zan_socket_create("probe"), -1);
    EXPECT_EQ(out.stop(), cannot_connect(2690));
    EXPECT_EQ(connects_made(), 5);
    EXPECT_THAT(pauses.pauses(), testing::ElementsAre(100ms, 100ms, 100ms, 100ms));
    EXPECT_GE(watch.elapsed(), 400ms);
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(ModuleEnd, ReachesAPortThatOpensLate) {
    Descriptor listener;
    before_connect([&](int attempt) {
        if (attempt == 3)
            listener = tcp_listener(default_port);
    });
    StdoutCapture out;
    const Descriptor module(zan_socket_create("probe"));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(module.get(), 0);
    EXPECT_EQ(connects_made(), 4);
    const Descriptor accepted = accept_one(listener);
    EXPECT_EQ(zan_socket_send(module.get(), "here", 4), 4);
    EXPECT_EQ(read_bytes(accepted.get(), 4), "here");
}

TEST_F(ModuleEnd, DoesNotReachAPortThatOpensTooLate) {
    Descriptor listener;
    before_connect([&](int attempt) {
        if (attempt == 5)
            listener = tcp_listener(default_port);
    });
    StdoutCapture out;
    EXPECT_EQ(zan_socket_create("probe"), -1);
    EXPECT_EQ(out.stop(), cannot_connect(default_port));
}

TEST_F(ModuleEnd, StaysOpenWhenItGetsNoTimeOut) {
    const Descriptor listener = tcp_listener(default_port);
    refuse_option(SO_SNDTIMEO);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(zan_socket_create("probe"), -1);
    EXPECT_EQ(out.stop(), timeout_failure);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(ModuleEnd, FailureLeavesItsPortToTheDaemonsEnd) {
    write_file(port_file, "2690\n");
    StdoutCapture out;
    EXPECT_EQ(zan_socket_create("probe"), -1);
    const Descriptor daemon(zan_socket_create("ZAN"));
    ASSERT_GE(daemon.get(), 0);
    EXPECT_EQ(port_of(daemon.get()), 2690);
}

} // namespace
} // namespace zan::test
