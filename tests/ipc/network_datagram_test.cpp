// SPDX-License-Identifier: MIT
// The links between modules over UDP.
#include <zan.h>

#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/new_process.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

namespace zan::test {
namespace {

// Makes the ports below the limit privileged, and gives that privilege up.
bool reserve_ports_below(int limit) {
    const std::string ports = std::to_string(limit);
    // The kernel's own choices have to lie above.
    write_file("/proc/sys/net/ipv4/ip_local_port_range", ports + " " + ports);
    write_file("/proc/sys/net/ipv4/ip_unprivileged_port_start", ports);
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    if (syscall(SYS_capget, &header, sets) != 0)
        return false;
    sets[0].effective &= ~(1U << CAP_NET_BIND_SERVICE);
    return syscall(SYS_capset, &header, sets) == 0;
}

// Takes ports and files at fixed places.
class ModuleServer : public testing::Test {
protected:
    void SetUp() override { ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX(); }
};

TEST_F(ModuleServer, TakesThePortTwelveThousandAndPublishesIt) {
    StdoutCapture out;
    const Descriptor fd(ipc_socket_create_server("probe"));
    EXPECT_EQ(out.stop(), "");
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(own_address(fd.get()), "127.0.0.1:12000");
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(option(fd.get(), SO_REUSEADDR), 1);
    EXPECT_EQ(read_file("/tmp/probe.info"), "12000\n");
}

TEST_F(ModuleServer, SecondInTheProcessTakesTheNextPort) {
    const Descriptor first(ipc_socket_create_server("one"));
    const Descriptor second(ipc_socket_create_server("two"));
    EXPECT_EQ(own_address(first.get()), "127.0.0.1:12000");
    EXPECT_EQ(own_address(second.get()), "127.0.0.1:12001");
    EXPECT_EQ(read_file("/tmp/one.info"), "12000\n");
    EXPECT_EQ(read_file("/tmp/two.info"), "12001\n");
}

TEST_F(ModuleServer, PassesOverAPortThatIsTaken) {
    const Descriptor taken = udp_socket(12000);
    const Descriptor also_taken = udp_socket(12001);
    const Descriptor fd(ipc_socket_create_server("probe"));
    EXPECT_EQ(own_address(fd.get()), "127.0.0.1:12002");
    EXPECT_EQ(read_file("/tmp/probe.info"), "12002\n");
}

TEST_F(ModuleServer, SearchesOnWhereTheLastOneFoundItsPort) {
    ZAN_NEEDS_NEW_PROCESS();
    Descriptor taken = udp_socket(12000);
    const Descriptor first(ipc_socket_create_server("one"));
    taken.reset();
    const Descriptor second(ipc_socket_create_server("two"));
    EXPECT_EQ(own_address(first.get()), "127.0.0.1:12001");
    EXPECT_EQ(own_address(second.get()), "127.0.0.1:12002");
}

TEST_F(ModuleServer, OfAnotherProcessTakesTheNextPort) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor first(ipc_socket_create_server("one"));
    EXPECT_TRUE(holds_in_child([] {
        const int fd = ipc_socket_create_server("two");
        return fd >= 0 && port_of(fd) == 12001;
    }));
    EXPECT_EQ(read_file("/tmp/two.info"), "12001\n");
}

TEST_F(ModuleServer, IsNoUseWithoutItsPortFile) {
    mkdir("/tmp/probe.info", 0700);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_socket_create_server("probe"), -1);
    EXPECT_EQ(out.stop(), "zan: write socket port file failed\n");
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(ModuleServer, RunsOutOfPortsUntilOneIsFreeAgain) {
    ASSERT_TRUE(reserve_ports_below(65535));
    Descriptor last = udp_socket(65535);
    StdoutCapture out;
    const int descriptors = open_descriptors();
    EXPECT_EQ(ipc_socket_create_server("probe"), -1);
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(file_exists("/tmp/probe.info"));
    last.reset();
    const Descriptor fd(ipc_socket_create_server("probe"));
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(port_of(fd.get()), 65535);
    EXPECT_EQ(read_file("/tmp/probe.info"), "65535\n");
}

TEST_F(ModuleServer, ReceivesFromAClientThatLooksItUp) {
    ZAN_NEEDS_NEW_PROCESS();
    const Descriptor server(ipc_socket_create_server("probe"));
    const Descriptor client(ipc_socket_create_client());
    sockaddr_in address{};
    EXPECT_EQ(ipc_socket_get_addr("probe", &address), htons(12000));
    ASSERT_EQ(zan_socket_send_to(client.get(), "hello", 5, &address), 5);
    char bytes[16] = {};
    sockaddr_in sender{};
    ASSERT_EQ(ipc_socket_recv_from(server.get(), bytes, sizeof bytes, &sender), 5);
    EXPECT_EQ(std::string(bytes), "hello");
    // And the answer finds its way back.
    ASSERT_EQ(zan_socket_send_to(server.get(), "yes?", 4, &sender), 4);
    EXPECT_EQ(ipc_socket_recv_from(client.get(), bytes, sizeof bytes, &sender), 4);
    EXPECT_EQ(text_of(sender), "127.0.0.1:12000");
}

TEST(ModuleClient, IsAnUnboundDatagramSocket) {
    const Descriptor fd(ipc_socket_create_client());
    ASSERT_GE(fd.get(), 0);
    EXPECT_EQ(option(fd.get(), SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(own_address(fd.get()), "0.0.0.0:0");
    EXPECT_EQ(timeout_option(fd.get(), SO_RCVTIMEO), std::chrono::seconds(0));
}

TEST(ModuleReceiveFrom, CutsADatagramToTheBuffer) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    ASSERT_EQ(zan_socket_send_to(from.get(), "datagram", 8, &address), 8);
    char bytes[8] = "#######";
    EXPECT_EQ(ipc_socket_recv_from(to.get(), bytes, 4, nullptr), 4);
    EXPECT_EQ(std::string(bytes), "data###");
    EXPECT_EQ(read_available(to.get()), "");
}

TEST(ModuleReceiveFrom, TakesAnEmptyDatagram) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    ASSERT_EQ(sendto(from.get(), nullptr, 0, 0, reinterpret_cast<const sockaddr *>(&address),
                     sizeof address),
              0);
    char byte = '#';
    sockaddr_in sender{};
    EXPECT_EQ(ipc_socket_recv_from(to.get(), &byte, 1, &sender), 0);
    EXPECT_EQ(text_of(sender), own_address(from.get()));
    EXPECT_EQ(byte, '#');
}

TEST(ModuleReceiveFrom, SetsNoTimeOut) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    ASSERT_EQ(zan_socket_send_to(from.get(), "x", 1, &address), 1);
    char byte;
    EXPECT_EQ(ipc_socket_recv_from(to.get(), &byte, 1, nullptr), 1);
    EXPECT_EQ(timeout_option(to.get(), SO_RCVTIMEO), std::chrono::seconds(0));
}

TEST(ModuleServerName, IsNeeded) {
    EXPECT_EQ(ipc_socket_create_server(nullptr), -1);
}

} // namespace
} // namespace zan::test
