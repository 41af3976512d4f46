// SPDX-License-Identifier: MIT
#include "service/virtual_nodes.h"

#include "base/text.h"
#include "service/messages.h"
#include "state/daemon.h"

#include <algorithm>
#include <array>
#include <limits>

namespace zan::sim {

namespace {

constexpr std::string_view branch = "/zansim/";

struct VirtualNode {
    std::string_view name;
    std::string (*get)(const Daemon &);
    Result<std::string> (*set)(Daemon &, std::string_view);
};

Result<std::string> send_event(Daemon &daemon, std::string_view value) {
    const auto code = to_number(value);
    if (!code || *code < std::numeric_limits<std::int32_t>::min() ||
        *code > std::numeric_limits<std::int32_t>::max())
        return Error{bad_value, "not an event code: " + escape(value)};
    daemon.raise_event(static_cast<std::int32_t>(*code));
    return std::string();
}

// "MODULE TEXT".
Result<std::string> send_message(Daemon &daemon, std::string_view value) {
    const std::size_t blank = value.find(' ');
    if (blank == 0 || blank == std::string_view::npos)
        return Error{bad_value, "not a module and a text: " + escape(value)};
    return send_text(daemon, value.substr(0, blank), value.substr(blank + 1));
}

Result<std::string> set_fault(Daemon &daemon, std::string_view value) {
    if (value.empty()) {
        daemon.faults.clear();
        return std::string();
    }
    if (const auto added = daemon.faults.add(value); !added)
        return Error{bad_value, added.error().text};
    return std::string();
}

template<auto member> std::string number(const Daemon &daemon) {
    return std::to_string(daemon.statistics.*member);
}

template<auto member> std::string count(const Daemon &daemon) {
    return std::to_string((daemon.statistics.*member).count);
}

template<auto member> std::string last(const Daemon &daemon) {
    return (daemon.statistics.*member).last;
}

constexpr std::array nodes{
    VirtualNode{"event", nullptr, send_event},
    VirtualNode{"message", nullptr, send_message},
    VirtualNode{"version", [](const Daemon &) { return std::string(ZAN_VERSION_TEXT); }, nullptr},
    VirtualNode{"modules",
                [](const Daemon &daemon) { return std::to_string(daemon.modules.size()); },
                nullptr},
    VirtualNode{"subscriptions",
                [](const Daemon &daemon) { return std::to_string(daemon.subscriptions.size()); },
                nullptr},
    VirtualNode{"requests", number<&Statistics::requests>, nullptr},
    VirtualNode{"notifications", number<&Statistics::notifications>, nullptr},
    VirtualNode{"dropped", number<&Statistics::dropped>, nullptr},
    VirtualNode{"command_lines", count<&Statistics::command_lines>, nullptr},
    VirtualNode{"last_command_line", last<&Statistics::command_lines>, nullptr},
    VirtualNode{"actions", count<&Statistics::actions>, nullptr},
    VirtualNode{"last_action", last<&Statistics::actions>, nullptr},
    VirtualNode{"shell_commands", count<&Statistics::shell_commands>, nullptr},
    VirtualNode{"last_shell_command", last<&Statistics::shell_commands>, nullptr},
    VirtualNode{"reboots", count<&Statistics::reboots>, nullptr},
    VirtualNode{"firmware", last<&Statistics::firmware>, nullptr},
    VirtualNode{"conversions", count<&Statistics::conversions>, nullptr},
    VirtualNode{"last_conversion", last<&Statistics::conversions>, nullptr},
    VirtualNode{"applied", number<&Statistics::applied>, nullptr},
    VirtualNode{"firewall_applied", number<&Statistics::firewall_applied>, nullptr},
    VirtualNode{"configuration_file",
                [](const Daemon &daemon) { return daemon.configuration_file; }, nullptr},
    VirtualNode{"directory", [](const Daemon &daemon) { return daemon.files->directory(); },
                nullptr},
    VirtualNode{"faults", number<&Statistics::faults>, nullptr},
    VirtualNode{"fault", [](const Daemon &daemon) { return daemon.faults.text(); }, set_fault},
};

Result<const VirtualNode *> find_node(std::string_view path) {
    const std::string_view name = path.substr(std::min(branch.size(), path.size()));
    const auto node = std::find_if(nodes.begin(), nodes.end(), [&](const VirtualNode &candidate) {
        return candidate.name == name;
    });
    if (node == nodes.end())
        return Error{no_node, "no such node: " + escape(path)};
    return &*node;
}

} // namespace

Result<std::string> get_virtual(const Daemon &daemon, std::string_view path) {
    const auto node = find_node(path);
    if (!node)
        return node.error();
    if ((*node)->get == nullptr)
        return Error{write_only, "write-only: " + escape(path)};
    return (*node)->get(daemon);
}

Result<std::string> set_virtual(Daemon &daemon, std::string_view path, std::string_view value) {
    const auto node = find_node(path);
    if (!node)
        return node.error();
    if ((*node)->set == nullptr)
        return Error{read_only, "read-only: " + escape(path)};
    return (*node)->set(daemon, value);
}

std::vector<VirtualNodeAccess> virtual_nodes() {
    std::vector<VirtualNodeAccess> all;
    for (const VirtualNode &node : nodes)
        all.push_back({node.name, node.get != nullptr, node.set != nullptr});
    return all;
}

} // namespace zan::sim
