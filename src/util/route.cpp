// SPDX-License-Identifier: MIT
#include "util/ipv6_line.h"
#include "util/kernel_table.h"
#include "zan.h"

#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>

namespace zan {
namespace {

constexpr char route_table[] = "/proc/net/route";
constexpr int route_line_size = 256;

// A line of the route table.  Addresses are as the kernel has them, in network byte
// order, so that they need no conversion.
struct Route {
    char interface[route_line_size];
    std::uint32_t destination;
    std::uint32_t gateway;
    std::uint32_t mask;
};

// The rest of a line that is cut off, or is none, does not count as a route; nor does a
// line whose flags, which are read as a decimal number, have a hexadecimal letter.
bool read_route(const char *line, Route &route) {
    int flags = 0;
    int references = 0;
    int use = 0;
    int metric = 0;
    // The width is that of route.interface.
    return std::sscanf(line, "%255s %X %X %d %d %d %d %X", route.interface, &route.destination,
                       &route.gateway, &flags, &references, &use, &metric, &route.mask) == 8;
}

void write_dotted(std::uint32_t address, char *text) {
    inet_ntop(AF_INET, &address, text, INET_ADDRSTRLEN);
}

// ---- the default route

// A route as a gateway of last resort has it: up, by a gateway, nothing else.
bool is_plain_gateway(unsigned flags) {
    constexpr unsigned told =
        RTF_UP | RTF_REJECT | RTF_GATEWAY | RTF_HOST | RTF_REINSTATE | RTF_DYNAMIC | RTF_MODIFIED;
    return (flags & told) == (RTF_UP | RTF_GATEWAY);
}

struct GatewayLine {
    char *interface;
    std::uint32_t gateway;
    unsigned flags;
};

// Fields that the line does not have are 0.
GatewayLine read_gateway_line(char *line) {
    const std::size_t length = std::strcspn(line, " \t\n");
    const char *const fields = line[length] != '\0' ? line + length + 1 : line + length;
    unsigned long destination = 0;
    unsigned long gateway = 0;
    unsigned long mask = 0;
    unsigned flags = 0;
    int references = 0;
    int use = 0;
    int metric = 0;
    if (std::sscanf(fields, "%lx%lx%X%d%d%d%lx", &destination, &gateway, &flags, &references, &use,
                    &metric, &mask) < 7)
        std::printf("Unsuported kernel route format\n");
    line[length] = '\0';
    return {line, static_cast<std::uint32_t>(gateway), flags};
}

bool begins_with(const char *text, const char *beginning) {
    return std::strncmp(text, beginning, std::strlen(beginning)) == 0;
}

// Whether the route is the one asked for; learns the interface when none is named.
bool matches(const GatewayLine &line, char *ifname) {
    if (!is_plain_gateway(line.flags) || !begins_with(line.interface, ifname))
        return false;
    if (*ifname == '\0')
        zan_strcpy(ifname, line.interface, IF_NAMESIZE);
    return true;
}

// What a route says of the gateway: nothing, or an address, 0 to take back what an
// earlier one said.
std::optional<std::uint32_t> gateway_by(const GatewayLine &line, char *ifname) {
    if ((line.flags & RTF_UP) == 0)
        return {};
    if (ifname != nullptr)
        return matches(line, ifname) ? line.gateway : 0;
    if (is_plain_gateway(line.flags))
        return line.gateway;
    return {};
}

} // namespace
} // namespace zan

using namespace zan;

int get_route_ip(const char *dest, char *ifaddr, char *gateway) {
    if (dest == nullptr || ifaddr == nullptr)
        return 0;
    KernelTable table(route_table);
    if (!table.valid())
        return 0;
    *ifaddr = '\0';
    const in_addr_t address = inet_addr(dest);
    char line[route_line_size];
    Route route;
    table.read_line(line); // the header
    while (table.read_line(line)) {
        if (!read_route(line, route) || (address & route.mask) != route.destination)
            continue;
        get_ip_by_inf(route.interface, ifaddr);
        if (gateway != nullptr)
            write_dotted(route.gateway, gateway);
        return 1;
    }
    return 0;
}

int get_route6_ip(const char *dest, char *ifaddr) {
    KernelTable table("/proc/net/ipv6_route");
    if (!table.valid())
        return 0;
    if (ifaddr != nullptr)
        *ifaddr = '\0';
    in6_addr address;
    if (dest == nullptr || inet_pton(AF_INET6, dest, &address) != 1)
        return 0;
    char line[ipv6_line_size];
    while (table.read_line(line)) {
        const in6_addr destination = address_of_line(line);
        const char *const name = interface_of_line(line);
        if (name == nullptr || std::memcmp(&destination, &address, sizeof address) != 0)
            continue;
        char interface[64];
        zan_strcpy(interface, name, sizeof interface);
        get_addr_by_inf(AF_INET6, interface, nullptr, nullptr, ifaddr);
        break;
    }
    return 0;
}

int get_default_gw(char *ifname, uint32_t *gateway) {
    KernelTable table(route_table);
    if (!table.valid())
        return 0;
    char line[route_line_size];
    table.read_line(line); // the header
    while (table.read_line(line)) {
        const std::optional<std::uint32_t> found = gateway_by(read_gateway_line(line), ifname);
        if (gateway != nullptr && found)
            *gateway = *found;
    }
    return 0;
}
