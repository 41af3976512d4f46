// SPDX-License-Identifier: MIT
// The bridge port of an address, on bridges of the kernel's own.
#include <zan.h>

#include "network.h"
#include "support/capture.h"
#include "support/patience.h"
#include "support/program.h"
#include "support/sandbox.h"
#include "util/descriptors.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

namespace zan::test {
namespace {

struct Mac {
    unsigned char bytes[6];
};

std::string to_text(const Mac &mac) {
    char text[18];
    zan_macnum_to_str(mac.bytes, text);
    return text;
}

// Addresses that the tests make up, told apart by a number.
Mac numbered(int number) {
    return {{0x02, 0, 0, 0xaa, static_cast<unsigned char>(number >> 8),
             static_cast<unsigned char>(number)}};
}

// Bytes written for the name show up behind it.
struct PortName {
    char text[16 + 1];
    PortName() { std::memset(text, '~', sizeof text); }
    bool untouched() const { return text[0] == '~'; }
};

// br0 with the ports port_a and port_b, whose other ends are far_a and far_b.
class Bridge : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        run("ip link add br0 type bridge");
        ZAN_SKIP_WITH_REASON(why_no_bridge_requests());
        run("ip link set br0 up");
        for (const std::string side : {"a", "b"}) {
            run("ip link add port_" + side + " type veth peer name far_" + side);
            run("ip link set port_" + side + " master br0");
            // From what the kernel itself sends on a new interface, now or later.
            run("ip link set port_" + side + " type bridge_slave learning off");
            run("ip link set port_" + side + " up");
            run("ip link set far_" + side + " up");
        }
    }

    static void run(const std::string &command, const std::string &input = {}) {
        Program shell({"/bin/sh", "-c", command}, {.input = input, .host = true});
        ASSERT_EQ(shell.wait(), 0) << command << ": " << shell.error();
    }

    static void add(const Mac &mac, const std::string &port) {
        run("bridge fdb add " + to_text(mac) + " dev " + port + " master static");
    }

    static std::string port_of(const Mac &mac) {
        PortName name;
        const int result = get_ifname_from_macaddr("br0", mac.bytes, name.text);
        EXPECT_TRUE(result == -1 || result > 0) << result;
        return result == -1 ? "none" : name.text;
    }

    // Entries with a port, as iproute2 counts them.
    static int entries() {
        Program shell({"/bin/sh", "-c", "bridge fdb show br br0 | grep -c 'master br0'"},
                      {.host = true});
        shell.wait();
        return std::stoi(shell.output());
    }
};

TEST_F(Bridge, KnowsThePortOfAnAddress) {
    add(numbered(1), "port_a");
    add(numbered(2), "port_b");
    EXPECT_EQ(port_of(numbered(1)), "port_a");
    EXPECT_EQ(port_of(numbered(2)), "port_b");
    EXPECT_EQ(port_of(numbered(3)), "none");
}

TEST_F(Bridge, LeavesTheNameAloneWhenItHasNone) {
    PortName name;
    EXPECT_EQ(get_ifname_from_macaddr("br0", numbered(1).bytes, name.text), -1);
    EXPECT_TRUE(name.untouched());
    add(numbered(1), "port_a");
    EXPECT_GT(get_ifname_from_macaddr("br0", numbered(1).bytes, name.text), 0);
    EXPECT_EQ(name.text[16], '~');
}

TEST_F(Bridge, AnswersWithTheNumberOfEntriesRead) {
    PortName name;
    add(numbered(1), "port_a");
    const int before = get_ifname_from_macaddr("br0", numbered(1).bytes, name.text);
    EXPECT_EQ(before, entries());
    add(numbered(2), "port_a");
    const int after = get_ifname_from_macaddr("br0", numbered(1).bytes, name.text);
    EXPECT_EQ(after, entries());
    EXPECT_GT(after, before) << "one, or one more for the VLAN that ports begin with";
}

TEST_F(Bridge, LearnsAnAddressFromAFrame) {
    const Mac sender = numbered(7);
    EXPECT_EQ(port_of(sender), "none");
    run("ip link set port_b type bridge_slave learning on");
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    ASSERT_GE(fd, 0);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex("far_b"));
    unsigned char frame[60] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    std::memcpy(frame + 6, sender.bytes, 6);
    frame[12] = 0x88;
    frame[13] = 0xb5; // for experiments
    // The port forwards and learns once its carrier has been noticed.
    const bool learnt = eventually([&] {
        EXPECT_EQ(sendto(fd, frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
                  static_cast<ssize_t>(sizeof frame));
        return port_of(sender) != "none";
    });
    close(fd);
    EXPECT_TRUE(learnt);
    EXPECT_EQ(port_of(sender), "port_b");
}

