// SPDX-License-Identifier: MIT
#pragma once

#include "arguments.h"
#include "output.h"
#include "session.h"

#include <span>
#include <variant>

namespace zan::ctl {

using Definition = void (*)(CLI::App &app, Arguments &arguments);
using DaemonCommand = int (*)(Session &session, const Arguments &arguments, Output &output);
using LocalCommand = int (*)(const Arguments &arguments, Output &output);

// One command is one row of its family's table and its functions.
struct Command {
    // Of two words for a command in a group, as in "attr get".
    const char *name;
    const char *summary;
    Definition define = nullptr;
    // A local command needs no daemon; neither kind: the name and summary of a
    // group, whose commands follow.
    std::variant<std::monostate, DaemonCommand, LocalCommand> run = {};

    bool heads_group() const { return run.index() == 0; }
    bool needs_daemon() const { return std::holds_alternative<DaemonCommand>(run); }
};

// Commands under one heading of the help.
struct Family {
    const char *heading;
    std::span<const Command> commands;
};

std::span<const Family> families();

// Each family is a file of its own, command_*.cpp.
extern const Family tree_family;
extern const Family module_family;
extern const Family device_family;
extern const Family action_family;
extern const Family path_family;
extern const Family network_family;
extern const Family log_family;
extern const Family event_family;

} // namespace zan::ctl
