// SPDX-License-Identifier: MIT
#include "util/kernel_table.h"
#include "util/number.h"
#include "util/text.h"
#include "zan.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace zan {
namespace {

constexpr int name_size = 128;
constexpr int line_size = 4096;

// The interface asked for, or the default route's: whether there is one.
bool resolve_interface(const char *ifname, char (&name)[name_size]) {
    name[0] = '\0';
    if (ifname != nullptr && *ifname != '\0')
        zan_strcpy(name, ifname, name_size);
    else
        get_default_gw(name, nullptr);
    return name[0] != '\0';
}

// What follows "NAME:" anywhere in the line, so that "eth0" is found in "veth0:"
// too; null when it is not there.
char *counters_of(char *line, const char *name) {
    const std::size_t length = std::strlen(name);
    for (char *at = std::strstr(line, name); at != nullptr; at = std::strstr(at + 1, name))
        if (at[length] == ':')
            return at + length + 1;
    return nullptr;
}

// The counters of an interface by their number in its line.
struct Field {
    int number;
    std::uint32_t *output;
};

// Numbers go on from line to line: the first one that matches supplies the values.
void read_counters(KernelTable &table, const char *name, const std::array<Field, 4> &fields) {
    char line[line_size];
    int number = 0;
    while (table.read_line(line)) {
        char *text = counters_of(line, name);
        if (text == nullptr)
            continue;
        char *rest = nullptr;
        for (text = strtok_r(text, " \n", &rest); text != nullptr;
             text = strtok_r(nullptr, " \n", &rest), ++number)
            for (const Field &field : fields)
                if (field.number == number && field.output != nullptr && is_digit(*text))
                    *field.output = to_uint32(text, 10);
    }
}

// The ports of the switch, each with its own statistics.
struct SwitchPort {
    const char *interface;
    const char *statistics;
};

constexpr SwitchPort switch_ports[] = {
    {"eth0.1", "/proc/tc3162/gsw_mib1"},
    {"eth0.2", "/proc/tc3162/gsw_mib2"},
    {"eth0.3", "/proc/tc3162/gsw_mib3"},
    {"eth0.4", "/proc/tc3162/gsw_mib4"},
};

const char *statistics_of(const char *name) {
    for (const SwitchPort &port : switch_ports)
        if (std::strcmp(port.interface, name) == 0)
            return port.statistics;
    return nullptr;
}

void read_labelled(const char *line, const char *label, std::uint32_t *output) {
    const char *const at = std::strstr(line, label);
    if (at == nullptr || output == nullptr)
        return;
    constexpr int digits = 10;
    char number[digits + 1];
    std::strncpy(number, at + std::strlen(label), digits);
    number[digits] = '\0';
    *output = to_uint32(number, 0);
}

int read_multicast(const char *path, std::uint32_t *received, std::uint32_t *transmitted) {
    KernelTable statistics(path);
    if (!statistics.valid())
        return 0;
    char line[line_size];
    while (statistics.read_line(line)) {
        read_labelled(line, "Rx Multicast Pkts      = ", received);
        read_labelled(line, "Tx Multicast Pkts      = ", transmitted);
    }
    return 1;
}

} // namespace
} // namespace zan

using namespace zan;

int get_inf_rx3tx(const char *ifname, uint32_t *rx_packets, uint32_t *rx_bytes,
                  uint32_t *tx_packets, uint32_t *tx_bytes, uint32_t *rx_multicast,
                  uint32_t *tx_multicast) {
    KernelTable devices("/proc/net/dev");
    char name[name_size];
    if (!devices.valid() || !resolve_interface(ifname, name))
        return 0;
    read_counters(devices, name,
                  {{{0, rx_bytes}, {1, rx_packets}, {8, tx_bytes}, {9, tx_packets}}});
    if (std::strcmp(name, "eth1") == 0) // on no port of the switch
        return 1;
    const char *const path = statistics_of(name);
    return path != nullptr ? read_multicast(path, rx_multicast, tx_multicast) : 0;
}
