// SPDX-License-Identifier: MIT
// What the library learns of interfaces, routes and bridges, by hand.
#include "run.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>

namespace zan::ctl {
namespace {

// An address or a name as the library writes it; empty when it has none.
using Text = std::array<char, INET6_ADDRSTRLEN>;

bool is_ipv6(const std::string &address) {
    return address.find(':') != std::string::npos;
}

std::string check_address(const std::string &address) {
    in6_addr room{}; // for an IPv4 address, too
    if (inet_pton(is_ipv6(address) ? AF_INET6 : AF_INET, address.c_str(), &room) == 1)
        return {};
    return "not an address: " + address;
}

std::string check_interface(const std::string &name) {
    if (!name.empty() && name.size() < IF_NAMESIZE)
        return {};
    return "the name of an interface has 1 to " + std::to_string(IF_NAMESIZE - 1) + " characters";
}

std::string check_mac(const std::string &mac) {
    if (zan_is_valid_macaddr(mac.c_str()) != 0)
        return {};
    return "not a MAC address: " + mac;
}

int not_found(const std::string &what, const char *missing) {
    std::fprintf(stderr, "zanctl: %s: %s\n", what.c_str(), missing);
    return exit_refused;
}

// ---- route get

void define_route_get(CLI::App &app, Arguments &arguments) {
    app.add_option("ADDRESS", arguments.network.address, "Where to; an IPv6 route by its network")
        ->option_text(" ")
        ->required()
        ->check(check_address);
}

struct Way {
    Text source{};
    Text gateway{};
    Text interface {};
    bool found = false;
};

Way way_to(const std::string &address) {
    Way way;
    if (is_ipv6(address)) {
        get_route6_ip(address.c_str(), way.source.data());
        way.found = way.source[0] != '\0';
    } else {
        way.found = get_route_ip(address.c_str(), way.source.data(), way.gateway.data()) != 0;
        if (way.source[0] != '\0')
            get_infname_by_ip(way.interface.data(), way.source.data());
    }
    return way;
}

int run_route_get(const Arguments &arguments, Output &output) {
    const Way way = way_to(arguments.network.address);
    if (!way.found)
        return not_found(arguments.network.address, "no route");
    const std::string gateway = way.gateway.data();
    std::string line = arguments.network.address;
    Json json = {{"address", arguments.network.address}};
    const auto add = [&](const char *word, const char *member, const std::string &value) {
        if (value.empty())
            return;
        line += std::string(" ") + word + " " + value;
        json[member] = value;
    };
    add("via", "gateway", gateway == "0.0.0.0" ? "" : gateway);
    add("dev", "interface", way.interface.data());
    add("src", "source", way.source.data());
    print(output, arguments, line, json);
    return exit_done;
}

// ---- ifaddr

void define_ifaddr(CLI::App &app, Arguments &arguments) {
    app.add_option("INTERFACE", arguments.network.interfaces, "Interfaces (default: all)")
        ->option_text("...")
        ->check(check_interface);
}

std::vector<std::string> all_interfaces() {
    std::vector<std::string> names;
    struct if_nameindex *const list = if_nameindex();
    for (const struct if_nameindex *entry = list; entry != nullptr && entry->if_name != nullptr;
         ++entry)
        names.emplace_back(entry->if_name);
    if_freenameindex(list);
    return names;
}

// Whether it has an address.
bool show_addresses(const std::string &name, const Arguments &arguments, Output &output) {
    Text ipv4{};
    Text ipv6{};
    get_addr_by_inf(AF_INET, name.c_str(), nullptr, nullptr, ipv4.data());
    get_addr_by_inf(AF_INET6, name.c_str(), nullptr, nullptr, ipv6.data());
    std::string line = name;
    Json json = {{"interface", name}};
    for (const auto &[member, address] : {std::pair("ipv4", &ipv4), std::pair("ipv6", &ipv6)}) {
        if ((*address)[0] == '\0')
            continue;
        line += std::string(" ") + address->data();
        json[member] = address->data();
    }
    if (line == name)
        return false;
    print(output, arguments, line, json);
    return true;
}

int run_ifaddr(const Arguments &arguments, Output &output) {
    int status = exit_done;
    if (arguments.network.interfaces.empty()) {
        for (const std::string &name : all_interfaces())
            show_addresses(name, arguments, output);
    }
    for (const std::string &name : arguments.network.interfaces) {
        if (!show_addresses(name, arguments, output))
            status = not_found(name, "no address");
    }
    return status;
}

// ---- mac-port

void define_mac_port(CLI::App &app, Arguments &arguments) {
    app.add_option("BRIDGE", arguments.network.bridge, "A bridge")
        ->option_text(" ")
        ->required()
        ->check(check_interface);
    app.add_option("MAC", arguments.network.address, "An address, such as 00:1a:2b:3c:4d:5e")
        ->option_text(" ")
        ->required()
        ->check(check_mac);
}

int run_mac_port(const Arguments &arguments, Output &output) {
    std::array<unsigned char, 6> mac{};
    std::array<char, IF_NAMESIZE> port{};
    zan_macstr_to_num(arguments.network.address.c_str(), mac.data());
    if (get_ifname_from_macaddr(arguments.network.bridge.c_str(), mac.data(), port.data()) < 0)
        return not_found(arguments.network.bridge + " " + arguments.network.address, "no port");
    print(output, arguments, port.data(),
          {{"bridge", arguments.network.bridge},
           {"mac", arguments.network.address},
           {"port", port.data()}});
    return exit_done;
}

constexpr Command network_commands[] = {
    {"route", "Ask for routes, as the library does"},
    {"route get", "Print the route that leads to an address", define_route_get, run_route_get},
    {"ifaddr", "Print the addresses of interfaces", define_ifaddr, run_ifaddr},
    {"mac-port", "Print the port behind which a bridge has learnt an address", define_mac_port,
     run_mac_port},
};

} // namespace

const Family network_family = {"The network, without a daemon", network_commands};

} // namespace zan::ctl
