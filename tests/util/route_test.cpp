// SPDX-License-Identifier: MIT
// Routes, on route tables of the kernel's own and on made-up ones.
#include <zan.h>

#include "network.h"
#include "support/capture.h"
#include "util/descriptors.h"

#include <arpa/inet.h>

#include <fstream>
#include <string>

namespace zan::test {
namespace {

class Route : public NetworkTest {};

std::string dotted(std::uint32_t address) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

// The result, the own address and the gateway.
std::string route_to(const std::string &destination) {
    Untouched ifaddr;
    Untouched gateway;
    const int result = get_route_ip(destination.c_str(), ifaddr.text, gateway.text);
    return std::to_string(result) + " " + ifaddr.string() + " " + gateway.string();
}

std::string route6_to(const std::string &destination) {
    Untouched ifaddr;
    EXPECT_EQ(get_route6_ip(destination.c_str(), ifaddr.text), 0);
    return ifaddr.string();
}

// The interface and the gateway; 9.9.9.9 is what the gateway was before.
std::string default_gw(const std::string &asked) {
    char ifname[16];
    zan_strcpy(ifname, asked.c_str(), sizeof ifname);
    std::uint32_t gateway = inet_addr("9.9.9.9");
    EXPECT_EQ(get_default_gw(ifname, &gateway), 0);
    return std::string(ifname) + " " + dotted(gateway);
}

std::string default_gw_of_any() {
    std::uint32_t gateway = inet_addr("9.9.9.9");
    EXPECT_EQ(get_default_gw(nullptr, &gateway), 0);
    return dotted(gateway);
}

const std::string header =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

void table(const std::string &lines) {
    std::ofstream("/proc/net/route") << header << lines;
}

class MadeUpRoute : public Route {
protected:
    void SetUp() override {
        Route::SetUp();
        if (!IsSkipped())
            provide_proc({{"net/route", header}});
    }
};

// ---- the route to an address

TEST_F(Route, HasTheInterfacesAddressAndTheGateway) {
    ip("route add 10.0.0.0/8 via 192.168.1.254 dev lan0\n");
    EXPECT_EQ(route_to("192.168.1.77"), "1 192.168.1.1 0.0.0.0");
    EXPECT_EQ(route_to("10.1.2.3"), "1 192.168.1.1 192.168.1.254");
}

// The kernel lists the default route first, and it leads anywhere.
TEST_F(Route, ByDefaultIsTakenBeforeTheSpecificOnes) {
    ip("route add default via 192.0.2.254 dev wan0\n");
    for (const char *destination : {"8.8.8.8", "192.168.1.77"})
        EXPECT_EQ(route_to(destination), "1 192.0.2.1 192.0.2.254");
}

TEST_F(Route, ThatIsMissingEmptiesTheAddress) {
    StdoutCapture output;
    EXPECT_EQ(route_to("10.1.2.3"), "0  untouched");
    EXPECT_EQ(output.stop(), "");
    Untouched ifaddr;
    EXPECT_EQ(get_route_ip("192.168.1.2", ifaddr.text, nullptr), 1) << "no gateway is asked for";
    EXPECT_EQ(ifaddr.string(), "192.168.1.1");
}

TEST_F(Route, ThroughAnInterfaceWithoutAnAddressHasNone) {
    ip("route add 10.0.0.0/8 dev far_wan0\n");
    EXPECT_EQ(route_to("10.1.2.3"), "1  0.0.0.0");
}

TEST_F(Route, IsFoundBehindMoreThanABufferHolds) {
    std::string lines;
    for (int i = 0; i < 200; ++i)
        lines += "route add 10.0." + std::to_string(i) + ".0/24 dev lan0\n";
    ip(lines + "route add 10.200.0.0/16 via 192.0.2.254 dev wan0\n");
    EXPECT_EQ(route_to("10.200.1.1"), "1 192.0.2.1 192.0.2.254");
    EXPECT_EQ(route_to("10.201.1.1"), "0  untouched");
}

TEST_F(MadeUpRoute, ListedFirstIsTaken) {
    const std::string wide = "wan0\t0000000A\tFE0200C0\t0003\t0\t0\t0\t000000FF\t0\t0\t0\n";
    const std::string narrow = "lan0\t0002010A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
    table(wide + narrow);
    EXPECT_EQ(route_to("10.1.2.3"), "1 192.0.2.1 192.0.2.254");
    table(narrow + wide);
    EXPECT_EQ(route_to("10.1.2.3"), "1 192.168.1.1 0.0.0.0");
    EXPECT_EQ(route_to("10.1.3.3"), "1 192.0.2.1 192.0.2.254");
}

TEST_F(MadeUpRoute, IsReadWhateverItsLineIsLike) {
    const std::string fields = "\t0000000A\t00000000\t0001\t0\t0\t0\t000000FF";
    struct {
        std::string what;
        std::string lines;
        std::string expected;
    } const cases[] = {
        {"an empty table", "", "0  untouched"},
        {"lines that say nothing", "\n\n \nlan0\n", "0  untouched"},
        {"a field too few", "lan0\t0000000A\t00000000\t0001\t0\t0\t0\n", "0  untouched"},
        {"flags with a hexadecimal letter", "lan0\t0000000A\t00000000\t000D\t0\t0\t0\t000000FF\n",
         "0  untouched"},
        {"no end of line", "lan0" + fields, "1 192.168.1.1 0.0.0.0"},
        {"a route that is down", "lan0\t0000000A\t00000000\t0000\t0\t0\t0\t000000FF\n",
         "1 192.168.1.1 0.0.0.0"},
        {"as long as the buffer",
         "lan0" + fields + std::string(255 - 4 - fields.size(), ' ') + "\n",
         "1 192.168.1.1 0.0.0.0"},
        {"longer, its rest a line", std::string(255, 'x') + "lan0" + fields + "\n",
         "1 192.168.1.1 0.0.0.0"},
        {"longer, its fields cut off", "lan0" + std::string(255, ' ') + fields + "\n",
         "0  untouched"},
        {"an interface that is missing", "missing" + fields + "\n", "1  0.0.0.0"},
    };
    for (const auto &one : cases) {
        table(one.lines);
        EXPECT_EQ(route_to("10.1.2.3"), one.expected) << one.what;
    }
}

TEST_F(MadeUpRoute, DoesNotStandInTheHeader) {
    std::ofstream("/proc/net/route") << "lan0\t0000000A\t00000000\t0001\t0\t0\t0\t000000FF\n";
    EXPECT_EQ(route_to("10.1.2.3"), "0  untouched");
    EXPECT_EQ(default_gw(""), " 9.9.9.9");
}

TEST_F(MadeUpRoute, ToATextThatIsNoAddressIsThatToTheHighestAddress) {
    table("lan0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\n");
    EXPECT_EQ(route_to("router"), "1 192.168.1.1 0.0.0.0") << "the default route leads anywhere";
    table("lan0\tFFFFFFFF\t00000000\t0001\t0\t0\t0\tFFFFFFFF\n");
    EXPECT_EQ(route_to("router"), "1 192.168.1.1 0.0.0.0");
    table("lan0\t0000000A\t00000000\t0001\t0\t0\t0\t000000FF\n");
    EXPECT_EQ(route_to("router"), "0  untouched");
}

TEST_F(MadeUpRoute, ToAnAddressOfAnyFormIsFound) {
    table("lan0\t0000000A\t00000000\t0001\t0\t0\t0\t000000FF\n"
          "wan0\t00000008\t00000000\t0001\t0\t0\t0\t000000FF\n");
    struct {
        const char *destination;
        const char *expected;
    } const cases[] = {
        {"10.1.1.1", "1 192.168.1.1 0.0.0.0"},
        {"10.1", "1 192.168.1.1 0.0.0.0"},
        {"010.1.1.1", "1 192.0.2.1 0.0.0.0"},
        {"0xa.1.1.1", "1 192.168.1.1 0.0.0.0"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(route_to(one.destination), one.expected) << one.destination;
}

TEST_F(Route, WithoutATableLeavesTheOutputsAlone) {
    provide_proc({{"net/route", std::nullopt}, {"net/ipv6_route", std::nullopt}});
    StdoutCapture output;
    EXPECT_EQ(route_to("192.168.1.2"), "0 untouched untouched");
    EXPECT_EQ(route6_to("2001:db8::"), "untouched");
    EXPECT_EQ(default_gw(""), " 9.9.9.9");
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Route, CanBeAskedForWithoutAnArgument) {
    Untouched text;
    EXPECT_EQ(get_route_ip(nullptr, text.text, text.text), 0);
    EXPECT_EQ(get_route_ip("192.168.1.2", nullptr, text.text), 0);
    EXPECT_EQ(text.string(), "untouched");
    EXPECT_EQ(get_route6_ip("2001:db8::", nullptr), 0);
    EXPECT_EQ(get_route6_ip(nullptr, text.text), 0);
    EXPECT_EQ(text.string(), "");
    EXPECT_EQ(get_default_gw(nullptr, nullptr), 0);
}

TEST_F(Route, LeavesNoDescriptorBehind) {
    const std::set<int> before = open_descriptors();
    for (const char *destination : {"192.168.1.2", "10.0.0.1"})
        route_to(destination);
    for (const char *destination : {"::1", "2001:db8::", "none"})
        route6_to(destination);
    default_gw("");
    EXPECT_EQ(open_descriptors(), before);
}

// ---- IPv6

TEST_F(Route, ToAnIpv6NetworkHasTheInterfacesAddress) {
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n"
       "addr add 2001:db8:0:2::5/64 dev lan0 nodad\n"
       "route add 2001:db8:aa::/48 dev lan0\n");
    EXPECT_EQ(route6_to("2001:db8:0:1::"), "2001:db8:0:1::5");
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8:0:2::5");
    EXPECT_EQ(route6_to("2001:DB8:AA:0::"), "2001:db8:0:2::5") << "in any form";
}

TEST_F(Route, ToAnAddressInsideAnIpv6NetworkIsNotFound) {
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n");
    StdoutCapture output;
    for (const char *destination : {"2001:db8:0:1::6", "2001:db8::", "10.0.0.1", "none", ""})
        EXPECT_EQ(route6_to(destination), "") << destination;
    EXPECT_EQ(output.stop(), "");
}

TEST_F(Route, ToAnIpv6NetworkThroughAnInterfaceWithoutAnAddressHasNone) {
    ip("route add 2001:db8:aa::/48 dev lan0\n");
    EXPECT_EQ(route6_to("2001:db8:aa::"), "");
}

TEST_F(Route, ToAnIpv6NetworkIsFoundBehindMoreThanABufferHolds) {
    std::string lines = "addr add 2001:db8:0:1::5/64 dev wan0 nodad\n";
    for (int i = 1; i < 200; ++i)
        lines += "route add 2001:db8:a" + std::to_string(i) + "::/48 dev lan0\n";
    ip(lines + "route add 2001:db8:b000::/48 dev wan0\n");
    EXPECT_EQ(route6_to("2001:db8:b000::"), "2001:db8:0:1::5");
}

TEST_F(Route, ToAnIpv6NetworkIsTheFirstOfTheTable) {
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n"
       "addr add 2001:db8:0:2::5/64 dev lan0 nodad\n");
    const std::string network = "20010db800aa00000000000000000000 30 ";
    provide_proc({{"net/ipv6_route", "\nnone\n" + network + "00000001     lan0\n" + network +
                                         "00000002     wan0\n"}});
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8:0:2::5");
}

// The name and the line may be longer than any of the kernel's.
TEST_F(Route, ToAnIpv6NetworkHasANameOfAtMost63Characters) {
    const std::string name(63, 'n');
    provide_proc({{"net/if_inet6", "20010db8000000000000000000000005 01 40 00 80 " + name + "\n"},
                  {"net/ipv6_route", ""}});
    const auto with_route = [](const std::string &interface, std::size_t length) {
        const std::string network = "20010db800aa00000000000000000000 30 ";
        const std::size_t blanks = length - network.size() - interface.size() - 1;
        std::ofstream("/proc/net/ipv6_route")
            << network << std::string(blanks, ' ') << interface << "\n";
    };
    StdoutCapture whole;
    with_route(name, 200);
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8::5");
    with_route(name, 1023);
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8::5") << "a line as long as the buffer";
    EXPECT_EQ(whole.stop(), "");
    StdoutCapture cut;
    with_route(name + "x", 200);
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8::5");
    EXPECT_EQ(cut.stop(), overflow_warning(name));
}

// Of a line longer than the buffer the beginning counts, as far as it has a name.
TEST_F(Route, ToAnIpv6NetworkIsReadFrom1023Characters) {
    ip("addr add 2001:db8:0:1::5/64 dev wan0 nodad\n");
    provide_proc({{"net/ipv6_route", "20010db800aa00000000000000000000 30 " +
                                         std::string(1023 - 36 - 4, ' ') + "wan01\n"}});
    EXPECT_EQ(route6_to("2001:db8:aa::"), "2001:db8:0:1::5");
}

// ---- the default route

TEST_F(Route, ByDefaultIsLearnt) {
    ip("route add default via 192.0.2.254 dev wan0\n");
    char ifname[16] = "";
    EXPECT_EQ(get_default_gw(ifname, nullptr), 0);
    EXPECT_STREQ(ifname, "wan0");
    EXPECT_EQ(default_gw(""), "wan0 0.0.0.0") << "taken back by the routes that follow";
    EXPECT_EQ(default_gw_of_any(), "192.0.2.254");
    ip("route del 192.0.2.0/24 dev wan0\nroute del 192.168.1.0/24 dev lan0\n");
    EXPECT_EQ(default_gw(""), "wan0 192.0.2.254");
    EXPECT_EQ(default_gw("wan"), "wan 192.0.2.254");
    EXPECT_EQ(default_gw("lan0"), "lan0 0.0.0.0");
}

TEST_F(Route, ByDefaultCanBeMissing) {
    StdoutCapture output;
    EXPECT_EQ(default_gw(""), " 0.0.0.0");
    EXPECT_EQ(default_gw_of_any(), "9.9.9.9");
    ip("link set wan0 down\nlink set lan0 down\n");
    EXPECT_EQ(default_gw(""), " 9.9.9.9") << "no route at all";
    EXPECT_EQ(output.stop(), "");
}

std::string line(const std::string &interface, const std::string &gateway,
                 const std::string &flags) {
    return interface + "\t00000000\t" + gateway + "\t" + flags + "\t0\t0\t0\t00000000\t0\t0\t0\n";
}

TEST_F(MadeUpRoute, ByDefaultIsUpAndByAGatewayAndNothingElse) {
    for (int bit = 0; bit < 16; ++bit) {
        for (const unsigned plain : {0x0u, 0x1u, 0x2u, 0x3u}) {
            const unsigned flags = plain | 1u << bit;
            char text[5];
            zan_sprintf(text, sizeof text, "%04X", flags);
            table(line("wan0", "FE0200C0", text));
            const bool up = (flags & 1) != 0;
            // H, R, D, M and ! show in the flags; other bits do not count.
            const bool matches = up && (flags & 2) != 0 && (flags & 0x23c) == 0;
            EXPECT_EQ(default_gw(""), matches ? "wan0 192.0.2.254"
                                      : up    ? " 0.0.0.0"
                                              : " 9.9.9.9")
                << text;
            EXPECT_EQ(default_gw_of_any(), matches ? "192.0.2.254" : "9.9.9.9") << text;
        }
    }
}

TEST_F(MadeUpRoute, ByDefaultIsTheLastThatIsUp) {
    const std::string wan = line("wan0", "FE0200C0", "0003");
    const std::string other = line("wan0", "FD0200C0", "0003");
    const std::string lan = line("lan0", "FE01A8C0", "0003");
    const std::string network = line("wan0", "00000000", "0001");
    const std::string down = line("wan0", "FE0200C0", "0002");
    struct {
        std::string lines;
        std::string asked;
        std::string expected;
        std::string expected_of_any;
    } const cases[] = {
        {wan, "", "wan0 192.0.2.254", "192.0.2.254"},
        {wan + other, "", "wan0 192.0.2.253", "192.0.2.253"},
        {wan + lan, "", "wan0 0.0.0.0", "192.168.1.254"},
        {wan + network, "", "wan0 0.0.0.0", "192.0.2.254"},
        {network + wan, "", "wan0 192.0.2.254", "192.0.2.254"},
        {wan + down, "", "wan0 192.0.2.254", "192.0.2.254"},
        {lan + wan, "", "lan0 0.0.0.0", "192.0.2.254"},
        {lan + wan, "wan0", "wan0 192.0.2.254", "192.0.2.254"},
        {lan + wan, "wan", "wan 192.0.2.254", "192.0.2.254"},
        {lan + wan, "wan01", "wan01 0.0.0.0", "192.0.2.254"},
        {lan + wan, "an0", "an0 0.0.0.0", "192.0.2.254"},
        {down, "wan0", "wan0 9.9.9.9", "9.9.9.9"},
    };
    for (const auto &one : cases) {
        table(one.lines);
        EXPECT_EQ(default_gw(one.asked), one.expected) << one.lines << one.asked;
        EXPECT_EQ(default_gw_of_any(), one.expected_of_any) << one.lines;
    }
}

TEST_F(MadeUpRoute, OfAnotherFormatIsReportedAndReadAsFarAsItGoes) {
    struct {
        std::string lines;
        std::string expected;
        int reports;
    } const cases[] = {
        {"wan0\t00000000\tFE0200C0\t0003\t0\t0\t0\n", "wan0 192.0.2.254", 1},
        {"wan0\t00000000\tFE0200C0\t0003\n", "wan0 192.0.2.254", 1},
        {"wan0\t00000000\tFE0200C0\n", " 9.9.9.9", 1},
        {line("wan0", "FE0200C0", "0003") + "wan0\t00000000\n", "wan0 192.0.2.254", 1},
        {"\nwan0\n\n", " 9.9.9.9", 3},
        {"wan0 00000000 FE0200C0 0003 0 0 0 00000000\n", "wan0 192.0.2.254", 0},
        {std::string(255, 'x') + line("wan0", "FE0200C0", "0003"), "wan0 192.0.2.254", 1},
    };
    for (const auto &one : cases) {
        table(one.lines);
        StdoutCapture output;
        EXPECT_EQ(default_gw(""), one.expected) << one.lines;
        std::string expected;
        for (int i = 0; i < one.reports; ++i)
            expected += "Unsuported kernel route format\n";
        EXPECT_EQ(output.stop(), expected) << one.lines;
    }
}

// Names of the kernel's have up to 15 characters.
TEST_F(MadeUpRoute, ByDefaultHasANameOfAtMost15Characters) {
    table(line("fifteen_letters_and_more", "FE0200C0", "0003"));
    StdoutCapture output;
    char ifname[20] = "";
    ifname[16] = '~';
    EXPECT_EQ(get_default_gw(ifname, nullptr), 0);
    EXPECT_STREQ(ifname, "fifteen_letters");
    EXPECT_EQ(ifname[16], '~');
    EXPECT_EQ(output.stop(), overflow_warning("fifteen_letters"));
}

} // namespace
} // namespace zan::test
