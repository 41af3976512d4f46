// SPDX-License-Identifier: MIT
// The bridge's private requests: the only ones that list its forwarding database
// without netlink.
#include "util/descriptor.h"
#include "zan.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int most_entries = 128;
constexpr int most_ports = 1024;
constexpr int attempts = 31;

int ask_bridge(const Descriptor &socket, const char *bridge, unsigned long request, void *answer,
               unsigned long count) {
    unsigned long arguments[4] = {request, reinterpret_cast<unsigned long>(answer), count, 0};
    ifreq named{};
    std::strncpy(named.ifr_name, bridge, sizeof named.ifr_name - 1);
    named.ifr_data = reinterpret_cast<char *>(arguments);
    return ioctl(socket.get(), SIOCDEVPRIVATE, &named);
}

// The entries read, at most as many as there is room for, or -1.
int read_entries(const Descriptor &socket, const char *bridge,
                 std::array<__fdb_entry, most_entries> &entries) {
    for (int attempt = 1;; ++attempt) {
        const int count =
            ask_bridge(socket, bridge, BRCTL_GET_FDB_ENTRIES, entries.data(), most_entries);
        if (count >= 0)
            return std::min(count, most_entries);
        if (errno != EAGAIN || attempt == attempts)
            return -1;
        sleep(0);
    }
}

// The interface that is a port of the bridge, 0 when there is none.
int port_interface(const Descriptor &socket, const char *bridge, unsigned char port) {
    int interfaces[most_ports] = {};
    if (ask_bridge(socket, bridge, BRCTL_GET_PORT_LIST, interfaces, most_ports) < 0)
        return 0;
    return interfaces[port];
}

// The port on which the bridge learnt the address.
struct LearntPort {
    int entries; // of the forwarding database that were read
    unsigned char number;
};

std::optional<LearntPort> find_port(const Descriptor &socket, const char *bridge,
                                    const unsigned char *mac) {
    std::array<__fdb_entry, most_entries> entries;
    const int count = read_entries(socket, bridge, entries);
    for (int i = 0; i < count; ++i) {
        const __fdb_entry &entry = entries[static_cast<std::size_t>(i)];
        if (std::memcmp(entry.mac_addr, mac, sizeof entry.mac_addr) == 0)
            return LearntPort{count, entry.port_no};
    }
    return {};
}

struct LearntInterface {
    int entries; // of the forwarding database that were read
    int index;   // 0 when the port is none
};

// Its socket is closed when it returns.
std::optional<LearntInterface> find_interface(const char *bridge, const unsigned char *mac) {
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.valid())
        return {};
    const std::optional<LearntPort> port = find_port(socket, bridge, mac);
    if (!port)
        return {};
    return LearntInterface{port->entries, port_interface(socket, bridge, port->number)};
}

} // namespace
} // namespace zan

using namespace zan;

int get_ifname_from_macaddr(const char *bridge, const unsigned char *mac, char *ifname) {
    if (bridge == nullptr || mac == nullptr || ifname == nullptr ||
        std::strlen(bridge) >= IF_NAMESIZE)
        return -1;
    const std::optional<LearntInterface> found = find_interface(bridge, mac);
    if (!found || found->index <= 0 ||
        if_indextoname(static_cast<unsigned>(found->index), ifname) == nullptr || *ifname == '\0')
        return -1;
    return found->entries;
}
