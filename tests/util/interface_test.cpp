// SPDX-License-Identifier: MIT
// Addresses of interfaces, on interfaces of the kernel's own.
#include <zan.h>

#include "network.h"
#include "process_fixture.h"
#include "support/capture.h"
#include "util/descriptors.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

namespace zan::test {
namespace {

class Interface : public NetworkTest {};

std::string ip_of(const std::string &name) {
    Untouched text;
    const int result = get_ip_by_inf(name.c_str(), text.text);
    return std::to_string(result) + " " + text.string();
}

std::string ipv6_of(const std::string &name) {
    Untouched text;
    const int result = get_addr_by_inf(AF_INET6, name.c_str(), nullptr, nullptr, text.text);
    return std::to_string(result) + " " + text.string();
}

std::string name_of(const std::string &ip) {
    Untouched name;
    const int result = get_infname_by_ip(name.text, ip.c_str());
    return std::to_string(result) + " " + name.string();
}

TEST_F(Interface, HasAnAddress) {
    EXPECT_EQ(ip_of("wan0"), "1 192.0.2.1");
    EXPECT_EQ(ip_of("lan0"), "1 192.168.1.1");
    EXPECT_EQ(ip_of("lo"), "1 127.0.0.1");
    ip("addr add 10.1.2.3/8 dev wan0\n");
    EXPECT_EQ(ip_of("wan0"), "1 192.0.2.1") << "the first is the interface's";
    ip("link set wan0 down\n");
    EXPECT_EQ(ip_of("wan0"), "1 192.0.2.1") << "up or not";
}

TEST_F(Interface, WithoutAnAddressLeavesTheTextAlone) {
    StdoutCapture output;
    for (const char *name : {"far_wan0", "missing", ""})
        EXPECT_EQ(ip_of(name), "-1 untouched") << name;
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Interface, IsNamedByTheFirst15Characters) {
    ip("link set lan0 down\nlink set lan0 name fifteen_letters\n");
    StdoutCapture output;
    const std::string line = overflow_warning("fifteen_letters");
    EXPECT_EQ(ip_of("fifteen_letters_and_more"), "1 192.168.1.1");
    Untouched text;
    EXPECT_EQ(get_addr_by_inf(AF_INET, "fifteen_letters_and_more", nullptr, nullptr, text.text), 1);
    EXPECT_EQ(output.stop(), line + line);
}

TEST_F(Interface, HasASocketAddress) {
    struct {
        sockaddr_in address;
        char behind[16];
    } out;
    std::memset(&out, '~', sizeof out);
    int length = 0;
    Untouched text;
    EXPECT_EQ(get_addr_by_inf(AF_INET, "wan0", reinterpret_cast<sockaddr *>(&out.address), &length,
                              text.text),
              1);
    sockaddr_in expected{};
    expected.sin_family = AF_INET;
    expected.sin_addr.s_addr = inet_addr("192.0.2.1");
    EXPECT_EQ(std::memcmp(&out.address, &expected, 16), 0);
    EXPECT_EQ(length, 16);
    EXPECT_EQ(text.string(), "192.0.2.1");
    EXPECT_EQ(out.behind[0], '~');
    EXPECT_EQ(get_addr_by_inf(AF_INET, "wan0", nullptr, nullptr, nullptr), 1);
}

TEST_F(Interface, WithoutAnAddressLeavesEveryOutputAlone) {
    sockaddr_in address;
    std::memset(&address, '~', sizeof address);
    const sockaddr_in before = address;
    int length = 5;
    Untouched text;
    EXPECT_EQ(get_addr_by_inf(AF_INET, "missing", reinterpret_cast<sockaddr *>(&address), &length,
                              text.text),
              -1);
    EXPECT_EQ(std::memcmp(&address, &before, sizeof address), 0);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(text.string(), "untouched");
}

TEST_F(Interface, OfAnotherFamilyIsNotLookedAt) {
    Untouched text;
    StdoutCapture output;
    const LimitedTo no_descriptors(RLIMIT_NOFILE, 0);
    for (const int family : {7, 0, -1, static_cast<int>(AF_UNIX)}) {
        EXPECT_EQ(get_addr_by_inf(family, "wan0", nullptr, nullptr, text.text), 1);
        EXPECT_EQ(get_addr_by_inf(family, nullptr, nullptr, nullptr, nullptr), 1);
    }
    EXPECT_EQ(text.string(), "untouched");
    EXPECT_EQ(output.stop(), "");
}

// ---- IPv6

TEST_F(Interface, HasAGlobalIpv6Address) {
    ip("addr add fd00::1/64 dev wan0 nodad\n"
       "addr add 2a00::1/64 dev wan0 nodad\n"
       "addr add 2001:db8:0:1::5/64 dev wan0 nodad\n"
       "addr add 2001:db8:0:2::5/64 dev lan0 nodad\n");
    EXPECT_EQ(ipv6_of("wan0"), "1 2001:db8:0:1::5");
    EXPECT_EQ(ipv6_of("lan0"), "1 2001:db8:0:2::5");
}

TEST_F(Interface, WithoutAGlobalIpv6AddressSucceedsAndLeavesTheTextAlone) {
    ip("addr add 2001:db8::1/64 dev lan0 nodad\n"
       "addr add fe80::1/64 dev wan0 nodad\n");
    EXPECT_EQ(ipv6_of("wan0"), "1 untouched") << "a link-local one";
    ip("addr add fd00::1/64 dev wan0 nodad\n"
       "addr add 2a00::1/64 dev wan0 nodad\n");
    EXPECT_EQ(ipv6_of("wan0"), "1 untouched") << "and others";
    EXPECT_EQ(ipv6_of("lan"), "1 untouched") << "the whole name counts";
    EXPECT_EQ(ipv6_of("missing"), "1 untouched");
    EXPECT_EQ(get_addr_by_inf(AF_INET6, "lan0", nullptr, nullptr, nullptr), 1);
}

TEST_F(Interface, WithAnIpv6AddressFillsTheTextOnly) {
    ip("addr add 2001:db8::1/64 dev lan0 nodad\n");
    sockaddr_in address;
    std::memset(&address, '~', sizeof address);
    const sockaddr_in before = address;
    int length = 5;
    EXPECT_EQ(
        get_addr_by_inf(AF_INET6, "lan0", reinterpret_cast<sockaddr *>(&address), &length, nullptr),
        1);
    EXPECT_EQ(std::memcmp(&address, &before, sizeof address), 0);
    EXPECT_EQ(length, 5);
}

TEST_F(Interface, IsFoundBehindMoreIpv6AddressesThanABufferHolds) {
    std::string lines;
    for (int i = 1; i <= 200; ++i)
        lines += "addr add 2001:db8::" + std::to_string(i) + "/64 dev lan0 nodad\n";
    ip(lines);
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n");
    EXPECT_EQ(ipv6_of("wan0"), "1 2001:db8:0:1::5");
}

struct Ipv6Line {
    std::string what;
    std::string line;
    std::string expected;
};

TEST_F(Interface, ReadsTheIpv6TableByItsFirstAndLastField) {
    const std::string address = "20010db8000000000000000000000001";
    const Ipv6Line lines[] = {
        {"the usual line", address + " 02 40 00 80     wan0\n", "1 2001:db8::1"},
        {"no end of line", address + " 02 40 00 80     wan0", "1 2001:db8::1"},
        {"nothing between", address + " wan0\n", "1 2001:db8::1"},
        {"no blank", address + "wan0\n", "1 untouched"},
        {"a tab is none", address + "\twan0\n", "1 untouched"},
        {"a blank at the end", address + " wan0 \n", "1 untouched"},
        {"fewer characters", "2001 wan0\n", "1 2001:a::"},
        {"an odd number", "20f wan0\n", "1 200f::"},
        {"other characters", "20zz0db80000000000000000000000 1 wan0\n", "1 2000:db8::1"},
        {"as long as the buffer", address + std::string(1023 - 32 - 5, ' ') + " wan0\n",
         "1 2001:db8::1"},
        {"longer, its rest a line", std::string(1023, '0') + address + " wan0\n", "1 2001:db8::1"},
        {"an empty table", "", "1 untouched"},
        {"an empty line", "\n", "1 untouched"},
    };
    provide_proc({{"net/if_inet6", ""}});
    for (const Ipv6Line &line : lines) {
        std::ofstream("/proc/net/if_inet6") << line.line;
        EXPECT_EQ(ipv6_of("wan0"), line.expected) << line.what;
    }
}

TEST_F(Interface, TakesTheFirstGlobalIpv6AddressOfTheTable) {
    provide_proc({{"net/if_inet6", "fe800000000000000000000000000001 02 40 20 80     wan0\n"
                                   "20010db8000000000000000000000002 02 40 00 80     wan0\n"
                                   "20010db8000000000000000000000003 02 40 00 80     wan0\n"}});
    EXPECT_EQ(ipv6_of("wan0"), "1 2001:db8::2");
}

TEST_F(Interface, WithoutAnIpv6TableIsAnotherFailure) {
    provide_proc({{"net/if_inet6", std::nullopt}});
    StdoutCapture output;
    EXPECT_EQ(ipv6_of("wan0"), "0 untouched");
    EXPECT_EQ(output.stop(), "");
}

// ---- the interface of an address

TEST_F(Interface, IsFoundByItsAddress) {
    EXPECT_EQ(name_of("192.168.1.1"), "1 lan0");
    EXPECT_EQ(name_of("127.0.0.1"), "1 lo");
    ip("addr add 10.1.2.3/8 dev wan0\n");
    StdoutCapture output;
    for (const char *ip : {"10.1.2.3", "192.0.2.2", "192.000.2.1", "192.0.2.1 ", ""})
        EXPECT_EQ(name_of(ip), "0 untouched") << ip;
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Interface, IsFoundAmongMoreThanABufferHolds) {
    std::string lines;
    for (int i = 0; i < 40; ++i)
        lines += "link add one" + std::to_string(i) + " type veth peer name two" +
                 std::to_string(i) + "\n";
    ip(lines + "addr add 10.0.0.39/8 dev two39\n");
    EXPECT_EQ(name_of("10.0.0.39"), "1 two39");
}

TEST_F(Interface, IsTheFirstWordBeforeAColon) {
    const std::string longer(300, ' ');
    provide_proc({{"net/dev", "Inter-|   Receive\n face |bytes\n"
                              "lan0 of one machine:    1 2 3\n"
                              "wan0:1\n"
                              ":\n\n   : 5\n"}});
    EXPECT_EQ(name_of("192.168.1.1"), "1 lan0");
    EXPECT_EQ(name_of("192.0.2.1"), "1 wan0");
    EXPECT_EQ(name_of("10.0.0.1"), "0 untouched");
    std::ofstream("/proc/net/dev") << longer + "lan0: 1\n" + "wan0" + longer + ": 1\n";
    EXPECT_EQ(name_of("192.168.1.1"), "1 lan0") << "the rest of a long line is a line";
    EXPECT_EQ(name_of("192.0.2.1"), "0 untouched");
}

TEST_F(Interface, IsTheFirstListedOfThoseWithTheAddress) {
    ip("addr add 10.9.9.9/32 dev far_wan0\n"
       "addr add 10.9.9.9/32 dev far_lan0\n");
    provide_proc({{"net/dev", "far_wan0: 1\nfar_lan0: 1\n"}});
    EXPECT_EQ(name_of("10.9.9.9"), "1 far_wan0");
    std::ofstream("/proc/net/dev") << "far_lan0: 1\nfar_wan0: 1\n";
    EXPECT_EQ(name_of("10.9.9.9"), "1 far_lan0");
}

TEST_F(Interface, IsNotFoundWithoutATable) {
    provide_proc({{"net/dev", std::nullopt}});
    EXPECT_EQ(name_of("192.168.1.1"), "0 untouched");
}

// ---- all of them

TEST_F(Interface, CannotBeAskedWithoutASocket) {
    StdoutCapture output;
    const LimitedTo no_descriptors(RLIMIT_NOFILE, 0);
    EXPECT_EQ(ip_of("wan0"), "-1 untouched");
    EXPECT_EQ(ipv6_of("wan0"), "-1 untouched");
    EXPECT_EQ(output.stop(), "error socket\nerror socket\n");
}

TEST_F(Interface, LeavesASocketOfDescriptor0Open) {
    const DescriptorReplaced kept(STDIN_FILENO, STDIN_FILENO);
    for (const int family : {AF_INET, AF_INET6}) {
        close(STDIN_FILENO);
        EXPECT_EQ(get_addr_by_inf(family, "wan0", nullptr, nullptr, nullptr), 1);
        int type = 0;
        socklen_t size = sizeof type;
        EXPECT_EQ(getsockopt(STDIN_FILENO, SOL_SOCKET, SO_TYPE, &type, &size), 0);
        EXPECT_EQ(type, SOCK_DGRAM);
    }
}

TEST_F(Interface, LeavesNoDescriptorBehind) {
    ip("addr add 2001:db8::1/64 dev lan0 nodad\n");
    const std::set<int> before = open_descriptors();
    for (const char *name : {"wan0", "lan0", "far_wan0", "missing"}) {
        ip_of(name);
        ipv6_of(name);
    }
    name_of("192.168.1.1");
    name_of("10.0.0.1");
    EXPECT_EQ(open_descriptors(), before);
    provide_proc({{"net/if_inet6", std::nullopt}});
    const std::set<int> provided = open_descriptors();
    ipv6_of("wan0");
    EXPECT_EQ(open_descriptors(), provided);
}

TEST_F(Interface, CanBeAskedWithoutAnArgument) {
    Untouched text;
    EXPECT_EQ(get_ip_by_inf(nullptr, text.text), -1);
    EXPECT_EQ(get_ip_by_inf("wan0", nullptr), -1);
    EXPECT_EQ(get_addr_by_inf(AF_INET, nullptr, nullptr, nullptr, text.text), -1);
    EXPECT_EQ(get_addr_by_inf(AF_INET6, nullptr, nullptr, nullptr, text.text), -1);
    EXPECT_EQ(get_infname_by_ip(nullptr, "192.0.2.1"), 0);
    EXPECT_EQ(get_infname_by_ip(text.text, nullptr), 0);
    EXPECT_EQ(text.string(), "untouched");
}

} // namespace
} // namespace zan::test
