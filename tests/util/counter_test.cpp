// SPDX-License-Identifier: MIT
// Counters of interfaces: the kernel's own, made-up ones, and those of a switch.
#include <zan.h>

#include "network.h"
#include "support/capture.h"
#include "util/descriptors.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace zan::test {
namespace {

constexpr std::uint32_t untouched = 7777;

struct Counters {
    int result = 0;
    std::uint32_t rx_packets = untouched;
    std::uint32_t rx_bytes = untouched;
    std::uint32_t tx_packets = untouched;
    std::uint32_t tx_bytes = untouched;
    std::uint32_t rx_multicast = untouched;
    std::uint32_t tx_multicast = untouched;
    bool operator==(const Counters &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Counters &c) {
    return out << c.result << ": " << c.rx_packets << " " << c.rx_bytes << " " << c.tx_packets
               << " " << c.tx_bytes << " " << c.rx_multicast << " " << c.tx_multicast;
}

Counters counters(const char *name) {
    Counters c;
    c.result = get_inf_rx3tx(name, &c.rx_packets, &c.rx_bytes, &c.tx_packets, &c.tx_bytes,
                             &c.rx_multicast, &c.tx_multicast);
    return c;
}

// A line of /proc/net/dev whose field N is base + N.
std::string device(const std::string &name, unsigned base) {
    std::string line = name + ":";
    for (unsigned field = 0; field < 16; ++field)
        line += " " + std::to_string(base + field);
    return line + "\n";
}

Counters of_base(int result, unsigned base) {
    return {result, base + 1, base, base + 9, base + 8, untouched, untouched};
}

const std::string header =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets\n";

class CountersOf : public NetworkTest {};

TEST_F(CountersOf, ABridgeAreFilledWithoutSuccess) {
    ip("link add br0 type bridge\n");
    EXPECT_EQ(counters("br0"), (Counters{0, 0, 0, 0, 0, untouched, untouched}));
}

// The loopback interface counts what it sends as received.
TEST_F(CountersOf, AnInterfaceAreThoseOfTheKernel) {
    const Counters before = counters("lo");
    EXPECT_EQ(before.result, 0);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr *>(&to), sizeof to);
    const char payload[100] = {};
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(
            sendto(fd, payload, sizeof payload, 0, reinterpret_cast<sockaddr *>(&to), sizeof to),
            static_cast<ssize_t>(sizeof payload));
    close(fd);
    const Counters after = counters("lo");
    EXPECT_EQ(after.rx_packets - before.rx_packets, 3u);
    EXPECT_EQ(after.tx_packets - before.tx_packets, 3u);
    EXPECT_EQ(after.rx_bytes - before.rx_bytes, 3 * (100u + 28));
    EXPECT_EQ(after.tx_bytes - before.tx_bytes, 3 * (100u + 28));
}

TEST_F(CountersOf, AnInterfaceThatIsMissingAreLeftAlone) {
    StdoutCapture output;
    EXPECT_EQ(counters("missing"), Counters{});
    EXPECT_EQ(output.stop(), "");
}

TEST_F(CountersOf, Eth1NeedNoSwitch) {
    ip("link add eth1 type veth peer name far_eth1\n");
    EXPECT_EQ(counters("eth1"), (Counters{1, 0, 0, 0, 0, untouched, untouched}));
    ip("link del eth1\n");
    EXPECT_EQ(counters("eth1").result, 1) << "there or not";
}

TEST_F(CountersOf, NobodyAreThoseOfTheDefaultRoute) {
    EXPECT_EQ(counters(nullptr), Counters{}) << "there is none yet";
    EXPECT_EQ(counters(""), Counters{});
    ip("route add default via 192.0.2.254 dev wan0\n");
    provide_proc({{"net/dev", header + device("lan0", 100) + device("wan0", 200)}});
    EXPECT_EQ(counters(nullptr), of_base(0, 200));
    EXPECT_EQ(counters(""), of_base(0, 200));
}

TEST_F(CountersOf, AnInterfaceBehindMoreThanABufferHolds) {
    std::string lines = header;
    for (unsigned i = 0; i < 200; ++i)
        lines += device("port" + std::to_string(i), i);
    provide_proc({{"net/dev", lines + device("wan0", 1000)}});
    EXPECT_EQ(counters("wan0"), of_base(0, 1000));
}

TEST_F(CountersOf, AnInterfaceAreTakenFromTheFirstLineWithItsName) {
    provide_proc({{"net/dev", header + device("  veth0", 100) + device("  eth0", 200)}});
    EXPECT_EQ(counters("eth0"), of_base(0, 100)) << "as the end of another name, too";
    std::ofstream("/proc/net/dev") << device("eth0.1", 100) << device("eth0", 200);
    EXPECT_EQ(counters("eth0"), of_base(0, 200)) << "but not as its beginning";
    std::ofstream("/proc/net/dev") << "eth0 eth0: 5 6 7\n";
    EXPECT_EQ(counters("eth0"), (Counters{0, 6, 5, untouched, untouched, untouched, untouched}));
}

// The number of a field goes on from line to line.
TEST_F(CountersOf, AnInterfaceAreCompletedByALaterLine) {
    provide_proc({{"net/dev", "eth0: 10 11 12\nlan0: 1 2\neth0: 13 14 15 16 17 18 19\n"}});
    EXPECT_EQ(counters("eth0"), (Counters{0, 11, 10, 19, 18, untouched, untouched}));
}

TEST_F(CountersOf, AnInterfaceAreReadFromAnyLine) {
    const std::string blanks(5000, ' ');
    struct {
        std::string what;
        std::string lines;
        Counters expected;
    } const cases[] = {
        {"no blank behind the colon",
         "wan0:5 6\n",
         {0, 6, 5, untouched, untouched, untouched, untouched}},
        {"no line end", "wan0: 5 6", {0, 6, 5, untouched, untouched, untouched, untouched}},
        {"nothing", "", {}},
        {"no fields", "wan0:\n", {}},
        {"other text", "wan0: x y\n", {}},
        {"the largest number",
         "wan0: 4294967295 0\n",
         {0, 0, 4294967295u, untouched, untouched, untouched, untouched}},
        {"beyond 32 bits",
         "wan0: 4294967296 99999999999999999999\n",
         {0, 4294967295u, 4294967295u, untouched, untouched, untouched, untouched}},
        {"longer than the buffer",
         "wan0: 5" + blanks + "6\n",
         {0, untouched, 5, untouched, untouched, untouched, untouched}},
    };
    provide_proc({{"net/dev", ""}});
    for (const auto &one : cases) {
        std::ofstream("/proc/net/dev") << one.lines;
        EXPECT_EQ(counters("wan0"), one.expected) << one.what;
    }
}

TEST_F(CountersOf, AnInterfaceAreFoundByTheFirst127Characters) {
    const std::string name(127, 'n');
    provide_proc({{"net/dev", device(name, 100)}});
    StdoutCapture whole;
    EXPECT_EQ(counters(name.c_str()), of_base(0, 100));
    EXPECT_EQ(whole.stop(), "");
    StdoutCapture cut;
    EXPECT_EQ(counters((name + "x").c_str()), of_base(0, 100));
    EXPECT_EQ(cut.stop(), overflow_warning(name));
}

// The buffer holds 4095 characters, the line's end among them.
TEST_F(CountersOf, AnInterfaceAreReadFromALineOf4095Characters) {
    provide_proc({{"net/dev", ""}});
    const auto line_of = [](std::size_t length) {
        const std::string begin = "wan0: 5 ";
        const std::string end = "67\n";
        return begin + std::string(length - begin.size() - end.size(), ' ') + end;
    };
    std::ofstream("/proc/net/dev") << line_of(4095);
    EXPECT_EQ(counters("wan0"), (Counters{0, 67, 5, untouched, untouched, untouched, untouched}));
    std::ofstream("/proc/net/dev") << line_of(4097);
    EXPECT_EQ(counters("wan0"), (Counters{0, 6, 5, untouched, untouched, untouched, untouched}))
        << "its end is a line of its own";
}

TEST_F(CountersOf, AnInterfaceCanBeAskedForOneByOne) {
    provide_proc({{"net/dev", device("eth1", 100)}});
    std::uint32_t value = 0;
    EXPECT_EQ(get_inf_rx3tx("eth1", &value, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(value, 101u);
    EXPECT_EQ(get_inf_rx3tx("eth1", nullptr, &value, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(value, 100u);
    EXPECT_EQ(get_inf_rx3tx("eth1", nullptr, nullptr, &value, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(value, 109u);
    EXPECT_EQ(get_inf_rx3tx("eth1", nullptr, nullptr, nullptr, &value, nullptr, nullptr), 1);
    EXPECT_EQ(value, 108u);
    EXPECT_EQ(get_inf_rx3tx("eth1", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
}

TEST_F(CountersOf, AnInterfaceAreLeftAloneWithoutATable) {
    provide_proc({{"net/dev", std::nullopt}});
    EXPECT_EQ(counters("eth1"), Counters{});
    EXPECT_EQ(counters(nullptr), Counters{});
}

TEST_F(CountersOf, AnInterfaceLeaveNoDescriptorBehind) {
    provide_proc({{"tc3162/gsw_mib1", ""}, {"tc3162/gsw_mib2", std::nullopt}});
    const std::set<int> before = open_descriptors();
    for (const char *name : {"lo", "eth1", "eth0.1", "eth0.2", "missing", ""})
        counters(name);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- the ports of the switch

std::string statistics(const std::string &received, const std::string &transmitted) {
    return "Rx Packets             = 1\n"
           "Rx Multicast Pkts      = " +
           received +
           "\n"
           "Tx Packets             = 2\n"
           "Tx Multicast Pkts      = " +
           transmitted + "\n";
}

TEST_F(CountersOf, AnInterfaceOfTheSwitchHaveMulticasts) {
    provide_proc({{"net/dev", device("eth0.1", 100) + device("eth0.2", 200) +
                                  device("eth0.3", 300) + device("eth0.4", 400)},
                  {"tc3162/gsw_mib1", statistics("11", "12")},
                  {"tc3162/gsw_mib2", statistics("21", "22")},
                  {"tc3162/gsw_mib3", statistics("31", "32")},
                  {"tc3162/gsw_mib4", statistics("41", "42")},
                  {"tc3162/gsw_mib5", statistics("51", "52")}});
    for (unsigned port = 1; port <= 4; ++port) {
        Counters expected = of_base(1, 100 * port);
        expected.rx_multicast = 10 * port + 1;
        expected.tx_multicast = 10 * port + 2;
        EXPECT_EQ(counters(("eth0." + std::to_string(port)).c_str()), expected);
    }
    EXPECT_EQ(counters("eth0.5"), Counters{});
    EXPECT_EQ(counters("eth0.11"), Counters{});
}

TEST_F(CountersOf, AnInterfaceOfTheSwitchFailWithoutStatistics) {
    provide_proc({{"net/dev", device("eth0.1", 100)}, {"tc3162/gsw_mib1", std::nullopt}});
    StdoutCapture output;
    EXPECT_EQ(counters("eth0.1"), of_base(0, 100));
    EXPECT_EQ(output.stop(), "");
}

TEST_F(CountersOf, MulticastsAreNumbersOfUpTo10CharactersBehindTheirLabel) {
    struct {
        std::string number;
        std::uint32_t expected;
    } const cases[] = {
        {"0", 0},
        {"4294967295", 4294967295u},
        {"9999999999", 4294967295u},
        {"12345678901", 1234567890u},
        {"0x1f", 31},
        {"010", 8},
        {"  12", 12},
        {"12x", 12},
        {"", 0},
        {"none", 0},
    };
    provide_proc({{"tc3162/gsw_mib1", ""}});
    for (const auto &one : cases) {
        std::ofstream("/proc/tc3162/gsw_mib1") << "port 1: " << statistics(one.number, "5");
        const Counters c = counters("eth0.1");
        EXPECT_EQ(c.result, 1) << one.number;
        EXPECT_EQ(c.rx_multicast, one.expected) << one.number;
        EXPECT_EQ(c.tx_multicast, 5u) << one.number;
    }
}

TEST_F(CountersOf, MulticastsAreFoundByTheWholeLabel) {
    provide_proc({{"tc3162/gsw_mib1", "Rx Multicast Pkts = 1\n"
                                      "Rx Multicast Pkts      =2\n"
                                      "tx multicast pkts      = 3\n"}});
    Counters expected;
    expected.result = 1;
    EXPECT_EQ(counters("eth0.1"), expected);
    std::ofstream("/proc/tc3162/gsw_mib1")
        << "Rx Multicast Pkts      = 4 Tx Multicast Pkts      = 5\n";
    expected.rx_multicast = 4;
    expected.tx_multicast = 5;
    EXPECT_EQ(counters("eth0.1"), expected) << "both on one line";
    EXPECT_EQ(get_inf_rx3tx("eth0.1", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
}

} // namespace
} // namespace zan::test
