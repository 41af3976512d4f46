// SPDX-License-Identifier: MIT
// The library's queries of interfaces, routes and bridges.
#include "run.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <utility>

namespace zan::ctl::network_commands {
namespace {

// The library's buffer for an address or a name; empty if there is none.
using Text = std::array<char, INET6_ADDRSTRLEN>;

bool is_ipv6(const std::string &address) {
    return address.find(':') != std::string::npos;
}

std::string check_address(const std::string &address) {
    in6_addr parsed{}; // large enough for IPv4 too
    if (inet_pton(is_ipv6(address) ? AF_INET6 : AF_INET, address.c_str(), &parsed) == 1)
        return {};
    return "not an address: " + address;
}

std::string check_interface(const std::string &name) {
    if (!name.empty() && name.size() < IF_NAMESIZE)
        return {};
    return "an interface name has 1 to " + std::to_string(IF_NAMESIZE - 1) + " characters";
}

std::string check_mac(const std::string &mac) {
    if (zan_is_valid_macaddr(mac.c_str()) != 0)
        return {};
    return "not a MAC address: " + mac;
}

// ---- route get

struct RouteOptions : Options {
    std::string address;
};

void define_route_get(CLI::App &app, RouteOptions &options) {
    app.add_option("ADDRESS", options.address, "An IPv4 address, or the network of an IPv6 route")
        ->option_text(" ")
        ->required()
        ->check(check_address);
}

struct Route {
    Text source{};
    Text gateway{};
    Text interface {};
    bool found = false;
};

Route find_route(const std::string &address) {
    Route route;
    if (is_ipv6(address)) {
        get_route6_ip(address.c_str(), route.source.data());
        route.found = route.source[0] != '\0';
    } else {
        route.found = get_route_ip(address.c_str(), route.source.data(), route.gateway.data()) != 0;
        if (route.source[0] != '\0')
            get_infname_by_ip(route.interface.data(), route.source.data());
    }
    return route;
}

ExitCode run_route_get(const RouteOptions &options, Output &output) {
    return attempt(output, options, options.address, [&] {
        const Route route = find_route(options.address);
        if (!route.found)
            throw Refusal("no route");
        const std::string gateway = route.gateway.data();
        std::string line = options.address;
        Json json = {{"address", options.address}};
        const auto add = [&](const char *word, const char *member, const std::string &value) {
            if (value.empty())
                return;
            line += std::string(" ") + word + " " + value;
            json[member] = value;
        };
        add("via", "gateway", gateway == "0.0.0.0" ? "" : gateway);
        add("dev", "interface", route.interface.data());
        add("src", "source", route.source.data());
        print(output, options, line, json);
    });
}

// ---- ifaddr

struct IfaddrOptions : Options {
    std::vector<std::string> interfaces;
};

void define_ifaddr(CLI::App &app, IfaddrOptions &options) {
    app.add_option("INTERFACE", options.interfaces, "Interfaces (default: all)")
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

// Returns whether the interface has an address.
bool print_addresses(const std::string &name, const IfaddrOptions &options, Output &output) {
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
    print(output, options, line, json);
    return true;
}

ExitCode run_ifaddr(const IfaddrOptions &options, Output &output) {
    ExitCode exit_code = ExitCode::done;
    if (options.interfaces.empty()) {
        for (const std::string &name : all_interfaces())
            print_addresses(name, options, output);
    }
    for (const std::string &name : options.interfaces) {
        exit_code = std::max(exit_code, attempt(output, options, name, [&] {
                                 if (!print_addresses(name, options, output))
                                     throw Refusal("no address");
                             }));
    }
    return exit_code;
}

// ---- mac-port

struct MacPortOptions : Options {
    std::string bridge;
    std::string mac;
};

void define_mac_port(CLI::App &app, MacPortOptions &options) {
    app.add_option("BRIDGE", options.bridge, "A bridge")
        ->option_text(" ")
        ->required()
        ->check(check_interface);
    app.add_option("MAC", options.mac, "A MAC address, such as 00:1a:2b:3c:4d:5e")
        ->option_text(" ")
        ->required()
        ->check(check_mac);
}

ExitCode run_mac_port(const MacPortOptions &options, Output &output) {
    return attempt(output, options, options.bridge + " " + options.mac, [&] {
        std::array<unsigned char, 6> mac{};
        std::array<char, IF_NAMESIZE> port{};
        zan_macstr_to_num(options.mac.c_str(), mac.data());
        if (get_ifname_from_macaddr(options.bridge.c_str(), mac.data(), port.data()) < 0)
            throw Refusal("no port");
        print(output, options, port.data(),
              {{"bridge", options.bridge}, {"mac", options.mac}, {"port", port.data()}});
    });
}

constexpr Command commands[] = {
    command_group("route", "Look up routes, as the library does"),
    command<define_route_get, run_route_get>("route get", "Print the route to an address"),
    command<define_ifaddr, run_ifaddr>("ifaddr", "Print the addresses of interfaces"),
    command<define_mac_port, run_mac_port>("mac-port",
                                           "Print the bridge port that leads to a MAC address"),
};

const FamilyRegistration registration({"The network, without a daemon", 60, commands});

} // namespace
} // namespace zan::ctl::network_commands
