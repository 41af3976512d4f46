// SPDX-License-Identifier: MIT
#include "service/services.h"

#include "base/text.h"
#include "service/action.h"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace zan::sim {

namespace {

struct ClassName {
    std::int32_t type;
    std::string_view name;
};

constexpr std::array classes{
    ClassName{ZAN_CLASS_CFG, "CFG"},
    ClassName{ZAN_CLASS_CWMP, "CWMP"},
    ClassName{ZAN_CLASS_REGISTRATION, "REGISTRATION"},
    ClassName{ZAN_CLASS_MESSAGE, "MESSAGE"},
    ClassName{ZAN_CLASS_NOTIFY, "NOTIFY"},
    ClassName{ZAN_CLASS_ACTION, "ACTION"},
    ClassName{ZAN_CLASS_CONTROL, "CONTROL"},
    ClassName{ZAN_CLASS_BROADCAST, "BROADCAST"},
};

using enum Form;

constexpr Service cfg(std::int32_t cmd, std::string_view name, Form request, Form answer,
                      Handler handler, Reply reply = Reply::same_command) {
    return {ZAN_CLASS_CFG, cmd, name, request, answer, handler, reply};
}

constexpr Service act(std::int32_t cmd, std::string_view name, Handler handler,
                      Reply reply = Reply::if_waited) {
    return {ZAN_CLASS_ACTION, cmd, name, action, none, handler, reply};
}

constexpr std::array services{
    cfg(ZAN_CFG_GET, "get", path, text, get_value),
    cfg(ZAN_CFG_SET, "set", assignment, none, set_value),
    cfg(ZAN_CFG_DELETE, "delete", path, none, delete_node),
    cfg(ZAN_CFG_RELOAD, "reload", path, none, reload, Reply::by_handler),
    cfg(ZAN_CFG_DUMP, "dump", path, none, dump, Reply::by_handler),
    cfg(ZAN_CFG_SET_FILE, "set-file", path, none, use_file),
    cfg(ZAN_CFG_PRINT, "print", first_word, none, print),
    cfg(ZAN_CFG_GET_ATTR, "get-attribute", path, text, get_attributes),
    cfg(ZAN_CFG_SET_ATTR, "set-attribute", first_word, none, set_attributes),
    cfg(ZAN_CFG_LOGIN, "login", text, text, check_login),
    cfg(ZAN_CFG_EMPTY, "empty", none, none, wake_up),
    cfg(ZAN_CFG_RESET, "reset", path, none, reset),
    cfg(ZAN_CFG_CONVERT_PATH, "convert-path", conversion, text, convert_path),
    cfg(ZAN_CFG_GET_ARRAY, "array", path, text, get_array),
    cfg(ZAN_CFG_ANCHOR, "anchor", path, none, add_instance),
    cfg(ZAN_CFG_IFNAME, "interface-name", path, text, interface_name),
    cfg(ZAN_CFG_CONVERT, "convert", text, none, note_conversion),
    cfg(ZAN_CFG_APPLY_ALL, "apply-all", none, none, apply_all),
    cfg(ZAN_CFG_APPLY_FIREWALL, "apply-firewall", none, none, apply_firewall),
    cfg(ZAN_CFG_MODULE_PID, "module-pid", text, text, module_pid),
    Service{ZAN_CLASS_CWMP, any_command, "request", bytes, bytes, pass_management_request,
            Reply::by_handler},
    Service{ZAN_CLASS_REGISTRATION, ZAN_REGISTER, "register", none, none, register_module},
    Service{ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, "unregister", none, none, unregister_module},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, "send", bytes, none, send_to_module,
            Reply::acknowledgement},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_ACK, "acknowledge", none, none, nullptr, Reply::none},
    Service{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND, "send-unconfirmed", bytes, none, send_to_module,
            Reply::none},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_VALUE, "watch", watch, none, watch_value},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_EVENT, "await-event", event, none, await_event},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_VALUE, "unwatch", path, none, unwatch_value},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_EVENT, "ignore-event", event, none,
            ignore_event},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_VALUE_CHANGED, "value-changed", text, text, nullptr},
    Service{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_EVENT, "event", event, event, nullptr},
    act(ZAN_ACTION_EVENT_RESULT, "event-result", note_event_result, Reply::none),
    act(ZAN_ACTION_UPGRADE_FIRMWARE, "upgrade-firmware", upgrade_firmware, Reply::by_handler),
    act(ZAN_ACTION_UPGRADE_CONFIG, "upgrade-config", upgrade_configuration, Reply::by_handler),
    act(ZAN_ACTION_SAVE_CONFIG, "save-config", save_configuration, Reply::by_handler),
    act(ZAN_ACTION_FACTORY_RESET, "factory-reset", factory_reset),
    act(ZAN_ACTION_BACKUP_CONFIG, "backup-config", back_up, Reply::by_handler),
    act(ZAN_ACTION_RUN_SHELL, "shell", run_shell, Reply::by_handler),
    act(ZAN_ACTION_REBOOT, "reboot", reboot),
    act(ZAN_ACTION_SAVE_CONFIG2, "save-config2", save_configuration, Reply::by_handler),
    act(ZAN_ACTION_SAVE_LOG, "save-log", save_log, Reply::by_handler),
    act(ZAN_ACTION_BACKUP_OLD_CONFIG, "backup-old-config", back_up_saved, Reply::by_handler),
    act(ZAN_ACTION_FACTORY_RESET_WO_WIFI, "factory-reset-wo-wifi", factory_reset_without_wifi),
    Service{ZAN_CLASS_CONTROL, ZAN_CONTROL_COMMAND_LINE, "command-line", text, none,
            note_command_line, Reply::none},
    Service{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_ACK, "acknowledge", none, none, nullptr, Reply::none},
    Service{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, "send-all", bytes, none, send_to_all,
            Reply::acknowledgement},
};

