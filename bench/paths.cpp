// SPDX-License-Identifier: MIT
// The comparison of paths and the address validators, against what a module's author would
// take from the C library otherwise:
//
//   pathcmp                fnmatch with FNM_PATHNAME, "*" in the place of "#"
//   pathpartcmp            the same with FNM_LEADING_DIR
//   zan_is_valid_ipv4      inet_pton, then a look at the bytes
//   zan_is_valid_ipv4_mask inet_pton, then a look at the bits
//   zan_is_valid_macaddr, zan_macstr_to_num
//                          ether_aton_r
//   zan_macnum_to_str      snprintf
//   lists                  strtok_r on a copy, and the above
//
// Every call gets another of eight inputs, so that no branch is learnt by heart.  The
// number behind a name is the length of the longest input.
#include "ratio_report.h"

#include "zan.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstring>
#include <fnmatch.h>
#include <netinet/ether.h>
#include <string>

namespace {

constexpr int repetitions = 100;
constexpr double seconds_each = 0.01;

using Inputs = std::array<const char *, 8>;

template<typename Call> void run(benchmark::State &state, const Inputs &inputs, Call call) {
    std::size_t next = 0;
    for (auto _ : state) {
        int result = call(inputs[next++ % inputs.size()]);
        benchmark::DoNotOptimize(result);
    }
}

// The same question to both, and what is wrong when they do not agree on an input.
template<typename Otherwise, typename Library>
void add(const std::string &what, const Inputs &inputs, Otherwise otherwise, Library library) {
    std::size_t longest = 0;
    for (const char *input : inputs) {
        longest = std::max(longest, std::strlen(input));
        if (otherwise(input) != library(input))
            std::fprintf(stderr, "%s: they differ about %s\n", what.c_str(), input);
    }
    const std::string group = what + " " + std::to_string(longest);
    const auto enter = [&](const std::string &name, auto call) {
        benchmark::RegisterBenchmark(
            (name + "/" + group).c_str(),
            [inputs, call](benchmark::State &state) { run(state, inputs, call); })
            ->MinTime(seconds_each)
            ->Repetitions(repetitions);
    };
    enter("otherwise", otherwise);
    enter("library", library);
}

// ---- Paths -----------------------------------------------------------------

constexpr Inputs changed_paths = {"/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID",
                                  "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:12/SSID",
                                  "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:2/Channel",
                                  "/InternetGatewayDevice/LANDevice:2/WLANConfiguration:3/SSID",
                                  "/InternetGatewayDevice/LANDevice:1/HostConfigManagement/Enable",
                                  "/InternetGatewayDevice/X_ORVANE_EasyMesh/Enable",
                                  "/sys/user:1/name",
                                  "/runtime/hw/model"};

void add_paths() {
    constexpr const char *pattern = "/InternetGatewayDevice/LANDevice:#/WLANConfiguration:#/SSID";
    constexpr const char *glob = "/InternetGatewayDevice/LANDevice:*/WLANConfiguration:*/SSID";
    add(
        "pathcmp", changed_paths,
        [](const char *path) { return fnmatch(glob, path, FNM_PATHNAME) != 0 ? 1 : 0; },
        [](const char *path) { return pathcmp(pattern, path, 0); });
    add(
        "pathcmp, any case", changed_paths,
        [](const char *path) {
            return fnmatch(glob, path, FNM_PATHNAME | FNM_CASEFOLD) != 0 ? 1 : 0;
        },
        [](const char *path) { return pathcmp(pattern, path, 1); });
    add(
        "pathpartcmp", changed_paths,
        [](const char *path) {
            return fnmatch("/InternetGatewayDevice/LANDevice:*/WLANConfiguration:*", path,
                           FNM_PATHNAME | FNM_LEADING_DIR) != 0
                       ? 1
                       : 0;
        },
        [](const char *path) {
            return pathpartcmp("/InternetGatewayDevice/LANDevice:#/WLANConfiguration:#/", path, 0,
                               0);
        });
}

// ---- Addresses -------------------------------------------------------------

constexpr Inputs addresses = {"192.168.1.1", "10.0.0.138",    "172.16.254.3", "8.8.8.8",
                              "127.0.0.1",   "203.0.113.255", "1.2.3",        "router.lan"};
constexpr Inputs masks = {"255.255.255.0", "255.255.255.255", "255.255.254.0", "255.0.0.0",
                          "0.0.0.0",       "255.0.255.0",     "192.168.1.1",   "255.255.0"};
constexpr Inputs macs = {"00:11:22:aa:bb:cc", "00:1A:2B:3C:4D:FF", "ff:ff:ff:ff:ff:ff",
                         "02:00:5e:10:00:01", "fe:dc:ba:98:76:54", "00-11-22-aa-bb-cc",
                         "00:11:22:aa:bb:cg", "00:11:22:aa:bb"};
constexpr Inputs lists = {"192.168.1.1,192.168.1.2, 8.8.8.8 ,1.1.1.1",
                          "192.168.1.1",
                          "10.0.0.1,10.0.0.2",
                          "10.0.0.1, 10.0.0.2",
                          "192.168.1.1,192.168.1.300",
                          "127.0.0.1,192.168.1.1",
                          "203.0.113.1,203.0.113.2,203.0.113.3",
                          "router.lan"};

bool parse(const char *text, std::array<unsigned char, 4> &bytes) {
    return inet_pton(AF_INET, text, bytes.data()) == 1;
}

int is_host(const char *text) {
    std::array<unsigned char, 4> bytes{};
    if (!parse(text, bytes))
        return 0;
    const auto [a, b, c, d] = bytes;
    return a >= 1 && a <= 223 && a != 127 && d >= 1 && d <= 254;
}

int is_mask(const char *text) {
    in_addr address{};
    if (inet_pton(AF_INET, text, &address) != 1)
        return 0;
    const uint32_t inverse = ~ntohl(address.s_addr);
    return (inverse & (inverse + 1)) == 0;
}

int is_host_list(const char *text) {
    char copy[256];
    snprintf(copy, sizeof copy, "%s", text);
    char *rest = nullptr;
    for (char *entry = strtok_r(copy, ", ", &rest); entry != nullptr;
         entry = strtok_r(nullptr, ", ", &rest))
        if (is_host(entry) == 0)
            return 0;
    return 1;
}

ether_addr last_address;
char last_text[18];

int is_mac(const char *text) {
    return ether_aton_r(text, &last_address) != nullptr && std::strlen(text) == 17;
}

void print_by_format(const unsigned char *mac) {
    snprintf(last_text, sizeof last_text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
             mac[3], mac[4], mac[5]);
}

void add_addresses() {
    add("zan_is_valid_ipv4", addresses, is_host, zan_is_valid_ipv4);
    add("zan_is_valid_ipv4_mask", masks, is_mask, zan_is_valid_ipv4_mask);
    add("zan_is_valid_ipv4_list", lists, is_host_list, zan_is_valid_ipv4_list);
    add("zan_is_valid_macaddr", macs, is_mac, zan_is_valid_macaddr);
    add("zan_macstr_to_num", macs, is_mac, [](const char *text) {
        return zan_macstr_to_num(text, last_address.ether_addr_octet) == 0 ? 1 : 0;
    });
    add(
        "zan_macnum_to_str", macs,
        [](const char *text) {
            print_by_format(reinterpret_cast<const unsigned char *>(text));
            return 0;
        },
        [](const char *text) {
            return zan_macnum_to_str(reinterpret_cast<const unsigned char *>(text), last_text);
        });
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    add_paths();
    add_addresses();
    return zan::bench::run_interleaved(argc, argv, "otherwise");
}
