// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "service/action.h"
#include "state/daemon.h"
#include "tree/tree_file.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <memory>

namespace zan::sim {

namespace {

// Objects of these names keep what they hold when the rest is reset.
constexpr std::array<std::string_view, 2> wifi_objects{"WLANConfiguration", "wifi"};

// Names in zansim's directory, unless the request gives one.
constexpr char backup_file[] = "backup.json";
constexpr char old_backup_file[] = "backup_old.json";
constexpr char log_file[] = "actions.log";

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

// Every action passes here, so that each is remembered before it is carried out.
Result<Action> begin(Daemon &daemon, const Request &request) {
    auto action = read_action(request.record);
    if (!action)
        return action;
    std::string line(find_service(request.record.type, request.record.cmd)->name);
    if (action->name[0] != '\0')
        line += ' ' + std::string(action->name);
    daemon.statistics.actions.note(line);
    daemon.action_log.add(local_time() + ' ' + escape(request.record.src) + ' ' + escape(line));
    return action;
}

std::string name_or(const Action &action, const char *usual) {
    return action.name[0] == '\0' ? usual : action.name;
}

// Puts back, below an object, the children that are of wireless networks.
void keep_wifi(Object &object, const Object &present) {
    for (const Child &child : present.children) {
        Child *const other = object.find(child.name);
        if (other == nullptr)
            continue;
        if (std::find(wifi_objects.begin(), wifi_objects.end(), child.name) != wifi_objects.end()) {
            other->node = child.node;
            continue;
        }
        const Object *const inner = std::get_if<Object>(&child.node);
        const Table *const table = std::get_if<Table>(&child.node);
        if (inner != nullptr && std::holds_alternative<Object>(other->node))
            keep_wifi(std::get<Object>(other->node), *inner);
        if (table == nullptr || !std::holds_alternative<Table>(other->node))
            continue;
        for (auto &[number, instance] : std::get<Table>(other->node).instances) {
            if (const auto same = table->instances.find(number); same != table->instances.end())
                keep_wifi(instance, same->second);
        }
    }
}

Result<std::string> reset_to(Daemon &daemon, const Request &request, Tree tree) {
    if (const auto action = begin(daemon, request); !action)
        return action.error();
    daemon.replace_tree(request.record.src, std::move(tree));
    return std::string();
}

} // namespace

Result<std::string> upgrade_firmware(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    using Rest = std::function<void()>;
    return work_with_files(
        daemon, request, [&daemon, name = std::string(action->name)]() -> Result<Rest> {
            const auto image = daemon.files.read(name);
            if (!image)
                return image.error();
            if (image->empty())
                return Error{file_failed, "file is empty: " + escape(name)};
            return Rest([&daemon, name] { daemon.statistics.firmware.note(name); });
        });
}

Result<std::string> upgrade_configuration(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    return load_configuration(daemon, request, action->name);
}

Result<std::string> save_configuration(Daemon &daemon, const Request &request) {
    if (const auto action = begin(daemon, request); !action)
        return action.error();
    const auto tree = std::make_shared<const Tree>(daemon.tree);
    return store_file(
        daemon, request, daemon.configuration_file, [tree] { return format_tree(*tree); },
        [&daemon, tree] { daemon.saved = *tree; });
}

Result<std::string> factory_reset(Daemon &daemon, const Request &request) {
    return reset_to(daemon, request, daemon.defaults);
}

Result<std::string> factory_reset_without_wifi(Daemon &daemon, const Request &request) {
    Object root = daemon.defaults.root();
    keep_wifi(root, daemon.tree.root());
    return reset_to(daemon, request, Tree(std::move(root)));
}

Result<std::string> back_up(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    return store_file(daemon, request, name_or(*action, backup_file),
                      [tree = daemon.tree] { return format_tree(tree); });
}

Result<std::string> back_up_saved(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    // As it is saved then: a save may be waiting for the disk.
    return store_file(daemon, request, name_or(*action, old_backup_file),
                      [&daemon] { return format_tree(daemon.saved); });
}

Result<std::string> run_shell(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    daemon.statistics.shell_commands.note(action->name);
    if (!daemon.shell.allowed()) {
        daemon.conclude(request.asker, std::string());
        return std::string();
    }
    const auto ended = [&daemon, asker = request.asker](const Result<Done> &done) {
        const auto guard = daemon.lock();
        daemon.conclude(asker, done ? Result<std::string>(std::string()) : done.error());
    };
    const auto started = daemon.shell.start(action->name, ended);
    if (!started)
        return started.error();
    return std::string();
}

// Not even zansim starts again: it would leave behind the modules, which on a
// router start with it.
Result<std::string> reboot(Daemon &daemon, const Request &request) {
    if (const auto action = begin(daemon, request); !action)
        return action.error();
    daemon.statistics.reboots.note(request.record.src);
    return std::string();
}

Result<std::string> save_log(Daemon &daemon, const Request &request) {
    if (const auto action = begin(daemon, request); !action)
        return action.error();
    return store_file(daemon, request, log_file,
                      [text = daemon.action_log.text()] { return text; });
}

// For the trace alone.
Result<std::string> note_event_result(Daemon &, const Request &request) {
    if (const auto action = read_action(request.record); !action)
        return action.error();
    return std::string();
}

} // namespace zan::sim
