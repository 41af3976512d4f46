// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "request/services.h"
#include "service/virtual_nodes.h"
#include "state/daemon.h"

#include <unistd.h>

#include <array>
#include <cstdio>

namespace zan::sim {

namespace {

// The process id of a registered module; ZAN and ZAN_CFG are zansim itself.
Result<int> pid_of(Daemon &daemon, std::string_view name) {
    if (name == "ZAN" || name == "ZAN_CFG")
        return static_cast<int>(getpid());
    const Modules::Entry *const entry = daemon.modules.find(name);
    if (entry == nullptr)
        return no_such_module(name);
    const int pid = daemon.process_of(*entry);
    if (pid <= 0)
        return Error{unknown_module, "pid not known: " + escape(name)};
    return pid;
}

Result<std::string> get_value(Daemon &daemon, const Request &request) {
    std::string_view path = request.text();
    if (is_reserved(path))
        return get_virtual(daemon, path);
    if (!path.ends_with('#'))
        return daemon.tree.get(path);
    path.remove_suffix(1);
    const auto count = daemon.tree.count(path);
    if (!count)
        return count.error();
    return std::to_string(*count);
}

Result<std::string> set_value(Daemon &daemon, const Request &request) {
    const std::string_view text = request.text();
    const std::size_t blank = text.find(' ');
    if (text.empty() || text[0] != '0' || blank == std::string_view::npos)
        return Error{malformed, "malformed record: not \"0PATH VALUE\""};
    const std::string_view path = text.substr(1, blank - 1);
    const std::string_view value = text.substr(blank + 1);
    if (is_reserved(path))
        return set_virtual(daemon, path, value);
    const auto stored = daemon.tree.set(path, value);
    if (!stored)
        return stored.error();
    if (*stored)
        daemon.announce(request.record.src, path, ChangeKind::value, **stored);
    return std::string();
}

Result<std::string> get_array(Daemon &daemon, const Request &request) {
    return daemon.tree.render(request.text());
}

Result<std::string> add_instance(Daemon &daemon, const Request &request) {
    const auto path = daemon.tree.add(request.text());
    if (!path)
        return path.error();
    daemon.announce(request.record.src, *path, ChangeKind::added);
    return std::string();
}

Result<std::string> delete_node(Daemon &daemon, const Request &request) {
    const auto done = daemon.tree.remove(request.text());
    if (!done)
        return done.error();
    daemon.announce(request.record.src, request.text(), ChangeKind::deleted);
    return std::string();
}

// Attributes are any text after the path.
Result<std::string> get_attributes(Daemon &daemon, const Request &request) {
    return daemon.tree.attributes(request.text());
}

Result<std::string> set_attributes(Daemon &daemon, const Request &request) {
    const std::string_view text = request.text();
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos)
        return Error{malformed, "malformed record: not \"PATH ATTRIBUTES\""};
    const auto done = daemon.tree.set_attributes(text.substr(0, blank), text.substr(blank + 1));
    if (!done)
        return done.error();
    daemon.touch();
    return std::string();
}

Result<std::string> reset(Daemon &daemon, const Request &request) {
    Tree next = daemon.tree;
    if (const auto done = next.reset(request.text(), daemon.defaults); !done)
        return done.error();
    daemon.replace_tree(request.record.src, std::move(next));
    return std::string();
}

// The requester checks the node, too, but a write may begin before the request arrives.
Result<std::string> apply_all(Daemon &daemon, const Request &) {
    const auto state = daemon.tree.get("/runtime/app/tr069/config_state");
    if (state && *state == "1")
        return Error{busy, "the TR-069 client is writing the configuration"};
    ++daemon.statistics.applied;
    return std::string();
}

Result<std::string> apply_firewall(Daemon &daemon, const Request &) {
    ++daemon.statistics.firewall_applied;
    return std::string();
}

// A path, optionally followed by a space and a heading; the argument is a depth.
Result<std::string> print(Daemon &daemon, const Request &request) {
    const std::string_view text = request.text();
    const std::string_view path = text.substr(0, text.find(' '));
    if (request.record.arg < 0)
        return Error{bad_value, "depth " + std::to_string(request.record.arg) + " is negative"};
    const auto found = daemon.tree.list(path, static_cast<std::size_t>(request.record.arg));
    if (!found)
        return found.error();
    std::string lines;
    if (path.size() < text.size())
        lines = escape(text.substr(path.size() + 1, ZAN_PATH_SIZE)) + '\n';
    lines += parameter_lines(*found);
    std::fputs(lines.c_str(), stdout);
    std::fflush(stdout);
    return std::string();
}

Result<std::string> module_pid(Daemon &daemon, const Request &request) {
    const auto pid = pid_of(daemon, request.text());
    if (!pid)
        return pid.error();
    return std::to_string(*pid);
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CFG, ZAN_CFG_GET, "get", path, text, get_value},
    Service{ZAN_CLASS_CFG, ZAN_CFG_SET, "set", assignment, none, set_value},
    Service{ZAN_CLASS_CFG, ZAN_CFG_DELETE, "delete", path, none, delete_node},
    Service{ZAN_CLASS_CFG, ZAN_CFG_PRINT, "print", first_word, none, print},
    Service{ZAN_CLASS_CFG, ZAN_CFG_GET_ATTR, "get-attribute", path, text, get_attributes},
    Service{ZAN_CLASS_CFG, ZAN_CFG_SET_ATTR, "set-attribute", first_word, none, set_attributes},
    Service{ZAN_CLASS_CFG, ZAN_CFG_RESET, "reset", path, none, reset},
    Service{ZAN_CLASS_CFG, ZAN_CFG_GET_ARRAY, "array", path, text, get_array},
    Service{ZAN_CLASS_CFG, ZAN_CFG_ANCHOR, "anchor", path, none, add_instance},
    Service{ZAN_CLASS_CFG, ZAN_CFG_APPLY_ALL, "apply-all", none, none, apply_all},
    Service{ZAN_CLASS_CFG, ZAN_CFG_APPLY_FIREWALL, "apply-firewall", none, none, apply_firewall},
    Service{ZAN_CLASS_CFG, ZAN_CFG_MODULE_PID, "module-pid", text, text, module_pid},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