TEST_F(Bridge, FollowsAnAddressToAnotherPort) {
    add(numbered(1), "port_a");
    EXPECT_EQ(port_of(numbered(1)), "port_a");
    run("bridge fdb replace " + to_text(numbered(1)) + " dev port_b master static");
    EXPECT_EQ(port_of(numbered(1)), "port_b");
    run("bridge fdb del " + to_text(numbered(1)) + " dev port_b master");
    EXPECT_EQ(port_of(numbered(1)), "none");
}

TEST_F(Bridge, NamesPortsWithTheLongestName) {
    run("ip link set port_a down");
    run("ip link set port_a name fifteen_letters");
    add(numbered(1), "fifteen_letters");
    EXPECT_EQ(port_of(numbered(1)), "fifteen_letters");
}

// One read of the database has 128 entries, and there is no second.
TEST_F(Bridge, SearchesTheFirst128Entries) {
    constexpr int added = 300;
    std::string batch;
    for (int number = 0; number < added; ++number)
        batch += "fdb add " + to_text(numbered(number)) + " dev port_a master static\n";
    run("bridge -batch -", batch);
    ASSERT_GT(entries(), added);
    int found = 0;
    for (int number = 0; number < added; ++number) {
        PortName name;
        const Mac mac = numbered(number);
        const int result = get_ifname_from_macaddr("br0", mac.bytes, name.text);
        if (result == -1)
            continue;
        ++found;
        EXPECT_EQ(result, 128);
        EXPECT_STREQ(name.text, "port_a");
    }
    EXPECT_GT(found, 50) << "an address may have an entry for a VLAN, too, and ports have theirs";
    EXPECT_LE(found, 128);
}

TEST_F(Bridge, OfAnotherNameIsAsked) {
    run("ip link add br1 type bridge");
    run("ip link add port_c type veth peer name far_c");
    run("ip link set port_c master br1");
    add(numbered(1), "port_c");
    PortName name;
    EXPECT_EQ(get_ifname_from_macaddr("br0", numbered(1).bytes, name.text), -1);
    EXPECT_GT(get_ifname_from_macaddr("br1", numbered(1).bytes, name.text), 0);
    EXPECT_STREQ(name.text, "port_c");
}

TEST_F(Bridge, IsNotLeftWithAnOpenSocket) {
    const std::set<int> before = open_descriptors();
    add(numbered(1), "port_a");
    for (const char *bridge : {"br0", "lo", "missing"})
        for (int number = 1; number <= 2; ++number) {
            PortName name;
            get_ifname_from_macaddr(bridge, numbered(number).bytes, name.text);
        }
    EXPECT_EQ(open_descriptors(), before);
}

// Its longs and pointers are half as wide, which the kernel has to know.
TEST_F(Bridge, AnswersA32BitProcess) {
    if (std::string(ZAN_TEST_BRIDGE_PORT_32).empty())
        GTEST_SKIP() << "no compiler for 32-bit x86";
    add(numbered(1), "port_b");
    Program known({ZAN_TEST_BRIDGE_PORT_32, "br0", to_text(numbered(1))}, {.host = true});
    EXPECT_EQ(known.wait(), 0);
    EXPECT_EQ(known.output(), "port_b " + std::to_string(entries()) + "\n");
    Program unknown({ZAN_TEST_BRIDGE_PORT_32, "br0", to_text(numbered(2))}, {.host = true});
    EXPECT_EQ(unknown.wait(), 1);
}

TEST(NoBridge, HasNoPortOfAnAddress) {
    StdoutCapture output;
    const Mac mac = numbered(1);
    for (const char *name : {"lo", "missing", "", "a_name_longer_than_any_interface_has"}) {
        PortName port;
        EXPECT_EQ(get_ifname_from_macaddr(name, mac.bytes, port.text), -1) << name;
        EXPECT_TRUE(port.untouched());
    }
    EXPECT_EQ(output.stop(), "");
}

TEST(NoBridge, CanBeAskedWithoutAnArgument) {
    PortName port;
    const Mac mac = numbered(1);
    EXPECT_EQ(get_ifname_from_macaddr(nullptr, mac.bytes, port.text), -1);
    EXPECT_EQ(get_ifname_from_macaddr("br0", nullptr, port.text), -1);
    EXPECT_EQ(get_ifname_from_macaddr("br0", mac.bytes, nullptr), -1);
    EXPECT_TRUE(port.untouched());
}

} // namespace
} // namespace zan::test
