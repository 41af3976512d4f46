// SPDX-License-Identifier: MIT
// The commands that ask for interfaces, routes and bridge ports, without a daemon.
#include "util/network.h"
#include "zanctl.h"

#include <sstream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

constexpr int exit_not_found = 1;
const std::string more = "\nRun with --help for more information.\n";

class ZanctlNetwork : public NetworkTest {
protected:
    static void expect(const std::vector<std::string> &arguments, int status,
                       const std::string &output, const std::string &error = {}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const Ended ended = run_zanctl(arguments);
        EXPECT_EQ(ended.status, status);
        EXPECT_EQ(ended.output, output);
        EXPECT_EQ(ended.error, error);
    }
};

TEST_F(ZanctlNetwork, RouteGetPrintsTheRouteToAnAddress) {
    ip("route add 10.0.0.0/8 via 192.168.1.254 dev lan0\n");
    expect({"route", "get", "10.1.2.3"}, exit_done,
           "10.1.2.3 via 192.168.1.254 dev lan0 src 192.168.1.1\n");
    expect({"route", "get", "192.0.2.77"}, exit_done, "192.0.2.77 dev wan0 src 192.0.2.1\n");
    expect({"--json", "route", "get", "10.1.2.3"}, exit_done,
           R"({"address":"10.1.2.3","gateway":"192.168.1.254","interface":"lan0",)"
           R"("source":"192.168.1.1"})"
           "\n");
    expect({"route", "get", "8.8.8.8"}, exit_not_found, "", "zanctl: 8.8.8.8: no route\n");
    ip("route add 8.0.0.0/8 dev far_wan0\n");
    expect({"route", "get", "8.8.8.8"}, exit_done, "8.8.8.8\n");
}

TEST_F(ZanctlNetwork, RouteGetFindsAnIpv6Network) {
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n");
    expect({"route", "get", "2001:db8:0:1::"}, exit_done, "2001:db8:0:1:: src 2001:db8:0:1::5\n");
    expect({"route", "get", "2001:db8:0:1::7"}, exit_not_found, "",
           "zanctl: 2001:db8:0:1::7: no route\n");
}

TEST_F(ZanctlNetwork, IfaddrPrintsAddresses) {
    ip("addr add 2001:db8::1/64 dev wan0 nodad\n");
    expect({"ifaddr", "wan0", "lan0"}, exit_done, "wan0 192.0.2.1 2001:db8::1\nlan0 192.168.1.1\n");
    expect({"--json", "ifaddr", "wan0", "lan0"}, exit_done,
           R"({"interface":"wan0","ipv4":"192.0.2.1","ipv6":"2001:db8::1"})"
           "\n"
           R"({"interface":"lan0","ipv4":"192.168.1.1"})"
           "\n");
    expect({"ifaddr", "missing", "lan0", "far_wan0"}, exit_not_found, "lan0 192.168.1.1\n",
           "zanctl: missing: no address\nzanctl: far_wan0: no address\n");
}

TEST_F(ZanctlNetwork, IfaddrPrintsAllInterfaces) {
    const Ended ended = run_zanctl({"ifaddr"});
    EXPECT_EQ(ended.status, exit_done);
    std::vector<std::string> lines;
    std::istringstream output(ended.output);
    for (std::string line; std::getline(output, line);)
        lines.push_back(line);
    EXPECT_THAT(
        lines, testing::UnorderedElementsAre("lo 127.0.0.1", "wan0 192.0.2.1", "lan0 192.168.1.1"));
}

TEST_F(ZanctlNetwork, MacPortReportsAnUnknownAddress) {
    ip("link add br0 type bridge\n");
    for (const std::string bridge : {"br0", "lo", "missing"})
        expect({"mac-port", bridge, "00:1a:2b:3c:4d:5e"}, exit_not_found, "",
               "zanctl: " + bridge + " 00:1a:2b:3c:4d:5e: no port\n");
}

// Where bridge requests reach the kernel, the port's own address is known.
TEST_F(ZanctlNetwork, MacPortPrintsThePort) {
    const std::string mac = "02:00:00:00:00:07";
    ip("link add br0 type bridge\n"
       "link set lan0 address " +
       mac + "\nlink set lan0 master br0\n");
    const Ended ended = run_zanctl({"mac-port", "br0", mac});
    if (ended.status != exit_done)
        GTEST_SKIP() << "bridge requests do not reach the kernel";
    EXPECT_EQ(ended.output, "lan0\n");
    expect({"--json", "mac-port", "br0", mac}, exit_done,
           R"({"bridge":"br0","mac":")" + mac + "\",\"port\":\"lan0\"}\n");
}

TEST(ZanctlNetworkUsage, ErrorsAreReported) {
    struct {
        std::vector<std::string> arguments;
        std::string error;
    } const mistakes[] = {
        {{"route", "get"}, "ADDRESS is required"},
        {{"route", "get", "10.1"}, "ADDRESS: not an address: 10.1"},
        {{"route", "get", "1.2.3."}, "ADDRESS: not an address: 1.2.3."},
        {{"route", "get", "..."}, "ADDRESS: not an address: ..."},
        {{"route", "get", "010.1.1.1"}, "ADDRESS: not an address: 010.1.1.1"},
        {{"route", "get", "1.2.3.4 "}, "ADDRESS: not an address: 1.2.3.4 "},
        {{"route", "get", "::g"}, "ADDRESS: not an address: ::g"},
        {{"ifaddr", "sixteen_letters_"}, "INTERFACE: an interface name has 1 to 15 characters"},
        {{"mac-port", "br0"}, "MAC is required"},
        {{"mac-port", "br0", "00-1a"}, "MAC: not a MAC address: 00-1a"},
        {{"mac-port", "", "00:1a:2b:3c:4d:5e"}, "BRIDGE: an interface name has 1 to 15 characters"},
    };
    for (const auto &[arguments, error] : mistakes) {
        const Ended ended = run_zanctl(arguments);
        EXPECT_EQ(ended.status, exit_usage);
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.error, "zanctl: " + error + more);
    }
}

} // namespace
} // namespace zan::test
