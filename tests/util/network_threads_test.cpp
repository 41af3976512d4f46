// SPDX-License-Identifier: MIT
//
// The queries of interfaces, routes, counters and bridges from several threads at
// once: each gets what it gets alone, for nothing is kept between or beside calls.
#include <zan.h>

#include "network.h"
#include "support/program.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <barrier>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace zan::test {
namespace {

// A query and what it answered, as text.
using Query = std::function<std::string()>;

constexpr int rounds = 200;

// Every query on a thread of its own, again and again, each time begun together: a
// thread that had the processor to itself would meet nobody.
void expect_same_at_once(const std::vector<Query> &queries) {
    std::vector<std::string> alone;
    for (const Query &query : queries)
        alone.push_back(query());
    std::vector<std::string> wrong(queries.size());
    std::barrier together(static_cast<std::ptrdiff_t>(queries.size()));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < queries.size(); ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < rounds; ++round) {
                together.arrive_and_wait();
                if (const std::string answer = queries[i](); answer != alone[i])
                    wrong[i] = answer;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    for (std::size_t i = 0; i < queries.size(); ++i)
        EXPECT_EQ(wrong[i], "") << "instead of " << alone[i];
    for (std::size_t i = 1; i < queries.size(); ++i)
        EXPECT_NE(alone[i], alone[i - 1]) << "answers that are mixed up would not show";
}

std::string number(std::int64_t value) {
    return std::to_string(value);
}

Query ip_of(const std::string &name) {
    return [=] {
        Untouched text;
        const int result = get_ip_by_inf(name.c_str(), text.text);
        return number(result) + " " + text.string();
    };
}

Query address_of(int family, const std::string &name) {
    return [=] {
        sockaddr_in address{};
        int length = 0;
        Untouched text;
        const int result = get_addr_by_inf(
            family, name.c_str(), reinterpret_cast<sockaddr *>(&address), &length, text.text);
        return number(result) + " " + number(address.sin_addr.s_addr) + " " + number(length) + " " +
               text.string();
    };
}

Query name_of(const std::string &ip) {
    return [=] {
        Untouched name;
        const int result = get_infname_by_ip(name.text, ip.c_str());
        return number(result) + " " + name.string();
    };
}

Query route_to(const std::string &destination) {
    return [=] {
        Untouched ifaddr;
        Untouched gateway;
        const int result = get_route_ip(destination.c_str(), ifaddr.text, gateway.text);
        return number(result) + " " + ifaddr.string() + " " + gateway.string();
    };
}

Query route6_to(const std::string &network) {
    return [=] {
        Untouched ifaddr;
        get_route6_ip(network.c_str(), ifaddr.text);
        return ifaddr.string();
    };
}

Query gateway_of(const std::string &asked) {
    return [=] {
        char name[16];
        zan_strcpy(name, asked.c_str(), sizeof name);
        std::uint32_t gateway = 0;
        get_default_gw(name, &gateway);
        return std::string(name) + " " + number(gateway);
    };
}

Query counters_of(const std::string &name) {
    return [=] {
        std::uint32_t values[6] = {};
        const int result = get_inf_rx3tx(name.c_str(), &values[0], &values[1], &values[2],
                                         &values[3], &values[4], &values[5]);
        std::string text = number(result);
        for (const std::uint32_t value : values)
            text += " " + number(value);
        return text;
    };
}

// Tables so long that threads meet in them.
constexpr int filler_lines = 400;

std::string repeated(const std::string &line) {
    std::string lines;
    for (int i = 0; i < filler_lines; ++i)
        lines += line;
    return lines;
}

// A line of /proc/net/dev whose field N is base + N.
std::string device(const std::string &name, int base) {
    std::string line = name + ":";
    for (int field = 0; field < 16; ++field)
        line += " " + std::to_string(base + field);
    return line + "\n";
}

std::string multicast(int received) {
    return "Rx Multicast Pkts      = " + std::to_string(received) +
           "\nTx Multicast Pkts      = " + std::to_string(received + 1) + "\n";
}

class NetworkOfThreads : public NetworkTest {
protected:
    void SetUp() override {
        NetworkTest::SetUp();
        if (IsSkipped())
            return;
        // 198.51.100.0/24 by 192.0.2.254, and 10.0.0.0/8 by 192.168.1.254; between
        // them 172.16.0.0/16, which is down.
        provide_proc(
            {{"net/route", "the header\n"
                           "wan0\t006433C6\tFE0200C0\t0003\t0\t0\t0\t00FFFFFF\n" +
                               repeated("none\t000010AC\t00000000\t0000\t0\t0\t0\t0000FFFF\n") +
                               "lan0\t0000000A\tFE01A8C0\t0003\t0\t0\t0\t000000FF\n"},
             {"net/if_inet6", "20010db8000100000000000000000001 05 40 00 80 wan0\n" +
                                  repeated("fe800000000000000000000000000001 06 40 20 80 none\n") +
                                  "20010db8000200000000000000000001 07 40 00 80 lan0\n"},
             {"net/ipv6_route", "20010db8000100000000000000000000 40 wan0\n" +
                                    repeated("fe800000000000000000000000000000 40 none\n") +
                                    "20010db8000200000000000000000000 40 lan0\n"},
             {"net/dev", device("eth0.1", 100) + device("wan0", 200) +
                             repeated("a line without an interface\n") + device("eth0.2", 300) +
                             device("lan0", 400)},
             {"tc3162/gsw_mib1", multicast(1000) + repeated("\n")},
             {"tc3162/gsw_mib2", repeated("\n") + multicast(2000)}});
    }
};

TEST_F(NetworkOfThreads, EachIsToldOfItsInterface) {
    expect_same_at_once({ip_of("wan0"), ip_of("lan0"), ip_of("missing"),
                         address_of(AF_INET, "wan0"), address_of(AF_INET, "lan0"),
                         address_of(AF_INET6, "wan0"), address_of(AF_INET6, "lan0"),
                         name_of("192.0.2.1"), name_of("192.168.1.1")});
}

TEST_F(NetworkOfThreads, EachIsToldOfItsRoute) {
    expect_same_at_once({route_to("198.51.100.7"), route_to("10.1.2.3"), route_to("203.0.113.1"),
                         route6_to("2001:db8:1::"), route6_to("2001:db8:2::"), gateway_of("wan0"),
                         gateway_of("lan0"), gateway_of("")});
}

TEST_F(NetworkOfThreads, EachIsToldOfItsCounters) {
    expect_same_at_once({counters_of("eth0.1"), counters_of("eth0.2"), counters_of(""),
                         counters_of("eth0.1"), counters_of("eth0.2"), counters_of("lan0"),
                         counters_of("missing")});
}

TEST_F(NetworkOfThreads, EachIsToldOfItsBridge) {
    ip("link add br0 type bridge\n"
       "link add br1 type bridge\n");
    ZAN_SKIP_WITH_REASON(why_no_bridge_requests());
    // Whose ports have different numbers.
    ip("link set far_wan0 master br0\n"
       "link set lan0 master br1\n"
       "link set far_lan0 master br1\n");
    Program entries({"/bin/sh", "-c",
                     "PATH=$PATH:/sbin:/usr/sbin\n"
                     "bridge fdb add 02:00:00:aa:00:01 dev far_wan0 master static &&\n"
                     "bridge fdb add 02:00:00:aa:00:01 dev far_lan0 master static"},
                    {.host = true});
    ASSERT_EQ(entries.wait(), 0) << entries.error();
    // The number of entries, which the kernel may add to, does not matter here.
    const auto port_of = [](const std::string &bridge) -> Query {
        return [=] {
            const unsigned char mac[] = {0x02, 0, 0, 0xaa, 0, 1};
            Untouched name;
            const bool found = get_ifname_from_macaddr(bridge.c_str(), mac, name.text) > 0;
            return (found ? "on " : "not on ") + bridge + ": " + name.string();
        };
    };
    expect_same_at_once({port_of("br0"), port_of("br1"), port_of("br0"), port_of("br1"),
                         port_of("wan0"), ip_of("wan0")});
}

} // namespace
} // namespace zan::test
