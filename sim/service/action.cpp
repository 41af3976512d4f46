// SPDX-License-Identifier: MIT
#include "request/action.h"
#include "base/text.h"
#include "service/file_requests.h"
#include "tree/tree_file.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <memory>

namespace zan::sim {

namespace {

// Objects of these names keep their content when the rest is reset.
constexpr std::array<std::string_view, 2> wifi_objects{"WLANConfiguration", "wifi"};

// Names in the file directory, unless the request contains one.
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

// Every action starts here, so that it is logged before it is executed.
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

// Restores the wireless settings below an object.
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

Result<std::string> upgrade_firmware(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    return work_with_files(
        daemon, request,
        [files = daemon.files, name = std::string(action->name)]() -> Result<LockedPart> {
            const auto image = files->read(name);
            if (!image)
                return image.error();
            if (image->empty())
                return Error{file_failed, "file is empty: " + escape(name)};
            return LockedPart([name](Daemon &target) { target.statistics.firmware.note(name); });
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
        [tree](Daemon &target) { target.saved = tree; });
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
    // Read when it is this request's turn: a save may be waiting for the disk.
    return store_file(daemon, request, name_or(*action, old_backup_file),
                      [shared = daemon.shared()] {
                          const auto saved = shared.lock()->saved;
                          return format_tree(*saved);
                      });
}

Result<std::string> run_shell(Daemon &daemon, const Request &request) {
    const auto action = begin(daemon, request);
    if (!action)
        return action.error();
    daemon.statistics.shell_commands.note(action->name);
    if (!daemon.shell.allowed()) {
        daemon.finish(request.requester, std::string());
        return std::string();
    }
    const auto on_exit = [shared = daemon.shared(),
                          requester = request.requester](const Result<Done> &done) {
        shared.lock()->finish(requester, done ? Result<std::string>(std::string()) : done.error());
    };
    const auto started = daemon.shell.start(action->name, on_exit);
    if (!started)
        return started.error();
    return std::string();
}

// zansim does not restart: the modules, which restart with a router, would not.
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

// Only for the trace.
Result<std::string> note_event_result(Daemon &, const Request &request) {
    if (const auto action = read_action(request.record); !action)
        return action.error();
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_EVENT_RESULT, "event-result", action, none,
            note_event_result, Reply::none},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_UPGRADE_FIRMWARE, "upgrade-firmware", action, none,
            upgrade_firmware, Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_UPGRADE_CONFIG, "upgrade-config", action, none,
            upgrade_configuration, Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_CONFIG, "save-config", action, none,
            save_configuration, Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_FACTORY_RESET, "factory-reset", action, none,
            factory_reset, Reply::if_waited},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_BACKUP_CONFIG, "backup-config", action, none, back_up,
            Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_RUN_SHELL, "shell", action, none, run_shell,
            Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_REBOOT, "reboot", action, none, reboot, Reply::if_waited},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_CONFIG2, "save-config2", action, none,
            save_configuration, Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_LOG, "save-log", action, none, save_log,
            Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_BACKUP_OLD_CONFIG, "backup-old-config", action, none,
            back_up_saved, Reply::by_handler},
    Service{ZAN_CLASS_ACTION, ZAN_ACTION_FACTORY_RESET_WO_WIFI, "factory-reset-wo-wifi", action,
            none, factory_reset_without_wifi, Reply::if_waited},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