// Who answers for a class.
std::string_view answering_name(std::int32_t type) {
    switch (type) {
    case ZAN_CLASS_CFG:
        return "ZAN_CFG";
    case ZAN_CLASS_CWMP:
        return "ZAN_CWMP";
    case ZAN_CLASS_ACTION:
        return "ZAN_FAD";
    default:
        return "ZAN";
    }
}

} // namespace

std::string_view Request::text() const {
    return until_nul(record.payload);
}

Error no_such_module(std::string_view name) {
    return {unknown_module, "unknown module: " + escape(name)};
}

const Service *find_service(std::int32_t type, std::int32_t cmd) {
    const auto found = std::find_if(services.begin(), services.end(), [&](const Service &service) {
        return service.type == type && (service.cmd == cmd || service.cmd == any_command);
    });
    return found == services.end() ? nullptr : &*found;
}

std::string_view subject_of(const Record &request) {
    const Service *const service = find_service(request.type, request.cmd);
    const std::string_view payload = request.payload;
    const auto from = [&](std::size_t start) {
        return until_nul(payload.substr(std::min(start, payload.size())));
    };
    const auto word = [](std::string_view line) { return line.substr(0, line.find(' ')); };
    switch (service == nullptr ? Form::none : service->request) {
    case Form::path: {
        const std::string_view line = from(0);
        return line.substr(0, line.size() - (line.ends_with('#') ? 1 : 0));
    }
    case Form::first_word:
        return word(from(0));
    case Form::assignment:
        return word(from(1));
    case Form::conversion:
        return from(1);
    case Form::watch:
        return from(2);
    case Form::action:
        return from(offsetof(Action, name));
    case Form::none:
    case Form::text:
    case Form::event:
    case Form::bytes:
        break;
    }
    return {};
}

Record answer_to(const Asker &asker) {
    const Service *const service = find_service(asker.type, asker.cmd);
    const bool acknowledged = service != nullptr && service->reply == Reply::acknowledgement;
    Record answer;
    answer.type = asker.type;
    answer.cmd = acknowledged ? std::int32_t{ZAN_MESSAGE_ACK} : asker.cmd;
    answer.dst = asker.name;
    answer.src = answering_name(asker.type);
    answer.pid = getpid();
    answer.result = 1;
    return answer;
}

bool is_awaited(const Record &request) {
    const Service *const service = find_service(request.type, request.cmd);
    const Reply reply = service == nullptr ? Reply::same_command : service->reply;
    if (reply == Reply::if_waited || (reply == Reply::by_handler && service->request == action)) {
        const auto order = read_action(request);
        return !order || order->wait != 0;
    }
    return reply != Reply::none;
}

std::string_view class_name(std::int32_t type) {
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const ClassName &candidate) { return candidate.type == type; });
    return found == classes.end() ? std::string_view() : found->name;
}

std::optional<std::int32_t> class_by_name(std::string_view name) {
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const ClassName &candidate) { return candidate.name == name; });
    if (found == classes.end())
        return std::nullopt;
    return found->type;
}

bool is_command_name(std::string_view name, std::optional<std::int32_t> type) {
    return std::any_of(services.begin(), services.end(), [&](const Service &service) {
        return service.name == name && (!type || service.type == *type);
    });
}

} // namespace zan::sim
