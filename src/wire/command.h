// SPDX-License-Identifier: MIT
// The table of commands: what each is called, what its request and its answer carry,
// and which record answers it.
#pragma once

#include "zan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace zan::wire {

// What a payload consists of.
enum class Form {
    none,
    text,
    path,         // of a node, or the name of a file; "#" may follow the path of a table
    path_text,    // a path, perhaps followed by a space and a text
    assignment,   // "0", a path, a space, a value
    conversion,   // a digit and a path
    subscription, // flag, option and a path
    value_change, // the six fields of a notification
    event,        // a 32-bit number
    action,       // zan_action_data
    bytes,
};

// Which command of the class answers a request.
enum class Reply {
    same_command,
    acknowledgement, // ZAN_MESSAGE_ACK
    if_waited,       // the same command, if the action's sender waits for it
    none,
};

// Stands for every command of a class.
inline constexpr std::int32_t any_command = std::numeric_limits<std::int32_t>::min();

struct Command {
    std::int32_t type;
    std::int32_t cmd;
    std::string_view name; // empty: no request uses it
    Form request;
    Form answer;
    Reply reply = Reply::same_command;
};

struct Class {
    std::int32_t type;
    std::string_view name;
    std::string_view server; // the daemon's module that answers
};

inline constexpr std::array classes{
    Class{ZAN_CLASS_CFG, "CFG", ZAN_MODULE_CFG},
    Class{ZAN_CLASS_CWMP, "CWMP", ZAN_MODULE_CWMP},
    Class{ZAN_CLASS_REGISTRATION, "REGISTRATION", ZAN_MODULE_CORE},
    Class{ZAN_CLASS_MESSAGE, "MESSAGE", ZAN_MODULE_CORE},
    Class{ZAN_CLASS_NOTIFY, "NOTIFY", ZAN_MODULE_CORE},
    Class{ZAN_CLASS_ACTION, "ACTION", ZAN_MODULE_ACTION},
    Class{ZAN_CLASS_CONTROL, "CONTROL", ZAN_MODULE_CORE},
    Class{ZAN_CLASS_BROADCAST, "BROADCAST", ZAN_MODULE_CORE},
};

inline constexpr std::array commands{
    Command{ZAN_CLASS_CFG, ZAN_CFG_GET, "get", Form::path, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_SET, "set", Form::assignment, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_DELETE, "delete", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_RELOAD, "reload", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_DUMP, "dump", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_SET_FILE, "set-file", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_PRINT, "print", Form::path_text, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_GET_ATTR, "get-attribute", Form::path, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_SET_ATTR, "set-attribute", Form::path_text, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_LOGIN, "login", Form::text, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_EMPTY, "empty", Form::none, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_RESET, "reset", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_CONVERT_PATH, "convert-path", Form::conversion, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_GET_ARRAY, "array", Form::path, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_ANCHOR, "anchor", Form::path, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_IFNAME, "interface-name", Form::path, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_RESERVED_30, "", Form::bytes, Form::text},
    Command{ZAN_CLASS_CFG, ZAN_CFG_CONVERT, "convert", Form::text, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_APPLY_ALL, "apply-all", Form::none, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_APPLY_FIREWALL, "apply-firewall", Form::none, Form::none},
    Command{ZAN_CLASS_CFG, ZAN_CFG_MODULE_PID, "module-pid", Form::text, Form::text},
    Command{ZAN_CLASS_CWMP, any_command, "request", Form::bytes, Form::bytes},
    Command{ZAN_CLASS_REGISTRATION, ZAN_REGISTER, "register", Form::none, Form::none},
    Command{ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, "unregister", Form::none, Form::none},
    Command{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, "send", Form::bytes, Form::none,
            Reply::acknowledgement},
    Command{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_ACK, "acknowledge", Form::none, Form::none, Reply::none},
    Command{ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND, "send-unconfirmed", Form::bytes, Form::none,
            Reply::none},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_VALUE, "watch", Form::subscription, Form::none},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_EVENT, "await-event", Form::event, Form::none},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_VALUE, "unwatch", Form::path, Form::none},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_UNREGISTER_EVENT, "ignore-event", Form::event, Form::none},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_VALUE_CHANGED, "value-changed", Form::value_change,
            Form::value_change},
    Command{ZAN_CLASS_NOTIFY, ZAN_NOTIFY_EVENT, "event", Form::event, Form::event},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_EVENT_RESULT, "event-result", Form::action, Form::none,
            Reply::none},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_UPGRADE_FIRMWARE, "upgrade-firmware", Form::action,
            Form::none, Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_UPGRADE_CONFIG, "upgrade-config", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_CONFIG, "save-config", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_FACTORY_RESET, "factory-reset", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_BACKUP_CONFIG, "backup-config", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_RUN_SHELL, "shell", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_REBOOT, "reboot", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_CONFIG2, "save-config2", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_SAVE_LOG, "save-log", Form::action, Form::none,
            Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_BACKUP_OLD_CONFIG, "backup-old-config", Form::action,
            Form::none, Reply::if_waited},
    Command{ZAN_CLASS_ACTION, ZAN_ACTION_FACTORY_RESET_WO_WIFI, "factory-reset-wo-wifi",
            Form::action, Form::none, Reply::if_waited},
    Command{ZAN_CLASS_CONTROL, ZAN_CONTROL_COMMAND_LINE, "command-line", Form::text, Form::none,
            Reply::none},
    Command{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_ACK, "acknowledge", Form::none, Form::none,
            Reply::none},
    Command{ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, "send-all", Form::bytes, Form::none,
            Reply::acknowledgement},
};

// Null for a class that does not exist.
constexpr const Class *find_class(std::int32_t type) {
    for (const Class &row : classes)
        if (row.type == type)
            return &row;
    return nullptr;
}

// Null for a command that does not exist.
constexpr const Command *find_command(std::int32_t type, std::int32_t cmd) {
    for (const Command &row : commands)
        if (row.type == type && (row.cmd == cmd || row.cmd == any_command))
            return &row;
    return nullptr;
}

// ---- which answers carry a text --------------------------------------------

consteval std::size_t count_answers_with_text() {
    std::size_t count = 0;
    for (const Command &row : commands)
        count += row.type == ZAN_CLASS_CFG && row.answer == Form::text ? 1 : 0;
    return count;
}

// The commands of ZAN_CLASS_CFG whose answers carry a text.
inline constexpr auto answered_with_text = [] {
    std::array<std::int32_t, count_answers_with_text()> cmds{};
    std::size_t at = 0;
    for (const Command &row : commands)
        if (row.type == ZAN_CLASS_CFG && row.answer == Form::text)
            cmds.at(at++) = row.cmd;
    return cmds;
}();

// The command that answers (type, cmd).
constexpr std::int32_t answer_command(std::int32_t type, std::int32_t cmd) {
    return type == ZAN_CLASS_MESSAGE || type == ZAN_CLASS_BROADCAST ? std::int32_t{ZAN_MESSAGE_ACK}
                                                                    : cmd;
}

// Whether requests of the class carry the time of sending; all others leave it 0.
constexpr bool is_timed(std::int32_t type) {
    return type == ZAN_CLASS_MESSAGE || type == ZAN_CLASS_BROADCAST || type == ZAN_CLASS_NOTIFY ||
           type == ZAN_CLASS_CONTROL;
}

} // namespace zan::wire
